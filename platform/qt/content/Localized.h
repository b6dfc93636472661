#pragma once

#include <QCoreApplication>
#include <QString>

namespace zelvo::platform {

/// The text of the key in the application's string table (BundleTranslator); the key where it has
/// none.
inline QString localized(const char* key) {
    return QCoreApplication::translate("Zelvo", key);
}

}  // namespace zelvo::platform
