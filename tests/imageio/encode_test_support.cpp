#include "encode_test_support.h"

#include <QProcess>

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <map>
#include <memory>

#include <lcms2.h>
#include <png.h>

namespace velt::imageio::testing {

namespace {

QByteArray saveProfile(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    QByteArray bytes(static_cast<qsizetype>(size), '\0');
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    // lcms2 stamps the creation time into the header; a fixed date (2020-01-01 00:00:00) makes
    // every call return the same bytes, so tests may compare against a second copy.
    static const char fixedDate[12] = {0x07, static_cast<char>(0xE4), 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};
    if (bytes.size() >= 36) bytes.replace(24, 12, fixedDate, 12);
    return bytes;
}

void describe(cmsHPROFILE profile, const char* description) {
    cmsMLU* text = cmsMLUalloc(nullptr, 1);
    cmsMLUsetASCII(text, "en", "US", description);
    cmsWriteTag(profile, cmsSigProfileDescriptionTag, text);
    cmsMLUfree(text);
}

std::uint8_t clampByte(double value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

}  // namespace

Bitmap syntheticBitmap(int width, int height, bool alpha) {
    Bitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.rgba.resize(static_cast<std::size_t>(width) * height * 4);
    bitmap.alphaInfo = alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            double r = 255.0 * x / width, g = 255.0 * y / height;
            double b = 128 + 100 * std::sin(x / 23.0) * std::cos(y / 31.0);
            const double dx = x - width / 2.0, dy = y - height / 2.0;
            if (dx * dx + dy * dy < width * height / 16.0) r = 230, g = 40 + x % 20, b = 30;
            if ((x / 16) % 4 == 0 && y > height * 3 / 4) r = g = b = 20;
            std::uint8_t* out = bitmap.rgba.data() + (static_cast<std::size_t>(y) * width + x) * 4;
            out[0] = clampByte(r);
            out[1] = clampByte(g);
            out[2] = clampByte(b);
            out[3] = !alpha || x >= width / 2 ? 255 : (x < width / 4 ? 0 : 128);
        }
    }
    return bitmap;
}

QByteArray displayP3Profile() {
    const cmsCIExyY white{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries{{0.680, 0.320, 1.0}, {0.265, 0.690, 1.0}, {0.150, 0.060, 1.0}};
    cmsToneCurve* curve = cmsBuildGamma(nullptr, 2.2);
    cmsToneCurve* curves[3] = {curve, curve, curve};
    cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsFreeToneCurve(curve);
    describe(profile, "Display P3");
    return saveProfile(profile);
}

QByteArray srgbProfile() {
    return saveProfile(cmsCreate_sRGBProfile());
}

QByteArray linearGrayProfile() {
    cmsToneCurve* curve = cmsBuildGamma(nullptr, 1.0);
    cmsHPROFILE profile = cmsCreateGrayProfile(cmsD50_xyY(), curve);
    cmsFreeToneCurve(curve);
    describe(profile, "Linear Grey");
    return saveProfile(profile);
}

QByteArray labProfile() {
    return saveProfile(cmsCreateLab4Profile(nullptr));
}

ProcessResult runProcess(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit) return {};
    return {process.exitCode(), process.readAllStandardOutput()};
}

std::optional<Bitmap> readPPM(const QByteArray& bytes) {
    int width = 0, height = 0, maxValue = 0, headerLength = 0;
    if (std::sscanf(bytes.constData(), "P6 %d %d %d%n", &width, &height, &maxValue,
                    &headerLength) != 3 ||
        maxValue != 255)
        return std::nullopt;
    const qsizetype start = headerLength + 1;  // one whitespace byte ends the header
    if (bytes.size() - start != qsizetype{width} * height * 3) return std::nullopt;
    Bitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.rgba.resize(static_cast<std::size_t>(width) * height * 4, 255);
    for (qsizetype i = 0; i < qsizetype{width} * height; ++i) {
        for (int c = 0; c < 3; ++c)
            bitmap.rgba[i * 4 + c] = static_cast<std::uint8_t>(bytes[start + i * 3 + c]);
    }
    return bitmap;
}

namespace {

struct PngReadJob {
    FILE* file = nullptr;
    png_uint_32 width = 0, height = 0;
    int colorType = 0;
    std::uint8_t* pixels = nullptr;  // filled by the caller-supplied buffer after the header
    png_bytep icc = nullptr;
    png_uint_32 iccSize = 0;
};

// Frame without C++ objects: libpng longjmps on errors.
bool readHeaderFenced(png_structp png, png_infop info, PngReadJob* job) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_init_io(png, job->file);
    png_read_info(png, info);
    int depth = 0;
    png_get_IHDR(png, info, &job->width, &job->height, &depth, &job->colorType, nullptr, nullptr,
                 nullptr);
    png_charp name = nullptr;
    int compression = 0;
    png_get_iCCP(png, info, &name, &compression, &job->icc, &job->iccSize);
    if (depth != 8) return false;
    if (!(job->colorType & PNG_COLOR_MASK_ALPHA)) png_set_filler(png, 0xff, PNG_FILLER_AFTER);
    png_read_update_info(png, info);
    return true;
}

bool readRowsFenced(png_structp png, png_infop info, PngReadJob* job) {
    if (setjmp(png_jmpbuf(png))) return false;
    for (png_uint_32 y = 0; y < job->height; ++y)
        png_read_row(png, job->pixels + y * job->width * 4, nullptr);
    png_read_end(png, info);
    return true;
}

}  // namespace

std::optional<PngContents> readPNG(const QString& path) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(
        std::fopen(path.toLocal8Bit().constData(), "rb"), std::fclose);
    if (!file) return std::nullopt;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    PngReadJob job;
    job.file = file.get();
    std::optional<PngContents> result;
    if (readHeaderFenced(png, info, &job) &&
        (job.colorType == PNG_COLOR_TYPE_RGB || job.colorType == PNG_COLOR_TYPE_RGB_ALPHA)) {
        PngContents contents;
        contents.iccData =
            QByteArray(reinterpret_cast<const char*>(job.icc), static_cast<qsizetype>(job.iccSize));
        contents.bitmap.width = static_cast<int>(job.width);
        contents.bitmap.height = static_cast<int>(job.height);
        contents.bitmap.alphaInfo =
            job.colorType == PNG_COLOR_TYPE_RGB_ALPHA ? AlphaInfo::last : AlphaInfo::noneSkipLast;
        contents.bitmap.rgba.resize(static_cast<std::size_t>(job.width) * job.height * 4);
        job.pixels = contents.bitmap.rgba.data();
        if (readRowsFenced(png, info, &job)) result = std::move(contents);
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return result;
}

std::optional<PngContents> decodeWithHeifConvert(const QString& path) {
    const QString png = path + QStringLiteral(".png");
    if (runProcess(QStringLiteral("heif-convert"), {path, png}).exitCode != 0) return std::nullopt;
    return readPNG(png);
}

double psnr(const Bitmap& a, const Bitmap& b, bool withAlpha) {
    if (a.width != b.width || a.height != b.height || a.rgba.size() != b.rgba.size()) return 0;
    double squares = 0, count = 0;
    for (std::size_t i = 0; i < a.rgba.size(); ++i) {
        if (!withAlpha && i % 4 == 3) continue;
        const double difference = double(a.rgba[i]) - double(b.rgba[i]);
        squares += difference * difference;
        count += 1;
    }
    if (squares == 0) return 99;
    return 10 * std::log10(255.0 * 255.0 / (squares / count));
}

namespace {

// Calls `visit(marker, payload)` for each marker segment before the scan data.
template <typename Visit>
void forEachJpegSegment(const QByteArray& jpeg, Visit visit) {
    qsizetype at = 2;
    while (at + 4 <= jpeg.size() && static_cast<std::uint8_t>(jpeg[at]) == 0xFF) {
        const auto marker = static_cast<std::uint8_t>(jpeg[at + 1]);
        const int length =
            static_cast<std::uint8_t>(jpeg[at + 2]) << 8 | static_cast<std::uint8_t>(jpeg[at + 3]);
        if (marker == 0xDA || length < 2 || at + 2 + length > jpeg.size()) return;
        visit(marker, jpeg.mid(at + 4, length - 2));
        at += 2 + length;
    }
}

}  // namespace

QByteArray jpegICCProfile(const QByteArray& jpeg) {
    const QByteArray tag("ICC_PROFILE", 12);  // with its NUL
    std::map<int, QByteArray> chunks;
    forEachJpegSegment(jpeg, [&](std::uint8_t marker, const QByteArray& payload) {
        if (marker == 0xE2 && payload.startsWith(tag) && payload.size() >= 14)
            chunks[static_cast<std::uint8_t>(payload[12])] = payload.mid(14);
    });
    QByteArray profile;
    for (const auto& [sequence, chunk] : chunks) profile += chunk;
    return profile;
}

int jpegLumaSampling(const QByteArray& jpeg) {
    int sampling = -1;
    forEachJpegSegment(jpeg, [&](std::uint8_t marker, const QByteArray& payload) {
        const bool frame = marker >= 0xC0 && marker <= 0xC2;
        if (frame && payload.size() >= 9) sampling = static_cast<std::uint8_t>(payload[7]);
    });
    return sampling;
}

}  // namespace velt::imageio::testing
