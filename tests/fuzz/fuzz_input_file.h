// For fuzz targets whose code under test reads a file: the input is written to a private file in
// a memory-backed folder first.
#pragma once

#include <unistd.h>
#include <QByteArray>
#include <QFile>
#include <QString>
#include <cstddef>
#include <cstdint>

namespace velt::fuzzing {

inline QString inputFile(const std::uint8_t* data, std::size_t size, const char* extension) {
    const QString path = QStringLiteral("/dev/shm/velt-fuzz-%1.%2")
                             .arg(::getpid())
                             .arg(QString::fromLatin1(extension));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    return path;
}

}  // namespace velt::fuzzing
