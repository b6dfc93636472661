#include "platform/qt/viewers/ViewerLines.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

#include "platform/Viewers.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/viewers/ViewerTexts.h"
#include "platform/qt/widgets/ImageView.h"
#include "platform/qt/widgets/StatusLabel.h"

namespace zelvo::platform {

class ViewerLines::Line final : public QWidget {
  public:
    Line(ViewerLines& owner, std::uint32_t id) : QWidget(&owner) {
        icon_->setFolder(owner.images_);
        icon_->setFixedSize(32, 32);
        for (auto* label : std::initializer_list<QLabel*>{who_, details_}) {
            label->setTextFormat(Qt::PlainText);
            label->setWordWrap(true);
        }
        QFont bold = font();
        bold.setBold(true);
        who_->setFont(bold);
        who_->setObjectName(QString("viewer%1").arg(id));
        rights_->setObjectName(QString("viewerRights%1").arg(id));
        disconnect_->setObjectName(QString("viewerDisconnect%1").arg(id));
        disconnect_->setText(localized("Disconnect"));

        auto* words = new QVBoxLayout;
        words->setSpacing(2);
        words->addWidget(who_);
        words->addWidget(details_);
        auto* layout = new QHBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(10);
        layout->addWidget(icon_);
        layout->addLayout(words, 1);
        auto* buttons = new QVBoxLayout;
        buttons->setSpacing(4);
        buttons->addWidget(rights_);
        buttons->addWidget(disconnect_);
        layout->addLayout(buttons);

        connect(rights_, &QPushButton::clicked, this, [this, &owner, id] {
            if (owner.guard_.isLive())
                owner.viewers_->setRights(id,
                                          controls_ ? ViewerRights::Watch : ViewerRights::Control);
        });
        connect(disconnect_, &QPushButton::clicked, this, [&owner, id] {
            if (owner.guard_.isLive())
                owner.viewers_->disconnect(id);
        });
    }

    // Who controls could else let others control, too.
    void show(const Viewer& viewer, bool isOneOfSeveral, bool somebodyControls, bool canControl) {
        controls_ = viewer.rights == ViewerRights::Control;
        tell(viewerText(viewer), viewer, isOneOfSeveral);
        rights_->setText(localized(controls_ ? "Only watch" : "Let them control"));
        const bool mayChange = controls_ || !somebodyControls;
        rights_->setVisible(controls_ || canControl);
        rights_->setEnabled(mayChange);
        rights_->setToolTip(mayChange ? ""
                                      : localized("First let the one who controls only watch."));
    }
    void showAway(const Viewer& viewer, bool isOneOfSeveral) {
        tell(awayText(viewer), viewer, isOneOfSeveral);
        rights_->hide();
    }

  private:
    void tell(const QString& text, const Viewer& viewer, bool isOneOfSeveral) {
        icon_->setImage(viewer.rights == ViewerRights::Control ? "viewer-controls"
                                                               : "viewer-watches");
        if (who_->text() != text) {
            who_->setText(text);
            who_->announce();
        }
        details_->setText(viewerDetails(viewer));
        disconnect_->setVisible(isOneOfSeveral);
        for (auto* button : {rights_, disconnect_})
            button->setAccessibleDescription(text);
    }

    bool controls_ = false;
    ImageView* icon_ = new ImageView;
    StatusLabel* who_ = new StatusLabel;
    QLabel* details_ = new QLabel;
    QPushButton* rights_ = new QPushButton;
    QPushButton* disconnect_ = new QPushButton;
};

ViewerLines::ViewerLines(QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
}

ViewerLines::~ViewerLines() = default;

void ViewerLines::attach(Viewers& viewers, const QString& images) {
    viewers_ = &viewers;
    images_ = images;
    subscriptions_.push_back(viewers.away().subscribe([this](const auto&) { update(); }));
    subscriptions_.push_back(viewers.inside().bind([this](const auto&) { update(); }));
}

void ViewerLines::update() {
    const auto inside = viewers_->inside().value();
    const auto away = viewers_->away().value();
    auto is = [](std::uint32_t id) {
        return [id](const Viewer& viewer) { return viewer.id == id; };
    };
    for (auto line = lines_.begin(); line != lines_.end();) {
        if (std::ranges::any_of(inside, is(line->first)) ||
            std::ranges::any_of(away, is(line->first))) {
            ++line;
            continue;
        }
        // Later, since it may be its own button that is being pressed.
        line->second->hide();
        line->second->deleteLater();
        line = lines_.erase(line);
        // The next line takes its place, maybe below the pointer.
        guard_.rest();
    }
    const bool somebodyControls = std::ranges::any_of(
        inside, [](const Viewer& viewer) { return viewer.rights == ViewerRights::Control; });
    for (const auto& viewer : inside)
        lineOf(viewer.id).show(viewer, inside.size() + away.size() > 1, somebodyControls,
                               viewers_->abilities().value().canControl);
    for (const auto& viewer : away)
        lineOf(viewer.id).showAway(viewer, inside.size() + away.size() > 1);
    setVisible(!lines_.empty());
}

ViewerLines::Line& ViewerLines::lineOf(std::uint32_t viewer) {
    auto& line = lines_[viewer];
    if (!line) {
        line = new Line(*this, viewer);
        layout()->addWidget(line);
        guard_.rest();
    }
    return *line;
}

}  // namespace zelvo::platform
