#include "ui/history_text.h"

#include <QFileInfo>
#include <QLocale>
#include <cmath>

namespace velt::ui {

QString historyColumnTitle(const QString& identifier, AppLanguage language) {
    if (identifier == QLatin1String("file")) return text(language, Text::historyColumnFile);
    if (identifier == QLatin1String("result")) return text(language, Text::historyColumnResult);
    if (identifier == QLatin1String("saved")) return text(language, Text::historyColumnSaved);
    return text(language, Text::historyColumnDate);
}

int historyColumnWidth(const QString& identifier) {
    if (identifier == QLatin1String("file")) return 220;
    if (identifier == QLatin1String("result")) return 190;
    if (identifier == QLatin1String("saved")) return 90;
    return 130;
}

QString historyByteCount(std::int64_t bytes, AppLanguage language) {
    const QLocale locale(language == AppLanguage::english ? QStringLiteral("en_US")
                                                          : QStringLiteral("ru_RU"));
    const double value = static_cast<double>(std::max<std::int64_t>(bytes, 0));
    // A unit is used once the amount rounds to at least one of it.
    if (value >= 999'500'000.0)
        return text(language, Text::unitGigabytes, {locale.toString(value / 1e9, 'f', 2)});
    if (value >= 999'500.0)
        return text(language, Text::unitMegabytes, {locale.toString(value / 1e6, 'f', 1)});
    const double kilobytes = value > 0 ? std::max(1.0, std::round(value / 1e3)) : 0.0;
    return text(language, Text::unitKilobytes, {locale.toString(kilobytes, 'f', 0)});
}

QString historyDate(const QDateTime& date, AppLanguage language) {
    const QLocale locale(language == AppLanguage::english ? QStringLiteral("en_US")
                                                          : QStringLiteral("ru_RU"));
    const QDateTime local = date.toLocalTime();
    return locale.toString(local.date(), QLocale::ShortFormat) + QStringLiteral(", ") +
           locale.toString(local.time(), QLocale::ShortFormat);
}

QString historyCellText(const CompressionHistoryEntry& entry, const QString& identifier,
                        AppLanguage language) {
    const bool compressed = entry.status == CompressionHistoryStatus::compressed;
    if (identifier == QLatin1String("file")) return QFileInfo(entry.sourceURL).fileName();
    if (identifier == QLatin1String("result")) {
        if (compressed && entry.originalBytes && entry.outputBytes)
            return historyByteCount(*entry.originalBytes, language) + QStringLiteral(" → ") +
                   historyByteCount(*entry.outputBytes, language);
        return entry.displayStatus(language);
    }
    if (identifier == QLatin1String("saved")) {
        const auto saved = entry.savedBytes();
        if (!compressed || !saved) return QStringLiteral("—");
        return historyByteCount(*saved, language);
    }
    return historyDate(entry.date, language);
}

QString historySummary(const CompressionHistory& history, AppLanguage language) {
    if (history.empty()) return text(language, Text::historySummaryEmpty);
    return text(
        language, Text::historySummary,
        {QString::number(history.size()), historyByteCount(totalSavedBytes(history), language)});
}

}  // namespace velt::ui
