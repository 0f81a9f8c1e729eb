// PNG decoding for every colour type and bit depth, palettes, transparency chunks, 16-bit
// scaling and Adam7 interlacing; files written by libpng in the test, compared exactly.
#include "decode_test_support.h"
#include "encode_test_support.h"
#include "imageio/image_io.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <png.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::imageio::decodetest;
using velt::testing::writeFile;

struct PngCase {
    const char* name;
    int colorType;
    int bitDepth;
    bool interlaced;
    bool transparency;  // a tRNS chunk
};

constexpr int width = 13, height = 11;  // odd: partial bytes at low depths, short Adam7 passes

int maximumSample(int depth) {
    return (1 << std::min(depth, 8)) - 1;
}

// Sample values at the file's depth (16-bit: the 8-bit value repeated, which scales back
// exactly), and what 8-bit value each must decode to.
int sampleAt(int x, int y, int channel, int depth) {
    return (x * (19 + channel * 6) + y * (7 + channel)) % (maximumSample(depth) + 1);
}
std::uint8_t to8(int sample, int depth) {
    return static_cast<std::uint8_t>(sample * 255 / maximumSample(depth));
}
std::array<std::uint8_t, 3> paletteEntry(int i) {
    return {static_cast<std::uint8_t>(i * 37), static_cast<std::uint8_t>(i * 91),
            static_cast<std::uint8_t>(i * 13)};
}

void pack(std::vector<std::uint8_t>& row, const std::vector<int>& samples, int depth) {
    if (depth == 16) {
        for (int s : samples) row.insert(row.end(), {std::uint8_t(s), std::uint8_t(s)});
        return;
    }
    int bits = 0, current = 0;
    for (int s : samples) {
        current = (current << depth) | s;
        bits += depth;
        if (bits == 8) row.push_back(static_cast<std::uint8_t>(current)), bits = 0, current = 0;
    }
    if (bits) row.push_back(static_cast<std::uint8_t>(current << (8 - bits)));
}

// Builds the file and the bitmap it must decode to, from the same sample function.
std::pair<PngRecipe, Bitmap> makeCase(const PngCase& c) {
    PngRecipe recipe{width, height, c.colorType, c.bitDepth, c.interlaced, {}, {}, {}, {}, {}, {}};
    const bool palette = c.colorType == PNG_COLOR_TYPE_PALETTE;
    const bool color = (c.colorType & PNG_COLOR_MASK_COLOR) != 0;
    const bool alpha = (c.colorType & PNG_COLOR_MASK_ALPHA) != 0;
    const int channels = palette ? 1 : (color ? 3 : 1) + (alpha ? 1 : 0);
    const int paletteSize = palette ? std::min(1 << c.bitDepth, 200) : 0;
    for (int i = 0; i < paletteSize; ++i) recipe.palette.push_back(paletteEntry(i));
    if (palette && c.transparency) {
        for (int i = 0; i < paletteSize / 2; ++i)
            recipe.paletteAlpha.push_back(std::uint8_t(i * 8));
    }
    if (!palette && c.transparency) {
        recipe.transparentColor = {sampleAt(0, 0, 0, c.bitDepth), sampleAt(0, 0, 1, c.bitDepth),
                                   sampleAt(0, 0, 2, c.bitDepth)};
        if (c.bitDepth == 16) {
            for (int& v : *recipe.transparentColor) v *= 257;
        }
    }
    Bitmap expected;
    expected.width = width;
    expected.height = height;
    expected.alphaInfo = alpha || c.transparency ? AlphaInfo::last : AlphaInfo::noneSkipLast;
    for (int y = 0; y < height; ++y) {
        std::vector<int> samples;
        for (int x = 0; x < width; ++x) {
            std::array<std::uint8_t, 4> rgba{};
            if (palette) {
                const int index = (x + 3 * y) % paletteSize;
                samples.push_back(index);
                const auto entry = paletteEntry(index);
                const bool seeThrough = index < static_cast<int>(recipe.paletteAlpha.size());
                rgba = {entry[0], entry[1], entry[2],
                        seeThrough ? recipe.paletteAlpha[index] : std::uint8_t(255)};
            } else {
                for (int ch = 0; ch < channels; ++ch)
                    samples.push_back(sampleAt(x, y, ch, c.bitDepth));
                const auto value = [&](int ch) {
                    return to8(sampleAt(x, y, ch, c.bitDepth), c.bitDepth);
                };
                rgba = color ? std::array{value(0), value(1), value(2),
                                          alpha ? value(3) : std::uint8_t(255)}
                             : std::array{value(0), value(0), value(0),
                                          alpha ? value(1) : std::uint8_t(255)};
                bool matchesKey = c.transparency;
                for (int ch = 0; ch < (color ? 3 : 1); ++ch) {
                    matchesKey = matchesKey &&
                                 sampleAt(x, y, ch, c.bitDepth) == sampleAt(0, 0, ch, c.bitDepth);
                }
                if (matchesKey) rgba[3] = 0;
            }
            expected.rgba.insert(expected.rgba.end(), rgba.begin(), rgba.end());
        }
        std::vector<std::uint8_t> row;
        pack(row, samples, c.bitDepth);
        recipe.rows.push_back(row);
    }
    return {recipe, expected};
}

TEST(DecodePNG, EveryColorTypeAndDepthDecodesExactly) {
    const std::vector<PngCase> cases = {
        {"gray1", PNG_COLOR_TYPE_GRAY, 1, false, false},
        {"gray2", PNG_COLOR_TYPE_GRAY, 2, false, false},
        {"gray4-interlaced", PNG_COLOR_TYPE_GRAY, 4, true, false},
        {"gray8", PNG_COLOR_TYPE_GRAY, 8, false, false},
        {"gray8-trns", PNG_COLOR_TYPE_GRAY, 8, false, true},
        {"gray16", PNG_COLOR_TYPE_GRAY, 16, false, false},
        {"grayalpha8", PNG_COLOR_TYPE_GRAY_ALPHA, 8, false, false},
        {"grayalpha16-interlaced", PNG_COLOR_TYPE_GRAY_ALPHA, 16, true, false},
        {"rgb8", PNG_COLOR_TYPE_RGB, 8, false, false},
        {"rgb8-trns", PNG_COLOR_TYPE_RGB, 8, false, true},
        {"rgb16-trns", PNG_COLOR_TYPE_RGB, 16, false, true},
        {"rgb16-interlaced", PNG_COLOR_TYPE_RGB, 16, true, false},
        {"rgba8", PNG_COLOR_TYPE_RGB_ALPHA, 8, false, false},
        {"rgba8-interlaced", PNG_COLOR_TYPE_RGB_ALPHA, 8, true, false},
        {"rgba16", PNG_COLOR_TYPE_RGB_ALPHA, 16, false, false},
        {"palette1", PNG_COLOR_TYPE_PALETTE, 1, false, false},
        {"palette2-trns", PNG_COLOR_TYPE_PALETTE, 2, false, true},
        {"palette4", PNG_COLOR_TYPE_PALETTE, 4, false, false},
        {"palette8-trns-interlaced", PNG_COLOR_TYPE_PALETTE, 8, true, true},
    };
    QTemporaryDir dir;
    for (const PngCase& c : cases) {
        SCOPED_TRACE(c.name);
        const auto [recipe, expected] = makeCase(c);
        const QString path = dir.filePath(QLatin1String(c.name) + QStringLiteral(".png"));
        writeFile(path, encodePng(recipe));
        const Bitmap decoded = decodeFirstFrame(path);
        ASSERT_EQ(decoded.width, width);
        ASSERT_EQ(decoded.height, height);
        EXPECT_EQ(decoded.alphaInfo, expected.alphaInfo);
        EXPECT_EQ(decoded.colorSpace, sRGBColorSpace());
        EXPECT_EQ(decoded.rgba, expected.rgba);
    }
}

TEST(DecodePNG, EmbeddedProfiles) {
    QTemporaryDir dir;
    // RGB with a Display P3 profile: the pixels stay as stored, the space is the profile's.
    auto [rgb, rgbExpected] = makeCase({"rgb8", PNG_COLOR_TYPE_RGB, 8, false, false});
    rgb.iccProfile = testing::displayP3Profile();
    writeFile(dir.filePath(QStringLiteral("p3.png")), encodePng(rgb));
    const Bitmap p3 = decodeFirstFrame(dir.filePath(QStringLiteral("p3.png")));
    EXPECT_EQ(p3.colorSpace.iccData, rgb.iccProfile);
    EXPECT_EQ(p3.colorSpace.name, QStringLiteral("Display P3"));
    EXPECT_EQ(p3.rgba, rgbExpected.rgba);

    // Grey with a linear-light profile goes through it into sRGB: mid grey comes out brighter.
    PngRecipe gray{4, 1, PNG_COLOR_TYPE_GRAY, 8, false, {{128, 128, 128, 128}}, {}, {}, {}, {}, {}};
    gray.iccProfile = testing::linearGrayProfile();
    writeFile(dir.filePath(QStringLiteral("linear.png")), encodePng(gray));
    const Bitmap linear = decodeFirstFrame(dir.filePath(QStringLiteral("linear.png")));
    EXPECT_EQ(linear.colorSpace, sRGBColorSpace());
    EXPECT_GT(linear.pixel(0, 0)[0], 170);
    EXPECT_EQ(linear.pixel(0, 0)[0], linear.pixel(0, 0)[2]);
}

}  // namespace
}  // namespace velt::imageio
