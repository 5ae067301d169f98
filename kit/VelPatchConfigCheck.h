// Finds what is wrong with a product's data folder before players do.
#pragma once

#include "core/CXString.h"
#include "kit/VelPatchConfigDocument.h"

#include <cstddef>
#include <cstdint>
#include <vector>

struct VelPatchConfigFinding {
    bool isError = false; ///< false: it works, but perhaps not as meant
    size_t line = 0;      ///< of patch-config.txt, from 1; 0: no line of it
    CXString key;         ///< path of the key, or a file's name
    CXString text;        ///< in plain words
};

/// Looks at "patch-config.txt" and the files beside it. Changes nothing. One thread.
class VelPatchConfigCheck {
public:
    /// `now` in ms since the Unix epoch: certificates are judged by it.
    VelPatchConfigCheck(const CXString& dataFolder, int64_t now)
        : m_folder(dataFolder), m_now(now) {}

    void Run();
    /// In the order of the lines; what has none comes last.
    const std::vector<VelPatchConfigFinding>& GetFindings() const { return m_findings; }
    size_t CountErrors() const;

private:
    // VelPatchConfigCheck.cpp
    void CheckDocument();
    void CheckKeys();
    void CheckNames();
    void CheckAnchor();
    void CheckOffline();
    void CheckShippedData(const CXString& controlPath);
    void CheckService();
    void CheckRegistry();
    void CheckPicture(const char* name);
    void CheckTrustFile();

    // VelPatchConfigCheck_Texts.cpp
    void CheckLanguages();
    void CheckLanguage(const DNValueRef& languages, const CXString& name,
                       const DNValueRef& language);
    void CheckText(const DNValueRef& language, const CXString& where, const CXString& key,
                   const CXString& text);
    void CheckArguments(const struct VelPatchTextKey& known, const CXString& text, size_t line,
                        const CXString& where);
    void CheckLicence(const CXString& file, size_t line, const CXString& where);
    void CheckReferences(const DNValueRef& language, const CXString& where);

    void Add(bool isError, size_t line, const CXString& key, const CXString& text) {
        m_findings.push_back({isError, line, key, text});
    }
    /// About a key of the file's top level.
    void AddOfKey(bool isError, const char* key, const CXString& text) {
        Add(isError, m_document.GetLine(m_document.GetRoot(), key), key, text);
    }
    CXString GetText(const char* key) const { return m_document.GetRoot()->Get(key)->GetString(); }
    CXString InFolder(const CXString& name) const;
    bool IsInstallation() const;
    bool IsOffline() const { return !GetText("patch-control-file").IsEmpty(); }

    const CXString m_folder;
    const int64_t m_now;
    VelPatchConfigDocument m_document;
    std::vector<VelPatchConfigFinding> m_findings;
};
