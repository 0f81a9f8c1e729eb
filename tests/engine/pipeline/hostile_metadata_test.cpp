// Metadata that is corrupt, oversized or built to hurt never stops compression: it is dropped
// with one log line and the photo is still compressed.
#include "camera_photos.h"
#include "engine/pipeline/process.h"
#include "support/test_environment.h"
#include "support/test_images.h"
#include "watcher/engine_test_rig.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <QtEndian>

namespace velt {
namespace {

// Little-endian TIFF pieces.
QByteArray u16(int value) {
    QByteArray bytes(2, '\0');
    qToLittleEndian<quint16>(static_cast<quint16>(value), bytes.data());
    return bytes;
}
QByteArray u32(quint32 value) {
    QByteArray bytes(4, '\0');
    qToLittleEndian<quint32>(value, bytes.data());
    return bytes;
}
QByteArray entry(int tag, int type, quint32 count, quint32 value) {
    return u16(tag) + u16(type) + u32(count) + u32(value);
}

const QByteArray tiffHeader = QByteArray("II*\0", 4) + u32(8);
constexpr int ascii = 2, longType = 4, undefined = 7;

// 60 KB of junk behind a valid header: a huge entry count and random entries.
QByteArray junkExif() {
    QByteArray junk = tiffHeader;
    quint32 state = 12345;
    while (junk.size() < 60 * 1024) {
        state = state * 1103515245u + 12345u;
        junk.append(static_cast<char>(state >> 16));
    }
    return junk;
}

// IFD0 names the camera and points to itself, as its EXIF directory and as the next directory.
QByteArray loopingExif() {
    return tiffHeader + u16(2) + entry(0x010F, ascii, 4, qFromLittleEndian<quint32>("Cam")) +
           entry(0x8769, longType, 1, 8) + u32(8);
}

// A maker note claiming sixteen megabytes in a block of a few dozen bytes.
QByteArray lyingMakerNoteExif() {
    const quint32 exifIfd = 8 + 2 + 2 * 12 + 4 + 6;
    const quint32 makerNote = exifIfd + 2 + 12 + 4;
    return tiffHeader + u16(2) + entry(0x010F, ascii, 6, 8 + 2 + 2 * 12 + 4) +
           entry(0x8769, longType, 1, exifIfd) + u32(0) + QByteArray("Canon\0", 6) + u16(1) +
           entry(0x927C, undefined, 0x00FFFFFF, makerNote) + u32(0) +
           QByteArray("Canon maker note, short");
}

TEST(HostileMetadata, IsDroppedWithOneLineAndThePhotoIsStillCompressed) {
    const QByteArray xmpHeader("http://ns.adobe.com/xap/1.0/\0", 29);
    const std::pair<const char*, QByteArray> cases[] = {
        {"junk", QByteArray("Exif\0\0", 6) + junkExif()},
        {"loop", QByteArray("Exif\0\0", 6) + loopingExif()},
        {"makernote", QByteArray("Exif\0\0", 6) + lyingMakerNoteExif()},
        {"xmp", xmpHeader + QByteArray("<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF><unclosed")},
    };
    for (const auto& [name, app1] : cases) {
        testing::ContextRig rig;
        const QString source = rig.file(QStringLiteral("hostile.jpg"));
        ASSERT_TRUE(testing::writeJPEGWithCjpeg(testing::photoLikeBitmap(160, 120), 95, source));
        testing::writeFile(source, testing::withApp1(testing::readFile(source), {app1}));

        FolderCompressionResult result;
        ASSERT_NO_THROW(result = process(rig.context, source)) << name;
        ASSERT_TRUE(result.didWrite) << name;
        const QString output = *result.historyEntry->outputURL;
        const auto decoded = testing::decodeIndependently(output);
        ASSERT_TRUE(decoded) << name;
        EXPECT_EQ(decoded->width, 160) << name;
        const QByteArray log = testing::readFile(rig.data.file(QStringLiteral("native.log")));
        EXPECT_EQ(log.count("Metadata dropped from hostile.jpg: "), 1) << name << "\n"
                                                                       << log.toStdString();
        // Nothing of the hostile block reached the output.
        const QJsonObject tags = testing::exiftoolTags(output);
        EXPECT_FALSE(testing::tagValue(tags, QStringLiteral("Make"))) << name;
        EXPECT_FALSE(testing::tagValue(tags, QStringLiteral("MakerNoteUnknownText"))) << name;
        EXPECT_LT(QFileInfo(output).size(), QFileInfo(source).size() - app1.size()) << name;
    }
}

}  // namespace
}  // namespace velt
