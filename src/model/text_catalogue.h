// The catalogue: every text the user reads, in Russian and in English, in one place. The .def
// files under model/texts/ list the texts by area; `text` picks one in the configured language.
// No other file spells a user-visible word (native.log is English and not part of it).
//
// A text may hold %1, %2 … for its arguments (file names, sizes, versions); `text(language, id,
// arguments)` fills them in one pass, so an argument that itself holds "%2" stays as it is.
//
// Everything here is immutable and may be called from any thread.
#pragma once

#include "model/app_language.h"

#include <QString>
#include <QStringList>
#include <QStringView>
#include <optional>
#include <span>

namespace velt {

enum class Text {
#define VELT_TEXT(id, russian, english) id,
#include "model/texts/catalogue.def"
#undef VELT_TEXT
};

QString text(AppLanguage language, Text id);
QString text(AppLanguage language, Text id, const QStringList& arguments);

// A catalogue text with its arguments, in no language yet: what the engine and the store report.
// It is put into words where it is shown, in the language of that moment, and the history stores
// it by its code.
struct Message {
    Text id;
    QStringList arguments;

    QString inLanguage(AppLanguage language) const { return text(language, id, arguments); }
    bool operator==(const Message&) const = default;
};

// The identifier as written in the catalogue ("fileTruncated"): the stable code under which a
// message is stored. Renaming an identifier turns stored messages back into their stored text.
QString code(Text id);
std::optional<Text> textFromCode(const QString& code);

struct TextPair {
    Text id;
    QStringView russian;
    QStringView english;
};

// Every pair, in catalogue order.
std::span<const TextPair> textCatalogue();

}  // namespace velt
