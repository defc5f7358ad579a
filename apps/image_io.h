// SPDX-License-Identifier: MIT
// Reading and writing the images the command-line program works on.
//
// Every image is turned into an 8-bit grey Buffer, whatever it was on disk:
//   - PNG through libpng: palette and low-bit grey are expanded, alpha is dropped (not composited), the
//     gamma chunk is ignored (pixel values are taken as stored);
//   - PGM, PBM and PPM (binary and ASCII) through the small reader in pnm_codec.cpp;
//   - TIFF through libtiff (the first page; see tiff_codec.cpp), JPEG through libjpeg-turbo (colour JPEGs
//     by their luma), BMP through the small reader in bmp_codec.cpp;
//   - colour becomes grey with the library's BT.601 tables (see grey_conversion.h);
//   - samples of more than 8 bits (16-bit PNG and TIFF, PGM with maxval above 255) and PGM with a maxval
//     other than 255 are scaled to 0..255 with rounding: v8 = (v * 255 + maxval / 2) / maxval, where maxval
//     is 2^bits - 1 for 16-bit data when DecodeLimits::bits says how many bits the sensor fills;
//   - PBM's 1 (black) becomes grey 0 and its 0 (white) grey 255.
//
// Files are untrusted: every length and count is checked before use, a file that is cut short is reported
// as truncated, and sizes are checked against a side limit and the memory the machine has before pixels are
// allocated. Nothing here throws; every failure is a one-line message without the file name (the caller
// names the file).
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <ombrel/framework/buffer.h>

namespace ombrel::cli {

// The longest side accepted. Blob coordinates are 16-bit with 32767 as a row end mark, so wider images
// could not be analysed; the same limit for every command keeps behaviour uniform.
inline constexpr int kMaxImageSide = 32766;

struct DecodeLimits {
    int maxSide = kMaxImageSide;
    // Largest pixel allocation in bytes; 0 means "what the machine has available".
    uint64_t maxBytes = 0;
    // PNG chunk checksums are verified unless this is false (only the fuzz targets turn it off, so that
    // mutated files reach the decoder instead of stopping at the checksum).
    bool checkPngCrc = true;
    // Bits a high-bit-depth sensor fills in files of more than 8 bits per sample (--bits): 0..2^bits-1 maps
    // to 0..255 and larger values saturate at 255. 0 scales the file's whole range (maxval, 65535).
    int bits = 0;
};

struct DecodedImage {
    std::unique_ptr<Buffer> image;  // 8-bit grey, null on failure
    std::string error;              // why it failed, empty on success
    std::string format;             // "PNG", "TIFF", "JPEG", "BMP", "PGM", "PBM", "PPM"
    int sourceBits = 0;             // bits per sample on disk (1, 8, 16, ...)
    bool sourceColour = false;      // converted from colour
    explicit operator bool() const { return image != nullptr; }
};

// Decodes an image held in memory. The bytes are not kept.
DecodedImage DecodeImage(const uint8_t* data, size_t size, const DecodeLimits& limits = {});

// Reads and decodes a file. Errors name the problem ("No such file or directory", "is a directory",
// "not an image ...", "truncated PNG ...").
DecodedImage ReadImageFile(const std::string& path, const DecodeLimits& limits = {});

// Reads a whole file; false with `error` set when it cannot.
bool ReadFileBytes(const std::string& path, std::vector<uint8_t>* bytes, std::string* error);

// Writers. Each returns an empty string on success, or the problem. A failed write removes the partial file.
std::string WritePng(const std::string& path, const Buffer& grey);
std::string WritePngRgb(const std::string& path, int width, int height, const uint8_t* rgb, size_t rowBytes);
std::string WritePgm(const std::string& path, const Buffer& grey);
// Non-zero pixels become white (PBM 0), zero black (PBM 1): read back, a written mask selects the same
// pixels (white is 255 to the reader) and looks the same as the 0/255 PNG of it.
std::string WritePbm(const std::string& path, const Buffer& grey);
// By extension: .pgm, .pbm, otherwise .png; any other extension is refused (see OutputFormatProblem).
std::string WriteImage(const std::string& path, const Buffer& grey);
// Empty when `path` names a format WriteImage can write, else the problem.
std::string OutputFormatProblem(const std::string& path);

// Internal pieces shared by the codecs.
namespace detail {
DecodedImage DecodePng(const uint8_t* data, size_t size, const DecodeLimits& limits);
DecodedImage DecodePnm(const uint8_t* data, size_t size, const DecodeLimits& limits);
DecodedImage DecodeTiff(const uint8_t* data, size_t size, const DecodeLimits& limits);
DecodedImage DecodeJpeg(const uint8_t* data, size_t size, const DecodeLimits& limits);
DecodedImage DecodeBmp(const uint8_t* data, size_t size, const DecodeLimits& limits);
// Empty when a width x height image of `bytesPerPixel` bytes (plus `extraBytes`) may be allocated, else the
// problem, naming the size.
std::string CheckImageSize(int64_t width, int64_t height, uint64_t extraBytes, const DecodeLimits& limits);
// A zeroed 8-bit buffer, or null with `error` set.
std::unique_ptr<Buffer> AllocateGrey(int width, int height, std::string* error);
}  // namespace detail

}  // namespace ombrel::cli
