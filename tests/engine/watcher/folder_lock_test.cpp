// One engine per folder, whatever path names it.
#include "engine/watcher/folder_lock.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace velt {
namespace {

using namespace Qt::StringLiterals;

TEST(FolderLock, EverySpellingOfAFolderFindsTheSameLock) {
    QTemporaryDir root;
    const QString folder = root.filePath(u"photos"_s);
    const QString link = root.filePath(u"link to photos"_s);
    ASSERT_TRUE(QDir().mkpath(folder));
    ASSERT_EQ(::symlink(QFile::encodeName(folder).constData(), QFile::encodeName(link).constData()),
              0);
    const FolderLock held(folder);
    ASSERT_TRUE(held.isHeld());
    for (const QString& other : {link, root.path() + u"/./photos"_s}) {
        try {
            const FolderLock second(other);
            ADD_FAILURE() << "a second engine took " << other.toStdString();
        } catch (const FolderBusyError& error) {
            EXPECT_EQ(error.holder(), ::getpid());
        }
    }
    const FolderLock elsewhere(root.path());  // another folder is free
    EXPECT_TRUE(elsewhere.isHeld());
}

}  // namespace
}  // namespace velt
