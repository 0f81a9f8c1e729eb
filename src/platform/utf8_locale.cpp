#include "platform/utf8_locale.h"

#include <langinfo.h>
#include <strings.h>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>

namespace velt {
namespace {

bool environmentLocaleIsUtf8() {
    // Fails as a whole when any category names a locale that is not installed.
    if (std::setlocale(LC_ALL, "") == nullptr) return false;
    const char* codeset = nl_langinfo(CODESET);
    return strcasecmp(codeset, "UTF-8") == 0 || strcasecmp(codeset, "utf8") == 0;
}

// "ru_RU.KOI8-R" → "ru_RU.UTF-8" when installed, else "C.UTF-8".
std::string utf8VariantOfCurrentCharacterType() {
    const char* current = std::setlocale(LC_CTYPE, nullptr);
    std::string base = current != nullptr ? current : "C";
    base = base.substr(0, base.find_first_of(".@"));
    const std::string candidate = base + ".UTF-8";
    if (std::setlocale(LC_CTYPE, candidate.c_str()) != nullptr) return candidate;
    return "C.UTF-8";
}

}  // namespace

void useUtf8Locale() {
    if (environmentLocaleIsUtf8()) return;
    // LC_ALL overrides every category, so it is the one to change when set.
    const char* all = std::getenv("LC_ALL");
    const char* variable = all != nullptr && *all != '\0' ? "LC_ALL" : "LC_CTYPE";
    setenv(variable, utf8VariantOfCurrentCharacterType().c_str(), 1);
    // Another category may name a locale that is not installed: then nothing but C.UTF-8 loads.
    if (!environmentLocaleIsUtf8()) setenv("LC_ALL", "C.UTF-8", 1);
    environmentLocaleIsUtf8();
}

}  // namespace velt
