// The texts of the history table: cell values by column, byte amounts and dates the way the
// desktop shows them in the interface language.
#pragma once

#include "model/history.h"

#include <QString>
#include <cstdint>

namespace velt::ui {

// Column identifiers, in table order.
inline const QStringList historyColumnIdentifiers = {
    QStringLiteral("file"), QStringLiteral("result"), QStringLiteral("saved"),
    QStringLiteral("date")};
QString historyColumnTitle(const QString& identifier, AppLanguage language);
int historyColumnWidth(const QString& identifier);

// A file size in decimal units as file managers count them: KB without decimals, MB with one,
// GB with two ("0 KB", "523 KB", "1.2 MB"; Russian "1,2 МБ"). Never bytes.
QString historyByteCount(std::int64_t bytes, AppLanguage language);
// Short date and short time in ru_RU or en_US ("23.11.2026, 14:05" / "11/23/26, 2:05 PM").
QString historyDate(const QDateTime& date, AppLanguage language);
// The cell of `entry` under the column `identifier`.
QString historyCellText(const CompressionHistoryEntry& entry, const QString& identifier,
                        AppLanguage language);
// "Операций: N · Сэкономлено: X" / "Operations: N · Saved: X", or the placeholder when empty.
QString historySummary(const CompressionHistory& history, AppLanguage language);

}  // namespace velt::ui
