// Safe installation: temporary names, moves that never replace, the copy fallback, replacing an
// output or an original with restore on failure, and verified backups. Failures are injected
// through the file-operation seam, so they hold for root too.
#include "engine/core/errors.h"
#include "engine/core/file_signature.h"
#include "engine/install/file_operations.h"
#include "engine/install/recovery.h"
#include "engine/install/safe_install.h"
#include "model/format.h"
#include "support/test_environment.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <QDirIterator>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <csignal>

namespace velt {
namespace {

using State = std::map<QString, QByteArray>;  // relative path -> bytes; folders end in "/"

QString withoutUuids(QString text) {
    static const QRegularExpression uuid(QStringLiteral("[0-9A-F]{8}(-[0-9A-F]{4}){4}[0-9A-F]{8}"));
    return text.replace(uuid, QStringLiteral("UUID"));
}

struct Folder : QTemporaryDir {
    QString file(const QString& name) const { return filePath(name); }
    void write(const QString& name, const QByteArray& data) const {
        QDir().mkpath(QFileInfo(file(name)).path());
        testing::writeFile(file(name), data);
    }
    State state(bool withFolders = true) const {
        State result;
        QDirIterator it(path(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QFileInfo entry(it.next());
            if (entry.isDir() && !withFolders) continue;
            const QString key = withoutUuids(QDir(path()).relativeFilePath(entry.filePath()));
            result[entry.isDir() ? key + u'/' : key] =
                entry.isDir() ? QByteArray() : testing::readFile(entry.filePath());
        }
        return result;
    }
};

// "" when `action` succeeds, "sourceChanged", or a FileSystemError's text with `root` as "DIR".
QString thrownError(const std::function<void()>& action, const QString& root = QString()) {
    try {
        action();
    } catch (const FolderCompressorControlError& error) {
        EXPECT_EQ(error.kind(), FolderCompressorControlError::sourceChanged);
        return QStringLiteral("sourceChanged");
    } catch (const FileSystemError& error) {
        QString text = error.description();
        return root.isEmpty() ? text : text.replace(root, QStringLiteral("DIR"));
    }
    return QString();
}

// The real file operations, except that the listed calls ("move 2": the second move) throw a
// FileSystemError with that text, touching nothing.
class FaultInjector {
    template <typename Operation>
    auto failing(const std::string& op, Operation real) {
        return [this, op, real](const auto&... paths) {
            const std::string call = op + ' ' + std::to_string(++calls_[op]);
            if (std::ranges::count(faults_, call))
                throw FileSystemError(FileSystemError::writeUnknown, QString::fromStdString(call));
            real(paths...);
        };
    }

  public:
    explicit FaultInjector(std::vector<std::string> faults)
        : faults_(std::move(faults)),
          scope_(FileOperations{failing("move", moveWithoutReplacing),
                                failing("copy", copyToNewFile), failing("remove", removeFile)}) {}

  private:
    std::vector<std::string> faults_;
    std::map<std::string, int> calls_;
    ScopedFileOperations scope_;  // last: its operations use the members above
};

TEST(TempUrlTest, HiddenNameBesideTheFinalFile) {
    const std::tuple<const char*, QString, const char*> cases[] = {
        {"/w/a_veltcompressed.webp", tempFileMarker, "/w/.a_veltcompressed.velt-temp-UUID.webp"},
        {"/w/sub/photo.final.JPG", replaceFileMarker, "/w/sub/.photo.final.velt-replace-UUID.JPG"},
        {"/w/README", tempFileMarker, "/w/.README.velt-temp-UUID.tmp"},
        {"/w/.hidden", replaceFileMarker, "/w/..hidden.velt-replace-UUID.tmp"},
        {"/w/мой снимок 🎉.png", tempFileMarker, "/w/.мой снимок 🎉.velt-temp-UUID.png"},
    };
    for (const auto& [path, marker, expected] : cases) {
        const QString file = QString::fromUtf8(path);
        EXPECT_EQ(withoutUuids(tempURL(file, marker)), QString::fromUtf8(expected));
        // Recovery at start knows both kinds of name, and the original's name back.
        const QString temp = QFileInfo(tempURL(file)).fileName();
        const QString aside = QFileInfo(tempURL(file, replaceFileMarker)).fileName();
        EXPECT_TRUE(isTemporaryName(temp) && !isMovedAsideName(temp)) << path;
        EXPECT_TRUE(isMovedAsideName(aside) && !isTemporaryName(aside)) << path;
        EXPECT_EQ(originalNameOfMovedAside(aside), QFileInfo(file).fileName());
    }
    EXPECT_NE(tempURL(QStringLiteral("/w/b.jpg")), tempURL(QStringLiteral("/w/b.jpg")));
}

const QString temp = QStringLiteral(".b.velt-temp-X.jpg");
const QString original = QStringLiteral("b.jpg");
const QString aside = QStringLiteral(".b.velt-replace-UUID.jpg");

TEST(MoveTest, BothMovesNeverReplaceADestination) {
    for (const auto move : {moveWithoutReplacing, moveByLink}) {
        Folder folder;
        folder.write(temp, "new");
        folder.write(original, "old!");
        EXPECT_THROW(move(folder.file(temp), folder.file(original)), FileSystemError);
        move(folder.file(temp), folder.file(QStringLiteral("b c 🎉.jpg")));
        EXPECT_EQ(folder.state(),
                  (State{{QStringLiteral("b c 🎉.jpg"), "new"}, {original, "old!"}}));
    }
}

TEST(CopyToNewFileTest, AWriteFailingPartWayLeavesNoPartialCopy) {
    Folder folder;
    QByteArray content(2 * 1'048'576 + 12'345, Qt::Uninitialized);  // several chunks, odd tail
    for (char& byte : content) byte = static_cast<char>(QRandomGenerator::global()->bounded(256));
    folder.write(QStringLiteral("a.png"), content);
    const QString from = folder.file(QStringLiteral("a.png"));
    const QString to = folder.file(QStringLiteral("copy.png"));
    {  // a file size limit binds root too
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit old {};
        ::getrlimit(RLIMIT_FSIZE, &old);
        const struct rlimit limit = {1'000'000, old.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_THROW(copyToNewFile(from, to), FileSystemError);
        ::setrlimit(RLIMIT_FSIZE, &old);
        std::signal(SIGXFSZ, oldHandler);
    }
    EXPECT_EQ(folder.state(), (State{{QStringLiteral("a.png"), content}}));
    copyToNewFile(from, to);
    EXPECT_EQ(testing::readFile(to), content);
}

struct ReplaceCase {
    const char* label;
    void (*change)(const Folder&);  // after the source's version was read
    std::vector<std::string> faults;
    const char* error;
    State expected;
};

// Runs `install` of the file `from` ("new") over `to` ("old!") for every case.
using Install = std::function<void(const Folder&, const SourceVersion&)>;
void expectReplaced(const QString& from, const QString& to, const Install& install,
                    const std::vector<ReplaceCase>& cases) {
    for (const ReplaceCase& c : cases) {
        SCOPED_TRACE(c.label);
        Folder folder;
        folder.write(to, "old!");
        folder.write(from, "new");
        const SourceVersion version = sourceVersion(folder.file(to));
        if (c.change) c.change(folder);
        const FaultInjector injector(c.faults);
        EXPECT_EQ(thrownError([&] { install(folder, version); }, folder.path()),
                  QString::fromUtf8(c.error));
        EXPECT_EQ(folder.state(), c.expected);
    }
}

const std::vector<std::string> installFails = {"move 2", "copy 1"};
const std::vector<std::string> restoreFails = {"move 2", "copy 1", "move 3"};

TEST(MoveOrCopyFileTest, FallsBackToCopyButNeverReplaces) {
    const auto freeTheName = [](const Folder& f) { QFile::remove(f.file(original)); };
    const auto install = [](const Folder& folder, const SourceVersion&) {
        moveOrCopyFile(folder.file(temp), folder.file(original));
    };
    // clang-format off
    expectReplaced(temp, original, install, {
        {"name taken", {}, {}, "Cannot create DIR/b.jpg: File exists",
         {{original, "old!"}, {temp, "new"}}},
        {"copied", freeTheName, {"move 1"}, "", {{original, "new"}}},
        {"copied, removal fails", freeTheName, {"move 1", "remove 1"}, "",
         {{original, "new"}, {temp, "new"}}},
        {"move and copy fail", freeTheName, {"move 1", "copy 1"}, "copy 1", {{temp, "new"}}},
    });
    // clang-format on
}

// Same size and the old modification time put back, as some tools do: only the digest tells.
void rewriteKeepingTheDate(const Folder& folder) {
    const QByteArray path = QFile::encodeName(folder.file(original));
    struct stat before {};
    ASSERT_EQ(::stat(path.constData(), &before), 0);
    folder.write(original, "NEW!");
    const struct timespec times[2] = {{0, UTIME_OMIT}, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.constData(), times, 0), 0);
}

// What an editor's atomic save does: the same bytes, but a new file under the old name.
void saveAsNewFile(const Folder& folder) {
    folder.write(QStringLiteral("saved"), "old!");
    ASSERT_TRUE(QFile::remove(folder.file(original)));
    ASSERT_TRUE(QFile::rename(folder.file(QStringLiteral("saved")), folder.file(original)));
}

// Both replace the file, or put the previous one back (or leave it hidden beside) on failure;
// the original is replaced only while it still is the version that was compressed.
TEST(ReplaceTest, ReplacesOrPutsThePreviousFileBack) {
    const auto output = [](const Folder& folder, const SourceVersion&) {
        replaceOutputFile(folder.file(temp), folder.file(original));
    };
    const auto safely = [](const Folder& folder, const SourceVersion& version) {
        replaceOriginalSafely(folder.file(temp), folder.file(original), version);
    };
    // clang-format off
    for (const Install& install : {Install(output), Install(safely)}) {
        expectReplaced(temp, original, install, {
            {"replaced", {}, {}, "", {{original, "new"}}},
            {"install fails", {}, installFails, "copy 1", {{original, "old!"}, {temp, "new"}}},
            {"restore fails", {}, restoreFails, "copy 1", {{aside, "old!"}, {temp, "new"}}},
            {"aside kept", {}, {"remove 1"}, "", {{aside, "old!"}, {original, "new"}}},
        });
    }
    expectReplaced(temp, original, safely, {
        {"rewritten", rewriteKeepingTheDate, {}, "sourceChanged",
         {{original, "NEW!"}, {temp, "new"}}},
        {"saved anew", saveAsNewFile, {}, "sourceChanged", {{original, "old!"}, {temp, "new"}}},
    });
    // clang-format on
}

// Every single move, copy or removal failing in turn: the old bytes stay in the original or in
// its moved-aside file, and a failed install leaves the new bytes in the temporary file.
TEST(ReplaceOriginalSafelyTest, NoSingleFailingOperationLosesEitherVersion) {
    for (const std::string op : {"move", "copy", "remove"}) {
        for (int call = 1; call <= 4; ++call) {
            const std::string fault = op + ' ' + std::to_string(call);
            SCOPED_TRACE(fault);
            Folder folder;
            folder.write(original, "old!");
            folder.write(temp, "new");
            const SourceVersion version = sourceVersion(folder.file(original));
            const FaultInjector injector({fault});
            const QString error = thrownError(
                [&] { replaceOriginalSafely(folder.file(temp), folder.file(original), version); });
            State state = folder.state();
            EXPECT_EQ(error.isEmpty() ? state[original] : state[temp], "new");
            if (!error.isEmpty()) {
                EXPECT_EQ(state.count(original) ? state[original] : state[aside], "old!");
            }
        }
    }
}

// The converted file takes a new name; the source goes only when it appears.
const QString source = QStringLiteral("a.png");
const QString converted = QStringLiteral("a.webp");
const QString convertedTemp = QStringLiteral(".a.velt-temp-X.webp");
const QString inside = QStringLiteral("a.webp/x");

TEST(ReplaceConvertedOriginalSafelyTest, NewNameAppearsAndSourceGoesOnlyTogether) {
    const auto stale = [](const Folder& f) { f.write(converted, "stale"); };
    const auto install = [](const Folder& folder, const SourceVersion& version) {
        replaceConvertedOriginalSafely(folder.file(convertedTemp), folder.file(converted),
                                       folder.file(source), version);
    };
    // clang-format off
    expectReplaced(convertedTemp, source, install, {
        {"converted", {}, {}, "", {{converted, "new"}}},
        {"stale output replaced", stale, {}, "", {{converted, "new"}}},
        {"source rewritten", [](const Folder& f) { f.write(source, "NEW!"); }, {}, "sourceChanged",
         {{source, "NEW!"}, {convertedTemp, "new"}}},
        {"install fails", {}, installFails, "copy 1", {{source, "old!"}, {convertedTemp, "new"}}},
        {"a folder holds the new name", [](const Folder& f) { f.write(inside, "x"); }, {},
         "Cannot create DIR/a.webp: File exists",
         {{source, "old!"}, {converted + u'/', ""}, {inside, "x"}, {convertedTemp, "new"}}},
    });
    // clang-format on
}

const QString backups = QStringLiteral(".velt-compressor-backups/");

TEST(BackupTest, FaithfulCopyUnderTheDayAndTheRelativePath) {
    const std::pair<const char*, const char*> cases[] = {
        {"b.jpg", "b.original.jpg"},
        {"sub/deeper/c d.png", "sub/deeper/c d.original.png"},
        {"README", "README.original"},
        {"фото 🎉.final.JPG", "фото 🎉.final.original.JPG"},
    };
    for (const auto& [name, copyName] : cases) {
        SCOPED_TRACE(name);
        Folder watched;
        watched.write(QString::fromUtf8(name), "original bytes");
        const QString source = watched.file(QString::fromUtf8(name));
        const QByteArray path = QFile::encodeName(source);
        const struct timespec times[2] = {{0, UTIME_OMIT}, {1'000'000'000, 123'456'789}};
        ASSERT_EQ(
            ::utimensat(AT_FDCWD, path.constData(), times, 0) | ::chmod(path.constData(), 0604), 0);
        const QString copy = backup(source, sourceVersion(source), watched.path());
        EXPECT_EQ(copy, watched.file(backups + isoDay() + u'/' + QString::fromUtf8(copyName)));
        EXPECT_EQ(testing::readFile(copy), "original bytes");
        EXPECT_EQ(modificationTime(copy), modificationTime(source));
        EXPECT_EQ(QFile::permissions(copy), QFile::permissions(source));

        // A second backup the same day is named base.original-S.ext, S the time in milliseconds.
        watched.write(QString::fromUtf8(name), "second");
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        const QString second = backup(source, sourceVersion(source), watched.path());
        const qint64 after = QDateTime::currentMSecsSinceEpoch();
        const QString stamp = second.section(u'-', -1).section(u'.', 0, 0);
        EXPECT_EQ(second, QString(copy).replace(QStringLiteral(".original"),
                                                QStringLiteral(".original-") + stamp));
        EXPECT_GE(stamp.toLongLong(), before);
        EXPECT_LE(stamp.toLongLong(), after);

        // The same content once more (a run killed between its backup and its install): the
        // backup made then, also when it was made on another day, and no second one.
        EXPECT_EQ(backup(source, sourceVersion(source), watched.path()), second);
        const QString earlier = QString(second).replace(isoDay(), QStringLiteral("2001-01-01"));
        ASSERT_TRUE(QDir().mkpath(parentFolder(earlier)) && QFile::rename(second, earlier));
        EXPECT_EQ(backup(source, sourceVersion(source), watched.path()), earlier);
        EXPECT_FALSE(QFileInfo::exists(second));
    }
}

// On any failure no backup copy is left behind and the source stays as it is.
TEST(BackupTest, AFailedBackupLeavesNoCopy) {
    const QString source = QStringLiteral("sub/b.jpg");
    // clang-format off
    // Label, a file written where a folder must go, what makes the version wrong, faults, error.
    const std::tuple<const char*, QString, void (*)(SourceVersion&), std::vector<std::string>,
                     const char*> cases[] = {
        {"file where the backup folder goes", backups.chopped(1), {}, {},
         "Cannot create the folder DIR/.velt-compressor-backups: Not a directory"},
        {"file where the day folder goes", backups + isoDay(), {}, {},
         "Cannot create the folder DIR/.velt-compressor-backups/DAY: Not a directory"},
        {"digest differs", {}, [](SourceVersion& v) { v.digest[0] = char(v.digest[0] ^ 1); }, {},
         "sourceChanged"},
        {"size differs", {}, [](SourceVersion& v) { v.signature.size += 1; }, {}, "sourceChanged"},
        {"copy fails", {}, {}, {"copy 1"}, "copy 1"},
    };  // clang-format on
    for (const auto& [label, blocker, spoil, faults, expectedError] : cases) {
        SCOPED_TRACE(label);
        Folder watched;
        watched.write(source, "photo");
        SourceVersion version = sourceVersion(watched.file(source));
        if (spoil) spoil(version);
        if (!blocker.isEmpty()) watched.write(blocker, "x");
        const State before = watched.state(false);
        const FaultInjector injector(faults);
        const QString error = thrownError(
            [&] { backup(watched.file(source), version, watched.path()); }, watched.path());
        EXPECT_EQ(QString(error).replace(isoDay(), QStringLiteral("DAY")),
                  QString::fromUtf8(expectedError));
        EXPECT_EQ(watched.state(false), before);  // folders made on the way may stay
    }
}

}  // namespace
}  // namespace velt
