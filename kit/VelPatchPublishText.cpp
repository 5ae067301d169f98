#include "kit/VelPatchPublishText.h"

#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"

#include <algorithm>

VelPatchPublishText::VelPatchPublishText(const CXString& fileName, absl::string_view text)
    : m_fileName(fileName), m_root(new DNMemoryValue) {
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isPair = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
        if ((text[i] == '\n' || text[i] == '\r') && !isPair) {
            m_lines.push_back(i + 1);
        }
    }
    TextConfig::Trace trace;
    // A folder that is dropped could lend its address to a later one: all are held until the end.
    std::vector<DNValueRef> held;
    trace.entry = [this, &held](const DNValue& folder, const CXString& key, size_t offset) {
        if (held.empty() || held.back().Get() != &folder) {
            held.emplace_back(const_cast<DNValue*>(&folder));
        }
        const int line = LineOf(offset);
        const auto [place, isNew] = m_places.emplace(std::make_pair(&folder, key), line);
        if (!isNew) {
            Complain(
                CXString::Format("%s:%d", m_fileName.GetData(), line),
                CXString::Format("'%s' stands in line %d already", key.GetData(), place->second));
        }
    };
    TextConfig::Parse(text.data(), text.size(), *m_root, &trace);
    const std::pair<size_t, const char*> ends[] = {
        {trace.strayBrace, "a closing brace that closes nothing"},
        {trace.openText, "a text that begins here is never closed"},
        {trace.openFolder, "a brace that is opened here is never closed"},
    };
    for (const auto& [offset, words] : ends) {
        if (offset != TextConfig::Trace::kNowhere) {
            Complain(CXString::Format("%s:%d", m_fileName.GetData(), LineOf(offset)), words);
        }
    }
}

int VelPatchPublishText::LineOf(size_t offset) const {
    return static_cast<int>(std::upper_bound(m_lines.begin(), m_lines.end(), offset) -
                            m_lines.begin()) +
           1;
}

VelPatchPublishText::Entry VelPatchPublishText::GetRoot() const {
    Entry root;
    root.value = m_root;
    return root;
}

VelPatchPublishText::Entry VelPatchPublishText::MakeEntry(const Entry& parent, const CXString& name,
                                                          const DNValueRef& value) const {
    Entry entry;
    entry.name = name;
    entry.value = value;
    entry.keys = parent.keys.IsEmpty()
                     ? name
                     : CXString::Format("%s/%s", parent.keys.GetData(), name.GetData());
    const auto found = m_places.find({parent.value.Get(), name});
    entry.line = found != m_places.end() ? found->second : parent.line;
    return entry;
}

VelPatchPublishText::Entry VelPatchPublishText::GetFolder(const Entry& parent, const char* key) {
    if (m_places.count({parent.value.Get(), CXString(key)}) != 0) {
        const Entry entry = MakeEntry(parent, CXString(key), parent.value->Get(key));
        if (entry.IsFolder()) {
            return entry;
        }
        Complain(entry, nullptr, "must hold a folder in braces");
    }
    Entry missing = MakeEntry(parent, CXString(key), DNValueRef(new DNMemoryValue));
    missing.line = parent.line;
    return missing;
}

std::vector<VelPatchPublishText::Entry> VelPatchPublishText::GetEntries(const Entry& folder) const {
    std::vector<Entry> entries;
    for (size_t i = 0; i < folder.value->GetChildCount(); ++i) {
        entries.push_back(
            MakeEntry(folder, folder.value->KeyAt(i).GetString(), folder.value->ChildAt(i)));
    }
    return entries;
}

bool VelPatchPublishText::IsPlain(absl::string_view text, bool allowsLines) {
    for (const char byte : text) {
        const auto code = static_cast<unsigned char>(byte);
        const bool isLine = byte == '\n' || byte == '\r' || byte == '\t';
        if ((code < 32 && !(allowsLines && isLine)) || code == 127) {
            return false;
        }
    }
    return true;
}

CXString VelPatchPublishText::GetText(const Entry& parent, const char* key, bool isRequired,
                                      bool allowsLines) {
    const DNValueRef value = parent.value->Get(key);
    const uint32_t type = value->GetType();
    const bool isWhole = type == kDNTypeString || type == kDNTypeInt || type == kDNTypeInt64;
    if (type != kDNTypeNone && !isWhole) {
        Complain(parent, key,
                 value->IsFolder() ? "must be a text, not a folder" : "must stand in quotes");
        return CXString();
    }
    const CXString text = type == kDNTypeNone ? CXString() : value->GetString();
    if (text.IsEmpty() && isRequired) {
        Complain(parent, key, CXString::Format("'%s' is missing", key));
    }
    if (!IsPlain(text, allowsLines)) {
        Complain(parent, key, "holds control characters");
        return CXString();
    }
    return text;
}

void VelPatchPublishText::AllowKeys(const Entry& folder, std::initializer_list<const char*> keys) {
    for (const Entry& entry : GetEntries(folder)) {
        const bool isKnown = std::any_of(keys.begin(), keys.end(),
                                         [&](const char* key) { return entry.name == key; });
        if (!isKnown) {
            Complain(entry, nullptr, "is not a key of this folder");
        }
    }
}

CXString VelPatchPublishText::GetPlace(const Entry& entry) const {
    return entry.keys.IsEmpty() ? m_fileName
                                : CXString::Format("%s:%d: %s", m_fileName.GetData(), entry.line,
                                                   entry.keys.GetData());
}

void VelPatchPublishText::Complain(const Entry& entry, const char* key, const CXString& words) {
    const bool isThere = key != nullptr && m_places.count({entry.value.Get(), CXString(key)}) != 0;
    Complain(GetPlace(isThere ? MakeEntry(entry, CXString(key), DNValueRef()) : entry), words);
}

void VelPatchPublishText::Complain(const CXString& place, const CXString& words) {
    m_problems.push_back(CXString::Format("%s: %s", place.GetData(), words.GetData()));
}
