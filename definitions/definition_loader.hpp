// definitions/definition_loader.hpp - the definition text grammar and its loader.
#pragma once

#include <cstdint>
#include <string_view>

#include "navo.h"

namespace navo::definitions {

// The occurrence mark that makes a block repeating.
inline constexpr std::int32_t repeating = -1;

// Bounds this build puts on what the grammar leaves open (docs/decisions.md).
inline constexpr std::int32_t max_width = 65535;
inline constexpr std::int32_t max_record_length = 1 << 24;

// What the records of a loaded definition leave out, reported while the loader reads the text:
// each block's name (block i of the definition, in text order) and each field's type name, the
// third column of its line (trimmed as names are, i.e. dictionary::trim_all; empty when the line
// has no third column). A callback that gives false fails the load as a failed allocation does.
struct TextDetails {
    void *user = nullptr;
    bool (*block)(void *user, std::int32_t block, std::string_view name) noexcept = nullptr;
    bool (*field)(void *user, std::int32_t block, std::int32_t field, std::string_view type) noexcept = nullptr;
};

// dk_dfLoadDefinition with the details reported (details may be null: exactly dk_dfLoadDefinition).
// The records are the same either way; block names are released after linking.
bool load_definition(dk_dfDefinitionList &list, dk_sdDictionary &dictionary, std::string_view text,
                     const TextDetails *details) noexcept;

// Entries of a position map (the count is stored in front of its first entry).
inline std::int32_t map_entries(const std::int32_t *map) noexcept
{
    return map[-1];
}

// The definition the document store works with: index 0 of the context's list, or null.
// Inline, with the two lookups below: every field access takes all three.
inline const dk_dfDefinition *store_definition(const dk_Context *ctx) noexcept
{
    if (ctx == nullptr || ctx->definitions == nullptr || ctx->definitions->count == 0)
        return nullptr;
    return &ctx->definitions->items[0];
}

// Position of `id` in a form's references or a block's fields, or -1 when the form or block has
// no such name. Unlike the bare position maps, this tells an absent ID from position 0.
inline std::int32_t ref_position(const dk_dfDefinition *definition, const dk_dfForm *form, std::int32_t tagId) noexcept
{
    if (tagId < 0 || form->positionByTag == nullptr || tagId >= map_entries(form->positionByTag))
        return -1;
    const std::int32_t position = form->positionByTag[tagId];
    // The map is zero for IDs it does not know: the tag at that position must be the one asked.
    if (position >= form->refCount || definition->blocks[form->refs[position].blockIndex].tagId != tagId)
        return -1;
    return position;
}

inline std::int32_t field_position(const dk_dfBlock *block, std::int32_t nameId) noexcept
{
    if (nameId < 0 || block->positionByName == nullptr || nameId >= map_entries(block->positionByName))
        return -1;
    const std::int32_t position = block->positionByName[nameId];
    if (position >= block->fieldCount || block->fields[position].nameId != nameId)
        return -1;
    return position;
}

}  // namespace navo::definitions
