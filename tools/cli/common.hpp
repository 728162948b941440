// common.hpp - what the navo tool's commands share: exit codes and failures, standard output
// checked to its end, JSON strings, and the words of faults, findings and refusals.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "navo.hpp"

namespace navo_cli {

// Exit codes of every command.
constexpr int kExitOk = 0;       // success: valid, equal, written
constexpr int kExitInvalid = 1;  // an input is invalid (a fault, a finding, a refused value), or the files differ
constexpr int kExitUsage = 2;    // usage or I/O error

// A failure that ends a command: "navo: " and its message on stderr (none when empty), and its exit code.
struct Failure : std::runtime_error {
    int exitCode;
    Failure(int code, const std::string &message) : std::runtime_error(message), exitCode(code) {}
};

// ---- standard output ---------------------------------------------------------------------------

// Writes to standard output; false once a write has failed (the first failure's reason is kept).
bool write_out(std::string_view bytes);
template <class... Args>
bool print(fmt::format_string<Args...> format, Args &&...args)
{
    return write_out(fmt::format(format, std::forward<Args>(args)...));
}
// The reason standard output failed, or "" while it has not.
std::string output_failure();
// Flushes standard output, with the failure's reason kept; false when it failed.
bool flush_out();
// Ends a command whose standard output failed: the close of standard output tells why.
[[noreturn]] void output_failed();
// Flushes and closes standard output at the program's end: kExitOk, or kExitUsage with
// "navo: standard output: <reason>" on stderr.
int close_standard_output();

// ---- text --------------------------------------------------------------------------------------

// `utf8` as a JSON string, quoted and escaped, appended to `out`.
void append_json_string(std::string &out, std::string_view utf8);
std::string json_string(std::string_view utf8);
// `text` without its trailing blanks.
std::string_view trim_right(std::string_view text);

// One fault of a file in words: "FILE: invalid at line L: code C, English [Polish]; cause ...;
// at PLACE; DETAIL", or "FILE: error: DETAIL" for a file that cannot be read.
std::string fault_text(std::string_view file, const navo::Fault &fault);
// A fault as a JSON object, with the keys of navo_place; what is not known is left out.
void append_fault_json(std::string &out, const navo::Fault &fault);
// A finding in words: "FILE: PLACE: TYPE, rule RULE: PROBLEM", the value only when asked for.
std::string finding_text(std::string_view file, const navo::Finding &finding, bool showValue);
void append_finding_json(std::string &out, const navo::Finding &finding, bool showValue);
// A refusal of the core in words: "PLACE: REASON", or the reason alone.
std::string refusal_text(const navo::Refusal &refusal);

// Ends a command whose load did not read its file, with the first fault in words (exit 1 for an
// invalid file, 2 for one that cannot be read).
[[noreturn]] void fail_load(std::string_view file, const navo::LoadResult &result);

// Whether a code stands for an I/O or system failure (exit 2) rather than an invalid input.
bool is_system_failure(const std::error_code &code);

// The rules of a --rules file; a file that cannot be read or breaks the grammar is a Failure(2):
// "FILE:LINE: reason".
navo::Rules load_rules(const std::string &path);

}  // namespace navo_cli
