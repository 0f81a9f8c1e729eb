// JPEG decoding of files written by the real "cjpeg" (baseline, progressive, grey, with an ICC
// profile) and by libjpeg itself (Adobe CMYK).
#include "decode_test_support.h"
#include "encode_test_support.h"
#include "imageio/image_io.h"

#include <QTemporaryDir>
#include <csetjmp>
#include <cstdio>

#include <gtest/gtest.h>
#include <jpeglib.h>

#include "support/test_environment.h"

namespace velt::imageio {
namespace {

using namespace velt::imageio::decodetest;
using velt::testing::readFile;
using velt::testing::writeFile;

TEST(DecodeJPEG, CjpegOutputsDecodeCloseToTheCard) {
    struct Case {
        const char* name;
        QStringList options;
        bool gray;
    };
    const std::vector<Case> cases = {
        {"baseline", {}, false},
        {"progressive", {QStringLiteral("-progressive")}, false},
        {"gray", {}, true},
        {"gray-progressive", {QStringLiteral("-progressive")}, true},
    };
    QTemporaryDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Bitmap expected = c.gray ? grayCard(67, 45) : card(67, 45, false);  // partial MCUs
        const QString input = dir.filePath(QLatin1String(c.name) + QStringLiteral(".pnm"));
        const QString output = dir.filePath(QLatin1String(c.name) + QStringLiteral(".jpg"));
        writeFile(input, c.gray ? pgm(expected) : ppm(expected));
        runTool(QStringLiteral("cjpeg"),
                QStringList{QStringLiteral("-quality"), QStringLiteral("92")}
                    << c.options << QStringList{QStringLiteral("-outfile"), output, input});
        const Bitmap decoded = decodeFirstFrame(output);
        ASSERT_EQ(decoded.width, 67);
        ASSERT_EQ(decoded.height, 45);
        EXPECT_EQ(decoded.alphaInfo, AlphaInfo::noneSkipLast);
        EXPECT_EQ(decoded.colorSpace, sRGBColorSpace());
        EXPECT_LT(meanAbsoluteError(decoded, expected), 6.0);
    }
}

TEST(DecodeJPEG, EmbeddedProfileIsKeptAndPixelsLeftInItsSpace) {
    QTemporaryDir dir;
    const QByteArray profile = testing::displayP3Profile();
    const Bitmap expected = card(67, 45, false);
    writeFile(dir.filePath(QStringLiteral("p3.icc")), profile);
    writeFile(dir.filePath(QStringLiteral("in.ppm")), ppm(expected));
    runTool(QStringLiteral("cjpeg"),
            {QStringLiteral("-quality"), QStringLiteral("92"), QStringLiteral("-icc"),
             dir.filePath(QStringLiteral("p3.icc")), QStringLiteral("-outfile"),
             dir.filePath(QStringLiteral("p3.jpg")), dir.filePath(QStringLiteral("in.ppm"))});
    const Bitmap decoded = decodeFirstFrame(dir.filePath(QStringLiteral("p3.jpg")));
    EXPECT_EQ(decoded.colorSpace.iccData, profile);
    EXPECT_EQ(decoded.colorSpace.model, ColorModel::rgb);
    EXPECT_EQ(decoded.colorSpace.name, QStringLiteral("Display P3"));
    EXPECT_LT(meanAbsoluteError(decoded, expected), 6.0);
}

// Fenced like the decoder: libjpeg's errors jump back here.
bool writeCmykJpeg(jpeg_compress_struct* info, jpeg_error_mgr* error, std::jmp_buf* jump,
                   const std::uint8_t* cmyk, int width, int height, unsigned char** out,
                   unsigned long* size) {
    if (setjmp(*jump)) return false;
    info->err = jpeg_std_error(error);
    error->error_exit = [](j_common_ptr common) {
        std::longjmp(*static_cast<std::jmp_buf*>(common->client_data), 1);
    };
    jpeg_create_compress(info);
    info->client_data = jump;
    jpeg_mem_dest(info, out, size);
    info->image_width = static_cast<JDIMENSION>(width);
    info->image_height = static_cast<JDIMENSION>(height);
    info->input_components = 4;
    info->in_color_space = JCS_CMYK;
    jpeg_set_defaults(info);
    jpeg_set_colorspace(info, JCS_CMYK);  // stores CMYK with an Adobe marker
    info->write_Adobe_marker = TRUE;
    jpeg_set_quality(info, 95, TRUE);
    jpeg_start_compress(info, TRUE);
    while (info->next_scanline < info->image_height) {
        JSAMPROW row = const_cast<std::uint8_t*>(cmyk) + info->next_scanline * width * 4;
        jpeg_write_scanlines(info, &row, 1);
    }
    jpeg_finish_compress(info);
    return true;
}

TEST(DecodeJPEG, AdobeCmykBecomesSRGB) {
    struct Block {
        std::array<std::uint8_t, 4> ink;  // C, M, Y, K as fractions of 255
        std::array<int, 3> low;           // inclusive bounds of the expected sRGB colour
        std::array<int, 3> high;
    };
    const std::vector<Block> blocks = {
        {{0, 0, 0, 0}, {235, 235, 235}, {255, 255, 255}},  // paper white
        {{0, 0, 0, 255}, {0, 0, 0}, {70, 70, 70}},         // full black ink
        {{255, 0, 0, 0}, {0, 120, 150}, {90, 255, 255}},   // cyan
        {{0, 255, 255, 0}, {170, 0, 0}, {255, 90, 90}},    // red (magenta + yellow)
    };
    const int width = 64, height = 16;
    std::vector<std::uint8_t> cmyk;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            // Adobe's convention: stored values are inverted, 255 = no ink.
            for (std::uint8_t ink : blocks[x / 16].ink) cmyk.push_back(255 - ink);
        }
    }
    jpeg_compress_struct info{};
    jpeg_error_mgr error{};
    std::jmp_buf jump;
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    const bool written =
        writeCmykJpeg(&info, &error, &jump, cmyk.data(), width, height, &buffer, &size);
    jpeg_destroy_compress(&info);
    const QByteArray jpeg(reinterpret_cast<const char*>(buffer), static_cast<qsizetype>(size));
    std::free(buffer);
    ASSERT_TRUE(written);

    QTemporaryDir dir;
    writeFile(dir.filePath(QStringLiteral("cmyk.jpg")), jpeg);
    const Bitmap decoded = decodeFirstFrame(dir.filePath(QStringLiteral("cmyk.jpg")));
    ASSERT_EQ(decoded.width, width);
    EXPECT_EQ(decoded.alphaInfo, AlphaInfo::noneSkipLast);
    EXPECT_EQ(decoded.colorSpace, sRGBColorSpace());
    for (std::size_t b = 0; b < blocks.size(); ++b) {
        const std::uint8_t* pixel = decoded.pixel(static_cast<int>(b) * 16 + 8, 8);
        for (int c = 0; c < 3; ++c) {
            EXPECT_GE(pixel[c], blocks[b].low[c]) << "block " << b << " channel " << c;
            EXPECT_LE(pixel[c], blocks[b].high[c]) << "block " << b << " channel " << c;
        }
        EXPECT_EQ(pixel[3], 255);
    }
}

}  // namespace
}  // namespace velt::imageio
