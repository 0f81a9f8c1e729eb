// The primitive file operations that safe installation is built from, and the seam through which
// tests make one of them fail at the worst possible moment.
//
// The installer calls move, copy and remove only through currentFileOperations(). Production code
// never swaps them; a test installs its own set with ScopedFileOperations, typically the real
// operations wrapped so that the Nth call throws. The active set is process-wide and unguarded:
// swap it only while no install is running (in tests, on the test's own thread).
#pragma once

#include <QString>
#include <functional>

namespace velt {

struct FileOperations {
    // Moves the file `from` to the new name `to`; never replaces an existing `to`.
    std::function<void(const QString& from, const QString& to)> move;
    // Copies the file `from` to the new file `to` (fails when `to` exists).
    std::function<void(const QString& from, const QString& to)> copy;
    // Removes the file (not a folder).
    std::function<void(const QString& path)> remove;
};

// moveWithoutReplacing, copyToNewFile and removeFile.
FileOperations realFileOperations();

// The set in force: the real operations unless a ScopedFileOperations is alive.
const FileOperations& currentFileOperations();

// Puts `replacement` in force for its lifetime and then restores the previous set. Scopes nest.
class ScopedFileOperations {
  public:
    explicit ScopedFileOperations(FileOperations replacement);
    ~ScopedFileOperations();
    ScopedFileOperations(const ScopedFileOperations&) = delete;
    ScopedFileOperations& operator=(const ScopedFileOperations&) = delete;

  private:
    FileOperations previous_;
};

// Renames atomically with RENAME_NOREPLACE. Where the file system cannot do that (EINVAL, ENOSYS)
// it falls back to moveByLink, never to a rename that could clobber. Throws FileSystemError
// (also for a cross-volume move, which the caller answers by copying).
void moveWithoutReplacing(const QString& from, const QString& to);

// link(from, to) and then unlink(from): an existing `to` makes link fail, so nothing is replaced.
// When `from` cannot be unlinked the new link is removed again and the error thrown, so the move
// happens entirely or not at all.
void moveByLink(const QString& from, const QString& to);

// Creates `to` exclusively (O_EXCL), copies every byte, gives it the permission bits and the
// access and modification times of `from`, and flushes it to disk. On any failure the partial
// `to` is removed and FileSystemError thrown; an existing `to` is never touched.
void copyToNewFile(const QString& from, const QString& to);

// Gives `to` the permission bits of `from`, and its owner and group where this process may set
// them (as root both; otherwise the group when the user belongs to it; an owner change that is not
// allowed is silently left out). Done on a temporary file before it is installed, so that the
// final name never shows wider access than the source had. Throws FileSystemError when `from`
// cannot be read or the permission bits cannot be set.
void takeOverAccess(const QString& from, const QString& to);

// Gives `to` the access and modification times of `from`, so that an output sorts where its
// source did in a photo library or a file manager. Done on the temporary file before it is
// installed (a rename keeps the times). Throws FileSystemError when `from` cannot be read or the
// times cannot be set.
void takeOverDates(const QString& from, const QString& to);

// Removes a file. Throws FileSystemError.
void removeFile(const QString& path);

// currentFileOperations().remove, with every error ignored: for cleaning up temporary and
// moved-aside files, whose removal never decides whether an install succeeded.
void removeQuietly(const QString& path) noexcept;

// The folder part of `path` ("." for a bare name, "/" for an entry of the root).
QString parentFolder(const QString& path);

// True when anything, even a dangling symbolic link or a folder, has the name `path`.
bool pathExists(const QString& path);

// True when a directory (not a link to one) has the name `path`.
bool isDirectory(const QString& path);

// True when a regular file (not a link to one) has the name `path`.
bool isRegularFile(const QString& path);

// True when `path` is a symbolic link (whatever it points to, if anything).
bool isSymbolicLink(const QString& path);

// Flushes the file's content to disk. Throws FileSystemError.
void syncFile(const QString& path);

// Flushes the folder's entries to disk so that a rename survives a crash. Best effort: errors are
// ignored because the rename itself has already succeeded.
void syncFolder(const QString& path);

}  // namespace velt
