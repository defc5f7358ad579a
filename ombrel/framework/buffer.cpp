// SPDX-License-Identifier: MIT
#include "ombrel/framework/buffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "ombrel/framework/allocation.h"

namespace ombrel {
namespace {

constexpr int64_t kRowAlignment = 64;
// Far beyond any image (512 GiB), far below what 64-bit arithmetic on sizes can overflow, and below what
// allocators (AddressSanitizer's among them) refuse outright instead of returning null: an absurd region
// gives BUFFER_BAD_SIZE before any allocation is tried.
constexpr int64_t kMaxBufferBytes = int64_t{1} << 39;

bool IsValidDepth(int depth) {
    return depth == ONE || depth == EIGHT || depth == SIXTEEN || depth == THIRTYTWO;
}

int64_t AlignedPitch(int64_t rowBytes) {
    return (rowBytes + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
}

bool GetBit(const uint8_t* row, int x) {
    return (row[x >> 3] >> (7 - (x & 7))) & 1;
}

void SetBit(uint8_t* row, int x, bool on) {
    const uint8_t bit = static_cast<uint8_t>(0x80u >> (x & 7));
    row[x >> 3] = on ? static_cast<uint8_t>(row[x >> 3] | bit) : static_cast<uint8_t>(row[x >> 3] & ~bit);
}

// Copies a width x height block of pixels between two rows-walkers, converting depth where allowed.
void CopyBlock(const Buffer& src, int sx, int sy, Buffer& dst, int dx, int dy, int width, int height) {
    const PixelDepth sd = src.BitsPerPixel();
    const PixelDepth dd = dst.BitsPerPixel();
    for (int y = 0; y < height; ++y) {
        const uint8_t* s = src.Row(sy + y);
        uint8_t* d = dst.Row(dy + y);
        if (sd == dd && sd != ONE) {
            const int bytes = sd / 8;
            std::memmove(d + static_cast<int64_t>(dx) * bytes, s + static_cast<int64_t>(sx) * bytes,
                         static_cast<size_t>(width) * bytes);
        } else if (sd == ONE && dd == ONE) {
            for (int x = 0; x < width; ++x) SetBit(d, dx + x, GetBit(s, sx + x));
        } else if (sd == EIGHT && dd == ONE) {
            for (int x = 0; x < width; ++x) SetBit(d, dx + x, s[sx + x] != 0);
        } else {  // ONE -> EIGHT
            for (int x = 0; x < width; ++x) d[dx + x] = GetBit(s, sx + x) ? 1 : 0;
        }
    }
}

bool CanConvert(PixelDepth from, PixelDepth to) {
    return from == to || (from == EIGHT && to == ONE) || (from == ONE && to == EIGHT);
}

}  // namespace

int64_t Buffer::RowBytes(int64_t width, PixelDepth depth) {
    return depth == ONE ? (width + 7) / 8 : width * (depth / 8);
}

void Buffer::InitEmpty() {
    _width = _height = _pitch = 0;
    _base = nullptr;
    _ownsPixels = false;
}

void Buffer::Allocate(int w, int h, PixelDepth depth) {
    _depth = depth;
    InitEmpty();
    if (!IsValidDepth(depth)) {
        _error = BUFFER_BAD_DEPTH;
        return;
    }
    if (w <= 0 || h <= 0) {
        _error = BUFFER_BAD_SIZE;
        return;
    }
    const int64_t pitch = AlignedPitch(RowBytes(w, depth));
    if (pitch > std::numeric_limits<int32_t>::max() || pitch * h > kMaxBufferBytes) {
        _error = BUFFER_BAD_SIZE;
        return;
    }
    // calloc hands large blocks out as fresh zero pages, so a big image costs nothing until it is written;
    // the extra line of bytes lets the rows start on a 64-byte boundary. The original pointer is kept just
    // before the aligned block so that Release can give it back.
    const size_t total = static_cast<size_t>(pitch * h) + kRowAlignment + sizeof(void*);
    void* raw = detail::Calloc(1, total);
    if (raw == nullptr) {
        _error = BUFFER_NO_MEMORY;
        return;
    }
    uintptr_t aligned = reinterpret_cast<uintptr_t>(raw) + sizeof(void*);
    aligned = (aligned + kRowAlignment - 1) & ~static_cast<uintptr_t>(kRowAlignment - 1);
    std::memcpy(reinterpret_cast<void*>(aligned - sizeof(void*)), &raw, sizeof(void*));
    _base = reinterpret_cast<uint8_t*>(aligned);
    _ownsPixels = true;
    _width = w;
    _height = h;
    _pitch = static_cast<int32_t>(pitch);
    _error = BUFFER_OK;
}

void Buffer::Release() {
    if (_ownsPixels && _base != nullptr) {
        void* raw = nullptr;
        std::memcpy(&raw, _base - sizeof(void*), sizeof(void*));
        std::free(raw);
    }
    InitEmpty();
}

Buffer::Buffer(int w, int h, PixelDepth depth, PixelFormat pixelFormat, ImageFormat imageFormat)
    : _type(HOST_BUFFER), _bank(HOST_BANK), _pixelFormat(pixelFormat), _imageFormat(imageFormat) {
    Allocate(w, h, depth);
}

Buffer::Buffer(int w, int h, BankType bank, PixelDepth depth, PixelFormat pixelFormat,
               ImageFormat imageFormat)
    : _type(HOST_BUFFER), _bank(bank), _pixelFormat(pixelFormat), _imageFormat(imageFormat) {
    Allocate(w, h, depth);
}

Buffer::Buffer(uint8_t* pixels, int w, int h, int pitch, PixelDepth depth)
    : _depth(depth), _type(HOST_WRAPPED_BUFFER), _bank(HOST_BANK) {
    if (!IsValidDepth(depth)) {
        _error = BUFFER_BAD_DEPTH;
    } else if (w <= 0 || h <= 0) {
        _error = BUFFER_BAD_SIZE;
    } else if (pixels == nullptr || pitch < RowBytes(w, depth)) {
        _error = BUFFER_BAD_PITCH;
    } else if (static_cast<int64_t>(pitch) * h > kMaxBufferBytes) {
        _error = BUFFER_BAD_SIZE;
    } else {
        _width = w;
        _height = h;
        _pitch = pitch;
        _base = pixels;
    }
}

Buffer::Buffer(Monster* board, MonsterAllocType alloc, BankType bank, int w, int h, PixelDepth depth,
               PixelFormat pixelFormat, ImageFormat imageFormat)
    : Buffer(board, alloc, bank, w, h, 1, depth, pixelFormat, imageFormat) {}

Buffer::Buffer(Monster* board, MonsterAllocType alloc, BankType bank, int w, int h, int frames,
               PixelDepth depth, PixelFormat pixelFormat, ImageFormat imageFormat)
    : _depth(depth),
      _type(MONSTER_BUFFER),
      _bank(bank),
      _alloc(alloc),
      _board(board),
      _error(BUFFER_NO_BOARD),
      _frames(frames),
      _pixelFormat(pixelFormat),
      _imageFormat(imageFormat) {
    // The extent is recorded so that factories and assertions can read it; there are no host pixels.
    if (w > 0 && h > 0 && IsValidDepth(depth)) {
        _width = w;
        _height = h;
        const int64_t pitch = AlignedPitch(RowBytes(w, depth));
        _pitch = pitch > std::numeric_limits<int32_t>::max() ? 0 : static_cast<int32_t>(pitch);
    }
}

void Buffer::ShapeLike(const Buffer* other, BankType bank, int w, int h) {
    if (other == nullptr) {
        InitEmpty();
        _error = BUFFER_BAD_SIZE;
        return;
    }
    _pixelFormat = other->_pixelFormat;
    _imageFormat = other->_imageFormat;
    _bank = bank;
    if (other->Type() == MONSTER_BUFFER) {
        *this = Buffer(other->_board, other->_alloc, bank, w, h, other->_frames, other->_depth, _pixelFormat,
                       _imageFormat);
        return;
    }
    _type = HOST_BUFFER;  // a new host buffer owns its memory, whatever the model did
    Allocate(w, h, other->_depth);
}

Buffer::Buffer(const Buffer* other) {
    ShapeLike(other, other ? other->Bank() : HOST_BANK, other ? other->Width() : 0,
              other ? other->Height() : 0);
}
Buffer::Buffer(const Buffer* other, int w, int h) {
    ShapeLike(other, other ? other->Bank() : HOST_BANK, w, h);
}
Buffer::Buffer(const Buffer* other, BankType bank) {
    ShapeLike(other, bank, other ? other->Width() : 0, other ? other->Height() : 0);
}
Buffer::Buffer(const Buffer* other, BankType bank, int w, int h) {
    ShapeLike(other, bank, w, h);
}
Buffer::Buffer(const Buffer* other, MonsterAllocType alloc, int w, int h) {
    ShapeLike(other, other ? other->Bank() : HOST_BANK, w, h);
    _alloc = alloc;
}
Buffer::Buffer(const Buffer* other, MonsterAllocType alloc, BankType bank, int w, int h) {
    ShapeLike(other, bank, w, h);
    _alloc = alloc;
}

Buffer::Buffer(const Buffer& other) {
    *this = other;
}

Buffer& Buffer::operator=(const Buffer& other) {
    if (this == &other) return *this;
    Release();
    _pixelFormat = other._pixelFormat;
    _imageFormat = other._imageFormat;
    _bank = other._bank;
    _alloc = other._alloc;
    _board = other._board;
    _frames = other._frames;
    _depth = other._depth;
    _type = other._type;
    _error = other._error;
    if (other._type == MONSTER_BUFFER || other._base == nullptr) {
        _width = other._width;
        _height = other._height;
        _pitch = other._pitch;
        return *this;
    }
    _type = HOST_BUFFER;
    Allocate(other._width, other._height, other._depth);
    if (_base != nullptr) CopyFrom(&other);
    return *this;
}

Buffer::~Buffer() {
    Release();
}

int Buffer::CopyFrom(const Buffer* src) {
    if (src == nullptr) return BUFFER_BAD_SIZE;
    return CopyFrom(src, Rect{0, 0, src->Width(), src->Height()}, Point{0, 0});
}

int Buffer::CopyFrom(const Buffer* src, Rect r) {
    return CopyFrom(src, r, Point{0, 0});
}

int Buffer::CopyFrom(const Buffer* src, Rect r, Point p) {
    if (src == nullptr || src->BaseAddr() == nullptr || _base == nullptr) return BUFFER_BAD_SIZE;
    if (!CanConvert(src->BitsPerPixel(), _depth)) return BUFFER_BAD_DEPTH;
    // Clip in 64-bit so that extreme rectangles cannot overflow: first to the source, then to this buffer.
    int64_t sx0 = r.left, sy0 = r.top, sx1 = r.right, sy1 = r.bottom;
    int64_t dx0 = p.x, dy0 = p.y;
    const auto clipStart = [](int64_t& s0, int64_t& d0, int64_t lowS, int64_t lowD) {
        const int64_t shift = std::max(lowS - s0, lowD - d0);
        if (shift > 0) {
            s0 += shift;
            d0 += shift;
        }
    };
    clipStart(sx0, dx0, 0, 0);
    clipStart(sy0, dy0, 0, 0);
    const int64_t width = std::min({sx1, int64_t{src->Width()}}) - sx0;
    const int64_t height = std::min({sy1, int64_t{src->Height()}}) - sy0;
    const int64_t w = std::min(width, int64_t{_width} - dx0);
    const int64_t h = std::min(height, int64_t{_height} - dy0);
    if (w <= 0 || h <= 0) return BUFFER_OK;
    CopyBlock(*src, static_cast<int>(sx0), static_cast<int>(sy0), *this, static_cast<int>(dx0),
              static_cast<int>(dy0), static_cast<int>(w), static_cast<int>(h));
    return BUFFER_OK;
}

}  // namespace ombrel
