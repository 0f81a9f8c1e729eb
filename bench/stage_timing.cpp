// Times each stage of compressing one JPEG with the replace policy, the way process() runs
// them: decode (headers, size check, decode, orientation), intermediate (PPM), encoder (cjpeg),
// validation (decoding the result), hashing (one SHA-256 of the source; replacing reads it
// three times: version, re-check, backup verification) and install (backup copy + verified
// replacement).
//
// Usage: bench_stage_timing FILE.jpg   (FILE is copied to a temporary folder first)
#include "engine/core/content_fingerprint.h"
#include "engine/core/image_safety.h"
#include "engine/encoders/jpeg_path.h"
#include "engine/encoders/pnm_writer.h"
#include "engine/encoders/tool_runner.h"
#include "engine/install/safe_install.h"
#include "engine/pipeline/plan.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>

using namespace velt;

namespace {

template <typename Work>
double seconds(Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_stage_timing FILE.jpg\n");
        return 2;
    }
    QTemporaryDir folder;
    const QString source = folder.filePath(QStringLiteral("photo.jpg"));
    QFile::copy(QString::fromLocal8Bit(argv[1]), source);
    qputenv("VELT_CONFIG_DIR", folder.filePath(QStringLiteral("config")).toUtf8());
    EngineLifecycle lifecycle;
    AppConfig config;
    config.originalPolicy = OriginalPolicy::replace;

    ImagePlan plan;
    const double decode = seconds([&] { plan = makePlan(config, source); });
    const QString intermediate = folder.filePath(QStringLiteral(".intermediate.ppm"));
    const double pnm = seconds(
        [&] { writePNMImage(lifecycle, intermediate, plan.image, false, plan.colorSpace); });
    const QString temp = tempURL(source);
    const auto cjpeg = toolURL(QStringLiteral("cjpeg"));
    if (!cjpeg) return 1;
    const auto candidate = jpegCandidates(QStringLiteral("photo"), folder.path(), intermediate,
                                          std::nullopt, config.qualities.jpeg)
                               .front();
    const double encode = seconds([&] { runTool(*cjpeg, candidate.arguments, lifecycle); });
    QFile::rename(candidate.url, temp);
    QFile::remove(intermediate);
    std::int64_t outputSize = 0;
    const double validate = seconds([&] { outputSize = validateEncodedImage(temp); });
    SourceVersion version;
    const double hash = seconds([&] { version = sourceVersion(source); });
    const double install = seconds([&] {
        backup(source, version, folder.path());
        replaceOriginalSafely(temp, source, version);
    });
    std::printf("| stage | seconds |\n|---|---|\n");
    std::printf(
        "| decode (%dx%d) | %.3f |\n| intermediate PPM | %.3f |\n| encoder (cjpeg) | %.3f |\n",
        plan.image.width, plan.image.height, decode, pnm, encode);
    std::printf("| validation | %.3f |\n| hashing (one SHA-256 of the source) | %.3f |\n", validate,
                hash);
    std::printf("| install (verified backup + replacement, two more SHA-256) | %.3f |\n", install);
    std::printf("\noutput %lld bytes\n", static_cast<long long>(outputSize));
    return 0;
}
