// A configuration file with the line of each of its keys.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "dn/TextConfig.h"

#include <cstddef>
#include <map>
#include <utility>
#include <vector>

/// Read by the program's own reader. Lines count from 1. One thread.
class VelPatchConfigDocument {
public:
    /// A key that stands twice in one folder.
    struct Repeat {
        CXString key;
        size_t line = 0;
        size_t firstLine = 0;
    };

    /// The file's tree; kCXResultNotFound and the like if it can't be read.
    CXResult Load(const CXString& path);
    /// The same from memory.
    void Read(absl::string_view text);

    const DNValueRef& GetRoot() const { return m_root; }
    /// Where the key stands in the folder, the last time if it stands there more than once; 0 if it
    /// doesn't.
    size_t GetLine(const DNValueRef& folder, const CXString& key) const;
    /// Offset of the key, the last one likewise; TextConfig::Trace::kNowhere if it isn't there.
    size_t GetOffset(const DNValueRef& folder, const CXString& key) const;
    /// Offset of the folder's closing brace, the last one if it was opened more than once.
    size_t GetEndOffset(const DNValueRef& folder) const;
    const std::vector<Repeat>& GetRepeats() const { return m_repeats; }
    /// What editors write in front of a text, and the reader doesn't know.
    bool HasByteOrderMark() const { return m_hasMark; }
    bool IsUTF16() const { return m_isUTF16; }
    /// Lines of what the reader could not make sense of; 0 if nothing is wrong.
    size_t GetStrayBraceLine() const { return LineAt(m_trace.strayBrace); }
    size_t GetOpenFolderLine() const { return LineAt(m_trace.openFolder); }
    size_t GetOpenTextLine() const { return LineAt(m_trace.openText); }

private:
    size_t LineAt(size_t offset) const;

    DNValueRef m_root;
    bool m_hasMark = false;
    bool m_isUTF16 = false;
    TextConfig::Trace m_trace;
    std::vector<size_t> m_lineStarts;                             ///< offsets
    std::map<std::pair<const DNValue*, CXString>, size_t> m_keys; ///< offsets
    std::map<const DNValue*, size_t> m_ends;                      ///< offsets
    std::vector<DNValueRef> m_folders; ///< kept, so that no other folder gets one's address
    std::vector<Repeat> m_repeats;
};
