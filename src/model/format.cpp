#include "model/format.h"

#include <array>

namespace velt {

QString formatBytes(std::int64_t bytes) {
    if (bytes < 1) return QStringLiteral("0 B");
    static const std::array<QString, 4> units = {QStringLiteral("B"), QStringLiteral("KB"),
                                                 QStringLiteral("MB"), QStringLiteral("GB")};
    double value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1024 && unit + 1 < units.size()) {
        value /= 1024;
        ++unit;
    }
    const int decimals = (unit > 0 && value < 10) ? 1 : 0;
    // QString::number ignores the process locale, so the separator is always a point.
    return QString::number(value, 'f', decimals) + QLatin1Char(' ') + units[unit];
}

QString isoDay(const QDateTime& moment) {
    return moment.toLocalTime().date().toString(QStringLiteral("yyyy-MM-dd"));
}

}  // namespace velt
