// Portable bundles and release packages for the helper and end-to-end tests, made from the real
// program and helper of this build: <folder>/velt-compressor/{bin/velt-compressor,
// libexec/velt-compressor/velt-updater, VELT-BUNDLE, a file naming the release}.
#pragma once

#include <QByteArray>
#include <QString>
#include <string>
#include <vector>

namespace velt::testing {

// Makes the bundle folder `<folder>/velt-compressor` holding the file `release` ("A", "B").
QString makeBundle(const QString& folder, const QString& release);

// Packs `<folder>/velt-compressor` as a .tar.gz the way a release is packed.
QByteArray packBundle(const QString& folder);

// One entry of a hand-made package.
struct PackageEntry {
    enum class Type { file, directory, symlink, hardlink, characterDevice, fifo };
    std::string name;
    Type type = Type::file;
    QByteArray content;  // a file's bytes, a link's target
};

// A .tar.gz of exactly these entries, in this order.
QByteArray makePackage(const std::vector<PackageEntry>& entries);

}  // namespace velt::testing
