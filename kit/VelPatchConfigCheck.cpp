#include "kit/VelPatchConfigCheck.h"

#include "app/config/VelPatchConfiguration.h"
#include "app/config/VelPatchRegistryEdits.h"
#include "core/CXFileSystem.h"
#include "core/CXText.h"
#include "kit/VelPatchResultText.h"
#include "kit/VelPatchTree.h"
#include "net/CXSSLContext.h"
#include "net/CXTrustFile.h"
#include "net/CXURI.h"
#include "patch/PatchControl.h"
#include "patch/PatchPaths.h"
#include "stream/CXStreamFile.h"

#include <algorithm>

namespace {

/// Time in which a studio can still ship another trust file to all players.
constexpr int64_t kSoonDays = 90;
constexpr int64_t kMillisecondsPerDay = 86400000;

constexpr const char* kConfigName = "patch-config.txt";
constexpr const char* kTrustName = "openssl.crt";

constexpr const char* kKeys[] = {
    "application-bundle-id",
    "installation-folder-name",
    "installation-id",
    "locales",
    "patch-anchor-checksum",
    "patch-anchor-file",
    "patch-control-file",
    "patch-data-file",
    "patch-is-installation",
    "patch-service-base",
    "product-name",
    "registry-edits",
    "start-menu-shortcut-folder",
    "shortcut-filename",
};

bool IsKnownKey(const CXString& key) {
    return std::any_of(std::begin(kKeys), std::end(kKeys),
                       [&key](const char* known) { return key == known; });
}

bool IsChecksum(absl::string_view text) {
    return text.size() == 32 &&
           text.find_first_not_of("0123456789abcdef") == absl::string_view::npos;
}

/// A path below a folder as Windows takes it, spelled in the one way that is compared.
bool IsPlainRelativePath(const CXString& path) {
    if (!IsSafeOperationPath(path, true) || path.FindChar('\\') >= 0 ||
        CXFileSystem::NormalisePath(path) != path) {
        return false;
    }
    for (CXString rest = path; !rest.IsEmpty(); rest = CXFileSystem::GetParent(rest)) {
        if (!IsNameForWindows(CXFileSystem::GetFileName(rest))) {
            return false;
        }
    }
    return true;
}

} // namespace

CXString VelPatchConfigCheck::InFolder(const CXString& name) const {
    return CXFileSystem::Join(m_folder, name);
}

bool VelPatchConfigCheck::IsInstallation() const {
    return m_document.GetRoot()->Get("patch-is-installation")->GetBool();
}

size_t VelPatchConfigCheck::CountErrors() const {
    return static_cast<size_t>(
        std::count_if(m_findings.begin(), m_findings.end(),
                      [](const VelPatchConfigFinding& finding) { return finding.isError; }));
}

void VelPatchConfigCheck::Run() {
    m_findings.clear();
    const CXResult loaded = m_document.Load(InFolder(kConfigName));
    if (loaded != kCXResultOK || m_document.GetRoot()->GetChildCount() == 0) {
        Add(true, 0, kConfigName,
            loaded != kCXResultOK ? CXString::Format("can't be read: %s", ResultText(loaded))
                                  : CXString("holds nothing"));
        return;
    }
    if (m_document.IsUTF16()) {
        Add(true, 1, kConfigName, "is in UTF-16; it must be in UTF-8");
        return; // nothing else in it could be told
    }
    CheckDocument();
    CheckKeys();
    CheckNames();
    CheckAnchor();
    CheckOffline();
    CheckService();
    CheckRegistry();
    CheckLanguages();
    CheckPicture("patch.bmp");
    CheckPicture("velpatch-background.bmp");
    CheckTrustFile();
    std::stable_sort(m_findings.begin(), m_findings.end(), [](const auto& a, const auto& b) {
        return a.line - 1 < b.line - 1; // no line wraps around to the end
    });
}

void VelPatchConfigCheck::CheckDocument() {
    if (m_document.HasByteOrderMark()) {
        Add(false, 1, kConfigName,
            "begins with a byte order mark, which the program takes for a part of the first word");
    }
    if (m_document.GetStrayBraceLine() != 0) {
        Add(true, m_document.GetStrayBraceLine(), "}",
            "closes nothing; all that follows is not read");
    }
    if (m_document.GetOpenFolderLine() != 0) {
        Add(true, m_document.GetOpenFolderLine(), "{", "is never closed");
    }
    if (m_document.GetOpenTextLine() != 0) {
        Add(true, m_document.GetOpenTextLine(), "\"",
            "begins a text that never ends; a quote inside a text must be doubled");
    }
    for (const VelPatchConfigDocument::Repeat& repeat : m_document.GetRepeats()) {
        Add(false, repeat.line, repeat.key,
            CXString::Format("stands in line %d already; the later value counts",
                             repeat.firstLine));
    }
}

void VelPatchConfigCheck::CheckKeys() {
    const DNValueRef& root = m_document.GetRoot();
    for (size_t i = 0; i < root->GetChildCount(); i++) {
        const CXString key = root->KeyAt(i).GetString();
        const bool isFolder = root->ChildAt(i)->IsFolder();
        if (!IsKnownKey(key)) {
            Add(false, m_document.GetLine(root, key), key, "is not a key that the program reads");
        } else if (isFolder != (key == "locales" || key == "registry-edits")) {
            Add(true, m_document.GetLine(root, key), key,
                isFolder ? "should be a text, not a block" : "should be a block in braces");
        }
    }
    const CXString word = GetText("patch-is-installation");
    if (!EqualsNoCase(word, "true") && !EqualsNoCase(word, "false") && !word.IsEmpty()) {
        AddOfKey(true, "patch-is-installation", "is neither true nor false, and counts as false");
    }
}

void VelPatchConfigCheck::CheckNames() {
    if (GetText("product-name").IsEmpty()) {
        AddOfKey(false, "product-name", "is missing, so the window's title names no product");
    }
    if (!IsNameForWindows(GetText("application-bundle-id"))) {
        AddOfKey(true, "application-bundle-id",
                 "must be a file name: it names the folder of the player's settings");
    }
    if (GetText("installation-id").IsEmpty()) {
        AddOfKey(IsInstallation() && !IsOffline(), "installation-id",
                 "is missing: the service and the uninstall entry know no product");
    }
    const CXString folderName = GetText("installation-folder-name");
    if (folderName.IsEmpty()) {
        AddOfKey(IsInstallation(), "installation-folder-name",
                 "is missing: players would see \"untitled.app\"");
    } else if (!IsNameForWindows(folderName)) {
        AddOfKey(true, "installation-folder-name", "can't be the name of a folder");
    }
    const CXString shortcut = GetText("shortcut-filename");
    if (!shortcut.IsEmpty() && !IsNameForWindows(shortcut)) {
        AddOfKey(true, "shortcut-filename", "can't be the name of a file");
    }
    const CXString menu = GetText("start-menu-shortcut-folder");
    if (!menu.IsEmpty() && !IsPlainRelativePath(menu)) {
        AddOfKey(true, "start-menu-shortcut-folder", "can't be a folder of the start menu");
    }
}

void VelPatchConfigCheck::CheckAnchor() {
    const CXString anchor = GetText("patch-anchor-file");
    if (anchor.IsEmpty()) {
        AddOfKey(true, "patch-anchor-file", "is missing: no game could be found by it");
    } else if (!IsPlainRelativePath(anchor)) {
        AddOfKey(true, "patch-anchor-file",
                 "could match no file: it must be a path below the game's folder, with \"/\" "
                 "between names that Windows takes, and without \".\" and \"..\"");
    }
    const CXString checksum = GetText("patch-anchor-checksum");
    if (IsOffline() && !IsInstallation()) {
        if (!IsChecksum(checksum)) {
            AddOfKey(true, "patch-anchor-checksum",
                     checksum.IsEmpty()
                         ? "is missing: an offline patch would accept no build"
                         : "could match no build: it must have 32 digits, in lower case");
        }
    } else if (!checksum.IsEmpty()) {
        AddOfKey(false, "patch-anchor-checksum", "is only looked at by an offline patch");
    }
}

void VelPatchConfigCheck::CheckOffline() {
    if (!IsOffline()) {
        if (!GetText("patch-data-file").IsEmpty()) {
            AddOfKey(false, "patch-data-file", "is not looked at without patch-control-file");
        }
        return;
    }
    for (const char* key : {"patch-control-file", "patch-data-file"}) {
        const CXString name = GetText(key);
        if (!name.IsEmpty() && !IsPlainRelativePath(name)) {
            AddOfKey(true, key, "can't be a file of the data folder");
        } else if (!name.IsEmpty() && !CXFileSystem::Exists(InFolder(name))) {
            AddOfKey(false, key,
                     CXString::Format("'%s' isn't there yet", InFolder(name).GetData()));
        }
    }
    const CXString controlPath = InFolder(GetText("patch-control-file"));
    if (CXFileSystem::Exists(controlPath)) {
        CheckShippedData(controlPath);
    }
}

void VelPatchConfigCheck::CheckShippedData(const CXString& controlPath) {
    PatchControl control;
    const CXResult result = LoadControlFile(CXURI(FileURIOfPath(controlPath)), control);
    if (result != kCXResultOK || control.operations.empty()) {
        AddOfKey(true, "patch-control-file",
                 result != kCXResultOK ? CXString::Format("is no control file that can be used: %s",
                                                          ResultText(result))
                                       : CXString("is a control file without operations"));
        return;
    }
    const CXString name = GetText("patch-data-file");
    CXStreamFile data;
    if (!name.IsEmpty()) {
        data.Open(InFolder(name), kOpenRead);
    }
    if (data.IsOpen() && control.dataSize > 0 &&
        data.GetSize() != static_cast<uint64_t>(control.dataSize)) {
        AddOfKey(true, "patch-data-file",
                 CXString::Format("has %d bytes, and the control file says %d", data.GetSize(),
                                  control.dataSize));
    }
}

void VelPatchConfigCheck::CheckService() {
    const CXString base = GetText("patch-service-base");
    if (base.IsEmpty()) {
        if (!IsOffline()) {
            AddOfKey(false, "patch-service-base",
                     "is missing: the service is asked at the address that the program was built "
                     "with");
        }
        return;
    }
    const CXURI uri{base.View()};
    if (base.View().substr(0, 8) != "https://" || uri.host.IsEmpty()) {
        AddOfKey(true, "patch-service-base", "is no https address, and is passed over");
    }
}

void VelPatchConfigCheck::CheckRegistry() {
    const DNValueRef list = m_document.GetRoot()->Get("registry-edits");
    for (const VelPatchRegistryFault& fault : CheckRegistryEdits(ReadRegistryEdits(*list))) {
        const CXString name = list->KeyAt(fault.entry).GetString();
        const CXString key = fault.key;
        const size_t line = m_document.GetLine(list->ChildAt(fault.entry), key);
        CXString where = CXString::Format("registry-edits/%s", name.GetData());
        if (!key.IsEmpty()) {
            where = CXString::Format("%s/%s", where.GetData(), fault.key);
        }
        Add(fault.isError, line != 0 ? line : m_document.GetLine(list, name), where, fault.text);
    }
    static constexpr const char* kFields[] = {"root", "path", "name", "type", "value"};
    for (size_t i = 0; i < list->GetChildCount(); i++) {
        const DNValueRef entry = list->ChildAt(i);
        for (size_t k = 0; k < entry->GetChildCount(); k++) {
            const CXString key = entry->KeyAt(k).GetString();
            if (std::none_of(std::begin(kFields), std::end(kFields),
                             [&key](const char* known) { return key == known; })) {
                Add(false, m_document.GetLine(entry, key),
                    CXString::Format("registry-edits/%s/%s", list->KeyAt(i).GetString().GetData(),
                                     key.GetData()),
                    "is not a key that the program reads");
            }
        }
    }
}

void VelPatchConfigCheck::CheckPicture(const char* name) {
    const CXString path = InFolder(name);
    if (!CXFileSystem::Exists(path)) {
        Add(false, 0, name, "is missing; the window shows no picture in its place");
        return;
    }
    CXStreamFile file;
    file.Open(path, kOpenRead);
    char magic[2] = {};
    if (file.Read(magic, sizeof(magic)) != sizeof(magic) || magic[0] != 'B' || magic[1] != 'M') {
        Add(true, 0, name, "is no bitmap (.bmp)");
    }
}

void VelPatchConfigCheck::CheckTrustFile() {
    const CXString path = InFolder(kTrustName);
    if (IsOffline() && !CXFileSystem::Exists(path)) {
        return;
    }
    std::vector<CXTrustedRoot> roots;
    CXSSLContext context;
    if (ReadTrustFile(path, roots) != kCXResultOK || context.LoadVerifyFile(path) != kCXResultOK) {
        Add(!IsOffline(), 0, kTrustName,
            CXFileSystem::Exists(path)
                ? "doesn't load: it must be a PEM file of certificates, all of them sound"
                : "is missing: no server would be trusted");
        return;
    }
    size_t usable = 0;
    for (const CXTrustedRoot& root : roots) {
        const int64_t days = (root.validUntil - m_now) / kMillisecondsPerDay;
        if (root.validUntil <= m_now) {
            Add(false, 0, kTrustName,
                CXString::Format("the certificate '%s' has expired", root.subject.GetData()));
        } else if (root.validFrom > m_now) {
            Add(false, 0, kTrustName,
                CXString::Format("the certificate '%s' isn't valid yet", root.subject.GetData()));
        } else {
            usable++;
            if (days < kSoonDays) {
                Add(false, 0, kTrustName,
                    CXString::Format("the certificate '%s' expires in %d days",
                                     root.subject.GetData(), days));
            }
        }
    }
    if (usable == 0) {
        Add(!IsOffline(), 0, kTrustName, "holds no certificate that is valid today");
    }
}
