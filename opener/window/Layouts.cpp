#include "opener/window/Layouts.h"

#include <QLabel>

#include "platform/qt/widgets/ImageView.h"
#include "platform/qt/widgets/Panel.h"
#include "platform/qt/widgets/StatePanel.h"
#include "platform/qt/widgets/StatusLabel.h"

namespace zelvo::opener {

namespace {

constexpr int ImageSize = 64;
constexpr double TitleScale = 1.5;

platform::StatusLabel* makeLabel(const QString& name) {
    auto* label = new platform::StatusLabel;
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

}  // namespace

QVBoxLayout* makeColumn(QWidget& page) {
    auto* column = new QVBoxLayout(&page);
    column->setContentsMargins(28, 24, 28, 18);
    column->setSpacing(16);
    return column;
}

Header addHeader(QBoxLayout& column, const QString& images, const char* name) {
    Header header;
    header.panel = new platform::StatePanel;
    header.image = new platform::ImageView;
    header.image->setFolder(images);
    header.image->setImage("zelvo");
    header.image->setFixedSize(ImageSize, ImageSize);
    header.title = makeLabel(QString(name) + "Title");
    auto font = header.title->font();
    font.setPointSizeF(font.pointSizeF() * TitleScale);
    font.setBold(true);
    header.title->setFont(font);
    header.sentence = makeLabel(QString(name) + "Sentence");
    header.sentence->setAlignment(Qt::AlignLeading | Qt::AlignTop);

    auto* words = new QVBoxLayout;
    words->setSpacing(6);
    words->addWidget(header.title);
    words->addWidget(header.sentence, 1);
    auto* row = new QHBoxLayout(header.panel);
    row->setContentsMargins(16, 12, 16, 12);
    row->setSpacing(18);
    row->addWidget(header.image, 0, Qt::AlignTop);
    row->addLayout(words, 1);
    column.addWidget(header.panel);
    return header;
}

QVBoxLayout* addPanel(QBoxLayout& column, QWidget*& panel) {
    panel = new platform::Panel;
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(18, 16, 18, 16);
    layout->setSpacing(12);
    column.addWidget(panel);
    return layout;
}

}  // namespace zelvo::opener
