// The updater against a real local HTTPS server: checks, downloads, verification and the
// install refusals that come before the helper is started.
#include "https_rig.h"
#include "support/test_environment.h"
#include "update/app_updater.h"
#include "update/package_signature.h"

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTimer>

namespace velt::testing {
namespace {

class UpdaterTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(rig_.ready()); }

    // An updater for release 1.2.0 build 12 trusting the rig's authority and the build's update
    // key, unless `adjust` takes them away.
    std::unique_ptr<AppUpdater> makeUpdater(
        const QString& manifestName, const QString& executable = {},
        const std::function<void(UpdaterEnvironment&)>& adjust = {}) {
        UpdaterEnvironment environment;
        environment.version = QStringLiteral("1.2.0");
        environment.build = QStringLiteral("12");
        environment.systemVersion = QStringLiteral("2.36");
        environment.executablePath = executable;
        environment.processId = 4'000'000;  // no such process
        environment.extraCertificateAuthorities = rig_.authority();
        environment.updateKey = builtInUpdateKey();
        if (adjust) adjust(environment);
        auto updater = std::make_unique<AppUpdater>(rig_.url(manifestName), environment);
        updater->onChange = [this, raw = updater.get()] { states_.push_back(raw->state()); };
        return updater;
    }

    // Runs `start` and waits (at most 60 s) for the completion it is given.
    template <typename Result, typename Start>
    Result await(Start start) {
        std::optional<Result> result;
        QEventLoop loop;
        start([&](const Result& value) {
            result = value;
            loop.quit();
        });
        if (!result) {
            QTimer::singleShot(60000, &loop, &QEventLoop::quit);
            loop.exec();
        }
        EXPECT_TRUE(result.has_value());
        return result.value_or(Result(UpdateFailure::other(QStringLiteral("no completion"))));
    }

    UpdateResult<AppUpdateCheckResult> check(AppUpdater& updater) {
        return await<UpdateResult<AppUpdateCheckResult>>([&](auto done) { updater.check(done); });
    }

    UpdateResult<QString> download(AppUpdater& updater, const AppUpdateManifest& manifest) {
        return await<UpdateResult<QString>>([&](auto done) { updater.download(manifest, done); });
    }

    // The manifest `entry` with its package downloaded from `path`.
    AppUpdateManifest manifestFor(const QString& path, QJsonObject entry) {
        entry[QStringLiteral("download")] = rig_.url(path).toString();
        return AppUpdateManifest::decode(QJsonDocument(entry).toJson().toStdString());
    }

    HttpsRig rig_;
    QTemporaryDir temp_;
    ScopedEnvironment tmpdir_{"TMPDIR", temp_.path().toUtf8()};
    std::vector<AppUpdaterState> states_;
};

QString describe(const UpdateResult<AppUpdateCheckResult>& result) {
    if (const auto* failure = std::get_if<UpdateFailure>(&result)) return failure->description;
    const auto& checked = std::get<AppUpdateCheckResult>(result);
    if (const auto* manifest = std::get_if<AppUpdateManifest>(&checked))
        return QStringLiteral("available ") + manifest->version;
    return QStringLiteral("up to date ") + std::get<UpToDate>(checked).installedVersion;
}

TEST_F(UpdaterTest, ChecksEndInAResultOrATypedFailure) {
    const auto offer = [this](const char* version, const char* extraFields = "") {
        return QStringLiteral(R"({"version": "%1", "download": "%2", "sha256": "%3"%4})")
            .arg(QString::fromUtf8(version), rig_.url(QStringLiteral("p.tar.gz")).toString(),
                 QString(64, u'a'), QString::fromUtf8(extraFields))
            .toUtf8();
    };
    const auto untrusted = [](UpdaterEnvironment& e) { e.extraCertificateAuthorities.clear(); };
    const struct {
        const char* path;
        QByteArray served;    // put at `path` when given
        const char* outcome;  // the result, or the failure's description (start of it)
        std::optional<AppUpdateError::Kind> kind;
        std::function<void(UpdaterEnvironment&)> adjust = {};
    } cases[] = {
        // The running glibc is 2.36: a release for 2.31 or 2.36 runs, one for 2.37 does not.
        {"newer.json", offer("1.3.0", R"(, "minimum_macOS": "2.31")"), "available 1.3.0",
         std::nullopt},
        {"newer.json", {}, "", std::nullopt, untrusted},  // fails like the network
        {"older.json", offer("1.1.9"), "up to date 1.2.0", std::nullopt},
        {"build.json", offer("1.2.0", R"(, "build": "13", "minimum_macOS": "2.36")"),
         "available 1.2.0", std::nullopt},
        {"status/503", {}, "The update server returned HTTP 503", AppUpdateError::Kind::httpStatus},
        {"empty", {}, "The update manifest is empty.", AppUpdateError::Kind::invalidManifest},
        {"system.json", offer("1.3.0", R"(, "minimum_macOS": "2.37")"),
         "This update requires glibc 2.37 or newer.", AppUpdateError::Kind::unsupportedSystem},
        {"http.json", R"({"version": "1.3.0", "download": "http://e.org/p", "sha256": "x"})",
         "The update URL must use HTTPS", AppUpdateError::Kind::invalidManifest},
        {"garbage.json", "<html>not json</html>", "[json.exception", std::nullopt},
    };
    for (const auto& c : cases) {
        if (!c.served.isNull()) rig_.put(QString::fromUtf8(c.path), c.served);
        auto updater = makeUpdater(QString::fromUtf8(c.path), {}, c.adjust);
        states_.clear();
        const auto result = check(*updater);
        EXPECT_TRUE(describe(result).startsWith(QString::fromUtf8(c.outcome)))
            << c.path << ": " << describe(result).toStdString();
        const auto* failure = std::get_if<UpdateFailure>(&result);
        EXPECT_EQ(failure && failure->error ? std::optional(failure->error->kind()) : std::nullopt,
                  c.kind)
            << c.path;
        const auto end = failure ? AppUpdaterState::failed : AppUpdaterState::idle;
        EXPECT_EQ(states_, (std::vector{AppUpdaterState::checking, end})) << c.path;
    }
}

TEST_F(UpdaterTest, DownloadsAreVerifiedAndOnlyAMatchingPackageIsKept) {
    const QByteArray package = QByteArray("release bytes ").repeated(100000);  // 1.4 MB
    const QJsonObject entry =
        rig_.release(QStringLiteral("p.tar.gz"), QStringLiteral("1.3.0"), package);
    QJsonObject wrongDigit = entry;
    wrongDigit[QStringLiteral("sha256")] = QString::fromLatin1(sha256Hex(package + "x"));
    const struct {
        const char* path;
        QJsonObject entry;
        const char* failure;  // nothing: verified
    } cases[] = {
        {"status/404/p.tar.gz", entry, "The update server returned HTTP 404."},
        {"to-http/p.tar.gz", entry, "The update download did not finish over HTTPS."},
        {"p.tar.gz", wrongDigit,
         "The downloaded update checksum does not match the release manifest."},
        {"short/p.tar.gz", entry, ""},  // a transport error of the platform's own
        {"redirect/p.tar.gz", entry, nullptr},
    };
    for (const auto& c : cases) {
        auto updater = makeUpdater(QStringLiteral("unused.json"));
        states_.clear();
        const auto result = download(*updater, manifestFor(QString::fromUtf8(c.path), c.entry));
        const auto* failure = std::get_if<UpdateFailure>(&result);
        EXPECT_EQ(states_, (std::vector{AppUpdaterState::downloading,
                                        failure ? AppUpdaterState::failed : AppUpdaterState::idle}))
            << c.path;
        if (!c.failure) {
            ASSERT_EQ(failure, nullptr) << c.path << ": " << failure->description.toStdString();
            const QString path = std::get<QString>(result);
            EXPECT_EQ(readFile(path), package);
            EXPECT_EQ(updater->downloadedPackageURL(), path);
            EXPECT_EQ(updater->readyUpdate()->version, QStringLiteral("1.3.0"));
            // A later check offers the waiting package without asking the server. (The store
            // short-cuts before it asks, so its test cannot see this.)
            const int requests = rig_.requests().size();
            EXPECT_EQ(describe(check(*updater)), QStringLiteral("available 1.3.0"));
            EXPECT_EQ(rig_.requests().size(), requests);
            continue;
        }
        ASSERT_NE(failure, nullptr) << c.path;
        EXPECT_TRUE(failure->description.startsWith(QString::fromUtf8(c.failure)))
            << c.path << ": " << failure->description.toStdString();
        EXPECT_FALSE(updater->readyUpdate().has_value()) << c.path;
    }
    // Only the package that failed its digest had its folder removed at once; the verified one
    // is kept, in its own "VELTCompressor-Update-<UUID>".
    EXPECT_EQ(QDir(temp_.path()).entryList({QStringLiteral("VELTCompressor-Update*")}).size(), 1);
}

TEST_F(UpdaterTest, EarlyRefusalsLeaveTheStateAndOverlappingCallsAreDropped) {
    const QJsonObject entry =
        rig_.release(QStringLiteral("p.tar.gz"), QStringLiteral("1.3.0"), "bytes");
    QJsonObject older = entry;
    older[QStringLiteral("version")] = QStringLiteral("1.2.0");
    auto updater = makeUpdater(QStringLiteral("unused.json"));
    auto keyless = makeUpdater(QStringLiteral("unused.json"), {},
                               [](UpdaterEnvironment& e) { e.updateKey.clear(); });
    const auto refusal = [&](AppUpdater& refusing, const QJsonObject& offered) {
        const auto result = download(refusing, manifestFor(QStringLiteral("p.tar.gz"), offered));
        return std::get<UpdateFailure>(result).description;
    };
    EXPECT_EQ(refusal(*updater, older),
              QStringLiteral("The downloaded version is not newer than the installed version."));
    // A build without a key fetches nothing it could never install.
    EXPECT_EQ(refusal(*keyless, entry),
              QStringLiteral("This build has no key to verify updates with."));
    EXPECT_TRUE(states_.empty());
    EXPECT_TRUE(rig_.requests().isEmpty());

    // While a download runs, a check, a second download and an install never complete.
    bool droppedCompleted = false;
    const auto result = await<UpdateResult<QString>>([&](auto done) {
        updater->download(manifestFor(QStringLiteral("p.tar.gz"), entry), done);
        updater->check([&](const auto&) { droppedCompleted = true; });
        updater->download(manifestFor(QStringLiteral("p.tar.gz"), entry),
                          [&](const auto&) { droppedCompleted = true; });
        updater->installAndRestart([&](const auto&) { droppedCompleted = true; });
    });
    EXPECT_TRUE(std::holds_alternative<QString>(result));
    QCoreApplication::processEvents();
    EXPECT_FALSE(droppedCompleted);
}

// A bundle that cannot be located at all is the store's case (StoreUpdateTest): the program
// under test runs from the build tree.
TEST_F(UpdaterTest, InstallRefusesBeforeStartingAnyHelper) {
    const QJsonObject entry =
        rig_.release(QStringLiteral("p.tar.gz"), QStringLiteral("1.3.0"), "package");
    QTemporaryDir place;
    const QString bundle = place.filePath(QStringLiteral("velt-compressor"));
    QDir().mkpath(bundle + QStringLiteral("/bin"));
    writeFile(bundle + QStringLiteral("/VELT-BUNDLE"), "");
    const QString executable = bundle + QStringLiteral("/bin/velt-compressor");
    const auto install = [&](AppUpdater& updater) {
        const auto failure = await<std::optional<UpdateFailure>>(
            [&](auto done) { updater.installAndRestart(done); });
        return failure ? failure->description : QStringLiteral("started");
    };

    auto updater = makeUpdater(QStringLiteral("unused.json"), executable);
    EXPECT_EQ(install(*updater),
              QStringLiteral("The update package is no longer available. Check for updates "
                             "again."));
    EXPECT_EQ(updater->state(), AppUpdaterState::failed);
    ASSERT_TRUE(std::holds_alternative<QString>(
        download(*updater, manifestFor(QStringLiteral("p.tar.gz"), entry))));
    EXPECT_EQ(install(*updater),
              QStringLiteral("The update helper is missing from the application bundle."));
    EXPECT_TRUE(
        QDir(temp_.path()).entryList({QStringLiteral("VELTCompressor-Updater-*")}).isEmpty());
    if (!runningAsRoot()) {
        QFile::setPermissions(place.path(), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        EXPECT_EQ(install(*updater), QStringLiteral("Move VELT | Compressor to a folder you can "
                                                    "write to before installing an update."));
        QFile::setPermissions(
            place.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }
    EXPECT_EQ(updater->state(), AppUpdaterState::failed);
    // The verified package stays for the next try.
    EXPECT_TRUE(QFileInfo::exists(*updater->downloadedPackageURL()));
}

}  // namespace
}  // namespace velt::testing
