#include "opener/viewer/Jpeg.h"

#include <csetjmp>
#include <cstdio>
// Needs what the one above declares.
#include <jpeglib.h>

namespace zelvo::opener {

namespace {

struct Failure : jpeg_error_mgr {
    std::jmp_buf back;
};

[[noreturn]] void fail(j_common_ptr decoder) {
    std::longjmp(static_cast<Failure*>(decoder->err)->back, 1);
}

/// False where it fails, for which it jumps: nothing in it may have a destructor.
bool decode(jpeg_decompress_struct& decoder, Failure& failure, std::string_view jpeg,
            std::uint32_t width, std::uint32_t height, JSAMPLE* pixels) {
    if (setjmp(failure.back) != 0)
        return false;
    ::jpeg_create_decompress(&decoder);
    ::jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size());
    if (::jpeg_read_header(&decoder, TRUE) != JPEG_HEADER_OK || decoder.image_width != width ||
        decoder.image_height != height || ::jpeg_has_multiple_scans(&decoder) != FALSE)
        return false;
    decoder.out_color_space = JCS_RGB;
    ::jpeg_start_decompress(&decoder);
    while (decoder.output_scanline < height) {
        JSAMPROW row = pixels + std::size_t{3} * width * decoder.output_scanline;
        ::jpeg_read_scanlines(&decoder, &row, 1);
    }
    return true;
}

}  // namespace

std::optional<std::string> decodeJpeg(std::string_view jpeg, std::uint32_t width,
                                      std::uint32_t height) {
    std::string pixels(std::size_t{3} * width * height, '\0');
    jpeg_decompress_struct decoder{};
    Failure failure{};
    decoder.err = ::jpeg_std_error(&failure);
    failure.error_exit = fail;
    // A warning is of something that has been repaired; it would be printed.
    failure.emit_message = [](j_common_ptr, int) {};
    const bool isWhole =
        decode(decoder, failure, jpeg, width, height, reinterpret_cast<JSAMPLE*>(pixels.data()));
    ::jpeg_destroy_decompress(&decoder);
    if (!isWhole)
        return std::nullopt;
    return pixels;
}

}  // namespace zelvo::opener
