// What processing one file came to.
#pragma once

#include "model/history.h"

#include <cstdint>
#include <optional>

namespace velt {

struct FolderCompressionResult {
    bool didWrite = false;  // a new output was installed
    // Source size minus output size; negative when a requested conversion came out larger.
    std::int64_t savedBytes = 0;
    std::optional<CompressionHistoryEntry> historyEntry;
};

}  // namespace velt
