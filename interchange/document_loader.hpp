// interchange/document_loader.hpp - the document loader: one section of a NAVO file into a document.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string_view>

#include "interchange/file_loader.hpp"
#include "interchange/format.hpp"
#include "interchange/scanner.hpp"
#include "navo.h"

namespace navo::interchange {

// What became of a section.
enum class SectionResult : std::int32_t {
    failed = 0,     // the section failed; its code is set
    delivered = 1,  // handed to the host and removed again
    stopped = 2,    // handed to the host, who stopped the load; the document stays
};

// One load's hooks, its input and the place of the fault it may meet, filled as the load goes:
// the area and section as it reaches them, the rest where a fault is raised.
class LoadTrace {
public:
    LoadTrace(const LoadHooks &loadHooks, const BulkInput &input) noexcept : hooks(loadHooks), input_(input) {}
    LoadTrace(const LoadTrace &) = delete;
    LoadTrace &operator=(const LoadTrace &) = delete;

    // The loaders' failure step (raise_error); the first code raised for a fault is its cause,
    // with the line and offset of that moment.
    void raise(std::int32_t code) noexcept;
    // The fault whole, with the code a host sees: to the fault hook, and the place starts afresh.
    void report(std::int32_t code) noexcept;

    const LoadHooks &hooks;
    FaultPlace place;

private:
    const BulkInput &input_;
};

// Reads the section whose tag `section` (as next_section gave it) the stream has just passed,
// through its closing tag, hands the document to the `document` hook and removes it again
// unless the hook stops the load. `number` counts the sections of the file from 1.
SectionResult load_document(dk_Context &ctx, BulkInput &input, TextBuffer &text, std::string_view section,
                            std::int32_t number, LoadTrace &trace) noexcept;

// For a text of the wrong length laid out one line per width (the writer's layout): the first
// line whose length differs from its width goes to the place as field, fieldExpected, fieldFound.
void place_wrong_line(FaultPlace &place, const TextBuffer &text, std::span<const Line> lines) noexcept;

#if defined(NAVO_TEST_HOOKS)
// Watches the hooks of a load from outside (tests): every code given to dk_OnNAVOError and every
// dk_OnNAVOBlock call, in order, and at the end of each section how its records of repeating
// blocks reached the spool files (store::RecordAppender::Counts). The hooks themselves do nothing
// a host could see; the counts tell a test that the batched paths were taken.
struct LoadObserver {
    void (*onError)(void *user, std::int32_t code);
    void (*onBlock)(void *user, const char *form, std::int32_t docIndex, const char *block, std::int32_t recordIndex);
    void *user;
    void (*onSection)(void *user, std::size_t writes, std::size_t batched, std::size_t prefilled) = nullptr;
};

void set_load_observer(const LoadObserver *observer) noexcept;
#endif

// The loaders' failure step: the code is set, the observer sees it, dk_OnNAVOError is called.
void raise_error(std::int32_t code) noexcept;

}  // namespace navo::interchange
