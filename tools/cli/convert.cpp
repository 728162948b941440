// convert.cpp - `navo convert`: the core's conversion into standard output or files put in place whole.
#include <map>
#include <optional>

#include "commands.hpp"
#include "common.hpp"
#include "progress.hpp"

namespace navo_cli {
namespace {

// Where the conversion's bytes go: standard output, one file, or one file per table
// (STEM.TABLE.csv). A file is put in place only when the whole conversion succeeded.
class Destination {
public:
    explicit Destination(const ConvertOptions &options) : path_(options.output), tables_(options.to == navo::format::csv_blocks)
    {
        if (tables_) {
            if (path_.empty() || path_ == "-")
                throw Failure(kExitUsage, "--csv-layout blocks writes a file per table: give -o STEM");
            if (path_.size() > 4 && path_.compare(path_.size() - 4, 4, ".csv") == 0)
                path_.resize(path_.size() - 4);
        } else if (!to_standard_output()) {
            open(single_, path_);
            fail_if_failed();
        }
    }

    // Takes bytes of the conversion; false stops it (the failure is kept).
    bool take(std::string_view table, std::string_view bytes)
    {
        if (!tables_ && to_standard_output())
            return write_out(bytes);
        navo::Output *output = &single_;
        if (tables_) {
            auto found = outputs_.find(table);
            if (found == outputs_.end()) {
                found = outputs_.emplace(std::string(table), navo::Output()).first;
                if (!open(found->second, path_ + "." + std::string(table) + ".csv"))
                    return false;
            }
            output = &found->second;
        }
        std::error_code ec;
        output->write(bytes, ec);
        return !ec || keep(*output);
    }

    // Puts every file in place, or tells why one could not be.
    void commit()
    {
        if (!tables_ && to_standard_output())
            return;
        std::error_code ec;
        if (!tables_) {
            single_.commit(ec);
            if (ec)
                keep(single_);
        }
        for (auto &[table, output] : outputs_) {
            output.commit(ec);
            if (ec) {
                keep(output);
                break;
            }
        }
        fail_if_failed();
    }

    // After a failed conversion: a failure of the output itself ends the command.
    void fail_if_failed() const
    {
        if (!tables_ && to_standard_output() && !output_failure().empty())
            output_failed();
        if (failure_)
            throw Failure(kExitUsage, refusal_text(*failure_));
    }

private:
    bool to_standard_output() const { return path_.empty() || path_ == "-"; }
    bool open(navo::Output &output, const std::string &path)
    {
        std::error_code ec;
        output.open(path, ec);
        return !ec || keep(output, path);
    }
    // Keeps the first failure with the file it concerns; false.
    bool keep(const navo::Output &output, const std::string &path = "")
    {
        if (!failure_) {
            failure_ = output.last_refusal();
            failure_->reason = fmt::format("{}: {}", path.empty() ? path_ : path, failure_->reason);
        }
        return false;
    }

    std::string path_;
    bool tables_;
    navo::Output single_;
    std::map<std::string, navo::Output, std::less<>> outputs_;
    std::optional<navo::Refusal> failure_;
};

}  // namespace

int run_convert(const ConvertOptions &options, const Invocation &common)
{
    Destination destination(options);
    navo::ConvertOptions convert;
    convert.encoding = options.encoding;
    convert.keep_padding = options.keepPadding;
    navo::LoadResult result;
    {
        ProgressBar bar(progress_terminal(common.noProgress), load_progress);
        result = navo::convert(options.file, options.to, convert, [&](std::string_view table, std::string_view bytes) {
            return destination.take(table, bytes);
        });
        if (result)
            bar.finish();
    }
    if (!result) {
        destination.fail_if_failed();
        fail_load(options.file, result);
    }
    destination.commit();
    return kExitOk;
}

}  // namespace navo_cli
