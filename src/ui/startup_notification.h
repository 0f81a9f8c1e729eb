// The launcher's startup feedback on X11 (the busy pointer a menu shows after a click) ends when
// the program maps a window carrying the launch's id. A program that opens no window — a tray
// icon, or a second launch that hands its request to the running copy and ends — says it is
// there itself, with the "remove" message of the freedesktop startup-notification protocol.
//
// Main thread only. REQUIRES: a QGuiApplication exists.
#pragma once

#include <QString>

namespace velt::ui {

// Ends the feedback for `startupId` (DESKTOP_STARTUP_ID of the launch). Nothing off X11 or for
// an empty id.
void completeX11Startup(const QString& startupId);

}  // namespace velt::ui
