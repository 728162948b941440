// front/schema.hpp - the forms as data: navo_schema records built by the library's definition loader.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "navo_front.h"

namespace navo::front {

// A navo_schema with everything it points to. Names are UTF-8; beside them it keeps the names as
// the library's dictionary holds them (the definition text's bytes), which calls into the library
// need: raw_forms by form, raw_tags by block record, raw_fields by field record.
struct SchemaData : navo_schema {
    bool made_for_host = false;  // by navo_schema_parse: navo_schema_free releases it
    std::deque<std::string> strings;
    std::vector<navo_form_def> form_defs;
    std::vector<navo_block_def> block_defs;
    std::vector<navo_field_def> field_defs;
    std::vector<const char *> raw_forms;
    std::vector<const char *> raw_tags;
    std::vector<const char *> raw_fields;

    const char *keep(std::string text);
};

inline const SchemaData &data_of(const navo_schema &schema) noexcept
{
    return static_cast<const SchemaData &>(schema);
}

// The embedded definition of "1.2" or "1.3", made once per process; null for another version.
// Throws std::bad_alloc when memory runs out (the next call tries again).
const navo_schema *embedded_schema(std::string_view version);

// A definition text of the host's own; NAVO_OK with *out, NAVO_INVALID_ARGUMENT for a text the
// loader refuses. Throws std::bad_alloc.
std::int32_t parse_schema(const char *raw, navo_schema *&out);
void free_schema(navo_schema *schema) noexcept;

// Positions of the records in their arrays.
std::int32_t form_index(const navo_schema &schema, const navo_form_def &form) noexcept;
std::int32_t block_index(const navo_form_def &form, const navo_block_def &block) noexcept;

// The library's spelling of a form name, a block tag and a field name.
const char *raw_form(const navo_schema &schema, std::int32_t form) noexcept;
const char *raw_tag(const navo_schema &schema, const navo_block_def &block) noexcept;
const char *raw_field(const navo_schema &schema, const navo_block_def &block, std::int32_t field) noexcept;
// All the block's field names so, in field order.
const char *const *raw_fields(const navo_schema &schema, const navo_block_def &block) noexcept;

// Lookups by the rule of names; -1 or null when there is none.
const navo_form_def *find_form(const navo_schema &schema, std::string_view name) noexcept;
std::int32_t find_block(const navo_form_def &form, std::string_view tag) noexcept;
// `expected`: the position tried first (see match_name).
std::int32_t find_field(const navo_block_def &block, std::string_view name, std::int32_t expected = -1) noexcept;

// The form whose name in the library's spelling is exactly `raw` (as the loader hands it), or null.
const navo_form_def *form_of_raw(const navo_schema &schema, std::string_view raw) noexcept;

}  // namespace navo::front
