// The engine's timing: how often the folder is polled and how long files must hold still.
#pragma once

#include <chrono>

namespace velt {

using namespace std::chrono_literals;

// A file must keep the same signature this long before it is processed.
inline constexpr std::chrono::milliseconds writeStabilityInterval = 800ms;
// Delay between a scan request and the scan; a newer request replaces an older one.
inline constexpr std::chrono::milliseconds scanDebounceInterval = 350ms;
// Period (and first delay) of the poll timer.
inline constexpr std::chrono::milliseconds pollingInterval = 1000ms;
// How long a file the engine just touched is left alone.
inline constexpr std::chrono::milliseconds recentWriteCooldown = 4000ms;
// How long an output the engine wrote still counts as its own when its content cannot be read.
inline constexpr std::chrono::milliseconds ownWriteSettlingInterval = 8000ms;
// Rest after each processed file, so the finished state is visible and a burst of files does
// not saturate the machine.
inline constexpr std::chrono::milliseconds restAfterProcessedFile = 120ms;

// With file events a tick that saw no change lists nothing; the folder is still listed at least
// this often, for changes no event reports (network file systems, a missed event).
inline constexpr std::chrono::milliseconds fullScanInterval = 30000ms;

// The intervals in force. Production uses the constants above; tests may shorten them.
struct EngineTiming {
    std::chrono::milliseconds writeStability = writeStabilityInterval;
    std::chrono::milliseconds scanDebounce = scanDebounceInterval;
    std::chrono::milliseconds polling = pollingInterval;
    std::chrono::milliseconds recentWriteCooldown = velt::recentWriteCooldown;
    std::chrono::milliseconds ownWriteSettling = ownWriteSettlingInterval;
    std::chrono::milliseconds restAfterFile = restAfterProcessedFile;
    std::chrono::milliseconds fullScan = fullScanInterval;
};

}  // namespace velt
