#include "model/text_catalogue.h"

#include <QHash>
#include <array>

namespace velt {
namespace {

constexpr TextPair pairs[] = {
#define VELT_TEXT(id, russian, english) {Text::id, u"" russian, u"" english},
#include "model/texts/catalogue.def"
#undef VELT_TEXT
};

constexpr QStringView codes[] = {
#define VELT_TEXT(id, russian, english) u"" #id,
#include "model/texts/catalogue.def"
#undef VELT_TEXT
};

const TextPair& pairOf(Text id) {
    return pairs[static_cast<std::size_t>(id)];
}

}  // namespace

QString text(AppLanguage language, Text id) {
    const TextPair& pair = pairOf(id);
    return text(language, pair.russian.toString(), pair.english.toString());
}

QString text(AppLanguage language, Text id, const QStringList& arguments) {
    const QString pattern = text(language, id);
    QString filled;
    filled.reserve(pattern.size());
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        const QChar c = pattern.at(i);
        const qsizetype index = i + 1 < pattern.size() ? pattern.at(i + 1).digitValue() - 1 : -1;
        if (c == QLatin1Char('%') && index >= 0 && index < arguments.size()) {
            filled += arguments.at(index);
            ++i;
        } else {
            filled += c;
        }
    }
    return filled;
}

QString code(Text id) {
    return codes[static_cast<std::size_t>(id)].toString();
}

std::optional<Text> textFromCode(const QString& code) {
    static const QHash<QString, Text> byCode = [] {
        QHash<QString, Text> table;
        for (const TextPair& pair : pairs) table.insert(velt::code(pair.id), pair.id);
        return table;
    }();
    const auto found = byCode.constFind(code);
    if (found == byCode.constEnd()) return std::nullopt;
    return *found;
}

std::span<const TextPair> textCatalogue() {
    return pairs;
}

}  // namespace velt
