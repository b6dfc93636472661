#include "platform/qt/sharing/QtSharingServicePicker.h"

#include "platform/Bundle.h"
#include "platform/qt/widgets/Images.h"

namespace zelvo::platform {

namespace {

constexpr int MenuIconSize = 16;

// The rectangle's origin is at its view's lower left.
QPoint cornerAtEdge(const QWidget& view, const Rect& rect, RectEdge edge) {
    double top = view.height() - (rect.y + rect.height);
    double bottom = view.height() - rect.y;
    QPointF corner(edge == RectEdge::MaxX ? rect.x + rect.width : rect.x,
                   edge == RectEdge::MinY ? bottom : top);
    return view.mapToGlobal(corner.toPoint());
}

}  // namespace

QtSharingServicePicker::QtSharingServicePicker(QtMainLoop& loop, const Bundle& bundle,
                                               Proposals proposals)
    : loop_(loop),
      imageFolder_(QString::fromStdString(bundle.resourcePath())),
      proposals_(std::move(proposals)) {}

QtSharingServicePicker::~QtSharingServicePicker() {
    delete menu_;
}

void QtSharingServicePicker::setWindow(QWidget* window) {
    if (!window)
        delete menu_;
    window_ = window;
}

void QtSharingServicePicker::show(const std::vector<std::string>& items,
                                  SharingServicePickerDelegate& delegate, const Rect& rect,
                                  Button* view, RectEdge edge) {
    auto* anchor = view ? dynamic_cast<QWidget*>(view) : window_;
    if (!anchor)
        return;
    auto services = delegate.sharingServicesForItems(items, proposals_(items));

    delete menu_;
    menu_ = new QMenu(anchor);
    menu_->setObjectName("shareMenu");
    // A press beside the menu closes it, and must not open it again at the button.
    menu_->setAttribute(Qt::WA_NoMouseReplay);
    for (auto& service : services) {
        auto image = renderImage(imageFolder_, QString::fromStdString(service.image),
                                 QSize(MenuIconSize, MenuIconSize), anchor->devicePixelRatio());
        auto* action = menu_->addAction(QIcon(image), QString::fromStdString(service.title));
        QObject::connect(action, &QAction::triggered, menu_.data(),
                         [handler = std::move(service.handler)] {
                             if (handler)
                                 handler();
                         });
    }
    QObject::connect(menu_.data(), &QMenu::aboutToShow, menu_.data(),
                     [this] { tracking_.emplace(loop_); });
    QObject::connect(menu_.data(), &QMenu::aboutToHide, menu_.data(),
                     [this] { tracking_.reset(); });
    menu_->popup(cornerAtEdge(*anchor, rect, edge));
}

}  // namespace zelvo::platform
