#include "ui/CXMenuManager.h"

#include "ui/CXUIApplication.h"
#include "ui/CXUIWindow.h"
#include "ui/UIControl.h"
#include "ui/UIService.h"

#include <utility>

const CXString CXMenuManager::kQuitApplication("CXMenuManager::QuitApplication");

bool CXMenuManager::IsEditCommand(const CXString& name, UIEditCommand& command) {
    static constexpr struct {
        const char* name;
        UIEditCommand command;
    } kCommands[] = {
        {"edit-undo", UIEditCommand::Undo},
        {"edit-redo", UIEditCommand::Redo},
        {"edit-cut", UIEditCommand::Cut},
        {"edit-copy", UIEditCommand::Copy},
        {"edit-paste", UIEditCommand::Paste},
        {"edit-clear", UIEditCommand::Clear},
        {"edit-select-all", UIEditCommand::SelectAll},
    };
    for (const auto& entry : kCommands) {
        if (name == entry.name) {
            command = entry.command;
            return true;
        }
    }
    return false;
}

UICommandStatus* CXMenuManager::GetStatus(const CXMessage& message) {
    return message.Is("update-command-status")
               ? static_cast<const UICommandStatusMessage&>(message).GetStatus()
               : nullptr;
}

CXMessageTarget* CXMenuManager::GetTarget() {
    if (CXUIWindow* window = m_service.GetFrontWindow()) {
        if (UIControl* focus = window->GetFocus()) {
            return focus;
        }
        return window;
    }
    return m_service.GetApplication();
}

bool CXMenuManager::CanChoose(const CXString& command) {
    UICommandStatus status{command};
    CXMessageTarget* target = GetTarget();
    return target != nullptr &&
           target->ProcessMessage(UICommandStatusMessage(status)) == kCXResultOK && status.enabled;
}

void CXMenuManager::SetMenus(std::vector<UIMenu> menus) {
    m_menus = std::move(menus);
    ShowMenus();
}

void CXMenuManager::UpdateStates() {
    bool changed = false;
    for (UIMenu& menu : m_menus) {
        for (UIMenuItem& item : menu.items) {
            const bool enabled = CanChoose(item.command);
            changed = changed || item.enabled != enabled;
            item.enabled = enabled;
        }
    }
    if (changed) {
        ShowMenus();
    }
}

void CXMenuManager::ShowMenus() {
    for (const auto& window : m_service.GetWindows()) {
        if (!window->IsSheet() && window->GetPeer() != nullptr) {
            m_service.GetBackend().SetMenus(window->GetPeer(), m_menus);
        }
    }
}

void CXMenuManager::Choose(const CXString& command) {
    if (CXMessageTarget* target = GetTarget()) {
        target->ProcessMessage(CXMessage(command));
    }
}

bool CXMenuManager::OfferKey(uint32_t key) {
    // The items keep the states that the windows show.
    for (const UIMenu& menu : m_menus) {
        for (const UIMenuItem& item : menu.items) {
            if (item.shortcut == key && CanChoose(item.command)) {
                // By value: carrying it out may replace the menus.
                const CXString command = item.command;
                Choose(command);
                return true;
            }
        }
    }
    return false;
}
