// Every source through every output format under every metadata policy: each way cameras, editors
// and containers record a photo's orientation, and real camera photographs. A viewer that honours
// orientation (ImageMagick, see displayedByViewer) must show the output at the source's displayed
// size with the source's picture; every Orientation the source has is carried as upright (1)
// unless metadata is stripped; read back by exiftool, capture date, camera, lens, exposure and
// copyright survive, the location goes unless the user keeps everything, strip leaves nothing;
// metadata that is corrupt, oversized or built to hurt is dropped whole with one log line and the
// photo still compressed; every output carries the source's modification time.
#include "camera_photos.h"
#include "engine/pipeline/can_write.h"
#include "engine/pipeline/process.h"
#include "support/test_environment.h"
#include "support/test_images.h"
#include "watcher/engine_test_rig.h"

#include <gtest/gtest.h>
#include <QFile>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtEndian>
#include <bit>

namespace velt {
namespace {

using namespace Qt::StringLiterals;

enum TiffType : quint16 { shortType = 3, longType = 4, slongType = 9, floatType = 11 };

// A TIFF block whose IFD0 holds an Orientation of `type` for each of `values`, after `padding`
// other entries (a camera's IFD0 holds dozens).
QByteArray ifd0(const std::vector<quint32>& values, TiffType type = shortType,
                bool bigEndian = false, int padding = 0) {
    QByteArray t = bigEndian ? "MM" : "II";
    const auto put = [&](quint32 v, int bytes) {
        for (int i = 0; i < bytes; ++i) t += char(v >> 8 * (bigEndian ? bytes - 1 - i : i));
    };
    put(42, 2), put(8, 4), put(padding + int(values.size()), 2);
    for (int i = 0; i < padding; ++i) put(0x0001 + i, 2), put(shortType, 2), put(1, 4), put(0, 4);
    const int width = type == shortType ? 2 : 4;
    for (const quint32 v : values)
        put(0x0112, 2), put(type, 2), put(1, 4), put(v, width), put(0, 4 - width);
    put(0, 4);
    return t;
}

QByteArray xmpPacket(int orientation) {
    // The element form: ImageMagick does not read the attribute form.
    return QByteArray("http://ns.adobe.com/xap/1.0/\0", 29) +
           "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF "
           "xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description "
           "rdf:about='' xmlns:tiff='http://ns.adobe.com/tiff/1.0/'><tiff:Orientation>" +
           QByteArray::number(orientation) +
           "</tiff:Orientation></rdf:Description></rdf:RDF></x:xmpmeta>";
}

// Little-endian TIFF pieces, for blocks built to hurt.
QByteArray le(quint32 value, int bytes) {
    QByteArray b(4, '\0');
    qToLittleEndian(value, b.data());
    return b.left(bytes);
}
QByteArray entry(int tag, int type, quint32 count, quint32 value) {
    return le(tag, 2) + le(type, 2) + le(count, 4) + le(value, 4);
}
const QByteArray tiffHeader = QByteArray("II*\0", 4) + le(8, 4);

// 60 KB of junk behind a valid header: a huge entry count and random entries.
QByteArray junkExif() {
    QByteArray junk = tiffHeader;
    for (quint32 state = 12345; junk.size() < 60 * 1024;) {
        state = state * 1103515245u + 12345u;
        junk.append(static_cast<char>(state >> 16));
    }
    return junk;
}

// IFD0 names the camera and points to itself, as its EXIF directory and as the next directory.
QByteArray loopingExif() {
    return tiffHeader + le(2, 2) + entry(0x010F, 2, 4, qFromLittleEndian<quint32>("Cam")) +
           entry(0x8769, longType, 1, 8) + le(8, 4);
}

// A maker note claiming sixteen megabytes in a block of a few dozen bytes.
QByteArray lyingMakerNoteExif() {
    const quint32 exifIfd = 8 + 2 + 2 * 12 + 4 + 6;
    return tiffHeader + le(2, 2) + entry(0x010F, 2, 6, 8 + 2 + 2 * 12 + 4) +
           entry(0x8769, longType, 1, exifIfd) + le(0, 4) + QByteArray("Canon\0", 6) + le(1, 2) +
           entry(0x927C, 7, 0x00FFFFFF, exifIfd + 2 + 12 + 4) + le(0, 4) +
           "Canon maker note, short";
}

struct Source {
    QString name;
    ImageFormat format;
    QByteArray exif;
    QByteArray xmp = {};   // JPEG only
    int container = 1;     // HEIF irot/imir, in EXIF numbering
    int shown = 1;         // the turn a viewer applies (1: as stored)
    QString photo = {};    // the camera photograph it was prepared from
    bool hostile = false;  // metadata that is corrupt, oversized or built to hurt

    QString fileName() const { return name + u'.' + fileExtension(format); }
    QString outputName(MetadataPolicy policy, ImageFormat target) const {
        return name + u'-' + rawValue(policy) + u'.' + fileExtension(target);
    }
};

// What viewers do where writers disagree is this program's rule too: ImageMagick takes the first
// of a repeated Orientation and XMP's only when EXIF has none; 0, 9, 65535 and a FLOAT are no
// orientation; a HEIF is shown by its container's transform, never by its EXIF.
const Source sources[] = {
    {u"short"_s, ImageFormat::jpeg, ifd0({8}), {}, 1, 8},
    {u"long"_s, ImageFormat::jpeg, ifd0({5}, longType), {}, 1, 5},
    {u"slong"_s, ImageFormat::jpeg, ifd0({6}, slongType), {}, 1, 6},
    {u"big-endian"_s, ImageFormat::jpeg, ifd0({7}, slongType, true), {}, 1, 7},
    {u"many-entries"_s, ImageFormat::jpeg, ifd0({2}, shortType, false, 40), {}, 1, 2},
    {u"zero"_s, ImageFormat::jpeg, ifd0({0})},
    {u"nine"_s, ImageFormat::jpeg, ifd0({9})},
    {u"65535"_s, ImageFormat::jpeg, ifd0({65535})},
    {u"float"_s, ImageFormat::jpeg, ifd0({std::bit_cast<quint32>(6.0f)}, floatType)},
    {u"repeated"_s, ImageFormat::jpeg, ifd0({3, 6}), {}, 1, 3},
    {u"xmp-only"_s, ImageFormat::jpeg, {}, xmpPacket(4), 1, 4},
    {u"exif-and-xmp"_s, ImageFormat::jpeg, ifd0({8}), xmpPacket(6), 1, 8},
    {u"png-exif"_s, ImageFormat::png, ifd0({7}, slongType), {}, 1, 7},
    {u"webp-exif"_s, ImageFormat::webp, ifd0({6}, longType), {}, 1, 6},
    {u"heic-irot"_s, ImageFormat::heic, ifd0({3}), {}, 6, 6},
    {u"avif-imir"_s, ImageFormat::avif, ifd0({8}), {}, 5, 5},
    // Dropped whole with one log line; the photo is still compressed.
    {u"junk"_s, ImageFormat::jpeg, junkExif(), {}, 1, 1, {}, true},
    {u"loop"_s, ImageFormat::jpeg, loopingExif(), {}, 1, 1, {}, true},
    {u"makernote"_s, ImageFormat::jpeg, lyingMakerNoteExif(), {}, 1, 1, {}, true},
    {u"unclosed-xmp"_s,
     ImageFormat::jpeg,
     {},
     QByteArray("http://ns.adobe.com/xap/1.0/\0", 29) +
         "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF><unclosed",
     1,
     1,
     {},
     true},
};

constexpr MetadataPolicy policies[] = {MetadataPolicy::keepWithoutLocation, MetadataPolicy::keepAll,
                                       MetadataPolicy::strip};

void writeSource(const Source& s, const imageio::Bitmap& stored, const QString& path) {
    QTemporaryDir dir;
    switch (s.format) {
        case ImageFormat::jpeg: {
            const QByteArray exif = s.exif.isEmpty() ? s.exif : "Exif\0\0"_ba + s.exif;
            ASSERT_TRUE(testing::writeJPEGWithCjpeg(stored, 100, path));
            testing::writeFile(path, testing::withApp1(testing::readFile(path), {exif, s.xmp}));
            return;
        }
        case ImageFormat::png:
            testing::writeFile(path, testing::pngOf(stored, 8, {}, s.exif));
            return;
        case ImageFormat::webp:
            testing::writeFile(dir.filePath(u"in.ppm"_s), testing::toPNM(stored));
            testing::writeFile(dir.filePath(u"exif"_s), s.exif);
            testing::run("cwebp -quiet -q 95 %1/in.ppm -o %1/in.webp", dir.path());
            testing::runTool(u"webpmux"_s, {u"-set"_s, u"exif"_s, dir.filePath(u"exif"_s),
                                            dir.filePath(u"in.webp"_s), u"-o"_s, path});
            return;
        case ImageFormat::avif:
        case ImageFormat::heic:
            testing::writeHeif(stored, s.format, {s.container, s.exif, {}}, path);
            return;
    }
}

// Every Orientation exiftool finds: EXIF's, then XMP's.
std::vector<int> orientations(const QJsonObject& tags) {
    std::vector<int> values;
    for (const char* key : {"IFD0:Orientation", "XMP-tiff:Orientation"})
        if (tags.contains(QLatin1String(key))) values.push_back(tags[QLatin1String(key)].toInt(-1));
    return values;
}

// What a viewer shows of `path`, given the Orientation tags exiftool read in it.
std::optional<imageio::Bitmap> shown(const QString& path, const std::vector<int>& tags) {
    return testing::displayedByViewer(path, tags.empty() ? std::nullopt : std::optional(tags[0]));
}

class OutputTable : public ::testing::TestWithParam<ImageFormat> {};

TEST_P(OutputTable, EverySourceUnderEveryPolicyDisplaysLikeItselfAndKeepsItsData) {
    const ImageFormat target = GetParam();
    registerImageWriterTypes();
    ASSERT_TRUE(canWrite(target));
    const imageio::Bitmap stored = testing::photoLikeBitmap(90, 60);
    QTemporaryDir sourceFolder, outputFolder;
    std::vector<Source> all(std::begin(sources), std::end(sources));
    for (const Source& s : all) writeSource(s, stored, sourceFolder.filePath(s.fileName()));
    // Real camera EXIF (maker notes and all) with a location, stored sideways (SHORT 6).
    for (const QString& photo : testing::cameraPhotos()) {
        all.push_back({QFileInfo(photo).baseName(), ImageFormat::jpeg, {}, {}, 1, 6, photo});
        testing::prepareCameraPhoto(photo, sourceFolder.filePath(all.back().fileName()));
    }
    const auto sourceTags = testing::exiftoolTagsIn(sourceFolder.path());

    for (const Source& s : all) {
        for (const MetadataPolicy policy : policies) {
            const std::string label = s.outputName(policy, target).toStdString();
            testing::ContextRig rig;
            rig.context.config.formatStrategy =
                FormatStrategy(int(FormatStrategy::jpeg) + int(target));
            rig.context.config.metadataPolicy = policy;
            const QString source = rig.file(s.fileName());
            ASSERT_TRUE(testing::copyWithDates(sourceFolder.filePath(s.fileName()), source));
            FolderCompressionResult result;
            EXPECT_NO_THROW(result = process(rig.context, source)) << label;
            EXPECT_TRUE(result.didWrite) << label;
            if (!result.didWrite) continue;
            const QString output = *result.historyEntry->outputURL;
            EXPECT_EQ(modificationTime(output), modificationTime(source)) << label;
            // Hostile metadata and an unreadable XMP packet are reported once; everything else goes
            // without a word.
            const bool dropped =
                policy != MetadataPolicy::strip &&
                (s.hostile || (!s.photo.isEmpty() && !testing::hasReadableXmp(s.photo)));
            EXPECT_EQ(testing::readFile(rig.data.file(u"native.log"_s)).count("Metadata dropped"),
                      dropped ? 1 : 0)
                << label;
            QFile::copy(output, outputFolder.filePath(s.outputName(policy, target)));
        }
    }

    const auto outputTags = testing::exiftoolTagsIn(outputFolder.path());
    for (const Source& s : all) {
        const std::string label = s.name.toStdString();
        const QJsonObject& tagsOfSource = sourceTags.at(s.fileName());
        const auto expected =
            shown(sourceFolder.filePath(s.fileName()), orientations(tagsOfSource));
        ASSERT_TRUE(expected) << label;
        // The fixture means what it says: the viewer turns it, or shows it as stored.
        if (s.photo.isEmpty()) {
            EXPECT_EQ(testing::psnrOnWhite(stored, *expected) > 26, s.shown == 1) << label;
            EXPECT_EQ(expected->width, s.shown >= 5 ? stored.height : stored.width) << label;
        }
        for (const MetadataPolicy policy : policies) {
            const QString output = s.outputName(policy, target);
            const std::string outputLabel = output.toStdString();
            if (!outputTags.count(output)) continue;
            // Every Orientation the source has is carried as 1 (none under strip).
            const std::vector<int> tags = orientations(outputTags.at(output));
            const std::size_t carried = policy == MetadataPolicy::strip || s.hostile
                                            ? 0
                                            : orientations(tagsOfSource).size();
            EXPECT_EQ(tags, std::vector<int>(carried, 1)) << outputLabel;
            const auto actual = shown(outputFolder.filePath(output), tags);
            ASSERT_TRUE(actual) << outputLabel;
            EXPECT_EQ(std::pair(actual->width, actual->height),
                      std::pair(expected->width, expected->height))
                << outputLabel;
            EXPECT_GT(testing::psnrOnWhite(*expected, *actual), 28.0) << outputLabel;
            for (const QString& key : outputTags.at(output).keys())
                EXPECT_FALSE(
                    s.hostile &&
                    QRegularExpression(u"^(IFD0|ExifIFD|XMP|MakerNotes)"_s).match(key).hasMatch())
                    << outputLabel << " " << key.toStdString();
            if (!s.photo.isEmpty())
                testing::expectCarried(tagsOfSource, outputTags.at(output), policy,
                                       testing::hasReadableXmp(s.photo), outputLabel);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, OutputTable,
                         ::testing::Values(ImageFormat::jpeg, ImageFormat::png, ImageFormat::webp,
                                           ImageFormat::avif, ImageFormat::heic),
                         [](const auto& info) { return fileExtension(info.param).toStdString(); });

}  // namespace
}  // namespace velt
