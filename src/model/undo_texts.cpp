#include "model/undo_texts.h"

#include <QFileInfo>

namespace velt {

QString restoreFailureText(RestoreFailure failure, const QString& file, AppLanguage language) {
    const QString name = QFileInfo(file).fileName();
    QString line;
    switch (failure) {
        case RestoreFailure::nothingToRestore:
            line = text(
                language, QStringLiteral("Нечего восстанавливать: «%1» не сжимался программой"),
                QStringLiteral("Nothing to restore: “%1” was not compressed by this program"));
            break;
        case RestoreFailure::backupMissing:
            line = text(language,
                        QStringLiteral("Нет проверенного бэкапа оригинала «%1»; файл не изменён"),
                        QStringLiteral(
                            "No verified backup of the original of “%1”; the file is unchanged"));
            break;
        case RestoreFailure::backupChanged:
            line =
                text(language,
                     QStringLiteral("Бэкап оригинала «%1» изменён или повреждён; файл не изменён"),
                     QStringLiteral("The backup of the original of “%1” was changed or damaged; "
                                    "the file is unchanged"));
            break;
        case RestoreFailure::nameTaken:
            line =
                text(language, QStringLiteral("Имя «%1» занято другим файлом; ничего не изменено"),
                     QStringLiteral("The name “%1” is taken by another file; nothing was changed"));
            break;
        case RestoreFailure::copyChanged:
            line = text(language,
                        QStringLiteral("Сжатая копия «%1» изменена после сжатия; она не удалена"),
                        QStringLiteral("The compressed copy “%1” was changed since it was written; "
                                       "it was not removed"));
            break;
        case RestoreFailure::originalMissing:
            line =
                text(language, QStringLiteral("Оригинала «%1» больше нет; сжатая копия не удалена"),
                     QStringLiteral("The original “%1” is gone; the compressed copy was not "
                                    "removed"));
            break;
    }
    return line.arg(name);
}

QString undoText(UndoText id, AppLanguage language) {
    switch (id) {
        case UndoText::openFile:
            return text(language, QStringLiteral("Открыть"), QStringLiteral("Open"));
        case UndoText::showInFileManager:
            return text(language, QStringLiteral("Показать в папке"),
                        QStringLiteral("Show in file manager"));
        case UndoText::restoreOriginal:
            return text(language, QStringLiteral("Восстановить оригинал"),
                        QStringLiteral("Restore original"));
        case UndoText::removeCompressedCopy:
            return text(language, QStringLiteral("Удалить сжатую копию"),
                        QStringLiteral("Remove compressed copy"));
        case UndoText::restoredStatus:
            return text(language, QStringLiteral("Восстановлено"), QStringLiteral("Restored"));
        case UndoText::nameTakenTitle:
            return text(language, QStringLiteral("Имя оригинала занято"),
                        QStringLiteral("The original's name is taken"));
        case UndoText::nameTakenInfo:
            return text(language,
                        QStringLiteral("Файл «%1» уже есть, и он не будет тронут. Восстановить "
                                       "оригинал рядом как «%2»?"),
                        QStringLiteral("“%1” exists and will not be touched. Restore the original "
                                       "beside it as “%2”?"));
        case UndoText::restoreAsCopy:
            return text(language, QStringLiteral("Восстановить рядом"),
                        QStringLiteral("Restore beside it"));
        case UndoText::cancel:
            return text(language, QStringLiteral("Отмена"), QStringLiteral("Cancel"));
        case UndoText::restoreFailedTitle:
            return text(language, QStringLiteral("Не удалось восстановить"),
                        QStringLiteral("Could not restore"));
        case UndoText::keepBackups:
            return text(language, QStringLiteral("Хранить бэкапы"), QStringLiteral("Keep backups"));
        case UndoText::keepForever:
            return text(language, QStringLiteral("Всегда"), QStringLiteral("Forever"));
        case UndoText::keepDays:
            return text(language, QStringLiteral("%1 дн."), QStringLiteral("%1 days"));
        case UndoText::backupsSize:
            return text(language, QStringLiteral("Бэкапы: %1 шт., %2"),
                        QStringLiteral("Backups: %1 files, %2"));
    }
    return {};
}

}  // namespace velt
