#pragma once

#include <QByteArray>
#include <optional>
#include <string_view>

#include "platform/PropertyList.h"

namespace zelvo::platform {

/// Whether the text is UTF-8 of nothing but characters that XML can hold.
bool isXmlText(std::string_view text);

/// The XML form of the dictionary. A string that XML cannot hold becomes data of its bytes. None
/// when there is such a key.
std::optional<QByteArray> writeXmlPlist(const PropertyList::Dictionary& dictionary);

}  // namespace zelvo::platform
