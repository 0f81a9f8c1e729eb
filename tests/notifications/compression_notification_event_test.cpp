#include "notifications/compression_notification_event.h"

#include <gtest/gtest.h>

namespace velt {
namespace {

using Event = CompressionNotificationEvent;

TEST(NotificationEvent, KeysAndSystemNotification) {
    const QString photo = QStringLiteral("/Фото/./IMG 1.HEIC");  // keys use the clean path
    const std::tuple<Event, const char*, bool> cases[] = {
        {Event::unsupportedFile(photo), "unsupported:/Фото/IMG 1.HEIC", true},
        {Event::processingFailed(photo, QStringLiteral("x")), "failed:/Фото/IMG 1.HEIC", true},
        {Event::watcherFailed(QStringLiteral("gone")), "watcher", true},
        {Event::alreadyOptimal(photo), "optimal:/Фото/IMG 1.HEIC", false},
    };
    for (const auto& [event, key, allows] : cases) {
        EXPECT_EQ(event.dedupeKey(), QString::fromUtf8(key));
        EXPECT_EQ(event.allowsSystemNotification(), allows) << key;
    }
}

// Longer than 120 characters: the first 117 and "..."; an emoji counts as one and is never split.
TEST(NotificationEvent, MessageShorteningAtTheBoundary) {
    for (const QString& unit : {QStringLiteral("m"), QStringLiteral("📷")}) {
        EXPECT_EQ(shortenedMessage(unit.repeated(120)), unit.repeated(120));
        EXPECT_EQ(shortenedMessage(unit.repeated(121)), unit.repeated(117) + QStringLiteral("..."));
    }
    const QString m121(121, u'm');
    EXPECT_EQ(Event::processingFailed(QStringLiteral("/a.jpg"), m121).body(AppLanguage::english),
              QStringLiteral("“a.jpg”: ") + m121.left(117) + QStringLiteral("..."));
}

}  // namespace
}  // namespace velt
