#include "tests/support/Environment.h"

#include "core/win32_api.h"

#include <cstdlib>

void SetTestEnvironment(const std::string& name, const std::string& value) {
    SetEnvironmentVariableA(name.c_str(), value.empty() ? nullptr : value.c_str());
    _putenv_s(name.c_str(), value.c_str());
}

void RedirectTemporaryFolder(const std::string& folder) {
    SetTestEnvironment("TMP", folder);
    SetTestEnvironment("TEMP", folder);
}
