// SPDX-License-Identifier: MIT
// PNG through libpng. libpng reports errors by longjmp, which must not jump over live C++ objects: every
// object with a destructor lives in a PngSession owned by the caller, and the functions that call setjmp
// hold only plain locals.
#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <new>

#include "grey_conversion.h"
#include "image_io.h"
#include "output_file.h"

namespace ombrel::cli {
namespace {

struct MemoryReader {
    const uint8_t* data;
    size_t size;
    size_t position;
};

struct PngSession {
    png_structp png = nullptr;
    png_infop info = nullptr;
    bool writing = false;
    char message[160] = {};
    bool truncated = false;
    bool wide = false;  // 16-bit samples kept for the --bits mapping
    DecodedImage result;
    std::vector<uint8_t> colourPixels;  // RGB rows before conversion to grey
    std::vector<png_bytep> rows;
    ~PngSession() {
        if (writing) {
            png_destroy_write_struct(&png, info != nullptr ? &info : nullptr);
        } else if (png != nullptr) {
            png_destroy_read_struct(&png, info != nullptr ? &info : nullptr, nullptr);
        }
    }
};

void OnPngError(png_structp png, png_const_charp message) {
    auto* session = static_cast<PngSession*>(png_get_error_ptr(png));
    std::snprintf(session->message, sizeof session->message, "%s", message);
    png_longjmp(png, 1);
}

void OnPngWarning(png_structp, png_const_charp) {}  // benign problems (a bad ancillary chunk) are ignored

void ReadFromMemory(png_structp png, png_bytep out, png_size_t length) {
    auto* reader = static_cast<MemoryReader*>(png_get_io_ptr(png));
    if (length > reader->size - reader->position) {
        static_cast<PngSession*>(png_get_error_ptr(png))->truncated = true;
        png_error(png, "file ends early");
    }
    std::memcpy(out, reader->data + reader->position, length);
    reader->position += length;
}

// Kept out of ReadHeader so that no string is alive there when libpng jumps out.
bool AcceptSize(PngSession* s, int64_t width, int64_t height, uint64_t extra, const DecodeLimits& limits) {
    s->result.error = detail::CheckImageSize(width, height, extra, limits);
    return s->result.error.empty();
}

// Reads the header, checks the size and sets the conversions to 8-bit grey or RGB. Returns the number of
// channels after conversion (1 or 3), 0 when the size was refused (the problem is in the session).
int ReadHeader(PngSession* s, const DecodeLimits& limits) {
    png_structp png = s->png;
    png_infop info = s->info;
    png_read_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    const int colourType = png_get_color_type(png, info);
    s->result.sourceBits = png_get_bit_depth(png, info);
    s->result.sourceColour = (colourType & PNG_COLOR_MASK_COLOR) != 0;
    const bool interlaced = png_get_interlace_type(png, info) != PNG_INTERLACE_NONE;
    s->wide = limits.bits > 0 && s->result.sourceBits == 16;
    // Interlaced colour (or 16-bit data kept for --bits) needs the whole image before conversion;
    // progressive needs one row.
    const uint64_t samples = s->result.sourceColour ? 3 : 1;
    const uint64_t extra = s->result.sourceColour || s->wide
                               ? uint64_t{width} * samples * (s->wide ? 2 : 1) * (interlaced ? height : 1)
                               : 0;
    if (!AcceptSize(s, width, height, extra, limits)) return 0;
    png_set_expand(png);  // palette to RGB, 1/2/4-bit grey to 8 bits, transparency to alpha
    if (!s->wide) png_set_scale_16(png);
    png_set_strip_alpha(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    return static_cast<int>(png_get_channels(png, info));
}

void ConvertRowsToGrey(PngSession* s, int width, int height) {
    for (int y = 0; y < height; ++y) {
        const uint8_t* rgb = s->rows[static_cast<size_t>(y)];
        uint8_t* out = s->result.image->Row(y);
        for (int x = 0; x < width; ++x) out[x] = RgbToGrey(rgb[3 * x], rgb[3 * x + 1], rgb[3 * x + 2]);
    }
}

// 16-bit samples (big-endian in libpng's rows) mapped with the user's bit count.
void ConvertWideRow(const uint8_t* in, int width, int channels, uint32_t maxval, uint8_t* out) {
    auto sample = [&](int i) { return ScaleSample(uint32_t{in[2 * i]} << 8 | in[2 * i + 1], maxval); };
    for (int x = 0; x < width; ++x) {
        out[x] = channels == 1 ? sample(x) : RgbToGrey(sample(3 * x), sample(3 * x + 1), sample(3 * x + 2));
    }
}

bool ReadWideRows(PngSession* s, int width, int height, int channels, bool interlaced, uint32_t maxval) {
    const size_t rowBytes = static_cast<size_t>(width) * static_cast<size_t>(channels) * 2;
    if (interlaced) {
        s->colourPixels.resize(rowBytes * static_cast<size_t>(height));
        for (int y = 0; y < height; ++y) s->rows[static_cast<size_t>(y)] = &s->colourPixels[rowBytes * y];
        png_read_image(s->png, s->rows.data());
        for (int y = 0; y < height; ++y)
            ConvertWideRow(s->rows[static_cast<size_t>(y)], width, channels, maxval, s->result.image->Row(y));
        return true;
    }
    s->colourPixels.resize(rowBytes);
    for (int y = 0; y < height; ++y) {
        png_read_row(s->png, s->colourPixels.data(), nullptr);
        ConvertWideRow(s->colourPixels.data(), width, channels, maxval, s->result.image->Row(y));
    }
    return true;
}

// The part of decoding that libpng may leave by longjmp. Returns false on failure.
bool DecodeInSession(PngSession* s, MemoryReader* reader, const DecodeLimits& limits) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_set_read_fn(s->png, reader, ReadFromMemory);
    // Our own size check gives the clearer message; libpng's limits only guard its ancillary chunks.
    png_set_user_limits(s->png, 0x7fffffff, 0x7fffffff);
    png_set_chunk_malloc_max(s->png, 16u << 20);
    if (!limits.checkPngCrc) {
        png_set_crc_action(s->png, PNG_CRC_QUIET_USE, PNG_CRC_QUIET_USE);
#if defined(PNG_IGNORE_ADLER32)
        png_set_option(s->png, PNG_IGNORE_ADLER32, PNG_OPTION_ON);
#endif
    }
    const int channels = ReadHeader(s, limits);
    if (channels != 1 && channels != 3) {
        if (channels != 0) std::snprintf(s->message, sizeof s->message, "unexpected channel count");
        return false;
    }
    const int width = static_cast<int>(png_get_image_width(s->png, s->info));
    const int height = static_cast<int>(png_get_image_height(s->png, s->info));
    s->result.image = detail::AllocateGrey(width, height, &s->result.error);
    if (!s->result.image) return false;
    const bool interlaced = png_get_interlace_type(s->png, s->info) != PNG_INTERLACE_NONE;
    s->rows.resize(static_cast<size_t>(height));
    if (s->wide) {
        return ReadWideRows(s, width, height, channels, interlaced,
                            ScaleMaxval(65535, s->result.sourceBits, limits.bits));
    }
    if (channels == 1) {
        for (int y = 0; y < height; ++y) s->rows[static_cast<size_t>(y)] = s->result.image->Row(y);
        png_read_image(s->png, s->rows.data());
        return true;
    }
    const size_t rowBytes = static_cast<size_t>(width) * 3;
    if (interlaced) {
        s->colourPixels.resize(rowBytes * static_cast<size_t>(height));
        for (int y = 0; y < height; ++y) s->rows[static_cast<size_t>(y)] = &s->colourPixels[rowBytes * y];
        png_read_image(s->png, s->rows.data());
        ConvertRowsToGrey(s, width, height);
        return true;
    }
    s->colourPixels.resize(rowBytes);
    for (int y = 0; y < height; ++y) {
        png_read_row(s->png, s->colourPixels.data(), nullptr);
        uint8_t* out = s->result.image->Row(y);
        const uint8_t* rgb = s->colourPixels.data();
        for (int x = 0; x < width; ++x) out[x] = RgbToGrey(rgb[3 * x], rgb[3 * x + 1], rgb[3 * x + 2]);
    }
    return true;
}

}  // namespace

namespace detail {

DecodedImage DecodePng(const uint8_t* data, size_t size, const DecodeLimits& limits) {
    PngSession session;
    session.result.format = "PNG";
    MemoryReader reader{data, size, 0};
    bool ok = false;
    try {
        session.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &session, OnPngError, OnPngWarning);
        if (session.png != nullptr) session.info = png_create_info_struct(session.png);
        if (session.png == nullptr || session.info == nullptr) {
            session.result.error = "not enough memory to start the PNG reader";
            return std::move(session.result);
        }
        ok = DecodeInSession(&session, &reader, limits);
    } catch (const std::bad_alloc&) {
        session.result.error = "not enough memory to decode the image";
        ok = false;
    }
    if (ok) return std::move(session.result);
    session.result.image.reset();
    if (session.result.error.empty()) {
        session.result.error = session.truncated ? "truncated PNG: the file ends before the image data does"
                                                 : std::string("corrupt PNG: ") + session.message;
    }
    return std::move(session.result);
}

}  // namespace detail

namespace {

// The part of encoding that libpng may leave by longjmp. `rows` already point at every row.
bool EncodeInSession(PngSession* s, std::FILE* file, int width, int height, int colourType) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_init_io(s->png, file);
    png_set_IHDR(s->png, s->info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
                 colourType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(s->png, s->info);
    png_write_image(s->png, s->rows.data());
    png_write_end(s->png, nullptr);
    return true;
}

std::string WritePngRows(const std::string& path, int width, int height, int colourType,
                         const std::vector<png_bytep>& rows) {
    OutputFile file;
    std::string problem = file.Open(path);
    if (!problem.empty()) return problem;
    bool ok = false;
    {
        PngSession session;
        session.writing = true;
        session.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &session, OnPngError, OnPngWarning);
        if (session.png != nullptr) session.info = png_create_info_struct(session.png);
        if (session.png != nullptr && session.info != nullptr) {
            session.rows = rows;
            ok = EncodeInSession(&session, file.Stream(), width, height, colourType);
            if (!ok) problem = std::string("PNG write error: ") + session.message;
        } else {
            problem = "not enough memory to start the PNG writer";
        }
    }
    if (!ok) return problem;  // the temporary file is removed with `file`
    return file.Commit();
}

}  // namespace

std::string WritePng(const std::string& path, const Buffer& grey) {
    if (grey.BaseAddr() == nullptr || grey.BitsPerPixel() != EIGHT) return "no 8-bit image to write";
    std::vector<png_bytep> rows(static_cast<size_t>(grey.Height()));
    for (int y = 0; y < grey.Height(); ++y) rows[static_cast<size_t>(y)] = grey.Row(y);
    return WritePngRows(path, grey.Width(), grey.Height(), PNG_COLOR_TYPE_GRAY, rows);
}

std::string WritePngRgb(const std::string& path, int width, int height, const uint8_t* rgb, size_t rowBytes) {
    if (rgb == nullptr || width <= 0 || height <= 0) return "no image to write";
    std::vector<png_bytep> rows(static_cast<size_t>(height));
    for (int y = 0; y < height; ++y) rows[static_cast<size_t>(y)] = const_cast<uint8_t*>(rgb + rowBytes * y);
    return WritePngRows(path, width, height, PNG_COLOR_TYPE_RGB, rows);
}

}  // namespace ombrel::cli
