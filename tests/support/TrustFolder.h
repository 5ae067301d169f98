// An application folder whose trust file a test writes.
#pragma once

#include "core/CXFileSystem.h"
#include "net/CXSSLContext.h"
#include "tests/support/TempFolder.h"

#include <string>

/// Is the application folder while it lives.
class TrustFolder {
public:
    /// `roots` is PEM text.
    explicit TrustFolder(const std::string& roots) {
        m_folder.WriteFile("data/openssl.crt", roots);
        CXFileSystem::SetApplicationFolder(m_folder.Path());
    }
    ~TrustFolder() { CXFileSystem::SetApplicationFolder(CXString()); }
    TrustFolder(const TrustFolder&) = delete;
    TrustFolder& operator=(const TrustFolder&) = delete;

    TempFolder& GetFolder() { return m_folder; }

private:
    TempFolder m_folder;
};
