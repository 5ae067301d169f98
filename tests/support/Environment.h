// Environment variables for tests that redirect folders.
#pragma once

#include <cstdlib>
#include <string>

/// Sets a variable of this process; an empty value removes it.
void SetTestEnvironment(const std::string& name, const std::string& value);

/// Redirects the system's folder for temporary files to `folder`.
void RedirectTemporaryFolder(const std::string& folder);

/// Sets (or, with an empty value, removes) a variable for a scope.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const std::string& value) : m_name(name) {
        const char* earlier = std::getenv(name);
        m_earlier = earlier == nullptr ? "" : earlier;
        SetTestEnvironment(name, value);
    }
    ~ScopedVariable() { SetTestEnvironment(m_name, m_earlier); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    const char* m_name;
    std::string m_earlier; ///< empty: not set
};
