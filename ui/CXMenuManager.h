// The menu bar: its commands, their states and their keys.
#pragma once

#include "runtime/CXMessage.h"
#include "ui/UITypes.h"

#include <vector>

class UIService;

/// Asked and answered while a menu is about to be looked at.
struct UICommandStatus {
    CXString command;
    bool enabled = false;
};

/// `update-command-status`: whoever handles the command says whether it can be done now.
class UICommandStatusMessage : public CXMessage {
public:
    explicit UICommandStatusMessage(UICommandStatus& status)
        : CXMessage("update-command-status"), m_status(&status) {}
    UICommandStatus* GetStatus() const { return m_status; }

private:
    UICommandStatus* m_status;
};

/// Holds the one menu bar of the program and shows it in each window. A command is a plain message
/// that goes to the control with the focus and bubbles from there, so a menu item acts on what the
/// user is looking at; its state is asked for along the same way, and nobody's command is
/// disabled. Main thread.
class CXMenuManager {
public:
    /// Asks the application to end.
    static const CXString kQuitApplication;

    explicit CXMenuManager(UIService& service) : m_service(service) {}

    /// Replaces the menu bar, also in windows that are open.
    void SetMenus(std::vector<UIMenu> menus);
    const std::vector<UIMenu>& GetMenus() const { return m_menus; }
    /// Asks for the state of every command, and shows it.
    void UpdateStates();
    /// Carries a command out.
    void Choose(const CXString& command);
    /// Offers a key (code + kUIMenuShift, kUIMenuAlt) to every menu. True: it was one's shortcut
    /// and its command was carried out.
    bool OfferKey(uint32_t key);

    /// Whether a name is one of the edit menu's commands, and which.
    static bool IsEditCommand(const CXString& name, UIEditCommand& command);
    /// The question that the message asks, or null if it is another message.
    static UICommandStatus* GetStatus(const CXMessage& message);

private:
    CXMessageTarget* GetTarget();
    bool CanChoose(const CXString& command);
    void ShowMenus();

    UIService& m_service;
    std::vector<UIMenu> m_menus;
};
