// A service file as text: its tree, and where its keys stand.
#pragma once

#include "core/CXString.h"
#include "kit/VelPatchConfigDocument.h"

#include <initializer_list>
#include <vector>

/// Reads the text once and then answers typed questions about its keys. Whatever is wrong is kept
/// as a problem, "FILE:LINE: key/key: words", and reading goes on, so that one run tells of
/// everything. One thread.
class VelPatchPublishText {
public:
    /// One key that holds a value or a folder, and where it stands.
    struct Entry {
        CXString name;
        DNValueRef value;
        CXString keys; ///< from the root to here, "/" between them
        size_t line = 0;

        bool IsFolder() const { return value->IsFolder(); }
    };

    /// `fileName` is what problems call the file.
    VelPatchPublishText(const CXString& fileName, absl::string_view text);

    Entry GetRoot() const;
    /// The folder at the key; one without entries, standing where `parent` does, if it is missing
    /// or no folder.
    Entry GetFolder(const Entry& parent, const char* key);
    /// A folder's entries in the file's order.
    std::vector<Entry> GetEntries(const Entry& folder) const;
    /// The value as text. Numbers that would lose their form, folders and control characters are
    /// problems, and so is an empty text if `isRequired`. Line ends pass if `allowsLines`.
    CXString GetText(const Entry& parent, const char* key, bool isRequired,
                     bool allowsLines = false);
    /// Whether the value is true; false if it is missing. Any word but "true" and "false" is a
    /// problem.
    bool GetFlag(const Entry& parent, const char* key);
    /// Problems for entries that are none of these.
    void AllowKeys(const Entry& folder, std::initializer_list<const char*> keys);
    /// Whether the text holds control characters or NUL.
    static bool IsPlain(absl::string_view text, bool allowsLines);

    /// "FILE:LINE: key/key".
    CXString GetPlace(const Entry& entry) const;
    /// `key` of an entry may be missing: the place is then the entry's own.
    void Complain(const Entry& entry, const char* key, const CXString& words);
    void Complain(const CXString& place, const CXString& words);

    const std::vector<CXString>& GetProblems() const { return m_problems; }

private:
    Entry MakeEntry(const Entry& parent, const CXString& name, const DNValueRef& value) const;
    void ComplainAt(size_t line, const CXString& words);

    CXString m_fileName;
    VelPatchConfigDocument m_document;
    std::vector<CXString> m_problems;
};
