#include "decode_test_support.h"

#include <QProcess>
#include <cmath>
#include <csetjmp>
#include <cstdlib>

#include <gtest/gtest.h>
#include <png.h>

namespace velt::imageio::decodetest {

std::array<std::uint8_t, 4> cardPixel(int x, int y, int width, int height, bool alpha) {
    const int dx = 2 * x - width, dy = 2 * y - height;
    const bool inDisc = dx * dx + dy * dy < (height * height) / 4;
    std::uint8_t a = 255;
    if (alpha && 2 * x < width) a = 2 * y < height ? 0 : 128;
    return {static_cast<std::uint8_t>(x * 255 / std::max(1, width - 1)),
            static_cast<std::uint8_t>(y * 255 / std::max(1, height - 1)),
            static_cast<std::uint8_t>(inDisc ? 220 : 30), a};
}

Bitmap card(int width, int height, bool alpha) {
    Bitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.alphaInfo = alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto pixel = cardPixel(x, y, width, height, alpha);
            bitmap.rgba.insert(bitmap.rgba.end(), pixel.begin(), pixel.end());
        }
    }
    return bitmap;
}

Bitmap grayCard(int width, int height) {
    Bitmap bitmap = card(width, height, false);
    for (std::size_t i = 0; i < bitmap.rgba.size(); i += 4) {
        const auto gray = static_cast<std::uint8_t>(
            (bitmap.rgba[i] + bitmap.rgba[i + 1] + bitmap.rgba[i + 2]) / 3);
        bitmap.rgba[i] = bitmap.rgba[i + 1] = bitmap.rgba[i + 2] = gray;
    }
    return bitmap;
}

namespace {

QByteArray netpbm(const Bitmap& bitmap, const QByteArray& header, int channels) {
    QByteArray out = header;
    for (std::size_t i = 0; i < bitmap.rgba.size(); i += 4) {
        out.append(reinterpret_cast<const char*>(&bitmap.rgba[i]), channels);
    }
    return out;
}

}  // namespace

QByteArray ppm(const Bitmap& b) {
    return netpbm(
        b, "P6\n" + QByteArray::number(b.width) + ' ' + QByteArray::number(b.height) + "\n255\n",
        3);
}

QByteArray pgm(const Bitmap& b) {
    return netpbm(
        b, "P5\n" + QByteArray::number(b.width) + ' ' + QByteArray::number(b.height) + "\n255\n",
        1);
}

QByteArray pam(const Bitmap& b) {
    return netpbm(b,
                  "P7\nWIDTH " + QByteArray::number(b.width) + "\nHEIGHT " +
                      QByteArray::number(b.height) +
                      "\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
                  4);
}

void runTool(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    ASSERT_TRUE(process.waitForFinished(120000)) << program.toStdString();
    ASSERT_EQ(process.exitStatus(), QProcess::NormalExit) << program.toStdString();
    ASSERT_EQ(process.exitCode(), 0)
        << program.toStdString() << ": " << process.readAllStandardError().toStdString();
}

namespace {

void appendToBuffer(png_structp png, png_bytep data, png_size_t size) {
    static_cast<QByteArray*>(png_get_io_ptr(png))
        ->append(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

// Fenced: libpng's errors jump back here; only trivially destructible values in this frame.
bool writePng(png_structp png, png_infop info, const PngRecipe* recipe, png_bytepp rows,
              QByteArray* out) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_write_fn(png, out, appendToBuffer, nullptr);
    png_set_IHDR(png, info, recipe->width, recipe->height, recipe->bitDepth, recipe->colorType,
                 recipe->interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_color palette[256];
    for (std::size_t i = 0; i < recipe->palette.size(); ++i) {
        palette[i] = {recipe->palette[i][0], recipe->palette[i][1], recipe->palette[i][2]};
    }
    if (!recipe->palette.empty()) {
        png_set_PLTE(png, info, palette, static_cast<int>(recipe->palette.size()));
    }
    if (!recipe->paletteAlpha.empty()) {
        png_set_tRNS(png, info, recipe->paletteAlpha.data(),
                     static_cast<int>(recipe->paletteAlpha.size()), nullptr);
    }
    if (recipe->transparentColor) {
        png_color_16 color{};
        color.gray = color.red = static_cast<png_uint_16>((*recipe->transparentColor)[0]);
        color.green = static_cast<png_uint_16>((*recipe->transparentColor)[1]);
        color.blue = static_cast<png_uint_16>((*recipe->transparentColor)[2]);
        png_set_tRNS(png, info, nullptr, 0, &color);
    }
    if (!recipe->iccProfile.isEmpty()) {
        png_set_iCCP(png, info, "test", PNG_COMPRESSION_TYPE_BASE,
                     reinterpret_cast<png_const_bytep>(recipe->iccProfile.constData()),
                     static_cast<png_uint_32>(recipe->iccProfile.size()));
    }
    if (!recipe->exif.isEmpty()) {
        png_set_eXIf_1(png, info, static_cast<png_uint_32>(recipe->exif.size()),
                       reinterpret_cast<png_bytep>(const_cast<char*>(recipe->exif.constData())));
    }
    png_write_info(png, info);
    png_write_image(png, rows);
    png_write_end(png, info);
    return true;
}

}  // namespace

QByteArray encodePng(const PngRecipe& recipe) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    std::vector<png_bytep> rows;
    for (const auto& row : recipe.rows) rows.push_back(const_cast<png_bytep>(row.data()));
    QByteArray out;
    const bool written = writePng(png, info, &recipe, rows.data(), &out);
    png_destroy_write_struct(&png, &info);
    EXPECT_TRUE(written);
    return out;
}

QByteArray tiffWithOrientation(int orientation, bool bigEndian) {
    const auto u16 = [&](QByteArray& out, int v) {
        const char hi = static_cast<char>(v >> 8), lo = static_cast<char>(v & 0xFF);
        out.append(bigEndian ? hi : lo).append(bigEndian ? lo : hi);
    };
    const auto u32 = [&](QByteArray& out, int v) {
        if (bigEndian) {
            u16(out, v >> 16), u16(out, v & 0xFFFF);
        } else {
            u16(out, v & 0xFFFF), u16(out, v >> 16);
        }
    };
    QByteArray tiff = bigEndian ? QByteArray("MM\0*", 4) : QByteArray("II*\0", 4);
    u32(tiff, 8);
    u16(tiff, 2);  // two entries: an unrelated one first, then orientation
    u16(tiff, 0x010F), u16(tiff, 2), u32(tiff, 4), tiff.append("ACM", 4);
    u16(tiff, 0x0112), u16(tiff, 3), u32(tiff, 1), u16(tiff, orientation), u16(tiff, 0);
    u32(tiff, 0);
    return tiff;
}

QByteArray jpegWithOrientation(const QByteArray& jpeg, int orientation, bool bigEndian) {
    const QByteArray payload =
        QByteArray("Exif\0\0", 6) + tiffWithOrientation(orientation, bigEndian);
    const int length = static_cast<int>(payload.size()) + 2;
    QByteArray segment("\xFF\xE1");
    segment.append(static_cast<char>(length >> 8)).append(static_cast<char>(length & 0xFF));
    return jpeg.left(2) + segment + payload + jpeg.mid(2);
}

double meanAbsoluteError(const Bitmap& decoded, const Bitmap& expected) {
    double sums[4] = {};
    std::size_t opaque = 0, all = 0;
    for (std::size_t i = 0; i + 3 < expected.rgba.size() && i + 3 < decoded.rgba.size(); i += 4) {
        ++all;
        sums[3] += std::abs(decoded.rgba[i + 3] - expected.rgba[i + 3]);
        if (expected.rgba[i + 3] != 255) continue;
        ++opaque;
        for (int c = 0; c < 3; ++c) sums[c] += std::abs(decoded.rgba[i + c] - expected.rgba[i + c]);
    }
    double worst = all ? sums[3] / all : 255;
    for (int c = 0; c < 3; ++c) worst = std::max(worst, opaque ? sums[c] / opaque : 255);
    return worst;
}

}  // namespace velt::imageio::decodetest
