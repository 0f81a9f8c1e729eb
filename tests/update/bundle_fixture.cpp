#include "bundle_fixture.h"

#include "support/test_environment.h"

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <memory>

namespace velt::testing {

QString makeBundle(const QString& folder, const QString& release) {
    const QString bundle = QDir(folder).filePath(QStringLiteral("velt-compressor"));
    QDir().mkpath(bundle + QStringLiteral("/bin"));
    QDir().mkpath(bundle + QStringLiteral("/libexec/velt-compressor"));
    EXPECT_TRUE(QFile::copy(QStringLiteral(VELT_EXECUTABLE),
                            bundle + QStringLiteral("/bin/velt-compressor")));
    EXPECT_TRUE(QFile::copy(QStringLiteral(VELT_UPDATER),
                            bundle + QStringLiteral("/libexec/velt-compressor/velt-updater")));
    writeFile(bundle + QStringLiteral("/VELT-BUNDLE"), "");
    writeFile(bundle + QStringLiteral("/RELEASE-") + release, release.toUtf8());
    return bundle;
}

QByteArray packBundle(const QString& folder) {
    QProcess tar;
    tar.start(QStringLiteral("tar"),
              {QStringLiteral("-czf"), QStringLiteral("-"), QStringLiteral("-C"), folder,
               QStringLiteral("velt-compressor")});
    EXPECT_TRUE(tar.waitForFinished(60000));
    EXPECT_EQ(tar.exitCode(), 0);
    return tar.readAllStandardOutput();
}

QByteArray makePackage(const std::vector<PackageEntry>& entries) {
    QByteArray package;
    const std::unique_ptr<archive, decltype(&archive_write_free)> writer(archive_write_new(),
                                                                         &archive_write_free);
    archive_write_add_filter_gzip(writer.get());
    archive_write_set_format_pax_restricted(writer.get());
    archive_write_open(
        writer.get(), &package, nullptr,
        [](archive*, void* data, const void* buffer, size_t length) -> la_ssize_t {
            static_cast<QByteArray*>(data)->append(static_cast<const char*>(buffer),
                                                   static_cast<qsizetype>(length));
            return static_cast<la_ssize_t>(length);
        },
        nullptr);
    for (const PackageEntry& e : entries) {
        const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(
            archive_entry_new(), &archive_entry_free);
        archive_entry_set_pathname(entry.get(), e.name.c_str());
        archive_entry_set_perm(entry.get(), 0755);
        // A hard link is a regular file naming the one it shares its data with.
        static constexpr mode_t fileTypes[] = {AE_IFREG, AE_IFDIR, AE_IFLNK,
                                               AE_IFREG, AE_IFCHR, AE_IFIFO};
        archive_entry_set_filetype(entry.get(), fileTypes[static_cast<int>(e.type)]);
        using Type = PackageEntry::Type;
        if (e.type == Type::file) archive_entry_set_size(entry.get(), e.content.size());
        if (e.type == Type::symlink) archive_entry_set_symlink(entry.get(), e.content.constData());
        if (e.type == Type::hardlink)
            archive_entry_set_hardlink(entry.get(), e.content.constData());
        if (e.type == Type::characterDevice) archive_entry_set_rdev(entry.get(), makedev(1, 3));
        archive_write_header(writer.get(), entry.get());
        if (e.type == Type::file && !e.content.isEmpty())
            archive_write_data(writer.get(), e.content.constData(),
                               static_cast<size_t>(e.content.size()));
    }
    archive_write_close(writer.get());
    return package;
}

}  // namespace velt::testing
