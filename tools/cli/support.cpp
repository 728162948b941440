// support.cpp - output files, the progress bar, form definitions, messages and the document walk.
#include "common.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <filesystem>
#include <mutex>
#include <thread>

#include <fmt/format.h>

namespace navo_cli {

GlobalOptions globalOptions;

// ---- output ------------------------------------------------------------------------------

Output::Output(const std::string &path) : path_(path)
{
    if (path.empty() || path == "-") {
        stream_ = stdout;
        return;
    }
    temp_ = createTempBeside(path);
    stream_ = std::fopen(temp_.c_str(), "wb");
    if (stream_ == nullptr) {
        std::remove(temp_.c_str());
        throw Failure(kExitUsage, fmt::format("{}: cannot be written", path));
    }
    buffer_.resize(1 << 16);
    std::setvbuf(stream_, buffer_.data(), _IOFBF, buffer_.size());
}

Output::~Output()
{
    if (!temp_.empty() && !committed_) {
        if (stream_ != nullptr)
            std::fclose(stream_);
        std::remove(temp_.c_str());
    }
}

void Output::write(std::string_view text)
{
    if (!text.empty() && std::fwrite(text.data(), 1, text.size(), stream_) != text.size())
        throw Failure(kExitUsage, fmt::format("{}: write failed", path_.empty() ? "stdout" : path_));
}

void Output::commit()
{
    if (temp_.empty()) {
        if (std::fflush(stream_) != 0 || std::ferror(stream_))
            throw Failure(kExitUsage, "stdout: write failed");
        return;
    }
    bool ok = std::fflush(stream_) == 0 && !std::ferror(stream_);
    ok = std::fclose(stream_) == 0 && ok;
    stream_ = nullptr;
    if (!ok)
        throw Failure(kExitUsage, fmt::format("{}: write failed", path_));
    std::error_code error;
    std::filesystem::rename(temp_, path_, error);
    if (error)
        throw Failure(kExitUsage, fmt::format("{}: cannot be written ({})", path_, error.message()));
    committed_ = true;
}

// ---- progress ----------------------------------------------------------------------------

struct Progress::State {
    std::function<std::pair<int64_t, int64_t>()> source;
    std::mutex mutex;
    std::condition_variable wake;
    bool stop = false;
    int shown = -1;
    std::thread thread;

    void draw(int percent)
    {
        if (percent == shown)
            return;
        shown = percent;
        constexpr int width = 40;
        int filled = percent * width / 100;
        std::fprintf(stderr, "\r[%s%s] %3d %%", std::string(static_cast<size_t>(filled), '#').c_str(),
                     std::string(static_cast<size_t>(width - filled), ' ').c_str(), percent);
        std::fflush(stderr);
    }
    int percent()
    {
        auto [done, total] = source();
        if (total <= 0)
            return 0;
        return static_cast<int>(std::clamp<int64_t>(done * 100 / total, 0, 99));
    }
};

Progress::Progress(std::function<std::pair<int64_t, int64_t>()> source)
{
    if (globalOptions.noProgress || !stderrIsTerminal())
        return;
    state_ = std::make_unique<State>();
    state_->source = std::move(source);
    state_->thread = std::thread([s = state_.get()] {
        std::unique_lock lock(s->mutex);
        while (!s->wake.wait_for(lock, std::chrono::milliseconds(100), [s] { return s->stop; }))
            s->draw(s->percent());
    });
}

void Progress::finish()
{
    if (!state_)
        return;
    {
        std::lock_guard lock(state_->mutex);
        state_->stop = true;
    }
    state_->wake.notify_all();
    state_->thread.join();
    if (state_->shown >= 0) { // a short input that never showed a bar shows none at its end
        state_->draw(100);
        std::fputc('\n', stderr);
    }
    state_.reset();
}

Progress::~Progress()
{
    if (state_) {
        {
            std::lock_guard lock(state_->mutex);
            state_->stop = true;
        }
        state_->wake.notify_all();
        state_->thread.join();
        if (state_->shown >= 0)
            std::fputc('\n', stderr);
    }
}

std::pair<int64_t, int64_t> libraryLines()
{
    // The library raises these as it reads; a torn read only shows a stale percentage.
    return {*static_cast<volatile int32_t *>(&i_lNumerLinii), *static_cast<volatile int32_t *>(&i_lLinii)};
}

// ---- definitions -------------------------------------------------------------------------

const FieldDef *BlockDef::field(std::string_view fieldName) const
{
    for (const auto &f : fields)
        if (f.name == fieldName)
            return &f;
    return nullptr;
}

const BlockDef *FormDef::block(std::string_view tag) const
{
    int p = position(tag);
    return p < 0 ? nullptr : &blocks[static_cast<size_t>(p)];
}

int FormDef::position(std::string_view tag) const
{
    for (size_t i = 0; i < blocks.size(); i++)
        if (blocks[i].tag == tag)
            return static_cast<int>(i);
    return -1;
}

const FormDef *Schema::form(std::string_view name) const
{
    for (const auto &f : forms)
        if (f.name == name)
            return &f;
    return nullptr;
}

namespace {

std::map<std::string, Schema> &schemas()
{
    static std::map<std::string, Schema> loaded;
    return loaded;
}

// The forms of a loaded definition as the tool keeps them; reads memory only, so it may run
// inside a load's callback.
const Schema &keepSchema(const std::string &version, const dk_Context *ctx)
{
    Schema schema;
    schema.version = version;
    // Block names live only in the text: the n-th block header "<Name, TAG>" is the n-th block.
    std::vector<std::string> blockNames;
    std::string_view text = version == "1.3" ? GetDefTXT_1_3() : GetDefTXT_1_2();
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        std::string_view line = text.substr(at, end == std::string_view::npos ? std::string_view::npos : end - at);
        if (!line.empty() && line[0] == '<')
            blockNames.emplace_back(line.substr(1, line.find(',') - 1));
        at = end == std::string_view::npos ? text.size() : end + 1;
    }
    const dk_dfDefinition &def = ctx->definitions->items[0];
    const char *const *strings = ctx->dictionary->strings;
    for (int32_t i = 0; i < def.formCount; i++) {
        const dk_dfForm &form = def.forms[i];
        FormDef f;
        f.name = strings[form.id];
        for (int32_t r = 0; r < form.refCount; r++) {
            const dk_dfBlock &block = def.blocks[form.refs[r].blockIndex];
            BlockDef b;
            b.tag = strings[block.tagId];
            auto index = static_cast<size_t>(form.refs[r].blockIndex);
            b.name = index < blockNames.size() ? blockNames[index] : "";
            b.repeating = form.refs[r].occurrence == -1;
            b.recordLength = block.recordLength;
            for (int32_t k = 0; k < block.fieldCount; k++)
                b.fields.push_back({strings[block.fields[k].nameId], block.fields[k].offset, block.fields[k].width});
            f.blocks.push_back(std::move(b));
        }
        schema.forms.push_back(std::move(f));
    }
    return schemas().insert_or_assign(version, std::move(schema)).first->second;
}

} // namespace

const Schema &schemaFor(const std::string &version)
{
    auto found = schemas().find(version);
    if (found != schemas().end())
        return found->second;
    if (version != "1.3" && version != "1.2")
        throw Failure(kExitUsage, fmt::format("unknown definition version '{}' (1.3 or 1.2)", version));
    dk_Context *ctx = nullptr;
    if (!dk_Init(&ctx) ||
        !dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, version == "1.3" ? GetDefTXT_1_3() : GetDefTXT_1_2())) {
        releaseContext(ctx);
        throw Failure(kExitUsage, "the embedded definitions cannot be loaded");
    }
    const Schema &schema = keepSchema(version, ctx);
    releaseContext(ctx);
    return schema;
}

std::string versionOfPrologLine(std::string_view versionLine)
{
    auto at = versionLine.find("wersja ");
    if (at != std::string_view::npos && versionLine.substr(at + 8, 7) == "001.300")
        return "1.3";
    return "1.2";
}

const char *ocrKindTag(int kind)
{
    static const char *const tags[] = {"a", "z", "l", "l2"};
    return kind >= 0 && kind < 4 ? tags[kind] : "a";
}

// ---- messages and text helpers -----------------------------------------------------------

std::string libraryMessage(int code)
{
    char message[256] = {};
    dk_GetNAVOErrorMessage(code, message, static_cast<int32_t>(sizeof message));
    return toUtf8(message, Encoding::Cp1250);
}

std::string englishMessage(int code)
{
    static const char *const messages[] = {
        "no error",
        "bad NAVO file format: this is not a NAVO file",
        "the NAVO file cannot be opened",
        "read error: unexpected end of file, or a text of the wrong length",
        "bad file format: another element was expected",
        "bad document format: a section failed to load",
        "a block the form's definition does not have, or out of order",
        "wrong block size",
        "system error: the document could not be created",
        "out of memory",
        "cancelled",
    };
    return code >= 0 && code <= 10 ? messages[code] : "unknown error";
}

std::string_view trimRight(std::string_view text)
{
    size_t end = text.find_last_not_of(' ');
    return end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
}

std::string jsonString(std::string_view utf8)
{
    std::string out;
    out.reserve(utf8.size() + 2);
    appendJsonString(out, utf8);
    return out;
}

void appendJsonString(std::string &out, std::string_view utf8)
{
    static constexpr auto escaped = [] {
        std::array<bool, 256> table{};
        for (int c = 0; c < 0x20; c++)
            table[static_cast<size_t>(c)] = true;
        table['"'] = table['\\'] = table[0x7F] = true;
        return table;
    }();
    out += '"';
    // Runs that need no escape go in one append; field values are mostly such runs.
    size_t start = 0;
    for (size_t i = 0; i < utf8.size(); i++) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        if (!escaped[c])
            continue;
        out.append(utf8.data() + start, i - start);
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
    out.append(utf8.data() + start, utf8.size() - start);
    out += '"';
}

std::string csvField(std::string_view utf8)
{
    if (utf8.find_first_of(",\"\r\n") == std::string_view::npos)
        return std::string(utf8);
    std::string out = "\"";
    for (char ch : utf8) {
        if (ch == '"')
            out += '"';
        out += ch;
    }
    out += '"';
    return out;
}

void releaseContext(dk_Context *&ctx)
{
    if (ctx == nullptr)
        return;
    if (ctx->formCount == 0) {
        if (ctx->definitions->count == 0)
            dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, GetDefTXT_1_3());
        dk_InitDocuments(ctx, 1);
    }
    dk_Destroy(&ctx);
    ctx = nullptr;
}

// ---- document walk -----------------------------------------------------------------------

DocumentView::DocumentView(dk_Context *ctx, const char *form, int32_t docIndex, const FormDef &def, int number)
    : ctx_(ctx), form_(form), docIndex_(docIndex), def_(def), number_(number)
{
}

std::vector<std::string> DocumentView::header() const
{
    dk_DocHeader *h = nullptr;
    if (!dk_GetDocHeader(ctx_, form_.c_str(), docIndex_, &h))
        return std::vector<std::string>(14);
    return {h->line1, h->line2, h->line3, h->line4, h->line5, h->line6, h->line7,
            h->line8, h->line9, h->line10, h->line11, h->line12, h->line13, h->line14};
}

NoteList DocumentView::notes() const
{
    NoteList notes;
    dk_DocFooter *footer = nullptr;
    if (!dk_GetDocFooter(ctx_, form_.c_str(), docIndex_, &footer))
        return notes;
    for (int32_t i = 0; i < footer->ocrCount; i++) {
        const dk_OcrNote &n = footer->ocrNotes[i];
        notes.ocr.push_back({n.kind, {n.text1, n.text2, n.text3, n.text4, n.text5, n.text6}});
    }
    for (int32_t i = 0; i < footer->errorCount; i++) {
        const dk_ErrorNote &n = footer->errorNotes[i];
        notes.errors.push_back({n.text1, n.text2, n.text3, n.text4});
    }
    return notes;
}

int32_t DocumentView::recordCount(const BlockDef &block) const
{
    int32_t count = 1;
    if (block.repeating && !dk_GetBlockCount(ctx_, form_.c_str(), docIndex_, block.tag.c_str(), &count))
        count = 1;
    return count;
}

void DocumentView::record(const BlockDef &block, int32_t recordIndex, std::vector<std::string> &values) const
{
    values.resize(block.fields.size());
    for (size_t i = 0; i < block.fields.size(); i++) {
        const FieldDef &field = block.fields[i];
        buffer_.resize(static_cast<size_t>(field.width) + 1);
        if (!dk_GetField(ctx_, form_.c_str(), docIndex_, block.tag.c_str(), recordIndex, field.name.c_str(),
                         buffer_.data(), static_cast<int32_t>(buffer_.size())))
            throw Failure(kExitUsage, fmt::format("document {}: field {}.{} cannot be read", number_, block.tag,
                                                  field.name));
        values[i].assign(buffer_.data(), std::strlen(buffer_.data()));
    }
}

namespace {

struct Walk {
    Visitor *visitor = nullptr;
    FileInfo info;
    bool begun = false;
    int documents = 0;
    std::exception_ptr error;
};
Walk *currentWalk = nullptr;

void fillInfo(dk_Context *ctx, FileInfo &info)
{
    info.prolog = {ctx->prolog.doctypeLine, ctx->prolog.versionLine, ctx->prolog.encodingLine};
    info.header = {ctx->header.line1, ctx->header.line2, ctx->header.line3, ctx->header.line4, ctx->header.line5};
    info.version = versionOfPrologLine(ctx->prolog.versionLine);
}

int32_t NAVO_CALL onDocument(dk_Context *ctx, const char *form, int32_t docIndex)
{
    Walk &walk = *currentWalk;
    try {
        if (!walk.begun) {
            fillInfo(ctx, walk.info);
            walk.begun = true;
            walk.visitor->begin(walk.info);
        }
        auto known = schemas().find(walk.info.version);
        const Schema &schema = known != schemas().end() ? known->second : keepSchema(walk.info.version, ctx);
        const FormDef *def = schema.form(form);
        if (def == nullptr)
            throw Failure(kExitUsage, fmt::format("form {} is not in the definitions", form));
        DocumentView view(ctx, form, docIndex, *def, ++walk.documents);
        walk.visitor->document(view);
        return 0;
    } catch (...) {
        walk.error = std::current_exception();
        return 1; // stops the load
    }
}

} // namespace

void walkFile(const std::string &path, Visitor &visitor)
{
    requireRegularFile(path);
    Walk walk;
    walk.visitor = &visitor;
    walk.info.path = path;
    dk_Context *ctx = nullptr;
    if (!dk_Init(&ctx))
        throw Failure(kExitUsage, "out of memory");
    std::unique_ptr<dk_Context *, void (*)(dk_Context **)> guard(&ctx, [](dk_Context **c) { releaseContext(*c); });
    currentWalk = &walk;
    dk_UstawCallBack(onDocument);
    int32_t result;
    {
        Progress progress(libraryLines);
        result = dk_LoadNAVO(ctx, path.c_str());
        if (result == 1)
            progress.finish();
    }
    dk_UstawCallBack(nullptr);
    currentWalk = nullptr;
    if (walk.error)
        std::rethrow_exception(walk.error);
    if (result != 1) {
        int code = dk_GetNAVOError();
        throw Failure(code == 2 ? kExitUsage : kExitInvalid,
                      fmt::format("{}: invalid at line {}: code {}, {} ({}); `navo validate` tells more", path,
                                  dk_GetNAVOLine(), code, englishMessage(code), libraryMessage(code)));
    }
    if (!walk.begun) {
        fillInfo(ctx, walk.info);
        visitor.begin(walk.info);
    }
    std::vector<std::vector<std::string>> fileNotes;
    for (int32_t i = 0; i < ctx->footer.noteCount; i++) {
        const dk_ErrorNote &n = ctx->footer.notes[i];
        fileNotes.push_back({n.text1, n.text2, n.text3, n.text4});
    }
    visitor.end(walk.info, fileNotes);
}

} // namespace navo_cli
