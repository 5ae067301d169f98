// The application object of the player's program.
#pragma once

#include "app/VelPatchWindow.h"
#include "app/VelPatchWizardServices.h"
#include "runtime/CXSafePointer.h"
#include "ui/CXUIApplication.h"

/// Has the menu bar, opens the one window, and answers the commands that no page does. Main thread.
class VelPatchApp : public CXUIApplication {
public:
    /// Builds the menu bar from the localised texts.
    explicit VelPatchApp(VelPatchWizardServices services);

    const char* GetTypeName() const override { return "VelPatchApp"; }
    CXResult ProcessMessage(const CXMessage& message) override;

    /// Null before it is opened and once it is closed.
    VelPatchWindow* GetWindow() const { return m_window.Get(); }
    /// A later stage was started, or the window was closed: this instance has no use for orders.
    bool IsLeaving() const;

private:
    void ShowHelp();

    VelPatchWizardServices m_services;
    CXSafePointer<VelPatchWindow> m_window;
    bool m_opened = false;
};
