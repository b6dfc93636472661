#include "platform/qt/content/RowPrinter.h"

#include "platform/MainWindowModel.h"
#include "platform/qt/content/ShownText.h"
#include "platform/qt/core/WriteAll.h"

namespace zelvo::platform {

RowPrinter::RowPrinter(const MainWindowModel& model, bool printsLink, int descriptor)
    : model_(model), descriptor_(descriptor) {
    subscriptions_.push_back(model.portMappingStatusText().bind(
        [this](const std::string& text) { show(portMapping_, text); }));
    subscriptions_.push_back(model.waitingForConnectionStatusText().bind(
        [this](const std::string& text) { show(connection_, text); }));
    if (!printsLink)
        return;
    subscriptions_.push_back(model.sharedLink().bind([this](const auto&) { showLink(); }));
    subscriptions_.push_back(model.readyToShare().subscribe([this](bool) { showLink(); }));
}

void RowPrinter::show(Row& row, const std::string& text) {
    if (text.empty() || text == row.text)
        return;
    row.text = text;
    // A reader that has gone must not end the application.
    if (descriptor_ >= 0 &&
        !writeAll(descriptor_, row.label + shownText(text).toStdString() + "\n"))
        descriptor_ = -1;
}

void RowPrinter::showLink() {
    if (model_.readyToShare().value())
        show(link_, model_.sharedLink().value());
}

}  // namespace zelvo::platform
