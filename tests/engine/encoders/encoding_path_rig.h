// Shared fixtures of the encoding path tests: in-memory bitmaps, an engine context in a
// temporary folder, tool locators that hide or replace installed tools, and the checks every
// path must pass (no ".velt-temp" file left behind).
#pragma once

#include "encoders/standin_tools.h"
#include "engine/encoders/encoder_support.h"
#include "engine/watcher/engine_context.h"
#include "imageio/bitmap.h"

#include <QDir>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <array>
#include <cstdint>

namespace velt::testing {

using Rgba = std::array<std::uint8_t, 4>;

// A bitmap of `width` × `height` whose pixel (x, y) is `colour(x, y)`.
template <typename Colour>
imageio::Bitmap makeBitmap(int width, int height, Colour colour,
                           imageio::AlphaInfo alpha = imageio::AlphaInfo::noneSkipLast) {
    imageio::Bitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.alphaInfo = alpha;
    bitmap.rgba.resize(static_cast<std::size_t>(width) * height * 4);
    std::size_t at = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (const std::uint8_t sample : colour(x, y)) bitmap.rgba[at++] = sample;
    return bitmap;
}

// A smooth, photo-like picture with some texture, so encoders have real work to do.
inline imageio::Bitmap photoLikeBitmap(int width, int height, bool transparentCorner = false) {
    return makeBitmap(
        width, height,
        [&](int x, int y) {
            const auto noise = static_cast<std::uint8_t>((x * 7919 + y * 104729) % 13);
            const std::uint8_t alpha =
                transparentCorner && x < width / 4 && y < height / 4 ? 0 : 255;
            return Rgba{static_cast<std::uint8_t>(x * 255 / width + noise),
                        static_cast<std::uint8_t>(y * 255 / height),
                        static_cast<std::uint8_t>(128 + noise), alpha};
        },
        transparentCorner ? imageio::AlphaInfo::last : imageio::AlphaInfo::noneSkipLast);
}

// Profile bytes that stand for a Display P3 profile: the paths only carry them, never read them.
inline QByteArray fakeProfile() {
    QByteArray bytes("VELT-TEST-PROFILE");
    for (int index = 0; bytes.size() < 700; ++index) bytes.append(static_cast<char>(index * 31));
    return bytes;
}

// Finds exactly the tools named in `tools` (name → path); every other tool is "not installed".
inline ToolLocator locatorOf(const QMap<QString, QString>& tools) {
    return [tools](const QString& name) -> std::optional<QString> {
        if (!tools.contains(name)) return std::nullopt;
        return tools.value(name);
    };
}

// An engine context working in a temporary folder.
struct PathRig {
    QTemporaryDir dir;
    QTemporaryDir tools;
    EngineLifecycle lifecycle;
    EngineCallbacks callbacks;
    EngineContext context{lifecycle, callbacks};

    QString file(const char* name) const { return dir.filePath(QString::fromUtf8(name)); }
    QString standin(const char* standinName, const char* toolName) const {
        return installStandin(tools.path(), QString::fromUtf8(standinName),
                              QString::fromUtf8(toolName));
    }
    // Names of everything in the work folder.
    QStringList entries() const {
        return QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }
    QStringList leftovers() const { return entries().filter(QStringLiteral(".velt-temp")); }
};

// Runs a program and returns its exit status (-1 when it did not run); standard output in `out`.
inline int runProgram(const QString& program, const QStringList& arguments,
                      QByteArray* out = nullptr) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit) return -1;
    if (out) *out = process.readAllStandardOutput();
    return process.exitCode();
}

}  // namespace velt::testing
