// core/allocator.cpp - the one allocator; test builds (NAVO_TEST_HOOKS) add counters and failure injection.
#include "core/allocator.hpp"

#include <atomic>
#include <cstdlib>

namespace navo::memory {
namespace {

#if defined(NAVO_TEST_HOOKS)

// Process-wide. Relaxed atomics: the sweeps that inject failures run on one thread, and the
// tests that run threads only read the counters, race-free.
std::atomic<std::int64_t> failCountdown{0};  // 0: no injection
std::atomic<bool> failSticky{false};
std::atomic<std::int64_t> allocationCount{0};
std::atomic<std::int64_t> liveBlocks{0};

// Counts an attempt and tells whether injection refuses it.
bool refused() noexcept
{
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    const std::int64_t countdown = failCountdown.load(std::memory_order_relaxed);
    if (countdown == 0)
        return false;
    if (countdown > 1) {
        failCountdown.store(countdown - 1, std::memory_order_relaxed);
        return false;
    }
    if (!failSticky.load(std::memory_order_relaxed))
        failCountdown.store(0, std::memory_order_relaxed);
    return true;
}

void count_blocks(std::int64_t change) noexcept
{
    liveBlocks.fetch_add(change, std::memory_order_relaxed);
}

#else

// The shipped library: nothing refused, nothing counted, no shared state on the allocation path.
constexpr bool refused() noexcept
{
    return false;
}

constexpr void count_blocks(std::int64_t) noexcept {}

#endif

}  // namespace

void *allocate(std::size_t size) noexcept
{
    if (refused())
        return nullptr;
    void *block = std::malloc(size == 0 ? 1 : size);
    if (block != nullptr)
        count_blocks(1);
    return block;
}

void *resize(void *block, std::size_t size) noexcept
{
    if (block == nullptr)
        return allocate(size);
    if (size == 0) {
        release(block);
        return nullptr;
    }
    if (refused())
        return nullptr;
    return std::realloc(block, size);
}

void release(void *block) noexcept
{
    if (block == nullptr)
        return;
    count_blocks(-1);
    std::free(block);
}

char *duplicate(std::string_view text) noexcept
{
    char *copy = make_zeroed<char>(text.size() + 1);
    if (copy != nullptr && !text.empty())
        std::memcpy(copy, text.data(), text.size());
    return copy;
}

#if defined(NAVO_TEST_HOOKS)

void fail_after(std::int64_t n, bool sticky) noexcept
{
    failCountdown = n < 0 ? 0 : n;
    failSticky = sticky;
}

std::int64_t allocations() noexcept
{
    return allocationCount;
}

std::int64_t live_blocks() noexcept
{
    return liveBlocks;
}

void reset_counters() noexcept
{
    allocationCount = 0;
    failCountdown = 0;
    failSticky = false;
}

#endif

}  // namespace navo::memory

extern "C" {

NAVO_API void *NAVO_CALL dk_Malloc(size_t size) noexcept
{
    return navo::memory::allocate(size);
}

NAVO_API void NAVO_CALL dk_Free(void *pointer) noexcept
{
    navo::memory::release(pointer);
}

}  // extern "C"
