// Every preset, strategy and policy on a folder of mixed real images: nothing is lost, every
// output is a valid image of the source's size that looks like the source.
#include "engine/core/errors.h"
#include "engine/pipeline/process.h"
#include "imageio/image_io.h"
#include "support/test_environment.h"
#include "support/test_images.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

namespace velt {
namespace {

using testing::photoLikeBitmap;
using namespace Qt::StringLiterals;

struct MixedFolder {
    QTemporaryDir dir;
    std::map<QString, QByteArray> originals;  // name → bytes
    std::map<QString, imageio::Bitmap> pictures;

    MixedFolder() {
        const imageio::Bitmap opaque = photoLikeBitmap(96, 72);
        const imageio::Bitmap transparent = photoLikeBitmap(96, 72, true);
        testing::writeJPEGWithCjpeg(opaque, 95, dir.filePath(u"photo.jpg"_s));
        imageio::encodeImage(opaque, ImageFormat::png, 0, dir.filePath(u"flat.png"_s));
        imageio::encodeImage(transparent, ImageFormat::png, 0, dir.filePath(u"alpha.png"_s));
        imageio::encodeImage(opaque, ImageFormat::heic, 90, dir.filePath(u"camera.heic"_s));
        const QString pam = dir.filePath(u".source.pam"_s);
        testing::writeFile(pam, testing::toPNM(transparent, true));
        testing::runProgram(
            u"cwebp"_s, {u"-quiet"_s, u"-q"_s, u"95"_s, pam, u"-o"_s, dir.filePath(u"web.webp"_s)});
        QFile::remove(pam);
        pictures = {{u"photo.jpg"_s, opaque},
                    {u"flat.png"_s, opaque},
                    {u"alpha.png"_s, transparent},
                    {u"web.webp"_s, transparent},
                    {u"camera.heic"_s, opaque}};
        for (const auto& [name, picture] : pictures)
            originals[name] = testing::readFile(dir.filePath(name));
    }
};

class EveryStrategyAndPolicy
    : public ::testing::TestWithParam<std::tuple<FormatStrategy, OriginalPolicy>> {};

TEST_P(EveryStrategyAndPolicy, NothingIsLostAndEveryOutputLooksRight) {
    const auto [strategy, policy] = GetParam();
    for (CompressionPreset preset : presetMenuCases()) {
        testing::IsolatedDataFolder data;
        MixedFolder folder;
        EngineLifecycle lifecycle;
        EngineCallbacks callbacks;
        EngineContext context(lifecycle, callbacks);
        context.config.preset = preset;
        context.config.qualities = defaults(preset);
        context.config.formatStrategy = strategy;
        context.config.originalPolicy = policy;
        context.watchDirectory = folder.dir.path();
        const std::string label = rawValue(preset).toStdString() + "/" +
                                  rawValue(strategy).toStdString() + "/" +
                                  rawValue(policy).toStdString();

        for (const auto& [name, bytes] : folder.originals) {
            const QString source = folder.dir.filePath(name);
            FolderCompressionResult result;
            ASSERT_NO_THROW(result = process(context, source))
                << label << " " << name.toStdString();
            const QString output = result.historyEntry && result.historyEntry->outputURL
                                       ? *result.historyEntry->outputURL
                                       : source;
            // A kept or untouched original is exactly as it was (replaced ones are checked in the
            // backup folder below).
            if (policy == OriginalPolicy::keep || !result.didWrite) {
                EXPECT_EQ(testing::readFile(source), bytes) << label << " " << name.toStdString();
            }
            const auto decoded = testing::decodeIndependently(output);
            ASSERT_TRUE(decoded) << label << " " << output.toStdString();
            const imageio::Bitmap& picture = folder.pictures.at(name);
            EXPECT_EQ(decoded->width, picture.width) << label;
            EXPECT_EQ(decoded->height, picture.height) << label;
            EXPECT_GT(testing::psnrOnWhite(picture, *decoded),
                      preset == CompressionPreset::maximum ? 24.0 : 26.0)
                << label << " " << output.toStdString();
        }
        if (policy == OriginalPolicy::replace) {
            // Every original that was replaced is in the backup folder, byte for byte.
            QList<QByteArray> backups;
            QDirIterator it(folder.dir.filePath(u".velt-compressor-backups"_s), QDir::Files,
                            QDirIterator::Subdirectories);
            while (it.hasNext()) backups << testing::readFile(it.next()).toHex();
            for (const auto& [name, bytes] : folder.originals) {
                if (testing::readFile(folder.dir.filePath(name)) == bytes) continue;
                EXPECT_TRUE(backups.contains(bytes.toHex())) << label << " " << name.toStdString();
            }
        }
        for (const QString& name : QDir(folder.dir.path()).entryList(QDir::Files | QDir::Hidden)) {
            EXPECT_FALSE(name.contains(QLatin1String(".velt-")))
                << label << " " << name.toStdString();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Matrix, EveryStrategyAndPolicy,
    ::testing::Combine(::testing::Values(FormatStrategy::automatic, FormatStrategy::jpeg,
                                         FormatStrategy::png, FormatStrategy::webp,
                                         FormatStrategy::avif, FormatStrategy::heic),
                       ::testing::Values(OriginalPolicy::keep, OriginalPolicy::replace)),
    [](const auto& info) {
        return rawValue(std::get<0>(info.param)).toStdString() + "_" +
               (std::get<1>(info.param) == OriginalPolicy::keep ? "keep" : "replace");
    });

}  // namespace
}  // namespace velt
