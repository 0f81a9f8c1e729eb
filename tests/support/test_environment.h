// Test helpers: environment variables set for one scope, and files written in one call.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <optional>

namespace velt::testing {

// Sets (or, with nothing, unsets) a variable and restores the previous value on destruction.
class ScopedEnvironment {
  public:
    ScopedEnvironment(const char* name, const std::optional<QByteArray>& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  private:
    QByteArray name_;
    std::optional<QByteArray> previous_;
};

// A fresh temporary folder used as both the data and the log folder for one test.
class IsolatedDataFolder {
  public:
    IsolatedDataFolder();
    QString path() const { return dir_.path(); }
    QString file(const QString& name) const { return dir_.filePath(name); }

  private:
    QTemporaryDir dir_;
    ScopedEnvironment config_;
    ScopedEnvironment log_;
};

void writeFile(const QString& path, const QByteArray& data);
QByteArray readFile(const QString& path);
// Every file name in `folder`, hidden ones included (not the backup folder's), sorted.
QStringList fileNamesIn(const QString& folder);

// Root reads and writes through permission bits, so permission tests only mean something
// for an ordinary user.
bool runningAsRoot();

}  // namespace velt::testing
