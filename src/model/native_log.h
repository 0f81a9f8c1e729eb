// NativeLog: the one diagnostic log, "native.log" in veltLogDirectory(), with its rotated tail
// "native.log.1". Lines read "[2026-03-05 14:07:31 +0000] message" (UTC), English only.
//
// Thread-safe: called from the UI thread and the engine's queues. Never throws and never reports
// a failure: a log that cannot be written is silently lost, the program goes on.
#pragma once

#include <QString>
#include <cstdint>

namespace velt::NativeLog {

// Appends one line unconditionally.
void write(const QString& message);

// Appends one line only when $VELT_DEBUG_LOG, lower-cased, is "1", "true" or "yes"; the
// variable is read anew on every call.
void debug(const QString& message);

bool debugEnabled();

// The log is trimmed before a write once it is strictly larger than this many bytes...
inline constexpr std::int64_t rotationThresholdBytes = 1'000'001;
// ...keeping this many trailing bytes in "native.log.1" (cut anywhere, even mid-line).
inline constexpr std::int64_t rotatedTailBytes = 500'000;

}  // namespace velt::NativeLog
