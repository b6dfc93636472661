#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zelvo::platform {

/// A QR code (ISO/IEC 18004), without its quiet zone.
struct QrCode {
    /// Modules in a row, and rows.
    int size = 0;
    /// Row by row; true is dark.
    std::vector<bool> modules;

    /// Light outside of the code.
    bool isDark(int x, int y) const {
        return x >= 0 && y >= 0 && x < size && y < size &&
               modules[static_cast<std::size_t>(y * size + x)];
    }
};

/// None when the text is empty or too long, or where the encoder is not built in.
std::optional<QrCode> makeQrCode(const std::string& text);

/// Columns of each line that shows the code in a terminal.
int widthOf(const QrCode& code);
/// The code in half-block characters, two rows of modules in a line, light modules drawn. A quiet
/// zone surrounds it.
std::vector<std::string> linesOf(const QrCode& code);

}  // namespace zelvo::platform
