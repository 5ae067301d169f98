// What the parts of the window remember between runs.
#pragma once

#include "core/CXString.h"
#include "dn/DNValue.h"

/// One tree of settings under labels, kept in a file of its own in text form. Main thread.
class CXApplicationSettings {
public:
    /// Reads the file; a missing or unreadable one starts empty.
    void Open(const CXString& path);
    /// Forgets the tree; the file stays as it is.
    void Close();
    bool IsOpen() const { return m_isOpen; }

    /// The value stored under the label; the shared empty value if there is none.
    DNValueRef GetSettingsByLabel(const CXString& label) const;
    /// Stores the value and rewrites the file. Not open, or a file that can't be made: logged. When
    /// the file can't be made the value is kept in memory all the same.
    void SetSettingsByLabel(const CXString& label, const DNValueRef& value);

private:
    bool m_isOpen = false;
    CXString m_path;
    DNValueRef m_root;
};
