// Shows a file or a folder in the user's file manager: over the freedesktop FileManager1 service
// (a folder opened, a file selected in its folder), else through xdg-open on the folder. Where
// neither answers (no file manager installed), `notShown` is called, later, on the main thread.
#pragma once

#include <QString>
#include <functional>

namespace velt::ui {

void showInFileManager(const QString& path, std::function<void()> notShown);

}  // namespace velt::ui
