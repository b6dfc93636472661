#include "platform/qt/content/Redaction.h"

#include <QRegularExpression>
#include <QString>
#include <QSysInfo>

namespace zelvo::platform {

namespace {

constexpr std::size_t LogLines = 40;

// The computer's name, which is often a person's; addresses of every kind; then what is as long as
// a link's identifier or its key.
constexpr const char* Patterns[] = {
    R"(^.+(?= -> ))",
    R"([A-Za-z][A-Za-z0-9+.-]*://[^\s"'<>]+)",
    R"(\b[\w.-]+\.local\b\.?)",
    R"([^\s@"'<>]+@[^\s@"'<>]+)",
    R"(\b(?:[0-9A-Fa-f]{2}[:-]){5}[0-9A-Fa-f]{2}\b)",
    R"((?<![0-9A-Fa-f:])(?:[0-9A-Fa-f]{0,4}:){2,7}(?:\d{1,3}(?:\.\d{1,3}){3}|[0-9A-Fa-f]{0,4}(?:%\w+)?)(?![0-9A-Fa-f:]))",
    R"((?<!\d)\d{1,3}(?:\.\d{1,3}){3}(?::\d+)?(?!\d))",
    R"([A-Za-z0-9_-]{20,})",
};

}  // namespace

std::string withoutAddresses(const std::string& text) {
    auto clean = QString::fromStdString(text);
    for (const auto* pattern : Patterns)
        clean.replace(QRegularExpression(pattern), QStringLiteral("…"));
    return clean.toStdString();
}

std::string describeSystem(const std::string& version, const std::vector<std::string>& logLines) {
    QStringList desktop{"Qt " + QString(qVersion())};
    for (const auto* name : {"XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE"})
        if (auto value = qEnvironmentVariable(name); !value.isEmpty())
            desktop.append(value);
    QString text = QString("Zelvo %1\n%2, %3\n%4\n\n")
                       .arg(QString::fromStdString(version), QSysInfo::prettyProductName(),
                            QSysInfo::currentCpuArchitecture(), desktop.join(", "));
    std::size_t first = logLines.size() > LogLines ? logLines.size() - LogLines : 0;
    for (std::size_t i = first; i < logLines.size(); ++i)
        text += QString::fromStdString(withoutAddresses(logLines[i])) + '\n';
    return text.toStdString();
}

}  // namespace zelvo::platform
