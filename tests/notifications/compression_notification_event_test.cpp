#include "notifications/compression_notification_event.h"

#include <gtest/gtest.h>

namespace velt {
namespace {

using Event = CompressionNotificationEvent;

const QString photo = QStringLiteral("/home/u/Фото/./IMG 1.HEIC");

TEST(NotificationEvent, KeysAndSystemNotification) {
    const std::tuple<Event, const char*, bool> cases[] = {
        {Event::unsupportedFile(photo), "unsupported:/home/u/Фото/IMG 1.HEIC", true},
        {Event::processingFailed(photo, QStringLiteral("x")), "failed:/home/u/Фото/IMG 1.HEIC",
         true},
        {Event::watcherFailed(QStringLiteral("gone")), "watcher", true},
        {Event::alreadyOptimal(photo), "optimal:/home/u/Фото/IMG 1.HEIC", false},
    };
    for (const auto& [event, key, allows] : cases) {
        EXPECT_EQ(event.dedupeKey(), QString::fromUtf8(key));
        EXPECT_EQ(event.allowsSystemNotification(), allows) << key;
    }
}

TEST(NotificationEvent, TitlesAndBodiesInBothLanguages) {
    const auto ru = AppLanguage::russian;
    const auto en = AppLanguage::english;
    const Event unsupported = Event::unsupportedFile(QStringLiteral("/f/clip.MOV"));
    EXPECT_EQ(unsupported.title(ru), QStringLiteral("Файл не поддерживается"));
    EXPECT_EQ(unsupported.body(ru), QStringLiteral("VELT | Compressor пропустил «clip.MOV»."));
    EXPECT_EQ(unsupported.body(en), QStringLiteral("VELT | Compressor skipped “clip.MOV”."));

    const Event failed = Event::processingFailed(QStringLiteral("/f/a.png"), QStringLiteral("Bad"));
    EXPECT_EQ(failed.title(en), QStringLiteral("Could not compress file"));
    EXPECT_EQ(failed.body(ru), QStringLiteral("«a.png»: Bad"));
    EXPECT_EQ(failed.body(en), QStringLiteral("“a.png”: Bad"));

    const Event watcher = Event::watcherFailed(QStringLiteral("No folder"));
    EXPECT_EQ(watcher.title(ru), QStringLiteral("Папка недоступна"));
    EXPECT_EQ(watcher.body(en), QStringLiteral("No folder"));

    const Event optimal = Event::alreadyOptimal(QStringLiteral("/f/b.jpg"));
    EXPECT_EQ(optimal.title(en), QStringLiteral("File already optimal"));
    EXPECT_EQ(optimal.body(ru),
              QStringLiteral("«b.jpg» оставлен без изменений: новый файл был бы тяжелее."));
    EXPECT_EQ(optimal.body(en),
              QStringLiteral("“b.jpg” was left unchanged because the new file would be larger."));
}

TEST(NotificationEvent, MessageShorteningAtTheBoundary) {
    const QString exactly120(120, QLatin1Char('m'));
    EXPECT_EQ(shortenedMessage(exactly120), exactly120);
    const QString long121(121, QLatin1Char('m'));
    EXPECT_EQ(shortenedMessage(long121), QString(117, QLatin1Char('m')) + QStringLiteral("..."));
    // Emoji are one character each and are never split.
    QString emoji;
    for (int i = 0; i < 121; ++i) emoji += QStringLiteral("📷");
    const QString cut = shortenedMessage(emoji);
    EXPECT_TRUE(cut.endsWith(QStringLiteral("📷...")));
    EXPECT_EQ(cut.size(), 117 * 2 + 3);
    QString emoji120;
    for (int i = 0; i < 120; ++i) emoji120 += QStringLiteral("📷");
    EXPECT_EQ(shortenedMessage(emoji120), emoji120);
    EXPECT_EQ(Event::processingFailed(QStringLiteral("/a.jpg"), long121).body(AppLanguage::english),
              QStringLiteral("“a.jpg”: ") + QString(117, QLatin1Char('m')) + QStringLiteral("..."));
}

}  // namespace
}  // namespace velt
