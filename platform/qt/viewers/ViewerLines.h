#pragma once

#include <QWidget>
#include <map>
#include <memory>
#include <vector>

#include "platform/Observable.h"
#include "platform/qt/viewers/AnswerGuard.h"

namespace zelvo::platform {

class Viewers;

/// A line for each viewer who is inside: who, since when, what they may do, and how to change that.
/// Lines keep their order. Main thread only.
class ViewerLines final : public QWidget {
  public:
    explicit ViewerLines(QWidget* parent = nullptr);
    ~ViewerLines() override;

    /// Shows these viewers, who outlive this object, with the images of the folder.
    void attach(Viewers& viewers, const QString& images);

  private:
    class Line;

    void update();
    /// Made where there is none.
    Line& lineOf(std::uint32_t viewer);

    Viewers* viewers_ = nullptr;
    QString images_;
    AnswerGuard guard_{[] { return std::chrono::steady_clock::now(); }};
    std::map<std::uint32_t, Line*> lines_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
