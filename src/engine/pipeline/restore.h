// Undoing a compression on the user's request: an original that was replaced is put back from
// its verified backup, byte for byte, in place of the program's output; for an original that was
// kept, the compressed copy beside it is removed. The file is then remembered as restored, so
// that it is not compressed again until it changes.
//
// Nothing is removed unless what the user would lose exists verified elsewhere: the backup must
// hold exactly the SHA-256 recorded when it was made (the copy put back is checked again), and
// an output is removed or replaced only while it still holds what the program wrote.
//
// Runs on the engine's queue (or in a process of its own, for the command line).
#pragma once

#include "engine/registry/processed_file_registry.h"
#include "model/history.h"
#include "model/reported_error.h"

#include <QString>
#include <cstdint>
#include <optional>
#include <stdexcept>

namespace velt {

// Why an original could not be restored or a compressed copy removed. Nothing was changed.
enum class RestoreFailure {
    nothingToRestore,  // the program has no compression of this file to undo
    backupMissing,     // no backup of the original exists, or no hash of it was recorded
    backupChanged,     // the backup is there but no longer holds the original (changed, cut)
    nameTaken,         // the original's name is taken by another file
    copyChanged,       // the compressed copy no longer holds what the program wrote
    originalMissing,   // a kept original is gone: its compressed copy is all that is left
};

// A restore refused; nothing was changed. `file` is the file the failure names.
class RestoreError : public std::runtime_error, public ReportedError {
  public:
    RestoreError(RestoreFailure failure, const QString& file);
    RestoreFailure failure() const { return failure_; }
    const QString& file() const { return file_; }
    Message reason() const override;

  private:
    RestoreFailure failure_;
    QString file_;
};

struct RestoreOutcome {
    QString original;                // the original's path now (restored or kept)
    std::optional<QString> removed;  // the program's output that is gone, if one was
    bool fromBackup = false;         // put back from a backup (else a kept copy was removed)
    std::int64_t originalBytes = 0;
};

// Undoes the compression of `file`: the original's name, or the output's. `watchDirectory` is
// where backups are looked for when the recorded one is gone (else the nearest folder above the
// file that holds a backup folder). With `besideWhenTaken`, an original whose name another file
// now holds comes back beside it under a free name ("photo (restored).png"); without, that is
// RestoreFailure::nameTaken. Throws RestoreError, or FileSystemError when a step fails (the
// files are then as they were).
RestoreOutcome restoreFile(ProcessedFileRegistry& registry, const QString& file,
                           const std::optional<QString>& watchDirectory, bool besideWhenTaken);

// The history's "restored" entry of an outcome.
CompressionHistoryEntry restoredHistoryEntry(const RestoreOutcome& outcome);

// The name an original that is restored beside `taken` gets: "base (restored).ext", then
// "base (restored 2).ext", ...
QString restoredBesideName(const QString& taken);

}  // namespace velt
