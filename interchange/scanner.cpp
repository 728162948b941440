// interchange/scanner.cpp - the stream scanner: the lowest readers of a NAVO file, on a host's stream or the loader's buffer.
#include "platform/platform.hpp"

#include "interchange/scanner.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#if defined(__SSE2__)
#  include <emmintrin.h>
#endif

#include "core/allocator.hpp"
#include "core/status.hpp"
#include "interchange/format.hpp"

namespace navo::interchange {

namespace {

// What next_byte gives at the end of the input; no byte value can look like it.
constexpr int end_of_input = -2;

// The byte that ends a text-mode input.
constexpr char ctrl_z = 0x1A;

// Characters fgets(line, read_buffer_size, stream) takes at most per call.
constexpr std::size_t fgets_piece = read_buffer_size - 1;

// Raises the line counter by `lines`, stopping at its maximum as one step per LF does. Only the
// loading thread writes the counter, so its own plain read is the value it last stored.
void count_lines_read(std::size_t lines) noexcept
{
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    const std::int32_t line = i_lNumerLinii;
    const std::int64_t raised = std::int64_t{line} + static_cast<std::int64_t>(std::min<std::size_t>(lines, most));
    if (line < most)
        status::set_line(static_cast<std::int32_t>(std::min<std::int64_t>(raised, most)));
}

// The next byte that is neither TAB nor LF, as 0 to 255, or end_of_input. Every LF taken raises
// the line counter, whoever keeps or drops what surrounds it.
int next_byte(std::FILE *stream) noexcept
{
    for (;;) {
        const int c = navo::platform::get_byte(stream);
        if (c == '\n') {
            count_lines_read(1);
            continue;
        }
        if (c == '\t')
            continue;
        // One read yields eight bits, so 0xFF is the end of input only with the end-of-file or
        // error flag set; with both clear it is a data byte.
        if (c == EOF || (c == 0xFF && (std::feof(stream) || std::ferror(stream))))
            return end_of_input;
        return c;
    }
}

// A host's stream, read a byte at a time: the exported readers leave every byte behind the one
// they need in the stream for the host.
struct StreamSource {
    std::FILE *stream;
    int next() noexcept { return next_byte(stream); }
};

// ASCII-only upper case: other bytes must match exactly, whatever the host's locale says.
constexpr int ascii_upper(int c) noexcept
{
    return c >= 'a' && c <= 'z' ? c - ('a' - 'A') : c;
}

// How gathering the rest of a section tag ended.
enum class Rest { ended, gathered, too_long };

// Gathers the rest of a section tag through its '>' into `rest`. A rest of more than
// rest.size() - 1 characters is read through its '>' without being stored.
template <class Source>
Rest gather_tag_rest(Source &source, std::span<char, scan::rest_size> rest) noexcept
{
    std::size_t length = 0;
    std::fill(rest.begin(), rest.end(), '\0');
    for (;;) {
        const int c = source.next();
        if (c == end_of_input)
            return Rest::ended;
        if (length < rest.size() - 1)
            rest[length] = static_cast<char>(c);
        length++;
        if (c == '>')
            return length < rest.size() ? Rest::gathered : Rest::too_long;
    }
}

// The text of an element as it is read: terminated after every character, released unless taken.
class ElementText {
public:
    ElementText() = default;
    ElementText(const ElementText &) = delete;
    ElementText &operator=(const ElementText &) = delete;
    ~ElementText() { memory::release(text_); }

    // The empty text, before the first character is read.
    bool start() noexcept
    {
        text_ = static_cast<char *>(memory::allocate(capacity_));
        if (text_ == nullptr)
            return false;
        text_[0] = '\0';
        return true;
    }

    bool append(char c) noexcept
    {
        if (length_ + 1 == capacity_) {
            // Capacity grows geometrically; the text still grows by one character at a time.
            const std::size_t grown = capacity_ < 64 ? 64 : capacity_ * 2;
            auto *bigger = static_cast<char *>(memory::resize(text_, grown));
            if (bigger == nullptr)
                return false;
            text_ = bigger;
            capacity_ = grown;
        }
        text_[length_++] = c;
        text_[length_] = '\0';
        return true;
    }

    char *take() noexcept { return std::exchange(text_, nullptr); }

private:
    char *text_ = nullptr;
    std::size_t length_ = 0;
    std::size_t capacity_ = 1;
};

// Room for `needed` bytes in the load's text, grown geometrically like an element's own text.
bool reserve(TextBuffer &text, std::size_t needed) noexcept
{
    if (needed <= text.capacity)
        return true;
    std::size_t grown = text.capacity;
    while (grown < needed)
        grown = grown < 64 ? 64 : grown * 2;
    auto *bigger = static_cast<char *>(memory::resize(text.data, grown));
    if (bigger == nullptr)
        return false;
    text.data = bigger;
    text.capacity = grown;
    return true;
}

template <class Source>
std::int32_t read_char_from(Source &source) noexcept
{
    const int c = source.next();
    if (c == end_of_input)
        return -1;
    // Widened from a signed 8-bit value: bytes from 0x80 on come out negative, 0xFF as -1.
    return c >= 0x80 ? c - 0x100 : c;
}

template <class Source>
bool read_count_from(Source &source, std::span<char> out, std::int32_t count) noexcept
{
    std::fill(out.begin(), out.end(), '\0');
    for (std::int32_t stored = 0; stored < count; stored++) {
        if (static_cast<std::size_t>(stored) >= out.size())
            return false;
        const int c = source.next();
        if (c == end_of_input)
            return false;
        out[static_cast<std::size_t>(stored)] = static_cast<char>(c);
    }
    return true;
}

template <class Source>
bool read_tag_from(Source &source, std::span<char> out) noexcept
{
    std::fill(out.begin(), out.end(), '\0');
    std::size_t stored = 0;
    for (;;) {
        const int c = source.next();
        if (c == end_of_input)
            return false;
        if (stored == 0) {
            if (c == ' ' || c == '\r')
                continue;
            if (c != '<')
                return false;
        }
        out[stored++] = static_cast<char>(c);
        if (c == '>')
            return true;
        // A full buffer ends the read without a terminator; the rest stays in the stream.
        if (stored == out.size())
            return true;
    }
}

// An element's closing tag, behind the '<' that ended its text.
template <class Source>
bool close_element(Source &source, std::optional<std::string_view> block) noexcept
{
    int c = 0;
    // Whatever stands between the '<' and the first '/' is dropped untested.
    do {
        c = source.next();
        if (c == end_of_input)
            return false;
    } while (c != '/');

    if (!block) {
        do {
            c = source.next();
            if (c == end_of_input)
                return false;
        } while (c != '>');
        return true;
    }
    for (std::size_t i = 0;; i++) {
        c = source.next();
        if (c == end_of_input)
            return false;
        if (c == '>')
            return i == block->size();
        if (i == block->size() || ascii_upper(c) != ascii_upper(static_cast<unsigned char>((*block)[i])))
            return false;
    }
}

template <class Source>
bool next_section_from(Source &source, std::span<char> out) noexcept
{
    if (out.empty())
        return false;
    std::fill(out.begin(), out.end(), '\0');
    // "<", the six characters, the rest and a terminator.
    std::array<char, 1 + scan::head_length + scan::rest_size> tag;
    std::array<char, scan::rest_size> buffer;
    for (;;) {
        int c = 0;
        do {
            c = source.next();
            if (c == end_of_input)
                return false;
        } while (c != '<');
        if (!read_count_from(source, buffer, static_cast<std::int32_t>(scan::head_length)))
            return false;
        const std::string_view head{buffer.data(), scan::head_length};
        std::string_view suffix;
        if (begins_with(head, scan::footer_head))
            suffix = tag::file_footer_suffix;
        else if (begins_with(head, scan::section_head))
            suffix = tag::section_suffix;
        else
            continue;  // the six characters stay consumed
        // Built as text: a NUL byte among the six ends them.
        const std::string_view headText = first(head, head.find('\0'));
        tag[0] = '<';
        std::copy(headText.begin(), headText.end(), tag.begin() + 1);
        const std::size_t length = 1 + headText.size();
        const Rest gathered = gather_tag_rest(source, buffer);
        if (gathered == Rest::ended)
            return false;
        if (gathered == Rest::too_long)
            continue;  // too long for any section or footer tag: passed over
        const std::string_view rest = text_of(buffer);
        std::copy(rest.begin(), rest.end(), tag.begin() + static_cast<std::ptrdiff_t>(length));
        const std::string_view built{tag.data(), length + rest.size()};
        if (built.find(suffix) != std::string_view::npos && built.size() < out.size()) {
            std::copy(built.begin(), built.end(), out.begin());
            return true;
        }
    }
}

// The scans below look at 16 bytes at a time where the processor has SSE2 (every x86-64 does):
// one bit per byte of the block that equals one of the characters asked. Elsewhere they take
// their bytes one at a time.
#if defined(__SSE2__)
constexpr std::ptrdiff_t scan_block = 16;

inline unsigned equal_bytes(__m128i block, char c) noexcept
{
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8(c))));
}

inline __m128i load_block(const char *p) noexcept
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}
#endif

// An LF dropped from an element's text: counted, and where it stood kept. The slots are taken in
// turn, round again past the last: a text of more LFs than slots (TextBuffer::lineFeeds tells)
// has its lines unknown, and its LFs cost no test here.
static_assert(std::has_single_bit(TextBuffer::max_breaks));
inline void take_line_feed(TextBuffer &text, std::size_t length, std::size_t &lines) noexcept
{
    text.breaks[lines & (TextBuffer::max_breaks - 1)] = length;
    lines++;
}

// A TAB, LF or CR of an element's text at `p`, taken: a TAB goes, an LF goes and is counted, a CR
// with an LF behind it goes with that LF (p[1] is at worst the '<' or the run's NUL), another CR
// stays.
inline void take_special(const char *&p, TextBuffer &text, std::size_t &length, std::size_t &lines) noexcept
{
    if (*p == '\r') {
        if (p[1] == '\n') {
            take_line_feed(text, length, lines);
            p += 2;
            return;
        }
        text.data[length++] = '\r';
    } else if (*p == '\n') {
        take_line_feed(text, length, lines);
    }
    p++;
}

}  // namespace

TextBuffer::~TextBuffer()
{
    memory::release(data);
}

std::int32_t text_lines(const TextBuffer &text, std::span<std::int32_t> lengths) noexcept
{
    if (text.lineFeeds > TextBuffer::max_breaks)
        return -1;
    // Where each piece ends: at each LF, then at the text's end. A NUL in the text ends it early,
    // as it ends the length the loader tests, and cuts what lies behind it.
    const std::size_t total = std::strlen(text.c_str());
    std::array<std::size_t, TextBuffer::max_breaks + 1> ends{};
    for (std::size_t i = 0; i < text.lineFeeds; i++)
        ends[i] = std::min(text.breaks[i], total);
    ends[text.lineFeeds] = total;
    const auto piece = [&ends](std::size_t i) { return ends[i] - (i == 0 ? 0 : ends[i - 1]); };
    std::size_t first = 0;
    std::size_t last = text.lineFeeds + 1;
    while (first < last && piece(first) == 0)
        first++;
    while (last > first && piece(last - 1) == 0)
        last--;
    if (last - first > lengths.size())
        return -1;
    constexpr std::size_t most = std::numeric_limits<std::int32_t>::max();
    for (std::size_t i = first; i < last; i++)
        lengths[i - first] = static_cast<std::int32_t>(std::min(piece(i), most));
    return static_cast<std::int32_t>(last - first);
}

// The input ends at the first short run, as getc's would: at the end of the file or at an error,
// after which the file gives nothing more until it is rewound; it also ends before a 0x1A.
bool BulkInput::refill() noexcept
{
    if (ended_)
        return false;
    // The run taken so far lies behind; a CR held back from it is the new run's first byte.
    runStart_ += static_cast<std::int64_t>(end_);
    std::size_t have = 0;
    if (heldCarriageReturn_) {
        buffer_[0] = '\r';
        have = 1;
        heldCarriageReturn_ = false;
    }
    const std::size_t want = run_size - have;
    const std::size_t got = source_.read(buffer_.data() + have, want);
    position_ = 0;
    end_ = have + got;
    if (got < want)
        ended_ = true;
    const auto *stop = static_cast<const char *>(std::memchr(buffer_.data() + have, ctrl_z, got));
    if (stop != nullptr) {
        end_ = static_cast<std::size_t>(stop - buffer_.data());
        ended_ = true;
    }
    // A run that is not the last holds at least run_size - 1 bytes, so one held back leaves some.
    if (!ended_ && buffer_[end_ - 1] == '\r') {
        heldCarriageReturn_ = true;
        end_--;
    }
    buffer_[end_] = '\0';
    return end_ > 0;
}

int BulkInput::next() noexcept
{
    for (;;) {
        if (position_ == end_ && !refill())
            return end_of_input;
        const auto c = static_cast<unsigned char>(buffer_[position_++]);
        // CR LF is one LF; the NUL behind the run is no LF.
        if (c == '\n' || (c == '\r' && buffer_[position_] == '\n')) {
            position_ += c == '\r' ? 1 : 0;
            count_lines_read(1);
            continue;
        }
        if (c != '\t')
            return c;
    }
}

// The bytes before the '<' (found by memchr) go to the text in one pass that drops TABs, LFs and
// the CR of each CR LF, and counts the LFs; the text grows once per buffer run instead of once
// per character. When it cannot grow, the pass stops where the byte-wise read stopped: at the
// character that found the text full, with the LFs before it counted.
bool BulkInput::take_text(TextBuffer &text) noexcept
{
    std::size_t length = 0;
    std::size_t lines = 0;
    if (!reserve(text, 1)) {
        text.lineFeeds = 0;
        return false;
    }
    for (;;) {
        if (position_ == end_ && !refill()) {
            count_lines_read(lines);
            text.lineFeeds = lines;
            return false;
        }
        const char *from = buffer_.data() + position_;
        const char *limit = buffer_.data() + end_;
        const auto *less = static_cast<const char *>(std::memchr(from, '<', static_cast<std::size_t>(limit - from)));
        const char *stop = less != nullptr ? less : limit;
        const char *p = from;
        if (!reserve(text, length + static_cast<std::size_t>(stop - from) + 1)) {
            for (; p < stop; p++) {
                if (*p == '\r' && p[1] == '\n')
                    continue;
                if (*p == '\n')
                    lines++;
                else if (*p != '\t' && length++ + 1 == text.capacity)
                    break;
            }
            position_ = static_cast<std::size_t>(p - buffer_.data());
            count_lines_read(lines);
            text.lineFeeds = lines;
            return false;
        }
        char *out = text.data;
#if defined(__SSE2__)
        // Sixteen bytes at a time while sixteen remain: stored whole, the length moved past those
        // before the first TAB, LF or CR, which is then taken on its own. The reserve above left
        // room for every byte up to `stop` and the NUL, so the sixteen always fit.
        while (stop - p >= scan_block) {
            const __m128i block = load_block(p);
            const unsigned special = equal_bytes(block, '\t') | equal_bytes(block, '\n') | equal_bytes(block, '\r');
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + length), block);
            if (special == 0) {
                length += scan_block;
                p += scan_block;
                continue;
            }
            const auto plain = static_cast<std::size_t>(std::countr_zero(special));
            length += plain;
            p += plain;
            take_special(p, text, length, lines);
        }
#endif
        while (p < stop) {
            if (*p == '\t' || *p == '\n' || *p == '\r')
                take_special(p, text, length, lines);
            else
                out[length++] = *p++;
        }
        position_ = static_cast<std::size_t>(stop - buffer_.data());
        if (less != nullptr) {
            text.data[length] = '\0';
            position_++;  // the '<'
            count_lines_read(lines);
            text.lineFeeds = lines;
            return true;
        }
    }
}

namespace {

// Whether `bytes` hold no TAB, LF or CR, which the byte-wise readers would drop or translate.
bool plain(std::string_view bytes) noexcept
{
    return std::none_of(bytes.begin(), bytes.end(), [](char c) { return c == '\t' || c == '\n' || c == '\r'; });
}

}  // namespace

bool BulkInput::take_tag(std::span<char> out) noexcept
{
    // What read_tag_from passes over before the '<': blanks and CRs, and the TABs, LFs and
    // CR LFs that next() drops, each LF counted.
    while (position_ < end_) {
        const char c = buffer_[position_];
        if (c == ' ' || c == '\t' || (c == '\r' && buffer_[position_ + 1] != '\n')) {
            position_++;
        } else if (c == '\n' || c == '\r') {
            position_ += c == '\r' ? 2 : 1;
            count_lines_read(1);
        } else {
            break;
        }
    }
    if (position_ == end_ || buffer_[position_] != '<')
        return false;
    const std::string_view rest{buffer_.data() + position_, end_ - position_};
    const std::size_t close = rest.find('>');
    if (close == std::string_view::npos || close >= out.size() || !plain(first(rest, close)))
        return false;
    std::fill(out.begin(), out.end(), '\0');
    std::copy_n(rest.data(), close + 1, out.begin());
    position_ += close + 1;
    return true;
}

bool BulkInput::take_closing(std::string_view block) noexcept
{
    const std::string_view rest{buffer_.data() + position_, end_ - position_};
    if (rest.size() < block.size() + 2 || rest[0] != '/' || first(after(rest, 1), block.size()) != block ||
        rest[block.size() + 1] != '>' || !plain(block))
        return false;
    position_ += block.size() + 2;
    return true;
}

std::int32_t BulkInput::count_lines() noexcept
{
    // fgets takes a line in pieces of fgets_piece characters: a run of n characters and its LF
    // make n / fgets_piece + 1 calls, and a last run without an LF n / fgets_piece, plus one for
    // a part piece. The CR of a CR LF is no character. Runs are measured in raw bytes (`since`),
    // and the CR is looked at only when a run is long enough to matter: a CR and its LF always
    // stand in one buffer run (refill).
    std::int64_t lines = 0;
    std::size_t since = 0;
    const auto line_feed_at = [&](const char *lineFeed) {
        if (since >= fgets_piece) {
            const bool carriageReturn = lineFeed > buffer_.data() && lineFeed[-1] == '\r';
            lines += static_cast<std::int64_t>((since - (carriageReturn ? 1 : 0)) / fgets_piece);
        }
        lines++;
    };
    while (position_ < end_ || refill()) {
        const char *p = buffer_.data() + position_;
        const char *limit = buffer_.data() + end_;
#if defined(__SSE2__)
        for (; limit - p >= scan_block; p += scan_block) {
            unsigned lineFeeds = equal_bytes(load_block(p), '\n');
            if (lineFeeds == 0) {
                since += scan_block;
                continue;
            }
            // Each LF of the block, in order; `since` counts the bytes of the run it ends.
            std::ptrdiff_t done = 0;
            do {
                const int at = std::countr_zero(lineFeeds);
                since += static_cast<std::size_t>(at - done);
                line_feed_at(p + at);
                since = 0;
                done = at + 1;
                lineFeeds &= lineFeeds - 1;
            } while (lineFeeds != 0);
            since += static_cast<std::size_t>(scan_block - done);
        }
#endif
        for (; p < limit; p++) {
            if (*p == '\n') {
                line_feed_at(p);
                since = 0;
            } else {
                since++;
            }
        }
        position_ = end_;
    }
    lines += static_cast<std::int64_t>(since / fgets_piece);
    const std::size_t piece = since % fgets_piece;
    // The last piece comes back only at the end of the file; a read error makes its call fail.
    if (piece > 0 && !source_.failed())
        lines++;
    source_.rewind();
    runStart_ = 0;
    position_ = 0;
    end_ = 0;
    ended_ = false;
    heldCarriageReturn_ = false;
    // The call that finds the end counts too.
    return static_cast<std::int32_t>(std::min<std::int64_t>(lines + 1, std::numeric_limits<std::int32_t>::max()));
}

std::int32_t read_char(std::FILE *stream) noexcept
{
    StreamSource source{stream};
    return read_char_from(source);
}

bool read_count(std::FILE *stream, std::span<char> out, std::int32_t count) noexcept
{
    StreamSource source{stream};
    return read_count_from(source, out, count);
}

bool read_tag(std::FILE *stream, std::span<char> out) noexcept
{
    StreamSource source{stream};
    return read_tag_from(source, out);
}

bool read_element(std::FILE *stream, char *&text, std::optional<std::string_view> block) noexcept
{
    memory::release(text);
    text = nullptr;
    if (stream == nullptr)
        return false;
    ElementText gathered;
    if (!gathered.start())
        return false;
    for (;;) {
        const int c = next_byte(stream);
        if (c == end_of_input)
            return false;
        if (c == '<')
            break;
        if (!gathered.append(static_cast<char>(c)))
            return false;
    }
    text = gathered.take();
    StreamSource source{stream};
    return close_element(source, block);
}

bool next_section(std::FILE *stream, std::span<char> out) noexcept
{
    if (stream == nullptr)
        return false;
    StreamSource source{stream};
    return next_section_from(source, out);
}

std::int32_t read_char(BulkInput &input) noexcept
{
    return read_char_from(input);
}

bool read_count(BulkInput &input, std::span<char> out, std::int32_t count) noexcept
{
    return read_count_from(input, out, count);
}

bool read_tag(BulkInput &input, std::span<char> out) noexcept
{
    return input.take_tag(out) || read_tag_from(input, out);
}

bool read_element(BulkInput &input, TextBuffer &text, std::optional<std::string_view> block) noexcept
{
    return input.take_text(text) && ((block && input.take_closing(*block)) || close_element(input, block));
}

bool next_section(BulkInput &input, std::span<char> out) noexcept
{
    return next_section_from(input, out);
}

}  // namespace navo::interchange

extern "C" {

NAVO_API int32_t NAVO_CALL dk_LoadChar(FILE *stream) noexcept
{
    if (stream == nullptr)
        return -1;
    return navo::interchange::read_char(stream);
}

NAVO_API int32_t NAVO_CALL dk_LoadStringbyLen(FILE *stream, char *out, int32_t size, int32_t count) noexcept
{
    if (out == nullptr || stream == nullptr)
        return 0;
    // A negative size is no room at all: nothing is cleared, and any byte to read fails.
    if (size < 0)
        return count < 1 ? 1 : 0;
    return navo::interchange::read_count(stream, {out, static_cast<std::size_t>(size)}, count) ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_LoadStringforTag(FILE *stream, char *out, int32_t size) noexcept
{
    if (out == nullptr || stream == nullptr)
        return 0;
    if (size < 1)
        return 1;
    return navo::interchange::read_tag(stream, {out, static_cast<std::size_t>(size)}) ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_LoadStringtoTerminator(FILE *stream, char **out, const char *block) noexcept
{
    if (out == nullptr)
        return 0;
    std::optional<std::string_view> closing;
    if (block != nullptr)
        closing = block;
    return navo::interchange::read_element(stream, *out, closing) ? 1 : 0;
}

}  // extern "C"
