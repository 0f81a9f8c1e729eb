// The steps of an update hand-over, each small and separately testable: waiting for the old
// process, checking a staged bundle, swapping folders, starting the program, and the helper's
// own log.
#pragma once

#include <sys/types.h>
#include <chrono>
#include <filesystem>
#include <string>

namespace velt::updater {

// Appends "[time stamp] message" to updater.log in the program's log folder.
void logLine(const std::string& message);

// Waits until process `pid` has ended; false when it is still running after `limit`.
bool waitForProcessEnd(pid_t pid, std::chrono::seconds limit);

// Runs `<bundle>/bin/velt-compressor --version` (at most 30 s); its first output line when it
// exits 0 and names the product, otherwise an empty text.
std::string reportedVersion(const std::filesystem::path& bundle);

// Exchanges the two folders in one step; false (errno set) when the file system cannot.
bool exchangeFolders(const std::filesystem::path& first, const std::filesystem::path& second);

// Starts `<bundle>/bin/velt-compressor` in a session of its own with no arguments and output to
// the null device; its process id, or -1 when it could not be started.
pid_t startProgram(const std::filesystem::path& bundle);

}  // namespace velt::updater
