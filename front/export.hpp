// front/export.hpp - navo_convert: a file out as JSON Lines, JSON, CSV long or CSV per block.
#pragma once

#include <cstdint>

#include "navo_front.h"

namespace navo::front {

// Converts the file at `path` document by document through `write`; gives the load's code, or
// NAVO_SAVE_FAILED when `write` refused, NAVO_STORE_FAILED when the store did.
std::int32_t convert(const char *path, const navo_load_options *options, std::int32_t format, std::int32_t flags,
                     navo_write_fn write, void *writeUser, const navo_load_callbacks *callbacks,
                     navo_load_result &result) noexcept;

}  // namespace navo::front
