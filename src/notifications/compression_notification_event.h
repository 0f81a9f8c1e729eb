// CompressionNotificationEvent: an outcome the user should hear about, as the engine and the
// store report it. Shown as a short menu-bar notice and, when it allows it, as a desktop
// notification (at most once per dedupe key within the notification cooldown).
#pragma once

#include "model/text_catalogue.h"

#include <QString>
#include <optional>

namespace velt {

class CompressionNotificationEvent {
  public:
    enum class Kind {
        unsupportedFile,
        processingFailed,
        watcherFailed,
        alreadyOptimal,
        animatedImage,  // left as it is: a compressed copy would keep only its first frame
    };

    static CompressionNotificationEvent unsupportedFile(const QString& path);
    static CompressionNotificationEvent processingFailed(const QString& path,
                                                         const Message& reason);
    static CompressionNotificationEvent watcherFailed(const Message& reason);
    static CompressionNotificationEvent alreadyOptimal(const QString& path);
    static CompressionNotificationEvent animatedImage(const QString& path);

    Kind kind() const { return kind_; }
    // The file concerned (empty for watcherFailed).
    const QString& path() const { return path_; }
    // What went wrong (processingFailed and watcherFailed), put into words by body().
    const std::optional<Message>& reason() const { return reason_; }

    // "unsupported:" / "failed:" / "optimal:" / "animated:" + standardised path, or "watcher".
    QString dedupeKey() const;
    // False for alreadyOptimal and animatedImage: menu-bar notices, never desktop notifications.
    bool allowsSystemNotification() const;
    QString title(AppLanguage language) const;
    QString body(AppLanguage language) const;

    bool operator==(const CompressionNotificationEvent&) const = default;

  private:
    CompressionNotificationEvent(Kind kind, QString path, std::optional<Message> reason);

    Kind kind_;
    QString path_;
    std::optional<Message> reason_;
};

// Messages of 121 characters or more are cut to their first 117 and "..."; shorter ones whole.
QString shortenedMessage(const QString& message);

}  // namespace velt
