#include "app/config/VelPatchLanguage.h"

#include <cstdlib>

VelPatchSystemLanguages GetSystemLanguages() {
    VelPatchSystemLanguages system;
    system.preferred =
        LanguagesFromEnvironment([](const char* name) -> const char* { return std::getenv(name); });
    return system;
}
