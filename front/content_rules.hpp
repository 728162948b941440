// front/content_rules.hpp - rules of one's own from a JSON text, and the rule each field of a form gets.
#pragma once

#include <cstdint>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "front/code_pages.hpp"
#include "front/value_checks.hpp"
#include "navo_front.h"

namespace navo::front {

// One rule of a rules file: what it selects (an empty selector takes any) and what it asks.
struct Rule {
    std::int32_t line = 0;  // of the rule's object in its text
    std::string type;       // a type name, compared exactly
    std::string form;       // names, compared by the rule of names
    std::string block;
    std::string field;
    enum class Kind { check, pattern, values } kind = Kind::check;
    const NamedCheck *check = nullptr;  // Kind::check; its `check` is null for "none"
    std::string pattern;                // Kind::pattern, as written
    std::regex regex;                   // ... compiled (ECMAScript), matched against the whole value
    std::vector<std::string> values;    // Kind::values

    // How closely the rule names a field: a field over a block over a form over a type alone.
    int rank() const noexcept;
};

}  // namespace navo::front

// Rules of a host's own over the built-in ones.
struct navo_rules {
    std::vector<navo::front::Rule> rules;
    bool cross = true;  // the checks across two fields of a record ("cross_checks")
};

namespace navo::front {

// Reads a rules text (docs/content-checks.md). NAVO_OK with `out`, or NAVO_BAD_RULES with the line
// and the reason in `why`. Throws std::bad_alloc.
std::int32_t parse_rules(std::string_view json, navo_rules &out, navo_refusal &why);

// The rule a field gets: the most closely naming rule of `rules` that selects it (of two alike, the
// later one), else the built-in check of its type, else none.
struct FieldRule {
    const NamedCheck *builtin = nullptr;  // a built-in check, or null
    const Rule *rule = nullptr;           // a pattern or a list of values, or null
    bool active() const noexcept { return rule != nullptr || (builtin != nullptr && builtin->check != nullptr); }
    std::string_view name() const noexcept;  // "pesel", ..., "pattern", "values"; "" when inactive
};
FieldRule resolve_rule(const navo_rules *rules, const navo_form_def &form, const navo_block_def &block,
                       const navo_field_def &field);

// Applies an active rule to a value as the file holds it, trailing blanks trimmed and not empty:
// the problem in English naming no value, or "" when the rule accepts it.
std::string apply_rule(const FieldRule &rule, std::string_view raw, Encoding encoding);

}  // namespace navo::front
