// core/allocator.hpp - the one allocator of the library: every byte goes through it, test builds can fail it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "navo.h"

namespace navo::memory {

// Raw blocks. `allocate` gives null on failure; `resize` behaves like realloc (null on failure
// with the block intact; size 0 releases the block and gives null); `release` accepts null.
void *allocate(std::size_t size) noexcept;
void *resize(void *block, std::size_t size) noexcept;
void release(void *block) noexcept;

// Records of navo.h and the library's own are implicit-lifetime types: storage from the
// allocator holds them as soon as it is written, and realloc carries them over, as C++20 allows.
template <class T>
concept Plain = std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>;

// `count` zero-filled elements of T, or null.
template <Plain T>
T *make_zeroed(std::size_t count = 1) noexcept
{
    if (count > SIZE_MAX / sizeof(T))
        return nullptr;
    void *block = allocate(count * sizeof(T));
    if (block != nullptr)
        std::memset(block, 0, count * sizeof(T));
    return static_cast<T *>(block);
}

// Gives `array` exactly `count` elements: the library's arrays have no spare capacity and grow or
// shrink one element at a time. Count 0 releases the array and leaves null. On failure the array
// stays as it was and the result is false; shrinking never loses elements that are kept.
template <Plain T>
bool resize_array(T *&array, std::size_t count) noexcept
{
    if (count == 0) {
        release(array);
        array = nullptr;
        return true;
    }
    if (count > SIZE_MAX / sizeof(T))
        return false;
    void *grown = resize(array, count * sizeof(T));
    if (grown == nullptr)
        return false;
    array = static_cast<T *>(grown);
    return true;
}

// Appends one zero-filled element to `array` of `count` elements and raises `count`. Gives the
// new element, or null with array and count unchanged.
template <Plain T, class Count>
T *append_zeroed(T *&array, Count &count) noexcept
{
    if (!resize_array(array, static_cast<std::size_t>(count) + 1))
        return nullptr;
    T *added = &array[count];
    std::memset(static_cast<void *>(added), 0, sizeof(T));
    ++count;
    return added;
}

// A NUL-terminated copy of `text`, or null.
char *duplicate(std::string_view text) noexcept;

// Holds a block on a failure path and releases it unless the block is handed on with `take`.
template <class T>
class Owned {
public:
    explicit Owned(T *block = nullptr) noexcept : block_(block) {}
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    ~Owned() { release(block_); }
    T *get() const noexcept { return block_; }
    T *operator->() const noexcept { return block_; }
    explicit operator bool() const noexcept { return block_ != nullptr; }
    T *take() noexcept
    {
        T *block = block_;
        block_ = nullptr;
        return block;
    }

private:
    T *block_;
};

#if defined(NAVO_TEST_HOOKS)
// Test hooks, in the library the tests link and nowhere else. `fail_after(n)` makes the n-th
// allocation from now fail (1 = the next one; 0 switches injection off); with `sticky` every
// allocation from the n-th on fails. The counters see every allocation and resize the library
// makes; they are plain process-wide counts, read after the allocating threads are done.
void fail_after(std::int64_t n, bool sticky = false) noexcept;
std::int64_t allocations() noexcept;  // attempted since the last reset
std::int64_t live_blocks() noexcept;  // held by the library or handed to hosts
void reset_counters() noexcept;
#endif

}  // namespace navo::memory
