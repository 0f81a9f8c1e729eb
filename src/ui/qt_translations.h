// Qt's own words (the folder dialog, standard buttons, text field menus) in the interface
// language: Qt's Russian translation (Debian's qt6-translations-l10n) is installed while the
// language is Russian and removed for English. Without the package Qt stays English.
//
// Main thread only.
#pragma once

#include "model/app_language.h"

#include <QTranslator>
#include <memory>
#include <optional>

namespace velt::ui {

class QtTranslations {
  public:
    ~QtTranslations();
    // Installs or removes the translation for `language`; nothing when it is already so.
    void follow(AppLanguage language);
    // Whether Qt's Russian translation is installed now.
    bool isRussianLoaded() const { return translator_ != nullptr; }

  private:
    std::unique_ptr<QTranslator> translator_;
    std::optional<AppLanguage> language_;
};

}  // namespace velt::ui
