#include "app/command_line.h"

#include "app/version.h"
#include "model/constants.h"

#include <QFileInfo>

namespace velt {
namespace {

using Result = std::variant<CommandLineRequest, CommandLineError>;

std::optional<CompressionPreset> presetFromText(const QString& text) {
    for (const CompressionPreset preset : presetMenuCases())
        if (rawValue(preset) == text) return preset;
    return std::nullopt;
}

std::optional<FormatStrategy> formatFromText(const QString& text) {
    for (const FormatStrategy strategy :
         {FormatStrategy::automatic, FormatStrategy::jpeg, FormatStrategy::png,
          FormatStrategy::webp, FormatStrategy::avif, FormatStrategy::heic})
        if (rawValue(strategy) == text) return strategy;
    return std::nullopt;
}

std::optional<OriginalPolicy> originalFromText(const QString& text) {
    if (text == QLatin1String("keep")) return OriginalPolicy::keep;
    if (text == QLatin1String("replace")) return OriginalPolicy::replace;
    return std::nullopt;
}

// "FORMAT=N" with one of the five format names and a whole number 0-100.
bool parseQuality(const QString& text, std::map<ImageFormat, int>& qualities) {
    const qsizetype equals = text.indexOf(QLatin1Char('='));
    if (equals <= 0) return false;
    const QString name = text.left(equals);
    std::optional<ImageFormat> format;
    for (const ImageFormat candidate : allImageFormats) {
        const QString candidateName =
            candidate == ImageFormat::jpeg ? QStringLiteral("jpeg") : fileExtension(candidate);
        if (candidateName == name) format = candidate;
    }
    bool isNumber = false;
    const int quality = text.mid(equals + 1).toInt(&isNumber);
    if (!format || !isNumber || quality < 0 || quality > 100) return false;
    qualities[*format] = quality;
    return true;
}

std::optional<QString> existingFolder(const QString& path) {
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isDir()) return std::nullopt;
    return info.absoluteFilePath();
}

class Parser {
  public:
    explicit Parser(const QStringList& arguments) : arguments_(arguments) {}

    Result parse() {
        while (index_ < arguments_.size()) {
            QString option = arguments_.at(index_++);
            inlineValue_.reset();
            const qsizetype equals = option.indexOf(QLatin1Char('='));
            if (option.startsWith(QLatin1String("--")) && equals > 2) {
                inlineValue_ = option.mid(equals + 1);
                option = option.left(equals);
            }
            if (option == QLatin1String("--help") || option == QLatin1String("-h")) {
                CommandLineRequest help;
                help.action = CommandLineRequest::Action::showHelp;
                return help;
            }
            if (auto error = handle(option)) return *error;
        }
        return finish();
    }

  private:
    std::optional<CommandLineError> handle(const QString& option) {
        if (option == QLatin1String("--version")) return flag(option, Action::showVersion);
        if (option == QLatin1String("--headless")) return flag(option, Action::headless);
        if (option == QLatin1String("--update")) return flag(option, Action::update);
        if (option == QLatin1String("--once")) return folderOption(option, Action::once);
        if (option == QLatin1String("--restore")) {
            const auto value = takeValue();
            if (!value || value->isEmpty()) return missing(option);
            request_.restoreFile = QFileInfo(*value).absoluteFilePath();
            return setMode(option, Action::restore);
        }
        if (option == QLatin1String("--show-panel")) return part(option, DesktopPart::panel);
        if (option == QLatin1String("--settings")) return part(option, DesktopPart::settings);
        if (option == QLatin1String("--history")) return part(option, DesktopPart::history);
        if (option == QLatin1String("--watch")) return folderOption(option, std::nullopt);
        if (option == QLatin1String("--preset"))
            return choice(option, presetFromText, request_.overrides.preset,
                          QStringLiteral("balanced, gentle, maximum or custom"));
        if (option == QLatin1String("--format"))
            return choice(option, formatFromText, request_.overrides.formatStrategy,
                          QStringLiteral("automatic, jpeg, png, webp, avif or heic"));
        if (option == QLatin1String("--original"))
            return choice(option, originalFromText, request_.overrides.originalPolicy,
                          QStringLiteral("keep or replace"));
        if (option == QLatin1String("--metadata"))
            return choice(option, metadataPolicyFromRawValue, request_.overrides.metadataPolicy,
                          QStringLiteral("keepWithoutLocation, keepAll or strip"));
        if (option == QLatin1String("--redo")) {
            request_.redo = true;
            return inlineValue_
                       ? std::optional(CommandLineError{option + QStringLiteral(" takes no value")})
                       : std::nullopt;
        }
        if (option == QLatin1String("--jobs")) {
            const auto value = takeValue();
            if (!value) return missing(option);
            bool isNumber = false;
            const int jobs = value->toInt(&isNumber);
            if (!isNumber || jobs < 1 || jobs > 256)
                return bad(option, *value, QStringLiteral("a whole number from 1 to 256"));
            request_.jobs = jobs;
            return std::nullopt;
        }
        if (option == QLatin1String("--quality")) {
            const auto value = takeValue();
            if (!value) return missing(option);
            if (!parseQuality(*value, request_.overrides.qualities))
                return bad(option, *value,
                           QStringLiteral("FORMAT=N, FORMAT one of jpeg, png, webp, avif, heic "
                                          "and N from 0 to 100"));
            return std::nullopt;
        }
        return CommandLineError{QStringLiteral("unknown option: ") + option};
    }

    using Action = CommandLineRequest::Action;
    using DesktopPart = CommandLineRequest::DesktopPart;

    std::optional<CommandLineError> part(const QString& option, DesktopPart part) {
        if (inlineValue_) return CommandLineError{option + QStringLiteral(" takes no value")};
        if (request_.open && *request_.open != part)
            return CommandLineError{option + QStringLiteral(" cannot be combined with ") +
                                    partOption_};
        request_.open = part;
        partOption_ = option;
        return std::nullopt;
    }

    std::optional<CommandLineError> flag(const QString& option, Action action) {
        if (inlineValue_) return CommandLineError{option + QStringLiteral(" takes no value")};
        if (action == Action::showVersion) {
            version_ = true;
            return std::nullopt;
        }
        return setMode(option, action);
    }

    std::optional<CommandLineError> setMode(const QString& option, Action action) {
        if (mode_ && *mode_ != action)
            return CommandLineError{option + QStringLiteral(" cannot be combined with ") +
                                    modeOption_};
        mode_ = action;
        modeOption_ = option;
        return std::nullopt;
    }

    // --once DIR (a mode) or --watch DIR (no mode of its own).
    std::optional<CommandLineError> folderOption(const QString& option,
                                                 std::optional<Action> mode) {
        const auto value = takeValue();
        if (!value) return missing(option);
        const auto folder = existingFolder(*value);
        if (!folder) return CommandLineError{QStringLiteral("folder not found: ") + *value};
        if (mode) {
            if (auto error = setMode(option, *mode)) return error;
            request_.onceDirectory = *folder;
        } else {
            request_.watchDirectory = *folder;
        }
        return std::nullopt;
    }

    template <typename T, typename Convert>
    std::optional<CommandLineError> choice(const QString& option, Convert convert,
                                           std::optional<T>& target, const QString& expected) {
        const auto value = takeValue();
        if (!value) return missing(option);
        const std::optional<T> converted = convert(*value);
        if (!converted) return bad(option, *value, expected);
        target = converted;
        return std::nullopt;
    }

    std::optional<QString> takeValue() {
        if (inlineValue_) return inlineValue_;
        if (index_ >= arguments_.size()) return std::nullopt;
        return arguments_.at(index_++);
    }

    static CommandLineError missing(const QString& option) {
        return {QStringLiteral("missing value for ") + option};
    }
    static CommandLineError bad(const QString& option, const QString& value,
                                const QString& expected) {
        return {QStringLiteral("bad value for ") + option + QStringLiteral(": \"") + value +
                QStringLiteral("\" (expected ") + expected + QStringLiteral(")")};
    }

    Result finish() {
        if (request_.watchDirectory && mode_ == Action::once)
            return CommandLineError{QStringLiteral("--watch cannot be combined with --once")};
        if (request_.jobs && mode_ != Action::once)
            return CommandLineError{QStringLiteral("--jobs goes with --once")};
        if (request_.open && mode_)
            return CommandLineError{partOption_ + QStringLiteral(" cannot be combined with ") +
                                    modeOption_};
        if (request_.redo && mode_ != Action::once)
            return CommandLineError{QStringLiteral("--redo goes with --once")};
        request_.action = mode_.value_or(Action::run);
        if (version_) request_.action = Action::showVersion;
        return request_;
    }

    const QStringList& arguments_;
    qsizetype index_ = 0;
    std::optional<QString> inlineValue_;
    std::optional<Action> mode_;
    QString modeOption_;
    QString partOption_;
    bool version_ = false;
    CommandLineRequest request_;
};

}  // namespace

Result parseCommandLine(const QStringList& arguments) {
    return Parser(arguments).parse();
}

QString usageText() {
    return QStringLiteral(
        "Usage: velt-compressor [--show-panel | --settings | --history] [--watch DIR] [SETTINGS]\n"
        "       velt-compressor --headless [--watch DIR] [SETTINGS]\n"
        "       velt-compressor --once DIR [--jobs N] [SETTINGS]\n"
        "       velt-compressor --restore FILE\n"
        "       velt-compressor --help | --version\n"
        "\n"
        "Watches one folder and compresses every new image that lands in it.\n"
        "\n"
        "Modes:\n"
        "  (no mode)         the desktop program: an icon in the system tray with its panel (a\n"
        "                    window where there is no tray, and on Wayland); a second launch\n"
        "                    shows the panel of the first; without a display that answers it\n"
        "                    runs headless\n"
        "  --show-panel      open the panel of the running program (or start it and open it)\n"
        "  --settings        open its settings window instead\n"
        "  --history         open its history window instead\n"
        "  --headless        watch the saved folder until SIGINT, SIGTERM or SIGHUP, then stop\n"
        "                    and exit 0; notices are written to standard error, one per line\n"
        "  --watch DIR       watch DIR instead, and save it as the chosen folder (the running\n"
        "                    desktop program switches to it)\n"
        "  --once DIR        compress what is in DIR now (the saved folder is not changed), print\n"
        "                    one line per file as it is done and a summary; exit 0, or 1 when a\n"
        "                    file failed\n"
        "  --jobs N          with --once: compress N files at a time (default: one per core)\n"
        "  --redo            with --once: compress every photo in DIR again with these settings,\n"
        "                    from its original (a kept one, or the verified backup of a replaced\n"
        "                    one), never from the program's own output; without it, settled\n"
        "                    photos are left as they are whatever the settings\n"
        "  --restore FILE    undo the compression of FILE (the original's name or the output's):\n"
        "                    a replaced original comes back from its verified backup, a kept\n"
        "                    original's compressed copy is removed; exit 0, or 1 with one line\n"
        "                    when there is nothing to undo, the backup does not match or the\n"
        "                    original's name is taken by another file\n"
        "  --update          check for a newer release now; when there is one, download, verify\n"
        "                    and install it over this portable bundle and restart the program;\n"
        "                    exit 0 when up to date or handed over, 1 when the update failed\n"
        "\n"
        "Settings for this run only (never saved):\n"
        "  --preset P        balanced, gentle, maximum or custom (brings the preset's qualities)\n"
        "  --format F        automatic, jpeg, png, webp, avif or heic\n"
        "  --original O      keep (write NAME_veltcompressed beside it) or replace (a verified\n"
        "                    backup goes to .velt-compressor-backups first)\n"
        "  --quality F=N     quality 0-100 for jpeg, png, webp, avif or heic; repeatable,\n"
        "                    applied after --preset\n"
        "  --metadata M      what outputs keep of the photo's own data (EXIF, XMP, IPTC: date,\n"
        "                    camera, lens, exposure, copyright): keepWithoutLocation (default;\n"
        "                    GPS and location removed), keepAll or strip\n"
        "\n"
        "Other options:\n"
        "  -h, --help        show this help and exit\n"
        "  --version         print the version and exit\n"
        "\n"
        "A bad value, a missing folder or an unknown option exits 2 without touching anything.\n"
        "\n"
        "Environment:\n"
        "  VELT_CONFIG_DIR   folder of the settings, history and registry files\n"
        "                    (default: ~/.local/share/velt compressor)\n"
        "  VELT_LOG_DIR      folder of native.log (default: the same folder)\n"
        "  VELT_DEBUG_LOG    1, true or yes: also write debug lines to the log\n"
        "  VELT_TOOL_DIR     folder searched first for cjpeg, cwebp, webpmux, pngquant, oxipng\n"
        "  VELT_LAUNCH_SMOKE 1: start, log \"Launch smoke complete\" and exit 0 at once\n"
        "  VELT_UPDATE_MANIFEST_URL  the release manifest to check instead of the published one\n"
        "  SSL_CERT_FILE     certificate authorities to trust besides the system's\n");
}

QString versionText() {
    return appName + QLatin1Char(' ') + QString::fromLatin1(veltVersion);
}

}  // namespace velt
