#pragma once

#include <QBoxLayout>
#include <QString>
#include <QWidget>

namespace zelvo::platform {
class ImageView;
class StatePanel;
class StatusLabel;
}  // namespace zelvo::platform

namespace zelvo::opener {

/// What every page begins with: an image, a headline and an explanation, on a coloured ground.
struct Header {
    platform::StatePanel* panel = nullptr;
    platform::ImageView* image = nullptr;
    platform::StatusLabel* title = nullptr;
    platform::StatusLabel* sentence = nullptr;
};

/// A page's column, with its margins.
QVBoxLayout* makeColumn(QWidget& page);
Header addHeader(QBoxLayout& column, const QString& images, const char* name);
/// A panel of the application's look; its layout is a column.
QVBoxLayout* addPanel(QBoxLayout& column, QWidget*& panel);

}  // namespace zelvo::opener
