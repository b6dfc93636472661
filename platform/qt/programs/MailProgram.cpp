#include "platform/qt/programs/MailProgram.h"

#include <QStandardPaths>

#include "platform/qt/programs/HandOver.h"

namespace zelvo::platform {

namespace {

constexpr const char* Program = "xdg-email";

}  // namespace

bool hasMailProgram() {
    return !QStandardPaths::findExecutable(Program).isEmpty();
}

void composeMail(const QString& subject, const QString& body, const QObject* receiver,
                 std::function<void()> refused) {
    handOver({{Program, "--utf8", "--subject", subject, "--body", body}}, receiver,
             std::move(refused));
}

}  // namespace zelvo::platform
