#include "app/config/VelPatchRegistryEdits.h"

#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "core/CXMD5.h"
#include "core/CXPlatformText.h"
#include "core/CXText.h"
#include "dn/DNValue.h"

#include <set>

namespace {

constexpr absl::string_view kNumberedName("$(iterative_key)");
/// Highest number that is tried as the name of a value.
constexpr int kHighestNumber = 32766;

struct RootName {
    const char* name;
    VelPatchRegistryRoot root;
};
constexpr RootName kRootNames[] = {
    {"HKCR", VelPatchRegistryRoot::ClassesRoot}, {"HKCC", VelPatchRegistryRoot::CurrentConfig},
    {"HKCU", VelPatchRegistryRoot::CurrentUser}, {"HKLM", VelPatchRegistryRoot::LocalMachine},
    {"HKU", VelPatchRegistryRoot::Users},
};

/// The operation of one entry; false if it comes to nothing.
bool MakeOperation(const VelPatchRegistryEdit& edit, const VelPatchRegistryVariables& variables,
                   bool uninstall, VelPatchRegistryOperation& out) {
    out.root = edit.GetRoot();
    if (out.root == VelPatchRegistryRoot::None) {
        return false;
    }
    out.path = ExpandVariables(edit.path, variables);
    out.name = ExpandVariables(edit.name, variables);
    const CXString value = ExpandVariables(edit.value, variables);
    if (uninstall || EqualsNoCase(edit.type, "DELETE")) {
        out.isNumbered = edit.IsNumbered();
        if (out.isNumbered) {
            // Without a variable the value may belong to any other target too.
            if (value == edit.value) {
                return false;
            }
            out.name.Clear();
            out.data = value;
        }
        out.action = out.isNumbered || !out.name.IsEmpty() ? VelPatchRegistryAction::DeleteValue
                                                           : VelPatchRegistryAction::DeleteKey;
        return true;
    }
    if (EqualsNoCase(edit.type, "STRING")) {
        out.action = VelPatchRegistryAction::SetString;
        out.data = value;
        out.isNumbered = edit.IsNumbered();
        if (out.isNumbered) {
            out.name.Clear();
        }
        return true;
    }
    if (EqualsNoCase(edit.type, "DWORD")) {
        out.action = VelPatchRegistryAction::SetNumber;
        out.number = ToInt32(value);
        return true;
    }
    return false;
}

/// Judges one entry by itself.
class EntryCheck {
public:
    EntryCheck(size_t index, const VelPatchRegistryEdit& edit,
               std::vector<VelPatchRegistryFault>& faults)
        : m_index(index), m_edit(edit), m_faults(faults),
          m_variables(MakeRegistryVariables("C:/target", "anchor", "id", 1024)) {}

    void Run() {
        if (m_edit.GetRoot() == VelPatchRegistryRoot::None) {
            Add("root", true,
                m_edit.root.IsEmpty() ? "is missing, so the entry is skipped"
                                      : "names no hive, so the entry is skipped");
        }
        CheckExpansion("path", m_edit.path);
        if (m_edit.path.IsEmpty()) {
            Add("path", true, "is missing");
        }
        if (!m_edit.IsNumbered()) {
            CheckExpansion("name", m_edit.name);
        }
        CheckExpansion("value", m_edit.value);
        CheckType();
    }

private:
    void Add(const char* key, bool isError, const char* text) {
        m_faults.push_back({m_index, key, isError, text});
    }

    void CheckExpansion(const char* key, const CXString& text) {
        // A fault anywhere empties the whole expansion; the "x" tells that from nothing to expand.
        const CXString expanded =
            ExpandVariables(CXString::Format("%sx", text.GetData()), m_variables);
        if (expanded.IsEmpty()) {
            Add(key, true, "has a $(...) that can't be read, which makes the whole text empty");
        } else if (expanded.View().find("$(") != absl::string_view::npos) {
            Add(key, true, "names an unknown variable, which stays as it is written");
        }
    }

    void CheckType() {
        const bool isDelete = EqualsNoCase(m_edit.type, "DELETE");
        const bool isNumber = EqualsNoCase(m_edit.type, "DWORD");
        if (!isDelete && !isNumber && !EqualsNoCase(m_edit.type, "STRING")) {
            Add("type", true, "is none of STRING, DWORD and DELETE, so the entry is skipped");
            return;
        }
        const CXString value = ExpandVariables(m_edit.value, m_variables);
        if (isNumber) {
            const int64_t number = ToInt64(value, INT64_MAX);
            if (number < INT32_MIN || number > INT32_MAX) {
                Add("value", true, "is no decimal number of 32 bits, and counts as 0");
            }
            if (m_edit.IsNumbered()) {
                Add("name", true, "numbers texts alone, not a DWORD");
            }
        } else if (m_edit.IsNumbered() && value == m_edit.value) {
            Add("value", isDelete,
                isDelete ? "holds no variable, so the entry is skipped"
                         : "holds no variable, so an uninstall leaves it");
        }
    }

    const size_t m_index;
    const VelPatchRegistryEdit& m_edit;
    std::vector<VelPatchRegistryFault>& m_faults;
    const VelPatchRegistryVariables m_variables;
};

/// True if taking back `later` also takes away what `first` has set.
bool TakesAway(const VelPatchRegistryEdit& later, const VelPatchRegistryEdit& first) {
    return later.GetRoot() == first.GetRoot() && EqualsNoCase(later.path, first.path) &&
           (later.name.IsEmpty() || (EqualsNoCase(later.name, first.name) && !first.IsNumbered()) ||
            (later.IsNumbered() && first.IsNumbered() && later.value == first.value));
}

} // namespace

const char* RegistryRootName(VelPatchRegistryRoot root) {
    for (const RootName& known : kRootNames) {
        if (known.root == root) {
            return known.name;
        }
    }
    return "";
}

VelPatchRegistryRoot VelPatchRegistryEdit::GetRoot() const {
    for (const RootName& known : kRootNames) {
        if (EqualsNoCase(root, known.name)) {
            return known.root;
        }
    }
    return VelPatchRegistryRoot::None;
}

bool VelPatchRegistryEdit::IsNumbered() const {
    return EqualsNoCase(name, kNumberedName);
}

VelPatchRegistryVariables MakeRegistryVariables(const CXString& target, const CXString& anchorFile,
                                                const CXString& installationId,
                                                uint64_t installedBytes) {
    return {{"TARGETPATH", ToWindowsPath(target)},
            {"ANCHORPATH", ToWindowsPath(CXFileSystem::Join(target, anchorFile))},
            {"TARGETPATHKEY", RegistryKeyOfTarget(installationId, target)},
            {"INSTALLSIZE", CXString::Format("%d", installedBytes >> 10)}};
}

CXString RegistryKeyOfTarget(const CXString& installationId, const CXString& target) {
    const CXString name = CXFileSystem::SanitiseFileName(target);
    return CXString::Format("%s-%s", installationId.GetData(),
                            CXMD5::OfBlock(name.GetData(), name.GetLength()).GetData());
}

std::vector<VelPatchRegistryEdit> ReadRegistryEdits(const DNValue& list) {
    std::vector<VelPatchRegistryEdit> edits;
    for (size_t i = 0; i < list.GetChildCount(); i++) {
        const DNValueRef entry = list.ChildAt(i);
        const auto text = [&entry](const char* key) { return entry->Get(key)->GetString(); };
        edits.push_back({text("root"), text("path"), text("name"), text("type"), text("value")});
    }
    return edits;
}

std::vector<VelPatchRegistryOperation>
ListRegistryOperations(const std::vector<VelPatchRegistryEdit>& edits,
                       const VelPatchRegistryVariables& variables, bool uninstall) {
    std::vector<VelPatchRegistryOperation> operations;
    // Products rely on it that the first entry survives an uninstall.
    for (size_t i = uninstall ? 1 : 0; i < edits.size(); i++) {
        VelPatchRegistryOperation operation;
        if (MakeOperation(edits[uninstall ? edits.size() - i : i], variables, uninstall,
                          operation)) {
            operations.push_back(operation);
        }
    }
    return operations;
}

CXString FindRegistryValueName(const std::vector<VelPatchRegistryValue>& values,
                               const CXString& data, bool allocate) {
    std::set<CXString> taken;
    for (const VelPatchRegistryValue& value : values) {
        if (value.data == data) {
            return value.name;
        }
        taken.insert(value.name);
    }
    for (int number = 1; allocate && number <= kHighestNumber; number++) {
        CXString name = CXString::Format("%d", number);
        if (taken.count(name) == 0) {
            return name;
        }
    }
    return CXString();
}

std::vector<VelPatchRegistryFault>
CheckRegistryEdits(const std::vector<VelPatchRegistryEdit>& edits) {
    std::vector<VelPatchRegistryFault> faults;
    for (size_t i = 0; i < edits.size(); i++) {
        EntryCheck(i, edits[i], faults).Run();
    }
    bool isFirstTaken = edits.empty() || EqualsNoCase(edits[0].type, "DELETE");
    for (size_t i = 1; i < edits.size() && !isFirstTaken; i++) {
        isFirstTaken = TakesAway(edits[i], edits[0]);
    }
    if (!isFirstTaken) {
        faults.push_back({0, "", false,
                          "is the first entry, which an uninstall never undoes, and no other entry "
                          "takes it away"});
    }
    return faults;
}
