#include "app/VelPatchRegistryTree.h"

#include "app/config/VelPatchTreeFile.h"
#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"
#include "dn/DNMemoryValue.h"

namespace {

constexpr absl::string_view kTextMark("text:");
constexpr absl::string_view kNumberMark("number:");

CXString NameOf(const DNValue& folder, size_t index) {
    return folder.KeyAt(index).GetString();
}

/// The path without separators at its ends, which mean nothing.
absl::string_view Trim(absl::string_view path) {
    while (!path.empty() && path.front() == '\\') {
        path.remove_prefix(1);
    }
    while (!path.empty() && path.back() == '\\') {
        path.remove_suffix(1);
    }
    return path;
}

/// The entry of that name in any letter case; the end iterator if there is none.
DNIteratorRef Find(DNValue& folder, absl::string_view name) {
    for (size_t i = 0; i < folder.GetChildCount(); i++) {
        if (EqualsNoCase(NameOf(folder, i), name)) {
            return folder.At(i);
        }
    }
    return folder.End();
}

/// The folder of that name; unset if there is none.
DNValueRef FindFolder(DNValue& parent, absl::string_view name) {
    const DNIteratorRef found = Find(parent, name);
    const DNValueRef folder = found->IsEnd() ? DNValueRef() : found->GetValue();
    return folder->IsFolder() ? folder : DNValueRef();
}

DNValueRef FindOrMakeFolder(DNValue& parent, absl::string_view name) {
    const DNIteratorRef found = Find(parent, name);
    return parent.GetOrCreateFolder(
        DNData::String(found->IsEnd() ? CXString(name) : found->GetKey().GetString()));
}

DNValueRef FindKey(DNValue& tree, VelPatchRegistryRoot root, const CXString& path) {
    return FindFolder(*FindFolder(tree, RegistryRootName(root)), Trim(path));
}

/// The text of a text value; false for a number, or for what isn't a value.
bool ReadText(const DNValue& value, CXString& out) {
    const CXString text = value.GetString();
    if (text.View().substr(0, kTextMark.size()) != kTextMark) {
        return false;
    }
    out = CXString(text.View().substr(kTextMark.size()));
    return true;
}

} // namespace

bool VelPatchRegistryTree::Load() {
    if (m_findPath) {
        return ReadTreeFile(m_findPath(), m_tree);
    }
    if (!m_tree.IsSet()) {
        m_tree = new DNMemoryValue;
    }
    return true;
}

CXResult VelPatchRegistryTree::Save() {
    if (!m_findPath) {
        return kCXResultOK;
    }
    const CXString path = m_findPath();
    if (path.IsEmpty()) {
        return kCXResultNotFound;
    }
    CXFileSystem::CreateDirectories(CXFileSystem::GetParent(path));
    return WriteTreeFile(path, *m_tree, CXString());
}

CXResult VelPatchRegistryTree::SetText(Root root, const CXString& path, const CXString& name,
                                       const CXString& text) {
    if (root == Root::None || Trim(path).empty()) {
        return kCXResultInvalidArgument;
    }
    if (!Load()) {
        return kCXResultAccessDenied;
    }
    const DNValueRef hive = FindOrMakeFolder(*m_tree, RegistryRootName(root));
    const DNValueRef key = FindOrMakeFolder(*hive, Trim(path));
    const DNIteratorRef found = Find(*key, name);
    key->SetNew(DNData::String(found->IsEnd() ? name : found->GetKey().GetString()),
                DNData::String(text));
    return Save();
}

CXResult VelPatchRegistryTree::SetString(Root root, const CXString& path, const CXString& name,
                                         const CXString& data) {
    CXStringEdit text(kTextMark);
    text.Append(data);
    return SetText(root, path, name, text.ToString());
}

CXResult VelPatchRegistryTree::SetNumber(Root root, const CXString& path, const CXString& name,
                                         int32_t number) {
    return SetText(root, path, name, CXString::Format("%s%d", kNumberMark, number));
}

CXResult VelPatchRegistryTree::DeleteValue(Root root, const CXString& path, const CXString& name) {
    if (!Load()) {
        return kCXResultAccessDenied;
    }
    const DNValueRef key = FindKey(*m_tree, root, path);
    const DNIteratorRef found = Find(*key, name);
    if (found->IsEnd()) {
        return kCXResultNotFound;
    }
    key->Remove(found);
    return Save();
}

CXResult VelPatchRegistryTree::DeleteKey(Root root, const CXString& path) {
    if (!Load()) {
        return kCXResultAccessDenied;
    }
    const DNValueRef hive = FindFolder(*m_tree, RegistryRootName(root));
    const absl::string_view key = Trim(path);
    const DNIteratorRef found = Find(*hive, key);
    CXStringEdit below(key);
    below.AppendByte('\\');
    for (size_t i = 0; i < hive->GetChildCount(); i++) {
        const CXString name = NameOf(*hive, i);
        if (EqualsNoCase(name.Left(static_cast<int64_t>(below.GetLength())), below)) {
            return kCXResultAccessDenied;
        }
    }
    if (key.empty() || found->IsEnd()) {
        return kCXResultNotFound;
    }
    hive->Remove(found);
    return Save();
}

CXResult VelPatchRegistryTree::ListStrings(Root root, const CXString& path,
                                           std::vector<VelPatchRegistryValue>& out) {
    out.clear();
    if (!Load()) {
        return kCXResultAccessDenied;
    }
    const DNValueRef key = FindKey(*m_tree, root, path);
    for (size_t i = 0; i < key->GetChildCount(); i++) {
        VelPatchRegistryValue value;
        if (ReadText(*key->ChildAt(i), value.data)) {
            value.name = NameOf(*key, i);
            out.push_back(value);
        }
    }
    return key.IsSet() ? kCXResultOK : kCXResultNotFound;
}

CXResult VelPatchRegistryTree::ReadString(Root root, const CXString& path, const CXString& name,
                                          CXString& out) {
    out.Clear();
    if (!Load()) {
        return kCXResultAccessDenied;
    }
    const DNValueRef key = FindKey(*m_tree, root, path);
    const DNIteratorRef found = Find(*key, name);
    return !found->IsEnd() && ReadText(*found->GetValue(), out) ? kCXResultOK : kCXResultNotFound;
}
