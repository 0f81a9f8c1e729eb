#include "engine/registry/processed_file_registry.h"

#include "engine/registry/legacy_registry_file.h"
#include "model/atomic_file.h"
#include "model/native_log.h"
#include "model/paths.h"

#include <sqlite3.h>
#include <QDir>
#include <QFileInfo>
#include <bit>

namespace velt {
namespace {

using Clock = std::chrono::system_clock;

const char* const schema = R"(
CREATE TABLE IF NOT EXISTS meta (key TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS files (
    path TEXT PRIMARY KEY,
    decision TEXT NOT NULL,
    size INTEGER NOT NULL, head INTEGER NOT NULL, tail INTEGER NOT NULL,
    modified INTEGER, created INTEGER, inode TEXT,
    settings TEXT, updated INTEGER NOT NULL,
    output TEXT, output_size INTEGER, output_head INTEGER, output_tail INTEGER,
    backup TEXT, failure TEXT, environment INTEGER NOT NULL DEFAULT 0,
    attempts INTEGER NOT NULL DEFAULT 0, backup_digest BLOB);
CREATE TABLE IF NOT EXISTS backups (path TEXT PRIMARY KEY, size INTEGER NOT NULL) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS files_by_output ON files (output) WHERE output IS NOT NULL;
)";

const char* const columns =
    "decision, size, head, tail, modified, created, inode, settings, updated, output, "
    "output_size, output_head, output_tail, backup, failure, environment, attempts, backup_digest";

// Hashes span the whole unsigned 64-bit range; SQLite keeps their bits in a signed integer.
sqlite3_int64 fromHash(std::uint64_t hash) {
    return std::bit_cast<sqlite3_int64>(hash);
}

std::uint64_t toHash(sqlite3_int64 value) {
    return std::bit_cast<std::uint64_t>(value);
}

sqlite3_int64 nanoseconds(FileTime time) {
    return time.time_since_epoch().count();
}

// The statements of one connection, finalized with it.
struct Statement {
    sqlite3_stmt* handle = nullptr;
    ~Statement() { sqlite3_finalize(handle); }
    // Ready for a new use: reset and unbound.
    sqlite3_stmt* operator*() const {
        sqlite3_reset(handle);
        sqlite3_clear_bindings(handle);
        return handle;
    }
};

void bindText(sqlite3_stmt* statement, int index, const std::optional<QString>& text) {
    if (!text) {
        sqlite3_bind_null(statement, index);
        return;
    }
    const QByteArray utf8 = text->toUtf8();
    sqlite3_bind_text(statement, index, utf8.constData(), static_cast<int>(utf8.size()),
                      SQLITE_TRANSIENT);
}

void bindInteger(sqlite3_stmt* statement, int index, std::optional<sqlite3_int64> value) {
    if (value)
        sqlite3_bind_int64(statement, index, *value);
    else
        sqlite3_bind_null(statement, index);
}

std::optional<QString> columnText(sqlite3_stmt* statement, int index) {
    if (sqlite3_column_type(statement, index) == SQLITE_NULL) return std::nullopt;
    return QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(statement, index)),
                             sqlite3_column_bytes(statement, index));
}

std::optional<sqlite3_int64> columnInteger(sqlite3_stmt* statement, int index) {
    if (sqlite3_column_type(statement, index) == SQLITE_NULL) return std::nullopt;
    return sqlite3_column_int64(statement, index);
}

// Binds a record to parameters 2… (parameter 1 is the path), in the order of `columns`.
void bindRecord(sqlite3_stmt* s, const ProcessedFileRecord& r) {
    bindText(s, 2, rawValue(r.decision));
    sqlite3_bind_int64(s, 3, r.fingerprint.size);
    sqlite3_bind_int64(s, 4, fromHash(r.fingerprint.headHash));
    sqlite3_bind_int64(s, 5, fromHash(r.fingerprint.tailHash));
    bindInteger(s, 6, r.modifiedAt ? std::optional(nanoseconds(*r.modifiedAt)) : std::nullopt);
    bindInteger(s, 7, r.createdAt ? std::optional(nanoseconds(*r.createdAt)) : std::nullopt);
    bindText(s, 8, r.resourceIdentifier);
    bindText(s, 9, r.settingsKey);
    sqlite3_bind_int64(
        s, 10,
        std::chrono::duration_cast<std::chrono::microseconds>(r.updatedAt.time_since_epoch())
            .count());
    bindText(s, 11, r.output);
    const auto& out = r.outputFingerprint;
    bindInteger(s, 12, out ? std::optional<sqlite3_int64>(out->size) : std::nullopt);
    bindInteger(s, 13, out ? std::optional(fromHash(out->headHash)) : std::nullopt);
    bindInteger(s, 14, out ? std::optional(fromHash(out->tailHash)) : std::nullopt);
    bindText(s, 15, r.backup);
    bindText(s, 16, r.failure.isEmpty() ? std::nullopt : std::optional(r.failure));
    sqlite3_bind_int(s, 17, r.environmentFailure ? 1 : 0);
    sqlite3_bind_int(s, 18, r.attempts);
    if (r.backupDigest.isEmpty())
        sqlite3_bind_null(s, 19);
    else
        sqlite3_bind_blob(s, 19, r.backupDigest.constData(),
                          static_cast<int>(r.backupDigest.size()), SQLITE_TRANSIENT);
}

// Reads a record from columns `first`… in the order of `columns`.
std::optional<ProcessedFileRecord> readRecord(sqlite3_stmt* s, int first) {
    const auto column = [&](int i) { return first + i; };
    const auto decision =
        processedDecisionFromRawValue(columnText(s, column(0)).value_or(QString()));
    if (!decision) return std::nullopt;
    ProcessedFileRecord r;
    r.decision = *decision;
    r.fingerprint = {sqlite3_column_int64(s, column(1)), toHash(sqlite3_column_int64(s, column(2))),
                     toHash(sqlite3_column_int64(s, column(3)))};
    if (const auto ns = columnInteger(s, column(4)))
        r.modifiedAt = FileTime(std::chrono::nanoseconds(*ns));
    if (const auto ns = columnInteger(s, column(5)))
        r.createdAt = FileTime(std::chrono::nanoseconds(*ns));
    r.resourceIdentifier = columnText(s, column(6));
    r.settingsKey = columnText(s, column(7));
    r.updatedAt = Clock::time_point(std::chrono::duration_cast<Clock::duration>(
        std::chrono::microseconds(sqlite3_column_int64(s, column(8)))));
    r.output = columnText(s, column(9));
    if (const auto size = columnInteger(s, column(10)))
        r.outputFingerprint = ContentFingerprint{*size, toHash(sqlite3_column_int64(s, column(11))),
                                                 toHash(sqlite3_column_int64(s, column(12)))};
    r.backup = columnText(s, column(13));
    r.failure = columnText(s, column(14)).value_or(QString());
    r.environmentFailure = sqlite3_column_int(s, column(15)) != 0;
    r.attempts = sqlite3_column_int(s, column(16));
    if (sqlite3_column_type(s, column(17)) == SQLITE_BLOB)
        r.backupDigest = QByteArray(static_cast<const char*>(sqlite3_column_blob(s, column(17))),
                                    sqlite3_column_bytes(s, column(17)));
    return r;
}

}  // namespace

struct ProcessedFileRegistry::Statements {
    Statement find, findByOutput, remember, forget, forgetOutput, count;
    Statement rememberBackup, backupSize, forgetBackup;
};

ProcessedFileRegistry::ProcessedFileRegistry(const QString& path) {
    if (open(path)) return;
    // The engine still remembers what it does until it stops.
    if (db_) sqlite3_close(db_);
    db_ = nullptr;
    if (!open(QStringLiteral(":memory:"))) {
        if (db_) sqlite3_close(db_);
        db_ = nullptr;
    }
}

ProcessedFileRegistry::~ProcessedFileRegistry() {
    statements_.reset();
    if (db_) sqlite3_close(db_);
}

QString ProcessedFileRegistry::defaultPath() {
    return veltDataFilePath(registryFileName);
}

bool ProcessedFileRegistry::open(const QString& path) {
    const bool inMemory = path == QLatin1String(":memory:");
    const bool existed = inMemory || QFileInfo::exists(path);
    if (!inMemory) QDir().mkpath(QFileInfo(path).absolutePath());
    if (sqlite3_open_v2(path.toUtf8().constData(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                        nullptr) != SQLITE_OK) {
        logFailure("open");
        return false;
    }
    // Another copy of the program (a batch beside the watcher) may be writing: wait a little.
    sqlite3_busy_timeout(db_, 5000);
    // Write-ahead log: each decision is one small append, readers never wait for a writer, and
    // a crash keeps every committed decision.
    if (sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;", nullptr, nullptr,
                     nullptr) != SQLITE_OK ||
        sqlite3_exec(db_, schema, nullptr, nullptr, nullptr) != SQLITE_OK) {
        logFailure("open");
        return false;
    }
    // A database of an earlier version has no backup hashes yet (the column exists already in
    // any other case, and adding it again fails harmlessly).
    sqlite3_exec(db_, "ALTER TABLE files ADD COLUMN backup_digest BLOB", nullptr, nullptr, nullptr);
    auto statements = std::make_unique<Statements>();
    const QByteArray select = QByteArrayLiteral("SELECT ") + columns;
    const QByteArray insert = QByteArrayLiteral("INSERT OR REPLACE INTO files (path, ") + columns +
                              ") VALUES (?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11,?12,?13,?14,?15,?16,"
                              "?17,?18,?19)";
    const std::pair<Statement*, QByteArray> prepared[] = {
        {&statements->find, select + " FROM files WHERE path = ?1"},
        {&statements->findByOutput,
         "SELECT path, " + QByteArray(columns) + " FROM files WHERE output = ?1 LIMIT 1"},
        {&statements->remember, insert},
        {&statements->forget, "DELETE FROM files WHERE path = ?1"},
        {&statements->forgetOutput,
         "UPDATE files SET output = NULL, output_size = NULL, output_head = NULL, "
         "output_tail = NULL WHERE path = ?1"},
        {&statements->count, "SELECT count(*) FROM files"},
        {&statements->rememberBackup,
         "INSERT OR REPLACE INTO backups (path, size) VALUES (?1, ?2)"},
        {&statements->backupSize, "SELECT size FROM backups WHERE path = ?1"},
        {&statements->forgetBackup, "DELETE FROM backups WHERE path = ?1"},
    };
    for (const auto& [statement, sql] : prepared) {
        if (sqlite3_prepare_v3(db_, sql.constData(), -1, SQLITE_PREPARE_PERSISTENT,
                               &statement->handle, nullptr) != SQLITE_OK) {
            logFailure("open");
            return false;
        }
    }
    statements_ = std::move(statements);
    if (!existed) {
        const QString legacy = QFileInfo(path).dir().filePath(legacyRegistryFileName);
        if (const auto data = readWholeFile(legacy)) {
            const auto rows = decodeLegacyRegistry(*data);
            sqlite3_exec(db_, "BEGIN", nullptr, nullptr, nullptr);
            if (rows)
                for (const auto& [file, record] : *rows) remember(file, record);
            sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
            NativeLog::write(QStringLiteral("Imported %1 records from %2")
                                 .arg(rows ? rows->size() : 0)
                                 .arg(legacyRegistryFileName));
        }
    }
    return true;
}

void ProcessedFileRegistry::logFailure(const char* step) const {
    NativeLog::write(QStringLiteral("Processed registry save failed: ") + QLatin1String(step) +
                     QStringLiteral(": ") +
                     QString::fromUtf8(db_ ? sqlite3_errmsg(db_) : "out of memory"));
}

std::optional<ProcessedFileRecord> ProcessedFileRegistry::find(const QString& path) const {
    const std::lock_guard lock(mutex_);
    if (!statements_) return std::nullopt;
    sqlite3_stmt* s = *statements_->find;
    bindText(s, 1, path);
    if (sqlite3_step(s) != SQLITE_ROW) return std::nullopt;
    return readRecord(s, 0);
}

std::optional<std::pair<QString, ProcessedFileRecord>> ProcessedFileRegistry::findByOutput(
    const QString& output) const {
    const std::lock_guard lock(mutex_);
    if (!statements_) return std::nullopt;
    sqlite3_stmt* s = *statements_->findByOutput;
    bindText(s, 1, output);
    if (sqlite3_step(s) != SQLITE_ROW) return std::nullopt;
    const auto record = readRecord(s, 1);
    if (!record) return std::nullopt;
    return std::pair{*columnText(s, 0), *record};
}

void ProcessedFileRegistry::remember(const QString& path, const ProcessedFileRecord& record) {
    const std::lock_guard lock(mutex_);
    if (!statements_) return;
    sqlite3_stmt* s = *statements_->remember;
    bindText(s, 1, path);
    bindRecord(s, record);
    if (sqlite3_step(s) != SQLITE_DONE) logFailure("write");
}

void ProcessedFileRegistry::forget(const QString& path) {
    const std::lock_guard lock(mutex_);
    if (!statements_) return;
    sqlite3_stmt* s = *statements_->forget;
    bindText(s, 1, path);
    if (sqlite3_step(s) != SQLITE_DONE) logFailure("write");
}

void ProcessedFileRegistry::forgetOutput(const QString& source) {
    const std::lock_guard lock(mutex_);
    if (!statements_) return;
    sqlite3_stmt* s = *statements_->forgetOutput;
    bindText(s, 1, source);
    if (sqlite3_step(s) != SQLITE_DONE) logFailure("write");
}

std::int64_t ProcessedFileRegistry::count() const {
    const std::lock_guard lock(mutex_);
    if (!statements_) return 0;
    sqlite3_stmt* s = *statements_->count;
    return sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : 0;
}

void ProcessedFileRegistry::rememberBackup(const QString& path, std::int64_t size) {
    const std::lock_guard lock(mutex_);
    if (!statements_) return;
    sqlite3_stmt* s = *statements_->rememberBackup;
    bindText(s, 1, path);
    sqlite3_bind_int64(s, 2, size);
    if (sqlite3_step(s) != SQLITE_DONE) logFailure("write");
}

std::optional<std::int64_t> ProcessedFileRegistry::backupSize(const QString& path) const {
    const std::lock_guard lock(mutex_);
    if (!statements_) return std::nullopt;
    sqlite3_stmt* s = *statements_->backupSize;
    bindText(s, 1, path);
    if (sqlite3_step(s) != SQLITE_ROW) return std::nullopt;
    return sqlite3_column_int64(s, 0);
}

void ProcessedFileRegistry::forgetBackup(const QString& path) {
    const std::lock_guard lock(mutex_);
    if (!statements_) return;
    sqlite3_stmt* s = *statements_->forgetBackup;
    bindText(s, 1, path);
    if (sqlite3_step(s) != SQLITE_DONE) logFailure("write");
}

}  // namespace velt
