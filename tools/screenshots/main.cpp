#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <cstdio>

#include "platform/qt/dialogs/Dialogs.h"
#include "platform/qt/widgets/NoticeLine.h"
#include "tests/qt/WindowWorld.h"

// Makes a picture of every status, sheet and menu: zelvo_screenshots FOLDER light|dark [LANGUAGE]

namespace zelvo::test {
namespace {

using namespace std::chrono_literals;

/// Of nobody, as it is in pictures that everybody sees.
const std::string link = "5f0c6a1d93e84b27a6d2c71f08b94e35#oKGio6SlpqeoqaqrrK2urw";
constexpr auto helper = "Ana Müller";
constexpr auto digits = "027 418 993 650";

class Photographer {
  public:
    Photographer(QString folder, QString suffix)
        : folder_(std::move(folder)), suffix_(std::move(suffix)) {}

    void take(QWidget& window, const QString& name, QWidget* above = nullptr,
              QPoint at = QPoint()) const {
        // What is laid out within what is laid out takes a round each.
        for (int round = 0; round < 10; ++round)
            QCoreApplication::processEvents();
        QImage image = window.grab().toImage();
        if (above) {
            QPainter painter(&image);
            if (above->isModal())
                painter.fillRect(window.rect(), QColor(0, 0, 0, 70));
            drawAbove(painter, *above, at);
        }
        image.save(folder_ + '/' + name + '-' + suffix_ + ".png");
    }
    /// In the middle of the window.
    void takeSheet(QWidget& window, const QString& name, QWidget& sheet) const {
        take(window, name, &sheet,
             QPoint((window.width() - sheet.width()) / 2, (window.height() - sheet.height()) / 3));
    }

  private:
    static void drawAbove(QPainter& painter, QWidget& widget, QPoint at) {
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        for (int i = 8; i > 0; --i) {
            painter.setBrush(QColor(0, 0, 0, 8));
            painter.drawRoundedRect(QRect(at, widget.size()).adjusted(-i, -i + 3, i, i + 3), i, i);
        }
        painter.drawPixmap(at, widget.grab());
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QColor(128, 128, 128, 110));
        painter.drawRect(QRect(at, widget.size()));
    }

    QString folder_;
    QString suffix_;
};

void takeStatuses(platform::Bundle& bundle, const Photographer& camera) {
    WindowWorld world(bundle, link);
    camera.take(world.window, "status-0");
    // These two move on within the same call.
    auto watch = world.controller.zelvoStatusProperty().subscribe([&](std::int32_t status) {
        if (status == ZelvoStatusServiceEnabled || status == ZelvoStatusMappingSucceeded)
            camera.take(world.window, QString("status-%1").arg(status));
    });
    world.launch();
    camera.take(world.window, "status-1");
    world.fake.screenSharing(true);
    world.fake.peer.hold(true);
    world.fake.loop.settle();
    camera.take(world.window, "status-3");
    world.fake.peer.release();
    world.fake.peer.hold(false);
    world.fake.loop.settle();
    camera.take(world.window, "status-6");
    world.controller.copyLink();
    camera.take(world.window, "copied");
    // No program that opens anything is found there.
    qputenv("PATH", "/");
    world.desktop.workspace.openUrl("file://" + bundle.resourcePath() + "/" +
                                    bundle.localizedString("HELP_PAGE_ROUTER"));
    if (waitFor([] { return platform::findDialog("helpDialog"); })) {
        camera.take(world.window, "no-browser");
        camera.take(*platform::findDialog("helpDialog"), "help");
        platform::closeDialogs(world.window);
    }
    // It would stand in the pictures that follow.
    world.window.findChild<platform::NoticeLine*>("noticeLine")->clear();

    world.controller.shareLink(&world.window.shareButton());
    if (auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
        camera.take(world.window, "share-menu", menu, world.window.mapFromGlobal(menu->pos()));
        for (auto* action : menu->actions())
            if (action->text() == QString::fromStdString(bundle.localizedString("QR Code…")))
                action->trigger();
        menu->close();
    }
    if (auto* code = world.window.findChild<QDialog*>("qrCodeDialog")) {
        camera.take(*code, "qr-code");
        code->close();
    }
    if (auto* action = world.window.findChild<QAction*>("actionNewLinks")) {
        auto* menu = qobject_cast<QMenu*>(action->parent());
        // Laid out as its entries stand now.
        menu->ensurePolished();
        menu->resize(menu->sizeHint());
        const auto* bar = world.window.menuBar();
        camera.take(world.window, "settings-menu", menu,
                    bar->actionGeometry(menu->menuAction()).bottomLeft());
    }
    world.desktop.feedback.showFeedbackDialog(0);
    if (auto* feedback = world.window.findChild<QDialog*>("feedbackDialog")) {
        camera.take(*feedback, "feedback");
        feedback->close();
    }

    world.window.findChild<QAction*>("actionAbout")->trigger();
    if (auto* about = world.window.findChild<QDialog*>("aboutDialog")) {
        camera.takeSheet(world.window, "about", *about);
        about->close();
    }

    world.connectViewer(true);
    camera.take(world.window, "status-7");
    world.controller.makeNewLink();
    camera.takeSheet(world.window, "sheet-new-link", *world.sheet());
    world.press(world.sheet(), 1);
    world.desktop.application.terminate();
    camera.takeSheet(world.window, "sheet-session", *world.sheet());
    world.fake.peer.hold(true);
    world.press(world.sheet(), 0);
    camera.take(world.window, "quitting");
}

/// 10:15 on any day, wherever the pictures are made.
std::chrono::system_clock::time_point quarterPastTen() {
    return std::chrono::system_clock::from_time_t(
        QDateTime({2026, 1, 5}, {10, 15}).toSecsSinceEpoch());
}

void takeDoor(platform::Bundle& bundle, const Photographer& camera) {
    using platform::ViewerRights;
    WindowWorld world(bundle, link);
    world.launchToLink();
    platform::ViewerQuestion question{.id = 1,
                                      .address = "198.51.100.23",
                                      .isEncrypted = true,
                                      .until = std::chrono::steady_clock::now() + 60s,
                                      .name = helper,
                                      .digits = digits};
    auto live = [] {
        return !platform::findDialog("questionDialog") ||
               !platform::findDialog("questionDialog")->property("rests").toBool();
    };
    world.viewers.asked.set(question);
    camera.take(*platform::findDialog("questionDialog"), "question-resting");
    waitFor(live);
    camera.take(*platform::findDialog("questionDialog"), "question");
    camera.take(world.window, "asking");
    auto sealed = question;
    question.id = 2;
    question.isEncrypted = false;
    question.name.clear();
    question.digits.clear();
    question.address = "2001:db8:4c1f:9d02:a8b3:77ff:fe10:5e21";
    question.waiting = 3;
    world.viewers.asked.set(question);
    waitFor(live);
    camera.take(*platform::findDialog("questionDialog"), "question-not-encrypted");
    world.viewers.asked.set(std::nullopt);

    std::vector<platform::Viewer> inside{{.id = 1,
                                          .address = "198.51.100.23",
                                          .isEncrypted = true,
                                          .rights = ViewerRights::Control,
                                          .since = quarterPastTen(),
                                          .name = helper,
                                          .digits = digits}};
    world.viewers.isInside.set(inside);
    world.connectViewer(true);
    camera.take(world.window, "connected-one");
    inside.push_back({.id = 2, .address = question.address, .since = quarterPastTen()});
    world.viewers.isInside.set(inside);
    camera.take(world.window, "connected-two");
    world.viewers.refuses.set(true);
    camera.take(world.window, "refusing");
    world.viewers.refuses.set(false);
    sealed.id = 3;
    world.viewers.asked.set(sealed);
    camera.take(world.window, "question-while-inside");
}

void takeFailures(platform::Bundle& bundle, const Photographer& camera) {
    {
        WindowWorld world(bundle);
        world.fake.router.refuseAll(platform::NatErrorNoRouter);
        world.explanations.routing.set(bundle.localizedString(
            "Your router did not answer. Switch on UPnP or NAT-PMP in its settings; Router "
            "Help says how."));
        world.launchToLink();
        camera.take(world.window, "status-4");
        camera.takeSheet(world.window, "sheet-router", *world.sheet());
    }
    WindowWorld world(bundle);
    world.fake.authorization.rightStatus = platform::AuthorizationCanceled;
    world.launch();
    world.fake.loop.advance(500ms);
    camera.takeSheet(world.window, "sheet-activate", *world.sheet());
}

}  // namespace
}  // namespace zelvo::test

int main(int argc, char* argv[]) {
    using namespace zelvo;
    if (argc < 3) {
        std::fputs("Usage: zelvo_screenshots FOLDER light|dark [LANGUAGE]\n", stderr);
        return 2;
    }
    QApplication application(argc, argv);
    QApplication::setStyle("Fusion");
    bool dark = QString(argv[2]) == "dark";
    if (dark)
        QApplication::setPalette(platform::darkPalette());

    test::BuiltBundle bundle(argc > 3 ? argv[3] : "en");
    QDir().mkpath(argv[1]);
    test::Photographer camera(argv[1], dark ? "dark" : "light");
    test::takeStatuses(bundle.texts, camera);
    test::takeDoor(bundle.texts, camera);
    test::takeFailures(bundle.texts, camera);
    return 0;
}
