// HEIC and AVIF decoding of files written by the real "heif-enc": with and without alpha, from
// 8-bit and (through 16-bit PNG input) 10-bit sources; all come out as 8-bit RGBA. 10-bit AVIF
// is left out: Debian 12's heif-enc with aom 3.6 cannot write one (the encoder aborts).
#include "decode_test_support.h"
#include "imageio/image_io.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <libheif/heif.h>
#include <png.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::imageio::decodetest;
using velt::testing::writeFile;

// The bitmap as an RGB(A) PNG at 8 or 16 bits (16-bit samples repeat the 8-bit value).
QByteArray pngOf(const Bitmap& bitmap, bool alpha, int depth) {
    PngRecipe recipe;
    recipe.width = bitmap.width;
    recipe.height = bitmap.height;
    recipe.colorType = alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
    recipe.bitDepth = depth;
    for (int y = 0; y < bitmap.height; ++y) {
        std::vector<std::uint8_t> row;
        for (int x = 0; x < bitmap.width; ++x) {
            for (int c = 0; c < (alpha ? 4 : 3); ++c) {
                row.insert(row.end(), depth == 16 ? 2 : 1, bitmap.pixel(x, y)[c]);
            }
        }
        recipe.rows.push_back(row);
    }
    return encodePng(recipe);
}

// The luma bit depth stored in the file, read with libheif; -1 when unreadable.
int storedLumaBits(const QString& path) {
    heif_context* context = heif_context_alloc();
    heif_image_handle* handle = nullptr;
    int bits = -1;
    if (heif_context_read_from_file(context, QFile::encodeName(path).constData(), nullptr).code ==
            heif_error_Ok &&
        heif_context_get_primary_image_handle(context, &handle).code == heif_error_Ok) {
        bits = heif_image_handle_get_luma_bits_per_pixel(handle);
        heif_image_handle_release(handle);
    }
    heif_context_free(context);
    return bits;
}

TEST(DecodeHEIF, HeicAndAvifDecodeCloseToTheCard) {
    struct Case {
        const char* name;
        bool avif;
        bool alpha;
        int depth;
    };
    const std::vector<Case> cases = {
        {"heic8", false, false, 8},     {"heic8-alpha", false, true, 8},
        {"heic10", false, false, 10},   {"avif8", true, false, 8},
        {"avif8-alpha", true, true, 8}, {"heic10-alpha", false, true, 10},
    };
    QTemporaryDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Bitmap expected = card(64, 48, c.alpha);
        const QString input = dir.filePath(QLatin1String(c.name) + QStringLiteral(".png"));
        const QString output = dir.filePath(
            QLatin1String(c.name) + (c.avif ? QStringLiteral(".avif") : QStringLiteral(".heic")));
        writeFile(input, pngOf(expected, c.alpha, c.depth == 8 ? 8 : 16));
        QStringList arguments{QStringLiteral("-q"), QStringLiteral("90"), QStringLiteral("-o"),
                              output};
        if (c.avif)
            arguments << QStringLiteral("-A") << QStringLiteral("-p") << QStringLiteral("speed=8");
        if (c.depth == 10) arguments << QStringLiteral("-b") << QStringLiteral("10");
        runTool(QStringLiteral("heif-enc"), arguments << input);
        ASSERT_EQ(storedLumaBits(output), c.depth);

        const ImageProperties properties = readProperties(output);
        EXPECT_EQ(properties.format, c.avif ? ImageFormat::avif : ImageFormat::heic);
        EXPECT_EQ(properties.width, 64);
        EXPECT_EQ(properties.height, 48);
        EXPECT_FALSE(properties.orientation.has_value());

        const Bitmap decoded = decodeFirstFrame(output);
        ASSERT_EQ(decoded.width, 64);
        ASSERT_EQ(decoded.height, 48);
        EXPECT_EQ(decoded.alphaInfo, c.alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast);
        EXPECT_EQ(decoded.colorSpace, sRGBColorSpace());
        EXPECT_LT(meanAbsoluteError(decoded, expected), 6.0);
    }
}

}  // namespace
}  // namespace velt::imageio
