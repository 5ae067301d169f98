#include "ui/CXUIApplication.h"

#include "runtime/CXMessage.h"
#include "ui/CXMenuManager.h"
#include "ui/CXUIWindow.h"
#include "ui/UIService.h"

CXUIApplication::CXUIApplication() {
    UIService::Get()->SetApplication(this);
}

CXUIApplication::~CXUIApplication() {
    UIService* service = UIService::Get();
    if (service != nullptr && service->GetApplication() == this) {
        service->SetApplication(nullptr);
    }
}

CXResult CXUIApplication::ProcessMessage(const CXMessage& message) {
    UIService& service = *UIService::Get();
    CXUIWindow* front = service.GetFrontWindow();
    if (message.GetName() == CXMenuManager::kQuitApplication) {
        for (const auto& window : service.GetWindows()) {
            if (!window->IsSheet()) {
                window->Post(CXUIWindow::kClose);
            }
        }
        if (service.CountWindows() == 0) {
            service.RequestQuit();
        }
        return kCXResultOK;
    }
    if (message.Is("close-front-window")) {
        if (front != nullptr) {
            front->ProcessMessage(CXMessage(CXUIWindow::kClose, this));
        }
        return kCXResultOK;
    }
    if (message.Is("bring-window-to-front")) {
        if (front != nullptr) {
            front->Raise();
        }
        return kCXResultOK;
    }
    if (message.Is("bring-all-windows-to-front")) {
        for (size_t index = 0; index < service.GetWindows().size(); ++index) {
            service.GetWindows()[index]->Raise();
        }
        return kCXResultOK;
    }
    if (UICommandStatus* status = CXMenuManager::GetStatus(message)) {
        static constexpr const char* kNeedWindow[] = {"close-front-window", "bring-window-to-front",
                                                      "bring-all-windows-to-front"};
        for (const char* command : kNeedWindow) {
            if (status->command == command) {
                status->enabled = front != nullptr;
                return kCXResultOK;
            }
        }
    }
    return CXMessageTarget::ProcessMessage(message);
}
