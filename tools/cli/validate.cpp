// validate.cpp - `navo validate`: each file's faults (and with --content its findings), as the core reports them.
#include <algorithm>
#include <vector>

#include "commands.hpp"
#include "common.hpp"
#include "platform/workers.hpp"
#include "progress.hpp"

namespace navo_cli {
namespace {

struct Validation {
    const ValidateOptions &options;
    const navo::Rules &rules;
    bool showValues;
    bool progress;
};

// Checks one file and writes its report; gives the file's exit code.
int validate_one(const Validation &run, const std::string &path)
{
    const ValidateOptions &options = run.options;
    const bool json = options.format == Report::jsonl;
    navo::LoadOptions load;
    load.encoding = options.encoding;
    load.keep_going = options.all;
    load.checks = options.content;
    load.rules = run.rules ? &run.rules : nullptr;

    // Text: faults and findings in the order of the file. JSON: one array of each.
    std::string text, faults, findings;
    const auto onFault = [&](const navo::Fault &fault) {
        if (json) {
            faults += faults.empty() ? "" : ",";
            append_fault_json(faults, fault);
        } else {
            text += fault_text(path, fault) + '\n';
        }
    };
    const auto onFinding = [&](const navo::Finding &finding) {
        if (json) {
            findings += findings.empty() ? "" : ",";
            append_finding_json(findings, finding, run.showValues);
        } else {
            text += finding_text(path, finding, run.showValues) + '\n';
        }
    };
    navo::LoadResult result;
    {
        ProgressBar bar(progress_terminal(!run.progress), load_progress);
        result = navo::load(path, [](const navo::Document &) { return true; }, load, onFault, onFinding);
        if (result)
            bar.finish();
    }
    if (result.faults.empty() && result.code && result.code != navo::errc::cancelled) {
        // A failure of the core's own, with no place in the file.
        result.faults.push_back({result.code, result.code, {}, navo::english(result.code)});
        onFault(result.faults.back());
    }

    const bool valid = result.faults.empty() && result.findings == 0;
    std::string out;
    if (json) {
        out = fmt::format("{{\"file\":{},\"valid\":{},\"faults\":[{}]", json_string(path), valid, faults);
        if (options.content)
            out += ",\"findings\":[" + findings + ']';
        out += "}\n";
    } else {
        out = valid ? path + ": valid\n" : text;
    }
    write_out(out);
    if (!result.faults.empty() && is_system_failure(result.faults.front().code))
        return kExitUsage;
    return valid ? kExitOk : kExitInvalid;
}

struct Workers {
    const Validation *run;
    const std::vector<std::string> *files;
};

int validate_in_worker(void *user, std::size_t index) noexcept
{
    const auto &workers = *static_cast<const Workers *>(user);
    try {
        const int exit = validate_one(*workers.run, (*workers.files)[index]);
        return flush_out() ? exit : kExitUsage;
    } catch (const std::exception &e) {
        flush_out();
        std::fprintf(stderr, "navo: %s\n", e.what());
        return kExitUsage;
    }
}

}  // namespace

int run_validate(const ValidateOptions &options, const Invocation &common)
{
    const navo::Rules rules = options.rules.empty() ? navo::Rules() : load_rules(options.rules);
    const std::vector<std::string> &files = options.files;
    const bool parallel = options.jobs > 1 && files.size() > 1 && navo::platform::processes_available();
    // One terminal line carries one bar: none while several files are checked at once.
    const Validation run{options, rules, common.showValues, !common.noProgress && !parallel};
    int worst = kExitOk;
    if (parallel) {
        std::vector<navo::platform::WorkerJob> jobs(files.size());
        Workers workers{&run, &files};
        const bool ran = navo::platform::run_in_processes(jobs.data(), jobs.size(), options.jobs,
                                                          &validate_in_worker, &workers);
        // Each file's report in the order of the files, whichever process finished first.
        for (navo::platform::WorkerJob &job : jobs) {
            if (job.output == nullptr)
                continue;
            char buffer[1 << 14];
            std::size_t got = 0;
            while ((got = std::fread(buffer, 1, sizeof buffer, job.output)) > 0)
                write_out(std::string_view(buffer, got));
            std::fclose(job.output);
            worst = std::max(worst, job.exit_code);
        }
        if (!ran)
            throw Failure(kExitUsage, "the worker processes cannot be started");
        return worst;
    }
    for (const std::string &file : files)
        worst = std::max(worst, validate_one(run, file));
    return worst;
}

}  // namespace navo_cli
