#include "support/test_environment.h"

#include <QDir>

#include <gtest/gtest.h>
#include <unistd.h>
#include <QFile>

namespace velt::testing {

ScopedEnvironment::ScopedEnvironment(const char* name, const std::optional<QByteArray>& value)
    : name_(name) {
    if (qEnvironmentVariableIsSet(name)) previous_ = qgetenv(name);
    if (value)
        qputenv(name, *value);
    else
        qunsetenv(name);
}

ScopedEnvironment::~ScopedEnvironment() {
    if (previous_)
        qputenv(name_.constData(), *previous_);
    else
        qunsetenv(name_.constData());
}

IsolatedDataFolder::IsolatedDataFolder()
    : config_("VELT_CONFIG_DIR", dir_.path().toUtf8()),
      log_("VELT_LOG_DIR", dir_.path().toUtf8()) {}

void writeFile(const QString& path, const QByteArray& data) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    ASSERT_EQ(file.write(data), data.size());
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    return file.readAll();
}

bool runningAsRoot() {
    return geteuid() == 0;
}

QStringList fileNamesIn(const QString& folder) {
    QStringList names = QDir(folder).entryList(QDir::Files | QDir::Hidden);
    names.sort();
    return names;
}

}  // namespace velt::testing
