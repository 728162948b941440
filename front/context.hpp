// front/context.hpp - a library context owned by the core, released in every state it can be in.
#pragma once

#include "navo.h"

namespace navo::front {

// Owns one dk_Context. dk_Destroy refuses a context without document tables (one that dk_Init
// left half-built, or a load failed before its tables); reset() releases those as well.
class Context {
public:
    Context() noexcept = default;
    ~Context() { reset(); }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;

    // A new context (dk_Init); false when memory runs out, with nothing held.
    bool create() noexcept;
    dk_Context *get() const noexcept { return ctx_; }
    dk_Context *operator->() const noexcept { return ctx_; }
    explicit operator bool() const noexcept { return ctx_ != nullptr; }

    // Releases the context now, whatever its state; afterwards get() is null.
    void reset() noexcept;
    // Takes the context of `other`, which holds none afterwards; this one's own is released first.
    void take(Context &other) noexcept;

private:
    dk_Context *ctx_ = nullptr;
};

}  // namespace navo::front
