#pragma once

#include <string>

namespace zelvo::platform {

class Bundle;

/// Whether the line is the word of a key, in the user's language or in English, in capital letters
/// or small ones.
bool isWord(const std::string& line, const char* key, const Bundle& bundle);

}  // namespace zelvo::platform
