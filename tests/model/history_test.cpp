#include "model/history.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QTimeZone>

namespace velt {
namespace {

CompressionHistoryEntry entry(
    int n, CompressionHistoryStatus status = CompressionHistoryStatus::compressed) {
    CompressionHistoryEntry e;
    e.id = QUuid::createUuid();
    e.date = QDateTime::fromSecsSinceEpoch(1'772'000'000 + n, QTimeZone::utc());
    e.sourceURL = QStringLiteral("/home/u/Фото/IMG %1.HEIC").arg(n);
    e.status = status;
    return e;
}

TEST(History, SavedBytesAndTotals) {
    const auto sized = [](int n, std::int64_t original, std::optional<std::int64_t> output) {
        auto e = entry(n);
        e.originalBytes = original;
        e.outputBytes = output;
        return e;
    };
    const CompressionHistory history = {sized(1, 1000, 1200), sized(2, 5000, 1200),
                                        sized(3, 5000, std::nullopt)};
    EXPECT_EQ(history[0].savedBytes(), 0);  // a larger output saves nothing
    EXPECT_EQ(history[1].savedBytes(), 3800);
    EXPECT_EQ(history[2].savedBytes(), std::nullopt);
    EXPECT_EQ(totalSavedBytes(history), 3800);

    // A restore takes back what the compressions of its file before it saved, not after.
    auto restored = entry(2, CompressionHistoryStatus::restored);
    CompressionHistory undone = history;
    undone.insert(undone.begin(), restored);
    EXPECT_EQ(totalSavedBytes(undone), 0);
    undone.insert(undone.begin(), sized(2, 5000, 1000));
    EXPECT_EQ(totalSavedBytes(undone), 4000);
}

TEST(History, RoundTripAtWholeSeconds) {
    testing::IsolatedDataFolder data;
    auto full = entry(1);
    full.date = full.date.addMSecs(789);  // fractions are not kept in the file
    full.outputURL = QStringLiteral("/home/u/Фото/IMG 1_veltcompressed.jpg");
    full.originalBytes = 4'000'000'000'000LL;
    full.outputBytes = 1;
    full.message = QStringLiteral("заметка \"quoted\"");
    auto failed = entry(2, CompressionHistoryStatus::failed);
    failed.reason = Message{Text::imageTooLarge, {QStringLiteral("8000"), QStringLiteral("7000")}};
    const CompressionHistory history = {full, failed};
    ASSERT_TRUE(saveHistory(history));

    const QByteArray text = testing::readFile(data.file(historyFileName));
    EXPECT_TRUE(text.startsWith("[{\"id\":\""));
    EXPECT_TRUE(text.contains("\"date\":\"2026-02-25T06:13:21Z\"")) << text.toStdString();
    EXPECT_TRUE(text.contains("file:///home/u/%D0%A4%D0%BE%D1%82%D0%BE/IMG%201.HEIC"));
    EXPECT_FALSE(text.contains("outputBytes\":null"));
    // The reason by its code, and its English words for readers that know only "message".
    EXPECT_TRUE(
        text.contains(R"x("message":"The image is too large to process safely (8000×7000))x"));
    EXPECT_TRUE(
        text.contains(R"x("messageCode":"imageTooLarge","messageArguments":["8000","7000"])x"));

    const CompressionHistory loaded = loadHistory();
    ASSERT_EQ(loaded.size(), 2u);
    EXPECT_EQ(loaded[0].date, full.date.addMSecs(-789));
    auto expected = full;
    expected.date = loaded[0].date;
    EXPECT_EQ(loaded[0], expected);
    EXPECT_EQ(loaded[1], history[1]);
}

// A result stored by a version that kept only English words reads in the interface language when
// it is one of the texts that version wrote, and as it was stored otherwise; an unknown code falls
// back to the stored words too.
TEST(History, StoredResultsReadInTheInterfaceLanguage) {
    const QByteArray file =
        R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","date":"2026-03-05T14:07:31Z",)"
        R"("sourceURL":"file:///a.jpg","status":"failed",%1}])";
    const auto ru = AppLanguage::russian;
    const std::pair<const char*, QString> stored[] = {
        {R"("message":"The image is too large to process safely (9000×7000).")",
         text(ru, Text::imageTooLarge, {QStringLiteral("9000"), QStringLiteral("7000")})},
        {R"("message":"The file “a.jpg” couldn’t be opened because it isn’t in the correct format.")",
         text(ru, Text::fileDamaged)},
        {R"("message":"Old words","messageCode":"renamedSinceThen")", QStringLiteral("Old words")},
    };
    for (const auto& [fields, shown] : stored) {
        const auto history = decodeHistory(QByteArray(file).replace("%1", fields));
        ASSERT_TRUE(history && history->size() == 1) << fields;
        EXPECT_EQ(history->front().displayStatus(ru), shown);
    }
}

TEST(History, BrokenFilesLoadEmpty) {
    testing::IsolatedDataFolder data;
    const QString path = data.file(historyFileName);
    ASSERT_TRUE(saveHistory({entry(1)}));
    const QByteArray good = testing::readFile(path);
    auto variant = [&](const char* from, const char* to) {
        QByteArray copy = good;
        return copy.replace(from, to);
    };
    const QByteArray broken[] = {
        variant(",\"status\":\"compressed\"", ""),       // required key missing
        variant("\"compressed\"", "\"shrunk\""),         // unknown status
        variant("T06:13:21Z", "T06:13:21.5Z"),           // fractions are not the file's form
        variant("Z\"", "\""),                            // no zone
        variant("\"date\":\"", "\"date\":\"yesterday"),  // not a date
        good.left(good.size() / 2),                      // truncated
        QByteArray("{}"),                                // not an array
        QByteArray("[{\"id\":1}]"),                      // wrong types
        QByteArray(1000, '\0'),                          // random bytes
        "[" + good.mid(1, good.size() - 2) + ",{\"id\":\"x\"}]",  // one good, one bad
    };
    for (const QByteArray& content : broken) {
        testing::writeFile(path, content);
        EXPECT_TRUE(loadHistory().empty()) << content.toStdString();
    }
    ASSERT_TRUE(QFile::remove(path));
    EXPECT_TRUE(loadHistory().empty());
    ASSERT_TRUE(QDir().mkpath(path));
    EXPECT_TRUE(loadHistory().empty());
    EXPECT_FALSE(saveHistory({entry(1)}));
    EXPECT_TRUE(testing::readFile(data.file(QStringLiteral("native.log")))
                    .contains("History save failed "));
}

TEST(History, SizesBeyondSignedRangeFail) {
    const QByteArray text =
        R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","date":"2026-03-05T14:07:31Z",)"
        R"("sourceURL":"file:///a.jpg","status":"compressed","originalBytes":%1}])";
    EXPECT_TRUE(decodeHistory(QByteArray(text).replace("%1", "9223372036854775807")));
    EXPECT_FALSE(decodeHistory(QByteArray(text).replace("%1", "9223372036854775808")));
    EXPECT_FALSE(decodeHistory(QByteArray(text).replace("%1", "1e3")));
}

}  // namespace
}  // namespace velt
