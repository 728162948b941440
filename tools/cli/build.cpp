// build.cpp - `navo build`: JSON Lines, JSON or the long CSV table into navo::Writer's streaming
// save, one document at a time; every refusal is the writer's, with its place.
#include <cerrno>
#include <filesystem>
#include <istream>
#include <memory>
#include <optional>
#include <system_error>

#include "build_input.hpp"
#include "commands.hpp"
#include "common.hpp"
#include "progress.hpp"

namespace navo_cli {
namespace {

// A call the writer refused, in words, with the exit code it asks for.
struct Refused : std::runtime_error {
    int exit;
    bool aboutOutput;  // the output file failed (named instead of the input's line)
    Refused(int code, const std::string &what, bool output) : std::runtime_error(what), exit(code), aboutOutput(output) {}
};

// Hands what the reader finds to a navo::Writer: the writer is made at the input's version (or
// --version), begins its file with the first document and writes each document as it ends.
class Builder final : public BuildSink {
public:
    Builder(const BuildOptions &options, const navo::Rules &rules, bool showValues)
        : options_(options), rules_(rules), showValues_(showValues)
    {
    }

    void version(const std::string &version) override
    {
        if (!options_.version.empty())
            return;  // --version wins
        if (!writer_)
            make(version);
        else if (writer_->schema().version != version)
            throw InputError("the file's version comes before its header, notes and documents");
    }
    void file_header(std::size_t line, const std::string &text) override
    {
        if (begun_)
            throw InputError("the file header comes before the documents");
        call([&](std::error_code &ec) { writer().set_file_header(to_int(line), text, ec); }, nullptr, &text);
    }
    void file_note(const std::vector<std::string> &texts) override
    {
        call([&](std::error_code &ec) { writer().add_file_note(texts, ec); }, nullptr, nullptr, &texts);
    }
    void begin_document(const std::string &form) override
    {
        if (inDocument_)
            throw InputError("a document begins before the one before it has ended");
        begin();
        call([&](std::error_code &ec) { document_ = writer_->add_document(form, ec); }, &form);
        // The core's lookup finds the form the writer took.
        form_ = writer_->schema().form(form);
        records_.assign(form_ != nullptr ? form_->blocks.size() : 0, 1);
        inDocument_ = true;
        block_.clear();
        blockAt_ = -1;
    }
    void header(std::size_t line, const std::string &text) override
    {
        require_document();
        call([&](std::error_code &ec) { writer_->set_header(document_, to_int(line), text, ec); }, nullptr, &text);
    }
    void begin_block(const std::string &tag) override
    {
        require_document();
        block_ = tag;
        const navo::Block *block = form_ != nullptr ? form_->block(tag) : nullptr;
        blockAt_ = block != nullptr ? static_cast<int>(block - form_->blocks.data()) : -1;
        if (blockAt_ < 0) {
            // A tag the form lacks: the writer refuses it, with its words and place.
            call([&](std::error_code &ec) { writer_->add_record(document_, tag, ec); }, &tag);
        }
    }
    void begin_record(std::size_t record) override
    {
        require_document();
        record_ = to_int(record);
        if (blockAt_ < 0)
            return;
        // A new document has one record of each block; the next one in turn is added. A record
        // further on is refused by the writer at its first field.
        int &records = records_[static_cast<std::size_t>(blockAt_)];
        if (record_ == records) {
            call([&](std::error_code &ec) { writer_->add_record(document_, block_, ec); });
            records++;
        }
    }
    void field(const std::string &name, const std::string &value) override
    {
        require_document();
        call([&](std::error_code &ec) { writer_->set(document_, block_, record_, name, value, ec); }, &name, &value);
    }
    void ocr_note(int kind, const std::vector<std::string> &texts) override
    {
        require_document();
        call([&](std::error_code &ec) { writer_->add_ocr_note(document_, kind, texts, ec); }, nullptr, nullptr, &texts);
    }
    void error_note(const std::vector<std::string> &texts) override
    {
        require_document();
        call([&](std::error_code &ec) { writer_->add_error_note(document_, texts, ec); }, nullptr, nullptr, &texts);
    }
    void end_document() override
    {
        require_document();
        call([&](std::error_code &ec) { writer_->write_document(document_, ec); });
        inDocument_ = false;
    }

    // The input's end: the file's notes and footer, and the file in place.
    void finish()
    {
        if (inDocument_)
            throw InputError("the input ends inside a document");
        begin();
        call([&](std::error_code &ec) { writer_->finish(ec); });
    }

private:
    static int to_int(std::size_t number) { return static_cast<int>(std::min<std::size_t>(number, INT32_MAX)); }

    void make(const std::string &version)
    {
        std::error_code ec;
        navo::writer_flags flags = options_.truncate ? navo::writer_flags::truncate : navo::writer_flags::none;
        if (options_.content)
            flags = flags | navo::writer_flags::check;
        navo::Writer made(version, options_.encoding, flags, ec);
        if (ec)
            throw Refused(is_system_failure(ec) ? kExitUsage : kExitInvalid,
                          fmt::format("{}: '{}'", navo::english(ec), version), false);
        writer_.emplace(std::move(made));
        writer_->set_rules(rules_);
    }
    navo::Writer &writer()
    {
        if (!writer_)
            make(options_.version.empty() ? "1.3" : options_.version);
        return *writer_;
    }
    void begin()
    {
        if (!begun_)
            call([&](std::error_code &ec) { writer().begin(options_.output, ec); });
        begun_ = true;
    }
    void require_document() const
    {
        if (!inDocument_)
            throw InputError("document content outside a document");
    }

    // Runs a call of the writer; a refusal ends the build with the writer's place and reason,
    // the name the input gave when the core knows none by it, and the value only when asked for.
    template <class Call>
    void call(Call &&run, const std::string *name = nullptr, const std::string *value = nullptr,
              const std::vector<std::string> *texts = nullptr)
    {
        std::error_code ec;
        run(ec);
        if (!ec)
            return;
        const navo::Refusal why = writer_->last_refusal();
        const bool output = why.code == navo::errc::save_failed;
        std::string what = output ? fmt::format("{}: {}", options_.output, why.reason) : refusal_text(why);
        if (name != nullptr && (ec == navo::errc::unknown_form || ec == navo::errc::unknown_block ||
                                ec == navo::errc::unknown_field))
            what += fmt::format(": '{}'", *name);
        if (showValues_ && value != nullptr)
            what += " (value " + json_string(*value) + ")";
        if (showValues_ && texts != nullptr) {
            std::string all;
            for (const std::string &text : *texts)
                all += (all.empty() ? "" : ", ") + json_string(text);
            what += " (texts " + all + ")";
        }
        throw Refused(is_system_failure(ec) ? kExitUsage : kExitInvalid, what, output);
    }

    const BuildOptions &options_;
    const navo::Rules &rules_;
    bool showValues_;
    std::optional<navo::Writer> writer_;
    bool begun_ = false;
    bool inDocument_ = false;
    int document_ = 0;
    const navo::Form *form_ = nullptr;
    std::vector<int> records_;  // records of each block of the document's form
    std::string block_;
    int blockAt_ = -1;
    int record_ = 0;
};

InputFormat format_of(const BuildOptions &options)
{
    if (options.from != InputFormat::by_name)
        return options.from;
    const std::string extension = std::filesystem::path(options.input).extension().string();
    if (extension == ".jsonl" || extension == ".ndjson")
        return InputFormat::jsonl;
    if (extension == ".json")
        return InputFormat::json;
    if (extension == ".csv")
        return InputFormat::csv;
    throw Failure(kExitUsage, "cannot tell the input's format from its name: give --from jsonl, json or csv");
}

std::string reason_of(int error)
{
    return std::generic_category().message(error);
}

}  // namespace

int run_build(const BuildOptions &options, const Invocation &common)
{
    if (options.output.empty() || options.output == "-")
        throw Failure(kExitUsage, "build writes a file: give -o OUT.navo");
    const InputFormat from = format_of(options);
    const navo::Rules rules = options.rules.empty() ? navo::Rules() : load_rules(options.rules);
    errno = 0;
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(options.input.c_str(), "rb"), &std::fclose);
    if (!file)
        throw Failure(kExitUsage, fmt::format("{}: cannot be read ({})", options.input, reason_of(errno)));
    std::error_code sizeError;
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(options.input, sizeError));
    InputBuffer buffer(file.get());
    std::istream in(&buffer);
    Builder builder(options, rules, common.showValues);
    const auto unreadable = [&] {
        return Failure(kExitUsage, fmt::format("{}: cannot be read ({})", options.input, reason_of(buffer.error())));
    };
    try {
        ProgressBar bar(progress_terminal(common.noProgress), [&buffer, total = sizeError ? 0 : size] {
            return std::pair<std::int64_t, std::int64_t>(buffer.consumed(), total);
        });
        if (from == InputFormat::csv)
            read_csv(in, buffer, builder);
        else if (from == InputFormat::json)
            read_json(in, builder, common.showValues);
        else
            read_json_lines(in, builder, common.showValues);
        if (buffer.error() != 0)
            throw unreadable();
        if (buffer.consumed() == 0)
            throw InputError("the input is empty");
        builder.finish();
        bar.finish();
    } catch (const InputError &e) {
        if (buffer.error() != 0)
            throw unreadable();
        throw Failure(kExitInvalid, fmt::format("{}:{}: {}", options.input, buffer.line(), e.what()));
    } catch (const Refused &refused) {
        if (refused.aboutOutput)
            throw Failure(refused.exit, refused.what());
        throw Failure(refused.exit, fmt::format("{}:{}: {}", options.input, buffer.line(), refused.what()));
    }
    return kExitOk;
}

}  // namespace navo_cli
