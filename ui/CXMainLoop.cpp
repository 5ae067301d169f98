#include "ui/CXMainLoop.h"

#include "runtime/CXMessage.h"
#include "runtime/CXTaskHost.h"
#include "ui/CXUIWindow.h"
#include "ui/UIKeyRouting.h"
#include "ui/UIService.h"

void CXMainLoop::Run(CXMessageTarget* application) {
    if (application != nullptr) {
        application->ProcessMessage(CXMessage("open-application"));
    }
    while (RunOne()) {
    }
    CloseAll();
}

bool CXMainLoop::RunOne(int32_t maxWaitMs) {
    m_pressed = false;
    return m_service.GetBackend().RunOne(maxWaitMs, *this);
}

void CXMainLoop::CloseAll() {
    while (!m_service.GetWindows().empty()) {
        CXUIWindow* window = m_service.GetWindows().back().get();
        window->ProcessMessage(CXMessage(CXUIWindow::kForceClose));
        window->CXUIWindow::Close(); // also one that wouldn't hear of it
    }
    m_service.SetFrontWindow(nullptr);
    m_service.Maintain();
}

bool CXMainLoop::BeforeMessage() {
    return !m_service.IsQuitRequested();
}

bool CXMainLoop::Route(const UIMessage& message) {
    m_pressed = false;
    CXUIWindow* window = m_service.FindWindow(message.window);
    if (message.isKeyDown && window != nullptr) {
        const UIKeyRouting::Outcome outcome = UIKeyRouting::RouteKey(message, *window);
        if (outcome != UIKeyRouting::Outcome::NotConsumed) {
            m_pressed = outcome == UIKeyRouting::Outcome::Pressed;
            return true;
        }
    }
    if (m_preTranslate && m_preTranslate(message)) {
        return true;
    }
    if (window != nullptr && !window->IsClosed() && window->FilterMessage(message)) {
        return true;
    }
    return message.isKeyDown && UIKeyRouting::OfferToMenus(m_service, message.key);
}

void CXMainLoop::AfterMessage() {
    if (m_isStepping) {
        return; // a loop of the system's inside of a task: nothing may be destroyed under it
    }
    m_isStepping = true;
    if (!m_pressed) {
        CXTaskHost::GetCurrent()->RunTasks();
    }
    m_pressed = false;
    m_service.Maintain();
    m_isStepping = false;
}
