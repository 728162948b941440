// core/status.cpp - errors and notifications: catalogue lookup, the last code, callback and hooks.
#include "core/status.hpp"

#include <algorithm>
#include <cstring>

namespace navo::status {
namespace {

std::int32_t lastError;

}  // namespace

void set_last_error(std::int32_t code) noexcept
{
    lastError = code;
}

std::int32_t last_error() noexcept
{
    return lastError;
}

void read_lines(std::int32_t &line, std::int32_t &lines) noexcept
{
    line = __atomic_load_n(&i_lNumerLinii, __ATOMIC_RELAXED);
    lines = __atomic_load_n(&i_lLinii, __ATOMIC_RELAXED);
}

}  // namespace navo::status

extern "C" {

NAVO_API int32_t i_lNumerLinii;
NAVO_API int32_t i_lLinii;
NAVO_API dk_DocumentCallback OnNAVODocument;

NAVO_API int32_t NAVO_CALL dk_GetNAVOLine(void) noexcept
{
    return i_lNumerLinii;
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOError(void) noexcept
{
    return navo::status::last_error();
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOErrorMessage(int32_t code, char *out, int32_t size) noexcept
{
    // A size below 1 is outside the contract; nothing is written then.
    if (out == nullptr || size < 1)
        return 0;
    const auto capacity = static_cast<std::size_t>(size);
    std::memset(out, 0, capacity);
    // A plain loop rather than std::ranges::find: the ranges function objects are inline
    // variables of the standard library, and the shared object would export them.
    for (const navo::status::Message &row : navo::status::catalogue) {
        if (row.code != code)
            continue;
        // Cut to the buffer, which keeps its terminating NUL.
        std::memcpy(out, row.text.data(), std::min(row.text.size(), capacity - 1));
        return 1;
    }
    return 0;
}

NAVO_API int32_t NAVO_CALL dk_GetLastNAVOErrorMessage(char *out, int32_t size) noexcept
{
    return dk_GetNAVOErrorMessage(navo::status::last_error(), out, size);
}

NAVO_API void NAVO_CALL dk_UstawCallBack(dk_DocumentCallback callback) noexcept
{
    OnNAVODocument = callback;
}

NAVO_API int32_t NAVO_CALL dk_OnNAVOError(int32_t code) noexcept
{
    return code == navo::status::none ? 1 : 0;
}

NAVO_API void NAVO_CALL dk_OnNAVOBlock(dk_Context *, const char *, int32_t, const char *, int32_t) noexcept
{
    // A hook with no body: the loader's call marks the point where a host build could listen.
}

NAVO_API int32_t NAVO_CALL dk_OnNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex) noexcept
{
    if (OnNAVODocument == nullptr)
        return 0;
    return OnNAVODocument(ctx, form, docIndex) == 0 ? 0 : 2;
}

}  // extern "C"
