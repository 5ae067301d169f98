#include "app/VelPatchWindow.h"

#include "app/VelPatchWindowAccountPage.h"
#include "app/VelPatchWindowCheckPatchPage.h"
#include "app/VelPatchWindowPatchPage.h"
#include "app/VelPatchWindowStreamPage.h"
#include "app/VelPatchWindowTargetPage.h"
#include "app/VelPatchWindowWelcomePage.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "runtime/CXWorkerHost.h"
#include "ui/UIBitmapElement.h"
#include "ui/UIMessageSheet.h"
#include "ui/UIService.h"

#include <utility>

const CXString VelPatchWindow::kNextPage("next-page");
const CXString VelPatchWindow::kPrevPage("prev-page");

namespace {

constexpr UISize kContentSize = {550, 260};
constexpr UIRect kPageFrame = {77, 0, 550, 260};
/// Where the banner stands; its height is that of its picture.
constexpr int32_t kBannerEdge = 13;
constexpr int32_t kBannerRight = 77;

template <typename Page> std::unique_ptr<VelPatchWindowPage> MakePage(VelPatchWindow& window) {
    return std::make_unique<Page>(window);
}

using PageMaker = std::unique_ptr<VelPatchWindowPage> (*)(VelPatchWindow& window);

constexpr PageMaker kMakers[VelPatchWindow::kPageCount] = {
    MakePage<VelPatchWindowWelcomePage>,    MakePage<VelPatchWindowTargetPage>,
    MakePage<VelPatchWindowAccountPage>,    MakePage<VelPatchWindowStreamPage>,
    MakePage<VelPatchWindowCheckPatchPage>, MakePage<VelPatchWindowPatchPage>,
};

bool IsIndex(int32_t index) {
    return index >= 0 && index < VelPatchWindow::kPageCount;
}

CXString PathInData(const char* name) {
    return CXFileSystem::Join(CXFileSystem::Join(CXFileSystem::GetApplicationFolder(), "data"),
                              name);
}

} // namespace

VelPatchWindow::VelPatchWindow(const VelPatchWizardServices& services)
    : CXUIWindow("wizard"), m_services(services) {}

VelPatchWindow::~VelPatchWindow() = default;

void VelPatchWindow::Activate() {
    SetContentSize(kContentSize);
    CXUIWindow::Activate();
    bool isSound = ApplyConfigurationToWindow();
    VelPatchProcessSettings& process = GetProcessSettings();
    if (!process.target.IsEmpty()) {
        isSound = SetTarget(process.target) && isSound;
        process.target.Clear();
    }
    AddPictures();
    if (m_configuration.targetPath.IsEmpty()) {
        const CXString found = m_services.findInstalledTarget(m_configuration);
        if (!found.IsEmpty()) {
            SetTarget(found);
        }
    }
    if (!m_configuration.targetPath.IsEmpty() && process.startImmediately) {
        ShowPage(kPatch);
    }
    if (m_pageIndex < 0) {
        ShowPage(process.settingsOverridden       ? kAccount
                 : m_configuration.isInstallation ? kWelcome
                                                  : kTarget);
    }
    if (!isSound) {
        // Once the window itself is on the screen.
        CXWorkerHost::GetSingleton()->PostToMain(this, [this] { TellDamage(); });
    }
}

void VelPatchWindow::TellDamage() {
    if (!IsClosed()) {
        UIMessageSheet::Tell(this, "This application is damaged. Please redownload it.",
                             kForceClose);
    }
}

void VelPatchWindow::AddPictures() {
    CXBitmap background;
    if (background.Load(PathInData("velpatch-background.bmp")) == kCXResultOK) {
        m_background = AddNew<UIBitmapElement>("background");
        m_background->SetRect({0, 0, background.GetWidth(), background.GetHeight()});
        m_background->SetImage(std::move(background));
        m_background->SetShown(!UIService::Get()->GetBackend().IsHighContrast());
    }
    CXBitmap banner;
    if (banner.Load(PathInData("patch.bmp")) == kCXResultOK) {
        m_banner = AddNew<UIBitmapElement>("banner");
        m_banner->SetRect(
            {kBannerEdge, kBannerEdge, kBannerRight, kBannerEdge + banner.GetHeight()});
        m_banner->SetImage(std::move(banner));
    }
}

void VelPatchWindow::PeerMetricsChanged() {
    if (m_background != nullptr) {
        m_background->SetShown(!UIService::Get()->GetBackend().IsHighContrast());
    }
    CXUIWindow::PeerMetricsChanged();
}

bool VelPatchWindow::ApplyConfigurationToWindow() {
    CXString title = GetTitle();
    const bool isSound = ApplyConfiguration(m_configuration, m_settings, title);
    SetTitle(title);
    return isSound;
}

bool VelPatchWindow::SetTarget(const CXString& path) {
    if (path == m_configuration.targetPath) {
        return true;
    }
    m_configuration.targetPath = path;
    LoadSettings(m_settings, m_configuration.bundleId, path);
    return ApplyConfigurationToWindow();
}

const CXString& VelPatchWindow::GetProductName() const {
    return m_configuration.productName.IsEmpty() ? m_configuration.installationFolderName
                                                 : m_configuration.productName;
}

CXString VelPatchWindow::GetInstalledName() const {
    const CXString name = m_services.readDisplayName(m_configuration);
    return name.IsEmpty() ? m_configuration.installationFolderName : name;
}

void VelPatchWindow::ShowPage(int32_t index) {
    if (index == m_pageIndex) {
        return;
    }
    DropPage();
    m_pageIndex = index;
    if (!IsIndex(index)) {
        Close();
        return;
    }
    std::unique_ptr<VelPatchWindowPage> page = kMakers[index](*this);
    m_page = page.get();
    page->Activate();
    page->SetRect(kPageFrame);
    Add(std::move(page));
    m_page->Shown();
}

void VelPatchWindow::DropPage() {
    if (VelPatchWindowPage* page = std::exchange(m_page, nullptr)) {
        page->ClosePage();
        Remove(page);
    }
}

bool VelPatchWindow::Applies(int32_t index) const {
    const VelPatchProcessSettings& process = GetProcessSettings();
    switch (index) {
    case kWelcome:
        return m_configuration.isInstallation;
    case kAccount:
    case kStream:
        return !m_configuration.isOffline;
    case kCheckPatch:
        return !process.uninstall && !process.streamConfigurationOnly;
    case kPatch:
        return !process.streamConfigurationOnly;
    default: // the target page, and all that is none
        return true;
    }
}

void VelPatchWindow::Step(int32_t direction) {
    int32_t index = m_pageIndex;
    do {
        index += direction;
    } while (!Applies(index));
    ShowPage(index);
}

CXResult VelPatchWindow::ProcessMessage(const CXMessage& message) {
    const bool isNext = message.GetName() == kNextPage;
    if (isNext || message.GetName() == kPrevPage) {
        if (m_page == nullptr || message.GetSource() != m_page) {
            return kCXResultOK; // a second press, of a page that has gone meanwhile
        }
        if (isNext || m_pageIndex >= 1) {
            Step(isNext ? 1 : -1);
            return kCXResultOK;
        }
    }
    if (message.GetName() == kClose && m_page != nullptr && m_page->IsBusy() &&
        !GetProcessSettings().relaunched) {
        UIMessageSheet::Ask(this, "Cancel patch attempt and revert changes?",
                            {{"Quit", kForceClose, UIButtonRole::None},
                             {"Continue Patching", "Cancel-Close", UIButtonRole::Cancel}});
        return kCXResultCancelled;
    }
    if (message.Is("Cancel-Close")) {
        return kCXResultOK;
    }
    return CXUIWindow::ProcessMessage(message);
}

void VelPatchWindow::Close() {
    if (IsClosed()) {
        return;
    }
    const CXString target = m_configuration.targetPath;
    const CXString anchorFile = m_configuration.anchorFile;
    if (!target.IsEmpty()) {
        SaveSettings(m_settings, m_configuration.bundleId, target);
    }
    for (UIBitmapElement** picture : {&m_background, &m_banner}) {
        if (*picture != nullptr) {
            Remove(std::exchange(*picture, nullptr));
        }
    }
    CXUIWindow::Close();
    DropPage();
    UIService* service = UIService::Get();
    if (service->CountWindows() == 0) {
        service->RequestQuit();
    }
    if (GetProcessSettings().launchTargetOnExit) {
        m_services.launchTarget(target, anchorFile);
    }
}
