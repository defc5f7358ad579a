// SPDX-License-Identifier: MIT
/// \file
/// The storage pools of blob analysis: regions, active run entries and boundary cells.
///
/// A pool takes memory in chunks of 32 elements. Its chunk count is limited (the process-wide limit read when
/// the owning BlobResult is built); asking for a new chunk when the count has reached the limit less one
/// fails with BLOB_ERR_TOO_COMPLEX (and shows "Image Too Complex -- Change Threshold" in the debug window,
/// class 0x10004); a chunk the system cannot give fails with BLOB_ERR_NO_MEMORY. Freed elements go to a free
/// list of at most 8 x the chunk limit entries; an element freed while that list is full stays unused until
/// the pool is reset. Reset() makes every element of every chunk available again without giving the chunks
/// back, so a second run of an agent allocates nothing.
#pragma once
#include <cstdint>
#include <new>
#include <type_traits>
#include <vector>

#include "ombrel/framework/export.h"
#include "ombrel/framework/hal.h"

namespace ombrel {

/// Elements in one pool chunk.
inline constexpr int kBlobPoolChunkElements = 32;
inline constexpr int kBlobDefaultMaxPoolSize = 512;  ///< chunks
/// Debug-window message class of "Image Too Complex -- Change Threshold".
inline constexpr uint32_t kImageTooComplexMessageClass = 0x10004;

/// Go() and BlobResult::Error() statuses.
enum BlobStatus : int32_t {
    /// success
    BLOB_OK = 0,
    BLOB_ERR_TOO_COMPLEX = -1003,  ///< a pool reached its chunk limit
    BLOB_ERR_NO_MEMORY = -1505,    ///< a chunk could not be allocated
    BLOB_ERR_NO_RESULT = -1        ///< Go without a result ("_pres" reported); nothing is done
};

/// Process-wide chunk limit of every blob pool: max(512, 3n/32) when 3n/32 > 0 (integer arithmetic),
/// otherwise unchanged; at most 2^28 chunks. Read when a BlobResult is constructed.
OMBREL_API void SetBlobMaxPoolSize(int n);
/// The process-wide chunk limit now in force (default 512).
OMBREL_API int GetBlobMaxPoolSize();

/// Reports the pool failure texts (debug window for the too-complex case). Shared by every pool type, and
/// exported because the pool templates that call it are instantiated in the caller's code.
OMBREL_API void ReportBlobPoolFailure(int32_t status);

template <class T>
/// A pool of elements of T in chunks of kBlobPoolChunkElements, limited to a number of chunks, with a free
/// list.
class StoragePool {
  public:
    /// An empty pool limited to `maxChunks` chunks (at least 1).
    explicit StoragePool(int maxChunks) { SetLimit(maxChunks); }
    ~StoragePool() {
        for (T* chunk : _chunks) ::operator delete[](chunk, kAlign, std::nothrow);
    }
    StoragePool(const StoragePool&) = delete;
    StoragePool& operator=(const StoragePool&) = delete;

    /// The chunk limit; the free list holds at most 8 x this many entries.
    void SetLimit(int maxChunks) {
        _maxChunks = maxChunks < 1 ? 1 : maxChunks;
        _freeLimit = static_cast<size_t>(_maxChunks) * 8;
    }
    /// The chunk limit.
    int Limit() const { return _maxChunks; }

    /// A default-constructed element, or null with Error() set (the failure is reported once per pool run).
    T* Alloc() {
        T* slot = nullptr;
        if (!_free.empty()) {
            slot = _free.back();
            _free.pop_back();
        } else if (_nextIndex < kBlobPoolChunkElements && _nextChunk < _chunks.size()) {
            slot = _chunks[_nextChunk] + _nextIndex++;
        } else {
            slot = FromNextChunk();
            if (slot == nullptr) return nullptr;
        }
        ++_live;
        return new (slot) T();
    }

    /// The element `n` places after the next one in chunk order (what Alloc hands out once the free list is
    /// empty), or null when that lies beyond the chunks held; nothing changes.
    const T* Ahead(int n) const {
        size_t chunk = _nextChunk;
        size_t index = static_cast<size_t>(_nextIndex) + static_cast<size_t>(n);
        chunk += index / kBlobPoolChunkElements;
        index %= kBlobPoolChunkElements;
        return chunk < _chunks.size() ? _chunks[chunk] + index : nullptr;
    }

    /// Gives `element` back (destroyed; its slot goes to the free list while that has room). Null is ignored.
    void Free(T* element) {
        if (element == nullptr) return;
        // Records are freed right after being marked dead (_inUse, merged-away bits) and are read again by
        // the result list; ending a trivial object's lifetime here would let the optimiser drop those marks.
        if constexpr (!std::is_trivially_destructible_v<T>) element->~T();
        --_live;
        if (_free.size() < _freeLimit) _free.push_back(element);
    }

    /// Every element becomes available again; the chunks are kept; the error is cleared.
    void Reset() {
        _free.clear();
        _nextChunk = 0;
        _nextIndex = _chunks.empty() ? kBlobPoolChunkElements : 0;
        _live = 0;
        _error = BLOB_OK;
    }

    ///@{
    /// The pool's status (BLOB_OK or a BlobStatus), chunks taken, live elements and free-list length.
    int32_t Error() const { return _error; }
    int Chunks() const { return static_cast<int>(_chunks.size()); }
    int Live() const { return _live; }
    size_t FreeListSize() const { return _free.size(); }
    ///@}

    /// Calls fn(T&) for every element handed out since the last Reset, live or freed (callers tell them
    /// apart).
    template <class Fn>
    void ForEachUsed(Fn&& fn) {
        for (size_t c = 0; c < _chunks.size() && c <= _nextChunk; ++c) {
            const int used = c < _nextChunk ? kBlobPoolChunkElements : _nextIndex;
            for (int i = 0; i < used; ++i) fn(_chunks[c][i]);
        }
    }

  private:
    /// Chunks honour the element's alignment (records are aligned to cache lines).
    static constexpr std::align_val_t kAlign{alignof(T)};

    T* FromNextChunk() {
        // The chunks a previous run used come back first; a new one is asked for only beyond them.
        if (_nextIndex >= kBlobPoolChunkElements && _nextChunk + 1 < _chunks.size() && !_chunks.empty()) {
            ++_nextChunk;
            _nextIndex = 1;
            return _chunks[_nextChunk];
        }
        if (static_cast<int>(_chunks.size()) >= _maxChunks - 1) return Fail(BLOB_ERR_TOO_COMPLEX);
        T* chunk = nullptr;
        try {
            _chunks.reserve(_chunks.size() + 1);
            chunk =
                static_cast<T*>(::operator new[](sizeof(T) * kBlobPoolChunkElements, kAlign, std::nothrow));
            if (_free.capacity() < 64) _free.reserve(64);
        } catch (const std::bad_alloc&) {
            ::operator delete[](chunk, kAlign, std::nothrow);  // the free list failed after the chunk came
            chunk = nullptr;
        }
        if (chunk == nullptr) return Fail(BLOB_ERR_NO_MEMORY);
        _chunks.push_back(chunk);
        _nextChunk = _chunks.size() - 1;
        _nextIndex = 1;
        return chunk;
    }

    T* Fail(int32_t status) {
        if (_error == BLOB_OK) ReportBlobPoolFailure(status);
        _error = status;
        return nullptr;
    }

    std::vector<T*> _chunks;
    std::vector<T*> _free;
    size_t _nextChunk = 0;
    int _nextIndex = kBlobPoolChunkElements;  ///< next unused element of _chunks[_nextChunk]
    int _maxChunks = kBlobDefaultMaxPoolSize;
    size_t _freeLimit = 8 * kBlobDefaultMaxPoolSize;
    int _live = 0;
    int32_t _error = BLOB_OK;
};

/// The accounting of a StoragePool without its elements. The joiner keeps its run entries in arrays of its
/// own, but the entry pool still behaves exactly as if each entry were taken from and given back to a
/// StoragePool: same chunk count, same free-list cap, and the same request fails with the same status.
/// Only the memory of a chunk is not taken (nothing would use it), so it cannot fail for lack of memory.
class CountedPool {
  public:
    /// An empty pool limited to `maxChunks` chunks (at least 1).
    explicit CountedPool(int maxChunks) { SetLimit(maxChunks); }

    /// The chunk limit; the free list holds at most 8 x this many entries.
    void SetLimit(int maxChunks) {
        _maxChunks = maxChunks < 1 ? 1 : maxChunks;
        _freeLimit = int64_t{_maxChunks} * 8;
    }
    /// The chunk limit.
    int Limit() const { return _maxChunks; }

    /// StoragePool::Alloc: false with Error() set when no element is left.
    bool Take() {
        if (_free > 0)
            --_free;
        else if (_nextIndex < kBlobPoolChunkElements && _nextChunk < _chunks)
            ++_nextIndex;
        else if (!FromNextChunk())
            return false;
        ++_live;
        return true;
    }
    /// StoragePool::Free of a taken element.
    void Give() {
        --_live;
        if (_free < _freeLimit) ++_free;
    }

    /// Every entry becomes available again; the chunk count is kept; the error is cleared.
    void Reset() {
        _free = 0;
        _nextChunk = 0;
        _nextIndex = _chunks == 0 ? kBlobPoolChunkElements : 0;
        _live = 0;
        _error = BLOB_OK;
    }

    ///@{
    /// The pool's status (BLOB_OK or a BlobStatus), chunks counted, live entries and free-list length.
    int32_t Error() const { return _error; }
    int Chunks() const { return _chunks; }
    int Live() const { return _live; }
    size_t FreeListSize() const { return static_cast<size_t>(_free); }
    ///@}

  private:
    /// StoragePool::FromNextChunk, counting chunks instead of holding them.
    bool FromNextChunk() {
        if (_nextIndex >= kBlobPoolChunkElements && _nextChunk + 1 < _chunks) {
            ++_nextChunk;
            _nextIndex = 1;
            return true;
        }
        if (_chunks >= _maxChunks - 1) {
            if (_error == BLOB_OK) ReportBlobPoolFailure(BLOB_ERR_TOO_COMPLEX);
            _error = BLOB_ERR_TOO_COMPLEX;
            return false;
        }
        _nextChunk = _chunks++;
        _nextIndex = 1;
        return true;
    }

    int _chunks = 0;
    int _nextChunk = 0;
    int _nextIndex = kBlobPoolChunkElements;
    int64_t _free = 0;
    int64_t _freeLimit = 8 * kBlobDefaultMaxPoolSize;
    int _maxChunks = kBlobDefaultMaxPoolSize;
    int _live = 0;
    int32_t _error = BLOB_OK;
};

/// A pool whose elements count the references other elements hold on them. T provides an int32_t field
/// `_refs` (cleared by its constructor).
template <class T>
class RefStoragePool : public StoragePool<T> {
  public:
    using StoragePool<T>::StoragePool;
    ///@{
    /// Adds or removes one reference to `element`, and reads the count.
    static void AddRef(T* element) {
        if (element != nullptr) ++element->_refs;
    }
    static void RemoveRef(T* element) {
        if (element != nullptr && element->_refs > 0) --element->_refs;
    }
    static int32_t RefCount(const T* element) { return element == nullptr ? 0 : element->_refs; }
    ///@}
};

}  // namespace ombrel
