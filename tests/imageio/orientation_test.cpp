// EXIF orientations 1-8 turned upright, on a tiny bitmap whose every pixel is distinct, and end
// to end on a JPEG carrying orientation 6 in its APP1 segment.
#include "decode_test_support.h"
#include "imageio/image_io.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::imageio::decodetest;
using velt::testing::writeFile;

// A bitmap drawn from rows of letters; each letter's pixel has distinct R, G, B and A bytes.
Bitmap fromRows(const std::vector<std::string>& rows) {
    Bitmap bitmap;
    bitmap.height = static_cast<int>(rows.size());
    bitmap.width = static_cast<int>(rows.front().size());
    bitmap.alphaInfo = AlphaInfo::last;
    for (const std::string& row : rows) {
        for (char letter : row) {
            const auto id = static_cast<std::uint8_t>(letter);
            bitmap.rgba.insert(bitmap.rgba.end(), {id, std::uint8_t(id * 2), std::uint8_t(id + 7),
                                                   std::uint8_t(id + 100)});
        }
    }
    return bitmap;
}

TEST(Orientation, EachValueTurnsTheImageUpright) {
    const Bitmap stored = fromRows({"abc", "def"});
    const std::vector<std::pair<int, std::vector<std::string>>> cases = {
        {0, {"abc", "def"}},     {1, {"abc", "def"}},     {2, {"cba", "fed"}},
        {3, {"fed", "cba"}},     {4, {"def", "abc"}},     {5, {"ad", "be", "cf"}},
        {6, {"da", "eb", "fc"}}, {7, {"fc", "eb", "da"}}, {8, {"cf", "be", "ad"}},
        {9, {"abc", "def"}},
    };
    for (const auto& [orientation, rows] : cases) {
        SCOPED_TRACE(orientation);
        const Bitmap upright = applyOrientation(stored, orientation);
        const Bitmap expected = fromRows(rows);
        EXPECT_EQ(upright.width, expected.width);
        EXPECT_EQ(upright.height, expected.height);
        EXPECT_EQ(upright.rgba, expected.rgba);
        EXPECT_EQ(upright.alphaInfo, AlphaInfo::last);
    }
}

TEST(Orientation, JpegWithOrientationSixComesOutRotatedClockwise) {
    // 64×32, a red block in the stored top-left corner, grey elsewhere.
    Bitmap stored = card(64, 32, false);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 64; ++x) {
            const bool red = x < 16 && y < 16;
            std::uint8_t* p = stored.rgba.data() + (y * 64 + x) * 4;
            p[0] = red ? 230 : 128, p[1] = red ? 20 : 128, p[2] = red ? 20 : 128;
        }
    }
    QTemporaryDir dir;
    writeFile(dir.filePath(QStringLiteral("in.ppm")), ppm(stored));
    runTool(QStringLiteral("cjpeg"),
            {QStringLiteral("-outfile"), dir.filePath(QStringLiteral("plain.jpg")),
             dir.filePath(QStringLiteral("in.ppm"))});
    const QString path = dir.filePath(QStringLiteral("rotated.jpg"));
    writeFile(path,
              jpegWithOrientation(
                  velt::testing::readFile(dir.filePath(QStringLiteral("plain.jpg"))), 6, true));

    const ImageProperties properties = readProperties(path);
    EXPECT_EQ(properties.orientation, 6);
    EXPECT_EQ(properties.width, 64);  // as stored
    EXPECT_EQ(properties.height, 32);

    const Bitmap decoded = decodeFirstFrame(path);
    ASSERT_EQ(decoded.width, 64);  // decoding applies no orientation
    const Bitmap upright = applyOrientation(decoded, *properties.orientation);
    ASSERT_EQ(upright.width, 32);
    ASSERT_EQ(upright.height, 64);
    // Turned clockwise, the stored top-left corner becomes the top-right one.
    EXPECT_GT(upright.pixel(24, 8)[0], 200);
    EXPECT_LT(upright.pixel(24, 8)[1], 60);
    EXPECT_NEAR(upright.pixel(8, 8)[0], 128, 12);
    EXPECT_NEAR(upright.pixel(24, 56)[0], 128, 12);
}

}  // namespace
}  // namespace velt::imageio
