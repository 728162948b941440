// definitions/definition_loader.hpp - the definition text grammar and its loader.
#pragma once

#include <cstdint>

#include "navo.h"

namespace navo::definitions {

// The occurrence mark that makes a block repeating.
inline constexpr std::int32_t repeating = -1;

// Bounds this build puts on what the grammar leaves open (docs/decisions.md).
inline constexpr std::int32_t max_width = 65535;
inline constexpr std::int32_t max_record_length = 1 << 24;

// The definition the document store works with: index 0 of the context's list, or null.
const dk_dfDefinition *store_definition(const dk_Context *ctx) noexcept;

// Position of `id` in a form's references or a block's fields, or -1 when the form or block has
// no such name. Unlike the bare position maps, this tells an absent ID from position 0.
std::int32_t ref_position(const dk_dfDefinition *definition, const dk_dfForm *form, std::int32_t tagId) noexcept;
std::int32_t field_position(const dk_dfBlock *block, std::int32_t nameId) noexcept;

}  // namespace navo::definitions
