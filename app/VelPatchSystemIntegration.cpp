#include "app/VelPatchSystemIntegration.h"

#include "core/CXFileSystem.h"
#include "core/CXPlatformText.h"
#include "core/CXStringEdit.h"
#include "core/CXStringUTF16.h"
#include "patch/UninstallList.h"

namespace {

/// Where the product's content files are opened with the product.
constexpr char kAssociationKey[] = "rspfile\\shell\\open\\command";
/// What follows the product's folder in that command.
constexpr absl::string_view kAssociationTail("\\RSNE.exe\" --installcontent \"%1\"");
constexpr char kUninstallKey[] =
    "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\%s";
/// Longer display names, terminator included, don't count.
constexpr size_t kDisplayNameBytes = 510;
constexpr char kUsualFolder[] = "C:/Program Files";
constexpr char kMakerFolder[] = "Mostrel Works";
constexpr int kLinkNames = 10;

/// Folders that are missing, outermost first.
std::vector<CXString> ListMissing(CXString folder) {
    std::vector<CXString> missing;
    for (; !folder.IsEmpty() && !CXFileSystem::Exists(folder);
         folder = CXFileSystem::GetParent(folder)) {
        missing.insert(missing.begin(), folder);
    }
    return missing;
}

/// Makes a folder of the user's with its parents.
void MakeUserFolder(const CXString& folder) {
    for (const CXString& missing : ListMissing(folder)) {
        CXFileSystem::CreateDirectory(missing);
        CXFileSystem::GiveToFolderOwner(missing);
    }
}

/// Makes one shortcut by the first name that is free; its path goes to `made`.
void MakeShortcut(const CXString& folder, const CXString& name, const CXString& target,
                  std::vector<CXString>& made) {
    MakeUserFolder(folder);
    const absl::string_view extension = CXFileSystem::GetLinkExtension();
    for (int i = 0; i < kLinkNames; i++) {
        const CXString number = i == 0 ? CXString() : CXString::Format(" (%d)", i);
        const CXString path = CXFileSystem::Join(
            folder, CXString::Format("%s%s%s", name.GetData(), number.GetData(), extension));
        if (CXFileSystem::Exists(path)) {
            continue;
        }
        if (CXFileSystem::CreateLink(path, target, CXFileSystem::GetParent(target), name) ==
            kCXResultOK) {
            CXFileSystem::GiveToFolderOwner(path);
            made.push_back(path);
        }
        return;
    }
}

/// What follows is left out if nothing gives the numbered value its name.
void ApplyOperation(VelPatchRegistry& registry, const VelPatchRegistryOperation& operation) {
    const bool isSetting = operation.action == VelPatchRegistryAction::SetString;
    CXString name = operation.name;
    if (operation.isNumbered) {
        name = FindRegistryValueName(operation.root, operation.path, operation.data, isSetting);
        if (name.IsEmpty()) {
            return;
        }
    }
    switch (operation.action) {
    case VelPatchRegistryAction::SetString:
        registry.SetString(operation.root, operation.path, name, operation.data);
        return;
    case VelPatchRegistryAction::SetNumber:
        registry.SetNumber(operation.root, operation.path, name, operation.number);
        return;
    case VelPatchRegistryAction::DeleteValue:
        registry.DeleteValue(operation.root, operation.path, name);
        return;
    case VelPatchRegistryAction::DeleteKey:
        registry.DeleteKey(operation.root, operation.path);
        return;
    }
}

/// The product's folder, from the command that opens its files.
CXString FindAssociatedFolder() {
    CXString command;
    VelPatchRegistry::Current().ReadString(VelPatchRegistryRoot::ClassesRoot, kAssociationKey,
                                           CXString(), command);
    const absl::string_view text = command.View();
    const size_t end = text.find(kAssociationTail);
    if (text.empty() || text[0] != '"' || end == absl::string_view::npos) {
        return CXString();
    }
    return FromWindowsPath(text.substr(1, end - 1));
}

} // namespace

void ApplyRegistryEdits(const VelPatchConfiguration& configuration, bool uninstall) {
    const std::vector<VelPatchRegistryEdit> edits = ReadRegistryEdits(*configuration.registryEdits);
    if (edits.empty()) {
        return;
    }
    const VelPatchRegistryVariables variables = MakeRegistryVariables(
        configuration.targetPath, configuration.anchorFile, configuration.installationId,
        CXFileSystem::GetDirectorySize(configuration.targetPath));
    for (const VelPatchRegistryOperation& operation :
         ListRegistryOperations(edits, variables, uninstall)) {
        ApplyOperation(VelPatchRegistry::Current(), operation);
    }
}

CXString FindRegistryValueName(VelPatchRegistryRoot root, const CXString& path,
                               const CXString& data, bool allocate) {
    std::vector<VelPatchRegistryValue> values;
    VelPatchRegistry::Current().ListStrings(root, path, values);
    return FindRegistryValueName(values, data, allocate);
}

CXString FindInstalledTarget(const VelPatchConfiguration& configuration, bool uninstall) {
    if (uninstall) {
        return CXFileSystem::GetApplicationFolder();
    }
    if (!configuration.isInstallation) {
        return FindAssociatedFolder();
    }
    const CXString programs =
        CXFileSystem::HasWindowsPaths()
            ? CXString(kUsualFolder)
            : CXFileSystem::GetKnownFolder(CXFileSystem::KnownFolder::ProgramFiles);
    return CXFileSystem::Join(CXFileSystem::Join(programs, kMakerFolder),
                              configuration.installationFolderName);
}

void CreateShortcutsAndUninstallList(const VelPatchConfiguration& configuration,
                                     const VelPatchProcessSettings& process) {
    using Folder = CXFileSystem::KnownFolder;
    if (configuration.shortcutFilename.IsEmpty() || process.uninstall) {
        return;
    }
    const CXString& file = configuration.shortcutFilename;
    const CXString extension = CXFileSystem::GetExtension(file);
    const CXString name =
        extension.IsEmpty()
            ? file
            : file.Left(static_cast<int64_t>(file.GetLength() - extension.GetLength() - 1));
    const CXString target = CXFileSystem::GetCanonicalPath(
        CXFileSystem::Join(configuration.targetPath, configuration.anchorFile));
    std::vector<CXString> made;
    const CXString menu = CXFileSystem::GetKnownFolder(Folder::StartMenu);
    if (!menu.IsEmpty()) {
        MakeShortcut(CXFileSystem::Join(menu, configuration.startMenuShortcutFolder), name, target,
                     made);
    }
    const CXString desktop = CXFileSystem::GetKnownFolder(Folder::Desktop);
    if (process.createDesktopShortcut && !desktop.IsEmpty()) {
        MakeShortcut(desktop, name, target, made);
    }
    WriteUninstallList(configuration.targetPath, made);
}

CXString ReadUninstallDisplayName(const VelPatchConfiguration& configuration) {
    const CXString key =
        RegistryKeyOfTarget(configuration.installationId, configuration.targetPath);
    CXString name;
    VelPatchRegistry::Current().ReadString(VelPatchRegistryRoot::LocalMachine,
                                           CXString::Format(kUninstallKey, key.GetData()),
                                           "DisplayName", name);
    const bool fits = (ToUTF16(name).CountUnits() + 1) * sizeof(char16_t) <= kDisplayNameBytes;
    return fits ? name : CXString();
}
