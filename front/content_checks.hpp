// front/content_checks.hpp - every field of a record against its rule, and the checks across two fields.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "front/content_rules.hpp"
#include "navo_front.h"

namespace navo::front {

// What one block of a form asks of its records: the rule of each field, and the pairs of fields
// checked against each other.
struct BlockChecks {
    struct Cross {
        std::int32_t first;   // the field the other is compared with (Pesel, OkresOd...)
        std::int32_t second;  // the field a finding names (DataUrodzenia, OkresDo...)
        enum class Kind { pesel_birth_date, date_order } kind;
    };
    std::vector<FieldRule> fields;
    std::vector<Cross> cross;
    bool any = false;  // whether anything is checked at all
};

// The checks of a block under `rules` (null: the built-in ones). Cross checks pair a PESEL field
// ("Pesel", checked as a PESEL) with "DataUrodzenia" (checked as a date), and a period's start
// "OkresOd<x>" with its end "OkresDo<x>" (both checked as dates).
BlockChecks block_checks(const navo_rules *rules, const navo_form_def &form, const navo_block_def &block);

// A record's values by field position, as the file holds them (trailing blanks included).
using ValueOf = std::function<std::string_view(std::int32_t field)>;

// Checks one record: each finding goes to `report` in field order, then the findings across
// fields. `place` holds the document, form, block and record; the findings fill in the rest.
void check_record(const BlockChecks &checks, const navo_block_def &block, const ValueOf &value, Encoding encoding,
                  const navo_place &place, const std::function<void(const navo_finding &)> &report);

// Checks one record's cross pairs only (a writer checks each value as it is set).
void check_cross(const BlockChecks &checks, const navo_block_def &block, const ValueOf &value, Encoding encoding,
                 const navo_place &place, const std::function<void(const navo_finding &)> &report);

// The checks of every block a load meets, made once per block.
class CheckCache {
public:
    explicit CheckCache(const navo_rules *rules) noexcept : rules_(rules) {}
    const BlockChecks &of(const navo_form_def &form, const navo_block_def &block);

private:
    const navo_rules *rules_;
    std::unordered_map<const navo_block_def *, BlockChecks> made_;
};

}  // namespace navo::front
