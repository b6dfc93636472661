// What a hostile host says to whoever looks at it, through the filter and into the library that
// draws.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "opener/viewer/Decoder.h"
#include "opener/viewer/Requests.h"
#include "opener/viewer/RfbFilter.h"

using namespace zelvo::opener;

namespace {

void check(bool holds) {
    if (!holds)
        std::abort();
}

class Viewer : public HostWords {
  public:
    /// `cut` bytes come at a time.
    Viewer(std::string_view bytes, std::size_t cut) : bytes_(bytes), cut_(cut) {}

    /// Everything that was handed on.
    std::string look() {
        std::string toPlay;
        while (toPlay.empty() ? fill(toPlay) : decoder_->play(toPlay)) {
        }
        return handedOn_;
    }

    void reply(std::string_view bytes) override { check(bytes.size() <= 12); }
    void opened(PictureSize size) override {
        sizeChanges(size);
        isOpen_ = true;
        if (isTooLarge_)
            return;
        decoder_ = std::make_unique<Decoder>(
            size, [this](std::string& bytes) { return fill(bytes); },
            [this](PicturePart part) { drawn(part); });
    }
    void updateBegins() override { check(isOpen_); }
    void sizeChanges(PictureSize size) override {
        check(size.width > 0 && size.height > 0);
        // Memory is what takes time here.
        isTooLarge_ = isTooLarge_ || size.width > 512 || size.height > 512;
    }
    void inexact(PicturePart) override {}
    void clipboard(const std::string& text) override { requests::latin1Clipboard(text); }
    void extendedClipboard(const std::string& message) override {
        const auto news = requests::clipboardNews(message);
        check(!news.text || news.text->size() <= RfbFilter::longestText);
    }
    void cursor(PictureSize size, PicturePoint hotSpot, const std::vector<std::uint32_t>& pixels,
                std::string_view mask) override {
        check(pixels.empty() || (hotSpot.x < size.width && hotSpot.y < size.height));
        check(mask.size() == static_cast<std::size_t>((size.width + 7) / 8 * size.height));
    }
    void pointer(PicturePoint) override {}

  private:
    void drawn(PicturePart part) {
        const auto size = decoder_->size();
        check(part.x + part.width <= size.width && part.y + part.height <= size.height);
        check(decoder_->pixels().size() ==
              static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height));
    }
    bool fill(std::string& to) {
        if (bytes_.empty() && !filter_.hasMore())
            return false;
        const auto before = to.size();
        const bool isSense = filter_.receive(bytes_.substr(0, cut_), to);
        bytes_.remove_prefix(std::min(cut_, bytes_.size()));
        check(to.size() - before < 2 * RfbFilter::enough);
        handedOn_ += to.substr(before);
        return isSense && !isTooLarge_;
    }

    std::string_view bytes_;
    const std::size_t cut_;
    RfbFilter filter_{*this};
    std::unique_ptr<Decoder> decoder_;
    bool isOpen_ = false;
    bool isTooLarge_ = false;
    std::string handedOn_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    // However it arrives, the same goes on.
    const auto whole = Viewer(bytes, bytes.size()).look();
    const auto pieces = Viewer(bytes, 1 + data[0]).look();
    check(whole.starts_with(pieces) || pieces.starts_with(whole));
    return 0;
}
