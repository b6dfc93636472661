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

/// The pixels of two rectangles of 65 x 1, or why there are none.
std::string unpacked(const std::string& tiles) {
    Zrle zrle;
    zrle.begin(65, 1);
    const auto data = deflated(tiles);
    std::string_view left = data;
    std::string pixels;
    if (!zrle.receive(left, pixels, 4096))
        return "nonsense";
    return zrle.isWhole() ? pixels : "cut";
}

TEST(Zrle, TakesNothingThatNoRectangleIs) {
    const auto solid = "\1abc"s;
    auto row = std::string(64 * 4, 'x');
    for (std::size_t i = 0; i < row.size(); ++i)
        row[i] = "abc\0"[i % 4];
    const auto pixel = "abc\0"s;
    EXPECT_EQ(unpacked(solid + solid), row + pixel);
    EXPECT_EQ(unpacked("\x80"
                       "abc\x3f" +
                       solid),
              row + pixel);
    EXPECT_EQ(unpacked("\x82"
                       "xyzabc\x81\x3e\1" +
                       solid),
              row + pixel);
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

TEST(Zrle, HandsOnOnlySoMuchAtATime) {
    Zrle zrle;
    zrle.begin(64, 64 * 1000);
    std::string tiles;
    for (int i = 0; i < 1000; ++i)
        tiles += "\1abc";
    const auto data = deflated(tiles);
    std::string_view left = data;
    std::size_t size = 0;
    do {
        std::string pixels;
        ASSERT_TRUE(zrle.receive(left, pixels, 50000));
        EXPECT_LE(pixels.size(), 4U * 64 * 64 * 4);
        size += pixels.size();
    } while (zrle.hasMore());
    EXPECT_TRUE(zrle.isWhole());
    EXPECT_EQ(size, 4U * 64 * 64 * 1000);
}

}  // namespace

}  // namespace zelvo::opener
