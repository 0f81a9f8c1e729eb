// Metadata written into encoded files: the colour profile and the pixels stay, the policy is
// applied, and each format carries what it can.
#include "imageio/metadata.h"
#include "support/test_images.h"

#include <gtest/gtest.h>
#include <QFile>
#include <QTemporaryDir>

namespace velt::imageio {
namespace {

// A TIFF block, as exiv2 writes it, with a camera, an orientation and a GPS position.
ImageMetadata cameraMetadata() {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("m.jpg"));
    encodeImage(testing::card(16, 8, false), ImageFormat::jpeg, 90, path);
    testing::runTool(QStringLiteral("exiftool"),
                     {QStringLiteral("-q"), QStringLiteral("-overwrite_original"),
                      QStringLiteral("-Model=VELT Camera"), QStringLiteral("-IFD0:Orientation#=8"),
                      QStringLiteral("-GPSLatitude=10"), QStringLiteral("-GPSLatitudeRef=N"),
                      QStringLiteral("-XMP-photoshop:City=Lyon"), path});
    return readMetadataForOutput(path, MetadataPolicy::keepAll);
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
        EXPECT_EQ(exiftool(carried, "Orientation"), "1");  // the pixels are upright
        EXPECT_EQ(exiftool(carried, "GPSLatitude"), "10");
        EXPECT_EQ(exiftool(carried, "City"), "Lyon");
    }
}

TEST(Metadata, PoliciesFilterTheBlocks) {
    const ImageMetadata all = cameraMetadata();
    const struct {
        MetadataPolicy policy;
        bool camera;
        bool location;
    } cases[] = {{MetadataPolicy::keepAll, true, true},
                 {MetadataPolicy::keepWithoutLocation, true, false},
                 {MetadataPolicy::strip, false, false}};
    for (const auto& c : cases) {
        const ImageMetadata filtered = filteredMetadata(all, c.policy);
        EXPECT_EQ(filtered.exif.contains("VELT Camera"), c.camera)
            << rawValue(c.policy).toStdString();
        EXPECT_EQ(filtered.xmp.contains("Lyon"), c.location) << rawValue(c.policy).toStdString();
        // Filtering what was already filtered changes nothing.
        EXPECT_EQ(filteredMetadata(filtered, c.policy), filtered);
    }
    EXPECT_NE(filteredMetadata(all, MetadataPolicy::keepWithoutLocation).exif.size(),
              all.exif.size());  // the GPS directory went
    EXPECT_THROW(
        filteredMetadata({QByteArray("not a TIFF at all"), {}, {}}, MetadataPolicy::keepAll),
        MetadataError);
    EXPECT_THROW(withMetadata(QByteArray("x"), ImageFormat::heic, all), MetadataError);
}

}  // namespace
}  // namespace velt::imageio
