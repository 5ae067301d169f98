#include "kit/VelPatchPublishText.h"

#include "dn/DNMemoryValue.h"

#include <algorithm>

VelPatchPublishText::VelPatchPublishText(const CXString& fileName, absl::string_view text)
    : m_fileName(fileName) {
    m_document.Read(text);
    for (const VelPatchConfigDocument::Repeat& repeat : m_document.GetRepeats()) {
        ComplainAt(repeat.line, CXString::Format("'%s' stands in line %d already",
                                                 repeat.key.GetData(), repeat.firstLine));
    }
    ComplainAt(m_document.GetStrayBraceLine(), "a closing brace that closes nothing");
    ComplainAt(m_document.GetOpenTextLine(), "a text that begins here is never closed");
    ComplainAt(m_document.GetOpenFolderLine(), "a brace that is opened here is never closed");
}

void VelPatchPublishText::ComplainAt(size_t line, const CXString& words) {
    if (line != 0) {
        Complain(CXString::Format("%s:%d", m_fileName.GetData(), line), words);
    }
}

VelPatchPublishText::Entry VelPatchPublishText::GetRoot() const {
    Entry root;
    root.value = m_document.GetRoot();
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
    const size_t line = m_document.GetLine(parent.value, name);
    entry.line = line != 0 ? line : parent.line;
    return entry;
}

VelPatchPublishText::Entry VelPatchPublishText::GetFolder(const Entry& parent, const char* key) {
    if (m_document.GetLine(parent.value, key) != 0) {
        Entry entry = MakeEntry(parent, CXString(key), parent.value->Get(key));
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
    CXString text = type == kDNTypeNone ? CXString() : value->GetString();
    if (text.IsEmpty() && isRequired) {
        Complain(parent, key, CXString::Format("'%s' is missing", key));
    }
    if (!IsPlain(text, allowsLines)) {
        Complain(parent, key, "holds control characters");
        return CXString();
    }
    return text;
}

bool VelPatchPublishText::GetFlag(const Entry& parent, const char* key) {
    const DNValueRef value = parent.value->Get(key);
    const CXString text = value->GetString();
    if (value->GetType() != kDNTypeNone && text != "true" && text != "false") {
        Complain(parent, key, "must be true or false");
    }
    return text == "true";
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
    const bool isThere = key != nullptr && m_document.GetLine(entry.value, key) != 0;
    Complain(GetPlace(isThere ? MakeEntry(entry, CXString(key), DNValueRef()) : entry), words);
}

void VelPatchPublishText::Complain(const CXString& place, const CXString& words) {
    m_problems.push_back(CXString::Format("%s: %s", place.GetData(), words.GetData()));
}
