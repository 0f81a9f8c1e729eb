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
                          QStringLiteral("balanced, gentle, maximum, custom"));
        if (option == QLatin1String("--format"))
            return choice(option, formatFromText, request_.overrides.formatStrategy,
                          QStringLiteral("automatic, jpeg, png, webp, avif, heic"));
        if (option == QLatin1String("--original"))
            return choice(option, originalFromText, request_.overrides.originalPolicy,
                          QStringLiteral("keep, replace"));
        if (option == QLatin1String("--metadata"))
            return choice(option, metadataPolicyFromRawValue, request_.overrides.metadataPolicy,
                          QStringLiteral("keepWithoutLocation, keepAll, strip"));
        if (option == QLatin1String("--redo")) {
            request_.redo = true;
            return inlineValue_ ? std::optional(takesNoValue(option)) : std::nullopt;
        }
        if (option == QLatin1String("--jobs")) {
            const auto value = takeValue();
            if (!value) return missing(option);
            bool isNumber = false;
            const int jobs = value->toInt(&isNumber);
            if (!isNumber || jobs < 1 || jobs > 256)
                return CommandLineError{{Text::usageBadJobs, {*value}}};
            request_.jobs = jobs;
            return std::nullopt;
        }
        if (option == QLatin1String("--quality")) {
            const auto value = takeValue();
            if (!value) return missing(option);
            if (!parseQuality(*value, request_.overrides.qualities))
                return CommandLineError{{Text::usageBadQuality, {*value}}};
            return std::nullopt;
        }
        return CommandLineError{{Text::usageUnknownOption, {option}}};
    }

    using Action = CommandLineRequest::Action;
    using DesktopPart = CommandLineRequest::DesktopPart;

    std::optional<CommandLineError> part(const QString& option, DesktopPart part) {
        if (inlineValue_) return takesNoValue(option);
        if (request_.open && *request_.open != part) return cannotCombine(option, partOption_);
        request_.open = part;
        partOption_ = option;
        return std::nullopt;
    }

    std::optional<CommandLineError> flag(const QString& option, Action action) {
        if (inlineValue_) return takesNoValue(option);
        if (action == Action::showVersion) {
            version_ = true;
            return std::nullopt;
        }
        return setMode(option, action);
    }

    std::optional<CommandLineError> setMode(const QString& option, Action action) {
        if (mode_ && *mode_ != action) return cannotCombine(option, modeOption_);
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
        if (!folder) return CommandLineError{{Text::usageFolderNotFound, {*value}}};
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
        return {{Text::usageMissingValue, {option}}};
    }
    static CommandLineError bad(const QString& option, const QString& value,
                                const QString& expected) {
        return {{Text::usageBadValue, {option, value, expected}}};
    }
    static CommandLineError takesNoValue(const QString& option) {
        return {{Text::usageTakesNoValue, {option}}};
    }
    static CommandLineError cannotCombine(const QString& option, const QString& other) {
        return {{Text::usageCannotCombine, {option, other}}};
    }

    Result finish() {
        const QString once = QStringLiteral("--once");
        if (request_.watchDirectory && mode_ == Action::once)
            return cannotCombine(QStringLiteral("--watch"), once);
        if (request_.jobs && mode_ != Action::once)
            return CommandLineError{{Text::usageGoesWith, {QStringLiteral("--jobs"), once}}};
        if (request_.open && mode_) return cannotCombine(partOption_, modeOption_);
        if (request_.redo && mode_ != Action::once)
            return CommandLineError{{Text::usageGoesWith, {QStringLiteral("--redo"), once}}};
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

QString usageText(AppLanguage language) {
    return text(language, Text::usage);
}

QString versionText() {
    return appName + QLatin1Char(' ') + QString::fromLatin1(veltVersion);
}

}  // namespace velt
