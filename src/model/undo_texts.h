// The user's texts of undoing a compression (restoring an original, removing a kept copy) and of
// keeping backups in check, in both interface languages, gathered here so that they live in one
// place.
#pragma once

#include "model/app_language.h"

#include <QString>

namespace velt {

// Why an original could not be restored or a compressed copy removed. Nothing was changed.
enum class RestoreFailure {
    nothingToRestore,  // the program has no compression of this file to undo
    backupMissing,     // no backup of the original exists, or no hash of it was recorded
    backupChanged,     // the backup is there but no longer holds the original (changed, cut)
    nameTaken,         // the original's name is taken by another file
    copyChanged,       // the compressed copy no longer holds what the program wrote
    originalMissing,   // a kept original is gone: its compressed copy is all that is left
};

// One line for the user, naming `file`.
QString restoreFailureText(RestoreFailure failure, const QString& file, AppLanguage language);

enum class UndoText {
    openFile,              // the history row's menu
    showInFileManager,     //
    restoreOriginal,       //
    removeCompressedCopy,  //
    restoredStatus,        // the history's status of a restored file
    nameTakenTitle,        // the question when the original's name is taken
    nameTakenInfo,         // ... its text, with %1 = the name, %2 = the name the copy gets
    restoreAsCopy,         // ... its button
    cancel,                //
    restoreFailedTitle,    // the alert when a restore fails
    keepBackups,           // the settings row
    keepForever,           //
    keepDays,              // "%1 days"
    backupsSize,           // "%1 files, %2"
};

QString undoText(UndoText id, AppLanguage language);

}  // namespace velt
