// Real camera photographs in a running engine: a replaced photo keeps its date and camera data,
// and a restart processes nothing again. (Every format and policy: output_table_test.cpp.)
#include "camera_photos.h"
#include "engine/pipeline/process.h"
#include "support/test_environment.h"
#include "support/test_images.h"
#include "watcher/engine_test_rig.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace velt {
namespace {

using testing::exiftoolTags;

// A replaced photo (in place, and converted to another format) keeps its date and camera data;
// the engine, relaunched on the same folder, processes none of the files again.
TEST(CameraPhotoMetadataRestart, NothingIsProcessedTwice) {
    const QStringList photos = testing::cameraPhotos();
    ASSERT_FALSE(photos.isEmpty());
    const std::size_t photoCount = static_cast<std::size_t>(photos.size());
    for (const OriginalPolicy policy : {OriginalPolicy::keep, OriginalPolicy::replace}) {
        const auto pipeline = [](EngineContext& context, const QString& file) {
            return process(context, file);
        };
        testing::EngineRig rig(pipeline);
        std::vector<std::optional<FileTime>> dates;
        std::vector<QJsonObject> sourceTags;
        for (int i = 0; i < photos.size(); ++i) {
            const QString staging = rig.data.file(QStringLiteral("p%1.jpg").arg(i));
            testing::prepareCameraPhoto(photos[i], staging);
            dates.push_back(modificationTime(staging));
            sourceTags.push_back(exiftoolTags(staging));
            // Moved in whole, as a camera import would.
            ASSERT_TRUE(QFile::rename(staging, rig.file(QStringLiteral("p%1.jpg").arg(i))));
        }
        AppConfig config;
        config.originalPolicy = policy;
        config.formatStrategy = FormatStrategy::webp;  // the source's name goes with replace
        rig.start(config);
        ASSERT_TRUE(testing::eventually([&] { return rig.history().size() == photoCount; },
                                        std::chrono::seconds(60)));
        const auto history = rig.history();
        std::map<QString, QByteArray> outputs;
        for (std::size_t i = 0; i < history.size(); ++i) {
            const QString output = *history[i].outputURL;
            outputs[output] = testing::readFile(output);
            const int index = QFileInfo(history[i].sourceURL).baseName().mid(1).toInt();
            EXPECT_EQ(modificationTime(output), dates[index]) << output.toStdString();
            testing::expectCarried(sourceTags[index], exiftoolTags(output),
                                   MetadataPolicy::keepWithoutLocation,
                                   testing::hasReadableXmp(photos[index]), output.toStdString());
        }

        const std::size_t callsBefore = rig.callCount();
        rig.relaunch(pipeline);
        rig.start(config);
        // A new photo proves that the relaunched engine scanned the folder.
        const QString late = rig.data.file(QStringLiteral("late.jpg"));
        testing::prepareCameraPhoto(photos[0], late);
        ASSERT_TRUE(QFile::rename(late, rig.file(QStringLiteral("late.jpg"))));
        ASSERT_TRUE(testing::eventually([&] { return rig.history().size() == photoCount + 1; },
                                        std::chrono::seconds(60)));
        rig.engine->stop();
        // Outputs may be looked at (an own output is recognised by its marker and left), but no
        // source is taken up again and no output is written again.
        const auto calls = rig.calls();
        QStringList sourcesTakenUp;
        for (std::size_t i = callsBefore; i < calls.size(); ++i) {
            const QString name = QFileInfo(calls[i].file).fileName();
            if (!name.contains(QLatin1String("_veltcompressed")) &&
                !outputs.contains(calls[i].file))
                sourcesTakenUp << name;
        }
        EXPECT_EQ(sourcesTakenUp, QStringList{QStringLiteral("late.jpg")});
        EXPECT_EQ(QFileInfo(rig.history().back().sourceURL).fileName(), QStringLiteral("late.jpg"));
        for (const auto& [output, bytes] : outputs)
            EXPECT_EQ(testing::readFile(output), bytes) << output.toStdString();
    }
}

}  // namespace
}  // namespace velt
