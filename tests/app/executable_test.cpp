// The real program's exit codes and messages, and a batch run over a broken image.
#include "app_test_support.h"

#include "imageio/image_io.h"
#include "model/config_file.h"
#include "model/text_catalogue.h"

#include <QDirIterator>
#include <QRegularExpression>
#include <map>

namespace velt::testing {
namespace {

// The command line speaks the saved language whatever LANG says: Russian until English is chosen.
TEST_F(ProgramTest, CommandLinesExitWithTheirCodeAndArgumentErrorsTouchNothing) {
    environment_.insert(QStringLiteral("LANG"), QStringLiteral("en_US.UTF-8"));
    const struct {
        const char* arguments;  // DIR is the empty test folder
        int exitCode;
        const char* text;  // the start of standard output on success, else part of the error
        bool argumentError;
    } cases[] = {
        // Nothing before the last argument error writes anything.
        {"--version", 0, "VELT | Compressor 1.", false},
        {"--version -h", 0, "Запуск: velt-compressor", false},
        {"--frobnicate", 2, "неизвестный параметр: --frobnicate", true},
        {"--preset fast", 2, "неверное значение для --preset: \"fast\"", true},
        {"--format=gif", 2, "неверное значение для --format: \"gif\"", true},
        {"--original delete", 2, "неверное значение для --original", true},
        {"--metadata none", 2, "неверное значение для --metadata: \"none\"", true},
        {"--once DIR --metadata", 2, "нет значения для --metadata", true},
        {"--once DIR --quality jpeg=101", 2, "неверное значение для --quality", true},
        {"--quality jpeg=-1", 2, "неверное значение для --quality", true},
        {"--quality jpg=50", 2, "неверное значение для --quality", true},
        {"--quality jpeg=high", 2, "неверное значение для --quality", true},
        {"--once", 2, "нет значения для --once", true},
        {"--once DIR/missing", 2, "папка не найдена: ", true},
        {"--headless --once DIR", 2, "--once нельзя сочетать с --headless", true},
        {"--once DIR --watch DIR", 2, "--watch нельзя сочетать с --once", true},
        {"--headless=yes", 2, "--headless не принимает значения", true},
        {"--once DIR --jobs 0", 2, "неверное значение для --jobs: \"0\"", true},
        {"--once DIR --jobs=257", 2, "неверное значение для --jobs: \"257\"", true},
        {"--once DIR --jobs many", 2, "неверное значение для --jobs", true},
        {"--headless --jobs 2", 2, "--jobs используется только с --once", true},
        {"--settings --headless", 2, "--settings нельзя сочетать с --headless", true},
        {"--history --show-panel", 2, "--show-panel нельзя сочетать с --history", true},
        {"--settings=yes", 2, "--settings не принимает значения", true},
        {"--headless --redo", 2, "--redo используется только с --once", true},
        {"--once DIR --redo=yes", 2, "--redo не принимает значения", true},
        {"--restore", 2, "нет значения для --restore", true},
        {"--once DIR --restore DIR/a.jpg", 2, "--restore нельзя сочетать с --once", true},
        {"--restore DIR/a.jpg", 1, "Нечего восстанавливать: «a.jpg»", false},
        {"--once DIR", 0, "сжато 0, уже оптимальных 0, с ошибкой 0, сэкономлено 0 Б\n", false},
        {"--headless", 2, "Выберите папку для сжатия\nУкажите папку: velt-compressor --headless",
         false},
    };
    for (const auto& c : cases) {
        const auto [exitCode, out, err] = run(c.arguments);
        EXPECT_EQ(exitCode, c.exitCode) << c.arguments;
        const QString text = QString::fromUtf8(c.text);
        EXPECT_TRUE(exitCode == 0 ? out.startsWith(text) : err.contains(text)) << c.arguments;
        EXPECT_TRUE(entriesIn(folder_.path()).isEmpty()) << c.arguments;
        if (!c.argumentError) continue;
        // The reason and one line pointing to the help; nothing written anywhere.
        EXPECT_TRUE(out.isEmpty() && entriesIn(data_.path()).isEmpty() &&
                    err.startsWith(QStringLiteral("velt-compressor: ") + text) &&
                    err.endsWith(QStringLiteral("\nПодробнее: velt-compressor --help\n")) &&
                    err.count(u'\n') == 2)
            << c.arguments << err.toStdString();
    }

    // The smoke launch starts and exits before it watches anything.
    environment_.insert(QStringLiteral("VELT_LAUNCH_SMOKE"), QStringLiteral("1"));
    EXPECT_EQ(std::get<0>(run("--headless --watch DIR")), 0);
    EXPECT_TRUE(log().contains(QStringLiteral("] Launch smoke complete\n")));
    EXPECT_FALSE(log().contains(QStringLiteral("Start watcher")));
    // So does the desktop program, tray and panel made and nothing watched.
    environment_.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    EXPECT_EQ(std::get<0>(run("")), 0);
    EXPECT_EQ(log().count(QStringLiteral("] Launch smoke complete\n")), 2);
    EXPECT_FALSE(log().contains(QStringLiteral("Start watcher")));

    // A display named but not answering (a stale ssh session): one line, then headless as
    // without a display, never an abort.
    environment_.remove(QStringLiteral("VELT_LAUNCH_SMOKE"));
    environment_.remove(QStringLiteral("QT_QPA_PLATFORM"));
    environment_.insert(QStringLiteral("DISPLAY"), QStringLiteral(":4093"));
    environment_.insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("gone-0"));
    const auto [exitCode, out, err] = run("");
    EXPECT_EQ(exitCode, 2);
    EXPECT_TRUE(err.startsWith(QStringLiteral(
        "velt-compressor: дисплей недоступен (WAYLAND_DISPLAY=gone-0, DISPLAY=:4093); работаю "
        "без окон\nВыберите папку для сжатия\n")))
        << err.toStdString();

    // With English chosen the same lines read English.
    AppConfig english;
    english.language = AppLanguage::english;
    writeFile(data_.filePath(QStringLiteral("native-config.json")), encodeAppConfig(english));
    EXPECT_EQ(std::get<2>(run("--preset fast")),
              QStringLiteral("velt-compressor: bad value for --preset: \"fast\" (expected one of: "
                             "balanced, gentle, maximum, custom)\nSee velt-compressor --help\n"));
}

// A new user's first batch: a PNG converted to JPEG beside the user's own JPEG of the same name,
// and a broken JPEG, which fails the run, is named in the user's words and stays as it was.
TEST_F(ProgramTest, OnceReplacingLosesNoOriginalAndLeavesABrokenFileAsItWas) {
    const auto photo = [](int seed) { return stripedPicture(160, 120, seed); };
    imageio::encodeImage(photo(7), ImageFormat::jpeg, 98, file("photo.jpg"));
    imageio::encodeImage(photo(13), ImageFormat::png, 0, file("photo.png"));
    const QByteArray broken = QByteArray("\xFF\xD8\xFF\xE0") + QByteArray(4096, '\x5A');
    writeFile(file("broken.jpg"), broken);
    const QByteArray jpeg = readFile(file("photo.jpg"));
    const QByteArray png = readFile(file("photo.png"));
    const auto [exitCode, out, err] = run("--once DIR --original replace --format jpeg");
    EXPECT_EQ(exitCode, 1) << out.toStdString() << err.toStdString();
    EXPECT_TRUE(out.contains(QStringLiteral("ошибка         broken.jpg: ") +
                             text(AppLanguage::russian, Text::fileDamaged) + u'\n') &&
                out.contains(QStringLiteral(", с ошибкой 1, ")))
        << out.toStdString();

    // Every original is at its place or, byte for byte, in the backup folder; no temporary file
    // is left, and a batch does not choose the folder.
    QList<QByteArray> kept;
    QDirIterator it(folder_.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) kept << readFile(it.next());
    EXPECT_TRUE(kept.contains(jpeg));
    EXPECT_TRUE(kept.contains(png));
    EXPECT_EQ(readFile(file("broken.jpg")), broken);
    EXPECT_EQ(entriesIn(folder_.path()),
              words(".velt-compressor-backups broken.jpg photo-2.jpg photo.jpg"));
    EXPECT_FALSE(QFileInfo::exists(data_.filePath(QStringLiteral("native-config.json"))));

    // Undone from the command line: the PNG back as it was, and only once.
    const auto [restored, restoredOut, restoredErr] = run("--restore DIR/photo-2.jpg");
    EXPECT_EQ(restored, 0) << restoredErr.toStdString();
    EXPECT_EQ(readFile(file("photo.png")), png);
    EXPECT_EQ(entriesIn(folder_.path()),
              words(".velt-compressor-backups broken.jpg photo.jpg photo.png"));
    const auto [again, againOut, againErr] = run("--restore DIR/photo.png");
    EXPECT_EQ(again, 1);
    EXPECT_EQ(againErr.count(QLatin1Char('\n')), 1) << againErr.toStdString();
}

// A replaced photo is never compressed a second time with the same settings, even when the
// registry that remembers it is lost (a kill before its save) or cannot be written at all.
TEST_F(ProgramTest, OwnOutputIsNeverCompressedAgainWithoutTheRegistry) {
    for (const bool unwritableDataFolder : {false, true}) {
        QTemporaryDir folder;
        const QString photo = folder.filePath(QStringLiteral("photo.jpg"));
        imageio::encodeImage(stripedPicture(320, 240, 7), ImageFormat::jpeg, 98, photo);
        if (unwritableDataFolder) {
            const QString blocked = data_.filePath(QStringLiteral("not-a-folder"));
            writeFile(blocked, "a file where the data folder should be");
            environment_.insert(QStringLiteral("VELT_CONFIG_DIR"), blocked);
        }
        QByteArray compressed;
        for (int run = 0; run < 2; ++run) {
            QProcess process;
            launch(process, {QStringLiteral("--once"), folder.path(), QStringLiteral("--original"),
                             QStringLiteral("replace")});
            ASSERT_TRUE(process.waitForFinished(30000));
            const QString out = QString::fromUtf8(process.readAllStandardOutput());
            EXPECT_EQ(process.exitCode(), 0) << out.toStdString();
            if (run == 0) {
                EXPECT_TRUE(out.startsWith(QStringLiteral(
                    "сжат           photo.jpg (заменён, исходник — в резервной копии)  "
                    "сэкономлено ")))
                    << out.toStdString();
                compressed = readFile(photo);
                for (const char* suffix : {"", "-wal", "-shm"})
                    QFile::remove(data_.filePath(QStringLiteral("processed-files.sqlite") +
                                                 QLatin1String(suffix)));
            } else {
                EXPECT_TRUE(out.contains(QStringLiteral("уже сжат этой программой")))
                    << out.toStdString();
            }
        }
        EXPECT_EQ(readFile(photo), compressed) << "compressed twice";
        QDirIterator backups(folder.filePath(QStringLiteral(".velt-compressor-backups")),
                             QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        int count = 0;
        while (backups.hasNext()) count += !backups.next().isEmpty();
        EXPECT_EQ(count, 1) << "the compressed copy was backed up as an original";
    }
}

// Several workers give the same files, the same bytes and the same summary as one, and a stop
// in the middle leaves nothing of ours behind.
TEST_F(ProgramTest, ParallelBatchMatchesOneWorkerAndStopsClean) {
    const auto fill = [](const QString& folder) {
        const std::tuple<const char*, ImageFormat, int, int> photos[] = {
            {"a.jpg", ImageFormat::jpeg, 98, 3},     {"b.jpg", ImageFormat::jpeg, 97, 5},
            {"c.png", ImageFormat::png, 0, 7},       {"same.png", ImageFormat::png, 0, 9},
            {"same.jpg", ImageFormat::jpeg, 99, 11},
        };
        for (const auto& [name, format, quality, seed] : photos)
            imageio::encodeImage(stripedPicture(200, 150, seed), format, quality,
                                 QDir(folder).filePath(QLatin1String(name)));
    };
    std::map<QString, QByteArray> bytes[2];
    QString summaries[2];
    for (int jobs = 1; jobs <= 2; ++jobs) {
        QTemporaryDir folder;
        fill(folder.path());
        QProcess process;
        launch(process,
               {QStringLiteral("--once"), folder.path(), QStringLiteral("--format"),
                QStringLiteral("jpeg"), QStringLiteral("--original"), QStringLiteral("replace"),
                QStringLiteral("--jobs"), QString::number(jobs)});
        ASSERT_TRUE(process.waitForFinished(60000));
        const QString out = QString::fromUtf8(process.readAllStandardOutput());
        EXPECT_EQ(process.exitCode(), 0) << out.toStdString();
        summaries[jobs - 1] = out.section(QLatin1Char('\n'), -2);
        for (const QString& name : QDir(folder.path()).entryList(QDir::Files | QDir::Hidden))
            bytes[jobs - 1][name] = readFile(QDir(folder.path()).filePath(name));
    }
    EXPECT_EQ(summaries[0], summaries[1]);
    EXPECT_EQ(bytes[0], bytes[1]) << "two workers wrote other files or other bytes";
    EXPECT_EQ(bytes[1].size(), 5u);  // same.png became same-2.jpg beside the user's same.jpg

    // A stop while both workers are inside an encoder.
    QTemporaryDir tools;
    ASSERT_TRUE(
        QFile::link(QStringLiteral(VELT_HANG_TOOL), tools.filePath(QStringLiteral("cjpeg"))));
    fill(folder_.path());
    environment_.insert(QStringLiteral("VELT_TOOL_DIR"), tools.path());
    QProcess stopped;
    launch(stopped, {QStringLiteral("--once"), folder_.path(), QStringLiteral("--jobs"),
                     QStringLiteral("2")});
    ASSERT_TRUE(waitFor(stopped, [&] {
        return log().count(QStringLiteral("Processed ")) >= 1 ||
               entriesIn(folder_.path()).size() > 5;
    }));
    ::kill(static_cast<pid_t>(stopped.processId()), SIGINT);
    ASSERT_TRUE(stopped.waitForFinished(10000));
    for (const QString& name : entriesIn(folder_.path()))
        EXPECT_FALSE(name.startsWith(QLatin1Char('.'))) << name.toStdString();
}

// The user's stop holds when the program is launched the way the autostart entry does.
TEST_F(ProgramTest, HeadlessLaunchKeepsCompressionSwitchedOff) {
    AppConfig config;
    config.enabled = false;
    config.watchDirectory = folder_.path();
    const QString configFile = data_.filePath(QStringLiteral("native-config.json"));
    writeFile(configFile, encodeAppConfig(config));
    const QByteArray saved = readFile(configFile);
    writeFile(file("photo.png"), "would be processed");
    const auto [exitCode, out, err] = run("--headless");
    EXPECT_EQ(exitCode, 0);
    EXPECT_TRUE(err.contains(QStringLiteral("switched off")) ||
                err.contains(QStringLiteral("выключено")))
        << err.toStdString();
    EXPECT_EQ(readFile(configFile), saved);
    EXPECT_FALSE(log().contains(QStringLiteral("Start watcher")));
}

}  // namespace
}  // namespace velt::testing
