#include "doctor/FindingsPrinter.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace zelvo::doctor {

namespace {

struct Word {
    const char* mark;
    const char* name;
};

Word wordOf(Finding::Standing standing) {
    switch (standing) {
        case Finding::Standing::Works:
            return {"+ ", "works"};
        case Finding::Standing::Limits:
            return {"! ", "limits"};
        case Finding::Standing::Fails:
            return {"- ", "fails"};
        case Finding::Standing::Unknown:
            break;
    }
    return {"? ", "unknown"};
}

std::string json(const std::vector<Finding>& findings) {
    QJsonArray list;
    for (const auto& finding : findings)
        list.append(QJsonObject{{"subject", QString::fromStdString(finding.subject)},
                                {"standing", wordOf(finding.standing).name},
                                {"text", QString::fromStdString(finding.text)}});
    return QJsonDocument(QJsonObject{{"version", ZELVO_VERSION}, {"findings", list}})
        .toJson()
        .toStdString();
}

}  // namespace

int printFindings(const std::vector<Finding>& findings, bool asJson) {
    std::string all;
    if (asJson)
        all = json(findings);
    else
        for (const auto& finding : findings)
            all += wordOf(finding.standing).mark + finding.text + "\n";
    const bool isWritten = std::fputs(all.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
    const bool fails = std::ranges::any_of(findings, [](const Finding& finding) {
        return finding.standing == Finding::Standing::Fails;
    });
    return isWritten && !fails ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace zelvo::doctor
