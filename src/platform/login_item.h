// The login item: an XDG autostart entry, ~/.config/autostart/velt-compressor.desktop, that
// starts the program when the user logs in.
//
// Called on the main thread only.
#pragma once

#include <QString>

namespace velt {

// $XDG_CONFIG_HOME/autostart/velt-compressor.desktop (~/.config/... without the variable).
QString loginItemFilePath();

// Whether the autostart entry exists.
bool loginItemRegistered();

// The command the entry runs for the program at `executable`: the Exec line of the .desktop file
// installed with it (<executable dir>/../share/applications/velt-compressor.desktop) when that
// line starts this very program, so that logging in starts what the application menu starts;
// otherwise the executable's own path, quoted (a build tree, a bundle whose menu entry names a
// command not on PATH).
QString autostartCommand(const QString& executable);

// Writes the entry so that it starts `executable` (the running program when empty), by
// autostartCommand(). Returns false, after logging why, when the folder or the file cannot be
// written.
bool registerLoginItem(const QString& executable = {});

// Removes the entry. True when it is gone afterwards (also when it never existed).
bool unregisterLoginItem();

}  // namespace velt
