#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zelvo::service {

/// 128 bits of the kernel's random generator as 32 lower-case hexadecimal digits: a fresh link or
/// an owner's secret. Only these digits, because a link stands where a URL has its host, whose
/// letters are read without regard to case. Nothing when the generator fails.
std::optional<std::string> newName();

/// The 16 bytes that such a name stands for; nothing where the text is none.
std::optional<std::string> bytesOfName(std::string_view name);

/// The name that the bytes stand for.
std::string nameOfBytes(std::string_view bytes);

/// SHA-256, 32 bytes.
std::string digestOf(std::string_view secret);

}  // namespace zelvo::service
