#include "install_support.h"

#include "engine/errors.h"
#include "support/test_environment.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QRegularExpression>

namespace velt::testing {

namespace {

const QRegularExpression& uuidPattern() {
    static const QRegularExpression uuid(
        QStringLiteral("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"));
    return uuid;
}

}  // namespace

QString thrownError(const std::function<void()>& action, const QString& root) {
    try {
        action();
    } catch (const FolderCompressorControlError& error) {
        return error.kind() == FolderCompressorControlError::sourceChanged
                   ? QStringLiteral("sourceChanged")
                   : QStringLiteral("cancelled");
    } catch (const FileSystemError& error) {
        QString text = error.description();
        if (!root.isEmpty()) text.replace(root, QStringLiteral("DIR"));
        return text.replace(uuidPattern(), QStringLiteral("UUID"));
    } catch (const std::exception& error) {
        return QStringLiteral("unexpected: ") + QString::fromUtf8(error.what());
    }
    return QString();
}

FolderState folderState(const QString& root) {
    const QRegularExpression& uuid = uuidPattern();
    FolderState state;
    const QDir base(root);
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QString key = base.relativeFilePath(path).replace(uuid, QStringLiteral("UUID"));
        if (QFileInfo(path).isDir())
            state[key + QLatin1Char('/')] = QByteArray();
        else
            state[key] = readFile(path);
    }
    return state;
}

FaultInjector::FaultInjector(std::vector<Fault> faults, std::function<void()> onFault)
    : faults_(std::move(faults)),
      onFault_(std::move(onFault)),
      scope_(FileOperations{[this](const QString& from, const QString& to) {
                                count(Operation::move);
                                moveWithoutReplacing(from, to);
                            },
                            [this](const QString& from, const QString& to) {
                                count(Operation::copy);
                                copyToNewFile(from, to);
                            },
                            [this](const QString& path) {
                                count(Operation::remove);
                                removeFile(path);
                            }}) {}

void FaultInjector::count(Operation operation) {
    const int call = ++calls_[static_cast<std::size_t>(operation)];
    for (const Fault& fault : faults_) {
        if (fault.operation != operation || fault.call != call) continue;
        if (onFault_) onFault_();
        static const char* const names[] = {"move", "copy", "remove"};
        throw FileSystemError(FileSystemError::writeUnknown,
                              QStringLiteral("Injected failure of %1 %2")
                                  .arg(QLatin1String(names[static_cast<int>(operation)]))
                                  .arg(call));
    }
}

void Folder::write(const QString& name, const QByteArray& data) const {
    const QString path = file(name);
    QDir().mkpath(QFileInfo(path).path());
    writeFile(path, data);
}

}  // namespace velt::testing
