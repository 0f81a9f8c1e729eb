// Helpers for tests that run the stand-in tools built from tests/engine/standins/.
#pragma once

#include "engine/core/child_input.h"
#include "support/test_environment.h"

#include <unistd.h>
#include <QDir>
#include <QFile>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

namespace velt::testing {

inline void writeExecutable(const QString& path, const QByteArray& content) {
    writeFile(path, content);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// Copies the stand-in `standin` into `directory` as `toolName`, executable, and returns its path.
inline QString installStandin(const QString& directory, const QString& standin,
                              const QString& toolName) {
    const QString target = QDir(directory).filePath(toolName);
    QFile::remove(target);
    if (!QFile::copy(QStringLiteral(VELT_STANDIN_DIR "/") + standin, target)) return {};
    QFile::setPermissions(target, QFile::permissions(target) | QFile::ExeOwner);
    return target;
}

// `bytes` as a tool's standard input, in pieces of `piece` bytes. Many megabytes outlast any
// pipe's buffer: a tool that does not read them holds the writer until it is ended.
inline InputChunks piecesOf(const QByteArray& bytes, qsizetype piece = 100'000) {
    auto offset = std::make_shared<qsizetype>(0);
    return [bytes, piece, offset] {
        const qsizetype size = std::min(piece, bytes.size() - *offset);
        const auto* start = reinterpret_cast<const std::uint8_t*>(bytes.constData()) + *offset;
        *offset += size;
        return std::span<const std::uint8_t>(start, static_cast<std::size_t>(size));
    };
}

// The pid the hang stand-in writes once it runs (VELT_STANDIN_READY); -1 after 10 s without it.
inline pid_t waitForReadyPid(const QString& readyFile) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (; std::chrono::steady_clock::now() < deadline;
         std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
        const QByteArray content = readFile(readyFile).trimmed();
        if (!content.isEmpty()) return static_cast<pid_t>(content.toLong());
    }
    return -1;
}

// No such process any more: it ended and was reaped (a zombie would still answer).
inline bool processGone(pid_t pid) {
    return ::kill(pid, 0) == -1 && errno == ESRCH;
}

}  // namespace velt::testing
