// front/schema.cpp - navo_schema records from a definition text, read by the library's own loader.
#include "front/schema.hpp"

#include <cstring>
#include <new>

#include "definitions/definition_loader.hpp"
#include "front/code_pages.hpp"
#include "front/context.hpp"
#include "front/names.hpp"

namespace navo::front {
namespace {

// What the library's records leave out, collected while its loader reads the text.
struct Details {
    std::vector<std::string> blockNames;            // by block of the definition
    std::vector<std::vector<std::string>> fieldTypes;  // by block, by field
    bool outOfMemory = false;

    static bool on_block(void *user, std::int32_t block, std::string_view name) noexcept
    {
        auto &details = *static_cast<Details *>(user);
        try {
            const auto index = static_cast<std::size_t>(block);
            if (details.blockNames.size() <= index) {
                details.blockNames.resize(index + 1);
                details.fieldTypes.resize(index + 1);
            }
            details.blockNames[index] = name;
            return true;
        } catch (...) {
            details.outOfMemory = true;
            return false;
        }
    }
    static bool on_field(void *user, std::int32_t block, std::int32_t field, std::string_view type) noexcept
    {
        auto &details = *static_cast<Details *>(user);
        try {
            const auto index = static_cast<std::size_t>(block);
            if (details.fieldTypes.size() <= index)
                details.fieldTypes.resize(index + 1);
            std::vector<std::string> &types = details.fieldTypes[index];
            if (types.size() <= static_cast<std::size_t>(field))
                types.resize(static_cast<std::size_t>(field) + 1);
            types[static_cast<std::size_t>(field)] = type;
            return true;
        } catch (...) {
            details.outOfMemory = true;
            return false;
        }
    }
};

std::string utf8_of(std::string_view definitionBytes)
{
    std::string out;
    append_utf8(out, definitionBytes, Encoding::cp1250);
    return out;
}

const std::string &detail_at(const std::vector<std::string> &items, std::int32_t index)
{
    static const std::string none;
    return index >= 0 && static_cast<std::size_t>(index) < items.size() ? items[static_cast<std::size_t>(index)] : none;
}

// The records of definition 0 of `ctx` with the details, all copied into the schema.
void copy_definition(SchemaData &schema, const dk_Context &ctx, const Details &details)
{
    const dk_dfDefinition &definition = ctx.definitions->items[0];
    const char *const *strings = ctx.dictionary->strings;
    schema.name = schema.keep(utf8_of(definition.name != nullptr ? definition.name : ""));
    schema.version = std::strcmp(schema.name, "1.3") == 0 ? "1.3" : std::strcmp(schema.name, "1.2") == 0 ? "1.2" : "";

    // The fields of each block of the definition, once: forms that share a block share them.
    std::vector<std::size_t> firstField(static_cast<std::size_t>(definition.blockCount));
    std::size_t fieldCount = 0;
    for (std::int32_t b = 0; b < definition.blockCount; b++) {
        firstField[static_cast<std::size_t>(b)] = fieldCount;
        fieldCount += static_cast<std::size_t>(definition.blocks[b].fieldCount);
    }
    schema.field_defs.reserve(fieldCount);
    schema.raw_fields.reserve(fieldCount);
    for (std::int32_t b = 0; b < definition.blockCount; b++) {
        const dk_dfBlock &block = definition.blocks[b];
        static const std::vector<std::string> noTypes;
        const std::vector<std::string> &types =
            static_cast<std::size_t>(b) < details.fieldTypes.size() ? details.fieldTypes[static_cast<std::size_t>(b)] : noTypes;
        for (std::int32_t f = 0; f < block.fieldCount; f++) {
            const dk_dfField &field = block.fields[f];
            const char *raw = strings[field.nameId];
            schema.raw_fields.push_back(schema.keep(raw));
            schema.field_defs.push_back({schema.keep(utf8_of(raw)), schema.keep(utf8_of(detail_at(types, f))),
                                         field.offset, field.width});
        }
    }

    std::size_t refCount = 0;
    for (std::int32_t f = 0; f < definition.formCount; f++)
        refCount += static_cast<std::size_t>(definition.forms[f].refCount);
    schema.block_defs.reserve(refCount);
    schema.raw_tags.reserve(refCount);
    schema.form_defs.reserve(static_cast<std::size_t>(definition.formCount));
    schema.raw_forms.reserve(static_cast<std::size_t>(definition.formCount));
    for (std::int32_t f = 0; f < definition.formCount; f++) {
        const dk_dfForm &form = definition.forms[f];
        const std::size_t firstBlock = schema.block_defs.size();
        for (std::int32_t r = 0; r < form.refCount; r++) {
            const dk_dfBlockRef &ref = form.refs[r];
            const dk_dfBlock &block = definition.blocks[ref.blockIndex];
            const char *rawTag = strings[block.tagId];
            schema.raw_tags.push_back(schema.keep(rawTag));
            schema.block_defs.push_back({schema.keep(utf8_of(rawTag)),
                                         schema.keep(utf8_of(detail_at(details.blockNames, ref.blockIndex))),
                                         ref.occurrence == navo::definitions::repeating ? 1 : 0, block.recordLength,
                                         block.fieldCount,
                                         schema.field_defs.data() + firstField[static_cast<std::size_t>(ref.blockIndex)]});
        }
        schema.raw_forms.push_back(schema.keep(strings[form.id]));
        schema.form_defs.push_back({schema.keep(utf8_of(strings[form.id])), form.refCount,
                                    schema.block_defs.data() + firstBlock});
    }
    schema.form_count = definition.formCount;
    schema.forms = schema.form_defs.data();
}

// Reads `text` with the library's loader into a context of its own (a fresh dictionary, so that
// form i has dictionary ID i as the store wants it). Null for a text the loader refuses.
std::unique_ptr<SchemaData> build(std::string_view text)
{
    Context ctx;
    if (!ctx.create())
        throw std::bad_alloc();
    Details details;
    const navo::definitions::TextDetails hooks{&details, &Details::on_block, &Details::on_field};
    const bool loaded = navo::definitions::load_definition(*ctx->definitions, *ctx->dictionary, text, &hooks);
    if (details.outOfMemory)
        throw std::bad_alloc();
    if (!loaded || ctx->definitions->count < 1)
        return nullptr;
    auto schema = std::make_unique<SchemaData>();
    copy_definition(*schema, *ctx.get(), details);
    return schema;
}

std::unique_ptr<SchemaData> build_embedded(const char *text)
{
    std::unique_ptr<SchemaData> schema = build(text);
    // The embedded texts are sound: only a lack of memory makes them fail.
    if (schema == nullptr)
        throw std::bad_alloc();
    return schema;
}

}  // namespace

const char *SchemaData::keep(std::string text)
{
    strings.push_back(std::move(text));
    return strings.back().c_str();
}

const navo_schema *embedded_schema(std::string_view version)
{
    if (version == "1.3") {
        static const std::unique_ptr<SchemaData> schema = build_embedded(GetDefTXT_1_3());
        return schema.get();
    }
    if (version == "1.2") {
        static const std::unique_ptr<SchemaData> schema = build_embedded(GetDefTXT_1_2());
        return schema.get();
    }
    return nullptr;
}

std::int32_t parse_schema(const char *raw, navo_schema *&out)
{
    std::unique_ptr<SchemaData> schema = build(raw);
    if (schema == nullptr)
        return NAVO_INVALID_ARGUMENT;
    schema->made_for_host = true;
    out = schema.release();
    return NAVO_OK;
}

void free_schema(navo_schema *schema) noexcept
{
    if (schema == nullptr)
        return;
    auto *data = static_cast<SchemaData *>(schema);
    if (data->made_for_host)
        delete data;
}

std::int32_t form_index(const navo_schema &schema, const navo_form_def &form) noexcept
{
    return static_cast<std::int32_t>(&form - schema.forms);
}

std::int32_t block_index(const navo_form_def &form, const navo_block_def &block) noexcept
{
    return static_cast<std::int32_t>(&block - form.blocks);
}

const char *raw_form(const navo_schema &schema, std::int32_t form) noexcept
{
    return data_of(schema).raw_forms[static_cast<std::size_t>(form)];
}

const char *raw_tag(const navo_schema &schema, const navo_block_def &block) noexcept
{
    const SchemaData &data = data_of(schema);
    return data.raw_tags[static_cast<std::size_t>(&block - data.block_defs.data())];
}

const char *raw_field(const navo_schema &schema, const navo_block_def &block, std::int32_t field) noexcept
{
    const SchemaData &data = data_of(schema);
    return data.raw_fields[static_cast<std::size_t>(block.fields + field - data.field_defs.data())];
}

const char *const *raw_fields(const navo_schema &schema, const navo_block_def &block) noexcept
{
    const SchemaData &data = data_of(schema);
    return data.raw_fields.data() + (block.fields - data.field_defs.data());
}

const navo_form_def *find_form(const navo_schema &schema, std::string_view name) noexcept
{
    const std::int32_t found =
        match_name(name, schema.form_count, [&](std::int32_t i) { return schema.forms[i].name; });
    return found < 0 ? nullptr : &schema.forms[found];
}

std::int32_t find_block(const navo_form_def &form, std::string_view tag) noexcept
{
    return match_name(tag, form.block_count, [&](std::int32_t i) { return form.blocks[i].tag; });
}

std::int32_t find_field(const navo_block_def &block, std::string_view name, std::int32_t expected) noexcept
{
    return match_name(name, block.field_count, [&](std::int32_t i) { return block.fields[i].name; }, expected);
}

const navo_form_def *form_of_raw(const navo_schema &schema, std::string_view raw) noexcept
{
    const SchemaData &data = data_of(schema);
    for (std::size_t i = 0; i < data.raw_forms.size(); i++) {
        if (raw == data.raw_forms[i])
            return &schema.forms[i];
    }
    return nullptr;
}

}  // namespace navo::front
