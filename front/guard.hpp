// front/guard.hpp - the wall at each C entry point: whatever the core throws becomes a result.
#pragma once

#include <cstdint>
#include <new>

#include "navo_front.h"

namespace navo::front {

// A refusal of the core's own with its code, thrown where a helper finds it and turned into the
// code at the entry point.
struct Refusal {
    std::int32_t code;
};

// The code of whatever was thrown: a Refusal gives its own; anything else the standard library
// throws inside the core comes from running out of memory (std::bad_alloc, std::length_error).
std::int32_t code_of_current_exception() noexcept;

// Runs `body`, which gives a code; a throw gives the code of the exception.
template <class Body>
std::int32_t guarded(Body &&body) noexcept
{
    try {
        return body();
    } catch (...) {
        return code_of_current_exception();
    }
}

// Runs `body`, which gives a length or -code; a throw gives -code.
template <class Body>
std::int64_t guarded_length(Body &&body) noexcept
{
    try {
        return body();
    } catch (...) {
        return -static_cast<std::int64_t>(code_of_current_exception());
    }
}

}  // namespace navo::front
