#pragma once

#include <QPixmap>
#include <QWidget>

namespace zelvo::platform {

/// Shows a named image of the resources at the widget's size, sharp on every screen.
class ImageView final : public QWidget {
    Q_OBJECT
    Q_PROPERTY(QString image READ image WRITE setImage)

  public:
    using QWidget::QWidget;

    void setFolder(const QString& folder);
    QString image() const { return image_; }
    void setImage(const QString& name);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QString folder_;
    QString image_;
    QPixmap pixmap_;
};

}  // namespace zelvo::platform
