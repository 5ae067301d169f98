// The wizard: one window that holds one page at a time.
#pragma once

#include "app/VelPatchWizardServices.h"
#include "app/config/VelPatchConfiguration.h"
#include "app/config/VelPatchSettings.h"
#include "ui/CXUIWindow.h"

#include <memory>

class UIBitmapElement;
class VelPatchWindowPage;

/// Owns what outlives a page: configuration, target and remembered settings. Pages post `next-page`
/// and `prev-page` and know nothing of the order; the window skips those that the run doesn't use,
/// and closes behind the last one. Asks before a close while work is running. Main thread.
class VelPatchWindow : public CXUIWindow {
public:
    /// Pages by index; each move makes a new one.
    enum Page : int32_t { kWelcome, kTarget, kAccount, kStream, kCheckPatch, kPatch, kPageCount };

    static const CXString kNextPage;
    static const CXString kPrevPage;

    explicit VelPatchWindow(const VelPatchWizardServices& services);
    ~VelPatchWindow() override;

    void Activate() override;
    /// Saves the settings, waits for a task that runs to undo its work, and starts the target if
    /// that is wanted on exit.
    void Close() override;
    CXResult ProcessMessage(const CXMessage& message) override;
    void PeerMetricsChanged() override;

    VelPatchConfiguration& GetConfiguration() { return m_configuration; }
    VelPatchSettings& GetSettings() { return m_settings; }
    const VelPatchWizardServices& GetServices() const { return m_services; }
    /// Null only before the first and behind the last page.
    VelPatchWindowPage* GetPage() const { return m_page; }
    int32_t GetPageIndex() const { return m_pageIndex; }

    /// Changes the target folder, and with it what belongs to a target: the settings, and the
    /// configuration's addresses. False if there is no configuration.
    bool SetTarget(const CXString& path);
    /// Replaces the page. An index without a page closes the window.
    void ShowPage(int32_t index);
    /// To the next (+1) or previous (-1) page that this run uses.
    void Step(int32_t direction);
    /// What the product calls itself; without a name, its folder's.
    const CXString& GetProductName() const;
    /// What the system knows the installed product by; without an entry, its folder's name.
    CXString GetInstalledName() const;

private:
    void AddPictures();
    void TellDamage();
    void DropPage();
    bool Applies(int32_t index) const;
    bool ApplyConfigurationToWindow();

    VelPatchWizardServices m_services;
    VelPatchConfiguration m_configuration;
    VelPatchSettings m_settings;
    UIBitmapElement* m_background = nullptr;
    UIBitmapElement* m_banner = nullptr;
    VelPatchWindowPage* m_page = nullptr; // a child
    int32_t m_pageIndex = -1;
};
