#include "notifications/compression_notification_event.h"

#include <gtest/gtest.h>

namespace velt {
namespace {

using Event = CompressionNotificationEvent;

// Longer than 120 characters: the first 117 and "..."; an emoji counts as one and is never split.
TEST(NotificationEvent, MessageShorteningAtTheBoundary) {
    for (const QString& unit : {QStringLiteral("m"), QStringLiteral("📷")}) {
        EXPECT_EQ(shortenedMessage(unit.repeated(120)), unit.repeated(120));
        EXPECT_EQ(shortenedMessage(unit.repeated(121)), unit.repeated(117) + QStringLiteral("..."));
    }
    // Keys use the clean path (the watcher's key, and which events reach the desktop: the
    // manager's log). The reason is cut in the words of the language it is shown in.
    const QString photo = QStringLiteral("/Фото/./IMG 1.HEIC");
    EXPECT_EQ(Event::unsupportedFile(photo).dedupeKey(),
              QStringLiteral("unsupported:/Фото/IMG 1.HEIC"));
    const Message appeared{Text::outputNameAppeared, {QString(100, u'm')}};
    EXPECT_EQ(
        Event::processingFailed(QStringLiteral("/a.jpg"), appeared).body(AppLanguage::russian),
        QStringLiteral("«a.jpg»: ") + appeared.inLanguage(AppLanguage::russian).left(117) +
            QStringLiteral("..."));
}

}  // namespace
}  // namespace velt
