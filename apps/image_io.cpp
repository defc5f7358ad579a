// SPDX-License-Identifier: MIT
#include "image_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <new>

#include <ombrel/framework/hal.h>

#include "output_file.h"

namespace ombrel::cli {
namespace {

// Files larger than this are refused before they are read: no image the program handles needs more.
constexpr uint64_t kMaxFileBytes = uint64_t{4} << 30;

bool StartsWith(const uint8_t* data, size_t size, const char* magic, size_t magicSize) {
    return size >= magicSize && std::memcmp(data, magic, magicSize) == 0;
}

// Names the formats people most often try by mistake, so the message says what the file is.
std::string UnsupportedFormatName(const uint8_t* data, size_t size) {
    if (StartsWith(data, size, "GIF8", 4)) return "GIF";
    if (StartsWith(data, size, "P7", 2)) return "PAM";
    if (StartsWith(data, size, "RIFF", 4)) return "WebP";
    return "";
}

std::string MegaBytes(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / (1024.0 * 1024.0));
    return text;
}

}  // namespace

bool ReadFileBytes(const std::string& path, std::vector<uint8_t>* bytes, std::string* error) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *error = std::strerror(errno);
        return false;
    }
    struct FdCloser {
        int fd;
        ~FdCloser() { ::close(fd); }
    } closer{fd};
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        *error = std::strerror(errno);
        return false;
    }
    if (S_ISDIR(info.st_mode)) {
        *error = "is a directory, not an image file";
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        *error = "is not a regular file";
        return false;
    }
    const uint64_t size = static_cast<uint64_t>(info.st_size);
    if (size > kMaxFileBytes) {
        *error = "file is too large (" + MegaBytes(size) + ")";
        return false;
    }
    try {
        bytes->resize(size);
    } catch (const std::bad_alloc&) {
        *error = "not enough memory to read the file (" + MegaBytes(size) + ")";
        return false;
    }
    size_t done = 0;
    while (done < size) {
        const ssize_t got = ::read(fd, bytes->data() + done, size - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            *error = std::string("read error: ") + std::strerror(errno);
            return false;
        }
        if (got == 0) break;  // the file shrank while we read it
        done += static_cast<size_t>(got);
    }
    bytes->resize(done);
    return true;
}

DecodedImage DecodeImage(const uint8_t* data, size_t size, const DecodeLimits& limits) {
    if (size == 0) {
        DecodedImage empty;
        empty.error = "file is empty";
        return empty;
    }
    if (StartsWith(data, size, "\x89PNG\r\n\x1A\n", 8)) return detail::DecodePng(data, size, limits);
    if (size >= 2 && data[0] == 'P' && data[1] >= '1' && data[1] <= '6') {
        return detail::DecodePnm(data, size, limits);
    }
    if (StartsWith(data, size, "\xFF\xD8\xFF", 3)) return detail::DecodeJpeg(data, size, limits);
    if (StartsWith(data, size, "II*\0", 4) || StartsWith(data, size, "MM\0*", 4) ||
        StartsWith(data, size, "II+\0", 4) || StartsWith(data, size, "MM\0+", 4)) {
        return detail::DecodeTiff(data, size, limits);
    }
    if (StartsWith(data, size, "BM", 2)) return detail::DecodeBmp(data, size, limits);
    DecodedImage failed;
    const std::string known = UnsupportedFormatName(data, size);
    failed.error = known.empty() ? "not an image: expected a PNG, TIFF, JPEG, BMP, PGM, PBM or PPM file"
                                 : known + " images are not supported: convert to PNG or TIFF";
    return failed;
}

DecodedImage ReadImageFile(const std::string& path, const DecodeLimits& limits) {
    std::vector<uint8_t> bytes;
    DecodedImage result;
    if (!ReadFileBytes(path, &bytes, &result.error)) return result;
    return DecodeImage(bytes.data(), bytes.size(), limits);
}

namespace detail {

std::string CheckImageSize(int64_t width, int64_t height, uint64_t extraBytes, const DecodeLimits& limits) {
    if (width <= 0 || height <= 0) {
        return "image has no pixels (" + std::to_string(width) + " x " + std::to_string(height) + ")";
    }
    if (width > limits.maxSide || height > limits.maxSide) {
        return "image of " + std::to_string(width) + " x " + std::to_string(height) +
               " pixels is too large: at most " + std::to_string(limits.maxSide) + " pixels a side";
    }
    // Our buffers pad rows to 64 bytes; count that so the estimate is not optimistic.
    const uint64_t pitch = (static_cast<uint64_t>(width) + 63) / 64 * 64;
    const uint64_t needed = pitch * static_cast<uint64_t>(height) + extraBytes;
    const uint64_t available = limits.maxBytes != 0 ? limits.maxBytes : memAvail();
    if (available != 0 && needed > available) {
        return "image of " + std::to_string(width) + " x " + std::to_string(height) + " pixels needs " +
               MegaBytes(needed) + ", more than the " + MegaBytes(available) + " of memory available";
    }
    return "";
}

std::unique_ptr<Buffer> AllocateGrey(int width, int height, std::string* error) {
    std::unique_ptr<Buffer> image(new (std::nothrow) Buffer(width, height, EIGHT));
    if (!image || image->GetError() != BUFFER_OK || image->BaseAddr() == nullptr) {
        *error = "not enough memory for an image of " + std::to_string(width) + " x " +
                 std::to_string(height) + " pixels";
        return nullptr;
    }
    return image;
}

}  // namespace detail

// ---- Writers ----------------------------------------------------------------------------------------------

namespace {

std::string Extension(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

// Writes `header` and then `rowCount` rows produced by `row(y, out)` into `path`.
template <class RowWriter>
std::string WriteRaw(const std::string& path, const std::string& header, int rowCount, size_t rowBytes,
                     RowWriter row) {
    OutputFile file;
    std::string problem = file.Open(path);
    if (!problem.empty()) return problem;
    std::vector<uint8_t> line(rowBytes);
    bool ok = file.Write(header.data(), header.size());
    for (int y = 0; ok && y < rowCount; ++y) {
        row(y, line.data());
        ok = file.Write(line.data(), rowBytes);
    }
    return file.Commit();
}

}  // namespace

std::string WritePgm(const std::string& path, const Buffer& grey) {
    const int w = grey.Width(), h = grey.Height();
    const std::string header = "P5\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n";
    return WriteRaw(path, header, h, static_cast<size_t>(w),
                    [&](int y, uint8_t* out) { std::memcpy(out, grey.Row(y), static_cast<size_t>(w)); });
}

std::string WritePbm(const std::string& path, const Buffer& grey) {
    const int w = grey.Width(), h = grey.Height();
    const std::string header = "P4\n" + std::to_string(w) + " " + std::to_string(h) + "\n";
    const size_t rowBytes = (static_cast<size_t>(w) + 7) / 8;
    return WriteRaw(path, header, h, rowBytes, [&](int y, uint8_t* out) {
        std::memset(out, 0, rowBytes);
        const uint8_t* in = grey.Row(y);
        for (int x = 0; x < w; ++x) {
            if (in[x] == 0) out[x / 8] |= static_cast<uint8_t>(0x80u >> (x % 8));
        }
    });
}

std::string OutputFormatProblem(const std::string& path) {
    const std::string ext = Extension(path);
    if (ext == ".png" || ext == ".pgm" || ext == ".pbm") return "";
    return "cannot write '" + (ext.empty() ? std::string("(no extension)") : ext) +
           "' files: use .png, .pgm or .pbm";
}

std::string WriteImage(const std::string& path, const Buffer& grey) {
    if (grey.BaseAddr() == nullptr || grey.BitsPerPixel() != EIGHT) return "no 8-bit image to write";
    const std::string problem = OutputFormatProblem(path);
    if (!problem.empty()) return problem;
    const std::string ext = Extension(path);
    if (ext == ".pgm") return WritePgm(path, grey);
    if (ext == ".pbm") return WritePbm(path, grey);
    return WritePng(path, grey);
}

}  // namespace ombrel::cli
