#pragma once

#include <QString>
#include <string>

namespace zelvo::platform {

/// A text that comes from outside, for eyes: what cannot be seen, ends a line, changes the
/// direction of writing or steers a terminal becomes the percent escapes of its bytes.
QString shownText(const std::string& text);

/// The same for a place that holds one line: cut after 1,024 characters, which it then says.
QString shownLine(const std::string& text);

/// A name that somebody gave themselves, for a sentence: in one line, kept apart from the sentence
/// in whichever direction it is written (U+2068 and U+2069), and with places where it can break.
QString shownName(const std::string& name);

}  // namespace zelvo::platform
