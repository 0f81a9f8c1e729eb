// Shows a file selected in the user's file manager (the freedesktop FileManager1 service); where
// no file manager offers that, opens the folder that holds it.
#pragma once

#include <QString>

namespace velt::ui {

void revealInFileManager(const QString& path);

}  // namespace velt::ui
