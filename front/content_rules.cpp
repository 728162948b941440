// front/content_rules.cpp - the rules file's grammar, read through nlohmann's event parser with lines kept.
#include "front/content_rules.hpp"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <iterator>
#include <optional>

#include <nlohmann/json.hpp>

#include "front/names.hpp"
#include "front/places.hpp"

namespace navo::front {
namespace {

using Json = nlohmann::json;

// An iterator over the text that counts the line feeds it has passed, so that every event of the
// parser knows the line it stands on.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char *;
    using reference = const char &;

    CountingIterator() = default;
    CountingIterator(const char *at, std::int32_t *line) noexcept : at_(at), line_(line) {}
    reference operator*() const noexcept { return *at_; }
    CountingIterator &operator++() noexcept
    {
        if (*at_ == '\n')
            ++*line_;
        ++at_;
        return *this;
    }
    CountingIterator operator++(int) noexcept
    {
        CountingIterator before = *this;
        ++*this;
        return before;
    }
    bool operator==(const CountingIterator &other) const noexcept { return at_ == other.at_; }
    bool operator!=(const CountingIterator &other) const noexcept { return at_ != other.at_; }

private:
    const char *at_ = nullptr;
    std::int32_t *line_ = nullptr;
};

// The grammar, as events: {"rules": [ {selectors and one of check, pattern, values}, ... ],
// "cross_checks": true|false}.
class RulesReader final : public nlohmann::json_sax<Json> {
public:
    RulesReader(navo_rules &out, const std::int32_t &line, std::string_view text) noexcept
        : out_(out), line_(line), text_(text)
    {
    }

    std::int32_t errorLine = 0;
    std::string error;

    bool null() override { return scalar("null"); }
    bool boolean(bool value) override
    {
        if (depth_ == 1 && key_ == "cross_checks") {
            out_.cross = value;
            return true;
        }
        return scalar("true or false");
    }
    bool number_integer(number_integer_t) override { return scalar("a number"); }
    bool number_unsigned(number_unsigned_t) override { return scalar("a number"); }
    bool number_float(number_float_t, const string_t &) override { return scalar("a number"); }
    bool binary(binary_t &) override { return scalar("binary data"); }
    bool string(string_t &value) override
    {
        if (depth_ == 4 && inValues_) {
            rule_.values.push_back(value);
            return true;
        }
        if (depth_ != 3)
            return scalar("a string");
        if (find_invalid_utf8(value) != std::string::npos)
            return fail("a text that is not UTF-8");
        if (key_ == "type" || key_ == "form" || key_ == "block" || key_ == "field") {
            std::string &selector = key_ == "type" ? rule_.type : key_ == "form" ? rule_.form
                                                                    : key_ == "block" ? rule_.block
                                                                                      : rule_.field;
            if (value.empty())
                return fail("\"" + key_ + "\" is empty");
            selector = value;
            return true;
        }
        if (key_ == "check") {
            rule_.check = find_check(value);
            if (rule_.check == nullptr)
                return fail("no built-in check is called \"" + value + "\" (" + check_names() + ")");
            return ask(Rule::Kind::check);
        }
        if (key_ == "pattern") {
            try {
                rule_.regex = std::regex(value, std::regex::ECMAScript);
            } catch (const std::regex_error &) {
                return fail("the pattern is no regular expression");
            }
            rule_.pattern = value;
            return ask(Rule::Kind::pattern);
        }
        return fail("a rule has no key \"" + key_ + "\" (type, form, block, field; check, pattern or values)");
    }
    bool start_object(std::size_t) override
    {
        depth_++;
        if (depth_ == 1)
            return true;
        if (depth_ == 3 && inRules_) {
            rule_ = Rule{};
            rule_.line = line_;
            asked_ = false;
            return true;
        }
        return fail("an object was not expected here");
    }
    bool end_object() override
    {
        if (depth_ == 3) {
            if (rule_.type.empty() && rule_.form.empty() && rule_.block.empty() && rule_.field.empty())
                return fail_at(rule_.line, "a rule names no type, form, block or field");
            if (!asked_)
                return fail_at(rule_.line, "a rule asks for nothing: give check, pattern or values");
            out_.rules.push_back(std::move(rule_));
        }
        depth_--;
        return true;
    }
    bool start_array(std::size_t) override
    {
        depth_++;
        if (depth_ == 2 && key_ == "rules" && !rulesSeen_) {
            inRules_ = rulesSeen_ = true;
            return true;
        }
        if (depth_ == 4 && key_ == "values") {
            inValues_ = true;
            rule_.values.clear();
            return true;
        }
        return fail("an array was not expected here");
    }
    bool end_array() override
    {
        if (depth_ == 4) {
            inValues_ = false;
            if (rule_.values.empty())
                return fail("\"values\" lists no value");
            for (const std::string &value : rule_.values) {
                if (find_invalid_utf8(value) != std::string::npos)
                    return fail("a value that is not UTF-8");
            }
            if (!ask(Rule::Kind::values))
                return false;
        }
        if (depth_ == 2)
            inRules_ = false;
        depth_--;
        return true;
    }
    bool key(string_t &value) override
    {
        key_ = value;
        if (depth_ == 1 && value != "rules" && value != "cross_checks")
            return fail("the rules file has no key \"" + value + "\" (rules, cross_checks)");
        return true;
    }
    bool parse_error(std::size_t position, const std::string &, const nlohmann::detail::exception &e) override
    {
        // The message of nlohmann's parser without its prefix and without what it last read.
        std::string what = e.what();
        const std::size_t cut = what.find("] ");
        what = cut == std::string::npos ? what : what.substr(cut + 2);
        const std::size_t last = what.find("; last read");
        if (last != std::string::npos)
            what.resize(last);
        const std::size_t end = std::min(position, text_.size());
        return fail_at(1 + static_cast<std::int32_t>(std::count(text_.begin(), text_.begin() + static_cast<std::ptrdiff_t>(end), '\n')),
                       "malformed JSON: " + what);
    }

private:
    bool scalar(const char *what)
    {
        return fail(std::string(what) + " was not expected here");
    }
    bool ask(Rule::Kind kind)
    {
        if (asked_)
            return fail("a rule asks for one of check, pattern and values, not two");
        asked_ = true;
        rule_.kind = kind;
        return true;
    }
    bool fail(std::string reason) { return fail_at(line_, std::move(reason)); }
    bool fail_at(std::int32_t line, std::string reason)
    {
        if (error.empty()) {
            errorLine = line;
            error = std::move(reason);
        }
        return false;
    }
    static std::string check_names()
    {
        return "pesel, nip, regon, date, day-month, date-range, report-id, digits, postal-code, email, none";
    }

    navo_rules &out_;
    const std::int32_t &line_;
    std::string_view text_;
    int depth_ = 0;
    std::string key_;
    bool inRules_ = false;
    bool rulesSeen_ = false;
    bool inValues_ = false;
    bool asked_ = false;
    Rule rule_;
};

// Whether a rule's selectors take the field.
bool selects(const Rule &rule, const navo_form_def &form, const navo_block_def &block, const navo_field_def &field)
{
    return (rule.type.empty() || rule.type == field.type) && (rule.form.empty() || equal_folded(rule.form, form.name)) &&
           (rule.block.empty() || equal_folded(rule.block, block.tag)) &&
           (rule.field.empty() || equal_folded(rule.field, field.name));
}

}  // namespace

int Rule::rank() const noexcept
{
    return !field.empty() ? 3 : !block.empty() ? 2 : !form.empty() ? 1 : 0;
}

std::int32_t parse_rules(std::string_view json, navo_rules &out, navo_refusal &why)
{
    std::int32_t line = 1;
    RulesReader reader(out, line, json);
    const CountingIterator first(json.data(), &line);
    const CountingIterator last(json.data() + json.size(), &line);
    const bool read = Json::sax_parse(first, last, &reader, nlohmann::detail::input_format_t::json, true);
    if (read && reader.error.empty())
        return NAVO_OK;
    why.code = NAVO_BAD_RULES;
    why.place = empty_place();
    why.place.line = reader.errorLine > 0 ? reader.errorLine : line;
    set_name(why.reason, reader.error.empty() ? std::string("the rules file cannot be read") : reader.error);
    out.rules.clear();
    return NAVO_BAD_RULES;
}

std::string_view FieldRule::name() const noexcept
{
    if (rule != nullptr)
        return rule->kind == Rule::Kind::pattern ? "pattern" : "values";
    return active() ? builtin->name : std::string_view{};
}

FieldRule resolve_rule(const navo_rules *rules, const navo_form_def &form, const navo_block_def &block,
                       const navo_field_def &field)
{
    const Rule *chosen = nullptr;
    if (rules != nullptr) {
        for (const Rule &rule : rules->rules) {
            if (selects(rule, form, block, field) && (chosen == nullptr || rule.rank() >= chosen->rank()))
                chosen = &rule;
        }
    }
    FieldRule resolved;
    if (chosen == nullptr)
        resolved.builtin = check_of_type(field.type);
    else if (chosen->kind == Rule::Kind::check)
        resolved.builtin = chosen->check;
    else
        resolved.rule = chosen;
    return resolved;
}

std::string apply_rule(const FieldRule &rule, std::string_view raw, Encoding encoding)
{
    if (rule.rule == nullptr)
        return std::string(rule.active() ? rule.builtin->check(raw) : std::string_view{});
    std::string utf8;
    append_utf8(utf8, raw, encoding);
    if (rule.rule->kind == Rule::Kind::pattern) {
        if (std::regex_match(utf8, rule.rule->regex))
            return {};
        return "does not match the pattern of the rule on line " + std::to_string(rule.rule->line);
    }
    if (std::find(rule.rule->values.begin(), rule.rule->values.end(), utf8) != rule.rule->values.end())
        return {};
    return "is none of the values of the rule on line " + std::to_string(rule.rule->line);
}

}  // namespace navo::front

using namespace navo::front;

extern "C" {

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_rules_parse(const char *json, size_t length, navo_rules **out,
                                                       navo_refusal *why) noexcept
{
    navo_refusal local{};
    navo_refusal &reason = why != nullptr ? *why : local;
    if (out != nullptr)
        *out = nullptr;
    if (json == nullptr || out == nullptr) {
        reason.code = NAVO_INVALID_ARGUMENT;
        reason.place = empty_place();
        set_name(reason.reason, "a null text or result");
        return NAVO_INVALID_ARGUMENT;
    }
    try {
        auto rules = std::make_unique<navo_rules>();
        const std::int32_t code = parse_rules({json, length}, *rules, reason);
        if (code == NAVO_OK)
            *out = rules.release();
        return code;
    } catch (...) {
        reason.code = NAVO_OUT_OF_MEMORY;
        reason.place = empty_place();
        set_name(reason.reason, "the memory ran out");
        return NAVO_OUT_OF_MEMORY;
    }
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_rules_load(const char *path, navo_rules **out,
                                                      navo_refusal *why) noexcept
{
    navo_refusal local{};
    navo_refusal &reason = why != nullptr ? *why : local;
    if (out != nullptr)
        *out = nullptr;
    std::string text;
    try {
        std::FILE *file = path != nullptr ? std::fopen(path, "rb") : nullptr;
        if (file == nullptr) {
            reason.code = NAVO_READ_FAILED;
            reason.place = empty_place();
            set_name(reason.reason, path == nullptr ? "a null path" : "the rules file cannot be read");
            return NAVO_READ_FAILED;
        }
        char buffer[4096];
        std::size_t got = 0;
        while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0)
            text.append(buffer, got);
        const bool failed = std::ferror(file) != 0;
        std::fclose(file);
        if (failed) {
            reason.code = NAVO_READ_FAILED;
            reason.place = empty_place();
            set_name(reason.reason, "the rules file cannot be read");
            return NAVO_READ_FAILED;
        }
    } catch (...) {
        reason.code = NAVO_OUT_OF_MEMORY;
        reason.place = empty_place();
        set_name(reason.reason, "the memory ran out");
        return NAVO_OUT_OF_MEMORY;
    }
    return navo_rules_parse(text.data(), text.size(), out, &reason);
}

NAVO_FRONT_API void NAVO_FRONT_CALL navo_rules_free(navo_rules *rules) noexcept
{
    delete rules;
}

}  // extern "C"
