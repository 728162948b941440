// front/reader.cpp - one load at a time through load_file: the lock, the hooks, the result.
#include "front/reader.hpp"

#include <atomic>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "core/status.hpp"
#include "front/content_checks.hpp"
#include "front/guard.hpp"
#include "front/messages.hpp"
#include "front/places.hpp"
#include "front/schema.hpp"
#include "front/text_out.hpp"
#include "interchange/file_loader.hpp"

namespace navo::front {
namespace {

using navo::interchange::Area;
using navo::interchange::FaultPlace;
using navo::interchange::LoadHooks;
using navo::interchange::RecordSeen;

// The library keeps a load's state process-wide (the last code, the line counters), so one load
// runs at a time in the process; a thread inside a load's callback must not start another.
std::mutex &load_mutex()
{
    static std::mutex mutex;
    return mutex;
}
thread_local bool insideLoad = false;
std::atomic<bool> loadRunning{false};

// Marks this thread as loading while the object lives.
class LoadScope {
public:
    LoadScope() noexcept
    {
        insideLoad = true;
        loadRunning.store(true, std::memory_order_relaxed);
    }
    ~LoadScope()
    {
        loadRunning.store(false, std::memory_order_relaxed);
        insideLoad = false;
    }
    LoadScope(const LoadScope &) = delete;
    LoadScope &operator=(const LoadScope &) = delete;
};

navo_load_result empty_result() noexcept
{
    navo_load_result result{};
    result.fault.place = empty_place();
    return result;
}

// Why a path cannot be loaded, told before the loader opens it; null when it names a regular file.
// Throws std::bad_alloc (the path's own copy).
const char *unreadable(const char *path, std::uintmax_t &size)
{
    std::error_code error;
    const std::filesystem::path name(path);
    const std::filesystem::file_status status = std::filesystem::status(name, error);
    if (status.type() == std::filesystem::file_type::not_found)
        return "no such file";
    if (error)
        return "cannot be read";
    if (status.type() == std::filesystem::file_type::directory)
        return "is a directory";
    if (status.type() != std::filesystem::file_type::regular)
        return "not a regular file";
    size = std::filesystem::file_size(name, error);
    if (error)
        size = static_cast<std::uintmax_t>(-1);
    return nullptr;
}

class Loader {
public:
    Loader(LoadListener &listener, Encoding encoding, bool keepGoing, KeepRequest *keep) noexcept
        : listener_(listener), encoding_(encoding), keepGoing_(keepGoing), keep_(keep != nullptr ? keep->number : 0),
          progress_(listener.follows_progress())
    {
        file_.encoding = encoding;
    }
    Loader(const Loader &) = delete;
    Loader &operator=(const Loader &) = delete;

    // Looks for this value (the code page's bytes, trailing blanks trimmed) in every field.
    void find(std::string raw)
    {
        find_ = std::move(raw);
        finding_ = true;
    }
    // Checks every field of every document by `rules` (null: the built-in ones).
    void check(const navo_rules *rules) { checks_.emplace(rules); }

    std::int32_t run(const char *path, navo_load_result &result, KeepRequest *keep);

private:
    static void on_header(void *user, dk_Context &ctx) noexcept
    {
        auto &self = *static_cast<Loader *>(user);
        self.guard([&] { self.header(ctx); });
    }
    static void on_record(void *user, dk_Context &, const RecordSeen &seen) noexcept
    {
        auto &self = *static_cast<Loader *>(user);
        self.guard([&] { self.record(seen); });
    }
    static std::int32_t on_document(void *user, dk_Context &ctx, const char *form, std::int32_t docIndex,
                                    std::int32_t number) noexcept
    {
        auto &self = *static_cast<Loader *>(user);
        std::int32_t result = 1;
        // The form as the library found it: its dictionary ID is its place in the definition.
        const std::int32_t index = dk_1fGetIDFormularza(&ctx, form);
        self.guard([&] { result = self.document(index, docIndex, number); });
        return self.stopped_ ? 1 : result;
    }
    static void on_fault(void *user, const FaultPlace &fault) noexcept
    {
        auto &self = *static_cast<Loader *>(user);
        self.guard([&] { self.fault(fault); });
    }

    // Runs a step of a hook; what it throws stops the load with the exception's code.
    template <class Step>
    void guard(Step &&step) noexcept
    {
        try {
            step();
        } catch (...) {
            stop(code_of_current_exception());
        }
    }
    // No call of the listener follows; the load ends at the next document the library delivers.
    void stop(std::int32_t code) noexcept
    {
        if (!stopped_) {
            stopped_ = true;
            stopCode_ = code;
        }
    }

    void header(dk_Context &ctx);
    void record(const RecordSeen &seen);
    void find_in(const navo_form_def &form, const RecordSeen &seen);
    void check_in(const navo_form_def &form, const RecordSeen &seen);
    std::int32_t document(std::int32_t form, std::int32_t docIndex, std::int32_t number);
    void fault(const FaultPlace &place);
    void advance();
    navo_fault fault_of(const FaultPlace &place);
    void report(const navo_fault &fault);
    void utf8(std::string &out, std::string_view raw) const
    {
        out.clear();
        append_utf8(out, raw, encoding_);
    }

    LoadListener &listener_;
    Encoding encoding_;
    bool keepGoing_;
    std::int32_t keep_;
    bool progress_;
    std::int64_t hundredth_ = 0;  // of the file's lines, at the last progress call
    Context ctx_;
    navo_file file_;
    navo_document doc_;
    navo_load_result result_ = empty_result();
    std::uintmax_t fileSize_ = static_cast<std::uintmax_t>(-1);
    bool stopped_ = false;
    std::int32_t stopCode_ = NAVO_OK;  // NAVO_CANCELLED for the listener's stop, else the core's failure
    bool finalFault_ = false;          // a fault outside the sections: the file was not read to its end
    bool kept_ = false;
    bool keptFaulty_ = false;  // the section of the document to keep failed
    std::int32_t keptIndex_ = 0;
    const navo_form_def *keptForm_ = nullptr;
    bool finding_ = false;
    std::string find_;
    std::optional<CheckCache> checks_;
    std::vector<navo_finding> pending_;  // of the section being read, handed out before its document
    const char *lastRawForm_ = nullptr;  // the form of the last record, as the loader spells it
    const navo_form_def *lastForm_ = nullptr;
    std::string text_;
};

void Loader::header(dk_Context &ctx)
{
    if (stopped_)
        return;
    file_.ctx = &ctx;
    const dk_dfDefinition *definition = ctx.definitions->count > 0 ? &ctx.definitions->items[0] : nullptr;
    file_.schema = embedded_schema(definition != nullptr && definition->name != nullptr ? definition->name : "");
    if (file_.schema == nullptr)
        throw Refusal{NAVO_UNKNOWN_VERSION};
    file_.version = file_.schema->version;
    if (listener_.file(file_) != 0)
        stop(NAVO_CANCELLED);
    advance();
}

// Tells the listener the reader's line when it stands in a higher hundredth of the file's lines
// than at the last call.
void Loader::advance()
{
    if (!progress_ || stopped_)
        return;
    std::int32_t line = 0;
    std::int32_t lines = 0;
    navo::status::read_lines(line, lines);
    if (lines <= 0)
        return;
    const std::int64_t hundredth = std::int64_t{line} * 100 / lines;
    if (hundredth <= hundredth_)
        return;
    hundredth_ = hundredth;
    if (listener_.progress(line, lines) != 0)
        stop(NAVO_CANCELLED);
}

void Loader::record(const RecordSeen &seen)
{
    if (stopped_ || file_.schema == nullptr)
        return;
    advance();
    if (!checks_ && !finding_)
        return;
    // Every record of a section names its form by the same text.
    if (seen.form != lastRawForm_) {
        lastRawForm_ = seen.form;
        lastForm_ = form_of_raw(*file_.schema, seen.form);
    }
    if (lastForm_ == nullptr || seen.block < 0 || seen.block >= lastForm_->block_count)
        return;
    if (checks_)
        check_in(*lastForm_, seen);
    if (finding_)
        find_in(*lastForm_, seen);
}

void Loader::check_in(const navo_form_def &form, const RecordSeen &seen)
{
    const navo_block_def &block = form.blocks[seen.block];
    const BlockChecks &checks = checks_->of(form, block);
    if (!checks.any)
        return;
    navo_place place = empty_place();
    place.document = seen.document;
    place.record = seen.record;
    set_name(place.form, form.name);
    set_name(place.block, block.tag);
    const ValueOf value = [&](std::int32_t f) {
        const navo_field_def &field = block.fields[f];
        return seen.text.substr(static_cast<std::size_t>(field.offset), static_cast<std::size_t>(field.width));
    };
    check_record(checks, block, value, encoding_, place,
                 [this](const navo_finding &finding) { pending_.push_back(finding); });
}

void Loader::find_in(const navo_form_def &form, const RecordSeen &seen)
{
    const navo_block_def &block = form.blocks[seen.block];
    for (std::int32_t f = 0; f < block.field_count; f++) {
        const navo_field_def &field = block.fields[f];
        const auto offset = static_cast<std::size_t>(field.offset);
        if (offset > seen.text.size())
            break;
        if (trim_right(seen.text.substr(offset, static_cast<std::size_t>(field.width))) != find_)
            continue;
        navo_place place = empty_place();
        place.area = NAVO_AREA_BODY;
        place.document = seen.document;
        place.record = seen.record;
        set_name(place.form, form.name);
        set_name(place.block, block.tag);
        set_name(place.field, field.name);
        if (listener_.found(place) != 0) {
            stop(NAVO_CANCELLED);
            return;
        }
    }
}

std::int32_t Loader::document(std::int32_t form, std::int32_t docIndex, std::int32_t number)
{
    if (stopped_)
        return 1;
    if (file_.schema == nullptr || form < 0 || form >= file_.schema->form_count)
        throw Refusal{NAVO_UNKNOWN_FORM};
    const navo_form_def *def = &file_.schema->forms[form];
    // The findings of the document's records, now that it is whole.
    for (const navo_finding &finding : pending_) {
        result_.findings++;
        if (listener_.finding(finding) != 0) {
            pending_.clear();
            stop(NAVO_CANCELLED);
            return 1;
        }
    }
    pending_.clear();
    advance();
    if (stopped_)
        return 1;
    if (keep_ > 0 && number == keep_) {
        kept_ = true;
        keptForm_ = def;
        keptIndex_ = docIndex;
        return 1;
    }
    doc_.file = &file_;
    doc_.form = def;
    doc_.rawForm = raw_form(*file_.schema, form);
    doc_.docIndex = docIndex;
    doc_.number = number;
    result_.documents++;
    if (listener_.document(doc_) != 0) {
        stop(NAVO_CANCELLED);
        return 1;
    }
    return 0;
}

navo_fault Loader::fault_of(const FaultPlace &fault)
{
    navo_fault out{};
    out.code = fault.code;
    out.cause = fault.cause != 0 ? fault.cause : fault.code;
    navo_place &place = out.place;
    place = empty_place();
    place.area = static_cast<std::int32_t>(fault.area);
    place.document = fault.document;
    place.record = fault.record;
    // Lengths only where a length is at fault: the loader notes them for any element it read.
    if (fault.expected >= 0 && fault.found >= 0 && fault.expected != fault.found) {
        place.expected = fault.expected;
        place.found = fault.found;
        place.field_expected = fault.fieldExpected;
        place.field_found = fault.fieldFound;
    }
    place.line = fault.line;
    place.offset = fault.offset;
    if (fault.code == NAVO_OPEN_FAILED) {
        // Nothing of the file was read: the fault has no place in it.
        place.line = 0;
        place.offset = -1;
    }

    utf8(text_, text_of(fault.form, sizeof fault.form));
    set_name(place.form, text_);
    const navo_form_def *form = file_.schema != nullptr && !text_.empty() ? find_form(*file_.schema, text_) : nullptr;
    const navo_block_def *block = form != nullptr && fault.blockPosition >= 0 && fault.blockPosition < form->block_count
                                      ? &form->blocks[fault.blockPosition]
                                      : nullptr;
    if (block != nullptr) {
        set_name(place.block, block->tag);
    } else {
        utf8(text_, text_of(fault.block, sizeof fault.block));
        set_name(place.block, text_);
    }
    if (fault.field >= 0) {
        switch (fault.area) {
        case Area::body:
            if (block != nullptr && fault.field < block->field_count)
                set_name(place.field, block->fields[fault.field].name);
            break;
        case Area::file_header:
        case Area::document_header:
            set_name(place.field, "line" + std::to_string(fault.field + 1));
            break;
        case Area::notes:
        case Area::footer:
            set_name(place.field, "text" + std::to_string(fault.field + 1));
            break;
        default:
            break;
        }
    }
    const bool atEnd = fault.offset >= 0 && static_cast<std::uintmax_t>(fault.offset) >= fileSize_;
    const std::string detail = fault_detail(fault, form, file_.version, atEnd);
    set_name(out.detail, detail);
    return out;
}

void Loader::report(const navo_fault &fault)
{
    if (fault.code != NAVO_BAD_DOCUMENT)
        finalFault_ = true;
    if (keep_ > 0 && fault.place.document == keep_)
        keptFaulty_ = true;
    if (stopped_)
        return;
    result_.faults++;
    if (result_.faults == 1)
        result_.fault = fault;
    if (listener_.fault(fault) != 0)
        stop(NAVO_CANCELLED);
}

void Loader::fault(const FaultPlace &place)
{
    // A section that failed is no document: its records' findings go with it.
    pending_.clear();
    if (stopped_) {
        finalFault_ = finalFault_ || place.code != NAVO_BAD_DOCUMENT;
        return;
    }
    report(fault_of(place));
}

std::int32_t Loader::run(const char *path, navo_load_result &result, KeepRequest *keep)
{
    if (const char *reason = unreadable(path, fileSize_)) {
        navo_fault fault{};
        fault.code = fault.cause = NAVO_OPEN_FAILED;
        fault.place = empty_place();
        set_name(fault.detail, reason);
        report(fault);
        result_.outcome = NAVO_FAILED;
        result_.code = stopped_ && stopCode_ != NAVO_CANCELLED ? stopCode_ : NAVO_OPEN_FAILED;
        if (keep != nullptr)
            keep->code = result_.code;
        result = result_;
        return result.code;
    }
    if (!ctx_.create())
        throw std::bad_alloc();
    LoadHooks hooks;
    hooks.user = this;
    hooks.keepGoing = keepGoing_;
    hooks.header = &Loader::on_header;
    hooks.record = finding_ || checks_ || progress_ ? &Loader::on_record : nullptr;
    hooks.document = &Loader::on_document;
    hooks.fault = &Loader::on_fault;
    const std::int32_t loaded = navo::interchange::load_file(*ctx_.get(), path, hooks);

    navo::status::read_lines(result_.line, result_.lines);
    if (stopped_ && stopCode_ != NAVO_CANCELLED) {
        result_.outcome = NAVO_FAILED;
        result_.code = stopCode_;
    } else if (stopped_ || loaded == 2) {
        result_.outcome = NAVO_STOPPED;
        result_.code = NAVO_CANCELLED;
    } else if (loaded == 1) {
        result_.outcome = NAVO_DONE;
        result_.code = NAVO_OK;
    } else {
        result_.outcome = NAVO_FAILED;
        result_.code = result_.faults > 0 ? result_.fault.code : dk_GetNAVOError();
    }
    // The file's footer was read when the load ended well, or went on past faulty sections only.
    const bool wholeFile = loaded == 1 || (loaded == 0 && keepGoing_ && result_.faults > 0 && !finalFault_);
    if (wholeFile && !stopped_ && file_.ctx != nullptr && listener_.end(file_) != 0) {
        result_.outcome = NAVO_STOPPED;
        result_.code = NAVO_CANCELLED;
    }
    if (stopped_ && stopCode_ != NAVO_CANCELLED)
        result_.code = stopCode_;
    if (keep != nullptr) {
        keep->code = result_.code;
        if (kept_ && !stopped_) {
            auto doc = std::make_unique<navo_document>();
            doc->kept = std::make_unique<KeptDocument>();
            doc->kept->file = file_;
            doc->kept->ctx.take(ctx_);
            doc->kept->file.ctx = doc->kept->ctx.get();
            doc->file = &doc->kept->file;
            doc->form = keptForm_;
            doc->rawForm = raw_form(*file_.schema, form_index(*file_.schema, *keptForm_));
            doc->docIndex = keptIndex_;
            doc->number = keep_;
            keep->document = std::move(doc);
            keep->code = NAVO_OK;
        } else if (keptFaulty_) {
            keep->code = NAVO_BAD_DOCUMENT;
        } else if (wholeFile && !stopped_) {
            keep->code = NAVO_BAD_INDEX;
        }
    }
    result = result_;
    return result.code;
}

}  // namespace

std::int32_t HostCallbacks::file(const navo_file &file)
{
    return callbacks_ != nullptr && callbacks_->file != nullptr ? callbacks_->file(callbacks_->user, &file) : 0;
}

std::int32_t HostCallbacks::document(const navo_document &doc)
{
    return callbacks_ != nullptr && callbacks_->document != nullptr ? callbacks_->document(callbacks_->user, &doc) : 0;
}

std::int32_t HostCallbacks::fault(const navo_fault &fault)
{
    return callbacks_ != nullptr && callbacks_->fault != nullptr ? callbacks_->fault(callbacks_->user, &fault) : 0;
}

std::int32_t HostCallbacks::finding(const navo_finding &finding)
{
    return callbacks_ != nullptr && callbacks_->finding != nullptr ? callbacks_->finding(callbacks_->user, &finding)
                                                                    : 0;
}

std::int32_t HostCallbacks::found(const navo_place &place)
{
    return callbacks_ != nullptr && callbacks_->found != nullptr ? callbacks_->found(callbacks_->user, &place) : 0;
}

std::int32_t HostCallbacks::end(const navo_file &file)
{
    return callbacks_ != nullptr && callbacks_->end != nullptr ? callbacks_->end(callbacks_->user, &file) : 0;
}

std::int32_t HostCallbacks::progress(std::int32_t line, std::int32_t lines)
{
    return follows_progress() ? callbacks_->progress(callbacks_->user, line, lines) : 0;
}

bool HostCallbacks::follows_progress() const
{
    return callbacks_ != nullptr && callbacks_->progress != nullptr;
}

std::int32_t run_load(const char *path, const navo_load_options *options, LoadListener &listener,
                      navo_load_result &result, KeepRequest *keep) noexcept
{
    result = empty_result();
    result.outcome = NAVO_FAILED;
    const auto refuse = [&result, keep](std::int32_t code) {
        result.code = code;
        if (keep != nullptr)
            keep->code = code;
        return code;
    };
    if (path == nullptr || (options != nullptr && !is_encoding(options->encoding)))
        return refuse(NAVO_INVALID_ARGUMENT);
    if (insideLoad)
        return refuse(NAVO_LOAD_IN_PROGRESS);
    try {
        const Encoding encoding = options != nullptr ? static_cast<Encoding>(options->encoding) : Encoding::iso8859_2;
        std::string find;
        bool finding = false;
        if (options != nullptr && options->find != nullptr) {
            std::size_t at = 0;
            const std::int32_t code = from_utf8(options->find, encoding, false, find, at);
            if (code == NAVO_NOT_UTF8)
                return refuse(code);
            // A character the code page lacks stands in no field: such a value is found nowhere.
            finding = code == NAVO_OK;
        }
        // The load's context is made and released under the lock as well.
        std::lock_guard<std::mutex> lock(load_mutex());
        LoadScope scope;
        Loader loader(listener, encoding, options != nullptr && options->keep_going != 0, keep);
        if (finding)
            loader.find(std::string(trim_right(find)));
        if (options != nullptr && options->checks != 0)
            loader.check(options->rules);
        return loader.run(path, result, keep);
    } catch (...) {
        return refuse(code_of_current_exception());
    }
}

void progress(std::int32_t &line, std::int32_t &lines) noexcept
{
    line = 0;
    lines = 0;
    if (loadRunning.load(std::memory_order_relaxed))
        navo::status::read_lines(line, lines);
}

}  // namespace navo::front

using namespace navo::front;

extern "C" {

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_load(const char *path, const navo_load_options *options,
                                                const navo_load_callbacks *callbacks,
                                                navo_load_result *result) noexcept
{
    navo_load_result local;
    HostCallbacks listener(callbacks);
    return run_load(path, options, listener, result != nullptr ? *result : local);
}

NAVO_FRONT_API void NAVO_FRONT_CALL navo_progress(int32_t *line, int32_t *lines) noexcept
{
    std::int32_t at = 0;
    std::int32_t count = 0;
    progress(at, count);
    if (line != nullptr)
        *line = at;
    if (lines != nullptr)
        *lines = count;
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_document_open(const char *path, const navo_load_options *options,
                                                         int32_t number, const navo_load_callbacks *callbacks,
                                                         navo_document **out, navo_load_result *result) noexcept
{
    navo_load_result local;
    navo_load_result &loaded = result != nullptr ? *result : local;
    if (out != nullptr)
        *out = nullptr;
    if (out == nullptr || number < 1) {
        loaded = navo_load_result{};
        loaded.fault.place = empty_place();
        loaded.code = NAVO_INVALID_ARGUMENT;
        return NAVO_INVALID_ARGUMENT;
    }
    HostCallbacks listener(callbacks);
    KeepRequest keep;
    keep.number = number;
    run_load(path, options, listener, loaded, &keep);
    *out = keep.document.release();
    return keep.code;
}

NAVO_FRONT_API void NAVO_FRONT_CALL navo_document_close(navo_document *doc) noexcept
{
    // A callback's view belongs to its load; only a kept document is the host's to close.
    if (doc != nullptr && doc->kept != nullptr)
        delete doc;
}

}  // extern "C"
