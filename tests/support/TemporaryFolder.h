#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>

namespace zelvo::test {

/// A folder that goes with the test.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = testing::TempDir() + "zelvo-XXXXXX";
        path_ = mkdtemp(name.data());
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    std::string write(const std::string& name, std::string_view content) const {
        auto file = *this / name;
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }
    std::string read(const std::string& name) const {
        std::ifstream stream(*this / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

  private:
    std::string path_;
};

inline std::span<const std::byte> bytes(std::string_view text) {
    return std::as_bytes(std::span(text));
}

}  // namespace zelvo::test
