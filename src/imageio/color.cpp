// Colour spaces from ICC profiles, and the grey/CMYK → sRGB conversions done with lcms2.
#include "imageio/color.h"

#include <lcms2.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace velt::imageio {

// lcms2's default error handler prints nothing; failures are seen through the null handles the
// calls return, so no process-wide handler is installed here (that would not be reentrant).
namespace {

struct ProfileCloser {
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, ProfileCloser>;

struct TransformDeleter {
    void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
using Transform = std::unique_ptr<void, TransformDeleter>;

Profile openProfile(const QByteArray& bytes) {
    if (bytes.isEmpty()) return nullptr;
    return Profile(
        cmsOpenProfileFromMem(bytes.constData(), static_cast<cmsUInt32Number>(bytes.size())));
}

ColorModel modelOf(cmsHPROFILE profile) {
    switch (cmsGetColorSpace(profile)) {
        case cmsSigRgbData:
            return ColorModel::rgb;
        case cmsSigGrayData:
            return ColorModel::gray;
        case cmsSigCmykData:
            return ColorModel::cmyk;
        default:
            return ColorModel::other;
    }
}

QString descriptionOf(cmsHPROFILE profile) {
    const cmsUInt32Number length =
        cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", nullptr, 0);
    if (length == 0) return {};
    std::vector<char> text(length, '\0');
    cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", text.data(), length);
    return QString::fromUtf8(text.data()).trimmed();  // stops at the terminating NUL
}

// A transform from `profile` (which must have `expected` as its colour space) to sRGB RGBA;
// null when the profile is missing, of another model, or lcms2 refuses it.
Transform transformToSRGB(const QByteArray& bytes, cmsColorSpaceSignature expected,
                          cmsUInt32Number inputFormat) {
    Profile source = openProfile(bytes);
    if (!source || cmsGetColorSpace(source.get()) != expected) return nullptr;
    Profile srgb(cmsCreate_sRGBProfile());
    if (!srgb) return nullptr;
    return Transform(cmsCreateTransform(source.get(), inputFormat, srgb.get(), TYPE_RGBA_8,
                                        INTENT_PERCEPTUAL, cmsFLAGS_NOCACHE));
}

void setOpaque(std::uint8_t* rgbaOut, std::size_t pixelCount) {
    for (std::size_t i = 0; i < pixelCount; ++i) rgbaOut[i * 4 + 3] = 255;
}

// lcms2 takes 32-bit pixel counts: larger runs go through in slices.
void runTransform(void* transform, const std::uint8_t* in, std::size_t inBytesPerPixel,
                  std::uint8_t* rgbaOut, std::size_t pixelCount) {
    constexpr std::size_t slice = std::size_t{1} << 24;
    for (std::size_t done = 0; done < pixelCount; done += slice) {
        const std::size_t count = std::min(slice, pixelCount - done);
        cmsDoTransform(transform, in + done * inBytesPerPixel, rgbaOut + done * 4,
                       static_cast<cmsUInt32Number>(count));
    }
    setOpaque(rgbaOut, pixelCount);
}

std::uint8_t inkProduct(unsigned ink, unsigned black) {
    // 255 · (1 − c)(1 − k), rounded.
    return static_cast<std::uint8_t>(((255 - ink) * (255 - black) + 127) / 255);
}

}  // namespace

QByteArray iccProfileToEmbed(const ColorSpace& space) {
    if (space.model != ColorModel::rgb || space.iccData.isEmpty()) return {};
    if (space.name.contains(QLatin1String("srgb"), Qt::CaseInsensitive)) return {};
    return space.iccData;
}

ColorSpace sRGBColorSpace() {
    return ColorSpace{ColorModel::rgb, QStringLiteral("sRGB"), QByteArray()};
}

ColorSpace colorSpaceFromICC(const QByteArray& iccData) {
    Profile profile = openProfile(iccData);
    if (!profile) return sRGBColorSpace();
    return ColorSpace{modelOf(profile.get()), descriptionOf(profile.get()), iccData};
}

void convertCMYKToSRGB(const std::uint8_t* cmyk, std::size_t pixelCount, bool adobeInverted,
                       const QByteArray& cmykProfile, std::uint8_t* rgbaOut) {
    if (pixelCount == 0) return;
    // Adobe stores ink inverted (255 = no ink); TYPE_CMYK_8_REV reads exactly that layout.
    const Transform transform =
        transformToSRGB(cmykProfile, cmsSigCmykData, adobeInverted ? TYPE_CMYK_8_REV : TYPE_CMYK_8);
    if (transform) {
        runTransform(transform.get(), cmyk, 4, rgbaOut, pixelCount);
        return;
    }
    for (std::size_t i = 0; i < pixelCount; ++i) {
        const std::uint8_t* in = cmyk + i * 4;
        unsigned ink[4] = {in[0], in[1], in[2], in[3]};
        if (adobeInverted) {
            for (unsigned& value : ink) value = 255 - value;
        }
        std::uint8_t* out = rgbaOut + i * 4;
        out[0] = inkProduct(ink[0], ink[3]);
        out[1] = inkProduct(ink[1], ink[3]);
        out[2] = inkProduct(ink[2], ink[3]);
        out[3] = 255;
    }
}

void convertGrayToSRGB(const std::uint8_t* gray, std::size_t pixelCount,
                       const QByteArray& grayProfile, std::uint8_t* rgbaOut) {
    if (pixelCount == 0) return;
    const Transform transform = transformToSRGB(grayProfile, cmsSigGrayData, TYPE_GRAY_8);
    if (transform) {
        runTransform(transform.get(), gray, 1, rgbaOut, pixelCount);
        return;
    }
    for (std::size_t i = 0; i < pixelCount; ++i) {
        std::uint8_t* out = rgbaOut + i * 4;
        out[0] = out[1] = out[2] = gray[i];
        out[3] = 255;
    }
}

}  // namespace velt::imageio
