// SPDX-License-Identifier: MIT
// TIFF through libtiff, read from memory; the first image (page) of the file. Grey and RGB images with 1, 8
// or 16 bits per sample stored in strips are read row by row, so that 16-bit samples can follow --bits;
// everything else libtiff understands (tiles, palettes, YCbCr, CMYK, ...) goes through its RGBA reader,
// which gives 8 bits per sample. libtiff's messages are caught per file, never printed.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "grey_conversion.h"
#include "image_io.h"

namespace ombrel::cli {
namespace {

// Largest single allocation libtiff may make for its own strips and tiles.
constexpr tmsize_t kMaxTiffAllocation = tmsize_t{1} << 30;

struct MemoryFile {
    const uint8_t* data;
    uint64_t size;
    uint64_t position = 0;
    char message[200] = {};
};

tmsize_t ReadProc(thandle_t handle, void* out, tmsize_t count) {
    auto* file = static_cast<MemoryFile*>(handle);
    if (count <= 0 || file->position >= file->size) return 0;
    const uint64_t n = std::min<uint64_t>(static_cast<uint64_t>(count), file->size - file->position);
    std::memcpy(out, file->data + file->position, n);
    file->position += n;
    return static_cast<tmsize_t>(n);
}
tmsize_t WriteProc(thandle_t, void*, tmsize_t) {
    return 0;
}
toff_t SeekProc(thandle_t handle, toff_t offset, int whence) {
    auto* file = static_cast<MemoryFile*>(handle);
    uint64_t base = whence == SEEK_CUR ? file->position : whence == SEEK_END ? file->size : 0;
    if (offset > UINT64_MAX - base) return static_cast<toff_t>(-1);
    file->position = base + offset;  // beyond the end is allowed; reads there return nothing
    return file->position;
}
int CloseProc(thandle_t) {
    return 0;
}
toff_t SizeProc(thandle_t handle) {
    return static_cast<MemoryFile*>(handle)->size;
}
int MapProc(thandle_t, void**, toff_t*) {
    return 0;
}
void UnmapProc(thandle_t, void*, toff_t) {}

int OnTiffError(TIFF*, void* user, const char* module, const char* format, va_list args) {
    auto* file = static_cast<MemoryFile*>(user);
    if (file->message[0] == '\0') {
        char text[160];
        std::vsnprintf(text, sizeof text, format, args);
        std::snprintf(file->message, sizeof file->message, "%s%s%s", module ? module : "", module ? ": " : "",
                      text);
    }
    return 1;  // handled: libtiff's global handler (standard error) is not called
}
int OnTiffWarning(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

struct TiffCloser {
    TIFF* tiff;
    ~TiffCloser() {
        if (tiff != nullptr) TIFFClose(tiff);
    }
};

struct Layout {
    uint32_t width = 0, height = 0;
    uint16_t bits = 1, samples = 1, photometric = PHOTOMETRIC_MINISBLACK, planar = PLANARCONFIG_CONTIG;
    uint16_t format = SAMPLEFORMAT_UINT;
};

// True when the rows can be read as they are: plain grey or RGB in strips.
bool ReadableByRows(TIFF* tiff, const Layout& l) {
    if (TIFFIsTiled(tiff) || l.format != SAMPLEFORMAT_UINT || l.planar != PLANARCONFIG_CONTIG) return false;
    const bool grey = (l.photometric == PHOTOMETRIC_MINISBLACK || l.photometric == PHOTOMETRIC_MINISWHITE) &&
                      l.samples >= 1 && (l.bits == 1 || l.bits == 8 || l.bits == 16);
    const bool rgb = l.photometric == PHOTOMETRIC_RGB && l.samples >= 3 && (l.bits == 8 || l.bits == 16);
    return grey || rgb;
}

uint32_t Sample(const uint8_t* row, uint32_t index, uint16_t bits) {
    if (bits == 16) {
        uint16_t v;
        std::memcpy(&v, row + 2 * size_t{index}, 2);  // libtiff gives samples in the machine's order
        return v;
    }
    if (bits == 8) return row[index];
    return (row[index / 8] >> (7 - index % 8)) & 1u;
}

std::string ReadRows(TIFF* tiff, const Layout& l, uint32_t maxval, Buffer* image) {
    const tmsize_t lineBytes = TIFFScanlineSize(tiff);
    const uint64_t needed = (uint64_t{l.width} * l.samples * l.bits + 7) / 8;
    if (lineBytes <= 0 || static_cast<uint64_t>(lineBytes) < needed) return "corrupt TIFF: bad row size";
    std::vector<uint8_t> line(static_cast<size_t>(lineBytes));
    const bool grey = l.photometric != PHOTOMETRIC_RGB;
    for (uint32_t y = 0; y < l.height; ++y) {
        if (TIFFReadScanline(tiff, line.data(), y, 0) < 0) return "";  // the caller reports libtiff's message
        uint8_t* out = image->Row(static_cast<int>(y));
        for (uint32_t x = 0; x < l.width; ++x) {
            const uint32_t first = x * l.samples;
            if (grey) {
                uint8_t v = l.bits == 1 ? static_cast<uint8_t>(Sample(line.data(), first, 1) ? 255 : 0)
                                        : ScaleSample(Sample(line.data(), first, l.bits), maxval);
                out[x] = l.photometric == PHOTOMETRIC_MINISWHITE ? static_cast<uint8_t>(255 - v) : v;
            } else {
                out[x] = RgbToGrey(ScaleSample(Sample(line.data(), first, l.bits), maxval),
                                   ScaleSample(Sample(line.data(), first + 1, l.bits), maxval),
                                   ScaleSample(Sample(line.data(), first + 2, l.bits), maxval));
            }
        }
    }
    return "ok";
}

std::string ReadRgba(TIFF* tiff, const Layout& l, Buffer* image) {
    char why[1024] = {};
    if (!TIFFRGBAImageOK(tiff, why)) return std::string("TIFF images of this kind are not supported: ") + why;
    std::vector<uint32_t> raster(size_t{l.width} * l.height);
    if (!TIFFReadRGBAImageOriented(tiff, l.width, l.height, raster.data(), ORIENTATION_TOPLEFT, 0)) return "";
    for (uint32_t y = 0; y < l.height; ++y) {
        uint8_t* out = image->Row(static_cast<int>(y));
        const uint32_t* in = &raster[size_t{y} * l.width];
        for (uint32_t x = 0; x < l.width; ++x)
            out[x] = RgbToGrey(static_cast<uint8_t>(TIFFGetR(in[x])), static_cast<uint8_t>(TIFFGetG(in[x])),
                               static_cast<uint8_t>(TIFFGetB(in[x])));
    }
    return "ok";
}

}  // namespace

namespace detail {

DecodedImage DecodeTiff(const uint8_t* data, size_t size, const DecodeLimits& limits) {
    DecodedImage result;
    result.format = "TIFF";
    MemoryFile file{data, size};
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (options == nullptr) {
        result.error = "not enough memory to start the TIFF reader";
        return result;
    }
    TIFFOpenOptionsSetErrorHandlerExtR(options, OnTiffError, &file);
    TIFFOpenOptionsSetWarningHandlerExtR(options, OnTiffWarning, &file);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, kMaxTiffAllocation);
    TiffCloser tiff{TIFFClientOpenExt("image", "rm", &file, ReadProc, WriteProc, SeekProc, CloseProc,
                                      SizeProc, MapProc, UnmapProc, options)};
    TIFFOpenOptionsFree(options);
    auto failed = [&](const char* what) {
        result.image.reset();
        result.error = std::string("corrupt TIFF: ") + (file.message[0] ? file.message : what);
        return std::move(result);
    };
    if (tiff.tiff == nullptr) return failed("cannot read the header");
    Layout l;
    TIFFGetField(tiff.tiff, TIFFTAG_IMAGEWIDTH, &l.width);
    TIFFGetField(tiff.tiff, TIFFTAG_IMAGELENGTH, &l.height);
    TIFFGetFieldDefaulted(tiff.tiff, TIFFTAG_BITSPERSAMPLE, &l.bits);
    TIFFGetFieldDefaulted(tiff.tiff, TIFFTAG_SAMPLESPERPIXEL, &l.samples);
    TIFFGetFieldDefaulted(tiff.tiff, TIFFTAG_PLANARCONFIG, &l.planar);
    TIFFGetFieldDefaulted(tiff.tiff, TIFFTAG_SAMPLEFORMAT, &l.format);
    if (!TIFFGetField(tiff.tiff, TIFFTAG_PHOTOMETRIC, &l.photometric))
        l.photometric = l.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    result.sourceBits = l.bits;
    result.sourceColour = l.photometric != PHOTOMETRIC_MINISBLACK && l.photometric != PHOTOMETRIC_MINISWHITE;
    if (l.format == SAMPLEFORMAT_IEEEFP || l.format == SAMPLEFORMAT_COMPLEXIEEEFP) {
        result.error = "floating-point TIFF images are not supported: convert to 8 or 16-bit integers";
        return result;
    }
    const bool byRows = ReadableByRows(tiff.tiff, l);
    const uint64_t extra = byRows ? 0 : uint64_t{4} * l.width * l.height;
    result.error = CheckImageSize(l.width, l.height, extra, limits);
    if (!result.error.empty()) return result;
    auto image = AllocateGrey(static_cast<int>(l.width), static_cast<int>(l.height), &result.error);
    if (!image) return result;
    std::string outcome;
    try {
        const uint32_t maxval = l.bits == 16 ? ScaleMaxval(65535, 16, limits.bits) : 255;
        outcome = byRows ? ReadRows(tiff.tiff, l, maxval, image.get()) : ReadRgba(tiff.tiff, l, image.get());
    } catch (const std::bad_alloc&) {
        result.error = "not enough memory to decode the image";
        return result;
    }
    if (outcome.empty()) return failed("cannot read the image data");
    if (outcome != "ok") {
        result.error = outcome;
        return result;
    }
    result.image = std::move(image);
    return result;
}

}  // namespace detail
}  // namespace ombrel::cli
