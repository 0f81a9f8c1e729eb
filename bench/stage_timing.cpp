// Times each stage of compressing one JPEG with the replace policy, the way process() runs
// them: decode (headers, size check, decode, orientation), encoder (cjpeg, the raster fed through
// its input), validation (decoding the result), hashing (one SHA-256 of the source; replacing reads
// it three times: version, re-check, backup verification) and install (backup copy + verified
// replacement). CPU time (user + system) of this process and of the tools it waits for, so that
// a busy machine disturbs the figures less than wall time would; pin it with taskset -c 0.
//
// Usage: bench_stage_timing FILE.jpg   (FILE is copied to a temporary folder first)
#include "engine/core/content_fingerprint.h"
#include "engine/core/image_safety.h"
#include "engine/encoders/jpeg_path.h"
#include "engine/encoders/pnm_writer.h"
#include "engine/encoders/tool_runner.h"
#include "engine/install/safe_install.h"
#include "engine/pipeline/plan.h"

#include <sys/resource.h>
#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <cstdio>

using namespace velt;

namespace {

double cpuSeconds() {
    double total = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        ::getrusage(who, &usage);
        for (const timeval& time : {usage.ru_utime, usage.ru_stime})
            total += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }
    return total;
}

template <typename Work>
double seconds(Work&& work) {
    const double start = cpuSeconds();
    work();
    return cpuSeconds() - start;
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
    const QString temp = tempURL(source);
    const auto cjpeg = toolURL(QStringLiteral("cjpeg"));
    if (!cjpeg) return 1;
    const auto candidate = jpegCandidates(QStringLiteral("photo"), folder.path(), jpegStandardInput,
                                          std::nullopt, config.qualities.jpeg)
                               .front();
    const double encode = seconds([&] {
        runTool(*cjpeg, candidate.arguments, lifecycle, toolLimitsFor(0),
                pnmChunks(plan.image, false));
    });
    QFile::rename(candidate.url, temp);
    std::int64_t outputSize = 0;
    const double validate = seconds([&] { outputSize = validateEncodedImage(temp); });
    SourceVersion version;
    const double hash = seconds([&] { version = sourceVersion(source); });
    const double install = seconds([&] {
        backup(source, version, folder.path());
        replaceOriginalSafely(temp, source, version);
    });
    std::printf("| stage | CPU seconds |\n|---|---|\n");
    std::printf("| decode (%dx%d) | %.3f |\n| encoder (cjpeg, fed through its input) | %.3f |\n",
                plan.image.width, plan.image.height, decode, encode);
    std::printf("| validation | %.3f |\n| hashing (one SHA-256 of the source) | %.3f |\n", validate,
                hash);
    std::printf("| install (verified backup + replacement, two more SHA-256) | %.3f |\n", install);
    std::printf("\noutput %lld bytes\n", static_cast<long long>(outputSize));
    return 0;
}
