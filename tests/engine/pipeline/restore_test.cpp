// Undoing a compression: the original back byte for byte from its verified backup, or a kept
// original's compressed copy removed; refused, with nothing changed, whenever what the user would
// lose has no verified copy.
#include "engine/pipeline/restore.h"
#include "engine/pipeline/process.h"
#include "engine/watcher/skip_rules.h"
#include "imageio/image_io.h"
#include "support/test_environment.h"
#include "support/test_images.h"
#include "watcher/engine_test_rig.h"

#include <gtest/gtest.h>
#include <QDir>

namespace velt {
namespace {

using namespace Qt::StringLiterals;
using testing::readFile;
using testing::writeFile;

// What happens between the compression and the restore.
enum class Meanwhile { nothing, backupFlipped, backupTruncated, nameTaken, copyEdited };

class RestoreTest : public ::testing::Test, protected testing::ContextRig {};

TEST_F(RestoreTest, TheOriginalComesBackOnlyFromAVerifiedCopy) {
    struct Row {
        const char* what;
        OriginalPolicy policy;
        const char* source;
        const char* output;
        Meanwhile meanwhile;
        std::optional<RestoreFailure> refused;  // restoring the output's name
    };
    using enum Meanwhile;
    const auto keep = OriginalPolicy::keep;
    const auto replace = OriginalPolicy::replace;
    const Row rows[] = {
        {"in place", replace, "shot.jpg", "shot.jpg", nothing, {}},
        {"converted", replace, "photo.png", "photo.jpg", nothing, {}},
        {"kept", keep, "photo.png", "photo_veltcompressed.jpg", nothing, {}},
        {"backup changed", replace, "shot.jpg", "shot.jpg", backupFlipped,
         RestoreFailure::backupChanged},
        {"backup cut short", replace, "photo.png", "photo.jpg", backupTruncated,
         RestoreFailure::backupChanged},
        {"name taken since", replace, "photo.png", "photo.jpg", nameTaken,
         RestoreFailure::nameTaken},
        {"kept copy edited", keep, "photo.png", "photo_veltcompressed.jpg", copyEdited,
         RestoreFailure::copyChanged},
    };
    const auto picture = testing::photoLikeBitmap(160, 120);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        QTemporaryDir fresh;
        context.watchDirectory = fresh.path();
        context.processedRegistry = std::make_shared<ProcessedFileRegistry>(u":memory:"_s);
        context.files.clear();
        context.config.originalPolicy = row.policy;
        context.config.formatStrategy = FormatStrategy::jpeg;
        const QDir dir(fresh.path());
        const QString source = dir.filePath(QString::fromUtf8(row.source));
        const QString output = dir.filePath(QString::fromUtf8(row.output));
        if (source.endsWith(u".jpg"_s))
            ASSERT_TRUE(testing::writeJPEGWithCjpeg(picture, 98, source));
        else
            imageio::encodeImage(picture, ImageFormat::png, 0, source);
        const QByteArray original = readFile(source);
        ASSERT_TRUE(process(context, source).didWrite);
        const QByteArray written = readFile(output);
        ASSERT_NE(written, original);

        const auto record = context.processedRegistry->find(source);
        ASSERT_TRUE(record);
        switch (row.meanwhile) {
            case backupFlipped: {
                QByteArray bytes = readFile(*record->backup);
                bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
                writeFile(*record->backup, bytes);
                break;
            }
            case backupTruncated:
                writeFile(*record->backup, readFile(*record->backup).left(100));
                break;
            case nameTaken:
                writeFile(source, "the user's new file");
                break;
            case copyEdited:
                writeFile(output, "the user's edit");
                break;
            case nothing:
                break;
        }
        const QByteArray sourceBefore = readFile(source);
        const QByteArray outputBefore = readFile(output);
        auto& registry = *context.processedRegistry;
        if (row.refused) {
            try {
                restoreFile(registry, output, context.watchDirectory, false);
                ADD_FAILURE() << "restored";
            } catch (const RestoreError& error) {
                EXPECT_EQ(error.failure(), *row.refused);
            }
            EXPECT_EQ(readFile(source), sourceBefore);
            EXPECT_EQ(readFile(output), outputBefore);
            if (row.meanwhile != nameTaken) continue;
            // Asked and agreed: the original comes back beside the user's file, which stays.
            const RestoreOutcome beside =
                restoreFile(registry, output, context.watchDirectory, true);
            EXPECT_EQ(beside.original, dir.filePath(u"photo (restored).png"_s));
            EXPECT_EQ(readFile(beside.original), original);
            EXPECT_EQ(readFile(source), sourceBefore);
            EXPECT_FALSE(QFileInfo::exists(output));
            continue;
        }
        const RestoreOutcome outcome = restoreFile(registry, output, context.watchDirectory, false);
        EXPECT_EQ(outcome.original, source);
        EXPECT_EQ(readFile(source), original) << "not byte-identical";
        EXPECT_EQ(QFileInfo::exists(output), output == source);
        EXPECT_EQ(outcome.fromBackup, row.policy == replace);
        // Remembered as the user's choice: the next look leaves it as it is.
        const auto restored = registry.find(source);
        ASSERT_TRUE(restored);
        EXPECT_EQ(restored->decision, ProcessedDecision::restored);
        EXPECT_TRUE(registryCanSkip(context, source, *restored));
        EXPECT_TRUE(restored->describes(*fileSignature(source)));
        // Twice: nothing left to undo, under either name.
        for (const QString& name : {source, output}) {
            try {
                restoreFile(registry, name, context.watchDirectory, false);
                ADD_FAILURE() << "restored twice";
            } catch (const RestoreError& error) {
                EXPECT_EQ(error.failure(), RestoreFailure::nothingToRestore);
            }
        }
        EXPECT_EQ(readFile(source), original);
    }
}

}  // namespace
}  // namespace velt
