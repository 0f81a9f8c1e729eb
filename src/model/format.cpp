#include "model/format.h"

#include "model/text_catalogue.h"

#include <algorithm>
#include <array>

namespace velt {

QString formatBytes(std::int64_t bytes) {
    return formatBytes(bytes, AppLanguage::english);
}

QString formatBytes(std::int64_t bytes, AppLanguage language) {
    static constexpr std::array<Text, 4> units = {Text::unitBytes, Text::unitKilobytes,
                                                  Text::unitMegabytes, Text::unitGigabytes};
    double value = static_cast<double>(std::max<std::int64_t>(bytes, 0));
    std::size_t unit = 0;
    while (value >= 1024 && unit + 1 < units.size()) {
        value /= 1024;
        ++unit;
    }
    const int decimals = (unit > 0 && value < 10) ? 1 : 0;
    // QString::number ignores the process locale: a point, which Russian writes as a comma.
    QString number = QString::number(value, 'f', decimals);
    if (language == AppLanguage::russian) number.replace(QLatin1Char('.'), QLatin1Char(','));
    return text(language, units[unit], {number});
}

QString isoDay(const QDateTime& moment) {
    return moment.toLocalTime().date().toString(QStringLiteral("yyyy-MM-dd"));
}

}  // namespace velt
