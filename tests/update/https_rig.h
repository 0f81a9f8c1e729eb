// A real local HTTPS server for the update tests: a self-signed localhost certificate made with
// openssl for this test alone, trusted as the one extra authority, and https_server.py serving
// the files put into it (see that script for the paths that misbehave on purpose).
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QProcess>
#include <QSslCertificate>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QUrl>

namespace velt::testing {

class HttpsRig {
  public:
    HttpsRig();
    ~HttpsRig();
    HttpsRig(const HttpsRig&) = delete;
    HttpsRig& operator=(const HttpsRig&) = delete;

    bool ready() const { return httpsPort_ > 0; }
    QUrl url(const QString& path) const;  // https://localhost:PORT/path
    void put(const QString& name, const QByteArray& bytes);
    // Serves `package` as `name`; the manifest entry the release script writes for it as release
    // `version`, signed with `key` (the one this build trusts unless told).
    QJsonObject release(const QString& name, const QString& version, const QByteArray& package,
                        const QString& key = QStringLiteral(VELT_UPDATE_TEST_KEY));
    // Serves `package` and, as `manifestName`, the manifest offering it as release `version`.
    void offer(const QString& manifestName, const QString& version, const QByteArray& package);
    // A new Ed25519 private key, one this build does not trust; its file.
    QString makeKey(const QString& name);
    QString authorityFile() const { return dir_.filePath(QStringLiteral("localhost.pem")); }
    QList<QSslCertificate> authority() const;
    // The paths requested so far, in order.
    QStringList requests();

  private:
    QTemporaryDir dir_;
    QProcess server_;
    int httpsPort_ = 0;
    QStringList requests_;
};

// Runs scripts/sign-release.py on the file `package` (which leaves `package`.sig beside it);
// the manifest entry it prints.
QJsonObject signRelease(const QString& package, const QString& version, const QUrl& download,
                        const QString& key = QStringLiteral(VELT_UPDATE_TEST_KEY));

// Lower-case hexadecimal SHA-256 of `bytes`.
QByteArray sha256Hex(const QByteArray& bytes);

}  // namespace velt::testing
