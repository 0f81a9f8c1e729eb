// The primitive operations (move without replacing, exclusive copy) and moveOrCopyFile with its
// copy-and-delete fallback.
#include "engine/errors.h"
#include "engine/install/file_operations.h"
#include "engine/install/safe_install.h"
#include "engine/watcher/file_signature.h"
#include "install_support.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <QFile>
#include <QRandomGenerator>
#include <csignal>

namespace velt {
namespace {

using testing::Fault;
using testing::FaultInjector;
using testing::Folder;
using testing::FolderState;
using testing::Operation;

QByteArray randomBytes(qsizetype size) {
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& byte : bytes) byte = static_cast<char>(QRandomGenerator::global()->bounded(256));
    return bytes;
}

mode_t permissions(const QString& path) {
    struct stat info {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
    return info.st_mode & 07777;
}

using MoveFunction = void (*)(const QString&, const QString&);

TEST(MoveTest, BothMovesKeepTheInodeAndNeverReplaceADestination) {
    const std::pair<const char*, MoveFunction> moves[] = {{"rename", moveWithoutReplacing},
                                                          {"link", moveByLink}};
    for (const auto& [label, move] : moves) {
        SCOPED_TRACE(label);
        Folder folder;
        folder.write(QStringLiteral("a.jpg"), "photo");
        folder.write(QStringLiteral("taken.jpg"), "other");
        const auto before = fileSignature(folder.file(QStringLiteral("a.jpg")));

        move(folder.file(QStringLiteral("a.jpg")), folder.file(QStringLiteral("b c 🎉.jpg")));
        EXPECT_EQ(fileSignature(folder.file(QStringLiteral("b c 🎉.jpg")))->resourceIdentifier,
                  before->resourceIdentifier);
        EXPECT_THROW(move(folder.file(QStringLiteral("b c 🎉.jpg")),
                          folder.file(QStringLiteral("taken.jpg"))),
                     FileSystemError);
        EXPECT_EQ(folder.state(), (FolderState{{QStringLiteral("b c 🎉.jpg"), "photo"},
                                               {QStringLiteral("taken.jpg"), "other"}}));
    }
}

TEST(CopyToNewFileTest, CopiesEveryByteWithPermissionsAndModificationTime) {
    Folder folder;
    const QByteArray content = randomBytes(2 * 1'048'576 + 12'345);  // several chunks, odd tail
    folder.write(QStringLiteral("a.png"), content);
    const QString source = folder.file(QStringLiteral("a.png"));
    ASSERT_EQ(::chmod(QFile::encodeName(source).constData(), 0640), 0);
    QFile sourceFile(source);
    ASSERT_TRUE(sourceFile.open(QIODevice::ReadWrite));
    const QDateTime past(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC);
    ASSERT_TRUE(sourceFile.setFileTime(past, QFileDevice::FileModificationTime));
    sourceFile.close();

    copyToNewFile(source, folder.file(QStringLiteral("copy.png")));
    EXPECT_EQ(folder.state(), (FolderState{{QStringLiteral("a.png"), content},
                                           {QStringLiteral("copy.png"), content}}));
    EXPECT_EQ(permissions(folder.file(QStringLiteral("copy.png"))), 0640u);
    EXPECT_EQ(modificationTime(folder.file(QStringLiteral("copy.png"))), modificationTime(source));
}

TEST(CopyToNewFileTest, RefusesAnExistingDestinationAndNonRegularSources) {
    Folder folder;
    folder.write(QStringLiteral("a.png"), "new");
    folder.write(QStringLiteral("b.png"), "keep me");
    folder.write(QStringLiteral("dir/inner"), "x");
    EXPECT_THROW(
        copyToNewFile(folder.file(QStringLiteral("a.png")), folder.file(QStringLiteral("b.png"))),
        FileSystemError);
    EXPECT_THROW(
        copyToNewFile(folder.file(QStringLiteral("dir")), folder.file(QStringLiteral("c.png"))),
        FileSystemError);
    EXPECT_EQ(folder.state(), (FolderState{{QStringLiteral("a.png"), "new"},
                                           {QStringLiteral("b.png"), "keep me"},
                                           {QStringLiteral("dir/"), ""},
                                           {QStringLiteral("dir/inner"), "x"}}));
}

// Lowers the file size limit (which binds root too) so that writes fail part-way through.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : oldHandler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &old_);
        const struct rlimit limit = {bytes, old_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, oldHandler_);
    }

  private:
    struct rlimit old_ {};
    void (*oldHandler_)(int);
};

TEST(CopyToNewFileTest, AWriteFailingPartWayRemovesThePartialCopy) {
    Folder folder;
    const QByteArray content = randomBytes(300'000);
    folder.write(QStringLiteral("a.png"), content);
    {
        const FileSizeLimit limit(100'000);
        EXPECT_THROW(copyToNewFile(folder.file(QStringLiteral("a.png")),
                                   folder.file(QStringLiteral("copy.png"))),
                     FileSystemError);
    }
    EXPECT_EQ(folder.state(), (FolderState{{QStringLiteral("a.png"), content}}));
}

struct MoveOrCopyCase {
    const char* label;
    std::vector<Fault> faults;
    const char* error;  // "": succeeds
    FolderState expected;
};

TEST(MoveOrCopyFileTest, FallsBackToCopyAndReportsTheCopyError) {
    const QString from = QStringLiteral(".a.velt-temp-X.webp");
    const QString to = QStringLiteral("a_veltcompressed.webp");
    const MoveOrCopyCase cases[] = {
        {"moved", {}, "", {{to, "new"}}},
        {"copied and removed", {{Operation::move, 1}}, "", {{to, "new"}}},
        {"copied, removal fails quietly",
         {{Operation::move, 1}, {Operation::remove, 1}},
         "",
         {{from, "new"}, {to, "new"}}},
        {"move and copy fail",
         {{Operation::move, 1}, {Operation::copy, 1}},
         "Injected failure of copy 1",
         {{from, "new"}}},
    };
    for (const MoveOrCopyCase& c : cases) {
        SCOPED_TRACE(c.label);
        Folder folder;
        folder.write(from, "new");
        const FaultInjector faults(c.faults);
        EXPECT_EQ(testing::thrownError([&] { moveOrCopyFile(folder.file(from), folder.file(to)); }),
                  QString::fromUtf8(c.error));
        EXPECT_EQ(folder.state(), c.expected);
    }
}

TEST(MoveOrCopyFileTest, RealFailuresLeaveBothSidesAlone) {
    Folder folder;
    folder.write(QStringLiteral("temp.png"), "new");
    folder.write(QStringLiteral("out.png"), "existing");
    const QString tooLong = QString(300, QLatin1Char('n')) + QStringLiteral(".png");
    EXPECT_THROW(moveOrCopyFile(folder.file(QStringLiteral("temp.png")),
                                folder.file(QStringLiteral("out.png"))),
                 FileSystemError);
    EXPECT_THROW(moveOrCopyFile(folder.file(QStringLiteral("temp.png")), folder.file(tooLong)),
                 FileSystemError);
    EXPECT_EQ(folder.state(), (FolderState{{QStringLiteral("out.png"), "existing"},
                                           {QStringLiteral("temp.png"), "new"}}));
}

}  // namespace
}  // namespace velt
