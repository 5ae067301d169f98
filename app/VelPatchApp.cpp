#include "app/VelPatchApp.h"

#include "app/config/VelPatchProcessSettings.h"
#include "core/CXLocalisation.h"
#include "runtime/CXMessage.h"
#include "ui/CXMenuManager.h"
#include "ui/UIMessageSheet.h"
#include "ui/UIService.h"

#include <utility>
#include <vector>

namespace {

std::vector<UIMenu> MakeMenus() {
    const auto item = [](const char* command, const char* key, uint32_t shortcut = 0) {
        return UIMenuItem{command, GetLocalisedString(key), shortcut};
    };
    return {
        {"File", {item("close-front-window", "$velpatch_menu_close", 'W')}},
        {GetLocalisedString("$velpatch_menu_edit"),
         {item("edit-undo", "$velpatch_menu_undo", 'Z'),
          item("edit-redo", "$velpatch_menu_redo", 'Y'),
          item("edit-cut", "$velpatch_menu_cut", 'X'),
          item("edit-copy", "$velpatch_menu_copy", 'C'),
          item("edit-paste", "$velpatch_menu_paste", 'V'),
          item("edit-clear", "$velpatch_menu_clear"),
          item("edit-select-all", "$velpatch_menu_select_all", 'A')}},
        {GetLocalisedString("$velpatch_menu_help"),
         {item("show-help", "$velpatch_menu_patch_help"),
          item("about-app", "$velpatch_menu_about")}},
    };
}

} // namespace

VelPatchApp::VelPatchApp(VelPatchWizardServices services) : m_services(std::move(services)) {
    UIService::Get()->GetMenuManager().SetMenus(MakeMenus());
}

bool VelPatchApp::IsLeaving() const {
    return GetProcessSettings().relaunched || (m_opened && (!m_window || m_window->IsClosed()));
}

void VelPatchApp::ShowHelp() {
    const CXString address = GetLocalisedString("$velpatch_help_url");
    if (!address.IsEmpty()) {
        m_services.openAddress(address);
    }
}

CXResult VelPatchApp::ProcessMessage(const CXMessage& message) {
    if (message.Is("open-application")) {
        auto window = std::make_unique<VelPatchWindow>(m_services);
        m_window = window.get();
        m_opened = true;
        UIService::Get()->Open(std::move(window));
        return kCXResultOK;
    }
    if (message.Is("show-help")) {
        ShowHelp();
        return kCXResultOK;
    }
    if (message.Is("about-app")) {
        UIMessageSheet::Tell(UIService::Get()->GetFrontWindow(),
                             GetLocalisedString("$velpatch_about"));
        return kCXResultOK;
    }
    UICommandStatus* status = CXMenuManager::GetStatus(message);
    if (status != nullptr && (status->command == "show-help" || status->command == "about-app")) {
        const char* key = status->command == "show-help" ? "$velpatch_help_url" : "$velpatch_about";
        status->enabled = !GetLocalisedString(key).IsEmpty();
        return kCXResultOK;
    }
    return CXUIApplication::ProcessMessage(message);
}
