// interchange/document_loader.hpp - the document loader: one section of a NAVO file into a document.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "interchange/scanner.hpp"
#include "navo.h"

namespace navo::interchange {

// What became of a section.
enum class SectionResult : std::int32_t {
    failed = 0,     // the section failed; its code is set
    delivered = 1,  // handed to the host and removed again
    stopped = 2,    // handed to the host, who stopped the load; the document stays
};

// Reads the section whose tag `section` (as next_section gave it) the stream has just passed,
// through its closing tag, hands the document to the host and removes it again unless the host
// stops the load.
SectionResult load_document(dk_Context &ctx, BulkInput &input, TextBuffer &text, std::string_view section) noexcept;

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

// The loaders' failure step: the code is set, the observer sees it, dk_OnNAVOError is called.
void raise_error(std::int32_t code) noexcept;

}  // namespace navo::interchange
