// Shared by the install tests: a snapshot of a whole folder to compare after each scenario, and
// the real file operations with chosen calls made to fail.
#pragma once

#include "engine/install/file_operations.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>
#include <array>
#include <functional>
#include <map>
#include <ostream>
#include <vector>

inline void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QByteArray& bytes, std::ostream* os) {
    *os << '"' << bytes.toStdString() << '"';
}

namespace velt::testing {

// Every entry under a folder, hidden ones included, keyed by its path relative to the folder.
// Files map to their bytes; folders have a key ending in "/" and map to nothing. Every upper-case
// UUID in a key reads "UUID", so that temporary names can be written down in expectations.
using FolderState = std::map<QString, QByteArray>;
FolderState folderState(const QString& root);

// What `action` threw: "" for nothing, "sourceChanged" or "cancelled" for the control errors, the
// description of a FileSystemError (with `root` written as "DIR" and UUIDs as "UUID"), or
// "unexpected: <what>" for anything else.
QString thrownError(const std::function<void()>& action, const QString& root = QString());

enum class Operation { move, copy, remove };

// Makes call number `call` (counted from 1) of `operation` fail.
struct Fault {
    Operation operation;
    int call;
};

// Puts the real file operations in force for its lifetime, except that the listed calls throw
// FileSystemError("Injected failure of <operation> <call>") without touching anything. The
// optional `onFault` runs right before such a failure, to change the folder at that moment.
class FaultInjector {
  public:
    explicit FaultInjector(std::vector<Fault> faults, std::function<void()> onFault = {});
    FaultInjector(const FaultInjector&) = delete;
    FaultInjector& operator=(const FaultInjector&) = delete;

    int calls(Operation operation) const { return calls_[static_cast<std::size_t>(operation)]; }

  private:
    void count(Operation operation);

    std::vector<Fault> faults_;
    std::function<void()> onFault_;
    std::array<int, 3> calls_{};
    ScopedFileOperations scope_;  // last: its operations use the members above
};

// A temporary folder with shortcuts for the files in it.
class Folder {
  public:
    QString path() const { return dir_.path(); }
    QString file(const QString& name) const { return dir_.filePath(name); }
    void write(const QString& name, const QByteArray& data) const;
    FolderState state() const { return folderState(dir_.path()); }

  private:
    QTemporaryDir dir_;
};

}  // namespace velt::testing
