#include "test_images.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <memory>

#include <gtest/gtest.h>
#include <lcms2.h>
#include <libheif/heif_cxx.h>
#include <png.h>

#include "support/test_environment.h"

namespace velt::testing {

using imageio::AlphaInfo;

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

Bitmap photoLikeBitmap(int width, int height, bool withAlpha) {
    Bitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.rgba.resize(static_cast<std::size_t>(width) * height * 4);
    bitmap.alphaInfo = withAlpha ? AlphaInfo::last : AlphaInfo::noneSkipLast;
    std::uint32_t noise = 12345;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            noise = noise * 1664525u + 1013904223u;
            const int grain = static_cast<int>((noise >> 24) % 9) - 4;
            const double dx = x - width * 0.6, dy = y - height * 0.4;
            const bool disc = dx * dx + dy * dy < (width * height) / 12.0;
            std::uint8_t* p = bitmap.rgba.data() + (static_cast<std::size_t>(y) * width + x) * 4;
            const int r = disc ? 220 : 40 + 180 * x / std::max(1, width - 1);
            const int g = disc ? 120 : 60 + 120 * y / std::max(1, height - 1);
            const int b = disc ? 40 : 150 + static_cast<int>(60 * std::sin(x * 0.05));
            p[0] = static_cast<std::uint8_t>(std::clamp(r + grain, 0, 255));
            p[1] = static_cast<std::uint8_t>(std::clamp(g + grain, 0, 255));
            p[2] = static_cast<std::uint8_t>(std::clamp(b + grain, 0, 255));
            p[3] = withAlpha ? static_cast<std::uint8_t>(x < width / 4 ? 0 : 255) : 255;
        }
    }
    return bitmap;
}

QByteArray toPNM(const Bitmap& bitmap, bool withAlpha) {
    QByteArray out = withAlpha ? QByteArray(
                                     "P7\nWIDTH %1\nHEIGHT %2\nDEPTH 4\nMAXVAL 255\n"
                                     "TUPLTYPE RGB_ALPHA\nENDHDR\n")
                               : QByteArray("P6\n%1 %2\n255\n");
    out.replace("%1", QByteArray::number(bitmap.width))
        .replace("%2", QByteArray::number(bitmap.height));
    for (std::size_t i = 0; i < bitmap.rgba.size(); i += 4)
        out.append(reinterpret_cast<const char*>(bitmap.rgba.data() + i), withAlpha ? 4 : 3);
    return out;
}

QByteArray pngOf(const Bitmap& bitmap, int depth, const QByteArray& iccProfile,
                 const QByteArray& exif) {
    const bool alpha = hasAlphaChannel(bitmap.alphaInfo);
    PngRecipe recipe(bitmap.width, bitmap.height,
                     alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, depth);
    recipe.iccProfile = iccProfile;
    recipe.exif = exif;
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

// Parses P6 or P7 (RGB or RGB_ALPHA) bytes; nothing when malformed.
std::optional<Bitmap> fromPNM(const QByteArray& data) {
    Bitmap bitmap;
    int channels = 3;
    qsizetype offset = 0;
    if (data.startsWith("P6")) {
        const QList<QByteArray> parts = data.left(64).simplified().split(' ');
        if (parts.size() < 4) return std::nullopt;
        bitmap.width = parts[1].toInt();
        bitmap.height = parts[2].toInt();
        // The header is four tokens, each followed by one whitespace byte.
        offset = parts[0].size() + parts[1].size() + parts[2].size() + parts[3].size() + 4;
    } else if (data.startsWith("P7")) {
        const qsizetype end = data.indexOf("ENDHDR\n");
        if (end < 0) return std::nullopt;
        for (const QByteArray& line : data.left(end).split('\n')) {
            if (line.startsWith("WIDTH ")) bitmap.width = line.mid(6).toInt();
            if (line.startsWith("HEIGHT ")) bitmap.height = line.mid(7).toInt();
            if (line.startsWith("DEPTH ")) channels = line.mid(6).toInt();
        }
        offset = end + 7;
    } else {
        return std::nullopt;
    }
    const qsizetype pixels = static_cast<qsizetype>(bitmap.width) * bitmap.height;
    if (pixels <= 0 || data.size() < offset + pixels * channels) return std::nullopt;
    bitmap.rgba.resize(static_cast<std::size_t>(pixels) * 4);
    bitmap.alphaInfo = channels == 4 ? AlphaInfo::last : AlphaInfo::noneSkipLast;
    for (qsizetype i = 0; i < pixels; ++i) {
        for (int c = 0; c < 3; ++c)
            bitmap.rgba[i * 4 + c] = static_cast<std::uint8_t>(data[offset + i * channels + c]);
        bitmap.rgba[i * 4 + 3] =
            channels == 4 ? static_cast<std::uint8_t>(data[offset + i * channels + 3]) : 255;
    }
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

std::optional<QByteArray> runProgram(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return std::nullopt;
    return process.readAllStandardOutput();
}

QByteArray runTool(const QString& program, const QStringList& arguments) {
    const std::optional<QByteArray> output = runProgram(program, arguments);
    EXPECT_TRUE(output) << program.toStdString() << " failed";
    return output.value_or(QByteArray());
}

QByteArray run(const char* commandLine, const QString& folder) {
    QStringList words = QString::fromUtf8(commandLine)
                            .replace(QStringLiteral("%1"), folder)
                            .split(QLatin1Char(' '));
    return runTool(words.takeFirst(), words);
}

QByteArray withApp1(const QByteArray& jpeg, const QList<QByteArray>& payloads) {
    QByteArray segments;
    for (const QByteArray& payload : payloads) {
        if (payload.isEmpty()) continue;
        const int length = int(payload.size()) + 2;
        segments += QByteArray("\xFF\xE1", 2) + char(length >> 8) + char(length & 0xFF) + payload;
    }
    const qsizetype at =
        jpeg.mid(2, 2) == "\xFF\xE0" ? 4 + (std::uint8_t(jpeg[4]) << 8 | std::uint8_t(jpeg[5])) : 2;
    return jpeg.left(at) + segments + jpeg.mid(at);
}

bool writeJPEGWithCjpeg(const Bitmap& bitmap, int quality, const QString& path,
                        const QStringList& extraArguments) {
    QTemporaryDir dir;
    const QString ppm = dir.filePath(QStringLiteral("in.ppm"));
    QFile file(ppm);
    if (!file.open(QIODevice::WriteOnly) || file.write(toPNM(bitmap)) < 0) return false;
    file.close();
    return runProgram(QStringLiteral("cjpeg"),
                      QStringList{QStringLiteral("-quality"), QString::number(quality)} +
                          extraArguments + QStringList{QStringLiteral("-outfile"), path, ppm})
        .has_value();
}

std::optional<Bitmap> decodeIndependently(const QString& path, QByteArray* icc) {
    const QString lower = path.toLower();
    if (lower.endsWith(QLatin1String(".jpg")) || lower.endsWith(QLatin1String(".jpeg"))) {
        if (icc) *icc = jpegProfile(readFile(path));
        const auto out = runProgram(QStringLiteral("djpeg"), {QStringLiteral("-ppm"), path});
        return out ? fromPNM(*out) : std::nullopt;
    }
    QTemporaryDir dir;  // never beside the file: tests list the folders they judge
    if (lower.endsWith(QLatin1String(".webp"))) {
        const QString pam = dir.filePath(QStringLiteral("out.pam"));
        if (!runProgram(QStringLiteral("dwebp"), {QStringLiteral("-quiet"), QStringLiteral("-pam"),
                                                  path, QStringLiteral("-o"), pam}))
            return std::nullopt;
        return fromPNM(readFile(pam));
    }
    QString png = path;
    if (lower.endsWith(QLatin1String(".heic")) || lower.endsWith(QLatin1String(".avif"))) {
        png = dir.filePath(QStringLiteral("out.png"));
        if (!runProgram(QStringLiteral("heif-convert"), {path, png})) return std::nullopt;
    }
    if (!runProgram(QStringLiteral("pngcheck"), {QStringLiteral("-q"), png})) return std::nullopt;
    if (icc) *icc = pngProfile(readFile(png));
    Bitmap bitmap = readPng(png);
    if (bitmap.rgba.empty()) return std::nullopt;
    return bitmap;
}

std::optional<Bitmap> displayedByViewer(const QString& path,
                                        std::optional<int> exiftoolOrientation) {
    static const char* const names[] = {"TopLeft", "TopRight", "BottomRight", "BottomLeft",
                                        "LeftTop", "RightTop", "RightBottom", "LeftBottom"};
    QStringList arguments{path};
    const int orientation = exiftoolOrientation.value_or(0);
    if ((path.endsWith(QLatin1String(".png")) || path.endsWith(QLatin1String(".webp"))) &&
        orientation >= 1 && orientation <= 8)
        arguments << QStringLiteral("-orient") << QLatin1String(names[orientation - 1]);
    arguments << QStringLiteral("-auto-orient") << QStringLiteral("-strip")  // no header comment
              << QStringLiteral("-depth") << QStringLiteral("8") << QStringLiteral("ppm:-");
    const auto output = runProgram(QStringLiteral("/usr/bin/convert"), arguments);  // Debian's
    return output ? fromPNM(*output) : std::nullopt;
}

void writeHeif(const Bitmap& bitmap, ImageFormat format, const HeifExtras& extras,
               const QString& path) {
    heif::Image image;
    image.create(bitmap.width, bitmap.height, heif_colorspace_RGB, heif_chroma_interleaved_RGBA);
    image.add_plane(heif_channel_interleaved, bitmap.width, bitmap.height, 8);
    int stride = 0;
    std::uint8_t* plane = image.get_plane(heif_channel_interleaved, &stride);
    for (int y = 0; y < bitmap.height; ++y)
        std::copy_n(bitmap.pixel(0, y), bitmap.rowBytes(), plane + y * stride);
    if (const auto& codes = extras.nclxPrimariesAndTransfer) {
        heif::ColorProfile_nclx nclx;
        nclx.set_color_primaries(static_cast<heif_color_primaries>(codes->first));
        nclx.set_transfer_characteristics(
            static_cast<heif_transfer_characteristics>(codes->second));
        nclx.set_matrix_coefficients(heif_matrix_coefficients_ITU_R_BT_601_6);
        image.set_nclx_color_profile(nclx);
    }
    heif::Encoder encoder(format == ImageFormat::avif ? heif_compression_AV1
                                                      : heif_compression_HEVC);
    encoder.set_lossy_quality(90);
    heif::Context::EncodingOptions options;
    options.save_alpha_channel = hasAlphaChannel(bitmap.alphaInfo);
    options.image_orientation = static_cast<heif_orientation>(extras.orientation);
    // Newer libheif writes the nclx box only when the options name the profile too.
    const std::unique_ptr<heif_color_profile_nclx, decltype(&heif_nclx_color_profile_free)>
        outputNclx(extras.nclxPrimariesAndTransfer ? heif_nclx_color_profile_alloc() : nullptr,
                   &heif_nclx_color_profile_free);
    if (outputNclx) {
        outputNclx->color_primaries =
            static_cast<heif_color_primaries>(extras.nclxPrimariesAndTransfer->first);
        outputNclx->transfer_characteristics =
            static_cast<heif_transfer_characteristics>(extras.nclxPrimariesAndTransfer->second);
        outputNclx->matrix_coefficients = heif_matrix_coefficients_ITU_R_BT_601_6;
        options.output_nclx_profile = outputNclx.get();
    }
    heif::Context context;
    const heif::ImageHandle handle = context.encode_image(image, encoder, options);
    if (!extras.exif.isEmpty())
        context.add_exif_metadata(handle, extras.exif.constData(), int(extras.exif.size()));
    context.write_to_file(QFile::encodeName(path).toStdString());
}

std::optional<imageio::ImageIOError::Code> errorOf(const std::function<void()>& call,
                                                   QString* message) {
    try {
        call();
    } catch (const imageio::ImageIOError& error) {
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

double psnrOnWhite(const Bitmap& a, const Bitmap& b) {
    if (a.width != b.width || a.height != b.height || a.rgba.size() != b.rgba.size()) return 0;
    double squares = 0;
    for (std::size_t i = 0; i < a.rgba.size(); ++i) {
        if (i % 4 == 3) continue;
        const auto onWhite = [&](const Bitmap& m) {
            const double alpha = m.rgba[i - i % 4 + 3] / 255.0;
            return m.rgba[i] * alpha + 255.0 * (1 - alpha);
        };
        const double difference = onWhite(a) - onWhite(b);
        squares += difference * difference;
    }
    const double count = a.rgba.size() / 4 * 3.0;
    return squares == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * count / squares);
}

}  // namespace velt::testing
