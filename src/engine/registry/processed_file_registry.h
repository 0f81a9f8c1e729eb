// ProcessedFileRegistry: the engine's persistent memory of the files it has settled, one record
// per source, so that a restart decodes nothing it has handled, and of the outputs it wrote for
// each source, so that it never replaces or removes a file it did not write. An SQLite database,
// "processed-files.sqlite" in the data folder: a lookup is an index search however many files
// it holds, and each decision is written in its own transaction, so a kill or a power cut loses
// at most the decisions not yet written and never damages the others. The registry file of
// earlier versions ("processed-files.json") is imported once, the first time the database is
// made.
//
// Never throws and never shows an error: a database that cannot be opened or written is logged
// ("Processed registry save failed: …") and the engine goes on with a registry in memory.
//
// Thread-safety: every operation may be called from any thread (a batch's workers share one).
#pragma once

#include "engine/registry/processed_file_record.h"

#include <QString>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

struct sqlite3;
struct sqlite3_stmt;

namespace velt {

inline const QString registryFileName = QStringLiteral("processed-files.sqlite");

class ProcessedFileRegistry {
  public:
    // Opens the database at `path` (the data folder's by default), making it when missing.
    explicit ProcessedFileRegistry(const QString& path = defaultPath());
    ~ProcessedFileRegistry();
    ProcessedFileRegistry(const ProcessedFileRegistry&) = delete;
    ProcessedFileRegistry& operator=(const ProcessedFileRegistry&) = delete;

    static QString defaultPath();

    // The record of the file at `path` (a standardised absolute path).
    std::optional<ProcessedFileRecord> find(const QString& path) const;
    // The source whose recorded output is `output`, with its record.
    std::optional<std::pair<QString, ProcessedFileRecord>> findByOutput(
        const QString& output) const;
    // Writes the record of `path`, replacing an earlier one.
    void remember(const QString& path, const ProcessedFileRecord& record);
    void forget(const QString& path);
    // Clears the output recorded for `source` (the output was removed).
    void forgetOutput(const QString& source);
    std::int64_t count() const;

    // The backup copies the engine wrote, each with its size: the only files that removing old
    // backups may ever touch.
    void rememberBackup(const QString& path, std::int64_t size);
    std::optional<std::int64_t> backupSize(const QString& path) const;
    void forgetBackup(const QString& path);

  private:
    struct Statements;
    bool open(const QString& path);
    void logFailure(const char* step) const;

    mutable std::mutex mutex_;
    sqlite3* db_ = nullptr;                   // guarded by mutex_
    std::unique_ptr<Statements> statements_;  // guarded by mutex_
};

}  // namespace velt
