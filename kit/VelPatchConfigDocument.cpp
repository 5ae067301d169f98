#include "kit/VelPatchConfigDocument.h"

#include "core/CXStringEdit.h"
#include "dn/DNMemoryValue.h"
#include "stream/CXStreamTools.h"

#include <algorithm>

namespace {

/// No configuration is near this size, in bytes.
constexpr uint64_t kLargestFile = 0x1000000;

/// A line ends with CR, LF, or both.
std::vector<size_t> FindLineStarts(absl::string_view text) {
    std::vector<size_t> starts = {0};
    for (size_t i = 0; i < text.size(); i++) {
        const bool isPair = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
        if (text[i] == '\n' || (text[i] == '\r' && !isPair)) {
            starts.push_back(i + 1);
        }
    }
    return starts;
}

} // namespace

CXResult VelPatchConfigDocument::Load(const CXString& path) {
    CXStringEdit text;
    const CXResult result = ReadWholeFile(path, text, kLargestFile);
    if (result == kCXResultOK) {
        Read(text);
    } else {
        m_root = new DNMemoryValue;
    }
    return result;
}

void VelPatchConfigDocument::Read(absl::string_view text) {
    m_root = new DNMemoryValue;
    m_hasMark = text.substr(0, 3) == "\xEF\xBB\xBF";
    m_isUTF16 = text.substr(0, 2) == "\xFF\xFE" || text.substr(0, 2) == "\xFE\xFF";
    m_lineStarts = FindLineStarts(text);
    m_trace.entry = [this](const DNValueRef& folder, const CXString& key, size_t offset) {
        if (m_folders.empty() || m_folders.back() != folder) {
            m_folders.push_back(folder);
        }
        const auto [entry, isNew] = m_keys.try_emplace({folder.Get(), key}, offset);
        if (!isNew) {
            m_repeats.push_back({key, LineAt(offset), LineAt(entry->second)});
            entry->second = offset;
        }
    };
    m_trace.close = [this](const DNValueRef& folder, size_t offset) {
        m_ends[folder.Get()] = offset;
    };
    TextConfig::Parse(text.data(), text.size(), *m_root, &m_trace);
    m_trace.entry = nullptr;
    m_trace.close = nullptr;
}

size_t VelPatchConfigDocument::GetOffset(const DNValueRef& folder, const CXString& key) const {
    const auto found = m_keys.find({folder.Get(), key});
    return found != m_keys.end() ? found->second : TextConfig::Trace::kNowhere;
}

size_t VelPatchConfigDocument::GetEndOffset(const DNValueRef& folder) const {
    const auto found = m_ends.find(folder.Get());
    return found != m_ends.end() ? found->second : TextConfig::Trace::kNowhere;
}

size_t VelPatchConfigDocument::GetLine(const DNValueRef& folder, const CXString& key) const {
    return LineAt(GetOffset(folder, key));
}

size_t VelPatchConfigDocument::LineAt(size_t offset) const {
    if (offset == TextConfig::Trace::kNowhere) {
        return 0;
    }
    return static_cast<size_t>(std::upper_bound(m_lineStarts.begin(), m_lineStarts.end(), offset) -
                               m_lineStarts.begin());
}
