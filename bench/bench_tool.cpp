// Helper for the benchmark: converts images with the project's codec layer and compares them.
//
//   bench_tool convert IN OUT [--scale N]   decode IN, shrink by N (box filter), encode OUT by
//                                           its extension (jpg, png, heic, avif; quality 90;
//                                           ppm: the raster on white, as the engine hands it to
//                                           cjpeg and cwebp)
//   bench_tool convert IN OUT --megapixels M   the same, shrunk (area average) to about M MP
//   bench_tool synth OUT WIDTH HEIGHT       a photo-like synthetic picture, encoded by extension
//   bench_tool heif IN OUT QUALITY [NAME=VALUE ...]   IN encoded as OUT (heic or avif) by the
//                                           product's libheif encoder at libheif's own QUALITY,
//                                           the given encoder parameters over the product's;
//                                           prints "BYTES CPU_SECONDS" of the encoding alone
//   bench_tool psnr A B                     PSNR of B against A (RGB on white), in dB
//   bench_tool ssim A B...                  mean SSIM of each B against A (on white), one line
//                                           each: "LUMA RGB", on luma and the mean over R, G, B
//   bench_tool size IN                      "WIDTH HEIGHT" of the upright image
#include "cpu_time.h"
#include "imageio/encoders.h"
#include "imageio/image_io.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace velt;
using imageio::Bitmap;

namespace {

Bitmap load(const char* path) {
    const QString file = QString::fromLocal8Bit(path);
    const auto turn = imageio::readPhotoMetadata(file, MetadataPolicy::strip).displayTurn;
    Bitmap bitmap = imageio::decodeFirstFrame(file);
    if (turn) bitmap = imageio::applyOrientation(bitmap, *turn);
    return bitmap;
}

Bitmap shrink(const Bitmap& in, int factor) {
    Bitmap out = in;
    out.width = in.width / factor;
    out.height = in.height / factor;
    out.rgba.assign(static_cast<std::size_t>(out.width) * out.height * 4, 0);
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x)
            for (int c = 0; c < 4; ++c) {
                unsigned sum = 0;
                for (int dy = 0; dy < factor; ++dy)
                    for (int dx = 0; dx < factor; ++dx)
                        sum += in.pixel(x * factor + dx, y * factor + dy)[c];
                out.rgba[(static_cast<std::size_t>(y) * out.width + x) * 4 + c] =
                    static_cast<std::uint8_t>(sum / (factor * factor));
            }
    return out;
}

// Area average onto a smaller grid of any size: each output pixel is the mean of the source
// pixels its footprint covers (whole pixels; enough for a benchmark corpus).
Bitmap resized(const Bitmap& in, int width, int height) {
    Bitmap out = in;
    out.width = width;
    out.height = height;
    out.rgba.assign(static_cast<std::size_t>(width) * height * 4, 0);
    for (int y = 0; y < height; ++y) {
        const int top = static_cast<int>(static_cast<long long>(y) * in.height / height);
        const int bottom =
            std::max(top + 1, static_cast<int>(static_cast<long long>(y + 1) * in.height / height));
        for (int x = 0; x < width; ++x) {
            const int left = static_cast<int>(static_cast<long long>(x) * in.width / width);
            const int right = std::max(
                left + 1, static_cast<int>(static_cast<long long>(x + 1) * in.width / width));
            const unsigned count = static_cast<unsigned>((bottom - top) * (right - left));
            for (int c = 0; c < 4; ++c) {
                unsigned sum = 0;
                for (int sy = top; sy < bottom; ++sy)
                    for (int sx = left; sx < right; ++sx) sum += in.pixel(sx, sy)[c];
                out.rgba[(static_cast<std::size_t>(y) * width + x) * 4 + c] =
                    static_cast<std::uint8_t>((sum + count / 2) / count);
            }
        }
    }
    return out;
}

Bitmap toMegapixels(const Bitmap& in, double megapixels) {
    const double factor = std::sqrt(megapixels * 1e6 / (static_cast<double>(in.width) * in.height));
    if (factor >= 1) return in;
    return resized(in, std::max(1, static_cast<int>(std::lround(in.width * factor))),
                   std::max(1, static_cast<int>(std::lround(in.height * factor))));
}

// One channel of a pixel as seen on white paper.
double onWhite(const std::uint8_t* pixel, int channel) {
    const double alpha = pixel[3] / 255.0;
    return pixel[channel] * alpha + 255.0 * (1 - alpha);
}

void savePPM(const Bitmap& bitmap, const QString& path) {
    QByteArray bytes =
        QStringLiteral("P6\n%1 %2\n255\n").arg(bitmap.width).arg(bitmap.height).toLatin1();
    for (int y = 0; y < bitmap.height; ++y)
        for (int x = 0; x < bitmap.width; ++x)
            for (int c = 0; c < 3; ++c)
                bytes.append(static_cast<char>(std::lround(onWhite(bitmap.pixel(x, y), c))));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        throw std::runtime_error("cannot write the PPM");
}

void save(const Bitmap& bitmap, const char* path) {
    if (QFileInfo(QString::fromLocal8Bit(path)).suffix() == QLatin1String("ppm"))
        return savePPM(bitmap, QString::fromLocal8Bit(path));
    const auto format =
        imageFormatFromFileExtension(QFileInfo(QString::fromLocal8Bit(path)).suffix());
    if (!format) throw std::runtime_error("unknown output extension");
    imageio::encodeImage(bitmap, *format, 90, QString::fromLocal8Bit(path));
}

Bitmap synthetic(int width, int height) {
    Bitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.rgba.resize(static_cast<std::size_t>(width) * height * 4);
    std::uint32_t noise = 7;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            noise = noise * 1664525u + 1013904223u;
            const int grain = static_cast<int>(noise >> 28) - 8;
            std::uint8_t* p = bitmap.rgba.data() + (static_cast<std::size_t>(y) * width + x) * 4;
            p[0] = static_cast<std::uint8_t>(std::clamp(40 + 180 * x / width + grain, 0, 255));
            p[1] = static_cast<std::uint8_t>(std::clamp(60 + 120 * y / height + grain, 0, 255));
            p[2] = static_cast<std::uint8_t>(std::clamp(
                128 + static_cast<int>(90 * std::sin(x * 0.01 + y * 0.007)) + grain, 0, 255));
            p[3] = 255;
        }
    return bitmap;
}

// Encodes with the product's libheif settings, each NAME=VALUE argument replacing or adding one.
void encodeHeif(Bitmap bitmap, const char* path, int quality, char** settings, int count) {
    const auto format =
        imageFormatFromFileExtension(QFileInfo(QString::fromLocal8Bit(path)).suffix());
    if (format != ImageFormat::heic && format != ImageFormat::avif)
        throw std::runtime_error("the output must be .heic or .avif");
    imageio::detail::HeifParameters parameters = imageio::detail::defaultHeifParameters(*format);
    for (int i = 0; i < count; ++i) {
        const std::string setting = settings[i];
        const std::size_t equals = setting.find('=');
        if (equals == std::string::npos) throw std::runtime_error("parameters are NAME=VALUE");
        const std::string name = setting.substr(0, equals);
        std::erase_if(parameters, [&](const auto& parameter) { return parameter.first == name; });
        parameters.emplace_back(name, setting.substr(equals + 1));
    }
    const double started = processCpuSeconds();
    const QByteArray bytes =
        imageio::detail::encodeHEIF(std::move(bitmap), *format, quality, {}, {}, parameters);
    const double used = processCpuSeconds() - started;
    QFile file(QString::fromLocal8Bit(path));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        throw std::runtime_error("cannot write the output");
    std::printf("%lld %.3f\n", static_cast<long long>(bytes.size()), used);
}

double psnr(const Bitmap& a, const Bitmap& b) {
    if (a.width != b.width || a.height != b.height) return -1;
    double squared = 0;
    for (std::size_t i = 0; i < a.rgba.size(); i += 4)
        for (int c = 0; c < 3; ++c) {
            const double d = onWhite(&a.rgba[i], c) - onWhite(&b.rgba[i], c);
            squared += d * d;
        }
    const double mse = squared / (static_cast<double>(a.width) * a.height * 3);
    return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
}

// One plane of the picture on white: luma (BT.601 weights) or one of R, G, B.
enum class Plane { luma, red, green, blue };
std::vector<float> plane(const Bitmap& bitmap, Plane which) {
    std::vector<float> out(static_cast<std::size_t>(bitmap.width) * bitmap.height);
    for (std::size_t i = 0; i < out.size(); ++i) {
        const std::uint8_t* p = &bitmap.rgba[i * 4];
        out[i] = static_cast<float>(which == Plane::luma
                                        ? 0.299 * onWhite(p, 0) + 0.587 * onWhite(p, 1) +
                                              0.114 * onWhite(p, 2)
                                        : onWhite(p, static_cast<int>(which) - 1));
    }
    return out;
}

// The 11×11 Gaussian window (σ 1.5) of SSIM, applied as two passes of 11 taps; the output has
// a value wherever a whole window fits ((width − 10) × (height − 10)).
constexpr int ssimWindow = 11;
std::vector<float> blurred(const std::vector<float>& in, int width, int height) {
    static const std::vector<float> taps = [] {
        std::vector<float> w(ssimWindow);
        double total = 0;
        for (int i = 0; i < ssimWindow; ++i) total += w[i] = std::exp(-(i - 5) * (i - 5) / 4.5);
        for (float& v : w) v = static_cast<float>(v / total);
        return w;
    }();
    const int outWidth = width - ssimWindow + 1, outHeight = height - ssimWindow + 1;
    std::vector<float> rows(static_cast<std::size_t>(outWidth) * height);
    for (int r = 0; r < height; ++r) {
        const float* line = &in[static_cast<std::size_t>(r) * width];
        float* out = &rows[static_cast<std::size_t>(r) * outWidth];
        for (int c = 0; c < outWidth; ++c) {
            float sum = 0;
            for (int k = 0; k < ssimWindow; ++k) sum += taps[k] * line[c + k];
            out[c] = sum;
        }
    }
    std::vector<float> out(static_cast<std::size_t>(outWidth) * outHeight, 0);
    for (int r = 0; r < outHeight; ++r)
        for (int k = 0; k < ssimWindow; ++k) {
            const float* line = &rows[static_cast<std::size_t>(r + k) * outWidth];
            float* target = &out[static_cast<std::size_t>(r) * outWidth];
            for (int c = 0; c < outWidth; ++c) target[c] += taps[k] * line[c];
        }
    return out;
}

std::vector<float> product(const std::vector<float>& a, const std::vector<float>& b) {
    std::vector<float> out(a.size());
    for (std::size_t i = 0; i < a.size(); ++i) out[i] = a[i] * b[i];
    return out;
}

// A reference plane with its local means and mean squares, computed once for many candidates.
struct ReferencePlane {
    std::vector<float> pixels, mean, meanSquare;
};

ReferencePlane reference(const Bitmap& bitmap, Plane which) {
    ReferencePlane ref;
    ref.pixels = plane(bitmap, which);
    ref.mean = blurred(ref.pixels, bitmap.width, bitmap.height);
    ref.meanSquare = blurred(product(ref.pixels, ref.pixels), bitmap.width, bitmap.height);
    return ref;
}

// Mean SSIM of a candidate plane against the reference: C1 = (0.01·255)², C2 = (0.03·255)².
double ssimOfPlane(const ReferencePlane& x, const std::vector<float>& y, int width, int height) {
    constexpr double c1 = (0.01 * 255) * (0.01 * 255), c2 = (0.03 * 255) * (0.03 * 255);
    const std::vector<float> my = blurred(y, width, height);
    const std::vector<float> yy = blurred(product(y, y), width, height);
    const std::vector<float> xy = blurred(product(x.pixels, y), width, height);
    double sum = 0;
    for (std::size_t i = 0; i < my.size(); ++i) {
        const double mx = x.mean[i], m = my[i];
        const double vx = x.meanSquare[i] - mx * mx, vy = yy[i] - m * m, cov = xy[i] - mx * m;
        sum += (2 * mx * m + c1) * (2 * cov + c2) / ((mx * mx + m * m + c1) * (vx + vy + c2));
    }
    return sum / static_cast<double>(my.size());
}

// Prints, for each candidate, its mean SSIM against the reference on luma and the mean of its
// SSIMs on R, G and B (colour errors that luma alone does not see: chroma subsampling and coarse
// chroma tables show there); "-1 -1" when the sizes differ or the picture is smaller than a
// window.
void printSsims(const char* referencePath, char** candidates, int count) {
    const Bitmap a = load(referencePath);
    const bool usable = a.width >= ssimWindow && a.height >= ssimWindow;
    std::vector<ReferencePlane> planes;
    for (Plane which : {Plane::luma, Plane::red, Plane::green, Plane::blue})
        if (usable) planes.push_back(reference(a, which));
    for (int i = 0; i < count; ++i) {
        const Bitmap b = load(candidates[i]);
        if (!usable || b.width != a.width || b.height != a.height) {
            std::printf("-1 -1\n");
            continue;
        }
        double values[4];
        for (int p = 0; p < 4; ++p)
            values[p] = ssimOfPlane(planes[p], plane(b, static_cast<Plane>(p)), a.width, a.height);
        std::printf("%.5f %.5f\n", values[0], (values[1] + values[2] + values[3]) / 3);
    }
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    try {
        if (argc >= 4 && !std::strcmp(argv[1], "convert")) {
            Bitmap bitmap = load(argv[2]);
            if (argc >= 6 && !std::strcmp(argv[4], "--scale"))
                bitmap = shrink(bitmap, std::atoi(argv[5]));
            else if (argc >= 6 && !std::strcmp(argv[4], "--megapixels"))
                bitmap = toMegapixels(bitmap, std::atof(argv[5]));
            save(bitmap, argv[3]);
        } else if (argc == 5 && !std::strcmp(argv[1], "synth")) {
            save(synthetic(std::atoi(argv[3]), std::atoi(argv[4])), argv[2]);
        } else if (argc >= 5 && !std::strcmp(argv[1], "heif")) {
            encodeHeif(load(argv[2]), argv[3], std::atoi(argv[4]), argv + 5, argc - 5);
        } else if (argc == 4 && !std::strcmp(argv[1], "psnr")) {
            std::printf("%.2f\n", psnr(load(argv[2]), load(argv[3])));
        } else if (argc >= 4 && !std::strcmp(argv[1], "ssim")) {
            printSsims(argv[2], argv + 3, argc - 3);
        } else if (argc == 3 && !std::strcmp(argv[1], "size")) {
            const Bitmap bitmap = load(argv[2]);
            std::printf("%d %d\n", bitmap.width, bitmap.height);
        } else {
            std::fprintf(stderr, "usage: bench_tool convert|synth|heif|psnr|ssim|size ...\n");
            return 2;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_tool: %s\n", error.what());
        return 1;
    }
    return 0;
}
