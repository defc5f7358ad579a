// SPDX-License-Identifier: MIT
/// \file
/// The object stream: persistent classes registered under a type name with a version, written to and read
/// from a binary stream of values, raw chunks, objects by value and objects by pointer.
///
/// Byte layout (every number little-endian, whatever the host):
///   stream  := "OMBS" u32:format(=1) item*
///   bool    := u8 (0 or 1; any other byte is a corrupt stream)
///   int     := i32          unsigned := u32          float := IEEE-754 binary32 bits as u32
///   double  := IEEE-754 binary64 bits as u64
///   chunk   := u32:length  byte[length]
///   value   := object
///   pointer := u8:0                      a null pointer
///            | u8:1 u32:id object        the first time an object is written; ids count 1, 2, 3, ...
///            | u8:2 u32:id               the same object again (written earlier with that id)
///   object  := u32:nameLength char[nameLength] u32:version u32:bodyLength byte[bodyLength]
/// An object's body is what its class's write function wrote, in the class's own field order. The body length
/// lets a reader stay in step past an object it cannot read (an unknown version: the class asserts, the
/// object stays unread, the body is skipped) and bounds every read inside the body.
///
/// Memory and files: a writer collects the bytes in memory (Bytes()); WriteTo puts them on a std::ostream.
/// A reader holds its own copy of the bytes, taken from memory or from a std::istream (ReadFrom, with a cap).
///
/// Every stream is read as untrusted. Each read checks that the bytes it needs are still there (inside the
/// enclosing object's body); a length or count is checked against what is left before anything is allocated;
/// a name must be one of a registered class and the class the caller asked for; a back-reference must name an
/// object of that class read earlier; nesting is capped. The first failure puts the reader in a failed state
/// (Failed(), Error()): every later read returns false and leaves its output as it was. Nothing throws.
///
/// Ownership of objects read through pointers: the reader owns them and deletes them when it is destroyed, so
/// a pointer read twice is the same object and a hostile back-reference can never reach freed memory. A
/// caller that keeps an object either copies it or calls TakeOwnership, after which the reader never hands
/// that object out again (a later back-reference to it is a corrupt stream).
///
/// A persistent class provides, in its own namespace so that argument lookup finds it,
///   const os_class& StreamClassOf(const T*);
/// returning one os_class object made with os_class::Make<T, Write, Read>(name, version). Registration
/// happens when that object is constructed, at library start-up (a static object in the class's source).
/// A class with a buffer, a region and a number needs no more than (Read checks the version `v` first):
///   void Write(os_bstream& s, const T& t) {
///       s.WritePointer(t.buf); s.WriteValue(t.roi); s.WriteInt(t.n); }
///   bool Read(os_bstream& s, T& t, uint32_t v) {
///       Buffer* b;  // the reader's own: copy it to keep it
///       return s.ReadPointer(b) && s.ReadValue(t.roi) && s.ReadInt(t.n); }
///   const os_class kClass = os_class::Make<T, &Write, &Read>("(T*)", version);
/// A class without a default constructor gives the os_class constructor its own create function, as the
/// buffer's stream form does.
#pragma once
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ombrel/framework/export.h"

namespace ombrel {

class Buffer;
class os_bstream;

/// One persistent class: its type name (such as "(ROI*)"), its version, and how to make, delete, write and
/// read one. The read function gets the stored version; for a version it does not know it reports the
/// assertion of its module, leaves the object unread and returns true. It returns false for a body that
/// cannot be what the class writes (the stream then fails).
class OMBREL_API os_class {
  public:
    /// Makes a new object of the class (null when memory runs out).
    using CreateFn = void* (*)();
    /// Deletes an object the stream made.
    using DestroyFn = void (*)(void*);
    /// Writes an object's body.
    using WriteFn = void (*)(os_bstream&, const void*);
    /// Reads an object's body of the given stored version.
    using ReadFn = bool (*)(os_bstream&, void*, uint32_t version);

    /// Registers the class under `name` (one registration per name).
    os_class(const char* name, uint32_t version, CreateFn create, DestroyFn destroy, WriteFn write,
             ReadFn read);
    /// Unregisters the class.
    ~os_class();
    os_class(const os_class&) = delete;
    os_class& operator=(const os_class&) = delete;

    template <class T, void (*Write)(os_bstream&, const T&), bool (*Read)(os_bstream&, T&, uint32_t)>
    /// A class whose objects are `T`, written and read by `Write` and `Read`.
    static os_class Make(const char* name, uint32_t version) {
        return os_class(
            name, version, []() -> void* { return new (std::nothrow) T(); },
            [](void* obj) { delete static_cast<T*>(obj); },
            [](os_bstream& s, const void* obj) { Write(s, *static_cast<const T*>(obj)); },
            [](os_bstream& s, void* obj, uint32_t v) { return Read(s, *static_cast<T*>(obj), v); });
    }

    /// The registered type name.
    const std::string& Name() const { return _name; }
    /// The version written with every object.
    uint32_t Version() const { return _version; }

    /// The registered class of that name, or null.
    static const os_class* Find(std::string_view name);

  private:
    friend class os_bstream;
    std::string _name;
    uint32_t _version;
    CreateFn _create;
    DestroyFn _destroy;
    WriteFn _write;
    ReadFn _read;
};

/// A binary object stream: values, chunks and registered objects (by value or by pointer) written into bytes,
/// and read back from untrusted bytes with every length and count checked.
class OMBREL_API os_bstream {
  public:
    /// A writer, empty but for the stream header.
    os_bstream();
    /// A reader over a copy of `size` bytes at `data` (the header is checked at once).
    os_bstream(const void* data, size_t size);
    ~os_bstream();
    os_bstream(const os_bstream&) = delete;
    os_bstream& operator=(const os_bstream&) = delete;

    /// A reader over the rest of `in`; more than `maxBytes` bytes, or a failed read, gives a failed reader.
    static os_bstream ReadFrom(std::istream& in, size_t maxBytes = size_t{1} << 30);
    /// Moves the stream and what it owns.
    os_bstream(os_bstream&& other) noexcept;

    /// True for a reader, false for a writer.
    bool IsReader() const { return _reading; }
    /// True once a read or write has failed.
    bool Failed() const { return !_error.empty(); }
    /// Why the stream failed (empty when it has not).
    const std::string& Error() const { return _error; }
    /// The bytes written so far (a writer) or held (a reader).
    const std::vector<uint8_t>& Bytes() const { return _bytes; }
    /// Puts the written bytes on `out`; false when the stream reports a failure.
    bool WriteTo(std::ostream& out) const;
    /// Bytes still to read inside the object being read (or in the whole stream at top level).
    size_t Remaining() const { return _limit - _pos; }

    // ---- Writing (ignored by a reader) ----
    ///@{
    /// Appends one value (a chunk: its length, then its bytes).
    void WriteBool(bool v);
    void WriteInt(int32_t v);
    void WriteUnsigned(uint32_t v);
    void WriteFloat(float v);
    void WriteDouble(double v);
    void WriteChunk(const void* data, uint32_t size);
    ///@}
    template <class T>
    /// Writes `obj` in full, with its class header.
    void WriteValue(const T& obj) {
        WriteObject(StreamClassOf(&obj), &obj);
    }
    /// An object reached through several pointers is written once and referred to afterwards; identity is
    /// the object's address, so every object written must stay alive while the writer is in use.
    template <class T>
    void WritePointer(const T* obj) {
        WritePointer(StreamClassOf(static_cast<const T*>(nullptr)), obj);
    }

    // ---- Reading: false (output unchanged) once the stream has failed ----
    ///@{
    /// Reads one value written by the matching Write call.
    bool ReadBool(bool& v);
    bool ReadInt(int32_t& v);
    bool ReadUnsigned(uint32_t& v);
    bool ReadFloat(float& v);
    bool ReadDouble(double& v);
    ///@}
    /// A chunk of any length up to `maxSize` (and what the stream still holds).
    bool ReadChunk(std::vector<uint8_t>& out, uint32_t maxSize = UINT32_MAX);
    /// A chunk that must be exactly `size` bytes long.
    bool ReadChunkExact(void* out, uint32_t size);
    /// Reads into an existing object, which must be of the stored class.
    template <class T>
    bool ReadValue(T& obj) {
        return ReadObject(StreamClassOf(&obj), &obj);
    }
    /// Null, a new object or one read earlier; the reader owns it (see above).
    template <class T>
    bool ReadPointer(T*& out) {
        void* p = nullptr;
        if (!ReadPointer(StreamClassOf(static_cast<const T*>(nullptr)), &p)) return false;
        out = static_cast<T*>(p);
        return true;
    }
    /// The caller takes an object the reader made; false when it is not one the reader still owns.
    bool TakeOwnership(const void* obj);

    /// Marks the stream failed with `why` (the first failure is kept); read functions of classes use it.
    void Fail(const char* why);

  private:
    struct ReadObjectEntry {
        void* obj;
        const os_class* cls;
        bool owned;
    };

    void Put(const void* data, size_t size);
    void PutU32(uint32_t v);
    bool Get(void* out, size_t size);
    bool GetU32(uint32_t& v);
    void WriteObject(const os_class& cls, const void* obj);
    void WritePointer(const os_class& cls, const void* obj);
    bool ReadObject(const os_class& cls, void* obj);
    bool ReadPointer(const os_class& cls, void** out);
    /// Reads an object header and checks it names `cls`; leaves the body's end in *bodyEnd.
    bool ReadObjectHeader(const os_class& cls, uint32_t* version, size_t* bodyEnd);
    bool ReadBody(const os_class& cls, void* obj, uint32_t version, size_t bodyEnd);

    bool _reading = false;
    std::vector<uint8_t> _bytes;
    size_t _pos = 0;
    size_t _limit = 0;
    int _depth = 0;
    std::string _error;
    std::unordered_map<const void*, uint32_t> _writtenIds;  ///< writer: object address -> id
    std::vector<ReadObjectEntry> _readObjects;              ///< reader: id - 1 -> object
};

/// Buffers persist as "(Buffer*)": width, height and depth (three ints), then the pixel rows packed without
/// pitch padding as one chunk of height * ceil(width * depth / 8) bytes. A reader accepts depths 1, 8, 16
/// and 32 only, and sizes whose chunk the stream really holds.
OMBREL_API const os_class& StreamClassOf(const Buffer*);

}  // namespace ombrel
