// Unpacking a release package (a .tar.gz holding one bundle folder) with libarchive, refusing
// anything that could write outside the destination: absolute paths, ".." components, links
// that leave the folder, hard links, and device, FIFO or socket entries.
#pragma once

#include <filesystem>
#include <string>

namespace velt::updater {

// Extracts `package` into the existing empty folder `destination`. Returns an empty text on
// success, else the reason (the destination may then hold part of the package; the caller
// removes it).
std::string extractPackage(const std::filesystem::path& package,
                           const std::filesystem::path& destination);

// Whether an entry named `name` stays inside its folder; for a symbolic link also whether
// `linkTarget` does, resolved from the link's own folder.
bool entryStaysInside(const std::string& name, const std::string& linkTarget = {});

}  // namespace velt::updater
