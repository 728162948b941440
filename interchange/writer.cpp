// interchange/writer.cpp - the file writer: envelope records and documents out to a NAVO file.
#include "interchange/writer.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "core/allocator.hpp"
#include "definitions/definition_loader.hpp"
#include "platform/file_handle.hpp"
#include "interchange/format.hpp"
#include "platform/text_stream.hpp"
#include "store/block_spool.hpp"
#include "store/document_tables.hpp"
#include "store/field_access.hpp"

namespace navo::interchange {

namespace {

// Where the writer's text goes. A host's stream takes each piece as it comes, by fwrite and
// fputc, so a step stops at the first byte the stream refuses and the host holds exactly what was
// written. dk_SaveNAVO's own file is opened in binary and unbuffered: the writer does the
// text-mode translation itself (each LF out as CR LF, as the text streams of platform/text_stream
// do) into a buffer of its own, and the file gets a full buffer per write (docs/decisions.md,
// interchange/writer).
class Sink {
public:
    explicit Sink(std::FILE *stream) noexcept : stream_(stream) {}
    Sink(std::FILE *file, std::span<char> buffer) noexcept : stream_(file), buffer_(buffer) {}
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;

    bool put(std::string_view text) noexcept
    {
        if (buffer_.empty())
            return std::fwrite(text.data(), 1, text.size(), stream_) == text.size();
        for (;;) {
            const auto *lineFeed = static_cast<const char *>(std::memchr(text.data(), '\n', text.size()));
            if (lineFeed == nullptr)
                return append(text);
            const auto run = static_cast<std::size_t>(lineFeed - text.data());
            if (!append(first(text, run)) || !append(crlf))
                return false;
            text.remove_prefix(run + 1);
        }
    }
    // A text known to hold no LF: nothing to translate.
    bool put_plain(std::string_view text) noexcept
    {
        if (buffer_.empty())
            return std::fwrite(text.data(), 1, text.size(), stream_) == text.size();
        return append(text);
    }
    bool end_line() noexcept
    {
        if (buffer_.empty())
            return std::fputc('\n', stream_) != EOF;
        if (buffer_.size() - used_ < crlf.size())
            return append(crlf);
        buffer_[used_++] = '\r';
        buffer_[used_++] = '\n';
        return true;
    }
    // Hands the buffered text to the file; false when the file took less, or when its error flag
    // is set (some streams report a refusal only there: glibc's fwrite on a cookie stream gives
    // the full count).
    bool flush() noexcept
    {
        const std::size_t used = std::exchange(used_, 0);
        return used == 0 || (std::fwrite(buffer_.data(), 1, used, stream_) == used && std::ferror(stream_) == 0);
    }

private:
    static constexpr std::string_view crlf = "\r\n";

    bool append(std::string_view bytes) noexcept
    {
        while (!bytes.empty()) {
            if (used_ == buffer_.size() && !flush())
                return false;
            const std::size_t part = std::min(bytes.size(), buffer_.size() - used_);
            std::memcpy(buffer_.data() + used_, bytes.data(), part);
            used_ += part;
            bytes.remove_prefix(part);
        }
        return true;
    }

    std::FILE *stream_;
    std::span<char> buffer_;
    std::size_t used_ = 0;
};

// A literal of the format on a line of its own.
bool write_line(Sink &out, std::string_view literal) noexcept
{
    return out.put(literal) && out.end_line();
}

// A tag built from a name: start + name + end, as "<" X ".DP>" or "</" T ">".
bool write_tag(Sink &out, std::string_view start, std::string_view name, std::string_view end) noexcept
{
    return out.put(start) && out.put(name) && out.put(end) && out.end_line();
}

// Writes `text` and a line feed: up to its terminator, never past the end of the span.
bool write_text(Sink &out, std::span<const char> text) noexcept
{
    return out.put(text_of(text)) && out.end_line();
}

// The texts of an envelope record, a line each, in the order of the format's table.
bool write_record(Sink &out, std::span<const char> record, std::span<const Line> lines) noexcept
{
    const std::size_t recordEnd = lines.back().member + static_cast<std::size_t>(lines.back().width) + 1;
    return std::all_of(lines.begin(), lines.end(), [&](const Line &line) {
        return write_text(out, record.subspan(line.member, recordEnd - line.member));
    });
}

bool write_error_notes(Sink &out, const dk_ErrorNote *notes, std::int32_t count) noexcept
{
    for (std::int32_t i = 0; i < count && notes != nullptr; i++) {
        if (!write_line(out, tag::error_open) || !write_record(out, bytes_of(notes[i]), error_note_lines) ||
            !write_line(out, tag::error_close))
            return false;
    }
    return true;
}

// The format has no tag for a kind outside 0 to 3; such a document is refused before its first
// line is written, rather than leaving a section without a footer (docs/decisions.md).
bool kinds_valid(const dk_DocFooter &footer) noexcept
{
    for (std::int32_t i = 0; i < footer.ocrCount && footer.ocrNotes != nullptr; i++) {
        const std::int32_t kind = footer.ocrNotes[i].kind;
        if (kind < 0 || static_cast<std::size_t>(kind) >= ocr_kind_letters.size())
            return false;
    }
    return true;
}

bool write_ocr_notes(Sink &out, const dk_OcrNote *notes, std::int32_t count) noexcept
{
    for (std::int32_t i = 0; i < count && notes != nullptr; i++) {
        const std::string_view letters = ocr_kind_letters[static_cast<std::size_t>(notes[i].kind)];
        if (!write_tag(out, tag::ocr_open_prefix, letters, tag::end) ||
            !write_record(out, bytes_of(notes[i]), ocr_note_lines) ||
            !write_tag(out, tag::ocr_close_prefix, letters, tag::end))
            return false;
    }
    return true;
}

// One record of one block: the tag and each field as dk_GetField gives it, which moves the
// cursor of a repeating block and so saves its cached changes on the way.
bool write_block_record(dk_Context &ctx, const char *form, std::int32_t docIndex, const dk_dfBlock &block,
                        const char *tagName, std::int32_t recordIndex, Sink &out) noexcept
{
    if (!write_tag(out, tag::start, tagName, tag::end))
        return false;
    for (std::int32_t f = 0; f < block.fieldCount; f++) {
        const std::int32_t width = block.fields[f].width;
        const char *name = ctx.dictionary->strings[block.fields[f].nameId];
        const auto room = static_cast<std::size_t>(width) + 1;
        const memory::Owned<char> buffer(static_cast<char *>(memory::allocate(room)));
        if (!buffer || name == nullptr ||
            !dk_GetField(&ctx, form, docIndex, tagName, recordIndex, name, buffer.get(), width + 1) ||
            !write_text(out, {buffer.get(), room}))
            return false;
    }
    return write_tag(out, tag::close_start, tagName, tag::end);
}

// The records of one block reference as write_block_record writes them, with the store walked
// directly: dk_GetField's lookups are made once per block instead of once per field (nothing in a
// save interns or removes a string, so they answer the same for every record), and each field is
// then what dk_GetField would give: the same cursor moves, saves, reopenings and spool reads in
// the same order, the same bytes and the same stops (docs/decisions.md, interchange/writer).
class BlockWalk {
public:
    BlockWalk(dk_Context &ctx, const store::Target &document, const dk_dfBlock &block, const char *tagName) noexcept
        : ctx_(ctx), document_(document), block_(block), tagName_(tagName)
    {
    }

    // Blocks with more fields than the walk keeps positions for go field by field through dk_GetField.
    bool fits() const noexcept { return block_.fieldCount >= 0 && static_cast<std::size_t>(block_.fieldCount) <= max_fields; }

    bool write_record(std::int32_t recordIndex, Sink &out) noexcept
    {
        if (!write_tag(out, tag::start, tagName_, tag::end))
            return false;
        for (std::int32_t f = 0; f < block_.fieldCount; f++) {
            std::string_view text;
            bool plain = false;
            if (!find(f) || !field_text(recordIndex, f, text, plain) || !(plain ? out.put_plain(text) : out.put(text)) ||
                !out.end_line())
                return false;
        }
        return write_tag(out, tag::close_start, tagName_, tag::end);
    }

    static constexpr std::size_t max_fields = 512;

private:
    // The block lookup of dk_GetField: tag to ID to the form's first reference with that tag.
    bool find_block() noexcept
    {
        if (blockFound_)
            return true;
        store::Target &t = target_;
        t = document_;
        if (!store::find_block(ctx_, tagName_, t))
            return false;
        blockFound_ = true;
        return true;
    }

    // The field lookup of dk_GetField for field f of the reference's block, by its name.
    bool find(std::int32_t f) noexcept
    {
        const auto index = static_cast<std::size_t>(f);
        if (f < known_)
            return positions_[index] >= 0;
        const char *name = ctx_.dictionary->strings[block_.fields[f].nameId];
        if (name == nullptr || !find_block())
            return false;
        const std::optional<std::int32_t> position = store::find_field(ctx_, name, target_);
        positions_[index] = position.value_or(-1);
        known_ = f + 1;
        return position.has_value();
    }

    // What dk_GetField(ctx, form, doc, tag, recordIndex, name, out, width + 1) puts in `out`.
    // `plain` tells that the text was just cut from a record buffered whole: no LF, no NUL.
    bool field_text(std::int32_t recordIndex, std::int32_t f, std::string_view &text, bool &plain) noexcept
    {
        plain = false;
        const store::Target &t = target_;
        dk_lfBlock &store = *t.store;
        // dk_GetField refuses a buffer below one byte; the walk has none to allocate.
        if (block_.fields[f].width < 0)
            return false;
        if (recordIndex < 0 || recordIndex >= store.recordCount)
            return false;
        const std::int32_t position = positions_[static_cast<std::size_t>(f)];
        dk_lfField &slot = store.fields[position];
        if (t.repeating && recordIndex != store.currentRecord) {
            if (!store::move_cursor(*t.document, store, *t.block, recordIndex) ||
                !store::read_field(store, *t.block, position))
                return false;
        } else if (!slot.loaded) {
            std::size_t taken = 0;
            if (store::take_whole_field(store, *t.block, slot, t.block->fields[position], &taken)) {
                // Its NUL stands at `taken`, within the width, and no NUL before it.
                text = {slot.text, taken};
                plain = true;
                return true;
            }
            if (store.file == nullptr && !store::open_store(*t.document, store))
                return false;
            if (!store::read_field(store, *t.block, position))
                return false;
        }
        // What the field buffer of width + 1 bytes held: the text up to its NUL, at most the width.
        const auto width = static_cast<std::size_t>(block_.fields[f].width);
        const auto slotBytes = static_cast<std::size_t>(t.block->fields[position].width) + 1;
        const auto *nul = static_cast<const char *>(std::memchr(slot.text, '\0', std::min(width, slotBytes)));
        const std::size_t length = nul != nullptr ? static_cast<std::size_t>(nul - slot.text) : std::min(width, slotBytes);
        text = {slot.text, length};
        return true;
    }

    dk_Context &ctx_;
    const store::Target &document_;
    const dk_dfBlock &block_;
    const char *tagName_;
    store::Target target_;
    bool blockFound_ = false;
    std::int32_t known_ = 0;  // fields looked up so far, in order
    std::array<std::int32_t, max_fields> positions_{};
};

bool write_prolog(dk_Context &ctx, Sink &out) noexcept
{
    // The three lines lie side by side; an unterminated one runs on but stops at the last.
    return write_record(out, bytes_of(ctx.prolog), prolog_lines);
}

bool write_header(dk_Context &ctx, Sink &out) noexcept
{
    return write_line(out, tag::navo_open) && write_line(out, tag::file_header_open) &&
           write_record(out, bytes_of(ctx.header), file_header_lines) && write_line(out, tag::file_header_close);
}

bool write_footer(dk_Context &ctx, Sink &out) noexcept
{
    return write_line(out, tag::file_footer_open) && write_error_notes(out, ctx.footer.notes, ctx.footer.noteCount) &&
           write_line(out, tag::file_footer_close) && write_line(out, tag::navo_close);
}

// dk_SaveDocument.
bool save_document(dk_Context *ctx, const char *form, std::int32_t docIndex, Sink &out, std::int32_t envelope) noexcept
{
    store::Target target;
    if (!store::find_form(ctx, form, target) || target.form == nullptr || !store::find_document(target, docIndex) ||
        target.document->blockCount < target.form->refCount)
        return false;
    dk_Document &document = *target.document;
    if (envelope != 0 && !kinds_valid(document.footer))
        return false;
    if (envelope != 0) {
        if (!write_tag(out, tag::start, form, tag::section_suffix) || !write_line(out, tag::doc_header_open) ||
            !write_record(out, bytes_of(document.header), doc_header_lines) ||
            !write_line(out, tag::doc_header_close))
            return false;
    }
    if (!write_tag(out, tag::start, form, tag::end))
        return false;
    for (int32_t r = 0; r < target.form->refCount; r++) {
        const dk_dfBlock &block = target.definition->blocks[target.form->refs[r].blockIndex];
        const char *tagName = ctx->dictionary->strings[block.tagId];
        // Field access adds and removes no document, so the document stays where it is.
        const int32_t recordCount = document.blocks[r]->recordCount;
        if (tagName == nullptr)
            return false;
        BlockWalk walk(*ctx, target, block, tagName);
        for (int32_t record = 0; record < recordCount; record++) {
            const bool written = walk.fits() ? walk.write_record(record, out)
                                             : write_block_record(*ctx, form, docIndex, block, tagName, record, out);
            if (!written)
                return false;
        }
    }
    if (!write_tag(out, tag::close_start, form, tag::end))
        return false;
    if (envelope == 0)
        return true;
    return write_line(out, tag::doc_footer_open) &&
           write_ocr_notes(out, document.footer.ocrNotes, document.footer.ocrCount) &&
           write_error_notes(out, document.footer.errorNotes, document.footer.errorCount) &&
           write_line(out, tag::doc_footer_close) && write_tag(out, tag::close_start, form, tag::section_suffix);
}

// Every document of the context, form by form in the order of the definition.
bool write_all_documents(dk_Context &ctx, Sink &out, std::int32_t envelope) noexcept
{
    if (ctx.documentLists == nullptr || ctx.dictionary == nullptr)
        return true;
    for (std::int32_t i = 0; i < ctx.formCount; i++) {
        // Dictionary slot i holds the name of form i. Nothing in a save interns or removes a
        // string, so the slot is used as it is, without a copy.
        const char *name = i < ctx.dictionary->count ? ctx.dictionary->strings[i] : nullptr;
        if (ctx.documentLists[i].count <= 0)
            continue;
        if (name == nullptr)
            return false;
        for (std::int32_t d = 0; d < ctx.documentLists[i].count; d++) {
            if (!save_document(&ctx, name, d, out, envelope))
                return false;
        }
    }
    return true;
}

// The whole file, or with `envelope` 0 the bodies alone: what dk_SaveNAVO writes.
bool write_whole(dk_Context &ctx, Sink &out, std::int32_t envelope) noexcept
{
    return (envelope == 0 || (write_prolog(ctx, out) && write_header(ctx, out))) &&
           write_all_documents(ctx, out, envelope) && (envelope == 0 || write_footer(ctx, out));
}

// One step to a host's binary stream through a buffer of the writer's own, handed to the stream
// before the step returns: what was written before a failure reaches the stream too, as with
// dk_SaveNAVO's file.
template <class Step>
bool write_through_buffer(std::FILE *file, const Step &step) noexcept
{
    if (file == nullptr)
        return false;
    std::array<char, save_buffer_size> buffer;
    Sink out(file, buffer);
    const bool written = step(out);
    return out.flush() && written;
}

}  // namespace

bool write_head(dk_Context &ctx, std::FILE *file) noexcept
{
    return write_through_buffer(file, [&](Sink &out) { return write_prolog(ctx, out) && write_header(ctx, out); });
}

bool write_document(dk_Context &ctx, const char *form, std::int32_t docIndex, std::FILE *file) noexcept
{
    return write_through_buffer(file, [&](Sink &out) { return save_document(&ctx, form, docIndex, out, 1); });
}

bool write_tail(dk_Context &ctx, std::FILE *file) noexcept
{
    return write_through_buffer(file, [&](Sink &out) { return write_footer(ctx, out); });
}

bool write_file(dk_Context &ctx, std::FILE *file) noexcept
{
    return write_through_buffer(file, [&](Sink &out) { return write_whole(ctx, out, 1); });
}

}  // namespace navo::interchange

extern "C" {

NAVO_API int32_t NAVO_CALL dk_OpenFileforSave(FILE **out, const char *path) noexcept
{
    if (out == nullptr)
        return 0;
    *out = nullptr;
    if (path == nullptr)
        return 0;
    *out = navo::platform::open_text_stream(path, "wt").release();
    return *out != nullptr;
}

NAVO_API int32_t NAVO_CALL dk_SaveProlog(dk_Context *ctx, FILE *stream) noexcept
{
    if (ctx == nullptr || stream == nullptr)
        return 0;
    navo::interchange::Sink out(stream);
    return navo::interchange::write_prolog(*ctx, out) ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_SaveHeader(dk_Context *ctx, FILE *stream) noexcept
{
    if (ctx == nullptr || stream == nullptr)
        return 0;
    navo::interchange::Sink out(stream);
    return navo::interchange::write_header(*ctx, out) ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_SaveDocument(dk_Context *ctx, const char *form, int32_t docIndex, FILE *stream,
                                          int32_t envelope) noexcept
{
    if (stream == nullptr)
        return 0;
    navo::interchange::Sink out(stream);
    return navo::interchange::save_document(ctx, form, docIndex, out, envelope) ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_SaveFooter(dk_Context *ctx, FILE *stream) noexcept
{
    if (ctx == nullptr || stream == nullptr)
        return 0;
    navo::interchange::Sink out(stream);
    return navo::interchange::write_footer(*ctx, out) ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_CloseFile(FILE *stream) noexcept
{
    // A null stream is no stream to close (outside the contract); any real close gives 1.
    if (stream == nullptr)
        return 0;
    static_cast<void>(std::fclose(stream));
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_SaveNAVO(dk_Context *ctx, const char *path, int32_t envelope) noexcept
{
    using namespace navo::interchange;
    if (ctx == nullptr || path == nullptr)
        return 0;
    // The file is created or emptied as the text-mode open of dk_OpenFileforSave does; the
    // translation is the sink's.
    const navo::platform::File file(std::fopen(path, "wb"));
    if (!file)
        return 0;
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    std::array<char, save_buffer_size> buffer;
    Sink out(file.get(), buffer);
    const bool ok = write_whole(*ctx, out, envelope);
    // The last buffered text goes to the file at the close, whose result is not examined.
    static_cast<void>(out.flush());
    return ok ? 1 : 0;
}

}  // extern "C"
