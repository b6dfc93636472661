#include "platform/linux/base/IdleMemory.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <fstream>
#include <string>

namespace {

constexpr std::size_t Page = 4096;
alignas(Page) const char constants[Page] = "as compiled";

long fileKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (long size = 0; word == "RssFile:" && status >> size)
            return size;
    return 0;
}

}  // namespace

TEST(IdleMemory, LetsGoOfWhatTheFilesHaveAndKeepsWhatWasChanged) {
    auto* changed = const_cast<char*>(constants);
    ASSERT_EQ(::mprotect(changed, Page, PROT_READ | PROT_WRITE), 0);
    *changed = 'A';
    ASSERT_EQ(::mprotect(changed, Page, PROT_READ), 0);
    const auto before = fileKilobytes();
    zelvo::platform::restMemory();
    EXPECT_LT(fileKilobytes(), before * 3 / 4);
    EXPECT_EQ(*static_cast<volatile char*>(changed), 'A');
}
