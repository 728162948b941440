// store/repeating_records.hpp - records of repeating blocks: adding, removing and counting them.
#pragma once

#include "navo.h"

// The calls of this module are all exported through navo.h: dk_AddBlock, dk_RemoveBlock and
// dk_GetBlockCount. The header keeps the module a .cpp/.hpp pair like every other.
