// A real local HTTPS server for the update tests: a self-signed localhost certificate made with
// openssl for this test alone, trusted as the one extra authority, and https_server.py serving
// the files put into it (see that script for the paths that misbehave on purpose).
#pragma once

#include <QByteArray>
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
    // Serves `package` and, as `manifestName`, a manifest offering it as release `version`.
    void offer(const QString& manifestName, const QString& version, const QByteArray& package);
    QString authorityFile() const { return dir_.filePath(QStringLiteral("localhost.pem")); }
    QList<QSslCertificate> authority() const;
    // The paths requested so far, in order.
    QStringList requests();

    // A manifest document; `fields` are JSON members written as they are given.
    static QByteArray manifest(const QString& version, const QUrl& download,
                               const QByteArray& sha256, const QString& extraFields = {});

  private:
    QTemporaryDir dir_;
    QProcess server_;
    int httpsPort_ = 0;
    QStringList requests_;
};

// Lower-case hexadecimal SHA-256 of `bytes`.
QByteArray sha256Hex(const QByteArray& bytes);

}  // namespace velt::testing
