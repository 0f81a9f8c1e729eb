// The activity history: one entry per processed file, newest first, at most 500, persisted as
// "compression-history.json"; and the live statistics of the engine's current run.
#pragma once

#include "model/text_catalogue.h"

#include <QDateTime>
#include <QString>
#include <QUuid>
#include <cstdint>
#include <optional>
#include <vector>

namespace velt {

// restored: a compression undone (an original put back from its backup, or a kept original's
// compressed copy removed).
enum class CompressionHistoryStatus { compressed, alreadyOptimal, failed, restored };

QString rawValue(CompressionHistoryStatus status);
std::optional<CompressionHistoryStatus> historyStatusFromRawValue(const QString& raw);

struct CompressionHistoryEntry {
    QUuid id;
    QDateTime date;
    QString sourceURL;  // absolute path of the processed file
    std::optional<QString> outputURL;
    std::optional<std::int64_t> originalBytes;
    std::optional<std::int64_t> outputBytes;
    CompressionHistoryStatus status = CompressionHistoryStatus::failed;
    // The text stored by a version that kept only English words ("message"): shown as it is
    // when no code says what it means.
    std::optional<QString> message;
    // What happened, as a catalogue code and its arguments: shown in the current language.
    // Stored as "messageCode" and "messageArguments", with its English text as "message" for
    // readers that know only that key.
    std::optional<Message> reason;

    // Original minus output, never negative; nothing when either size is unknown.
    std::optional<std::int64_t> savedBytes() const;
    // "Сжато"/"Compressed", "Уже оптимально"/"Already optimal", "Восстановлено"/"Restored", or
    // for a failure its reason in `language`, else its stored message, else "Ошибка"/"Error".
    QString displayStatus(AppLanguage language) const;

    bool operator==(const CompressionHistoryEntry&) const = default;
};

using CompressionHistory = std::vector<CompressionHistoryEntry>;

inline constexpr std::size_t historyLimit = 500;
inline const QString historyFileName = QStringLiteral("compression-history.json");

// Puts `entry` first and drops the oldest entries beyond historyLimit.
void insertNewest(CompressionHistory& history, CompressionHistoryEntry entry);

// Sum of savedBytes over the entries that have one, leaving out compressions a later restore
// undid (its file, by the original's name or the output's).
std::int64_t totalSavedBytes(const CompressionHistory& history);

// Nothing when the data is not an array of valid entries (one bad entry spoils the whole file).
std::optional<CompressionHistory> decodeHistory(const QByteArray& data);
// A JSON array; dates as ISO 8601 whole-second UTC text, absent optionals omitted.
QByteArray encodeHistory(const CompressionHistory& history);

// The history in veltApplicationSupportDirectory(); empty, silently, on any failure.
CompressionHistory loadHistory();
// Writes the file atomically; a failure is logged ("History save failed ...") and returned as
// false, never shown.
bool saveHistory(const CompressionHistory& history);

// Live counters of the engine's current run; not persisted.
struct CompressionStats {
    int done = 0;
    int active = 0;
    std::optional<int> progress;  // whole percent 0-100 while work is in flight
    std::int64_t savedBytes = 0;
    int errors = 0;

    bool operator==(const CompressionStats&) const = default;
};

}  // namespace velt
