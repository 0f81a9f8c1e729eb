// Colour spaces read from ICC profiles, and the grey/CMYK conversions to sRGB.
#include "imageio/color.h"
#include "encode_test_support.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace velt::imageio {
namespace {

using namespace velt::imageio::testing;

TEST(ColorSpaceFromICC, ReadsModelAndDescription) {
    struct Case {
        const char* label;
        QByteArray icc;
        ColorModel model;
        QString nameContains;
    };
    const std::vector<Case> cases = {
        {"display p3", displayP3Profile(), ColorModel::rgb, QStringLiteral("Display P3")},
        {"srgb", srgbProfile(), ColorModel::rgb, QStringLiteral("sRGB")},
        {"grey", linearGrayProfile(), ColorModel::gray, QStringLiteral("Linear Grey")},
        {"lab", labProfile(), ColorModel::other, QString()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        const ColorSpace space = colorSpaceFromICC(c.icc);
        EXPECT_EQ(space.model, c.model);
        EXPECT_TRUE(space.name.contains(c.nameContains)) << space.name.toStdString();
        EXPECT_EQ(space.iccData, c.icc);
    }
    EXPECT_EQ(colorSpaceFromICC(displayP3Profile()).name, QStringLiteral("Display P3"));
}

TEST(ColorSpaceFromICC, UnreadableBytesGiveSRGB) {
    const QByteArray truncated = displayP3Profile().left(100);
    for (const QByteArray& bytes : {QByteArray(), QByteArray(300, 'x'), truncated}) {
        EXPECT_EQ(colorSpaceFromICC(bytes), sRGBColorSpace());
    }
    EXPECT_EQ(sRGBColorSpace().name, QStringLiteral("sRGB"));
    EXPECT_TRUE(sRGBColorSpace().iccData.isEmpty());
}

// Without a usable CMYK profile the ink formula applies: R = 255·(1−C)(1−K), and so on.
TEST(ConvertCMYKToSRGB, FormulaWithAndWithoutAdobeInversion) {
    struct Case {
        std::array<std::uint8_t, 4> cmyk;  // ink amounts, 255 = full ink
        std::array<std::uint8_t, 3> rgb;
    };
    const std::vector<Case> cases = {
        {{0, 0, 0, 0}, {255, 255, 255}}, {{255, 0, 0, 0}, {0, 255, 255}},
        {{0, 255, 0, 0}, {255, 0, 255}}, {{0, 0, 255, 0}, {255, 255, 0}},
        {{0, 0, 0, 255}, {0, 0, 0}},     {{128, 64, 0, 51}, {102, 153, 204}},
        {{255, 255, 255, 0}, {0, 0, 0}},
    };
    // A garbage profile and an RGB profile in the CMYK slot must both fall back to the formula.
    for (const QByteArray& profile : {QByteArray(), QByteArray(200, 'x'), displayP3Profile()}) {
        for (const bool inverted : {false, true}) {
            std::vector<std::uint8_t> cmyk, expected;
            for (const Case& c : cases) {
                for (const std::uint8_t ink : c.cmyk) cmyk.push_back(inverted ? 255 - ink : ink);
                expected.insert(expected.end(), c.rgb.begin(), c.rgb.end());
                expected.push_back(255);
            }
            std::vector<std::uint8_t> rgba(cases.size() * 4, 0);
            convertCMYKToSRGB(cmyk.data(), cases.size(), inverted, profile, rgba.data());
            EXPECT_EQ(rgba, expected)
                << "inverted " << inverted << ", profile bytes " << profile.size();
        }
    }
}

TEST(ConvertGrayToSRGB, ReplicatesWithoutProfileAndConvertsWithOne) {
    const std::vector<std::uint8_t> grey = {0, 64, 128, 255};
    std::vector<std::uint8_t> rgba(grey.size() * 4, 0);
    for (const QByteArray& unusable : {QByteArray(), QByteArray(50, 'g'), displayP3Profile()}) {
        convertGrayToSRGB(grey.data(), grey.size(), unusable, rgba.data());
        EXPECT_EQ(rgba, (std::vector<std::uint8_t>{0, 0, 0, 255, 64, 64, 64, 255, 128, 128, 128,
                                                   255, 255, 255, 255, 255}));
    }
    // Linear 0.5 is sRGB 0.735 (188 of 255): proof that the grey profile's curve was applied.
    convertGrayToSRGB(grey.data(), grey.size(), linearGrayProfile(), rgba.data());
    for (std::size_t i = 0; i < grey.size(); ++i) {
        EXPECT_EQ(rgba[i * 4], rgba[i * 4 + 1]);
        EXPECT_EQ(rgba[i * 4], rgba[i * 4 + 2]);
        EXPECT_EQ(rgba[i * 4 + 3], 255);
    }
    EXPECT_NEAR(rgba[2 * 4], 188, 2);
    EXPECT_NEAR(rgba[0], 0, 1);
    EXPECT_NEAR(rgba[3 * 4], 255, 1);
}

}  // namespace
}  // namespace velt::imageio
