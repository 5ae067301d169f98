#include "ui/UIService.h"

#include "ui/CXUIWindow.h"

#include <algorithm>
#include <utility>

namespace {

UIService* s_service = nullptr;

} // namespace

UIService::UIService(std::unique_ptr<UIBackend> backend, std::atomic<bool>& quitRequested)
    : m_quitRequested(quitRequested), m_backend(std::move(backend)), m_menus(*this) {
    s_service = this;
}

UIService::~UIService() {
    while (!m_windows.empty()) {
        m_windows.back()->CXUIWindow::Close();
    }
    m_doomed.clear();
    s_service = nullptr;
}

UIService* UIService::Get() {
    return s_service;
}

CXUIWindow* UIService::Open(std::unique_ptr<CXUIWindow> window, CXUIWindow* over) {
    CXUIWindow* opened = window.get();
    if (over != nullptr && !over->IsClosed()) {
        opened->SetOwner(GetTopOf(over));
    }
    m_windows.push_back(std::move(window));
    opened->Activate();
    if (opened->IsClosed()) {
        return nullptr;
    }
    const CXUIWindow* owner = opened->GetOwner();
    if (owner == nullptr || owner->IsPresented()) {
        Present(opened);
    } // else with its owner: it was opened while that one was set up
    return opened->IsClosed() ? nullptr : opened;
}

void UIService::Present(CXUIWindow* window) {
    window->Present();
    for (size_t index = 0; index < m_windows.size(); ++index) {
        CXUIWindow* sheet = m_windows[index].get();
        if (sheet->GetOwner() == window && !sheet->IsPresented()) {
            Present(sheet);
        }
    }
}

size_t UIService::CountWindows() const {
    return static_cast<size_t>(std::count_if(m_windows.begin(), m_windows.end(),
                                             [](const auto& entry) { return !entry->IsSheet(); }));
}

CXUIWindow* UIService::FindWindow(const UIPeer* peer) const {
    for (const auto& window : m_windows) {
        if (peer != nullptr && window->GetPeer() == peer) {
            return window.get();
        }
    }
    return nullptr;
}

CXUIWindow* UIService::GetTopOf(CXUIWindow* window) const {
    CXUIWindow* top = window;
    for (const auto& entry : m_windows) { // a sheet comes after what it hangs on
        if (entry->GetOwner() == top) {
            top = entry.get();
        }
    }
    return top;
}

CXUIWindow* UIService::GetFrontWindow() const {
    return static_cast<CXUIWindow*>(m_front.Get());
}

void UIService::SetFrontWindow(CXUIWindow* window) {
    m_front = window;
}

void UIService::RequestQuit() {
    m_quitRequested.store(true, std::memory_order_relaxed);
    m_backend->PostQuit();
}

void UIService::Maintain() {
    // What is destroyed may doom others.
    while (!m_doomed.empty()) {
        const std::vector<std::unique_ptr<UIElement>> doomed = std::exchange(m_doomed, {});
    }
    for (size_t index = 0; index < m_windows.size(); ++index) {
        m_windows[index]->Maintain();
    }
}

void UIService::DestroyLater(std::unique_ptr<UIElement> element) {
    m_doomed.push_back(std::move(element));
}

void UIService::CloseSheetsOf(CXUIWindow* window) {
    for (CXUIWindow* top = GetTopOf(window); top != window; top = GetTopOf(window)) {
        top->CXUIWindow::Close();
    }
}

void UIService::Forget(CXUIWindow* window) {
    if (m_front.Get() == window) {
        m_front = window->GetOwner(); // what lay below is in front now
    }
    const auto found = std::find_if(m_windows.begin(), m_windows.end(),
                                    [window](const auto& entry) { return entry.get() == window; });
    if (found != m_windows.end()) {
        m_doomed.push_back(std::move(*found));
        m_windows.erase(found);
    }
}
