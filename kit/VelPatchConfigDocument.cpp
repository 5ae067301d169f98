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
    m_root = new DNMemoryValue;
    CXStringEdit text;
    const CXResult result = ReadWholeFile(path, text, kLargestFile);
    if (result != kCXResultOK) {
        return result;
    }
    m_lineStarts = FindLineStarts(text);
    m_trace.entry = [this](const DNValueRef& folder, const CXString& key, size_t offset) {
        const size_t line = LineAt(offset);
        if (m_folders.empty() || m_folders.back() != folder) {
            m_folders.push_back(folder);
        }
        const auto [entry, isNew] = m_lines.try_emplace({folder.Get(), key}, line);
        if (!isNew) {
            m_repeats.push_back({key, line, entry->second});
            entry->second = line;
        }
    };
    TextConfig::Parse(text.GetData(), text.GetLength(), *m_root, &m_trace);
    m_trace.entry = nullptr;
    return kCXResultOK;
}

size_t VelPatchConfigDocument::GetLine(const DNValueRef& folder, const CXString& key) const {
    const auto found = m_lines.find({folder.Get(), key});
    return found != m_lines.end() ? found->second : 0;
}

size_t VelPatchConfigDocument::LineAt(size_t offset) const {
    if (offset == TextConfig::Trace::kNowhere) {
        return 0;
    }
    return static_cast<size_t>(std::upper_bound(m_lineStarts.begin(), m_lineStarts.end(), offset) -
                               m_lineStarts.begin());
}
