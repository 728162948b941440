// interchange/writer.cpp - the file writer: envelope records and documents out to a NAVO file.
#include "interchange/writer.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string_view>

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

bool put(std::FILE *stream, std::string_view text) noexcept
{
    return std::fwrite(text.data(), 1, text.size(), stream) == text.size();
}

// A literal of the format on a line of its own.
bool write_line(std::FILE *stream, std::string_view literal) noexcept
{
    return put(stream, literal) && std::fputc('\n', stream) != EOF;
}

// A tag built from a name: start + name + end, as "<" X ".DP>" or "</" T ">".
bool write_tag(std::FILE *stream, std::string_view start, std::string_view name, std::string_view end) noexcept
{
    return put(stream, start) && put(stream, name) && put(stream, end) && std::fputc('\n', stream) != EOF;
}

// The texts of an envelope record, a line each, in the order of the format's table.
bool write_record(std::FILE *stream, std::span<const char> record, std::span<const Line> lines) noexcept
{
    const std::size_t recordEnd = lines.back().member + static_cast<std::size_t>(lines.back().width) + 1;
    return std::all_of(lines.begin(), lines.end(), [&](const Line &line) {
        return write_text(stream, record.subspan(line.member, recordEnd - line.member));
    });
}

bool write_error_notes(std::FILE *stream, const dk_ErrorNote *notes, std::int32_t count) noexcept
{
    for (std::int32_t i = 0; i < count && notes != nullptr; i++) {
        if (!write_line(stream, tag::error_open) || !write_record(stream, bytes_of(notes[i]), error_note_lines) ||
            !write_line(stream, tag::error_close))
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

bool write_ocr_notes(std::FILE *stream, const dk_OcrNote *notes, std::int32_t count) noexcept
{
    for (std::int32_t i = 0; i < count && notes != nullptr; i++) {
        const std::string_view letters = ocr_kind_letters[static_cast<std::size_t>(notes[i].kind)];
        if (!write_tag(stream, tag::ocr_open_prefix, letters, tag::end) ||
            !write_record(stream, bytes_of(notes[i]), ocr_note_lines) ||
            !write_tag(stream, tag::ocr_close_prefix, letters, tag::end))
            return false;
    }
    return true;
}

// One record of one block: the tag and each field as dk_GetField gives it, which moves the
// cursor of a repeating block and so saves its cached changes on the way.
bool write_block_record(dk_Context &ctx, const char *form, std::int32_t docIndex, const dk_dfBlock &block,
                        const char *tagName, std::int32_t recordIndex, std::FILE *stream) noexcept
{
    if (!write_tag(stream, tag::start, tagName, tag::end))
        return false;
    for (std::int32_t f = 0; f < block.fieldCount; f++) {
        const std::int32_t width = block.fields[f].width;
        const char *name = ctx.dictionary->strings[block.fields[f].nameId];
        const auto room = static_cast<std::size_t>(width) + 1;
        const memory::Owned<char> buffer(static_cast<char *>(memory::allocate(room)));
        if (!buffer || name == nullptr ||
            !dk_GetField(&ctx, form, docIndex, tagName, recordIndex, name, buffer.get(), width + 1) ||
            !write_text(stream, {buffer.get(), room}))
            return false;
    }
    return write_tag(stream, tag::close_start, tagName, tag::end);
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

    bool write_record(std::int32_t recordIndex, std::FILE *stream) noexcept
    {
        if (!write_tag(stream, tag::start, tagName_, tag::end))
            return false;
        for (std::int32_t f = 0; f < block_.fieldCount; f++) {
            if (!find(f) || !field(recordIndex, f, stream))
                return false;
        }
        return write_tag(stream, tag::close_start, tagName_, tag::end);
    }

    // The same record assembled in a buffer and handed to the stream in one write: only for the
    // library's own stream of dk_SaveNAVO (docs/decisions.md, interchange/writer).
    bool write_record_at_once(std::int32_t recordIndex, std::FILE *stream) noexcept
    {
        Assembled out(stream);
        if (!out.add(tag::start) || !out.add(tagName_) || !out.add(tag::end) || !out.add("\n"))
            return false;
        for (std::int32_t f = 0; f < block_.fieldCount; f++) {
            std::string_view text;
            if (!find(f) || !field_text(recordIndex, f, text) || !out.add(text) || !out.add("\n"))
                return false;
        }
        return out.add(tag::close_start) && out.add(tagName_) && out.add(tag::end) && out.add("\n") && out.flush();
    }

    static constexpr std::size_t max_fields = 512;

private:
    // Bytes gathered for one write; a record larger than the buffer goes in several.
    class Assembled {
    public:
        explicit Assembled(std::FILE *stream) noexcept : stream_(stream) {}
        bool add(std::string_view text) noexcept
        {
            while (!text.empty()) {
                if (used_ == bytes_.size() && !flush())
                    return false;
                const std::size_t part = std::min(text.size(), bytes_.size() - used_);
                std::memcpy(bytes_.data() + used_, text.data(), part);
                used_ += part;
                text.remove_prefix(part);
            }
            return true;
        }
        bool flush() noexcept
        {
            const bool ok = put(stream_, {bytes_.data(), used_});
            used_ = 0;
            return ok;
        }

    private:
        std::FILE *stream_;
        std::size_t used_ = 0;
        std::array<char, 4096> bytes_;
    };

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

    // dk_GetField(ctx, form, doc, tag, recordIndex, name, out, width + 1), then the text and LF.
    bool field(std::int32_t recordIndex, std::int32_t f, std::FILE *stream) noexcept
    {
        std::string_view text;
        return field_text(recordIndex, f, text) && put(stream, text) && std::fputc('\n', stream) != EOF;
    }

    // What dk_GetField(ctx, form, doc, tag, recordIndex, name, out, width + 1) puts in `out`.
    bool field_text(std::int32_t recordIndex, std::int32_t f, std::string_view &text) noexcept
    {
        const store::Target &t = target_;
        dk_lfBlock &store = *t.store;
        // dk_GetField refuses a buffer below one byte; the walk has none to allocate.
        if (block_.fields[f].width < 0)
            return false;
        if (recordIndex < 0 || recordIndex >= store.recordCount)
            return false;
        const std::int32_t position = positions_[static_cast<std::size_t>(f)];
        const dk_lfField &slot = store.fields[position];
        if (t.repeating && recordIndex != store.currentRecord) {
            if (!store::move_cursor(*t.document, store, *t.block, recordIndex) ||
                !store::read_field(store, *t.block, position))
                return false;
        } else if (!slot.loaded) {
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

// Every document of the context, form by form in the order of the definition.
bool write_all_documents(dk_Context &ctx, std::FILE *stream, std::int32_t envelope) noexcept
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
            if (!save_document(&ctx, name, d, stream, envelope, true))
                return false;
        }
    }
    return true;
}

}  // namespace

bool write_text(std::FILE *stream, std::span<const char> text) noexcept
{
    const std::string_view line = text_of(text);
    return put(stream, line) && std::fputc('\n', stream) != EOF;
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
    using namespace navo::interchange;
    if (ctx == nullptr || stream == nullptr)
        return 0;
    // The three lines lie side by side; an unterminated one runs on but stops at the last.
    return write_record(stream, bytes_of(ctx->prolog), prolog_lines);
}

NAVO_API int32_t NAVO_CALL dk_SaveHeader(dk_Context *ctx, FILE *stream) noexcept
{
    using namespace navo::interchange;
    if (ctx == nullptr || stream == nullptr)
        return 0;
    return write_line(stream, tag::navo_open) && write_line(stream, tag::file_header_open) &&
           write_record(stream, bytes_of(ctx->header), file_header_lines) &&
           write_line(stream, tag::file_header_close);
}

}  // extern "C"

namespace navo::interchange {

// dk_SaveDocument; `ownStream` is true only for the stream dk_SaveNAVO opened itself.
bool save_document(dk_Context *ctx, const char *form, std::int32_t docIndex, std::FILE *stream, std::int32_t envelope,
                   bool ownStream) noexcept
{
    store::Target target;
    if (stream == nullptr || !store::find_form(ctx, form, target) || target.form == nullptr ||
        !store::find_document(target, docIndex) || target.document->blockCount < target.form->refCount)
        return 0;
    dk_Document &document = *target.document;
    if (envelope != 0 && !kinds_valid(document.footer))
        return 0;
    if (envelope != 0) {
        if (!write_tag(stream, tag::start, form, tag::section_suffix) || !write_line(stream, tag::doc_header_open) ||
            !write_record(stream, bytes_of(document.header), doc_header_lines) ||
            !write_line(stream, tag::doc_header_close))
            return 0;
    }
    if (!write_tag(stream, tag::start, form, tag::end))
        return 0;
    for (int32_t r = 0; r < target.form->refCount; r++) {
        const dk_dfBlock &block = target.definition->blocks[target.form->refs[r].blockIndex];
        const char *tagName = ctx->dictionary->strings[block.tagId];
        // Field access adds and removes no document, so the document stays where it is.
        const int32_t recordCount = document.blocks[r]->recordCount;
        if (tagName == nullptr)
            return 0;
        BlockWalk walk(*ctx, target, block, tagName);
        for (int32_t record = 0; record < recordCount; record++) {
            const bool written = !walk.fits() ? write_block_record(*ctx, form, docIndex, block, tagName, record, stream)
                                 : ownStream  ? walk.write_record_at_once(record, stream)
                                              : walk.write_record(record, stream);
            if (!written)
                return 0;
        }
    }
    if (!write_tag(stream, tag::close_start, form, tag::end))
        return 0;
    if (envelope == 0)
        return 1;
    return write_line(stream, tag::doc_footer_open) &&
           write_ocr_notes(stream, document.footer.ocrNotes, document.footer.ocrCount) &&
           write_error_notes(stream, document.footer.errorNotes, document.footer.errorCount) &&
           write_line(stream, tag::doc_footer_close) && write_tag(stream, tag::close_start, form, tag::section_suffix);
}

}  // namespace navo::interchange

extern "C" {

NAVO_API int32_t NAVO_CALL dk_SaveDocument(dk_Context *ctx, const char *form, int32_t docIndex, FILE *stream,
                                          int32_t envelope) noexcept
{
    return navo::interchange::save_document(ctx, form, docIndex, stream, envelope, false) ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_SaveFooter(dk_Context *ctx, FILE *stream) noexcept
{
    using namespace navo::interchange;
    if (ctx == nullptr || stream == nullptr)
        return 0;
    return write_line(stream, tag::file_footer_open) &&
           write_error_notes(stream, ctx->footer.notes, ctx->footer.noteCount) &&
           write_line(stream, tag::file_footer_close) && write_line(stream, tag::navo_close);
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
    FILE *opened = nullptr;
    if (ctx == nullptr || !dk_OpenFileforSave(&opened, path))
        return 0;
    // Closed on success and failure alike; what the close reports is not examined.
    const navo::platform::File stream(opened);
    const bool ok = (envelope == 0 || (dk_SaveProlog(ctx, stream.get()) && dk_SaveHeader(ctx, stream.get()))) &&
                    navo::interchange::write_all_documents(*ctx, stream.get(), envelope) &&
                    (envelope == 0 || dk_SaveFooter(ctx, stream.get()));
    return ok ? 1 : 0;
}

}  // extern "C"
