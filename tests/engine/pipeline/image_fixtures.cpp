#include "image_fixtures.h"

#include <QDir>

#include "imageio/image_io.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <cmath>

namespace velt::testing {

imageio::Bitmap photoLikeBitmap(int width, int height, bool withAlpha) {
    imageio::Bitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.rgba.resize(static_cast<std::size_t>(width) * height * 4);
    bitmap.alphaInfo = withAlpha ? imageio::AlphaInfo::last : imageio::AlphaInfo::noneSkipLast;
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

QByteArray toPNM(const imageio::Bitmap& bitmap, bool withAlpha) {
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

std::optional<imageio::Bitmap> fromPNM(const QByteArray& data) {
    imageio::Bitmap bitmap;
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
    bitmap.alphaInfo = channels == 4 ? imageio::AlphaInfo::last : imageio::AlphaInfo::noneSkipLast;
    for (qsizetype i = 0; i < pixels; ++i) {
        for (int c = 0; c < 3; ++c)
            bitmap.rgba[i * 4 + c] = static_cast<std::uint8_t>(data[offset + i * channels + c]);
        bitmap.rgba[i * 4 + 3] =
            channels == 4 ? static_cast<std::uint8_t>(data[offset + i * channels + 3]) : 255;
    }
    return bitmap;
}

std::optional<QByteArray> runProgram(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return std::nullopt;
    return process.readAllStandardOutput();
}

bool writeJPEGWithCjpeg(const imageio::Bitmap& bitmap, int quality, const QString& path,
                        const QStringList& extraArguments) {
    QTemporaryDir dir;
    const QString ppm = dir.filePath(QStringLiteral("in.ppm"));
    QFile file(ppm);
    if (!file.open(QIODevice::WriteOnly) || file.write(toPNM(bitmap, false)) < 0) return false;
    file.close();
    return runProgram(QStringLiteral("cjpeg"),
                      QStringList{QStringLiteral("-quality"), QString::number(quality)} +
                          extraArguments + QStringList{QStringLiteral("-outfile"), path, ppm})
        .has_value();
}

std::optional<imageio::Bitmap> decodeIndependently(const QString& path) {
    const QString lower = path.toLower();
    if (lower.endsWith(QLatin1String(".jpg")) || lower.endsWith(QLatin1String(".jpeg"))) {
        const auto out = runProgram(QStringLiteral("djpeg"), {QStringLiteral("-pnm"), path});
        return out ? fromPNM(*out) : std::nullopt;
    }
    QTemporaryDir dir;
    if (lower.endsWith(QLatin1String(".webp"))) {
        const QString pam = dir.filePath(QStringLiteral("out.pam"));
        if (!runProgram(QStringLiteral("dwebp"), {QStringLiteral("-quiet"), QStringLiteral("-pam"),
                                                  path, QStringLiteral("-o"), pam}))
            return std::nullopt;
        QFile file(pam);
        return file.open(QIODevice::ReadOnly) ? fromPNM(file.readAll()) : std::nullopt;
    }
    QString png = path;
    if (lower.endsWith(QLatin1String(".heic")) || lower.endsWith(QLatin1String(".avif"))) {
        png = dir.filePath(QStringLiteral("out.png"));
        if (!runProgram(QStringLiteral("heif-convert"), {path, png})) return std::nullopt;
    }
    if (!runProgram(QStringLiteral("pngcheck"), {QStringLiteral("-q"), png})) return std::nullopt;
    try {
        return imageio::decodeFirstFrame(png);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

double psnr(const imageio::Bitmap& a, const imageio::Bitmap& b) {
    if (a.width != b.width || a.height != b.height || a.rgba.size() != b.rgba.size()) return 0;
    double squared = 0;
    for (std::size_t i = 0; i < a.rgba.size(); i += 4) {
        for (int c = 0; c < 3; ++c) {
            auto onWhite = [&](const imageio::Bitmap& m) {
                const double alpha = m.rgba[i + 3] / 255.0;
                return m.rgba[i + c] * alpha + 255.0 * (1 - alpha);
            };
            const double d = onWhite(a) - onWhite(b);
            squared += d * d;
        }
    }
    const double mse = squared / (static_cast<double>(a.width) * a.height * 3);
    return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
}

QStringList fileNamesIn(const QString& folder) {
    QStringList names = QDir(folder).entryList(QDir::Files | QDir::Hidden);
    names.sort();
    return names;
}

}  // namespace velt::testing
