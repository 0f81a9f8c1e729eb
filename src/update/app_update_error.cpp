#include "update/app_update_error.h"

#include "update/package_signature.h"

namespace velt {

AppUpdateError::AppUpdateError(Kind kind, QString message, int statusCode)
    : kind_(kind), message_(std::move(message)), statusCode_(statusCode) {
    what_ = errorDescription().toStdString();
}

AppUpdateError AppUpdateError::invalidManifest(const QString& message) {
    return AppUpdateError(Kind::invalidManifest, message);
}

AppUpdateError AppUpdateError::httpStatus(int code) {
    return AppUpdateError(Kind::httpStatus, {}, code);
}

AppUpdateError AppUpdateError::unsupportedSystem(const QString& requiredVersion) {
    return AppUpdateError(Kind::unsupportedSystem, requiredVersion);
}

AppUpdateError AppUpdateError::installation(const QString& message) {
    return AppUpdateError(Kind::installation, message);
}

AppUpdateError AppUpdateError::signatureRejected(const QString& message) {
    return AppUpdateError(Kind::signatureRejected, message);
}

QString AppUpdateError::errorDescription() const {
    switch (kind_) {
        case Kind::invalidManifest:
        case Kind::installation:
        case Kind::signatureRejected:
            return message_;
        case Kind::httpStatus:
            return QStringLiteral("The update server returned HTTP ") +
                   QString::number(statusCode_) + QLatin1Char('.');
        case Kind::unsupportedSystem:
            // The release's binaries need at least this C library; the manifest key keeps its
            // historical name.
            return QStringLiteral("This update requires glibc ") + message_ +
                   QStringLiteral(" or newer.");
        case Kind::noUpdatePackage:
            return QStringLiteral(
                "The update package is no longer available. Check for updates again.");
        case Kind::appRunningFromDiskImage:
            return QStringLiteral(
                "Move VELT | Compressor to a folder you can write to before installing an "
                "update.");
        case Kind::updaterHelperMissing:
            return QStringLiteral("The update helper is missing from the application bundle.");
        case Kind::checksumMismatch:
            return QStringLiteral(
                "The downloaded update checksum does not match the release manifest.");
        case Kind::updateKeyMissing:
            return describe(SignatureCheck::noKey);
    }
    return {};
}

QString AppUpdateError::userMessage(AppLanguage language) const {
    switch (kind_) {
        case Kind::invalidManifest:
            return text(language, QStringLiteral("Сервер обновлений вернул некорректные данные."),
                        QStringLiteral("The update server returned invalid data."));
        case Kind::httpStatus:
            return text(language,
                        QStringLiteral("Сервер обновлений временно недоступен. Повторите "
                                       "попытку позже."),
                        QStringLiteral("The update server is temporarily unavailable. Try again "
                                       "later."));
        case Kind::unsupportedSystem:
            return text(language,
                        QStringLiteral("Эта версия требует glibc ") + message_ +
                            QStringLiteral(" или новее."),
                        QStringLiteral("This update requires glibc ") + message_ +
                            QStringLiteral(" or newer."));
        case Kind::installation:
            return text(language,
                        QStringLiteral("Не удалось заменить приложение. Оно будет оставлено без "
                                       "изменений."),
                        QStringLiteral("The app could not be replaced. It was left unchanged."));
        case Kind::noUpdatePackage:
            return text(language,
                        QStringLiteral("Файл обновления больше недоступен. Проверьте обновления "
                                       "ещё раз."),
                        QStringLiteral("The update package is no longer available. Check "
                                       "again."));
        case Kind::appRunningFromDiskImage:
            return text(language,
                        QStringLiteral("Сначала переместите приложение в папку, доступную для "
                                       "записи, и запустите его оттуда."),
                        QStringLiteral("Move the app to a folder you can write to and launch it "
                                       "from there first."));
        case Kind::updaterHelperMissing:
            return text(language,
                        QStringLiteral("В сборке отсутствует компонент обновления. Скачайте "
                                       "приложение заново."),
                        QStringLiteral("The update component is missing from this build. "
                                       "Download the app again."));
        case Kind::checksumMismatch:
            return text(language,
                        QStringLiteral("Файл обновления повреждён или не совпадает с "
                                       "опубликованной сборкой."),
                        QStringLiteral("The update file is damaged or does not match the "
                                       "published build."));
        case Kind::signatureRejected:
            return text(language,
                        QStringLiteral("Подпись файла обновления не подтверждена. Приложение "
                                       "оставлено без изменений."),
                        QStringLiteral("The update file's signature could not be verified. The "
                                       "app was left unchanged."));
        case Kind::updateKeyMissing:
            return text(language,
                        QStringLiteral("Эта сборка не может проверять обновления. Скачайте новую "
                                       "версию с сайта."),
                        QStringLiteral("This build cannot verify updates. Download the new "
                                       "version from the website."));
    }
    return {};
}

QString UpdateFailure::userMessage(AppLanguage language) const {
    if (error) return error->userMessage(language);
    return text(language, QStringLiteral("Проверьте подключение к интернету и повторите попытку."),
                QStringLiteral("Check your internet connection and try again."));
}

}  // namespace velt
