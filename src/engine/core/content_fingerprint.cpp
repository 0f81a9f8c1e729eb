#include "engine/core/content_fingerprint.h"

#include "engine/core/errors.h"

#include <openssl/evp.h>
#include <QFile>
#include <memory>

namespace velt {
namespace {

std::optional<QByteArray> readBlock(QFile& file, qint64 offset, qint64 length) {
    if (!file.seek(offset)) return std::nullopt;
    QByteArray block = file.read(length);
    if (block.size() != length) return std::nullopt;
    return block;
}

struct DigestContextDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

}  // namespace

std::uint64_t fnv1a64(const char* data, std::size_t length) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (std::size_t i = 0; i < length; ++i) {
        hash ^= static_cast<unsigned char>(data[i]);
        hash *= 0x100000001b3ULL;
    }
    return hash;
}

std::optional<ContentFingerprint> contentFingerprint(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
    const qint64 size = file.size();
    if (size < 1) return std::nullopt;
    const auto head = readBlock(file, 0, std::min<qint64>(size, fingerprintBlockBytes));
    if (!head) return std::nullopt;
    std::optional<QByteArray> tail = head;
    if (size > fingerprintBlockBytes)
        tail = readBlock(file, size - fingerprintBlockBytes, fingerprintBlockBytes);
    if (!tail) return std::nullopt;
    return ContentFingerprint{size, fnv1a64(head->constData(), head->size()),
                              fnv1a64(tail->constData(), tail->size())};
}

QByteArray sha256Digest(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw FileSystemError(FileSystemError::readUnknown,
                              QStringLiteral("Cannot open %1: %2").arg(path, file.errorString()));
    const std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        throw FileSystemError(FileSystemError::readUnknown, QStringLiteral("SHA-256 unavailable"));
    QByteArray chunk(1'048'576, Qt::Uninitialized);
    for (;;) {
        const qint64 count = file.read(chunk.data(), chunk.size());
        if (count < 0)
            throw FileSystemError(
                FileSystemError::readUnknown,
                QStringLiteral("Cannot read %1: %2").arg(path, file.errorString()));
        if (count == 0) break;
        EVP_DigestUpdate(context.get(), chunk.constData(), static_cast<std::size_t>(count));
    }
    QByteArray digest(EVP_MAX_MD_SIZE, Qt::Uninitialized);
    unsigned int length = 0;
    EVP_DigestFinal_ex(context.get(), reinterpret_cast<unsigned char*>(digest.data()), &length);
    digest.resize(static_cast<qsizetype>(length));
    return digest;
}

}  // namespace velt
