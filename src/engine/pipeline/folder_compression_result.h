// What processing one file came to.
#pragma once

#include "model/history.h"

#include <QString>

#include <cstdint>
#include <optional>

namespace velt {

struct FolderCompressionResult {
    bool didWrite = false;  // a new output was installed
    // Source size minus output size; negative when a requested conversion came out larger.
    std::int64_t savedBytes = 0;
    std::optional<CompressionHistoryEntry> historyEntry;
    // When nothing was written and no history entry says why: the reason (an empty file, an
    // output that is up to date), for the batch report.
    std::optional<Message> nothingDoneReason;
};

}  // namespace velt
