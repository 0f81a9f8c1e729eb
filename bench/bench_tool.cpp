// Helper for the benchmark: converts images with the project's codec layer and compares them.
//
//   bench_tool convert IN OUT [--scale N]   decode IN, shrink by N (box filter), encode OUT by
//                                           its extension (jpg, png, heic, avif; quality 90)
//   bench_tool convert IN OUT --megapixels M   the same, shrunk (area average) to about M MP
//   bench_tool synth OUT WIDTH HEIGHT       a photo-like synthetic picture, encoded by extension
//   bench_tool psnr A B                     PSNR of B against A (RGB on white), in dB
//   bench_tool size IN                      "WIDTH HEIGHT" of the upright image
#include "imageio/image_io.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

using namespace velt;
using imageio::Bitmap;

namespace {

Bitmap load(const char* path) {
    const QString file = QString::fromLocal8Bit(path);
    const auto properties = imageio::readProperties(file);
    Bitmap bitmap = imageio::decodeFirstFrame(file);
    if (properties.orientation) bitmap = imageio::applyOrientation(bitmap, *properties.orientation);
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

void save(const Bitmap& bitmap, const char* path) {
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

double psnr(const Bitmap& a, const Bitmap& b) {
    if (a.width != b.width || a.height != b.height) return -1;
    double squared = 0;
    for (std::size_t i = 0; i < a.rgba.size(); i += 4)
        for (int c = 0; c < 3; ++c) {
            const auto onWhite = [&](const Bitmap& m) {
                const double alpha = m.rgba[i + 3] / 255.0;
                return m.rgba[i + c] * alpha + 255.0 * (1 - alpha);
            };
            const double d = onWhite(a) - onWhite(b);
            squared += d * d;
        }
    const double mse = squared / (static_cast<double>(a.width) * a.height * 3);
    return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
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
        } else if (argc == 4 && !std::strcmp(argv[1], "psnr")) {
            std::printf("%.2f\n", psnr(load(argv[2]), load(argv[3])));
        } else if (argc == 3 && !std::strcmp(argv[1], "size")) {
            const Bitmap bitmap = load(argv[2]);
            std::printf("%d %d\n", bitmap.width, bitmap.height);
        } else {
            std::fprintf(stderr, "usage: bench_tool convert|synth|psnr|size ...\n");
            return 2;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_tool: %s\n", error.what());
        return 1;
    }
    return 0;
}
