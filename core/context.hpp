// core/context.hpp - the library context, and the promises the library keeps about the open records.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "navo.h"

namespace navo {

// The records of navo.h are shared with C hosts, which read and write them as C structs and
// copy them with memcpy; the library keeps them in storage from navo::memory and grows their
// arrays with realloc. Both hold only while every record stays standard-layout and trivially
// copyable: a member with a constructor, a virtual function or a reference would break them.
template <class... Records>
constexpr bool all_open = ((std::is_standard_layout_v<Records> && std::is_trivially_copyable_v<Records>) && ...);

static_assert(all_open<dk_sdBucket, dk_sdDictionary, dk_dfField, dk_dfBlock, dk_dfBlockRef, dk_dfForm,
                       dk_dfDefinition, dk_dfDefinitionList, dk_FileProlog, dk_FileHeader, dk_ErrorNote,
                       dk_OcrNote, dk_FileFooter, dk_DocHeader, dk_DocFooter, dk_lfField, dk_lfBlock,
                       dk_lfFilePool, dk_Document, dk_DocumentList, dk_Context>,
              "a record of navo.h is no longer a plain C struct");

// A count of changes to the shape of any context's tables: definitions loaded or removed, tables
// made, documents and stores added or removed, contexts made or destroyed. A memo of where a name
// was found, taken at one value, holds while the value stands (store/document_tables); every
// such change moves it on first. Process-wide and relaxed: a change on another thread's context
// only costs a memo, and a thread's own changes are ordered with its own reads.
inline std::atomic<std::uint64_t> layoutGeneration{1};

inline void layout_changed() noexcept
{
    layoutGeneration.fetch_add(1, std::memory_order_relaxed);
}

inline std::uint64_t layout_generation() noexcept
{
    return layoutGeneration.load(std::memory_order_relaxed);
}

}  // namespace navo
