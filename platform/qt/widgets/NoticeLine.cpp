#include "platform/qt/widgets/NoticeLine.h"

#include <algorithm>

#include "platform/qt/content/Localized.h"
#include "platform/qt/widgets/StatusLabel.h"

namespace zelvo::platform {

using namespace std::chrono_literals;

const Notice Copied{"Copied", 4s};
const Notice LinkNotOpened{
    "No program could be opened for this. Copy the link and send it another way.", 15s};
const Notice TextNotOpened{
    "No program could be opened for this. Copy the text and send it another way.", 15s};
const Notice PasteText{"The text is copied. Paste it into your message.", 15s};
const Notice HelpInWindow{
    "No browser could be opened, so the help is shown in a window of its own.", 15s};

NoticeLine::NoticeLine(QWidget* parent) : QStackedWidget(parent), sentence_(new StatusLabel(this)) {
    sentence_->setObjectName("notice");
    sentence_->setTextFormat(Qt::PlainText);
    sentence_->setAlignment(Qt::AlignCenter);
    sentence_->setWordWrap(true);
    // By its own wish it would be a narrow column of many lines, and nothing may move for it.
    sentence_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Ignored);
    sentence_->hide();
    end_.setSingleShot(true);
    connect(&end_, &QTimer::timeout, this, [this] { clear(); });
}

void NoticeLine::say(const Notice& notice) {
    // Behind the page that is there at rest.
    if (indexOf(sentence_) < 0)
        addWidget(sentence_);
    sentence_->setText(localized(notice.key));
    // What is shown anew is announced by the toolkit.
    if (currentWidget() == sentence_)
        sentence_->announce();
    setCurrentWidget(sentence_);
    end_.start(notice.time);
}

void NoticeLine::reserveSpace(int width) {
    int height = 0;
    for (const auto& notice : {Copied, LinkNotOpened, TextNotOpened, HelpInWindow, PasteText})
        height = std::max(height, fontMetrics()
                                      .boundingRect(QRect(0, 0, width, 0), Qt::TextWordWrap,
                                                    localized(notice.key))
                                      .height());
    setMinimumHeight(height);
}

}  // namespace zelvo::platform
