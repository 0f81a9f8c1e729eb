// Text forms of sizes and days shared by every view and by the backup folder names.
#pragma once

#include "model/app_language.h"

#include <QDateTime>
#include <QString>
#include <cstdint>

namespace velt {

// Human-readable size in steps of 1024: "0 B" below one byte, then B, KB, MB, GB (a terabyte
// reads "1024 GB"). One decimal for KB and above while the value is below 10, chosen before
// rounding, so 10239 bytes read "10.0 KB" and 10240 read "10 KB". Same in every language.
QString formatBytes(std::int64_t bytes);
// The same amount in the words of `language`: "1,5 КБ" in Russian, as formatBytes in English.
QString formatBytes(std::int64_t bytes, AppLanguage language);

// The local calendar day of `moment` as "yyyy-MM-dd" (names the per-day backup folder).
QString isoDay(const QDateTime& moment = QDateTime::currentDateTime());

}  // namespace velt
