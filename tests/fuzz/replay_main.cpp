// Replays a fuzz target over files and folders of inputs, without libFuzzer: the suite runs every
// target over its seed corpus in every build (the sanitizer build included).
#include <QCoreApplication>
#include <QDirIterator>
#include <QFile>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        QDirIterator it(QString::fromLocal8Bit(argv[i]), QDir::Files, QDirIterator::Subdirectories);
        QStringList files;
        if (QFileInfo(QString::fromLocal8Bit(argv[i])).isFile())
            files << QString::fromLocal8Bit(argv[i]);
        while (it.hasNext()) files << it.next();
        for (const QString& path : files) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly)) return 2;
            const QByteArray data = file.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(data.constData()),
                                   static_cast<std::size_t>(data.size()));
            ++inputs;
        }
    }
    std::printf("replayed %d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
