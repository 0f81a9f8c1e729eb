#include "engine/encoders/tool_runner.h"

#include <algorithm>

#include "engine/core/errors.h"
#include "platform/executable_check.h"

#include <sys/stat.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace velt {
namespace {

// The tool folder shipped with the program, found from the running executable itself so that
// an installed copy and a build tree each use their own.
std::optional<QString> bundledToolDirectory() {
    const QString executable = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    if (executable.isEmpty()) return std::nullopt;
    return QDir::cleanPath(QFileInfo(executable).path() +
                           QStringLiteral("/../libexec/velt-compressor/bin"));
}

QString joinPath(const QString& directory, const QString& name) {
    if (directory.endsWith(QLatin1Char('/'))) return directory + name;
    return directory + QLatin1Char('/') + name;
}

// An executable regular file (symlinks followed, as the system would when running it) built for
// this CPU family.
bool isRunnableTool(const QString& path) {
    const QByteArray encoded = QFile::encodeName(path);
    struct stat info {};
    if (::stat(encoded.constData(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    if (::access(encoded.constData(), X_OK) != 0) return false;
    return executableSupportsCurrentArchitecture(path);
}

// Whatever way runTool() leaves, the engine's stop must no longer see this process.
class ActiveProcessRegistration {
  public:
    ActiveProcessRegistration(EngineLifecycle& lifecycle, const ChildProcess* process)
        : lifecycle_(lifecycle), process_(process) {}
    ~ActiveProcessRegistration() { lifecycle_.clearActiveProcess(process_); }
    ActiveProcessRegistration(const ActiveProcessRegistration&) = delete;
    ActiveProcessRegistration& operator=(const ActiveProcessRegistration&) = delete;

  private:
    EngineLifecycle& lifecycle_;
    const ChildProcess* process_;
};

}  // namespace

QStringList toolSearchDirectories() {
    QStringList directories;
    // An empty value counts as unset: it would otherwise name the working directory.
    const QString override = qEnvironmentVariable("VELT_TOOL_DIR");
    if (!override.isEmpty()) directories << override;
    if (const auto bundled = bundledToolDirectory()) directories << *bundled;
    directories << QStringLiteral("/opt/homebrew/bin/") << QStringLiteral("/usr/local/bin/")
                << QStringLiteral("/usr/bin/");
    return directories;
}

std::optional<QString> toolURL(const QString& name) {
    // Looked up afresh every time, so a tool installed meanwhile is used from the next image on.
    for (const QString& directory : toolSearchDirectories()) {
        const QString candidate = joinPath(directory, name);
        if (isRunnableTool(candidate)) return candidate;
    }
    return std::nullopt;
}

ToolLimits toolLimitsFor(std::int64_t pixels) {
    constexpr std::int64_t baseMemory = 256LL << 20;
    constexpr std::int64_t memoryPerPixel = 24;
    constexpr std::int64_t maximumMemory = 8LL << 30;
    const std::int64_t megapixels = (std::max<std::int64_t>(pixels, 0) + 999'999) / 1'000'000;
    return {
        std::min(baseMemory + memoryPerPixel * std::max<std::int64_t>(pixels, 0), maximumMemory),
        std::chrono::seconds(20 + 3 * megapixels)};
}

void runTool(const QString& executable, const QStringList& arguments, EngineLifecycle& lifecycle,
             const ToolLimits& limits, const InputChunks& input) {
    lifecycle.checkpoint();
    const std::shared_ptr<ChildProcess> process =
        ChildProcess::spawn(executable, arguments, limits, static_cast<bool>(input));
    const ActiveProcessRegistration registration(lifecycle, process.get());
    // A stop that came between the checkpoint and the registration could not see this process.
    if (lifecycle.registerActiveProcess(process) && process->isRunning()) process->terminate();

    const int status = process->waitForExit(input);
    // A stopped tool may still exit 0 (it caught SIGTERM and finished): its output is not trusted.
    lifecycle.checkpoint();
    if (process->timedOut())
        throw FileSystemError(FileSystemError::writeUnknown,
                              QStringLiteral("The tool %1 took longer than %2 s and was stopped")
                                  .arg(QFileInfo(executable).fileName())
                                  .arg(limits.time.count()),
                              Message{Text::encoderTimedOut, {QFileInfo(executable).fileName()}});
    if (status != 0)
        throw FileSystemError(FileSystemError::writeUnknown,
                              QStringLiteral("The tool %1 failed with exit status %2")
                                  .arg(QFileInfo(executable).fileName())
                                  .arg(status),
                              Message{Text::encoderFailed, {QFileInfo(executable).fileName()}});
}

}  // namespace velt
