#pragma once

#include <QAbstractScrollArea>
#include <QImage>
#include <memory>
#include <optional>

#include "opener/facts/HostFacts.h"
#include "opener/viewer/CompositorKeys.h"
#include "opener/viewer/HostConnection.h"
#include "opener/viewer/Keyboard.h"
#include "opener/viewer/PicturePlace.h"
#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::opener {

class HostKeysMenu;

/// A host's screen, and the way to use it. While it has the focus the host gets the keys, with the
/// pointer in the picture also those that the desktop here would take, where it lets go of them
/// (what it keeps is in `keysMenu`). Ctrl+Alt+Shift+Escape is the way out: it ends full screen and
/// moves the focus on. Clipboards are shared, as text, while this window is the active one and the
/// host lets control. Main thread only.
class ViewerWidget : public QAbstractScrollArea {
    Q_OBJECT

  public:
    struct Options {
        /// Nothing is sent, whatever the host allows.
        bool viewOnly = false;
    };

    ViewerWidget(QWidget* parent, Options options);
    ViewerWidget(const ViewerWidget&) = delete;
    ViewerWidget& operator=(const ViewerWidget&) = delete;
    ~ViewerWidget() override;

    /// One end of a socket pair, or of anything else that can be read and written, at whose other
    /// end is RFB without security. Whatever was shown before is gone.
    void start(platform::FileDescriptor rfb);
    /// Nothing follows, not even `ended`.
    void stop();

    void setHostFacts(const HostFacts& facts);
    /// Whether the host lets control; at first it does not.
    void setStanding(bool controls);

    /// The host's keys and corners. Owned by this widget, as the next one is.
    QMenu* keysMenu() const;
    /// Fit to the window, actual size, full screen.
    QMenu* pictureMenu() const { return pictureMenu_; }
    void setFitsWindow(bool fits);

    /// What to tell about keyboards that differ; empty where they do not or nobody knows.
    QString layoutNotice() const { return layoutNotice_; }

    /// The picture at its actual size, once there is one.
    QSize sizeHint() const override;

  signals:
    void firstPicture();
    /// With a sentence for people. The last picture stays.
    void ended(const QString& reason);
    /// The user has taken the way out; the focus has moved on.
    void wayOut();

  protected:
    bool event(QEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    void changeEvent(QEvent* event) override;
    bool focusNextPrevChild(bool next) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;

    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void inputMethodEvent(QInputMethodEvent* event) override;
    QVariant inputMethodQuery(Qt::InputMethodQuery query) const override;
    void mousePressEvent(QMouseEvent* event) override { mouse(*event); }
    void mouseReleaseEvent(QMouseEvent* event) override { mouse(*event); }
    void mouseDoubleClickEvent(QMouseEvent* event) override { mouse(*event); }
    void mouseMoveEvent(QMouseEvent* event) override { mouse(*event); }
    void wheelEvent(QWheelEvent* event) override;

  private:
    // The picture.
    void makePictureMenu();
    void setFullScreen(bool isFull);
    void place();
    double ratio() const { return viewport()->devicePixelRatioF(); }
    void changed();
    void showPart(const QRect& hostPart);
    bool showsHostPointer() const;
    QRect hostPointerPart() const;
    void takeCursor(const QImage& shape, QPoint hotSpot);
    void showCursor();

    // What is sent.
    bool sends() const { return connection_ && controls_ && !options_.viewOnly && !hasEnded_; }
    /// After anything that `sends` or the grab of the keyboard depends on.
    void adjust();
    void releaseInput();
    void leaveByKeys();
    void mouse(const QMouseEvent& event);
    void sendPointer(QPoint at, unsigned buttons);
    void visit(const HostCorner& corner);
    void offerClipboard();
    void takeClipboard(const QString& text);

    const Options options_;
    std::unique_ptr<HostConnection> connection_;
    bool controls_ = false;
    bool hasEnded_ = false;
    bool hasPicture_ = false;

    QSize pictureSize_;
    PicturePlace place_;
    bool fitsWindow_ = true;
    QMenu* pictureMenu_ = nullptr;
    HostKeysMenu* keysMenu_ = nullptr;
    QString layoutNotice_;

    QImage cursor_;
    QPoint hotSpot_;
    QPoint hostPointer_{-1, -1};

    Keyboard keyboard_;
    bool isPointerInside_ = false;
    bool grabsKeyboard_ = false;
    CompositorKeys compositorKeys_;
    QPoint pointer_;
    unsigned buttons_ = 0;
    QPoint wheel_;

    QString hostText_;
    bool hasNewText_ = false;
};

}  // namespace zelvo::opener
