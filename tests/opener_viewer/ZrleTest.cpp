#include <gtest/gtest.h>
#include <zlib.h>

#include "opener/viewer/Decoder.h"
#include "opener/viewer/Requests.h"
#include "opener/viewer/RfbNumbers.h"
#include "opener/viewer/Zrle.h"
#include "tests/opener_viewer/Host.h"

namespace zelvo::opener {

namespace {

using namespace std::string_literals;

/// Looks at a host that is told of ZRLE alone.
class Viewer : public HostWords {
  public:
    explicit Viewer(test::FileDescriptor socket) : socket_(std::move(socket)) {}

    bool takeUpdate() { return (!toPlay_.empty() || fill(toPlay_)) && decoder_->play(toPlay_); }

    void reply(std::string_view bytes) override { say(bytes); }
    void opened(PictureSize size) override {
        decoder_ = std::make_unique<Decoder>(
            size, [this](std::string& bytes) { return fill(bytes); }, [](PicturePart) {});
        // Without the cursor, which would be painted otherwise.
        say(requests::pixelFormat() + "\2\0\0\2"s + rfb::number(rfb::zrle, 4) +
            rfb::number(rfb::richCursor, 4));
        say(requests::update({0, 0, size.width, size.height}, false));
    }
    void updateBegins() override {}
    void sizeChanges(PictureSize) override {}
    void inexact(PicturePart) override {}
    void cursor(PictureSize, PicturePoint, const std::vector<std::uint32_t>&,
                std::string_view) override {}
    void pointer(PicturePoint) override {}
    void clipboard(const std::string&) override {}
    void extendedClipboard(const std::string&) override {}

    std::unique_ptr<Decoder> decoder_;

  private:
    void say(std::string_view bytes) {
        ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    bool fill(std::string& to) {
        do {
            // So few that tiles are cut.
            char bytes[997];
            const auto count = filter_.hasMore() ? 0 : ::recv(socket_.get(), bytes, 997, 0);
            if (count < 0 || !filter_.receive({bytes, static_cast<std::size_t>(count)}, to))
                return false;
        } while (to.empty());
        return true;
    }

    const test::FileDescriptor socket_;
    RfbFilter filter_{*this};
    std::string toPlay_;
};

TEST(Zrle, ShowsWhatAHostSendsInEachKindOfTile) {
    // Tiles of so many colours, in stripes or in grains, and smaller ones at the edges.
    const std::vector<std::uint32_t> colours = {1, 2, 3, 4, 5, 16, 17, 100, 127, 128, 4096};
    test::Host host({64 * 11 + 7, 64 * 2 + 5});
    const auto width = static_cast<std::size_t>(host.desktop.size.width);
    for (std::size_t at = 0; at < host.desktop.pixels.size(); ++at) {
        const auto x = at % width;
        const auto y = at / width;
        const auto index = y < 64 ? x + y * 64 : y / 2 + x / 16;
        host.desktop.pixels[at] =
            static_cast<std::uint32_t>(index % colours[x / 64 % colours.size()]) * 0x010305U %
            0x1000000U;
    }
    Viewer viewer(host.admit());
    ASSERT_TRUE(viewer.takeUpdate());
    const auto shown = viewer.decoder_->pixels();
    EXPECT_TRUE(std::equal(shown.begin(), shown.end(), host.desktop.pixels.begin()));
}

std::string deflated(const std::string& content) {
    uLongf size = ::compressBound(content.size());
    std::string compressed(size, '\0');
    ::compress(reinterpret_cast<Bytef*>(compressed.data()), &size,
               reinterpret_cast<const Bytef*>(content.data()), content.size());
    compressed.resize(size);
    return compressed;
}

/// The pixels of a rectangle, a portion at a time, or why there are none.
std::string unpacked(const std::string& tiles, std::size_t width = 65, std::size_t height = 1) {
    Zrle zrle;
    zrle.begin(width, height);
    const auto data = deflated(tiles);
    std::string_view left = data;
    std::string pixels;
    do {
        std::string some;
        if (!zrle.receive(left, some, 50000))
            return "nonsense";
        EXPECT_LT(some.size(), 50000 + width * 64 * 4);
        pixels += some;
    } while (zrle.hasMore());
    return zrle.isWhole() ? pixels : "cut";
}

TEST(Zrle, UnpacksWhatIsARectangleAndLittleAtATime) {
    const auto solid = "\1abc"s;
    const auto of = [](std::size_t count) {
        std::string pixels;
        while (count-- > 0)
            pixels += "abc\0"s;
        return pixels;
    };
    EXPECT_EQ(unpacked(solid + solid), of(65));
    EXPECT_EQ(unpacked("\x80"
                       "abc\x3f" +
                       solid),
              of(65));
    EXPECT_EQ(unpacked("\x82"
                       "xyzabc\x81\x3e\1" +
                       solid),
              of(65));
    std::string tower;
    while (tower.size() < 4000)
        tower += solid;
    EXPECT_TRUE(unpacked(tower, 64, 64000) == of(64 * 64000));
    const std::vector<std::pair<const char*, std::string>> rectangles = {
        {"cut", solid},
        {"cut", solid + "\0ab"s},
        {"nonsense", solid + solid + "\1"},
        {"nonsense", "\x11"},
        {"nonsense", "\x81" + solid},
        {"nonsense", "\3" + std::string(9, 'x') + "\xff"},
        {"nonsense", "\x83" + std::string(9, 'x') + "\3"},
        {"nonsense",
         "\x80"
         "abc\x40" +
             solid},
        {"nonsense",
         "\x82"
         "xyzabc\x80\xff\xff\xff\xff\xff\xff"s},
    };
    for (const auto& [answer, tiles] : rectangles)
        EXPECT_EQ(unpacked(tiles), answer) << testing::PrintToString(tiles);
}

}  // namespace

}  // namespace zelvo::opener
