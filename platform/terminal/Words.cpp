#include "platform/terminal/Words.h"

#include <QString>

#include "platform/Bundle.h"

namespace zelvo::platform {

namespace {

QString folded(const std::string& text) {
    return QString::fromStdString(text).trimmed().toCaseFolded();
}

}  // namespace

bool isWord(const std::string& line, const char* key, const Bundle& bundle) {
    const auto typed = folded(line);
    return typed == folded(key) || typed == folded(bundle.localizedString(key));
}

}  // namespace zelvo::platform
