// front/guard.cpp - which code an exception inside the core stands for.
#include "front/guard.hpp"

#include <exception>

namespace navo::front {

std::int32_t code_of_current_exception() noexcept
{
    try {
        throw;
    } catch (const Refusal &refusal) {
        return refusal.code;
    } catch (...) {
        return NAVO_OUT_OF_MEMORY;
    }
}

}  // namespace navo::front
