// SPDX-License-Identifier: MIT
// The object stream, its class registry, and the stream form of buffers.
#include "ombrel/framework/object_stream.h"

#include <algorithm>
#include <cstring>
#include <istream>
#include <map>
#include <mutex>
#include <ostream>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/hal.h"

namespace ombrel {

namespace {

constexpr uint8_t kMagic[4] = {'O', 'M', 'B', 'S'};
constexpr uint32_t kFormat = 1;
constexpr uint8_t kNullPointer = 0, kNewObject = 1, kSeenObject = 2;
// Type names are short; a longer one is a corrupt stream, not a name to look up.
constexpr uint32_t kMaxNameLength = 255;
// Objects hold objects only a few levels deep; a deeper stream is hostile.
constexpr int kMaxDepth = 16;

// Registration happens during static initialisation of several files; the table is made on first use.
struct Registry {
    std::mutex lock;
    std::map<std::string, const os_class*, std::less<>> classes;
};
Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

}  // namespace

// ---- Registry
// -----------------------------------------------------------------------------------------------

os_class::os_class(const char* name, uint32_t version, CreateFn create, DestroyFn destroy, WriteFn write,
                   ReadFn read)
    : _name(name), _version(version), _create(create), _destroy(destroy), _write(write), _read(read) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> guard(r.lock);
    r.classes[_name] = this;
}

os_class::~os_class() {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> guard(r.lock);
    auto it = r.classes.find(_name);
    if (it != r.classes.end() && it->second == this) r.classes.erase(it);
}

const os_class* os_class::Find(std::string_view name) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> guard(r.lock);
    auto it = r.classes.find(name);
    return it == r.classes.end() ? nullptr : it->second;
}

// ---- Construction
// -------------------------------------------------------------------------------------------

os_bstream::os_bstream() {
    Put(kMagic, sizeof kMagic);
    PutU32(kFormat);
}

os_bstream::os_bstream(const void* data, size_t size) : _reading(true) {
    try {
        if (data != nullptr && size > 0)
            _bytes.assign(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
    } catch (const std::bad_alloc&) {
        Fail("out of memory");
        return;
    }
    _limit = _bytes.size();
    uint8_t magic[4];
    uint32_t format = 0;
    if (!Get(magic, sizeof magic) || std::memcmp(magic, kMagic, sizeof magic) != 0) {
        _error.clear();
        Fail("not an object stream");
        return;
    }
    if (GetU32(format) && format != kFormat) Fail("unknown stream format");
}

os_bstream::os_bstream(os_bstream&& other) noexcept
    : _reading(other._reading),
      _bytes(std::move(other._bytes)),
      _pos(other._pos),
      _limit(other._limit),
      _depth(other._depth),
      _error(std::move(other._error)),
      _writtenIds(std::move(other._writtenIds)),
      _readObjects(std::move(other._readObjects)) {
    other._readObjects.clear();
}

os_bstream::~os_bstream() {
    for (const ReadObjectEntry& e : _readObjects)
        if (e.owned) e.cls->_destroy(e.obj);
}

os_bstream os_bstream::ReadFrom(std::istream& in, size_t maxBytes) {
    std::vector<uint8_t> bytes;
    char block[65536];
    bool tooLong = false;
    try {
        while (in) {
            in.read(block, sizeof block);
            const size_t got = static_cast<size_t>(in.gcount());
            if (bytes.size() + got > maxBytes) {
                tooLong = true;
                break;
            }
            bytes.insert(bytes.end(), block, block + got);
        }
    } catch (...) {
        tooLong = true;  // an allocation failure or a stream set to throw: either way no stream
    }
    if (tooLong || (in.bad())) {
        os_bstream failed(nullptr, 0);
        failed._error = tooLong ? "stream too long" : "read error";
        return failed;
    }
    return os_bstream(bytes.data(), bytes.size());
}

bool os_bstream::WriteTo(std::ostream& out) const {
    if (Failed()) return false;
    out.write(reinterpret_cast<const char*>(_bytes.data()), static_cast<std::streamsize>(_bytes.size()));
    return static_cast<bool>(out);
}

void os_bstream::Fail(const char* why) {
    if (_error.empty()) _error = why;
}

// ---- Primitives
// ---------------------------------------------------------------------------------------------

void os_bstream::Put(const void* data, size_t size) {
    if (_reading || Failed() || size == 0) return;
    try {
        _bytes.insert(_bytes.end(), static_cast<const uint8_t*>(data),
                      static_cast<const uint8_t*>(data) + size);
    } catch (const std::bad_alloc&) {
        Fail("out of memory");
    }
}

void os_bstream::PutU32(uint32_t v) {
    const uint8_t b[4] = {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8),
                          static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 24)};
    Put(b, 4);
}

bool os_bstream::Get(void* out, size_t size) {
    if (!_reading || Failed()) return false;
    if (size > _limit - _pos) {
        Fail("truncated stream");
        return false;
    }
    if (size > 0) std::memcpy(out, _bytes.data() + _pos, size);
    _pos += size;
    return true;
}

bool os_bstream::GetU32(uint32_t& v) {
    uint8_t b[4];
    if (!Get(b, 4)) return false;
    v = uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24;
    return true;
}

void os_bstream::WriteBool(bool v) {
    const uint8_t b = v ? 1 : 0;
    Put(&b, 1);
}
void os_bstream::WriteInt(int32_t v) {
    PutU32(static_cast<uint32_t>(v));
}
void os_bstream::WriteUnsigned(uint32_t v) {
    PutU32(v);
}
void os_bstream::WriteFloat(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    PutU32(bits);
}
void os_bstream::WriteDouble(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, 8);
    PutU32(static_cast<uint32_t>(bits));
    PutU32(static_cast<uint32_t>(bits >> 32));
}
void os_bstream::WriteChunk(const void* data, uint32_t size) {
    if (data == nullptr && size > 0) {
        Fail("chunk without data");
        return;
    }
    PutU32(size);
    Put(data, size);
}

bool os_bstream::ReadBool(bool& v) {
    uint8_t b;
    if (!Get(&b, 1)) return false;
    if (b > 1) {
        Fail("corrupt bool");
        return false;
    }
    v = b == 1;
    return true;
}
bool os_bstream::ReadInt(int32_t& v) {
    uint32_t u;
    if (!GetU32(u)) return false;
    v = static_cast<int32_t>(u);
    return true;
}
bool os_bstream::ReadUnsigned(uint32_t& v) {
    return GetU32(v);
}
bool os_bstream::ReadFloat(float& v) {
    uint32_t bits;
    if (!GetU32(bits)) return false;
    std::memcpy(&v, &bits, 4);
    return true;
}
bool os_bstream::ReadDouble(double& v) {
    uint32_t lo, hi;
    if (!GetU32(lo) || !GetU32(hi)) return false;
    const uint64_t bits = uint64_t{hi} << 32 | lo;
    std::memcpy(&v, &bits, 8);
    return true;
}

bool os_bstream::ReadChunk(std::vector<uint8_t>& out, uint32_t maxSize) {
    uint32_t size;
    if (!GetU32(size)) return false;
    if (size > maxSize || size > Remaining()) {  // checked before anything is allocated
        Fail(size > maxSize ? "chunk too long" : "truncated stream");
        return false;
    }
    try {
        std::vector<uint8_t> chunk(_bytes.begin() + static_cast<std::ptrdiff_t>(_pos),
                                   _bytes.begin() + static_cast<std::ptrdiff_t>(_pos + size));
        out.swap(chunk);
    } catch (const std::bad_alloc&) {
        Fail("out of memory");
        return false;
    }
    _pos += size;
    return true;
}

bool os_bstream::ReadChunkExact(void* out, uint32_t size) {
    uint32_t stored;
    if (!GetU32(stored)) return false;
    if (stored != size) {
        Fail("chunk of the wrong length");
        return false;
    }
    return Get(out, size);
}

// ---- Objects
// ------------------------------------------------------------------------------------------------

void os_bstream::WriteObject(const os_class& cls, const void* obj) {
    if (_reading || Failed()) return;
    if (++_depth > kMaxDepth) {
        Fail("objects nested too deeply");
    } else {
        PutU32(static_cast<uint32_t>(cls._name.size()));
        Put(cls._name.data(), cls._name.size());
        PutU32(cls._version);
        const size_t lengthAt = _bytes.size();
        PutU32(0);  // the body length, filled in below
        const size_t bodyAt = _bytes.size();
        cls._write(*this, obj);
        if (!Failed()) {
            const uint64_t length = _bytes.size() - bodyAt;
            if (length > UINT32_MAX) {
                Fail("object too large");
            } else {
                for (int i = 0; i < 4; ++i) _bytes[lengthAt + i] = static_cast<uint8_t>(length >> (8 * i));
            }
        }
    }
    --_depth;
}

void os_bstream::WritePointer(const os_class& cls, const void* obj) {
    if (_reading || Failed()) return;
    if (obj == nullptr) {
        const uint8_t tag = kNullPointer;
        Put(&tag, 1);
        return;
    }
    auto seen = _writtenIds.find(obj);
    if (seen != _writtenIds.end()) {
        const uint8_t tag = kSeenObject;
        Put(&tag, 1);
        PutU32(seen->second);
        return;
    }
    const uint32_t id = static_cast<uint32_t>(_writtenIds.size() + 1);
    try {
        _writtenIds.emplace(obj, id);
    } catch (const std::bad_alloc&) {
        Fail("out of memory");
        return;
    }
    const uint8_t tag = kNewObject;
    Put(&tag, 1);
    PutU32(id);
    WriteObject(cls, obj);
}

bool os_bstream::ReadObjectHeader(const os_class& cls, uint32_t* version, size_t* bodyEnd) {
    uint32_t nameLength, bodyLength;
    if (!GetU32(nameLength)) return false;
    if (nameLength > kMaxNameLength || nameLength > Remaining()) {
        Fail(nameLength > kMaxNameLength ? "type name too long" : "truncated stream");
        return false;
    }
    const std::string_view name(reinterpret_cast<const char*>(_bytes.data() + _pos), nameLength);
    _pos += nameLength;
    if (name != cls._name) {
        Fail(os_class::Find(name) == nullptr ? "unknown class" : "object of another class");
        return false;
    }
    if (!GetU32(*version) || !GetU32(bodyLength)) return false;
    if (bodyLength > Remaining()) {
        Fail("truncated stream");
        return false;
    }
    *bodyEnd = _pos + bodyLength;
    return true;
}

// Reads one body inside its own bounds; a read function that stops early (an unknown version) is skipped
// past, one that wanted more than the body fails the stream.
bool os_bstream::ReadBody(const os_class& cls, void* obj, uint32_t version, size_t bodyEnd) {
    if (++_depth > kMaxDepth) {
        --_depth;
        Fail("objects nested too deeply");
        return false;
    }
    const size_t outerLimit = _limit;
    _limit = bodyEnd;
    const bool ok = cls._read(*this, obj, version) && !Failed();
    _limit = outerLimit;
    --_depth;
    if (!ok) {
        Fail("corrupt object");
        return false;
    }
    _pos = bodyEnd;
    return true;
}

bool os_bstream::ReadObject(const os_class& cls, void* obj) {
    if (!_reading || Failed()) return false;
    uint32_t version;
    size_t bodyEnd;
    return ReadObjectHeader(cls, &version, &bodyEnd) && ReadBody(cls, obj, version, bodyEnd);
}

bool os_bstream::ReadPointer(const os_class& cls, void** out) {
    if (!_reading || Failed()) return false;
    uint8_t tag;
    uint32_t id;
    if (!Get(&tag, 1)) return false;
    if (tag == kNullPointer) {
        *out = nullptr;
        return true;
    }
    if (tag != kNewObject && tag != kSeenObject) {
        Fail("corrupt pointer");
        return false;
    }
    if (!GetU32(id)) return false;
    if (tag == kSeenObject) {
        if (id == 0 || id > _readObjects.size()) {
            Fail("reference to an object not read");
            return false;
        }
        const ReadObjectEntry& e = _readObjects[id - 1];
        if (e.cls != &cls || !e.owned) {
            Fail(e.cls != &cls ? "reference to an object of another class" : "reference to a taken object");
            return false;
        }
        *out = e.obj;
        return true;
    }
    // New objects carry the next id; any other one cannot come from a writer.
    if (id != _readObjects.size() + 1) {
        Fail("object out of sequence");
        return false;
    }
    uint32_t version;
    size_t bodyEnd;
    if (!ReadObjectHeader(cls, &version, &bodyEnd)) return false;
    void* obj = cls._create();
    if (obj == nullptr) {
        Fail("out of memory");
        return false;
    }
    // Recorded before its body is read: the id is taken whatever the body holds.
    try {
        _readObjects.push_back({obj, &cls, true});
    } catch (const std::bad_alloc&) {
        cls._destroy(obj);
        Fail("out of memory");
        return false;
    }
    if (!ReadBody(cls, obj, version, bodyEnd)) return false;  // the reader still deletes it
    *out = obj;
    return true;
}

bool os_bstream::TakeOwnership(const void* obj) {
    for (ReadObjectEntry& e : _readObjects)
        if (e.obj == obj && e.owned) {
            e.owned = false;
            return true;
        }
    return false;
}

// ---- Buffers
// ------------------------------------------------------------------------------------------------

namespace {

int64_t PackedRowBytes(int64_t width, int depth) {
    return (width * depth + 7) / 8;
}

bool DepthKnown(int32_t depth) {
    return depth == ONE || depth == EIGHT || depth == SIXTEEN || depth == THIRTYTWO;
}

void WriteBuffer(os_bstream& s, const Buffer& b) {
    // A buffer without pixels (a failed allocation, a board buffer) is written as an empty one.
    const bool readable = b.GetError() == 0 && b.BaseAddr() != nullptr;
    const int32_t width = readable ? b.Width() : 0, height = readable ? b.Height() : 0;
    const int32_t depth = b.BitsPerPixel();
    const int64_t rowBytes = PackedRowBytes(width, depth);
    if (rowBytes * height > UINT32_MAX) {
        s.Fail("buffer too large");
        return;
    }
    std::vector<uint8_t> packed;
    try {
        packed.resize(static_cast<size_t>(rowBytes * height));
    } catch (const std::bad_alloc&) {
        s.Fail("out of memory");
        return;
    }
    for (int32_t y = 0; y < height; ++y) {
        uint8_t* row = packed.data() + static_cast<size_t>(rowBytes) * y;
        std::memcpy(row, b.Row(y), static_cast<size_t>(rowBytes));
        if (depth == ONE && (width & 7) != 0)  // bits past the width are padding, not pixels
            row[rowBytes - 1] &= static_cast<uint8_t>(0xFF00 >> (width & 7));
    }
    s.WriteInt(width);
    s.WriteInt(height);
    s.WriteInt(depth);
    s.WriteChunk(packed.data(), static_cast<uint32_t>(packed.size()));
}

bool ReadBuffer(os_bstream& s, Buffer& b, uint32_t version) {
    if (version != StreamClassOf(static_cast<const Buffer*>(nullptr)).Version()) {
        OMBREL_ASSERT_HERE("lsbuffer", false, "0");
        return true;
    }
    int32_t width, height, depth;
    if (!s.ReadInt(width) || !s.ReadInt(height) || !s.ReadInt(depth)) return false;
    if (!DepthKnown(depth) || width < 0 || height < 0 || (width == 0) != (height == 0)) return false;
    const int64_t expected = PackedRowBytes(width, depth) * height;
    // The pixels must be in the stream before a buffer is made for them.
    if (expected > static_cast<int64_t>(s.Remaining()) || expected > UINT32_MAX) return false;
    std::vector<uint8_t> packed;
    if (!s.ReadChunk(packed, static_cast<uint32_t>(expected)) ||
        packed.size() != static_cast<size_t>(expected))
        return false;
    if (width == 0) {
        b = Buffer(0, 0, static_cast<PixelDepth>(depth));  // a buffer without pixels, as it was written
        return true;
    }
    Buffer read(width, height, static_cast<PixelDepth>(depth));
    if (read.GetError() != 0) {
        s.Fail("out of memory");
        return false;
    }
    const size_t rowBytes = static_cast<size_t>(PackedRowBytes(width, depth));
    for (int32_t y = 0; y < height; ++y) std::memcpy(read.Row(y), packed.data() + rowBytes * y, rowBytes);
    b = read;
    return b.GetError() == 0;
}

const os_class kBufferClass(
    "(Buffer*)", static_cast<uint32_t>(RCSStringToNumber("$Revision: 1.1 $")),
    []() -> void* { return new (std::nothrow) Buffer(1, 1, EIGHT); },
    [](void* obj) { delete static_cast<Buffer*>(obj); },
    [](os_bstream& s, const void* obj) { WriteBuffer(s, *static_cast<const Buffer*>(obj)); },
    [](os_bstream& s, void* obj, uint32_t v) { return ReadBuffer(s, *static_cast<Buffer*>(obj), v); });

}  // namespace

const os_class& StreamClassOf(const Buffer*) {
    return kBufferClass;
}

}  // namespace ombrel
