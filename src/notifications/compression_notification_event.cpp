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
    return text(language, Text::quotedName, {name});
}

}  // namespace

CompressionNotificationEvent::CompressionNotificationEvent(Kind kind, QString path,
                                                           std::optional<Message> reason)
    : kind_(kind), path_(std::move(path)), reason_(std::move(reason)) {}

CompressionNotificationEvent CompressionNotificationEvent::unsupportedFile(const QString& path) {
    return {Kind::unsupportedFile, path, {}};
}

CompressionNotificationEvent CompressionNotificationEvent::processingFailed(const QString& path,
                                                                            const Message& reason) {
    return {Kind::processingFailed, path, reason};
}

CompressionNotificationEvent CompressionNotificationEvent::watcherFailed(const Message& reason) {
    return {Kind::watcherFailed, {}, reason};
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
            return text(language, Text::unsupportedFileTitle);
        case Kind::processingFailed:
            return text(language, Text::processingFailedTitle);
        case Kind::watcherFailed:
            return text(language, Text::watcherFailedTitle);
        case Kind::alreadyOptimal:
            return text(language, Text::alreadyOptimalTitle);
        case Kind::animatedImage:
            return text(language, Text::animatedImageTitle);
    }
    return {};
}

QString CompressionNotificationEvent::body(AppLanguage language) const {
    const QString name = quoted(language, fileName(path_));
    const QString reason = reason_ ? shortenedMessage(reason_->inLanguage(language)) : QString();
    switch (kind_) {
        case Kind::unsupportedFile:
            return text(language, Text::unsupportedFileBody, {appName, name});
        case Kind::processingFailed:
            return name + QStringLiteral(": ") + reason;
        case Kind::watcherFailed:
            return reason;
        case Kind::alreadyOptimal:
            return text(language, Text::alreadyOptimalBody, {name});
        case Kind::animatedImage:
            return text(language, Text::animatedImageBody, {name});
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
