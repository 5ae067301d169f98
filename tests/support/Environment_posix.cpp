#include "tests/support/Environment.h"

#include <cstdlib>

void SetTestEnvironment(const std::string& name, const std::string& value) {
    if (value.empty()) {
        unsetenv(name.c_str());
    } else {
        setenv(name.c_str(), value.c_str(), 1);
    }
}

void RedirectTemporaryFolder(const std::string& folder) {
    SetTestEnvironment("TMPDIR", folder);
}
