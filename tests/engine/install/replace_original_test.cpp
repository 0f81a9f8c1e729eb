// replaceOriginalSafely and replaceConvertedOriginalSafely: the user's file is replaced only when
// it still is the version that was compressed, and comes back whenever the install fails.
#include "engine/errors.h"
#include "engine/install/safe_install.h"
#include "install_support.h"
#include "support/test_environment.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <QFile>

namespace velt {
namespace {

using testing::Fault;
using testing::FaultInjector;
using testing::Folder;
using testing::FolderState;
using testing::Operation;

const QString original = QStringLiteral("b.jpg");
const QString temp = QStringLiteral(".b.velt-temp-X.jpg");
const QString aside = QStringLiteral(".b.velt-replace-UUID.jpg");

struct ReplaceCase {
    const char* label;
    std::function<void(const Folder&)> changeSource;  // after its version was read
    std::vector<Fault> faults;
    std::function<void(const Folder&)> onFault;
    const char* error;
    FolderState expected;
};

// Same size and, as some tools do, the old modification time put back: only the digest tells.
void rewriteKeepingTheDate(const Folder& folder) {
    const QByteArray path = QFile::encodeName(folder.file(original));
    struct stat before {};
    ASSERT_EQ(::stat(path.constData(), &before), 0);
    folder.write(original, "NEW!");
    const struct timespec times[2] = {{0, UTIME_OMIT}, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.constData(), times, 0), 0);
}

// What an editor's atomic save does: same bytes, but a new file under the old name.
void saveAsNewFile(const Folder& folder) {
    folder.write(QStringLiteral("saved.tmp"), "old!");
    ASSERT_TRUE(QFile::remove(folder.file(original)));
    ASSERT_TRUE(QFile::rename(folder.file(QStringLiteral("saved.tmp")), folder.file(original)));
}

void takeTheName(const Folder& folder) {
    folder.write(original, "intruder");
}

TEST(ReplaceOriginalSafelyTest, ReplacesOnlyAnUnchangedSourceAndRestoresItOnFailure) {
    const ReplaceCase cases[] = {
        {"replaced", {}, {}, {}, "", {{original, "new"}}},
        {"rewritten in place",
         rewriteKeepingTheDate,
         {},
         {},
         "sourceChanged",
         {{original, "NEW!"}, {temp, "new"}}},
        {"saved anew with the same bytes",
         saveAsNewFile,
         {},
         {},
         "sourceChanged",
         {{original, "old!"}, {temp, "new"}}},
        {"moving the original aside fails",
         {},
         {{Operation::move, 1}},
         {},
         "Injected failure of move 1",
         {{original, "old!"}, {temp, "new"}}},
        {"install fails, original restored",
         {},
         {{Operation::move, 2}, {Operation::copy, 1}},
         {},
         "Injected failure of copy 1",
         {{original, "old!"}, {temp, "new"}}},
        {"install and restore fail, original stays hidden beside",
         {},
         {{Operation::move, 2}, {Operation::copy, 1}, {Operation::move, 3}},
         {},
         "Injected failure of copy 1",
         {{aside, "old!"}, {temp, "new"}}},
        {"name taken while installing",
         {},
         {{Operation::move, 2}, {Operation::copy, 1}},
         takeTheName,
         "Injected failure of copy 1",
         {{original, "intruder"}, {aside, "old!"}, {temp, "new"}}},
        {"installed by copy, temporary file cannot be removed",
         {},
         {{Operation::move, 2}, {Operation::remove, 1}},
         {},
         "",
         {{original, "new"}, {temp, "new"}}},
    };
    for (const ReplaceCase& c : cases) {
        SCOPED_TRACE(c.label);
        Folder folder;
        folder.write(original, "old!");
        folder.write(temp, "new");
        const SourceVersion version = sourceVersion(folder.file(original));
        if (c.changeSource) c.changeSource(folder);
        const FaultInjector faults(c.faults, [&] {
            if (c.onFault) c.onFault(folder);
        });
        EXPECT_EQ(testing::thrownError([&] {
                      replaceOriginalSafely(folder.file(temp), folder.file(original), version);
                  }),
                  QString::fromUtf8(c.error));
        EXPECT_EQ(folder.state(), c.expected);
    }
}

// Every single move, copy or removal failing in turn: the old bytes stay in the original or in
// its moved-aside file, and a failed install leaves the new bytes in the temporary file.
TEST(ReplaceOriginalSafelyTest, NoSingleFailingOperationLosesEitherVersion) {
    for (const Operation operation : {Operation::move, Operation::copy, Operation::remove}) {
        for (int call = 1; call <= 4; ++call) {
            SCOPED_TRACE(::testing::Message() << static_cast<int>(operation) << " #" << call);
            Folder folder;
            folder.write(original, "old!");
            folder.write(temp, "new");
            const SourceVersion version = sourceVersion(folder.file(original));
            const FaultInjector faults({{operation, call}});
            const QString error = testing::thrownError(
                [&] { replaceOriginalSafely(folder.file(temp), folder.file(original), version); });
            const FolderState state = folder.state();
            const auto content = [&](const QString& name) {
                const auto it = state.find(name);
                return it == state.end() ? QByteArray("(missing)") : it->second;
            };
            if (error.isEmpty()) {
                EXPECT_EQ(content(original), "new");
            } else {
                EXPECT_EQ(content(temp), "new");
                EXPECT_EQ(state.count(original) ? content(original) : content(aside), "old!");
            }
        }
    }
}

TEST(ReplaceOriginalSafelyTest, AReadOnlyFolderChangesNothing) {
    if (testing::runningAsRoot()) GTEST_SKIP() << "root writes into read-only folders";
    Folder folder;
    folder.write(original, "old!");
    folder.write(temp, "new");
    const SourceVersion version = sourceVersion(folder.file(original));
    const QByteArray path = QFile::encodeName(folder.path());
    ASSERT_EQ(::chmod(path.constData(), 0555), 0);
    EXPECT_FALSE(testing::thrownError([&] {
                     replaceOriginalSafely(folder.file(temp), folder.file(original), version);
                 }).isEmpty());
    ::chmod(path.constData(), 0755);
    EXPECT_EQ(folder.state(), (FolderState{{original, "old!"}, {temp, "new"}}));
}

const QString source = QStringLiteral("a.png");
const QString convertedTemp = QStringLiteral(".a.velt-temp-X.webp");
const QString converted = QStringLiteral("a.webp");

struct ConvertCase {
    const char* label;
    std::function<void(const Folder&)> prepare;  // after the source's version was read
    std::vector<Fault> faults;
    const char* error;
    FolderState expected;
};

TEST(ReplaceConvertedOriginalSafelyTest, NewNameAppearsAndSourceGoesOnlyTogether) {
    const auto staleOutput = [](const Folder& folder) { folder.write(converted, "stale"); };
    const ConvertCase cases[] = {
        {"converted", {}, {}, "", {{converted, "new"}}},
        {"stale output replaced", staleOutput, {}, "", {{converted, "new"}}},
        {"source rewritten",
         [](const Folder& f) { f.write(source, "NEW!"); },
         {},
         "sourceChanged",
         {{source, "NEW!"}, {convertedTemp, "new"}}},
        {"install fails",
         {},
         {{Operation::move, 2}, {Operation::copy, 1}},
         "Injected failure of copy 1",
         {{source, "old!"}, {convertedTemp, "new"}}},
        {"install over a stale output fails",
         staleOutput,
         {{Operation::move, 3}, {Operation::copy, 1}},
         "Injected failure of copy 1",
         {{source, "old!"}, {converted, "stale"}, {convertedTemp, "new"}}},
        {"a folder holds the new name",
         [](const Folder& f) { f.write(converted + QStringLiteral("/x"), "x"); },
         {},
         "Cannot create DIR/a.webp: File exists",
         {{source, "old!"},
          {converted + QLatin1Char('/'), ""},
          {converted + QStringLiteral("/x"), "x"},
          {convertedTemp, "new"}}},
    };
    for (const ConvertCase& c : cases) {
        SCOPED_TRACE(c.label);
        Folder folder;
        folder.write(source, "old!");
        folder.write(convertedTemp, "new");
        const SourceVersion version = sourceVersion(folder.file(source));
        if (c.prepare) c.prepare(folder);
        const FaultInjector faults(c.faults);
        EXPECT_EQ(testing::thrownError(
                      [&] {
                          replaceConvertedOriginalSafely(folder.file(convertedTemp),
                                                         folder.file(converted),
                                                         folder.file(source), version);
                      },
                      folder.path()),
                  QString::fromUtf8(c.error));
        EXPECT_EQ(folder.state(), c.expected);
    }
}

}  // namespace
}  // namespace velt
