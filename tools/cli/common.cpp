// common.cpp - standard output checked to its end, JSON strings, the words of faults, findings and refusals.
#include "common.hpp"

#include <cerrno>
#include <system_error>

namespace navo_cli {

namespace {

int outputError = 0;  // errno of standard output's first failure

void keep_failure() noexcept
{
    if (outputError == 0)
        outputError = errno != 0 ? errno : EIO;
}

std::string reason_of(int error)
{
    return std::generic_category().message(error);
}

}  // namespace

bool write_out(std::string_view bytes)
{
    if (outputError != 0)
        return false;
    errno = 0;
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) {
        keep_failure();
        return false;
    }
    return true;
}

std::string output_failure()
{
    return outputError != 0 ? reason_of(outputError) : std::string();
}

bool flush_out()
{
    errno = 0;
    if (outputError == 0 && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0))
        keep_failure();
    return outputError == 0;
}

void output_failed()
{
    throw Failure(kExitUsage, "");
}

int close_standard_output()
{
    flush_out();
    errno = 0;
    if (std::fclose(stdout) != 0)
        keep_failure();
    if (outputError == 0)
        return kExitOk;
    std::fprintf(stderr, "navo: standard output: %s\n", reason_of(outputError).c_str());
    return kExitUsage;
}

void append_json_string(std::string &out, std::string_view utf8)
{
    out += '"';
    std::size_t start = 0;
    for (std::size_t i = 0; i < utf8.size(); i++) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        if (c >= 0x20 && c != '"' && c != '\\' && c != 0x7F)
            continue;
        out.append(utf8, start, i - start);
        start = i + 1;
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default: out += fmt::format("\\u{:04x}", c);
        }
    }
    out.append(utf8, start);
    out += '"';
}

std::string json_string(std::string_view utf8)
{
    std::string out;
    append_json_string(out, utf8);
    return out;
}

std::string_view trim_right(std::string_view text)
{
    const std::size_t end = text.find_last_not_of(' ');
    return end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
}

namespace {

std::string code_words(const std::error_code &code)
{
    return fmt::format("{}, {} [{}]", code.value(), navo::english(code), code.message());
}

}  // namespace

std::string fault_text(std::string_view file, const navo::Fault &fault)
{
    if (fault.code == navo::errc::open_failed)
        return fmt::format("{}: error: {}", file, fault.detail);
    std::string out(file);
    out += fault.place.line ? fmt::format(": invalid at line {}: ", *fault.place.line) : std::string(": invalid: ");
    out += "code " + code_words(fault.code);
    if (fault.cause != fault.code)
        out += "; cause " + code_words(fault.cause);
    const std::string where = fault.place.describe();
    if (!where.empty())
        out += "; at " + where;
    if (!fault.detail.empty())
        out += "; " + fault.detail;
    return out;
}

namespace {

// The members of a place that are known, as JSON keys of navo_place's names.
void append_place_json(std::string &out, const navo::Place &place)
{
    const auto text = [&out](const char *key, const std::string &value) {
        if (!value.empty())
            out += fmt::format(",\"{}\":{}", key, json_string(value));
    };
    const auto number = [&out](const char *key, const auto &value) {
        if (value)
            out += fmt::format(",\"{}\":{}", key, *value);
    };
    number("line", place.line);
    text("area", place.area);
    number("document", place.document);
    text("form", place.form);
    text("block", place.block);
    number("record", place.record);
    text("field", place.field);
    number("expected", place.expected);
    number("found", place.found);
    number("field_expected", place.field_expected);
    number("field_found", place.field_found);
    number("offset", place.offset);
}

}  // namespace

void append_fault_json(std::string &out, const navo::Fault &fault)
{
    out += fmt::format("{{\"code\":{},\"message\":{},\"message_en\":{},\"cause\":{}", fault.code.value(),
                       json_string(fault.code.message()), json_string(navo::english(fault.code)),
                       fault.cause.value());
    append_place_json(out, fault.place);
    if (!fault.detail.empty())
        out += ",\"detail\":" + json_string(fault.detail);
    out += '}';
}

namespace {

const char *kind_name(navo::finding_kind kind)
{
    return kind == navo::finding_kind::cross ? "cross" : "value";
}

}  // namespace

std::string finding_text(std::string_view file, const navo::Finding &finding, bool showValue)
{
    std::string out = fmt::format("{}: {}: {}, rule {}: {}", file, finding.place.describe(), finding.type,
                                  finding.rule, finding.problem);
    if (showValue)
        out += " (value " + json_string(finding.value) + ")";
    return out;
}

void append_finding_json(std::string &out, const navo::Finding &finding, bool showValue)
{
    out += '{';
    std::string place;
    append_place_json(place, finding.place);
    out.append(place, place.empty() ? 0 : 1);  // without its leading comma
    out += fmt::format(",\"type\":{},\"rule\":{},\"kind\":\"{}\",\"problem\":{}", json_string(finding.type),
                       json_string(finding.rule), kind_name(finding.kind), json_string(finding.problem));
    if (showValue)
        out += ",\"value\":" + json_string(finding.value);
    out += '}';
}

std::string refusal_text(const navo::Refusal &refusal)
{
    const std::string where = refusal.place.describe();
    return where.empty() ? refusal.reason : where + ": " + refusal.reason;
}

void fail_load(std::string_view file, const navo::LoadResult &result)
{
    if (!result.fault)
        throw Failure(kExitUsage, fmt::format("{}: {}", file, navo::english(result.code)));
    const navo::Fault &fault = *result.fault;
    const int exit = is_system_failure(fault.code) ? kExitUsage : kExitInvalid;
    if (fault.code == navo::errc::open_failed)
        throw Failure(exit, fmt::format("{}: {}", file, fault.detail));
    throw Failure(exit, fault_text(file, fault));
}

bool is_system_failure(const std::error_code &code)
{
    return code == navo::errc::open_failed || code == navo::errc::save_failed || code == navo::errc::store_failed ||
           code == navo::errc::out_of_memory || code == navo::errc::read_failed;
}

navo::Rules load_rules(const std::string &path)
{
    std::error_code ec;
    navo::Rules rules = navo::Rules::load(path, ec);
    if (ec) {
        const navo::Refusal why = rules.last_refusal();
        const std::string line = why.place.line ? fmt::format(":{}", *why.place.line) : std::string();
        throw Failure(kExitUsage, fmt::format("{}{}: {}", path, line, why.reason));
    }
    return rules;
}

}  // namespace navo_cli
