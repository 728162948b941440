// interchange/scanner.hpp - the stream scanner: characters, fixed reads, tags, element texts, sections.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string_view>

#include "navo.h"
#include "platform/file_input.hpp"

// The exported readers dk_LoadChar, dk_LoadStringbyLen, dk_LoadStringforTag and
// dk_LoadStringtoTerminator are declared in navo.h and call these.
namespace navo::interchange {

// The next byte that is neither TAB nor LF as a signed 8-bit value widened, or -1 at the end.
std::int32_t read_char(std::FILE *stream) noexcept;

// Clears `out`, then reads exactly `count` significant bytes into it; false at the end of the
// input or when `out` is too small (what was read stays in it).
bool read_count(std::FILE *stream, std::span<char> out, std::int32_t count) noexcept;

// Skips blanks and CRs, then reads a tag from its '<' through its '>' into the cleared `out`. A
// full buffer ends the read without a terminator and leaves the rest in the stream. `out` must
// not be empty.
bool read_tag(std::FILE *stream, std::span<char> out) noexcept;

// Reads an element's text up to the next '<' into a new allocation in `text` (released first),
// then the closing tag: through its '>' when `block` is nothing, else it must close `block`
// (ASCII letters in any case).
bool read_element(std::FILE *stream, char *&text, std::optional<std::string_view> block) noexcept;

// Scans forward to the next section tag ("<TOB..." with ".DP>") or file footer tag
// ("<stopka..." with ".NAVO>") and gives it terminated in `out` (at least 27 bytes for any such
// tag). False at the end of the input.
bool next_section(std::FILE *stream, std::span<char> out) noexcept;

// The text of the loader's elements: one growing buffer for a whole load, released by its owner.
// Each read also keeps where the text's dropped LFs stood, so that a text of the wrong length can
// be told by its lines (the file's layout puts one field or header line on each).
struct TextBuffer {
    TextBuffer() noexcept = default;
    TextBuffer(const TextBuffer &) = delete;
    TextBuffer &operator=(const TextBuffer &) = delete;
    ~TextBuffer();
    const char *c_str() const noexcept { return data != nullptr ? data : ""; }

    // The LFs of one element kept at most; the lines of an element with more are not told apart.
    static constexpr std::size_t max_breaks = 128;

    char *data = nullptr;
    std::size_t capacity = 0;
    // LFs dropped from the last text read, and the text's length at each of the first max_breaks.
    std::size_t lineFeeds = 0;
    std::array<std::size_t, max_breaks> breaks{};
};

// The lines of the last text read: the lengths of its pieces between the LFs it had, empty pieces
// at either end dropped, into `lengths`; their count, or -1 when the text had more LFs than
// TextBuffer keeps or more lines than `lengths` holds.
std::int32_t text_lines(const TextBuffer &text, std::span<std::int32_t> lengths) noexcept;

// The loader's own view of its file, which no host ever sees: the raw bytes come in runs of the
// buffer's size, and the scanner applies the text-mode rules on the buffer itself (a CR right
// before an LF is no character, a 0x1A ends the input). Every reader below gives what its FILE*
// twin gives on a text-mode stream of the same file (the Windows C runtime's "rt"), with the same
// line counts.
class BulkInput {
public:
    explicit BulkInput(platform::FileInput &source) noexcept : source_(source) {}
    BulkInput(const BulkInput &) = delete;
    BulkInput &operator=(const BulkInput &) = delete;

    // The next character that is neither TAB nor LF as 0 to 255, or -2 at the end of the input.
    int next() noexcept;
    // Reads the text before the next '<' into `text` (TAB and LF dropped, LFs counted) and takes
    // the '<'. False at the end of the input or when the text cannot grow.
    bool take_text(TextBuffer &text) noexcept;
    // The fast ends of read_tag and close_element, for what stands whole in the buffer without a
    // TAB, LF or CR inside: the blanks, CRs and line ends before a tag's '<' (lines counted),
    // then the tag through its '>' into `out` (zero-filled first); or "/" `block` ">" exactly.
    // False, with only those leading characters taken, where the byte-wise readers must decide.
    bool take_tag(std::span<char> out) noexcept;
    bool take_closing(std::string_view block) noexcept;
    // What the do-while over fgets(line, 200, stream) of the loader's line count gives on a text
    // stream: one more than the calls that return a line. Reads the whole file and rewinds it.
    std::int32_t count_lines() noexcept;
    // Bytes of the file the readers have taken so far, each CR included.
    std::int64_t offset() const noexcept { return runStart_ + static_cast<std::int64_t>(position_); }

private:
    bool refill() noexcept;

    platform::FileInput &source_;
    std::int64_t runStart_ = 0;  // where the buffer's run begins in the file
    std::size_t position_ = 0;
    std::size_t end_ = 0;
    // Nothing more comes from the file: its end, a read error or a 0x1A.
    bool ended_ = false;
    // The run's last byte was a CR and the file goes on: it waits for the next run, so that a CR
    // and the byte that decides it always stand in one run.
    bool heldCarriageReturn_ = false;

public:
    // 32 KiB of the file at a time: one read serves about a hundred records, and the buffer is
    // small enough for the stack of a host's thread (the loader allocates nothing for it). One
    // byte more holds a NUL behind the run, so a CR's follower can always be looked at.
    static constexpr std::size_t run_size = 32 * 1024;

private:
    std::array<char, run_size + 1> buffer_{};
};

std::int32_t read_char(BulkInput &input) noexcept;
bool read_count(BulkInput &input, std::span<char> out, std::int32_t count) noexcept;
bool read_tag(BulkInput &input, std::span<char> out) noexcept;
// read_element with the text in the load's reused buffer instead of a new allocation.
bool read_element(BulkInput &input, TextBuffer &text, std::optional<std::string_view> block) noexcept;
bool next_section(BulkInput &input, std::span<char> out) noexcept;

}  // namespace navo::interchange
