// All windows of the program, and what they share.
#pragma once

#include "runtime/CXSafePointer.h"
#include "ui/CXMenuManager.h"
#include "ui/UIBackend.h"

#include <atomic>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

class CXUIApplication;
class CXUIWindow;
class UIElement;

/// Owns the backend and the open windows. One at a time exists, made before the application object
/// and destroyed after it. Main thread.
class UIService {
public:
    /// `quitRequested` ends the main loop at its next message; it must outlive the service.
    UIService(std::unique_ptr<UIBackend> backend, std::atomic<bool>& quitRequested);
    ~UIService();
    UIService(const UIService&) = delete;
    UIService& operator=(const UIService&) = delete;

    /// The one instance, or null.
    static UIService* Get();

    UIBackend& GetBackend() { return *m_backend; }
    CXMenuManager& GetMenuManager() { return m_menus; }
    /// Where messages end up that no window handles; not owned.
    void SetApplication(CXUIApplication* application) { m_application = application; }
    CXUIApplication* GetApplication() const { return m_application; }

    /// Activates and shows a window, and owns it until it is closed. A sheet hangs on the top-most
    /// sheet of `over`, or on that itself; null: on nothing. Null if the window closed itself
    /// while it was being set up.
    CXUIWindow* Open(std::unique_ptr<CXUIWindow> window, CXUIWindow* over = nullptr);
    /// Sheets included, in order of opening.
    const std::vector<std::unique_ptr<CXUIWindow>>& GetWindows() const { return m_windows; }
    /// Those that keep the program alive: all but sheets.
    size_t CountWindows() const;
    bool HasSheet() const { return CountWindows() != m_windows.size(); }
    CXUIWindow* FindWindow(const UIPeer* peer) const;
    /// The sheet that lies on top of a window, or the window itself.
    CXUIWindow* GetTopOf(CXUIWindow* window) const;
    /// The window that was activated last and is still open; null if none.
    CXUIWindow* GetFrontWindow() const;
    void SetFrontWindow(CXUIWindow* window);

    /// Gets what other processes send to a window; true accepts it. Null: nobody does.
    using DataReceiver = std::function<bool(uint64_t tag, absl::string_view bytes)>;
    void SetDataReceiver(DataReceiver receiver) { m_dataReceiver = std::move(receiver); }
    bool ReceiveData(uint64_t tag, absl::string_view bytes) {
        return m_dataReceiver && m_dataReceiver(tag, bytes);
    }

    /// Sets the quit flag and posts the quit message.
    void RequestQuit();
    bool IsQuitRequested() const { return m_quitRequested.load(std::memory_order_relaxed); }

    /// Layout, focus, and what is to be destroyed: after each message, outside of any handler.
    void Maintain();
    /// Destroys an element once no handler can be inside of it.
    void DestroyLater(std::unique_ptr<UIElement> element);

    // For CXUIWindow::Close.
    void CloseSheetsOf(CXUIWindow* window);
    void Forget(CXUIWindow* window);

private:
    void Present(CXUIWindow* window);

    std::atomic<bool>& m_quitRequested;
    std::unique_ptr<UIBackend> m_backend; // outlives all peers
    CXMenuManager m_menus;
    CXUIApplication* m_application = nullptr;
    std::vector<std::unique_ptr<UIElement>> m_doomed;
    std::vector<std::unique_ptr<CXUIWindow>> m_windows;
    CXSafePointer<UIElement> m_front;
    DataReceiver m_dataReceiver;
};
