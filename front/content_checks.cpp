// front/content_checks.cpp - findings of a record: each value by its rule, then the pairs across fields.
#include "front/content_checks.hpp"

#include <algorithm>

#include "front/places.hpp"
#include "front/text_out.hpp"

namespace navo::front {
namespace {

constexpr std::string_view pesel_field = "Pesel";
constexpr std::string_view birth_date_field = "DataUrodzenia";
constexpr std::string_view period_start = "OkresOd";
constexpr std::string_view period_end = "OkresDo";

bool is_check(const FieldRule &rule, std::string_view name) noexcept
{
    return rule.rule == nullptr && rule.builtin != nullptr && rule.builtin->name == name;
}

// A value as it is checked: the blanks around it trimmed (numbers may stand right-aligned), empty
// for a blank field.
std::string_view filled(std::string_view raw) noexcept
{
    raw = trim_right(raw);
    raw.remove_prefix(std::min(raw.size(), raw.find_first_not_of(' ')));
    return raw;
}

navo_finding finding_at(const navo_place &place, const navo_block_def &block, std::int32_t field,
                        std::int32_t kind, std::string_view rule, std::string_view problem, std::string_view raw,
                        Encoding encoding)
{
    navo_finding finding{};
    finding.kind = kind;
    finding.place = place;
    finding.place.area = NAVO_AREA_BODY;
    set_name(finding.place.field, block.fields[field].name);
    set_name(finding.type, block.fields[field].type);
    set_name(finding.rule, rule);
    set_name(finding.problem, problem);
    std::string utf8;
    append_utf8(utf8, raw, encoding);
    set_name(finding.value, utf8);
    return finding;
}

}  // namespace

BlockChecks block_checks(const navo_rules *rules, const navo_form_def &form, const navo_block_def &block)
{
    BlockChecks checks;
    std::int32_t pesel = -1;
    std::int32_t birthDate = -1;
    for (std::int32_t f = 0; f < block.field_count; f++) {
        const navo_field_def &field = block.fields[f];
        checks.fields.push_back(resolve_rule(rules, form, block, field));
        checks.any = checks.any || checks.fields.back().active();
        if (field.name == pesel_field && is_check(checks.fields.back(), "pesel"))
            pesel = f;
        if (field.name == birth_date_field && is_check(checks.fields.back(), "date"))
            birthDate = f;
    }
    if (rules != nullptr && !rules->cross)
        return checks;
    if (pesel >= 0 && birthDate >= 0)
        checks.cross.push_back({pesel, birthDate, BlockChecks::Cross::Kind::pesel_birth_date});
    for (std::int32_t f = 0; f < block.field_count; f++) {
        const std::string_view start = block.fields[f].name;
        if (start.substr(0, period_start.size()) != period_start || !is_check(checks.fields[static_cast<std::size_t>(f)], "date"))
            continue;
        const std::string end = std::string(period_end) + std::string(start.substr(period_start.size()));
        for (std::int32_t g = 0; g < block.field_count; g++) {
            if (block.fields[g].name == end && is_check(checks.fields[static_cast<std::size_t>(g)], "date"))
                checks.cross.push_back({f, g, BlockChecks::Cross::Kind::date_order});
        }
    }
    checks.any = checks.any || !checks.cross.empty();
    return checks;
}

void check_cross(const BlockChecks &checks, const navo_block_def &block, const ValueOf &value, Encoding encoding,
                 const navo_place &place, const std::function<void(const navo_finding &)> &report)
{
    for (const BlockChecks::Cross &pair : checks.cross) {
        const std::string_view first = filled(value(pair.first));
        const std::string_view second = filled(value(pair.second));
        // A pair is compared only when both values pass their own checks.
        if (first.empty() || second.empty())
            continue;
        if (pair.kind == BlockChecks::Cross::Kind::pesel_birth_date) {
            char encoded[8];
            if (!check_pesel(first).empty() || !check_date(second).empty() || !pesel_birth_date(first, encoded))
                continue;
            if (std::string_view(encoded, sizeof encoded) != second)
                report(finding_at(place, block, pair.second, NAVO_FINDING_CROSS, "pesel-birth-date",
                                  "the birth date differs from the one the PESEL in " +
                                      std::string(block.fields[pair.first].name) + " encodes",
                                  second, encoding));
        } else {
            const long from = day_number(first);
            const long to = day_number(second);
            if (from >= 0 && to >= 0 && to < from)
                report(finding_at(place, block, pair.second, NAVO_FINDING_CROSS, "date-order",
                                  "the period ends before it begins in " + std::string(block.fields[pair.first].name),
                                  second, encoding));
        }
    }
}

void check_record(const BlockChecks &checks, const navo_block_def &block, const ValueOf &value, Encoding encoding,
                  const navo_place &place, const std::function<void(const navo_finding &)> &report)
{
    if (!checks.any)
        return;
    for (std::int32_t f = 0; f < block.field_count; f++) {
        const FieldRule &rule = checks.fields[static_cast<std::size_t>(f)];
        if (!rule.active())
            continue;
        const std::string_view raw = filled(value(f));
        // A blank field is not checked: the format fills every field, used or not.
        if (raw.empty())
            continue;
        const std::string problem = apply_rule(rule, raw, encoding);
        if (!problem.empty())
            report(finding_at(place, block, f, NAVO_FINDING_VALUE, rule.name(), problem, raw, encoding));
    }
    check_cross(checks, block, value, encoding, place, report);
}

const BlockChecks &CheckCache::of(const navo_form_def &form, const navo_block_def &block)
{
    const auto found = made_.find(&block);
    if (found != made_.end())
        return found->second;
    return made_.emplace(&block, block_checks(rules_, form, block)).first->second;
}

}  // namespace navo::front
