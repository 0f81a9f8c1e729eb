// Whether a file is a native program this computer can run.
#pragma once

#include <QString>

namespace velt {

// True only for an ELF (or Mach-O) executable of the running CPU family: x86-64 on x86-64,
// 64-bit Arm on 64-bit Arm. Scripts, foreign binaries and unreadable files give false.
bool executableSupportsCurrentArchitecture(const QString& path);

}  // namespace velt
