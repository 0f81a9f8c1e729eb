// ScratchFolder: the engine's private folder for intermediates (PPM/PAM rasters, profile side
// files, encoder candidates), "$TMPDIR/velt-compressor-XXXXXX". It holds a small ".owner" file
// that stays locked (flock) for the engine's life, so that a later start can tell a folder whose
// process is gone — killed, it never removed its folder, and a decoded 24 MP photo is some 72 MB
// — from one that another running copy still uses.
//
// Not thread-safe; created and destroyed by the engine's owner.
#pragma once

#include "model/file_descriptor.h"

#include <QString>
#include <optional>

namespace velt {

class ScratchFolder {
  public:
    // Removes the folders of ours in $TMPDIR whose process is gone, then makes this one. Empty
    // (path() is "") when no folder can be made: intermediates then go beside the output.
    ScratchFolder();
    // Removes the folder and everything in it.
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const QString& path() const { return path_; }

    // Removes every "velt-compressor-XXXXXX" folder of `temporaryFolder` (not a link, owned by
    // this user) that is ours and abandoned: its ".owner" file can be locked (its process is
    // gone), or, made by an earlier version without one, it holds nothing but our temporary
    // files and was left alone for an hour. One log line per folder removed; never throws.
    static void removeAbandoned(const QString& temporaryFolder);

  private:
    QString path_;
    std::optional<FileDescriptor> owner_;  // holds the lock of ".owner"
};

}  // namespace velt
