// Whether the window systems named in the environment answer, checked before the toolkit is
// started: a toolkit that cannot reach its display aborts the process, and an ssh session often
// carries a DISPLAY or WAYLAND_DISPLAY that nothing listens on any more.
//
// Connects with the window systems' own client libraries (libxcb, libwayland-client), loaded
// only for the check, so that a system without one of them still runs.
#pragma once

#include <QString>
#include <optional>

namespace velt {

struct DisplayChoice {
    // The toolkit platform to start ("wayland" or "xcb"), or empty to leave the choice to the
    // toolkit (QT_QPA_PLATFORM set by the user, or both displays answering).
    QString platform;
};

// What to start the desktop program on, or nothing when no display answers; `tried` then names
// the displays that were tried ("WAYLAND_DISPLAY=wayland-0, DISPLAY=:0"; empty when none is set).
std::optional<DisplayChoice> reachableDisplay(QString* tried);

}  // namespace velt
