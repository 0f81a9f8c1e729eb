// Decoding of files written by the real encoders (cjpeg, cwebp, img2webp, heif-enc), of Adobe
// CMYK JPEG written with libjpeg, and of PNG in every colour type written with libpng.
#include "imageio/image_io.h"
#include "support/test_images.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <jpeglib.h>
#include <lcms2.h>
#include <libheif/heif_cxx.h>
#include <png.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::testing;
using velt::testing::writeFile;

// The luma bit depth stored in a HEIF file, read with libheif; -1 when unreadable.
int storedLumaBits(const QString& path) {
    try {
        heif::Context context;
        context.read_from_file(QFile::encodeName(path).toStdString());
        return context.get_primary_image_handle().get_luma_bits_per_pixel();
    } catch (const heif::Error&) {
        return -1;
    }
}

TEST(Decode, FilesFromTheRealEncoders) {
    struct Case {
        const char* command;  // %1 stands for the inputs (.ppm, .png, -16.png, -b.png, .icc)
        bool alpha, gray, p3;
        double minimumPSNR;
        int lumaBits;  // HEIF only
    };
    const std::vector<Case> cases = {
        {"cjpeg -quality 92 -outfile %1.out %1.ppm", 0, 0, 0, 24, 0},
        {"cjpeg -progressive -outfile %1.out %1.ppm", 0, 0, 0, 24, 0},
        {"cjpeg -grayscale -outfile %1.out %1.ppm", 0, 1, 0, 24, 0},
        {"cjpeg -icc %1.icc -outfile %1.out %1.ppm", 0, 0, 1, 24, 0},
        {"cwebp -quiet -q 92 %1.png -o %1.out", 0, 0, 0, 24, 0},
        {"cwebp -quiet %1.png -o %1.out", 1, 0, 0, 24, 0},
        {"cwebp -quiet -lossless -exact %1.png -o %1.out", 1, 0, 0, 99, 0},
        {"cwebp -quiet -metadata icc -lossless %1.png -o %1.out", 0, 0, 1, 99, 0},
        {"img2webp -lossless %1.png %1-b.png -o %1.out", 1, 0, 0, 99, 0},
        {"heif-enc -q 90 -o %1.out %1.png", 0, 0, 0, 24, 8},
        {"heif-enc -q 90 -o %1.out %1.png", 1, 0, 0, 24, 8},
        {"heif-enc -b 10 -o %1.out %1-16.png", 0, 0, 0, 24, 10},
        {"heif-enc -b 10 -o %1.out %1-16.png", 1, 0, 0, 24, 10},
        {"heif-enc -A -p speed=8 -o %1.out %1.png", 0, 0, 0, 24, 8},
        {"heif-enc -A -p speed=8 -o %1.out %1.png", 1, 0, 0, 24, 8},
    };
    QTemporaryDir dir;
    const QByteArray p3 = displayP3Profile();
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.command << " alpha " << c.alpha);
        const QString base = dir.filePath(QString::number(&c - cases.data()));
        Bitmap expected = card(67, 45, c.alpha);  // odd sizes: partial JPEG blocks
        writeFile(base + QStringLiteral(".ppm"), toPNM(expected));
        writeFile(base + QStringLiteral(".png"), pngOf(expected, 8, c.p3 ? p3 : QByteArray()));
        writeFile(base + QStringLiteral("-16.png"), pngOf(expected, 16));
        writeFile(base + QStringLiteral("-b.png"), pngOf(card(67, 45, false), 8));
        writeFile(base + QStringLiteral(".icc"), p3);
        QStringList arguments = QString::fromUtf8(c.command)
                                    .replace(QStringLiteral("%1"), base)
                                    .split(QLatin1Char(' '));
        runTool(arguments.takeFirst(), arguments);
        const QString path = base + QStringLiteral(".out");
        EXPECT_EQ(c.lumaBits ? storedLumaBits(path) : 0, c.lumaBits);
        const Bitmap decoded = decodeFirstFrame(path);
        ASSERT_EQ(decoded.width, 67);
        ASSERT_EQ(decoded.height, 45);
        EXPECT_EQ(decoded.alphaInfo, c.alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast);
        EXPECT_EQ(decoded.colorSpace, c.p3 ? colorSpaceFromICC(p3) : sRGBColorSpace());
        for (std::size_t p = 0; c.gray && p < expected.rgba.size(); p += 4) {  // cjpeg's luma
            std::uint8_t* px = &expected.rgba[p];
            px[0] = px[1] = px[2] =
                std::uint8_t(std::lround(0.299 * px[0] + 0.587 * px[1] + 0.114 * px[2]));
        }
        EXPECT_GE(psnr(expected, decoded, c.alpha), c.minimumPSNR);
    }
}

// CMYK as Photoshop stores it (inverted, with an Adobe marker): 16×16 blocks of white, black,
// cyan and red, each expected within inclusive sRGB bounds. A fixed in-memory image, so
// libjpeg's default error handling (exit) never runs.
TEST(Decode, AdobeCmykJpegBecomesSRGB) {
    const std::vector<std::array<int, 10>> blocks = {{0, 0, 0, 0, 235, 235, 235, 255, 255, 255},
                                                     {0, 0, 0, 255, 0, 0, 0, 70, 70, 70},
                                                     {255, 0, 0, 0, 0, 120, 150, 90, 255, 255},
                                                     {0, 255, 255, 0, 170, 0, 0, 255, 90, 90}};
    std::vector<std::uint8_t> cmyk;
    for (int i = 0; i < 64 * 16 * 4; ++i)
        cmyk.push_back(std::uint8_t(255 - blocks[i / 64 % 4][i % 4]));
    jpeg_compress_struct info{};
    jpeg_error_mgr error{};
    info.err = jpeg_std_error(&error);
    jpeg_create_compress(&info);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &buffer, &size);
    info.image_width = 64, info.image_height = 16, info.input_components = 4;
    info.in_color_space = JCS_CMYK;
    jpeg_set_defaults(&info);
    jpeg_start_compress(&info, TRUE);
    for (JSAMPROW row = cmyk.data(); info.next_scanline < 16; row += 64 * 4)
        jpeg_write_scanlines(&info, &row, 1);
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    QTemporaryDir dir;
    writeFile(dir.filePath(QStringLiteral("cmyk.jpg")),
              QByteArray(reinterpret_cast<char*>(buffer), qsizetype(size)));
    std::free(buffer);
    const Bitmap decoded = decodeFirstFrame(dir.filePath(QStringLiteral("cmyk.jpg")));
    ASSERT_EQ(decoded.width, 64);
    EXPECT_EQ(decoded.alphaInfo, AlphaInfo::noneSkipLast);
    EXPECT_EQ(decoded.colorSpace, sRGBColorSpace());
    for (int b = 0; b < 4; ++b) {
        const std::uint8_t* pixel = decoded.pixel(b * 16 + 8, 8);
        for (int c = 0; c < 3; ++c) {
            EXPECT_GE(pixel[c], blocks[b][4 + c]) << "block " << b << " channel " << c;
            EXPECT_LE(pixel[c], blocks[b][7 + c]) << "block " << b << " channel " << c;
        }
    }
}

// 13×11 (partial bytes at low depths, short Adam7 passes): the file and the exact RGBA it must
// decode to, both from one sample function. 16-bit samples repeat an 8-bit value.
std::pair<PngRecipe, std::vector<std::uint8_t>> pngCase(int type, int depth, bool adam7,
                                                        bool trns) {
    const int most = (1 << std::min(depth, 8)) - 1;
    const auto sample = [&](int x, int y, int ch) {
        return (x * (19 + ch * 6) + y * (7 + ch)) % (most + 1);
    };
    const auto entry = [](int i) {
        return std::array{std::uint8_t(i * 37), std::uint8_t(i * 91), std::uint8_t(i * 13)};
    };
    const bool palette = type == PNG_COLOR_TYPE_PALETTE, alpha = type & PNG_COLOR_MASK_ALPHA;
    const int colors = palette ? std::min(1 << depth, 200) : (type & PNG_COLOR_MASK_COLOR ? 3 : 1);
    PngRecipe r(13, 11, type, depth, adam7);
    for (int i = 0; palette && i < colors; ++i) r.palette.push_back(entry(i));
    for (int i = 0; palette && trns && i < colors / 2; ++i)
        r.paletteAlpha.push_back(std::uint8_t(i * 8));
    const int scale = depth == 16 ? 257 : 1;
    if (!palette && trns)
        r.transparentColor = {sample(0, 0, 0) * scale, sample(0, 0, 1) * scale,
                              sample(0, 0, 2) * scale};
    std::vector<std::uint8_t> rgba;
    for (int y = 0; y < 11; ++y) {
        std::vector<int> samples;
        for (int x = 0; x < 13; ++x) {
            if (palette) {
                const int index = (x + 3 * y) % colors;
                const auto e = entry(index);
                const bool keyed = index < int(r.paletteAlpha.size());
                samples.push_back(index);
                rgba.insert(rgba.end(),
                            {e[0], e[1], e[2], keyed ? r.paletteAlpha[index] : std::uint8_t(255)});
                continue;
            }
            bool keyed = trns;
            for (int ch = 0; ch < colors + alpha; ++ch) samples.push_back(sample(x, y, ch));
            for (int ch = 0; ch < colors; ++ch)
                keyed = keyed && sample(x, y, ch) == sample(0, 0, ch);
            const auto v = [&](int ch) { return std::uint8_t(sample(x, y, ch) * 255 / most); };
            rgba.insert(rgba.end(), {v(0), v(colors == 3), v(colors == 3 ? 2 : 0),
                                     keyed   ? std::uint8_t(0)
                                     : alpha ? v(colors)
                                             : std::uint8_t(255)});
        }
        std::vector<std::uint8_t>& row = r.rows.emplace_back();
        int bits = 0, packed = 0;
        for (const int s : samples) {
            if (depth == 16)
                row.insert(row.end(), 2, std::uint8_t(s));
            else if (packed = packed << depth | s; (bits += depth) == 8)
                row.push_back(std::uint8_t(packed)), bits = packed = 0;
        }
        if (bits) row.push_back(std::uint8_t(packed << (8 - bits)));
    }
    return {r, rgba};
}

TEST(Decode, PngEveryColorTypeDepthTransparencyAndInterlace) {
    const int gray = PNG_COLOR_TYPE_GRAY, grayAlpha = PNG_COLOR_TYPE_GRAY_ALPHA,
              rgb = PNG_COLOR_TYPE_RGB, rgba = PNG_COLOR_TYPE_RGB_ALPHA,
              palette = PNG_COLOR_TYPE_PALETTE;
    const std::vector<std::array<int, 4>> cases = {
        // colour type, depth, Adam7, tRNS
        {gray, 1, 0, 0},    {gray, 2, 0, 0},      {gray, 4, 1, 0},       {gray, 8, 0, 1},
        {gray, 16, 0, 0},   {grayAlpha, 8, 0, 0}, {grayAlpha, 16, 1, 0}, {rgb, 8, 0, 1},
        {rgb, 16, 0, 1},    {rgb, 16, 1, 0},      {rgba, 8, 1, 0},       {rgba, 16, 0, 0},
        {palette, 1, 0, 0}, {palette, 2, 0, 1},   {palette, 4, 0, 0},    {palette, 8, 1, 1},
    };
    QTemporaryDir dir;
    for (const auto& [type, depth, adam7, trns] : cases) {
        SCOPED_TRACE(::testing::Message() << "type " << type << " depth " << depth << " adam7 "
                                          << adam7 << " trns " << trns);
        auto [recipe, expected] = pngCase(type, depth, adam7, trns);
        const bool p3 = type == rgb && !trns;  // iCCP kept, pixels left in its space
        if (p3) recipe.iccProfile = displayP3Profile();
        const QString path = dir.filePath(
            QStringLiteral("%1-%2-%3-%4.png").arg(type).arg(depth).arg(adam7).arg(trns));
        writeFile(path, encodePng(recipe));
        const Bitmap decoded = decodeFirstFrame(path);
        EXPECT_EQ(decoded.alphaInfo, (type & PNG_COLOR_MASK_ALPHA) || trns
                                         ? AlphaInfo::last
                                         : AlphaInfo::noneSkipLast);
        EXPECT_EQ(decoded.colorSpace, p3 ? colorSpaceFromICC(recipe.iccProfile) : sRGBColorSpace());
        EXPECT_EQ(std::tie(decoded.width, decoded.height, decoded.rgba),
                  std::tie(recipe.width, recipe.height, expected));
    }
}

// The CIE xy chromaticity that pure red has in an ICC profile, read back with lcms2.
std::pair<double, double> redChromaticity(const QByteArray& icc) {
    cmsHPROFILE profile =
        cmsOpenProfileFromMem(icc.constData(), static_cast<cmsUInt32Number>(icc.size()));
    cmsHPROFILE xyz = cmsCreateXYZProfile();
    cmsHTRANSFORM transform = cmsCreateTransform(profile, TYPE_RGB_DBL, xyz, TYPE_XYZ_DBL,
                                                 INTENT_RELATIVE_COLORIMETRIC, 0);
    const double red[3] = {1, 0, 0};
    cmsCIEXYZ out{};
    cmsDoTransform(transform, red, &out, 1);
    cmsDeleteTransform(transform);
    cmsCloseProfile(xyz);
    cmsCloseProfile(profile);
    const double sum = out.X + out.Y + out.Z;
    return {out.X / sum, out.Y / sum};
}

// AVIF (and HEIC, through the same box) whose colour is only an nclx box keeps it: Display P3 and
// BT.2020 (also with PQ) get a profile with their own primaries; the sRGB code points stay sRGB,
// never embedded, and so do code points libheif rejects (without leaking its description: the
// sanitizer build checks).
TEST(Decode, NclxColourBecomesAProfileWithItsPrimaries) {
    struct Case {
        const char* primariesAndTransfer;
        std::optional<std::pair<double, double>> red;  // xy of the red primary
    };
    const Case cases[] = {
        {"1 13", std::nullopt},
        {"3 13", std::nullopt},              // reserved primaries
        {"12 13", std::pair{0.680, 0.320}},  // Display P3
        {"9 16", std::pair{0.708, 0.292}},   // BT.2020, PQ
        {"9 14", std::pair{0.708, 0.292}},
    };
    QTemporaryDir dir;
    for (const Case& c : cases) {
        const QStringList codes = QString::fromUtf8(c.primariesAndTransfer).split(QLatin1Char(' '));
        {
            SCOPED_TRACE(c.primariesAndTransfer);
            const QString out = dir.filePath(QStringLiteral("out.avif"));
            // Debian's heif-enc ignores its colour options. Reserved primaries: libheif will
            // not write them (and leaks its description when asked to), so they go in after.
            const bool reserved = codes[0] == QLatin1String("3");
            writeHeif(card(48, 32, false), ImageFormat::avif,
                      {1, {}, std::pair(reserved ? 1 : codes[0].toInt(), codes[1].toInt())}, out);
            if (reserved) {
                QByteArray bytes = readFile(out);
                const qsizetype box = bytes.indexOf("nclx");
                ASSERT_GT(box, 0);
                bytes[box + 4] = 0;
                bytes[box + 5] = 3;
                writeFile(out, bytes);
            }
            const Bitmap decoded = decodeFirstFrame(out);
            if (!c.red) {
                EXPECT_EQ(decoded.colorSpace, sRGBColorSpace());
                continue;
            }
            EXPECT_EQ(decoded.colorSpace.model, ColorModel::rgb);
            EXPECT_TRUE(decoded.colorSpace.name.endsWith(QStringLiteral("(nclx)")));
            EXPECT_FALSE(iccProfileToEmbed(decoded.colorSpace).isEmpty());
            const auto [x, y] = redChromaticity(decoded.colorSpace.iccData);
            EXPECT_NEAR(x, c.red->first, 0.012);
            EXPECT_NEAR(y, c.red->second, 0.012);
        }
    }
}

// A JPEG whose coded data ends early at a marker would decode with its lower part painted grey,
// and that grey copy could replace the photo; a header claiming far more pixels than the file can
// hold is refused before any raster is allocated.
TEST(Decode, JpegWithMissingDataIsRefused) {
    QTemporaryDir dir;
    const QString source = dir.filePath(QStringLiteral("s.ppm"));
    writeFile(source, toPNM(card(160, 120, false)));
    const QString whole = dir.filePath(QStringLiteral("whole.jpg"));
    runTool(QStringLiteral("cjpeg"), {QStringLiteral("-outfile"), whole, source});
    const QByteArray jpeg = velt::testing::readFile(whole);
    ASSERT_NO_THROW(decodeFirstFrame(whole));

    const QString cut = dir.filePath(QStringLiteral("cut.jpg"));
    writeFile(cut, jpeg.left(jpeg.size() * 2 / 3) + QByteArray("\xFF\xD9", 2));
    const QString lying = dir.filePath(QStringLiteral("lying.jpg"));
    QByteArray claims = jpeg;
    const qsizetype sof = claims.indexOf(QByteArray("\xFF\xC0", 2));
    ASSERT_GT(sof, 0);
    claims[sof + 5] = claims[sof + 7] = '\x1B';  // 0x1B58 = 7000 high byte
    claims[sof + 6] = claims[sof + 8] = '\x58';
    writeFile(lying, claims);
    for (const QString& path : {cut, lying}) {
        EXPECT_EQ(errorOf([&] { decodeFirstFrame(path); }), ImageIOError::corruptFile)
            << path.toStdString();
        EXPECT_EQ(errorOf([&] { verifyFirstFrameDecodes(path); }), ImageIOError::corruptFile)
            << path.toStdString();
    }
}

}  // namespace
}  // namespace velt::imageio
