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

TEST(NotificationEvent, TitlesAndBodiesInBothLanguages) {
    using enum AppLanguage;
    const Event unsupported = Event::unsupportedFile(QStringLiteral("/f/clip.MOV"));
    const Event failed = Event::processingFailed(QStringLiteral("/f/a.png"), QStringLiteral("Bad"));
    const Event watcher = Event::watcherFailed(QStringLiteral("No folder"));
    const Event optimal = Event::alreadyOptimal(QStringLiteral("/f/b.jpg"));
    const std::pair<QString, const char*> cases[] = {
        {unsupported.title(russian), "Файл не поддерживается"},
        {unsupported.body(russian), "VELT | Compressor пропустил «clip.MOV»."},
        {unsupported.body(english), "VELT | Compressor skipped “clip.MOV”."},
        {failed.title(english), "Could not compress file"},
        {failed.body(russian), "«a.png»: Bad"},
        {failed.body(english), "“a.png”: Bad"},
        {watcher.title(russian), "Папка недоступна"},
        {watcher.body(english), "No folder"},
        {optimal.title(english), "File already optimal"},
        {optimal.body(russian), "«b.jpg» оставлен без изменений: новый файл был бы тяжелее."},
        {optimal.body(english), "“b.jpg” was left unchanged because the new file would be larger."},
    };
    for (const auto& [actual, expected] : cases) EXPECT_EQ(actual, QString::fromUtf8(expected));
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
