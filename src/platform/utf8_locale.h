// The program reads and writes file names as UTF-8, whatever locale it was started in.
#pragma once

namespace velt {

// Makes the environment's character type UTF-8 before the toolkit starts. A service or an ssh
// session often runs with LANG=C or with a locale that is not installed; the toolkit would switch
// to UTF-8 itself but prints a four-line warning on every start (journal spam under a service).
// Changes only the character type where it can, and the tools we start inherit the same choice.
void useUtf8Locale();

}  // namespace velt
