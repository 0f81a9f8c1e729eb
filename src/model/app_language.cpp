#include "model/app_language.h"

namespace velt {

QString rawValue(AppLanguage language) {
    return language == AppLanguage::english ? QStringLiteral("english") : QStringLiteral("russian");
}

std::optional<AppLanguage> appLanguageFromRawValue(const QString& raw) {
    if (raw == QLatin1String("russian")) return AppLanguage::russian;
    if (raw == QLatin1String("english")) return AppLanguage::english;
    return std::nullopt;
}

QString title(AppLanguage language) {
    return language == AppLanguage::english ? QStringLiteral("English") : QStringLiteral("Русский");
}

}  // namespace velt
