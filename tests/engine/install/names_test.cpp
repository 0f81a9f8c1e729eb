// Names of temporary and moved-aside files: split of base and extension, the hidden name format
// and a fresh UUID per call.
#include "engine/install/safe_install.h"
#include "install_support.h"

#include <gtest/gtest.h>
#include <QRegularExpression>
#include <QUuid>

namespace velt {
namespace {

struct SplitCase {
    const char* name;
    const char* base;
    const char* extension;
};

TEST(FileNameSplitTest, ExtensionIsTextAfterLastDotThatIsNotFirst) {
    const SplitCase cases[] = {
        {"photo.jpg", "photo", "jpg"},
        {"photo.final.JPG", "photo.final", "JPG"},
        {"archive.tar.gz", "archive.tar", "gz"},
        {".hidden", ".hidden", ""},
        {".hidden.png", ".hidden", "png"},
        {"README", "README", ""},
        {"my holiday photo.jpeg", "my holiday photo", "jpeg"},
        {"фото отпуск.HEIC", "фото отпуск", "HEIC"},
        {"🎉 party 🎉.webp", "🎉 party 🎉", "webp"},
    };
    for (const SplitCase& c : cases) {
        const FileNameParts parts = splitFileName(QString::fromUtf8(c.name));
        EXPECT_EQ(parts.base, QString::fromUtf8(c.base)) << c.name;
        EXPECT_EQ(parts.extension, QString::fromUtf8(c.extension)) << c.name;
    }
}

struct TempNameCase {
    const char* finalPath;
    QString marker;
    const char* expected;  // with the UUID written as UUID
};

TEST(TempUrlTest, HiddenNameBesideTheFinalFileWithUpperCaseUuid) {
    const TempNameCase cases[] = {
        {"/w/a_veltcompressed.webp", tempFileMarker, "/w/.a_veltcompressed.velt-temp-UUID.webp"},
        {"/w/sub/photo.final.JPG", replaceFileMarker, "/w/sub/.photo.final.velt-replace-UUID.JPG"},
        {"/w/README", tempFileMarker, "/w/.README.velt-temp-UUID.tmp"},
        {"/w/.hidden", replaceFileMarker, "/w/..hidden.velt-replace-UUID.tmp"},
        {"/w/мой снимок 🎉.png", tempFileMarker, "/w/.мой снимок 🎉.velt-temp-UUID.png"},
    };
    const QRegularExpression uuid(
        QStringLiteral("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"));
    for (const TempNameCase& c : cases) {
        const QString path = tempURL(QString::fromUtf8(c.finalPath), c.marker);
        const QRegularExpressionMatch match = uuid.match(path);
        ASSERT_TRUE(match.hasMatch()) << path.toStdString();
        EXPECT_FALSE(QUuid::fromString(match.captured()).isNull()) << path.toStdString();
        EXPECT_EQ(QString(path).replace(uuid, QStringLiteral("UUID")),
                  QString::fromUtf8(c.expected));
    }
}

TEST(TempUrlTest, EveryCallGivesANewNameAndCreatesNothing) {
    testing::Folder folder;
    const QString finalPath = folder.file(QStringLiteral("b.jpg"));
    const QString first = tempURL(finalPath);
    const QString second = tempURL(finalPath);
    EXPECT_NE(first, second);
    EXPECT_TRUE(folder.state().empty());
}

}  // namespace
}  // namespace velt
