#include "ui/qt_translations.h"

#include "model/native_log.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>

namespace velt::ui {

QtTranslations::~QtTranslations() {
    if (translator_) QCoreApplication::removeTranslator(translator_.get());
}

void QtTranslations::follow(AppLanguage language) {
    if (language_ == language) return;
    language_ = language;
    if (translator_) {
        QCoreApplication::removeTranslator(translator_.get());
        translator_.reset();
    }
    if (language != AppLanguage::russian) return;
    auto translator = std::make_unique<QTranslator>();
    const QString folder = QLibraryInfo::path(QLibraryInfo::TranslationsPath);
    if (!translator->load(QLocale(QLocale::Russian), QStringLiteral("qtbase"), QStringLiteral("_"),
                          folder)) {
        NativeLog::write(QStringLiteral("Qt's Russian translation not found in ") + folder);
        return;
    }
    QCoreApplication::installTranslator(translator.get());
    translator_ = std::move(translator);
}

}  // namespace velt::ui
