#pragma once

#include <optional>
#include <string>

namespace zelvo::service {

/// A fresh link: 128 bits of the kernel's random generator as 32 lower-case hexadecimal digits.
/// Only these, because a link stands where a URL has its host, whose letters are read without
/// regard to case. Nothing when the generator fails.
std::optional<std::string> newLinkName();

}  // namespace zelvo::service
