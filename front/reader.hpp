// front/reader.hpp - loads through the library's load_file hooks: one at a time, views, faults, finds.
#pragma once

#include <cstdint>
#include <memory>

#include "front/views.hpp"
#include "navo_front.h"

namespace navo::front {

// What a load hands out, in the order of the file; a document's findings come before it. A result other than 0 stops the load; no
// call follows a stop.
class LoadListener {
public:
    virtual std::int32_t file(const navo_file &) { return 0; }
    virtual std::int32_t document(const navo_document &) { return 0; }
    virtual std::int32_t fault(const navo_fault &) { return 0; }
    virtual std::int32_t finding(const navo_finding &) { return 0; }
    virtual std::int32_t found(const navo_place &) { return 0; }
    virtual std::int32_t end(const navo_file &) { return 0; }
    // The reader's line and the file's line count, each time another hundredth of the lines is
    // passed; asked for only when follows_progress() says so (it costs a look at every record).
    virtual std::int32_t progress(std::int32_t /*line*/, std::int32_t /*lines*/) { return 0; }
    [[nodiscard]] virtual bool follows_progress() const { return false; }

protected:
    LoadListener() = default;
    LoadListener(const LoadListener &) = default;
    LoadListener &operator=(const LoadListener &) = default;
    ~LoadListener() = default;
};

// The host's callbacks of navo_load_callbacks as a listener (any of them may be null).
class HostCallbacks final : public LoadListener {
public:
    explicit HostCallbacks(const navo_load_callbacks *callbacks) noexcept : callbacks_(callbacks) {}
    std::int32_t file(const navo_file &file) override;
    std::int32_t document(const navo_document &doc) override;
    std::int32_t fault(const navo_fault &fault) override;
    std::int32_t finding(const navo_finding &finding) override;
    std::int32_t found(const navo_place &place) override;
    std::int32_t end(const navo_file &file) override;
    std::int32_t progress(std::int32_t line, std::int32_t lines) override;
    [[nodiscard]] bool follows_progress() const override;

private:
    const navo_load_callbacks *callbacks_;
};

// What navo_document_open asks of a load: stop at document `number` (from 1) and keep it.
struct KeepRequest {
    std::int32_t number = 0;
    std::unique_ptr<navo_document> document;  // the kept document
    // NAVO_OK with the document; NAVO_BAD_INDEX when the file was read to its end without it;
    // NAVO_BAD_DOCUMENT when that section was faulty (keep_going); else the load's code.
    std::int32_t code = NAVO_OK;
};

// A load of `path` with `options` (null: the defaults). With `keep` the load stops at its
// document, which goes to the request instead of the listener. Fills `result` whole and gives the
// load's code. Throws nothing: a failure of the core's own is the result's code.
std::int32_t run_load(const char *path, const navo_load_options *options, LoadListener &listener,
                      navo_load_result &result, KeepRequest *keep = nullptr) noexcept;

// The running load's line and the file's line count, or 0 and 0.
void progress(std::int32_t &line, std::int32_t &lines) noexcept;

}  // namespace navo::front
