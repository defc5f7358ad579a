// SPDX-License-Identifier: MIT
// BMP (Windows bitmap) reader: there is no maintained Debian library for it, so this is a small one that
// trusts nothing in the file. Accepted: the core (12-byte) and the 40/52/56/108/124-byte info headers,
// 1, 4 and 8 bits with a palette, 16, 24 and 32 bits (plain or with bit-field masks), bottom-up and
// top-down rows. Run-length compressed, JPEG- and PNG-in-BMP files are refused with a message.
#include <cstring>

#include "grey_conversion.h"
#include "image_io.h"

namespace ombrel::cli {
namespace {

constexpr uint32_t kBiRgb = 0, kBiRle8 = 1, kBiRle4 = 2, kBiBitfields = 3, kBiAlphaBitfields = 6;

uint32_t U16(const uint8_t* p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8;
}
uint32_t U32(const uint8_t* p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

// One colour channel described by a bit-field mask: where it sits and how wide it is.
struct Channel {
    uint32_t mask = 0;
    int shift = 0;
    uint32_t maxval = 0;
    bool Set(uint32_t m) {
        mask = m;
        if (m == 0) return true;
        shift = 0;
        while (((m >> shift) & 1u) == 0) ++shift;
        const uint32_t bits = m >> shift;
        if ((bits & (bits + 1)) != 0) return false;  // the mask's bits must be contiguous
        maxval = bits;
        while (maxval > 65535) {  // keep the top 16 bits, so that scaling cannot overflow
            maxval >>= 1;
            ++shift;
        }
        return true;
    }
    uint8_t Of(uint32_t pixel) const {
        if (mask == 0) return 0;
        return ScaleSample((pixel & mask) >> shift, maxval);
    }
};

struct BmpHeader {
    int64_t width = 0, height = 0;
    bool topDown = false;
    uint32_t bits = 0, compression = kBiRgb, colours = 0, dataOffset = 0, headerSize = 0;
    Channel red, green, blue;
    uint8_t palette[256] = {};  // grey of each palette entry
};

std::string ReadMasks(const uint8_t* data, size_t size, BmpHeader* h) {
    uint32_t r = 0, g = 0, b = 0;
    if (h->compression == kBiBitfields || h->compression == kBiAlphaBitfields) {
        // The masks follow a 40-byte header, or are part of a longer one.
        const size_t at = 14 + 40;
        if (size < at + 12) return "truncated BMP: the colour masks are missing";
        r = U32(data + at), g = U32(data + at + 4), b = U32(data + at + 8);
        if (h->bits != 16 && h->bits != 32)
            return "corrupt BMP: colour masks on a " + std::to_string(h->bits) + "-bit image";
    } else if (h->bits == 16) {
        r = 0x7C00, g = 0x03E0, b = 0x001F;
    } else {
        r = 0xFF0000, g = 0x00FF00, b = 0x0000FF;
    }
    if (!h->red.Set(r) || !h->green.Set(g) || !h->blue.Set(b))
        return "corrupt BMP: a colour mask is not contiguous";
    return "";
}

std::string ReadPalette(const uint8_t* data, size_t size, BmpHeader* h) {
    const uint32_t most = 1u << h->bits;
    const uint32_t count = h->colours == 0 ? most : h->colours;
    if (count > most)
        return "corrupt BMP: " + std::to_string(h->colours) + " palette colours for " +
               std::to_string(h->bits) + " bits";
    const size_t entry = h->headerSize == 12 ? 3 : 4;
    const size_t at = 14 + size_t{h->headerSize};
    if (at + count * entry > size) return "truncated BMP: the palette is cut short";
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t* e = data + at + i * entry;  // blue, green, red
        h->palette[i] = RgbToGrey(e[2], e[1], e[0]);
    }
    return "";  // entries beyond the palette stay 0 (black)
}

std::string ReadBmpHeader(const uint8_t* data, size_t size, BmpHeader* h) {
    if (size < 14 + 12) return "truncated BMP: the header is cut short";
    h->dataOffset = U32(data + 10);
    h->headerSize = U32(data + 14);
    const uint32_t hs = h->headerSize;
    if (hs != 12 && hs != 40 && hs != 52 && hs != 56 && hs != 108 && hs != 124)
        return "corrupt BMP: unknown header size " + std::to_string(hs);
    if (size < 14 + size_t{hs}) return "truncated BMP: the header is cut short";
    const uint8_t* p = data + 14;
    if (hs == 12) {
        h->width = U16(p + 4);
        h->height = U16(p + 6);
        h->bits = U16(p + 10);
    } else {
        h->width = static_cast<int32_t>(U32(p + 4));
        const int32_t height = static_cast<int32_t>(U32(p + 8));
        h->topDown = height < 0;
        h->height = height < 0 ? -int64_t{height} : int64_t{height};
        h->bits = U16(p + 14);
        h->compression = U32(p + 16);
        h->colours = U32(p + 32);
    }
    if (h->compression == kBiRle8 || h->compression == kBiRle4)
        return "run-length compressed BMP images are not supported: save it uncompressed or as PNG";
    if (h->compression != kBiRgb && h->compression != kBiBitfields && h->compression != kBiAlphaBitfields)
        return "BMP images with compression " + std::to_string(h->compression) + " are not supported";
    const uint32_t b = h->bits;
    if (b != 1 && b != 4 && b != 8 && b != 16 && b != 24 && b != 32)
        return "corrupt BMP: " + std::to_string(b) + " bits per pixel";
    return b <= 8 ? ReadPalette(data, size, h) : ReadMasks(data, size, h);
}

uint8_t GreyAt(const uint8_t* row, int64_t x, const BmpHeader& h) {
    switch (h.bits) {
        case 1:
            return h.palette[(row[x / 8] >> (7 - x % 8)) & 1u];
        case 4:
            return h.palette[(row[x / 2] >> (x % 2 == 0 ? 4 : 0)) & 0xFu];
        case 8:
            return h.palette[row[x]];
        case 24:
            return RgbToGrey(row[3 * x + 2], row[3 * x + 1], row[3 * x]);
        default: {
            const uint32_t pixel = h.bits == 16 ? U16(row + 2 * x) : U32(row + 4 * x);
            return RgbToGrey(h.red.Of(pixel), h.green.Of(pixel), h.blue.Of(pixel));
        }
    }
}

}  // namespace

namespace detail {

DecodedImage DecodeBmp(const uint8_t* data, size_t size, const DecodeLimits& limits) {
    DecodedImage result;
    result.format = "BMP";
    BmpHeader h;
    result.error = ReadBmpHeader(data, size, &h);
    if (!result.error.empty()) return result;
    result.sourceBits = static_cast<int>(h.bits);
    result.sourceColour = h.bits > 8;
    result.error = CheckImageSize(h.width, h.height, 0, limits);
    if (!result.error.empty()) return result;
    // Rows are padded to 4 bytes; the size check above keeps this well inside 64 bits.
    const uint64_t rowBytes = (static_cast<uint64_t>(h.width) * h.bits + 31) / 32 * 4;
    const uint64_t needed = rowBytes * static_cast<uint64_t>(h.height);
    if (h.dataOffset > size || needed > size - h.dataOffset) {
        result.error = "truncated BMP: expected " + std::to_string(needed) + " bytes of pixel data, found " +
                       std::to_string(h.dataOffset > size ? 0 : size - h.dataOffset);
        return result;
    }
    auto image = AllocateGrey(static_cast<int>(h.width), static_cast<int>(h.height), &result.error);
    if (!image) return result;
    for (int64_t y = 0; y < h.height; ++y) {
        const uint8_t* row = data + h.dataOffset + rowBytes * static_cast<uint64_t>(y);
        uint8_t* out = image->Row(static_cast<int>(h.topDown ? y : h.height - 1 - y));
        for (int64_t x = 0; x < h.width; ++x) out[x] = GreyAt(row, x, h);
    }
    result.image = std::move(image);
    return result;
}

}  // namespace detail
}  // namespace ombrel::cli
