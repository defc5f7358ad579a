// SPDX-License-Identifier: MIT
/// \file
/// The image buffer every agent reads and writes.
///
/// Pixel (x, y) of an 8-bit buffer is at BaseAddr() + y * Pitch() + x; 16- and 32-bit buffers hold native
/// little-endian words at BaseAddr() + y * Pitch() + x * 2 (or * 4); one-bit buffers hold eight pixels per
/// byte, most significant bit first, and every row starts on a whole byte (bits past the width are padding).
///
/// Buffers the library allocates have rows aligned to 64 bytes with a pitch that is a multiple of 64, zeroed
/// memory, and own their pixels. A buffer can also wrap pixels its caller owns (a frame grabber's memory, a
/// cv::Mat, a numpy array) with the caller's pitch; it then never frees them.
///
/// Construction never throws. A bad size (zero or negative, or so large that pitch * height overflows or
/// memory runs out), a bad depth or a bad pitch gives a buffer with GetError() != 0, a null BaseAddr() and a
/// 0 x 0 extent, which every agent treats as empty.
#pragma once
#include <cstdint>

#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"

namespace ombrel {

/// Bits per pixel: one-bit binary images, 8-bit grey, 16- and 32-bit intermediates.
enum PixelDepth : int32_t { ONE = 1, EIGHT = 8, SIXTEEN = 16, THIRTYTWO = 32 };

/// Where a buffer's memory lives. Factories treat both host types alike unless a family says otherwise.
enum BufferType : int32_t {
    MONSTER_BUFFER = 0,      ///< memory on the vision-processor board
    HOST_BUFFER = 1,         ///< host memory the buffer allocated and owns
    HOST_WRAPPED_BUFFER = 2  ///< host memory the caller owns and lent to the buffer
};

/// Board memory banks 0 and 1; host buffers report HOST_BANK.
enum BankType : int32_t { BANK_0 = 0, BANK_1 = 1, HOST_BANK = 2 };

/// Pixel format tag, carried for the board back end (host code ignores it).
using PixelFormat = int32_t;
/// Image format tag, carried for the board back end (host code ignores it).
using ImageFormat = int32_t;
/// How a board buffer is allocated: ordinary memory or the board's scratch area.
enum MonsterAllocType : int32_t { MONSTER_ALLOC_DEFAULT = 0, MONSTER_ALLOC_SCRATCH = 1 };

/// What GetError() reports for a buffer that holds no pixels.
enum BufferError : int32_t {
    /// the buffer holds its pixels
    BUFFER_OK = 0,
    BUFFER_BAD_SIZE = -1,   ///< width or height not positive, or pitch * height beyond what can be addressed
    BUFFER_NO_MEMORY = -2,  ///< the allocation failed
    BUFFER_BAD_DEPTH = -3,  ///< not 1, 8, 16 or 32 bits per pixel
    BUFFER_BAD_PITCH = -4,  ///< a wrapped buffer whose pitch is shorter than a row, or whose pixels are null
    BUFFER_NO_BOARD = -5    ///< a board buffer: this build has no board back end, so it has no pixels
};

class Monster;  ///< the vision-processor board (board back end)

/// An image: width, height, row pitch, depth and the pixels (owned, or wrapped from the caller). The layout
/// and the failure rules are in buffer.h's description.
class OMBREL_API Buffer {
  public:
    ///@{
    /// Host buffers, zeroed. The first form reports HOST_BANK, the second the bank it is given.
    Buffer(int w, int h, PixelDepth depth, PixelFormat pixelFormat = 0, ImageFormat imageFormat = 1);
    Buffer(int w, int h, BankType bank, PixelDepth depth, PixelFormat pixelFormat = 0,
           ImageFormat imageFormat = 1);
    ///@}
    /// Wraps `pixels` (not copied, not freed) as a host buffer of type HOST_WRAPPED_BUFFER.
    Buffer(uint8_t* pixels, int w, int h, int pitch, PixelDepth depth);

    ///@{
    /// Board buffers. Without a board back end they describe the buffer (type, bank, size, depth) but hold no
    /// pixels: BaseAddr() is null and GetError() is BUFFER_NO_BOARD.
    Buffer(Monster* board, MonsterAllocType alloc, BankType bank, int w, int h, PixelDepth depth,
           PixelFormat pixelFormat = 0, ImageFormat imageFormat = 1);
    Buffer(Monster* board, MonsterAllocType alloc, BankType bank, int w, int h, int frames, PixelDepth depth,
           PixelFormat pixelFormat = 0, ImageFormat imageFormat = 1);
    ///@}

    ///@{
    /// A new buffer shaped like `other` (same depth, type and formats), optionally in another bank or of
    /// another size; its pixels are zeroed, not copied. A null `other` gives a BUFFER_BAD_SIZE buffer.
    explicit Buffer(const Buffer* other);
    Buffer(const Buffer* other, int w, int h);
    Buffer(const Buffer* other, BankType bank);
    Buffer(const Buffer* other, BankType bank, int w, int h);
    Buffer(const Buffer* other, MonsterAllocType alloc, int w, int h);
    Buffer(const Buffer* other, MonsterAllocType alloc, BankType bank, int w, int h);
    ///@}

    ///@{
    /// Deep copies: the copy owns its pixels, also when the original wrapped the caller's.
    Buffer(const Buffer& other);
    Buffer& operator=(const Buffer& other);
    ///@}

    /// Frees the pixels when the buffer owns them; wrapped pixels stay the caller's.
    virtual ~Buffer();
    virtual int Reserved() const { return 0; }  ///< kept so that the slot order of the interface is stable
    /// Columns.
    virtual int Width() const { return _width; }
    /// Rows.
    virtual int Height() const { return _height; }
    /// Bytes from one row to the next (at least the bytes of one row).
    virtual int Pitch() const { return _pitch; }

    /// Bits per pixel: ONE, EIGHT, SIXTEEN or THIRTYTWO.
    PixelDepth BitsPerPixel() const { return _depth; }
    /// Address of pixel (0, 0); null when the buffer has no pixels.
    uint8_t* BaseAddr() const { return _base; }
    /// Board, owned host or wrapped host memory.
    BufferType Type() const { return _type; }
    /// Board bank, or HOST_BANK.
    BankType Bank() const { return _bank; }
    /// BUFFER_OK, or the BufferError that left the buffer without pixels.
    int GetError() const { return _error; }
    /// The board a board buffer belongs to (null for host buffers).
    Monster* Board() const { return _board; }
    /// The pixel format tag given at construction.
    PixelFormat GetPixelFormat() const { return _pixelFormat; }
    /// The image format tag given at construction.
    ImageFormat GetImageFormat() const { return _imageFormat; }
    /// Frames of a multi-frame board buffer (1 otherwise).
    int Frames() const { return _frames; }

    /// Address of row y (no bounds check; the caller has clipped).
    uint8_t* Row(int y) const { return _base + static_cast<int64_t>(y) * _pitch; }
    /// Bytes that one row of `width` pixels of this depth occupies.
    static int64_t RowBytes(int64_t width, PixelDepth depth);

    ///@{
    /// Copies pixels from `src`: the whole image (the part that fits), the rectangle `r` of `src` to (0, 0),
    /// or `r` to `p`. Source and destination parts are clipped to both buffers. Same depths copy exactly;
    /// 8-bit to one-bit makes every non-zero byte a 1 and every zero a 0; one-bit to 8-bit makes 1 into byte
    /// 1 and 0 into byte 0. Other depth pairs are not converted. Returns 0, or a negative BufferError when
    /// either buffer has no pixels or the depths cannot be converted (nothing is written then).
    int CopyFrom(const Buffer* src);
    int CopyFrom(const Buffer* src, Rect r);
    int CopyFrom(const Buffer* src, Rect r, Point p);
    ///@}

  private:
    void InitEmpty();
    void Allocate(int w, int h, PixelDepth depth);
    void ShapeLike(const Buffer* other, BankType bank, int w, int h);
    void Release();

    int32_t _width = 0;
    int32_t _height = 0;
    int32_t _pitch = 0;
    PixelDepth _depth = EIGHT;
    uint8_t* _base = nullptr;
    bool _ownsPixels = false;
    BufferType _type = HOST_BUFFER;
    BankType _bank = HOST_BANK;
    MonsterAllocType _alloc = MONSTER_ALLOC_DEFAULT;
    Monster* _board = nullptr;
    int32_t _error = BUFFER_OK;
    int32_t _frames = 1;
    PixelFormat _pixelFormat = 0;
    ImageFormat _imageFormat = 1;
};

}  // namespace ombrel
