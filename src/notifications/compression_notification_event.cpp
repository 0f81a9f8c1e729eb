#include "notifications/compression_notification_event.h"

#include "model/constants.h"
#include "model/file_url.h"

#include <QFileInfo>
#include <QTextBoundaryFinder>

namespace velt {
namespace {

QString fileName(const QString& path) {
    return QFileInfo(path).fileName();
}

// «name» in Russian, “name” in English.
QString quoted(AppLanguage language, const QString& name) {
    return text(language, QStringLiteral("«") + name + QStringLiteral("»"),
                QStringLiteral("“") + name + QStringLiteral("”"));
}

}  // namespace

CompressionNotificationEvent::CompressionNotificationEvent(Kind kind, QString path, QString message)
    : kind_(kind), path_(std::move(path)), message_(std::move(message)) {}

CompressionNotificationEvent CompressionNotificationEvent::unsupportedFile(const QString& path) {
    return {Kind::unsupportedFile, path, {}};
}

CompressionNotificationEvent CompressionNotificationEvent::processingFailed(
    const QString& path, const QString& message) {
    return {Kind::processingFailed, path, message};
}

CompressionNotificationEvent CompressionNotificationEvent::watcherFailed(const QString& message) {
    return {Kind::watcherFailed, {}, message};
}

CompressionNotificationEvent CompressionNotificationEvent::alreadyOptimal(const QString& path) {
    return {Kind::alreadyOptimal, path, {}};
}

CompressionNotificationEvent CompressionNotificationEvent::animatedImage(const QString& path) {
    return {Kind::animatedImage, path, {}};
}

QString CompressionNotificationEvent::dedupeKey() const {
    switch (kind_) {
        case Kind::unsupportedFile:
            return QStringLiteral("unsupported:") + standardizedPath(path_);
        case Kind::processingFailed:
            return QStringLiteral("failed:") + standardizedPath(path_);
        case Kind::watcherFailed:
            return QStringLiteral("watcher");
        case Kind::alreadyOptimal:
            return QStringLiteral("optimal:") + standardizedPath(path_);
        case Kind::animatedImage:
            return QStringLiteral("animated:") + standardizedPath(path_);
    }
    return {};
}

bool CompressionNotificationEvent::allowsSystemNotification() const {
    return kind_ != Kind::alreadyOptimal && kind_ != Kind::animatedImage;
}

QString CompressionNotificationEvent::title(AppLanguage language) const {
    switch (kind_) {
        case Kind::unsupportedFile:
            return text(language, QStringLiteral("Файл не поддерживается"),
                        QStringLiteral("Unsupported file"));
        case Kind::processingFailed:
            return text(language, QStringLiteral("Не удалось сжать файл"),
                        QStringLiteral("Could not compress file"));
        case Kind::watcherFailed:
            return text(language, QStringLiteral("Папка недоступна"),
                        QStringLiteral("Folder unavailable"));
        case Kind::alreadyOptimal:
            return text(language, QStringLiteral("Файл уже оптимален"),
                        QStringLiteral("File already optimal"));
        case Kind::animatedImage:
            return text(language, QStringLiteral("Анимация оставлена как есть"),
                        QStringLiteral("Animation left as it is"));
    }
    return {};
}

QString CompressionNotificationEvent::body(AppLanguage language) const {
    const QString name = quoted(language, fileName(path_));
    switch (kind_) {
        case Kind::unsupportedFile:
            return text(language, appName + QStringLiteral(" пропустил ") + name + QLatin1Char('.'),
                        appName + QStringLiteral(" skipped ") + name + QLatin1Char('.'));
        case Kind::processingFailed:
            return name + QStringLiteral(": ") + shortenedMessage(message_);
        case Kind::watcherFailed:
            return shortenedMessage(message_);
        case Kind::alreadyOptimal:
            return text(
                language,
                name + QStringLiteral(" оставлен без изменений: новый файл был бы тяжелее."),
                name + QStringLiteral(" was left unchanged because the new file would be larger."));
        case Kind::animatedImage:
            return text(language,
                        name + QStringLiteral(" не сжат: это анимация, а сжатая копия сохранила бы "
                                              "только первый кадр."),
                        name + QStringLiteral(" was not compressed: it is animated, and a "
                                              "compressed copy would keep only its first frame."));
    }
    return {};
}

QString shortenedMessage(const QString& message) {
    // Counted in user-perceived characters, so an emoji or a combined letter counts once and is
    // never cut in half.
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, message);
    qsizetype characters = 0;
    qsizetype cutAt = message.size();
    while (finder.toNextBoundary() != -1) {
        ++characters;
        if (characters == 117) cutAt = finder.position();
    }
    if (characters < 121) return message;
    return message.left(cutAt) + QStringLiteral("...");
}

}  // namespace velt
