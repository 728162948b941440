// store/packed_records.hpp - packed records: whole documents and records as one flat buffer.
#pragma once

#include <cstdint>

#include "navo.h"

namespace navo::store {

// Bytes of one block in the packed form: a slot of width + 1 per field, its NUL included.
constexpr std::int64_t packed_length(const dk_dfBlock &block) noexcept
{
    return std::int64_t{block.recordLength} + block.fieldCount;
}

}  // namespace navo::store
