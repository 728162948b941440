// schema.cpp - `navo schema`: the forms, blocks and fields of an embedded definition, from navo::schema.
#include "commands.hpp"
#include "common.hpp"

namespace navo_cli {

int run_schema(const SchemaOptions &options)
{
    const navo::Schema &schema = navo::schema(options.version);
    std::vector<const navo::Form *> forms;
    if (options.form.empty()) {
        for (const navo::Form &form : schema.forms)
            forms.push_back(&form);
    } else if (const navo::Form *form = schema.form(options.form)) {
        forms.push_back(form);
    } else {
        throw Failure(kExitUsage, fmt::format("schema: definition {} has no form '{}' (see navo schema --version {})",
                                              schema.version, options.form, schema.version));
    }
    const navo::Block *only = nullptr;
    if (!options.block.empty()) {
        only = forms.front()->block(options.block);
        if (only == nullptr)
            throw Failure(kExitUsage, fmt::format("schema: form {} has no block '{}' (see navo schema {} --version {})",
                                                  forms.front()->name, options.block, forms.front()->name,
                                                  schema.version));
    }
    const bool fields = !options.form.empty();
    std::string out;
    if (options.json)
        out = fmt::format("{{\"version\":{},\"forms\":[", json_string(schema.version));
    for (std::size_t i = 0; i < forms.size(); i++) {
        const navo::Form &form = *forms[i];
        if (options.json)
            out += fmt::format("{}{{\"name\":{},\"blocks\":[", i > 0 ? "," : "", json_string(form.name));
        else
            out += fmt::format("{}{}\n", i > 0 ? "\n" : "", form.name);
        bool first = true;
        for (const navo::Block &block : form.blocks) {
            if (only != nullptr && &block != only)
                continue;
            if (options.json) {
                out += fmt::format("{}{{\"tag\":{},\"name\":{},\"repeating\":{},\"recordLength\":{},\"fields\":[",
                                   first ? "" : ",", json_string(block.tag), json_string(block.name), block.repeating,
                                   block.record_length);
                for (std::size_t k = 0; k < block.fields.size(); k++) {
                    const navo::Field &field = block.fields[k];
                    out += fmt::format("{}{{\"name\":{},\"type\":{},\"offset\":{},\"width\":{}}}", k > 0 ? "," : "",
                                       json_string(field.name), json_string(field.type), field.offset, field.width);
                }
                out += "]}";
            } else {
                out += fmt::format("  {:<8} {:<24} {:<9} record length {}\n", block.tag, block.name,
                                   block.repeating ? "repeating" : "single", block.record_length);
                for (const navo::Field &field : block.fields) {
                    if (fields)
                        out += fmt::format("    {:<24} offset {:>4}  width {:>3}  type {}\n", field.name, field.offset,
                                           field.width, field.type.empty() ? "-" : field.type);
                }
            }
            first = false;
        }
        if (options.json)
            out += "]}";
    }
    if (options.json)
        out += "]}\n";
    if (!write_out(out))
        output_failed();
    return kExitOk;
}

}  // namespace navo_cli
