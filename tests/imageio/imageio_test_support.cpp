#include "imageio_test_support.h"

#include <QFile>
#include <QProcess>
#include <QtEndian>
#include <cmath>
#include <csetjmp>
#include <cstdio>

#include <gtest/gtest.h>
#include <lcms2.h>
#include <png.h>

#include "support/test_environment.h"

namespace velt::imageio::testing {

Bitmap card(int width, int height, bool alpha) {
    Bitmap bitmap{width, height, {}, alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast, {}};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            double r = 255.0 * x / width, g = 255.0 * y / height;
            double b = 128 + 100 * std::sin(x / 23.0) * std::cos(y / 31.0);
            const double dx = x - width / 2.0, dy = y - height / 2.0;
            if (dx * dx + dy * dy < width * height / 16.0) r = 230, g = 40 + x % 20, b = 30;
            if ((x / 16) % 4 == 0 && y > height * 3 / 4) r = g = b = 20;
            const int a = !alpha || x >= width / 2 ? 255 : (x < width / 4 ? 0 : 128);
            for (const double v : {r, g, b, double(a)})
                bitmap.rgba.push_back(static_cast<std::uint8_t>(std::lround(v)));
        }
    }
    return bitmap;
}

QByteArray ppm(const Bitmap& b) {
    QByteArray out = QStringLiteral("P6\n%1 %2\n255\n").arg(b.width).arg(b.height).toLatin1();
    for (std::size_t i = 0; i < b.rgba.size(); i += 4)
        out.append(reinterpret_cast<const char*>(&b.rgba[i]), 3);
    return out;
}

QByteArray pngOf(const Bitmap& bitmap, int depth, const QByteArray& iccProfile) {
    const bool alpha = hasAlphaChannel(bitmap.alphaInfo);
    PngRecipe recipe(bitmap.width, bitmap.height,
                     alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, depth);
    recipe.iccProfile = iccProfile;
    recipe.rows.resize(bitmap.height);
    for (std::size_t i = 0; i < bitmap.rgba.size(); ++i) {
        if (alpha || i % 4 != 3)
            recipe.rows[i / bitmap.rowBytes()].insert(recipe.rows[i / bitmap.rowBytes()].end(),
                                                      depth / 8, bitmap.rgba[i]);
    }
    return encodePng(recipe);
}

namespace {

void appendToBuffer(png_structp png, png_bytep data, png_size_t size) {
    static_cast<QByteArray*>(png_get_io_ptr(png))
        ->append(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

// Fenced: libpng's errors jump back here; only trivially destructible values in this frame.
bool writePng(png_structp png, png_infop info, const PngRecipe* r, png_bytepp rows,
              QByteArray* out) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_write_fn(png, out, appendToBuffer, nullptr);
    png_set_IHDR(png, info, r->width, r->height, r->bitDepth, r->colorType,
                 r->interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_color palette[256];
    for (std::size_t i = 0; i < r->palette.size(); ++i)
        palette[i] = {r->palette[i][0], r->palette[i][1], r->palette[i][2]};
    if (!r->palette.empty()) png_set_PLTE(png, info, palette, int(r->palette.size()));
    if (!r->paletteAlpha.empty())
        png_set_tRNS(png, info, r->paletteAlpha.data(), int(r->paletteAlpha.size()), nullptr);
    if (const auto& key = r->transparentColor) {
        png_color_16 color{0, png_uint_16((*key)[0]), png_uint_16((*key)[1]),
                           png_uint_16((*key)[2]), png_uint_16((*key)[0])};
        png_set_tRNS(png, info, nullptr, 0, &color);
    }
    if (!r->iccProfile.isEmpty())
        png_set_iCCP(png, info, "icc", 0, reinterpret_cast<png_const_bytep>(r->iccProfile.data()),
                     png_uint_32(r->iccProfile.size()));
    if (!r->exif.isEmpty())
        png_set_eXIf_1(png, info, png_uint_32(r->exif.size()),
                       reinterpret_cast<png_bytep>(const_cast<char*>(r->exif.data())));
    png_write_info(png, info);
    png_write_image(png, rows);
    png_write_end(png, info);
    return true;
}

QByteArray saveProfile(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    QByteArray bytes(qsizetype(size), '\0');
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    return bytes;
}

Bitmap readPpm(const QByteArray& bytes) {
    int width = 0, height = 0, header = 0;
    std::sscanf(bytes.constData(), "P6 %d %d 255%n", &width, &height, &header);
    Bitmap bitmap{width, height, {}, AlphaInfo::noneSkipLast, {}};
    for (qsizetype i = header + 1; header && i + 2 < bytes.size(); i += 3)
        bitmap.rgba.insert(bitmap.rgba.end(), {std::uint8_t(bytes[i]), std::uint8_t(bytes[i + 1]),
                                               std::uint8_t(bytes[i + 2]), 255});
    return bitmap;
}

// The simplified libpng reader: any PNG as 8-bit RGBA; empty when unreadable.
Bitmap readPng(const QString& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, QFile::encodeName(path).constData())) return {};
    const bool alpha = image.format & PNG_FORMAT_FLAG_ALPHA;
    image.format = PNG_FORMAT_RGBA;
    Bitmap bitmap{int(image.width),
                  int(image.height),
                  {},
                  alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast,
                  {}};
    bitmap.rgba.resize(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, bitmap.rgba.data(), 0, nullptr)) return {};
    return bitmap;
}

// The inflated iCCP chunk of a PNG file; empty when there is none.
QByteArray pngProfile(const QByteArray& png) {
    for (qsizetype at = 8; at + 8 <= png.size();) {
        const auto length = qsizetype(qFromBigEndian<quint32>(png.constData() + at));
        if (png.mid(at + 4, 4) == "iCCP") {
            const QByteArray body = png.mid(at + 8, length);
            return qUncompress(QByteArray("\0\1\0\0", 4) + body.mid(body.indexOf('\0') + 2));
        }
        at += length + 12;
    }
    return {};
}

// The payload of a JPEG's (single) APP2 "ICC_PROFILE" segment.
QByteArray jpegProfile(const QByteArray& jpeg) {
    const qsizetype at = jpeg.indexOf(QByteArray("ICC_PROFILE", 12));
    if (at < 4) return {};
    const int length = std::uint8_t(jpeg[at - 2]) << 8 | std::uint8_t(jpeg[at - 1]);
    return jpeg.mid(at + 14, length - 16);
}

}  // namespace

QByteArray encodePng(const PngRecipe& recipe) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    std::vector<png_bytep> rows;
    for (const auto& row : recipe.rows) rows.push_back(const_cast<png_bytep>(row.data()));
    QByteArray out;
    EXPECT_TRUE(writePng(png, info, &recipe, rows.data(), &out));
    png_destroy_write_struct(&png, &info);
    return out;
}

QByteArray displayP3Profile() {
    static const QByteArray bytes = [] {  // one creation time for every caller
        const cmsCIExyY white{0.3127, 0.3290, 1.0};
        const cmsCIExyYTRIPLE primaries{
            {0.680, 0.320, 1.0}, {0.265, 0.690, 1.0}, {0.150, 0.060, 1.0}};
        cmsToneCurve* curve = cmsBuildGamma(nullptr, 2.2);
        cmsToneCurve* curves[3] = {curve, curve, curve};
        cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
        cmsFreeToneCurve(curve);
        cmsMLU* text = cmsMLUalloc(nullptr, 1);
        cmsMLUsetASCII(text, "en", "US", "Display P3");
        cmsWriteTag(profile, cmsSigProfileDescriptionTag, text);
        cmsMLUfree(text);
        return saveProfile(profile);
    }();
    return bytes;
}

QByteArray srgbProfile() {
    return saveProfile(cmsCreate_sRGBProfile());
}

QByteArray runTool(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    const bool finished = process.waitForFinished(120000);
    EXPECT_TRUE(finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        << program.toStdString() << ": " << process.readAllStandardError().toStdString();
    return process.readAllStandardOutput();
}

QByteArray run(const char* commandLine, const QString& folder) {
    QStringList words = QString::fromUtf8(commandLine)
                            .replace(QStringLiteral("%1"), folder)
                            .split(QLatin1Char(' '));
    return runTool(words.takeFirst(), words);
}

Decoded decodeIndependently(const QString& path) {
    if (path.endsWith(QStringLiteral(".jpg"))) {
        return {readPpm(runTool(QStringLiteral("djpeg"), {QStringLiteral("-ppm"), path})),
                jpegProfile(velt::testing::readFile(path))};
    }
    QString png = path;
    if (path.endsWith(QStringLiteral(".png"))) {
        runTool(QStringLiteral("pngcheck"), {QStringLiteral("-q"), path});
    } else {
        runTool(QStringLiteral("heif-convert"), {path, png += QStringLiteral(".png")});
    }
    return {readPng(png), pngProfile(velt::testing::readFile(png))};
}

std::optional<ImageIOError::Code> errorOf(const std::function<void()>& call, QString* message) {
    try {
        call();
    } catch (const ImageIOError& error) {
        if (message) *message = QString::fromStdString(error.what());
        return error.code();
    }
    return std::nullopt;
}

double psnr(const Bitmap& expected, const Bitmap& actual, bool alpha) {
    if (expected.rgba.size() != actual.rgba.size()) return 0;
    double squares = 0, count = 0;
    for (std::size_t i = 0; i < expected.rgba.size(); ++i) {
        const bool isAlpha = i % 4 == 3;
        if (isAlpha ? !alpha : alpha && expected.rgba[i - i % 4 + 3] != 255) continue;
        const double difference = double(expected.rgba[i]) - double(actual.rgba[i]);
        squares += difference * difference;
        count += 1;
    }
    return squares == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * count / squares);
}

}  // namespace velt::imageio::testing
