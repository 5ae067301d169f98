// Environment variables for tests that redirect folders.
#pragma once

#include <string>

/// Sets a variable of this process; an empty value removes it.
void SetTestEnvironment(const std::string& name, const std::string& value);

/// Redirects the system's folder for temporary files to `folder`.
void RedirectTemporaryFolder(const std::string& folder);
