// encodeImage's dispatch and file handling: unsupported formats, bad bitmaps, unwritable paths.
#include "encode_test_support.h"
#include "imageio/image_io.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::imageio::testing;

// Runs encodeImage and returns the error code it threw, or nothing when it succeeded.
std::optional<ImageIOError::Code> encodeError(const Bitmap& bitmap, ImageFormat format,
                                              const QString& path) {
    try {
        encodeImage(bitmap, format, 80, path);
    } catch (const ImageIOError& error) {
        EXPECT_FALSE(QString::fromStdString(error.what()).isEmpty());
        return error.code();
    }
    return std::nullopt;
}

// The profile a file carries, read by independent means: the JPEG's APP2 markers, libpng's iCCP,
// or the iCCP that heif-convert copies from a HEIF "prof" box.
QByteArray embeddedProfile(ImageFormat format, const QString& path) {
    if (format == ImageFormat::jpeg) return jpegICCProfile(velt::testing::readFile(path));
    const std::optional<PngContents> png =
        format == ImageFormat::png ? readPNG(path) : decodeWithHeifConvert(path);
    return png ? png->iccData : QByteArray("unreadable");
}

TEST(EncodeImage, EmbedsOnlyNonSRGBRGBProfiles) {
    struct Case {
        const char* label;
        ColorSpace space;
        bool embedded;
    };
    const std::vector<Case> cases = {
        {"display p3", colorSpaceFromICC(displayP3Profile()), true},
        {"untagged srgb", sRGBColorSpace(), false},
        {"named srgb profile", colorSpaceFromICC(srgbProfile()), false},
        {"grey profile", colorSpaceFromICC(linearGrayProfile()), false},
    };
    QTemporaryDir dir;
    for (const ImageFormat format :
         {ImageFormat::jpeg, ImageFormat::png, ImageFormat::heic, ImageFormat::avif}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(::testing::Message()
                         << c.label << " " << fileExtension(format).toStdString());
            Bitmap source = syntheticBitmap(48, 32, format == ImageFormat::png);
            source.colorSpace = c.space;
            const QString path =
                dir.filePath(QString::fromUtf8(c.label) + QLatin1Char('.') + fileExtension(format));
            encodeImage(source, format, 70, path);
            EXPECT_EQ(embeddedProfile(format, path), c.embedded ? c.space.iccData : QByteArray());
        }
    }
}

TEST(EncodeImage, FailuresThrowAndLeaveNoFile) {
    QTemporaryDir dir;
    const Bitmap good = syntheticBitmap(32, 24, false);
    Bitmap shortPixels = good;
    shortPixels.rgba.resize(shortPixels.rgba.size() - 4);
    Bitmap empty;
    const QString missingFolder = dir.filePath(QStringLiteral("missing/out.jpg"));
    const QString tooLongName =
        dir.filePath(QString(300, QLatin1Char('n')) + QStringLiteral(".png"));
    struct Case {
        const char* label;
        const Bitmap* bitmap;
        ImageFormat format;
        QString path;
        ImageIOError::Code code;
    };
    const std::vector<Case> cases = {
        {"webp", &good, ImageFormat::webp, dir.filePath(QStringLiteral("a.webp")),
         ImageIOError::unsupportedFormat},
        {"missing folder jpeg", &good, ImageFormat::jpeg, missingFolder, ImageIOError::writeFailed},
        {"missing folder heic", &good, ImageFormat::heic,
         dir.filePath(QStringLiteral("missing/out.heic")), ImageIOError::writeFailed},
        {"name too long", &good, ImageFormat::png, tooLongName, ImageIOError::writeFailed},
        {"short pixel buffer", &shortPixels, ImageFormat::png,
         dir.filePath(QStringLiteral("s.png")), ImageIOError::writeFailed},
        {"empty bitmap", &empty, ImageFormat::jpeg, dir.filePath(QStringLiteral("e.jpg")),
         ImageIOError::writeFailed},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(encodeError(*c.bitmap, c.format, c.path), c.code);
        EXPECT_FALSE(QFileInfo::exists(c.path));
    }
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("missing"))));
}

TEST(EncodeImage, ADirectoryInTheWayIsNotReplaced) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("taken.png"));
    ASSERT_TRUE(QDir().mkdir(path));
    EXPECT_EQ(encodeError(syntheticBitmap(8, 8, false), ImageFormat::png, path),
              ImageIOError::writeFailed);
    EXPECT_TRUE(QFileInfo(path).isDir());
}

TEST(EncodeImage, ReplacesAnExistingFile) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("out.jpg"));
    velt::testing::writeFile(path, QByteArray(1 << 20, 'x'));  // longer than the result
    encodeImage(syntheticBitmap(16, 16, false), ImageFormat::jpeg, 80, path);
    const QByteArray written = velt::testing::readFile(path);
    EXPECT_TRUE(written.startsWith("\xFF\xD8\xFF"));
    EXPECT_TRUE(written.endsWith("\xFF\xD9"));
    EXPECT_LT(written.size(), 1 << 20);
}

}  // namespace
}  // namespace velt::imageio
