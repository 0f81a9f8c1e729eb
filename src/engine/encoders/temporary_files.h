// TemporaryFiles: the clean-up list of an encoding path. Every hidden file a path creates beside
// its destination is added here before it is created, and all of them are removed when the list
// goes out of scope, whatever way the path is left (success, error or cancellation).
//
// Owned by one call on the engine's queue; not shared between threads.
#pragma once

#include <QString>
#include <QStringList>

namespace velt {

class TemporaryFiles {
  public:
    TemporaryFiles() = default;
    // Removes every listed file, ignoring errors (a file that was never created is fine).
    ~TemporaryFiles();
    TemporaryFiles(const TemporaryFiles&) = delete;
    TemporaryFiles& operator=(const TemporaryFiles&) = delete;

    // Returns `path` so that a name can be listed where it is made.
    QString add(const QString& path);
    const QStringList& paths() const { return paths_; }

  private:
    QStringList paths_;
};

}  // namespace velt
