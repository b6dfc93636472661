#pragma once

#include <QWidget>
#include <functional>
#include <optional>

#include "sealing/ShareLink.h"

class QLineEdit;
class QPushButton;

namespace zelvo::platform {
class StatusLabel;
}  // namespace zelvo::platform

namespace zelvo::opener {

/// Asks for what is missing: a link, and once the helper's name.
class StartPage final : public QWidget {
  public:
    using Listener = std::function<void(const sealing::ShareLink&, const std::string& name)>;

    StartPage(const QString& images, Listener listener);

    /// Asks for a link; `name` is the one that is known, or empty.
    void ask(const std::string& name);
    /// What was dropped or handed over. Begins where nothing is missing any more.
    void takeLink(const QString& text);

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void matchFrames();
    void build(const QString& images);
    void begin();
    void complain(const QString& sentence, QLineEdit* field);
    void showFields();

    Listener listener_;
    std::optional<sealing::ShareLink> link_;
    platform::StatusLabel* title_ = nullptr;
    platform::StatusLabel* sentence_ = nullptr;
    QWidget* linkPanel_ = nullptr;
    QLineEdit* linkField_ = nullptr;
    QLineEdit* nameField_ = nullptr;
    QPushButton* open_ = nullptr;
};

}  // namespace zelvo::opener
