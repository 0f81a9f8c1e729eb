// Metadata written into encoded files: the colour profile and the pixels stay.
#include "imageio/metadata.h"
#include "support/test_images.h"

#include <gtest/gtest.h>
#include <QFile>
#include <QTemporaryDir>

namespace velt::imageio {
namespace {

// EXIF and XMP blocks as exiv2 writes them. (What each policy carries through the pipeline is
// checked in engine/pipeline/output_table_test.cpp.)
ImageMetadata cameraMetadata() {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("m.jpg"));
    encodeImage(testing::card(16, 8, false), ImageFormat::jpeg, 90, path);
    testing::runTool(
        QStringLiteral("exiftool"),
        {QStringLiteral("-q"), QStringLiteral("-overwrite_original"),
         QStringLiteral("-Model=VELT Camera"), QStringLiteral("-XMP-photoshop:City=Lyon"), path});
    return readPhotoMetadata(path, MetadataPolicy::keepAll).carried;
}

QByteArray exiftool(const QString& path, const char* tag) {
    return testing::runTool(QStringLiteral("exiftool"),
                            {QStringLiteral("-s3"), QStringLiteral("-n"),
                             QLatin1Char('-') + QLatin1String(tag), path})
        .trimmed();
}

TEST(Metadata, WrittenIntoJpegAndPngKeepsProfileAndPixels) {
    Bitmap bitmap = testing::card(48, 32, false);
    bitmap.colorSpace = {ColorModel::rgb, QStringLiteral("Display P3"),
                         testing::displayP3Profile()};
    const ImageMetadata metadata = cameraMetadata();
    ASSERT_FALSE(metadata.exif.isEmpty());
    for (const ImageFormat format : {ImageFormat::jpeg, ImageFormat::png}) {
        QTemporaryDir dir;
        const QString plain = dir.filePath(QStringLiteral("plain.") + fileExtension(format));
        const QString carried = dir.filePath(QStringLiteral("carried.") + fileExtension(format));
        encodeImage(bitmap, format, 90, plain);
        QFile file(plain);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QByteArray written = withMetadata(file.readAll(), format, metadata);
        QFile out(carried);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly) && out.write(written) == written.size());
        out.close();
        QByteArray icc;
        const auto before = testing::decodeIndependently(plain);
        const auto after = testing::decodeIndependently(carried, &icc);
        ASSERT_TRUE(before && after);
        EXPECT_EQ(icc, testing::displayP3Profile()) << fileExtension(format).toStdString();
        EXPECT_EQ(after->rgba, before->rgba) << fileExtension(format).toStdString();
        EXPECT_EQ(exiftool(carried, "Model"), "VELT Camera");
        EXPECT_EQ(exiftool(carried, "City"), "Lyon");
    }
}

}  // namespace
}  // namespace velt::imageio
