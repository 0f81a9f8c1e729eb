// ICC profiles for colour described by an nclx box (coding-independent code points): HEIC and
// AVIF often carry no ICC profile, only the primaries and the transfer characteristic. The decoded
// RGB values stay in that encoding, so the profile made here describes them, and the engine embeds
// it in every output, so that Display P3, BT.2020 or HDR pictures keep their colours.
#include "imageio/color.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>
#include <vector>

namespace velt::imageio {
namespace {

// The code points (ITU-T H.273) that need a curve of their own.
enum Transfer : int {
    bt709 = 1,
    unspecified = 2,
    gamma22 = 4,
    gamma28 = 5,
    bt601 = 6,
    linear = 8,
    srgb = 13,
    bt2020_10bit = 14,
    bt2020_12bit = 15,
    pq = 16,
    hlg = 18,
};

// Light relative to SDR reference white (203 cd/m²) from a PQ signal, clipped at white.
double pqToRelative(double signal) {
    const double m1 = 2610.0 / 16384, m2 = 2523.0 / 4096 * 128;
    const double c1 = 3424.0 / 4096, c2 = 2413.0 / 4096 * 32, c3 = 2392.0 / 4096 * 32;
    const double p = std::pow(std::max(signal, 0.0), 1 / m2);
    const double nits = 10000 * std::pow(std::max(p - c1, 0.0) / (c2 - c3 * p), 1 / m1);
    return std::min(nits / 203, 1.0);
}

// Scene light from an HLG signal, relative to the reference white at signal 0.75, clipped.
double hlgToRelative(double signal) {
    const double a = 0.17883277, b = 1 - 4 * a, c = 0.5 - a * std::log(4 * a);
    const auto inverse = [&](double e) {
        return e <= 0.5 ? e * e / 3 : (std::exp((e - c) / a) + b) / 12;
    };
    return std::min(inverse(std::max(signal, 0.0)) / inverse(0.75), 1.0);
}

struct CurveDeleter {
    void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};
using Curve = std::unique_ptr<cmsToneCurve, CurveDeleter>;

Curve tabulated(double (*toLight)(double)) {
    std::vector<float> table(4096);
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<float>(toLight(static_cast<double>(i) / (table.size() - 1)));
    return Curve(cmsBuildTabulatedToneCurveFloat(
        nullptr, static_cast<cmsUInt32Number>(table.size()), table.data()));
}

Curve curveFor(int transfer) {
    switch (transfer) {
        case linear:
            return Curve(cmsBuildGamma(nullptr, 1.0));
        case gamma22:
            return Curve(cmsBuildGamma(nullptr, 2.2));
        case gamma28:
            return Curve(cmsBuildGamma(nullptr, 2.8));
        case bt709:
        case bt601:
        case bt2020_10bit:
        case bt2020_12bit: {
            const double parameters[] = {1 / 0.45, 1 / 1.099, 0.099 / 1.099, 1 / 4.5, 0.081};
            return Curve(cmsBuildParametricToneCurve(nullptr, 4, parameters));
        }
        case pq:
            return tabulated(pqToRelative);
        case hlg:
            return tabulated(hlgToRelative);
        default: {  // sRGB, and what is unspecified
            const double parameters[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
            return Curve(cmsBuildParametricToneCurve(nullptr, 4, parameters));
        }
    }
}

QString transferName(int transfer) {
    switch (transfer) {
        case pq:
            return QStringLiteral("PQ");
        case hlg:
            return QStringLiteral("HLG");
        case linear:
            return QStringLiteral("linear");
        case bt709:
        case bt601:
        case bt2020_10bit:
        case bt2020_12bit:
            return QStringLiteral("BT.709 curve");
        case gamma22:
            return QStringLiteral("gamma 2.2");
        case gamma28:
            return QStringLiteral("gamma 2.8");
        default:  // the sRGB curve, named by nothing: a name with "srgb" in it is never embedded
            return {};
    }
}

bool near(double a, double b) {
    return std::abs(a - b) < 0.002;
}

// The BT.709/sRGB primaries with a D65 white.
bool hasSRGBPrimaries(const NclxColour& nclx) {
    return near(nclx.red[0], 0.64) && near(nclx.red[1], 0.33) && near(nclx.green[0], 0.30) &&
           near(nclx.green[1], 0.60) && near(nclx.blue[0], 0.15) && near(nclx.blue[1], 0.06) &&
           near(nclx.white[0], 0.3127) && near(nclx.white[1], 0.3290);
}

QString primariesName(const NclxColour& nclx) {
    if (hasSRGBPrimaries(nclx)) return QStringLiteral("BT.709 primaries");
    if (near(nclx.red[0], 0.68) && near(nclx.green[0], 0.265) && near(nclx.white[0], 0.3127))
        return QStringLiteral("Display P3");
    if (near(nclx.red[0], 0.708) && near(nclx.green[0], 0.170)) return QStringLiteral("BT.2020");
    return QStringLiteral("RGB");
}

struct ProfileCloser {
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};

}  // namespace

ColorSpace colorSpaceFromNclx(const NclxColour& described) {
    NclxColour nclx = described;
    // Unspecified primaries arrive as zeros: they are taken as BT.709, as players do.
    if (nclx.red[1] <= 0 || nclx.green[1] <= 0 || nclx.blue[1] <= 0 || nclx.white[1] <= 0) {
        const NclxColour bt709Primaries;
        std::copy(std::begin(bt709Primaries.red), std::end(bt709Primaries.red), nclx.red);
        std::copy(std::begin(bt709Primaries.green), std::end(bt709Primaries.green), nclx.green);
        std::copy(std::begin(bt709Primaries.blue), std::end(bt709Primaries.blue), nclx.blue);
        std::copy(std::begin(bt709Primaries.white), std::end(bt709Primaries.white), nclx.white);
    }
    const bool srgbCurve = nclx.transfer == srgb || nclx.transfer == unspecified ||
                           nclx.transfer == bt709 || nclx.transfer == bt601;
    // What encoders write for ordinary pictures: taken as sRGB, which is never embedded.
    if (hasSRGBPrimaries(nclx) && srgbCurve) return sRGBColorSpace();

    const cmsCIExyY white = {nclx.white[0], nclx.white[1], 1.0};
    const cmsCIExyYTRIPLE primaries = {{nclx.red[0], nclx.red[1], 1.0},
                                       {nclx.green[0], nclx.green[1], 1.0},
                                       {nclx.blue[0], nclx.blue[1], 1.0}};
    const Curve curve = curveFor(nclx.transfer);
    if (!curve) return sRGBColorSpace();
    cmsToneCurve* curves[3] = {curve.get(), curve.get(), curve.get()};
    const std::unique_ptr<void, ProfileCloser> profile(
        cmsCreateRGBProfile(&white, &primaries, curves));
    if (!profile) return sRGBColorSpace();

    const QString curveName = transferName(nclx.transfer);
    const QString name = primariesName(nclx) +
                         (curveName.isEmpty() ? QString() : QStringLiteral(", ") + curveName) +
                         QStringLiteral(" (nclx)");
    cmsMLU* description = cmsMLUalloc(nullptr, 1);
    cmsMLUsetASCII(description, "en", "US", name.toLatin1().constData());
    cmsWriteTag(profile.get(), cmsSigProfileDescriptionTag, description);
    cmsMLUfree(description);

    cmsUInt32Number size = 0;
    if (!cmsSaveProfileToMem(profile.get(), nullptr, &size) || size == 0) return sRGBColorSpace();
    QByteArray bytes(static_cast<qsizetype>(size), Qt::Uninitialized);
    if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) return sRGBColorSpace();
    return {ColorModel::rgb, name, bytes};
}

}  // namespace velt::imageio
