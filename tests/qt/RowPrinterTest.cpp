#include "platform/qt/RowPrinter.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/app/Controller.h"

namespace zelvo::test {
namespace {

struct RowPrinterTest : ControllerTest {
    RowPrinterTest() { EXPECT_EQ(::pipe(ends), 0); }
    ~RowPrinterTest() override {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    std::string printed() {
        char buffer[4096];
        auto count = ::read(ends[0], buffer, sizeof buffer);
        return std::string(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    int ends[2];
};

TEST_F(RowPrinterTest, PrintsEachChangeOnce) {
    platform::RowPrinter rows(controller, ends[1]);
    launch();
    fake.loop.advance(std::chrono::milliseconds(100));
    launchToLink();
    fake.sockets.connect(true);
    tick();
    fake.sockets.connect(false);
    tick();
    EXPECT_EQ(printed(),
              "Port mapping: Applying Port Mapping...\n"
              "Port mapping: Port Mapping Successful.\n"
              "Connection: Waiting for connection...\n"
              "Link: zelvo://abc\n"
              "Connection: Connection established.\n"
              "Connection: Waiting for connection...\n");
}

TEST_F(RowPrinterTest, GoesQuietWhenNobodyReads) {
    platform::RowPrinter rows(controller, -1);
    platform::RowPrinter refused(controller, ends[0]);
    launchToLink();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
}

}  // namespace
}  // namespace zelvo::test
