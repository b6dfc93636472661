#include "platform/qt/core/MailProgram.h"

#include <QProcess>
#include <QStandardPaths>

namespace zelvo::platform {

namespace {

constexpr const char* Program = "xdg-email";

}  // namespace

bool hasMailProgram() {
    return !QStandardPaths::findExecutable(Program).isEmpty();
}

bool composeMail(const QString& subject, const QString& body) {
    return QProcess::startDetached(Program, {"--utf8", "--subject", subject, "--body", body});
}

}  // namespace zelvo::platform
