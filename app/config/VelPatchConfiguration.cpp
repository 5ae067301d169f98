#include "app/config/VelPatchConfiguration.h"

#include "app/config/VelPatchLanguage.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "core/CXLanguages.h"
#include "core/CXLocalisation.h"
#include "core/CXStringEdit.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "net/CXURI.h"
#include "stream/CXStreamFile.h"

#include <vector>

namespace {

DNValueRef& Root() {
    static DNValueRef root(new DNMemoryValue);
    return root;
}

bool IsFilledFolder(const DNValue& value) {
    return value.IsFolder() && value.GetChildCount() > 0;
}

CXString PathInData(const CXString& name) {
    const CXString data = CXFileSystem::Join(CXFileSystem::GetApplicationFolder(), "data");
    return CXFileSystem::Join(data, name);
}

void LoadLanguage(const DNValue& language) {
    for (size_t i = 0; i < language.GetChildCount(); ++i) {
        CXStringEdit text(language.ChildAt(i)->GetString().View());
        text.NormaliseLineEndings("\n");
        SetLocalisedString(language.KeyAt(i).GetString(), text.ToString());
    }
}

} // namespace

CXString GetConfigurationPath() {
    return PathInData("patch-config.txt");
}

DNValueRef ReadConfigurationFile(const CXString& path) {
    CXStreamFile file;
    file.Open(path, kOpenRead);
    if (file.GetLastError() != kCXResultOK) {
        return new DNMemoryValue;
    }
    return TextConfig::Read(file);
}

CXString ServiceBaseOf(const DNValue& root) {
    constexpr absl::string_view kScheme("https://");
    const CXString configured = root.Get("patch-service-base")->GetString();
    const bool isUsable = configured.View().substr(0, kScheme.size()) == kScheme;
    CXStringEdit base(isUsable ? configured.View() : absl::string_view(VELPATCH_SERVICE_BASE));
    if (base.View().empty() || base.View().back() != '/') {
        base.AppendByte('/');
    }
    return base.ToString();
}

DNValueRef GetConfigurationRoot() {
    return Root();
}

void LoadApplicationConfiguration() {
    Root() = ReadConfigurationFile(GetConfigurationPath());
    if (!IsFilledFolder(*Root())) {
        return;
    }
    const DNValueRef locales = Root()->Get("locales");
    std::vector<CXString> names;
    for (size_t i = 0; i < locales->GetChildCount(); ++i) {
        names.push_back(locales->KeyAt(i).GetString());
    }
    if (names.empty()) {
        return;
    }
    LoadLanguage(*locales->Get(SelectLanguage(names, GetPreferredLanguages())));
}

bool ApplyConfiguration(VelPatchConfiguration& configuration, VelPatchSettings& settings,
                        CXString& title) {
    const DNValueRef root = Root();
    if (!IsFilledFolder(*root)) {
        return false;
    }
    const auto text = [&root](const char* key) { return root->Get(key)->GetString(); };
    VelPatchProcessSettings& process = GetProcessSettings();

    configuration.anchorFile = text("patch-anchor-file");
    configuration.bundleId = text("application-bundle-id");
    configuration.productName = text("product-name");
    configuration.installationFolderName =
        root->Get("installation-folder-name")->GetString("untitled.app");
    configuration.installationId = text("installation-id");
    configuration.serviceBase = ServiceBaseOf(*root);
    const CXString controlFile = text("patch-control-file");
    configuration.isOffline = !controlFile.IsEmpty();
    configuration.isInstallation = root->Get("patch-is-installation")->GetBool();
    if (configuration.isInstallation) {
        process.launchTargetOnExit = true;
    }
    if (configuration.isOffline) {
        settings.patchControlFile = FileURIOfPath(PathInData(controlFile));
        const CXString dataFile = text("patch-data-file");
        settings.patchDataFile =
            dataFile.IsEmpty() ? CXString() : FileURIOfPath(PathInData(dataFile));
        if (!configuration.isInstallation) {
            configuration.anchorChecksum = text("patch-anchor-checksum");
        }
        configuration.offlineDescription = GetLocalisedString("$velpatch_offline_description");
    }
    configuration.registryEdits = root->Get("registry-edits");
    configuration.startMenuShortcutFolder = text("start-menu-shortcut-folder");
    configuration.shortcutFilename = text("shortcut-filename");
    if (process.uninstall) {
        // An uninstall asks no service.
        configuration.isOffline = true;
        configuration.isInstallation = true;
    }

    CXStringEdit key(absl::string_view("$velpatch_window_name"));
    if (configuration.isInstallation) {
        key.Append("_install");
    }
    if (configuration.isOffline) {
        key.Append("_offline");
    }
    title = FormatLocalisedString(key.ToString(), configuration.productName);
    return true;
}

CXString FileURIOfPath(const CXString& path) {
    if (!CXFileSystem::IsAbsolute(path)) {
        return CXString();
    }
    const CXString encoded = CXURI::Encode(path, "/");
    const absl::string_view view = path.View();
    CXStringEdit uri(absl::string_view("file:"));
    if (view[0] != '/') {
        uri.Append("///");
    } else if (view.substr(0, 2) != absl::string_view("//")) {
        uri.Append("//");
    }
    uri.Append(encoded);
    return uri.ToString();
}
