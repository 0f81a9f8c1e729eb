// The catalogue holds every text in both languages, and nothing outside it spells Russian.
#include "model/text_catalogue.h"

#include <gtest/gtest.h>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QSet>

namespace velt {
namespace {

QSet<QString> placeholders(const QString& text) {
    static const QRegularExpression pattern(QStringLiteral("%[1-9]"));
    QSet<QString> found;
    for (const auto& match : pattern.globalMatch(text)) found << match.captured();
    return found;
}

// A text that exists in one language only: empty, English with Cyrillic letters, Russian with
// letters but no Cyrillic one (punctuation alone, as «%1», is Russian enough), the same words
// twice, or the two with different arguments.
TEST(TextCatalogue, EveryTextExistsInBothLanguages) {
    static const QRegularExpression cyrillic(QStringLiteral("\\p{Cyrillic}"));
    static const QRegularExpression letter(QStringLiteral("\\p{L}"));
    for (const TextPair& pair : textCatalogue()) {
        const std::string id = code(pair.id).toStdString();
        EXPECT_FALSE(pair.russian.isEmpty() || pair.english.isEmpty()) << id;
        EXPECT_NE(pair.russian, pair.english) << id;
        EXPECT_FALSE(cyrillic.match(pair.english.toString()).hasMatch())
            << id << ": English with Cyrillic";
        EXPECT_TRUE(cyrillic.match(pair.russian.toString()).hasMatch() ||
                    !letter.match(pair.russian.toString()).hasMatch())
            << id << ": Russian without Cyrillic";
        EXPECT_EQ(placeholders(pair.russian.toString()), placeholders(pair.english.toString()))
            << id;
    }
    // Arguments are filled in one pass: one that holds "%2" stays as it is.
    EXPECT_EQ(text(AppLanguage::english, Text::usageCannotCombine,
                   {QStringLiteral("--a%2"), QStringLiteral("--b")}),
              QStringLiteral("--a%2 cannot be combined with --b"));
}

// Russian words outside the catalogue are texts that escaped it (and whose English twin may be
// missing). The language's own name is the one exception: it reads the same in both.
TEST(TextCatalogue, NoSourceFileOutsideItSpellsRussian) {
    static const QRegularExpression comment(QStringLiteral("//[^\\n]*"));
    static const QRegularExpression cyrillicLine(QStringLiteral("[^\\n]*\\p{Cyrillic}[^\\n]*"));
    const QString root = QStringLiteral(VELT_SOURCE_DIR "/src");
    QDirIterator files(root, {QStringLiteral("*.cpp"), QStringLiteral("*.h")}, QDir::Files,
                       QDirIterator::Subdirectories);
    int checked = 0;
    for (; files.hasNext(); ++checked) {
        const QString path = files.next();
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        // Comments may quote a text; code may not spell one.
        const auto found = cyrillicLine.match(QString::fromUtf8(file.readAll()).remove(comment));
        EXPECT_TRUE(!found.hasMatch() || path.endsWith(QLatin1String("/model/app_language.cpp")))
            << path.mid(root.size()).toStdString() << ": "
            << found.captured().trimmed().toStdString();
    }
    EXPECT_GT(checked, 100);
}

}  // namespace
}  // namespace velt
