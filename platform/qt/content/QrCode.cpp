#include "platform/qt/content/QrCode.h"

#ifdef ZELVO_QRENCODE
#include <qrencode.h>

#include <memory>
#endif

namespace zelvo::platform {

namespace {

constexpr int QuietZone = 2;
/// Bytes in the largest code with medium error correction.
constexpr std::size_t LongestText = 2331;

}  // namespace

std::optional<QrCode> makeQrCode(const std::string& text) {
#ifdef ZELVO_QRENCODE
    struct Free {
        void operator()(QRcode* code) const { QRcode_free(code); }
    };
    if (text.empty() || text.size() > LongestText)
        return std::nullopt;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::unique_ptr<QRcode, Free> encoded(
        QRcode_encodeData(static_cast<int>(text.size()), bytes, 0, QR_ECLEVEL_M));
    if (!encoded)
        return std::nullopt;
    QrCode code{encoded->width, {}};
    code.modules.reserve(static_cast<std::size_t>(code.size) * code.size);
    for (int i = 0; i < code.size * code.size; ++i)
        code.modules.push_back((encoded->data[i] & 1) != 0);
    return code;
#else
    (void)text;
    return std::nullopt;
#endif
}

int widthOf(const QrCode& code) {
    return code.size + 2 * QuietZone;
}

std::vector<std::string> linesOf(const QrCode& code) {
    // By "upper half is dark" and "lower half is dark".
    constexpr const char* blocks[2][2] = {{"█", "▀"}, {"▄", " "}};
    std::vector<std::string> lines;
    for (int y = -QuietZone; y < code.size + QuietZone; y += 2) {
        std::string line;
        for (int x = -QuietZone; x < code.size + QuietZone; ++x)
            line += blocks[code.isDark(x, y)][code.isDark(x, y + 1)];
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace zelvo::platform
