// store/field_access.hpp - field access by name: dk_SetField, dk_GetField and the record cursor.
#pragma once

#include <cstdint>

#include "navo.h"

namespace navo::store {

// Moves the cursor of a repeating block's store to `recordIndex`: saves the old record if dirty,
// reopens the spool file if evicted, then empties the cache. False leaves the cursor where it was.
bool move_cursor(dk_Document &document, dk_lfBlock &store, const dk_dfBlock &block, std::int32_t recordIndex) noexcept;

}  // namespace navo::store
