// Signed release packages. The vendor signs each release package, its bytes as a whole, with an
// Ed25519 key whose private half never leaves the release machine (scripts/sign-release.py);
// the program and the update helper carry the public half, built in at configure time
// (VELT_UPDATE_PUBLIC_KEY), and install nothing whose signature is missing, malformed, made by
// another key or made over other bytes. So an update server, or whoever holds its certificate,
// cannot ship code to users. A build configured without a key refuses every update.
#pragma once

#include <QByteArray>
#include <QString>

namespace velt {

enum class SignatureCheck { verified, noKey, missing, malformed, unreadable, mismatch };

// The built-in public key, 32 raw bytes; empty in a build configured without one.
QByteArray builtInUpdateKey();

// Checks `signature` (base64 of 64 bytes; white space at its ends is ignored) over the bytes of
// the file `package` with the Ed25519 public key `publicKey` (32 raw bytes). The package is
// mapped, not read into memory.
SignatureCheck verifyPackageSignature(const QString& package, const QByteArray& signature,
                                      const QByteArray& publicKey);

// What a failed check found, in English, for a log line.
QString describe(SignatureCheck check);

// The signature beside a package, where the update helper reads it: "<package>.sig", holding
// the same base64 text as the manifest's "signature".
QString signatureFileOf(const QString& package);

}  // namespace velt
