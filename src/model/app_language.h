// The interface language and the one way every bilingual text is chosen.
#pragma once

#include <QString>
#include <optional>

namespace velt {

enum class AppLanguage { russian, english };

// "russian" / "english".
QString rawValue(AppLanguage language);
std::optional<AppLanguage> appLanguageFromRawValue(const QString& raw);

// "Русский" / "English", the same in both interface languages.
QString title(AppLanguage language);

// The English text when the language is English, otherwise the Russian one (Russian is the
// default of the program, so anything unexpected reads Russian).
inline QString text(AppLanguage language, const QString& russian, const QString& english) {
    return language == AppLanguage::english ? english : russian;
}

}  // namespace velt
