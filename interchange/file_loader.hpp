// interchange/file_loader.hpp - the file loader: dk_LoadNAVO, declared in navo.h.
#pragma once

#include <cstdint>

#include "navo.h"

namespace navo::interchange {

// The capacity of the file pool that a load gives its new tables.
inline constexpr std::int32_t load_pool_capacity = 10;

}  // namespace navo::interchange
