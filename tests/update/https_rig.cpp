#include "https_rig.h"

#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QCryptographicHash>
#include <QDir>
#include <QJsonDocument>

namespace velt::testing {
namespace {

void openssl(const QString& folder, const QString& arguments) {
    QProcess process;
    process.setWorkingDirectory(folder);
    process.start(QStringLiteral("openssl"), arguments.split(QLatin1Char(' ')));
    ASSERT_TRUE(process.waitForFinished(60000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
}

}  // namespace

HttpsRig::HttpsRig() {
    // One self-signed certificate for localhost, trusted as its own authority.
    QDir(dir_.path()).mkdir(QStringLiteral("site"));
    openssl(dir_.path(),
            QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
                           "-keyout localhost.key -out localhost.pem -days 2 -subj /CN=localhost "
                           "-addext subjectAltName=DNS:localhost,IP:127.0.0.1"));
    server_.start(QStringLiteral("python3"),
                  {QStringLiteral(VELT_HTTPS_SERVER), dir_.filePath(QStringLiteral("site")),
                   dir_.filePath(QStringLiteral("localhost.pem")),
                   dir_.filePath(QStringLiteral("localhost.key"))});
    if (!server_.waitForStarted()) return;
    while (!server_.canReadLine() && server_.waitForReadyRead(30000)) {
    }
    const QStringList ports = QString::fromUtf8(server_.readLine()).trimmed().split(u' ');
    if (ports.size() == 3) httpsPort_ = ports.at(1).toInt();
}

HttpsRig::~HttpsRig() {
    server_.kill();
    server_.waitForFinished();
}

// The server listens on IPv4 only: with "localhost" Qt 6.8 would try ::1 first, and then misses
// the server closing a cut response until its transfer timeout.
QUrl HttpsRig::url(const QString& path) const {
    return QUrl(QStringLiteral("https://127.0.0.1:%1/%2").arg(httpsPort_).arg(path));
}

void HttpsRig::put(const QString& name, const QByteArray& bytes) {
    writeFile(dir_.filePath(QStringLiteral("site/") + name), bytes);
}

QJsonObject HttpsRig::release(const QString& name, const QString& version,
                              const QByteArray& package, const QString& key) {
    put(name, package);
    return signRelease(dir_.filePath(QStringLiteral("site/") + name), version, url(name), key);
}

void HttpsRig::offer(const QString& manifestName, const QString& version,
                     const QByteArray& package) {
    const QJsonObject entry = release(manifestName + QStringLiteral(".tar.gz"), version, package);
    put(manifestName, QJsonDocument(entry).toJson());
}

QString HttpsRig::makeKey(const QString& name) {
    openssl(dir_.path(), QStringLiteral("genpkey -algorithm ed25519 -out ") + name);
    return dir_.filePath(name);
}

QList<QSslCertificate> HttpsRig::authority() const {
    return QSslCertificate::fromPath(authorityFile());
}

QStringList HttpsRig::requests() {
    server_.waitForReadyRead(50);
    while (server_.canReadLine()) {
        const QString line = QString::fromUtf8(server_.readLine()).trimmed();
        if (line.startsWith(QLatin1String("GET "))) requests_ << line.mid(4);
    }
    return requests_;
}

QJsonObject signRelease(const QString& package, const QString& version, const QUrl& download,
                        const QString& key) {
    QProcess script;
    script.start(QStringLiteral(VELT_SIGN_RELEASE),
                 {QStringLiteral("--key"), key, QStringLiteral("--version"), version,
                  QStringLiteral("--download"), download.toString(), package});
    EXPECT_TRUE(script.waitForFinished(60000));
    EXPECT_EQ(script.exitCode(), 0) << script.readAllStandardError().toStdString();
    return QJsonDocument::fromJson(script.readAllStandardOutput()).object();
}

QByteArray sha256Hex(const QByteArray& bytes) {
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

}  // namespace velt::testing
