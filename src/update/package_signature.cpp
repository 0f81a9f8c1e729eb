#include "update/package_signature.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <QFile>
#include <memory>

namespace velt {
namespace {

constexpr qsizetype keyBytes = 32;
constexpr qsizetype signatureBytes = 64;

bool verifies(const uchar* message, std::size_t length, const QByteArray& signature,
              const QByteArray& publicKey) {
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                    reinterpret_cast<const uchar*>(publicKey.constData()),
                                    static_cast<std::size_t>(publicKey.size())),
        &EVP_PKEY_free);
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          &EVP_MD_CTX_free);
    const bool good =
        key && context &&
        EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
        EVP_DigestVerify(context.get(), reinterpret_cast<const uchar*>(signature.constData()),
                         static_cast<std::size_t>(signature.size()), message, length) == 1;
    // A refused signature leaves reasons in the thread's OpenSSL error queue, where the TLS
    // code of the network library would later read them as its own.
    ERR_clear_error();
    return good;
}

}  // namespace

QByteArray builtInUpdateKey() {
    const auto key = QByteArray::fromBase64Encoding(VELT_UPDATE_PUBLIC_KEY,
                                                    QByteArray::AbortOnBase64DecodingErrors);
    return key && key.decoded.size() == keyBytes ? key.decoded : QByteArray();
}

SignatureCheck verifyPackageSignature(const QString& package, const QByteArray& signature,
                                      const QByteArray& publicKey) {
    if (publicKey.size() != keyBytes) return SignatureCheck::noKey;
    const QByteArray text = signature.trimmed();
    if (text.isEmpty()) return SignatureCheck::missing;
    const auto decoded =
        QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != signatureBytes) return SignatureCheck::malformed;
    QFile file(package);
    if (!file.open(QIODevice::ReadOnly)) return SignatureCheck::unreadable;
    const qint64 size = file.size();
    static const uchar nothing = 0;
    const uchar* bytes = size > 0 ? file.map(0, size) : &nothing;
    if (!bytes) return SignatureCheck::unreadable;
    return verifies(bytes, static_cast<std::size_t>(size), decoded.decoded, publicKey)
               ? SignatureCheck::verified
               : SignatureCheck::mismatch;
}

QString describe(SignatureCheck check) {
    switch (check) {
        case SignatureCheck::verified:
            return QStringLiteral("The update signature is valid.");
        case SignatureCheck::noKey:
            return QStringLiteral("This build has no key to verify updates with.");
        case SignatureCheck::missing:
            return QStringLiteral("The update has no signature.");
        case SignatureCheck::malformed:
            return QStringLiteral("The update signature is malformed.");
        case SignatureCheck::unreadable:
            return QStringLiteral("The update package could not be read to check its signature.");
        case SignatureCheck::mismatch:
            return QStringLiteral("The update signature does not match the package.");
    }
    return {};
}

QString signatureFileOf(const QString& package) {
    return package + QStringLiteral(".sig");
}

}  // namespace velt
