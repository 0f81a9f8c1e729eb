#include "update/update_files.h"

#include "model/file_url.h"

#include <openssl/evp.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <filesystem>
#include <memory>
#include <system_error>

namespace velt {
namespace {

std::filesystem::path nativePath(const QString& path) {
    return std::filesystem::path(QFile::encodeName(path).toStdString());
}

QString describe(const std::error_code& error) {
    return QString::fromLocal8Bit(error.message().c_str());
}

}  // namespace

std::optional<QString> sha256(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          &EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        return std::nullopt;
    constexpr qint64 chunkBytes = 1'048'576;
    QByteArray chunk(chunkBytes, Qt::Uninitialized);
    for (;;) {
        const qint64 read = file.read(chunk.data(), chunkBytes);
        if (read < 0) return std::nullopt;
        if (read == 0) break;
        EVP_DigestUpdate(context.get(), chunk.constData(), static_cast<std::size_t>(read));
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest, &length) != 1) return std::nullopt;
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char*>(digest), static_cast<qsizetype>(length)).toHex());
}

std::optional<QString> moveOrCopy(const QString& source, const QString& destination) {
    std::error_code error;
    std::filesystem::rename(nativePath(source), nativePath(destination), error);
    if (!error) return std::nullopt;
    error.clear();
    std::filesystem::copy_file(nativePath(source), nativePath(destination), error);
    if (error) return describe(error);
    std::filesystem::remove(nativePath(source), error);
    if (error) return describe(error);
    return std::nullopt;
}

std::optional<QString> bundleOfExecutable(const QString& executablePath) {
    const QFileInfo executable(executablePath);
    const QDir binDir = executable.absoluteDir();
    if (binDir.dirName() != QLatin1String("bin")) return std::nullopt;
    const QString bundle = standardizedPath(binDir.absoluteFilePath(QStringLiteral("..")));
    if (!QFileInfo(QDir(bundle).filePath(QString::fromLatin1(bundleMarkerName))).isFile())
        return std::nullopt;
    return bundle;
}

bool bundleIsReplaceable(const QString& bundle) {
    struct statvfs fileSystem {};
    if (::statvfs(QFile::encodeName(bundle).constData(), &fileSystem) != 0) return false;
    if (fileSystem.f_flag & ST_RDONLY) return false;
    const QString parent = QFileInfo(bundle).absolutePath();
    return ::access(QFile::encodeName(parent).constData(), W_OK) == 0;
}

QString helperInBundle(const QString& bundle) {
    return QDir(bundle).filePath(QStringLiteral("libexec/velt-compressor/velt-updater"));
}

}  // namespace velt
