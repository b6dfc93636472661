// Draws a scalable image at one size: draw_icon IMAGE.svg SIZE PICTURE.png
#include <QImage>
#include <QPainter>
#include <QString>
#include <QSvgRenderer>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 4)
        return EXIT_FAILURE;
    QSvgRenderer drawing(QString::fromLocal8Bit(argv[1]));
    const int size = std::atoi(argv[2]);
    QImage picture(size, size, QImage::Format_ARGB32_Premultiplied);
    if (!drawing.isValid() || picture.isNull())
        return EXIT_FAILURE;
    picture.fill(Qt::transparent);
    {
        QPainter painter(&picture);
        drawing.render(&painter);
    }
    return picture.save(QString::fromLocal8Bit(argv[3]), "PNG") ? EXIT_SUCCESS : EXIT_FAILURE;
}
