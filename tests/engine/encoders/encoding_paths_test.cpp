// The encoding paths (PNM intermediates, PNG chunks and optimizers, JPEG and WebP encoders), each
// run in a temporary folder with tools hidden, replaced by stand-ins, or the real ones.
#include "encoders/standin_tools.h"
#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "engine/encoders/builtin_encoder.h"
#include "engine/encoders/jpeg_path.h"
#include "engine/encoders/png_chunks.h"
#include "engine/encoders/png_path.h"
#include "engine/encoders/pnm_writer.h"
#include "engine/encoders/quality_scale.h"
#include "engine/encoders/tool_runner.h"
#include "engine/encoders/webp_path.h"
#include "engine/pipeline/engine_context.h"
#include "support/test_images.h"

#include <gtest/gtest.h>
#include <zlib.h>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <algorithm>
#include <random>

namespace velt {
namespace {

using namespace Qt::StringLiterals;
using Rgba = std::array<std::uint8_t, 4>;

template <typename Colour>
imageio::Bitmap makeBitmap(int width, int height, Colour colour) {
    imageio::Bitmap bitmap{width, height, {}, imageio::AlphaInfo::last, {}};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (const std::uint8_t sample : colour(x, y)) bitmap.rgba.push_back(sample);
    return bitmap;
}

// A smooth, textured picture with a transparent corner, so encoders have real work to do.
ImagePlan planOf(ImageFormat target, std::optional<QByteArray> icc) {
    const auto image = makeBitmap(64, 48, [](int x, int y) {
        const auto noise = static_cast<std::uint8_t>((x * 7919 + y * 104729) % 13);
        return Rgba{std::uint8_t(x * 4 + noise), std::uint8_t(y * 5), std::uint8_t(128 + noise),
                    std::uint8_t(x < 16 && y < 12 ? 0 : 255)};
    });
    return {ImageFormat::png, target, image, image.colorSpace, std::move(icc), {}};
}

// Stands for an ICC profile: the paths only carry the bytes, never read them.
const QByteArray profile = QByteArray("VELT-TEST-PROFILE\x01\xFE").repeated(40);

// Finds exactly the tools named in `tools` (name → path); every other tool is "not installed".
ToolLocator locatorOf(const QMap<QString, QString>& tools) {
    return [tools](const QString& name) {
        return tools.contains(name) ? std::optional(tools.value(name)) : std::nullopt;
    };
}

struct PathRig {
    QTemporaryDir dir;
    EngineLifecycle lifecycle;
    EngineCallbacks callbacks;
    EngineContext context{lifecycle, callbacks};

    QString file(const char* name) const { return dir.filePath(QString::fromUtf8(name)); }
    QStringList entries() const {
        return QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }
};

const QByteArray ppm1x1("P6\n1 1\n255\n");
const QByteArray pam1x1("P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n");

TEST(PNMWriter, BytesRenderLikeAPremultipliedContext) {
    const QByteArray rows2x2("P6\n2 2\n255\n\0\0\t\1\0\t\0\1\t\1\1\t", 23);  // top row first
    const std::tuple<int, std::vector<Rgba>, bool, QByteArray> cases[] = {
        {1, {{255, 0, 0, 255}}, false, ppm1x1 + QByteArray("\xFF\0\0", 3)},
        {1, {{255, 0, 0, 128}}, true, pam1x1 + QByteArray("\xFF\0\0\x80", 4)},
        {1, {{12, 34, 56, 0}}, true, pam1x1 + QByteArray(4, 0)},  // colour lost under alpha 0
        {1, {{0, 0, 0, 0}}, false, ppm1x1 + "\xFF\xFF\xFF"},      // transparent over white
        {1, {{0, 0, 0, 128}}, false, ppm1x1 + "\x7F\x7F\x7F"},
        // 100 at alpha 3 premultiplies to 1, which un-premultiplies to (255 + 1) / 3 = 85.
        {1, {{100, 200, 255, 3}}, true, pam1x1 + "\x55\xAA\xFF\x03"},
        {2, {{0, 0, 9, 255}, {1, 0, 9, 255}, {0, 1, 9, 255}, {1, 1, 9, 255}}, false, rows2x2},
        // One transparent pixel in a row: the opaque pixels beside it keep their colour.
        {3,
         {{1, 2, 3, 255}, {7, 8, 9, 0}, {4, 5, 6, 255}},
         false,
         QByteArray("P6\n3 1\n255\n\1\2\3\xFF\xFF\xFF\4\5\6", 20)},
    };
    for (const auto& [width, pixels, alpha, expected] : cases) {
        PathRig rig;
        const QString path = rig.file("out.pnm");
        testing::writeFile(path, QByteArray(500, 'x'));  // old content is replaced
        const auto bitmap = makeBitmap(width, int(pixels.size()) / width,
                                       [&](int x, int y) { return pixels[y * width + x]; });
        writePNMImage(rig.lifecycle, path, bitmap, alpha, bitmap.colorSpace);
        EXPECT_EQ(testing::readFile(path).toHex(' '), expected.toHex(' '));
    }
}

TEST(PNMWriter, RefusesBeforeCreatingAndStopsAtARowBoundary) {
    for (const auto& [width, height] : {std::pair{7072, 7071}, std::pair{0, 10}}) {
        PathRig rig;
        const imageio::Bitmap bitmap{width, height, {}, {}, {}};  // and no pixels
        EXPECT_THROW(
            writePNMImage(rig.lifecycle, rig.file("out.ppm"), bitmap, false, bitmap.colorSpace),
            ImageSafetyError);
        EXPECT_TRUE(rig.entries().isEmpty()) << width;
    }
    PathRig rig;
    const QString path = rig.file("out.pam");
    const auto bitmap = makeBitmap(3, 5, [](int, int) { return Rgba{1, 2, 3, 255}; });
    const auto stopAfterTwo = [&](int rows) {
        if (rows == 2) rig.lifecycle.requestStop();
    };
    EXPECT_THROW(writePNMImage(rig.lifecycle, path, bitmap, true, bitmap.colorSpace, stopAfterTwo),
                 FolderCompressorControlError);
    EXPECT_EQ(QFileInfo(path).size(), pnmHeader(3, 5, true).size() + 2 * 3 * 4);
}

QByteArray be32(std::uint32_t v) {
    return QByteArray(1, char(v >> 24)) + char(v >> 16) + char(v >> 8) + char(v);
}

// A chunk with a correct length and CRC (computed by zlib, independently of ours).
QByteArray chunk(const char* type, const QByteArray& data) {
    const QByteArray body = QByteArray(type) + data;
    return be32(data.size()) + body +
           be32(::crc32(0, reinterpret_cast<const Bytef*>(body.constData()), body.size()));
}

// Qt's own zlib inflater, which wants the expected size in front of the stream.
QByteArray inflated(const QByteArray& stream, qsizetype size) {
    return qUncompress(be32(size) + stream);
}

TEST(PNGChunks, ChecksumsAndZlibStreams) {
    EXPECT_EQ(crc32("123456789"), 0xCBF43926u);
    EXPECT_EQ(adler32("Wikipedia"), 0x11E60398u);
    QByteArray random(200'000, '\0');
    std::generate(random.begin(), random.end(), std::mt19937(1));
    // Long runs of 0xFF make both sums wrap many times: reduction must happen per byte.
    for (const QByteArray& data : {QByteArray(), random, QByteArray(300'000, '\xFF')}) {
        const auto* bytes = reinterpret_cast<const Bytef*>(data.constData());
        EXPECT_EQ(crc32(data), ::crc32(0, bytes, data.size()));
        EXPECT_EQ(adler32(data), ::adler32(1, bytes, data.size()));
        EXPECT_EQ(inflated(zlibCompressedData(data), data.size()), data) << data.size();
    }
}

TEST(PNGChunks, ICCProfileGoesRightAfterIHDROnceAndReplacesColourChunks) {
    const QByteArray iccp = iccpChunk(profile);
    const QByteArray data = iccp.mid(8, iccp.size() - 12);
    EXPECT_EQ(chunk("iCCP", data), iccp);
    EXPECT_EQ(data.left(10), QByteArray("VELT ICC\0\0", 10));
    EXPECT_EQ(inflated(data.mid(10), profile.size()), profile);

    const QByteArray signature("\x89PNG\r\n\x1a\n", 8);
    const QByteArray ihdr = chunk("IHDR", QByteArray::fromHex("00000001000000010806000000"));
    const QByteArray rest =
        chunk("IDAT", QByteArray::fromHex("789c63f8cfc0f01f0005000201")) + chunk("IEND", {});
    const QByteArray tagged = signature + ihdr + chunk("sRGB", QByteArray(1, 0)) +
                              chunk("gAMA", QByteArray::fromHex("0000b18f")) + rest + "tail";
    const QByteArray expected = signature + ihdr + iccp + rest;  // bytes after IEND dropped
    EXPECT_EQ(pngWithICCProfile(tagged, profile), std::optional(expected));
    EXPECT_EQ(pngWithICCProfile(expected, profile), std::optional(expected));
    for (const QByteArray& damaged : {"GIF89a" + ihdr + rest, signature + rest,
                                      signature + ihdr + QByteArray::fromHex("7fffffff49444154")})
        EXPECT_FALSE(pngWithICCProfile(damaged, profile));
}

TEST(PNGPath, QuantizerRangesFollowTheSetting) {
    const std::pair<int, QString> cases[] = {{100, u"80-100"_s}, {80, u"60-80"_s},
                                             {20, u"0-20"_s},    {19, u"0-19"_s},
                                             {150, u"80-100"_s}, {-5, u"0-0"_s}};
    for (const auto& [setting, range] : cases)
        EXPECT_EQ(pngquantArguments(setting, u"/d/i.png"_s, u"/d/o.png"_s),
                  u"--force --skip-if-larger --quality %1 --speed 3 --output /d/o.png /d/i.png"_s
                      .arg(range)
                      .split(u' '));
}

TEST(PNGPath, WithoutToolsThePNGSourceIsCopiedByteForByte) {
    for (const auto& icc : {std::optional<QByteArray>(), std::optional(profile)}) {
        PathRig rig;
        ImagePlan plan = planOf(ImageFormat::png, icc);
        const QString source = rig.file("source.png");
        writeImageWithImageIO(source, plan.image, ImageFormat::png, {});
        const QByteArray bytes = testing::readFile(source) + "after the end";
        testing::writeFile(source, bytes);
        writePNGImage(rig.context, source, rig.file("out.png"), plan, locatorOf({}));
        EXPECT_EQ(testing::readFile(rig.file("out.png")),
                  icc ? *pngWithICCProfile(bytes, *icc) : bytes);
        EXPECT_EQ(testing::readFile(source), bytes);
        EXPECT_EQ(rig.entries(), (QStringList{u"out.png"_s, u"source.png"_s}));
    }
    // Without the source's metadata chunks: the output carries the plan's metadata alone.
    PathRig rig;
    ImagePlan plan = planOf(ImageFormat::png, {});
    const imageio::Bitmap image = plan.image;
    const QString source = rig.file("source.png");
    testing::writeFile(source, testing::pngOf(image, 8, {}, QByteArray("MM\0*\0\0\0\x08\0\0", 10)));
    writePNGImage(rig.context, source, rig.file("out.png"), plan, locatorOf({}));
    EXPECT_EQ(testing::readFile(rig.file("out.png")), testing::pngOf(image, 8));
}

bool isTempName(const QString& url, const QString& stem, const QString& suffix) {
    const QString uuid = u"[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"_s;
    const QString pattern = u"/d/\\.photo\\.velt-temp-"_s + stem + u'-' + uuid + u"\\."_s + suffix;
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(url).hasMatch();
}

TEST(JPEGPath, ArgumentsClampQualityAndNameTheProfile) {
    const std::tuple<std::optional<QString>, int, QString> cases[] = {
        {std::nullopt, 82, u"-quality 82"_s},
        {std::nullopt, 120, u"-quality 100"_s},
        {std::nullopt, -5, u"-quality 0"_s},
        {u"/d/p.icc"_s, 76, u"-icc /d/p.icc -quality 76"_s},
    };
    for (const auto& [icc, quality, head] : cases) {
        const auto only = jpegCandidates(u"photo"_s, u"/d"_s, u"/d/in.ppm"_s, icc, quality);
        ASSERT_EQ(only.size(), 1u);
        EXPECT_TRUE(isTempName(only[0].url, u"mozjpeg-default"_s, u"jpg"_s)) << head.toStdString();
        const QString tail = u" -progressive -optimize -sample 2x2 -outfile "_s + only[0].url;
        EXPECT_EQ(only[0].arguments, (head + tail + u" /d/in.ppm"_s).split(u' '));
    }
}

// The calibrated scales: 0-100 onto 0-100 without ever falling, out-of-range numbers clamped,
// JPEG and PNG untouched, and the three presets kept apart in every format.
TEST(QualityScale, MonotonicClampedAndKeepsThePresetsApart) {
    for (const ImageFormat format : allImageFormats) {
        const bool unmapped = format == ImageFormat::jpeg || format == ImageFormat::png;
        EXPECT_EQ(encoderQuality(format, 0), 0);
        EXPECT_EQ(encoderQuality(format, 100), 100);
        EXPECT_EQ(encoderQuality(format, -7), 0);
        EXPECT_EQ(encoderQuality(format, 180), 100);
        for (int number = 1; number <= 100; ++number) {
            EXPECT_GE(encoderQuality(format, number), encoderQuality(format, number - 1))
                << fileExtension(format).toStdString() << " at " << number;
            if (unmapped) {
                EXPECT_EQ(encoderQuality(format, number), number);
            }
        }
        const auto setting = [&](CompressionPreset preset) {
            return encoderQuality(format, defaults(preset).quality(format));
        };
        EXPECT_LT(setting(CompressionPreset::maximum), setting(CompressionPreset::balanced));
        EXPECT_LT(setting(CompressionPreset::balanced), setting(CompressionPreset::gentle));
    }
}

// Real encoders, checked by independent decoders; the profile must travel into the file. What
// cjpeg reads through its input pipe is the whole raster: the JPEG is, byte for byte, what it
// writes from the same raster read from a file. The raster's memory goes back after the encode.
TEST(LossyPaths, RealEncodersWriteDecodableFilesWithTheProfile) {
    const auto cwebp = toolURL(u"cwebp"_s), webpmux = toolURL(u"webpmux"_s);
    if (!toolURL(u"cjpeg"_s) || !cwebp || !webpmux) GTEST_SKIP() << "cjpeg or cwebp is missing";
    PathRig rig;
    ImagePlan jpegPlan = planOf(ImageFormat::jpeg, profile),
              webpPlan = planOf(ImageFormat::webp, profile);
    writePNMImage(rig.lifecycle, rig.file("in.ppm"), jpegPlan.image, false, {});
    testing::writeFile(rig.file("p.icc"), profile);
    const QString jpeg = rig.file("out.jpg"), webp = rig.file("out.webp");
    writeJPEGImage(rig.context, jpeg, jpegPlan);
    EXPECT_EQ(rig.entries(), (QStringList{u"in.ppm"_s, u"out.jpg"_s, u"p.icc"_s}));
    EXPECT_TRUE(jpegPlan.image.rgba.empty());
    EXPECT_EQ(expectedOutputSize(jpegPlan.image), (imageio::FrameSize{64, 48}));
    EXPECT_EQ(QProcess::execute(u"cjpeg"_s,
                                u"-icc %1 -quality %2 -progressive -optimize -sample "
                                u"2x2 -outfile %3 %4"_s.arg(rig.file("p.icc"))
                                    .arg(rig.context.config.qualities.jpeg)
                                    .arg(rig.file("cjpeg.jpg"), rig.file("in.ppm"))
                                    .split(u' ')),
              0);
    EXPECT_TRUE(testing::readFile(jpeg) == testing::readFile(rig.file("cjpeg.jpg")));
    EXPECT_EQ(QProcess::execute(u"djpeg"_s, {u"-outfile"_s, rig.file("j.ppm"), jpeg}), 0);
    EXPECT_TRUE(testing::readFile(rig.file("j.ppm")).startsWith("P6\n64 48\n255\n"));
    EXPECT_TRUE(testing::readFile(jpeg).contains(profile));
    writeWebPImage(rig.context, webp, webpPlan,
                   locatorOf({{u"cwebp"_s, *cwebp}, {u"webpmux"_s, *webpmux}}));
    EXPECT_EQ(QProcess::execute(u"dwebp"_s, {webp, u"-o"_s, rig.file("w.png")}), 0);
    EXPECT_EQ(QProcess::execute(*webpmux, {u"-get"_s, u"icc"_s, webp, u"-o"_s, rig.file("p")}), 0);
    EXPECT_EQ(testing::readFile(rig.file("p")), profile);
    EXPECT_EQ(rig.entries().filter(u".velt-temp"_s), QStringList{});
}

TEST(LossyPaths, FailingEncodersLeaveNothingBehind) {
    PathRig rig;
    QTemporaryDir tools;
    const ToolLocator failing =
        locatorOf({{u"cjpeg"_s, testing::installStandin(tools.path(), u"exit1"_s, u"cjpeg"_s)},
                   {u"cwebp"_s, testing::installStandin(tools.path(), u"garbage"_s, u"cwebp"_s)}});
    ImagePlan jpegPlan = planOf(ImageFormat::jpeg, profile),
              webpPlan = planOf(ImageFormat::webp, profile);
    const std::function<void()> writes[] = {
        [&] { writeJPEGImage(rig.context, rig.file("o.jpg"), jpegPlan, failing); },
        [&] { writeWebPImage(rig.context, rig.file("o.webp"), webpPlan, failing); }};
    for (const auto& write : writes) {
        EXPECT_THROW(write(), FileSystemError);
        EXPECT_EQ(rig.entries(), QStringList{});
    }
}

}  // namespace
}  // namespace velt
