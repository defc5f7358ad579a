// SPDX-License-Identifier: MIT
// PBM (P1, P4), PGM (P2, P5) and PPM (P3, P6). Debian ships no netpbm development library here, and the
// format is small enough to read carefully by hand: the header is tokenised with bounded numbers, the
// raster's size is checked against the bytes the file holds before any pixel memory is taken, and every
// sample is checked against the maxval.
#include <cstring>

#include "grey_conversion.h"
#include "image_io.h"

namespace ombrel::cli {
namespace {

bool IsSpace(uint8_t c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

class PnmScanner {
  public:
    PnmScanner(const uint8_t* data, size_t size) : _data(data), _size(size) {}

    // Skips whitespace and '#' comments (which run to the end of the line).
    void SkipSeparators() {
        while (_pos < _size) {
            if (IsSpace(_data[_pos])) {
                ++_pos;
            } else if (_data[_pos] == '#') {
                while (_pos < _size && _data[_pos] != '\n' && _data[_pos] != '\r') ++_pos;
            } else {
                break;
            }
        }
    }

    // A decimal number of at most `limit`. Returns false at the end of the data, on a non-digit, or above
    // the limit; `atEnd` tells the first case apart.
    bool Number(uint32_t limit, uint32_t* value, bool* atEnd) {
        SkipSeparators();
        *atEnd = _pos >= _size;
        if (*atEnd || _data[_pos] < '0' || _data[_pos] > '9') return false;
        uint64_t v = 0;
        while (_pos < _size && _data[_pos] >= '0' && _data[_pos] <= '9') {
            v = v * 10 + (_data[_pos++] - '0');
            if (v > limit) return false;
        }
        *value = static_cast<uint32_t>(v);
        return true;
    }

    // One PBM ASCII pixel: '0' or '1', separators optional.
    bool Bit(uint32_t* value, bool* atEnd) {
        SkipSeparators();
        *atEnd = _pos >= _size;
        if (*atEnd || (_data[_pos] != '0' && _data[_pos] != '1')) return false;
        *value = static_cast<uint32_t>(_data[_pos++] - '0');
        return true;
    }

    size_t Position() const { return _pos; }
    size_t Remaining() const { return _size - _pos; }
    void Advance(size_t n) { _pos += n; }
    const uint8_t* Here() const { return _data + _pos; }
    bool AtEnd() const { return _pos >= _size; }
    uint8_t Peek() const { return _data[_pos]; }

  private:
    const uint8_t* _data;
    size_t _size;
    size_t _pos = 0;
};

struct PnmHeader {
    char kind;  // '1'..'6'
    uint32_t width = 0, height = 0, maxval = 1;
    int channels = 1;
    bool binary = false;
    bool bitmap = false;
};

const char* FormatName(char kind) {
    if (kind == '1' || kind == '4') return "PBM";
    if (kind == '2' || kind == '5') return "PGM";
    return "PPM";
}

// Header values larger than this are nonsense, whatever the side limit.
constexpr uint32_t kHeaderNumberLimit = 1000000000u;

std::string ReadHeader(PnmScanner* scan, PnmHeader* header) {
    header->binary = header->kind >= '4';
    header->bitmap = header->kind == '1' || header->kind == '4';
    header->channels = (header->kind == '3' || header->kind == '6') ? 3 : 1;
    const std::string name = FormatName(header->kind);
    bool atEnd = false;
    if (!scan->Number(kHeaderNumberLimit, &header->width, &atEnd) ||
        !scan->Number(kHeaderNumberLimit, &header->height, &atEnd)) {
        return atEnd ? "truncated " + name + ": the header ends early"
                     : "corrupt " + name + ": bad image size";
    }
    if (!header->bitmap) {
        if (!scan->Number(65535, &header->maxval, &atEnd)) {
            return atEnd ? "truncated " + name + ": the header ends early"
                         : "corrupt " + name + ": bad maxval (must be 1 to 65535)";
        }
        if (header->maxval == 0) return "corrupt " + name + ": bad maxval (must be 1 to 65535)";
    }
    if (header->binary) {
        // Exactly one whitespace character separates the header from the raster.
        if (scan->AtEnd()) return "truncated " + name + ": no pixel data";
        if (!IsSpace(scan->Peek())) return "corrupt " + name + ": no separator after the header";
        scan->Advance(1);
    }
    return "";
}

std::string SampleTooLarge(const PnmHeader& h, uint32_t value) {
    return std::string("corrupt ") + FormatName(h.kind) + ": sample value " + std::to_string(value) +
           " exceeds the maxval " + std::to_string(h.maxval);
}

// Binary rasters: the whole raster's size is known from the header and checked first.
std::string ReadBinaryRaster(PnmScanner* scan, const PnmHeader& h, uint32_t scaleMax, Buffer* image) {
    const size_t width = h.width;
    const size_t bytesPerSample = h.maxval > 255 ? 2 : 1;
    const size_t rowBytes = h.bitmap ? (width + 7) / 8 : width * h.channels * bytesPerSample;
    for (uint32_t y = 0; y < h.height; ++y) {
        const uint8_t* in = scan->Here();
        uint8_t* out = image->Row(static_cast<int>(y));
        if (h.bitmap) {
            for (size_t x = 0; x < width; ++x) out[x] = (in[x / 8] & (0x80u >> (x % 8))) ? 0 : 255;
        } else {
            for (size_t x = 0; x < width; ++x) {
                uint32_t s[3];
                for (int c = 0; c < h.channels; ++c) {
                    const size_t i = (x * h.channels + c) * bytesPerSample;
                    s[c] = bytesPerSample == 2 ? (uint32_t{in[i]} << 8 | in[i + 1]) : in[i];
                    if (s[c] > h.maxval) return SampleTooLarge(h, s[c]);
                    s[c] = ScaleSample(s[c], scaleMax);
                }
                out[x] = h.channels == 1 ? static_cast<uint8_t>(s[0])
                                         : RgbToGrey(static_cast<uint8_t>(s[0]), static_cast<uint8_t>(s[1]),
                                                     static_cast<uint8_t>(s[2]));
            }
        }
        scan->Advance(rowBytes);
    }
    return "";
}

std::string ReadAsciiRaster(PnmScanner* scan, const PnmHeader& h, uint32_t scaleMax, Buffer* image) {
    const std::string name = FormatName(h.kind);
    for (uint32_t y = 0; y < h.height; ++y) {
        uint8_t* out = image->Row(static_cast<int>(y));
        for (uint32_t x = 0; x < h.width; ++x) {
            uint32_t s[3];
            for (int c = 0; c < h.channels; ++c) {
                bool atEnd = false;
                const bool ok = h.bitmap ? scan->Bit(&s[c], &atEnd) : scan->Number(65535, &s[c], &atEnd);
                if (!ok) {
                    return atEnd ? "truncated " + name + ": the pixel data ends early (row " +
                                       std::to_string(y) + ")"
                                 : "corrupt " + name + ": bad pixel value in row " + std::to_string(y);
                }
                if (!h.bitmap && s[c] > h.maxval) return SampleTooLarge(h, s[c]);
            }
            if (h.bitmap) {
                out[x] = s[0] ? 0 : 255;
            } else if (h.channels == 1) {
                out[x] = ScaleSample(s[0], scaleMax);
            } else {
                out[x] = RgbToGrey(ScaleSample(s[0], scaleMax), ScaleSample(s[1], scaleMax),
                                   ScaleSample(s[2], scaleMax));
            }
        }
    }
    return "";
}

// The raster must fit in what is left of the file; this bounds the allocation by the file's size.
std::string CheckRasterFits(const PnmScanner& scan, const PnmHeader& h) {
    const uint64_t pixels = uint64_t{h.width} * h.height;
    uint64_t needed;
    if (h.binary) {
        const uint64_t bytesPerSample = h.maxval > 255 ? 2 : 1;
        const uint64_t rowBytes =
            h.bitmap ? (uint64_t{h.width} + 7) / 8 : uint64_t{h.width} * h.channels * bytesPerSample;
        needed = rowBytes * h.height;
    } else {
        needed = pixels * h.channels;  // at least one character per sample
    }
    if (needed <= scan.Remaining()) return "";
    return std::string("truncated ") + FormatName(h.kind) + ": expected " + std::to_string(needed) +
           " bytes of pixel data, found " + std::to_string(scan.Remaining());
}

}  // namespace

namespace detail {

DecodedImage DecodePnm(const uint8_t* data, size_t size, const DecodeLimits& limits) {
    DecodedImage result;
    PnmHeader header;
    header.kind = static_cast<char>(data[1]);
    result.format = FormatName(header.kind);
    PnmScanner scan(data, size);
    scan.Advance(2);
    result.error = ReadHeader(&scan, &header);
    if (!result.error.empty()) return result;
    result.sourceColour = header.channels == 3;
    result.sourceBits = header.bitmap ? 1 : (header.maxval > 255 ? 16 : 8);
    result.error = CheckImageSize(header.width, header.height, 0, limits);
    if (!result.error.empty()) return result;
    result.error = CheckRasterFits(scan, header);
    if (!result.error.empty()) return result;
    auto image = AllocateGrey(static_cast<int>(header.width), static_cast<int>(header.height), &result.error);
    if (!image) return result;
    const uint32_t scaleMax = ScaleMaxval(header.maxval, result.sourceBits, limits.bits);
    result.error = header.binary ? ReadBinaryRaster(&scan, header, scaleMax, image.get())
                                 : ReadAsciiRaster(&scan, header, scaleMax, image.get());
    if (result.error.empty()) result.image = std::move(image);
    return result;
}

}  // namespace detail
}  // namespace ombrel::cli
