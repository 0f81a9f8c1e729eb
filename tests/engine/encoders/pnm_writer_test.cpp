#include "engine/encoders/pnm_writer.h"

#include "encoders/encoding_path_rig.h"
#include "engine/errors.h"
#include "engine/pipeline/image_safety.h"

#include <gtest/gtest.h>
#include <QFileInfo>

namespace velt {
namespace {

using testing::makeBitmap;
using testing::Rgba;

QByteArray bytes(std::initializer_list<int> values) {
    QByteArray result;
    for (const int value : values) result.append(static_cast<char>(value));
    return result;
}

const QByteArray ppm1x1("P6\n1 1\n255\n");
const QByteArray pam1x1("P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n");

TEST(PNMWriter, HeadersAreExact) {
    EXPECT_EQ(pnmHeader(640, 480, false), QByteArray("P6\n640 480\n255\n"));
    EXPECT_EQ(pnmHeader(640, 480, false).size(), 15);
    EXPECT_EQ(pnmHeader(640, 480, true),
              QByteArray("P7\nWIDTH 640\nHEIGHT 480\nDEPTH 4\nMAXVAL 255\nTUPLTYPE "
                         "RGB_ALPHA\nENDHDR\n"));
}

TEST(PNMWriter, SinglePixelsRenderLikeAPremultipliedContext) {
    struct Case {
        const char* name;
        Rgba pixel;
        bool preserveAlpha;
        QByteArray expected;
    };
    const Case cases[] = {
        {"opaque red, PPM", {255, 0, 0, 255}, false, ppm1x1 + bytes({0xFF, 0x00, 0x00})},
        {"opaque red, PAM", {255, 0, 0, 255}, true, pam1x1 + bytes({0xFF, 0x00, 0x00, 0xFF})},
        {"red at alpha 128, PAM", {255, 0, 0, 128}, true, pam1x1 + bytes({0xFF, 0, 0, 0x80})},
        // Colour under alpha 0 is lost in premultiplication.
        {"transparent, PAM", {12, 34, 56, 0}, true, pam1x1 + bytes({0, 0, 0, 0})},
        {"transparent, PPM is white", {0, 0, 0, 0}, false, ppm1x1 + bytes({0xFF, 0xFF, 0xFF})},
        {"half black over white", {0, 0, 0, 128}, false, ppm1x1 + bytes({0x7F, 0x7F, 0x7F})},
        // 100 at alpha 3 premultiplies to 1, which un-premultiplies to (255 + 1) / 3 = 85.
        {"low alpha rounds", {100, 200, 255, 3}, true, pam1x1 + bytes({85, 170, 255, 3})},
        {"alpha 254 caps at 255", {255, 255, 255, 254}, true, pam1x1 + bytes({255, 255, 255, 254})},
    };
    for (const Case& test : cases) {
        testing::PathRig rig;
        const QString path = rig.file("out.pnm");
        const auto bitmap = makeBitmap(1, 1, [&](int, int) { return test.pixel; });
        writePNMImage(rig.lifecycle, path, bitmap, test.preserveAlpha, bitmap.colorSpace);
        EXPECT_EQ(testing::readFile(path).toHex(' '), test.expected.toHex(' ')) << test.name;
    }
}

TEST(PNMWriter, RowsAreWrittenTopFirstOverAnyOldContent) {
    testing::PathRig rig;
    const QString path = rig.file("out.ppm");
    testing::writeFile(path, QByteArray(500, 'x'));
    const auto bitmap = makeBitmap(2, 2, [](int x, int y) {
        return Rgba{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 9, 255};
    });
    writePNMImage(rig.lifecycle, path, bitmap, false, bitmap.colorSpace);
    EXPECT_EQ(testing::readFile(path),
              QByteArray("P6\n2 2\n255\n") + bytes({0, 0, 9, 1, 0, 9, 0, 1, 9, 1, 1, 9}));
}

TEST(PNMWriter, RefusesImagesBeforeCreatingAnything) {
    struct Case {
        int width, height;
        ImageSafetyError::Kind kind;
    };
    for (const Case& test : {Case{7072, 7071, ImageSafetyError::resourceLimitExceeded},
                             Case{0, 10, ImageSafetyError::invalidDimensions}}) {
        testing::PathRig rig;
        imageio::Bitmap bitmap;  // no pixels: nothing may be read or allocated
        bitmap.width = test.width;
        bitmap.height = test.height;
        try {
            writePNMImage(rig.lifecycle, rig.file("out.ppm"), bitmap, false, bitmap.colorSpace);
            ADD_FAILURE() << test.width << "x" << test.height << " was accepted";
        } catch (const ImageSafetyError& error) {
            EXPECT_EQ(error.kind(), test.kind);
        }
        EXPECT_TRUE(rig.entries().isEmpty()) << rig.entries().join(u',').toStdString();
    }
}

TEST(PNMWriter, StopEndsTheCallAtTheNextRowBoundary) {
    testing::PathRig rig;
    const QString path = rig.file("out.pam");
    const auto bitmap = makeBitmap(3, 5, [](int, int) { return Rgba{1, 2, 3, 255}; });
    int rowsSeen = 0;
    const auto stopAfterTwo = [&](int rows) {
        rowsSeen = rows;
        if (rows == 2) rig.lifecycle.requestStop();
    };
    try {
        writePNMImage(rig.lifecycle, path, bitmap, true, bitmap.colorSpace, stopAfterTwo);
        ADD_FAILURE() << "not cancelled";
    } catch (const FolderCompressorControlError& error) {
        EXPECT_EQ(error.kind(), FolderCompressorControlError::cancelled);
    }
    EXPECT_EQ(rowsSeen, 2);
    EXPECT_EQ(QFileInfo(path).size(), pnmHeader(3, 5, true).size() + 2 * 3 * 4);
}

TEST(PNMWriter, AFolderInTheWayIsAWriteFailure) {
    testing::PathRig rig;
    const QString path = rig.file("taken");
    ASSERT_TRUE(QDir(rig.dir.path()).mkdir(QStringLiteral("taken")));
    const auto bitmap = makeBitmap(1, 1, [](int, int) { return Rgba{0, 0, 0, 255}; });
    try {
        writePNMImage(rig.lifecycle, path, bitmap, false, bitmap.colorSpace);
        ADD_FAILURE() << "wrote into a folder";
    } catch (const FileSystemError& error) {
        EXPECT_EQ(error.code(), FileSystemError::writeUnknown);
    }
}

}  // namespace
}  // namespace velt
