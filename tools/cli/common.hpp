// common.hpp - what the commands of the navo tool share: failures and exit codes, text encodings,
// output files that appear whole or not at all, the progress bar, the form definitions and the
// document walk through the library.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "navo.h"

namespace navo_cli {

// Exit codes of every command.
constexpr int kExitOk = 0;        // success, valid, equal
constexpr int kExitInvalid = 1;   // the input is invalid, or the files differ
constexpr int kExitUsage = 2;     // usage or I/O error

// A failure that ends a command with one line on stderr and an exit code.
struct Failure : std::runtime_error {
    int exitCode;
    Failure(int code, const std::string &message) : std::runtime_error(message), exitCode(code) {}
};

// Options every command has.
struct GlobalOptions {
    bool noProgress = false;
    bool showValues = false;
};
extern GlobalOptions globalOptions;

// ---- encodings (encoding.cpp) -------------------------------------------------------------

enum class Encoding { Iso88592, Cp1250 };
void toUtf8(std::string_view bytes, Encoding encoding, std::string &out);
std::string toUtf8(std::string_view bytes, Encoding encoding);
// UTF-8 to the code page; false for text that is not UTF-8 or holds a character the code page
// lacks (with substitute, such a character becomes '?').
bool fromUtf8(std::string_view text, Encoding encoding, std::string &out, bool substitute);

// ---- platform helpers (platform.cpp): everything POSIX- or Windows-only lives there ----------

bool stderrIsTerminal();
// 64-bit positions in a stream (a long has 32 bits on Windows).
bool seekTo(std::FILE *file, long long offset);
long long positionOf(std::FILE *file);
// Creates an empty file with a unique name in the directory of target; returns its path.
std::string createTempBeside(const std::string &target);
// Checks that path names a readable regular file; throws Failure(2) with a clear line if not.
void requireRegularFile(const std::string &path);
// Runs job(i) for i in [0, count) in up to workers processes; each job's stdout is collected and
// written out in index order. Returns the largest exit code. Without processes (Windows), runs
// the jobs one after the other.
int runInProcesses(size_t count, int workers, const std::function<int(size_t)> &job);

// ---- output ------------------------------------------------------------------------------

// Output to a named file through a temporary file beside it, renamed into place on commit and
// removed otherwise; or to stdout when the path is empty or "-".
class Output {
public:
    explicit Output(const std::string &path);
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;
    std::FILE *stream() const { return stream_; }
    void write(std::string_view text);
    void commit();

private:
    std::string path_;
    std::string temp_;
    std::FILE *stream_ = nullptr;
    std::vector<char> buffer_; // each output its own stdio buffer
    bool committed_ = false;
};

// ---- progress bar on stderr ----------------------------------------------------------------

class Progress {
public:
    // source returns (done, total); polled from a helper thread while a terminal watches.
    explicit Progress(std::function<std::pair<int64_t, int64_t>()> source);
    ~Progress();
    void finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};
// The library's line counters as a progress source.
std::pair<int64_t, int64_t> libraryLines();

// ---- form definitions --------------------------------------------------------------------

struct FieldDef {
    std::string name;
    int offset = 0;
    int width = 0;
};
struct BlockDef {
    std::string tag;
    std::string name;
    bool repeating = false;
    int recordLength = 0;
    std::vector<FieldDef> fields;
    const FieldDef *field(std::string_view fieldName) const;
};
struct FormDef {
    std::string name;
    std::vector<BlockDef> blocks; // in the order of the form's block references
    const BlockDef *block(std::string_view tag) const;
    int position(std::string_view tag) const; // -1 when the form has no such block
};
struct Schema {
    std::string version; // "1.3" or "1.2"
    std::vector<FormDef> forms; // in definition order
    const FormDef *form(std::string_view name) const;
};
// The embedded definitions of a version ("1.3" or "1.2"), loaded once through the library.
// Must not be called while a load is under way.
const Schema &schemaFor(const std::string &version);
// The version a prolog's second line selects, as the loader decides it.
std::string versionOfPrologLine(std::string_view versionLine);

// Widths of the envelope's lines.
constexpr int kFileHeaderWidths[5] = {51, 8, 24, 24, 32};
constexpr int kDocHeaderWidths[14] = {51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32};
constexpr int kOcrWidths[6] = {10, 10, 10, 72, 24, 24};
constexpr int kErrorWidths[4] = {10, 10, 10, 10};
const char *ocrKindTag(int kind); // "a", "z", "l", "l2"

// Destroys a context, also one that a failed load left without tables, which dk_Destroy refuses:
// such a context first gets the embedded definition and empty tables.
void releaseContext(dk_Context *&ctx);

// ---- the document walk (walk.cpp) --------------------------------------------------------

// What a reader of the file sees, in file order. Texts are the file's bytes, untouched.
struct FileInfo {
    std::string path;
    std::string version;
    std::vector<std::string> prolog;  // 3 lines as stored after the load
    std::vector<std::string> header;  // 5 lines
};
struct OcrNote {
    int kind = 0;
    std::vector<std::string> texts; // 6
};
struct NoteList {
    std::vector<OcrNote> ocr;
    std::vector<std::vector<std::string>> errors; // 4 texts each
};

// One delivered document, read on demand through the library during the callback.
class DocumentView {
public:
    DocumentView(dk_Context *ctx, const char *form, int32_t docIndex, const FormDef &def, int number);
    const std::string &form() const { return form_; }
    int number() const { return number_; }
    const FormDef &definition() const { return def_; }
    std::vector<std::string> header() const;      // 14 lines
    NoteList notes() const;
    int32_t recordCount(const BlockDef &block) const;
    // Fills values with the fields of one record, in field order.
    void record(const BlockDef &block, int32_t recordIndex, std::vector<std::string> &values) const;

private:
    dk_Context *ctx_;
    std::string form_;
    int32_t docIndex_;
    const FormDef &def_;
    int number_;
    mutable std::vector<char> buffer_;
};

class Visitor {
public:
    virtual ~Visitor() = default;
    virtual void begin(const FileInfo &) {}
    virtual void document(const DocumentView &) {}
    virtual void end(const FileInfo &, const std::vector<std::vector<std::string>> & /*fileNotes*/) {}
};

// Loads path through the library and hands each document to the visitor. Throws Failure(1) with
// the library's message and line when the file is invalid, Failure(2) when it cannot be read.
void walkFile(const std::string &path, Visitor &visitor);

// ---- small text helpers ------------------------------------------------------------------

std::string_view trimRight(std::string_view text);
std::string jsonString(std::string_view utf8); // quoted and escaped
void appendJsonString(std::string &out, std::string_view utf8); // the same, appended to `out`
std::string csvField(std::string_view utf8);   // quoted when needed
// The library's message of a code in UTF-8, and our English rendering.
std::string libraryMessage(int code);
std::string englishMessage(int code);

} // namespace navo_cli
