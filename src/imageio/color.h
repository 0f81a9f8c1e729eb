// Colour spaces of decoded images, read from embedded ICC profiles with lcms2.
#pragma once

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>

namespace velt::imageio {

enum class ColorModel { rgb, gray, cmyk, other };

struct ColorSpace {
    ColorModel model = ColorModel::rgb;
    // The profile's description (e.g. "Display P3", "sRGB IEC61966-2.1"); "sRGB" for the
    // default space of an image without a profile.
    QString name = QStringLiteral("sRGB");
    // The embedded profile's bytes; empty for the default sRGB space (which is never embedded).
    QByteArray iccData;

    bool operator==(const ColorSpace&) const = default;
};

// The ICC profile an encoded copy must carry to keep the colours of `space`: its bytes when it is
// an RGB space other than sRGB (by name, case-insensitively), else nothing (sRGB is every
// format's default assumption, so writing it only costs bytes; grey and CMYK images are
// converted to sRGB before encoding).
QByteArray iccProfileToEmbed(const ColorSpace& space);

// Colour described by code points instead of a profile (an nclx box): the primaries and white
// point as CIE xy chromaticities, and the transfer characteristic's code (ITU-T H.273).
struct NclxColour {
    double red[2] = {0.64, 0.33};
    double green[2] = {0.30, 0.60};
    double blue[2] = {0.15, 0.06};
    double white[2] = {0.3127, 0.3290};
    int transfer = 13;  // the sRGB curve
};

// sRGBColorSpace() for the BT.709 primaries with an sRGB-like curve (what encoders write for
// ordinary pictures); otherwise an RGB space whose ICC profile, made with lcms2, has those
// primaries and that curve (PQ and HLG are tabulated, relative to SDR reference white and clipped
// there), named after them with " (nclx)".
ColorSpace colorSpaceFromNclx(const NclxColour& nclx);

// The default space of untagged images: sRGB, named, no profile bytes.
ColorSpace sRGBColorSpace();

// The space an embedded profile describes: model from the profile header's colour space field,
// name from its description. Unreadable profile bytes give sRGBColorSpace().
ColorSpace colorSpaceFromICC(const QByteArray& iccData);

// Converts `pixelCount` CMYK pixels (4 bytes each; `adobeInverted` for Adobe's inverted
// storage, where 255 means no ink) to RGBA in sRGB (alpha 255). Uses the embedded CMYK profile
// when `cmykProfile` is a valid one, else a plain ink formula.
void convertCMYKToSRGB(const std::uint8_t* cmyk, std::size_t pixelCount, bool adobeInverted,
                       const QByteArray& cmykProfile, std::uint8_t* rgbaOut);

// Converts `pixelCount` grey samples (one byte each) to RGBA in sRGB (alpha 255) through the
// grey profile when it is a valid one, else by replicating the sample into R, G and B.
void convertGrayToSRGB(const std::uint8_t* gray, std::size_t pixelCount,
                       const QByteArray& grayProfile, std::uint8_t* rgbaOut);

}  // namespace velt::imageio
