#pragma once

#include <QPixmap>
#include <QWidget>

namespace zelvo::platform {

/// Shows a named image of the resources at the widget's size, sharp on every screen.
class ImageView final : public QWidget {
    Q_OBJECT
    Q_PROPERTY(QString image READ image WRITE setImage)
    Q_PROPERTY(bool marksItsPlace READ marksItsPlace WRITE setMarksItsPlace)

  public:
    using QWidget::QWidget;

    void setFolder(const QString& folder);
    QString image() const { return image_; }
    void setImage(const QString& name);
    /// Whether a faint ring is drawn while there is no image.
    bool marksItsPlace() const { return marksItsPlace_; }
    void setMarksItsPlace(bool marks) { marksItsPlace_ = marks; }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QString folder_;
    QString image_;
    QPixmap pixmap_;
    bool marksItsPlace_ = false;
};

}  // namespace zelvo::platform
