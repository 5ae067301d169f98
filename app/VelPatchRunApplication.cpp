#include "app/VelPatchRunApplication.h"

#include "app/VelPatchInstance.h"
#include "app/VelPatchSelfDelete.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "runtime/CXTaskHost.h"
#include "runtime/CXTaskLambda.h"
#include "runtime/CXWorkerHost.h"
#include "ui/CXMainLoop.h"
#include "ui/CXUIWindow.h"
#include "ui/UIService.h"

#include <utility>

namespace {

/// With no window in front yet, the first that there is.
void RaiseWindow(const UIService& service) {
    CXUIWindow* window = service.GetFrontWindow();
    if (window == nullptr && !service.GetWindows().empty()) {
        window = service.GetWindows().front().get();
    }
    if (window != nullptr) {
        window->Raise();
    }
}

void StopWorkers() {
    if (CXWorkerHost* workers = CXWorkerHost::GetExisting()) {
        workers->RequestStop();
        CXWorkerHost::DeleteSingleton();
    }
}

} // namespace

void RunVelPatchApplication(VelPatchApplicationParts parts) {
    UIService service(std::move(parts.backend), GetProcessSettings().quitRequested);
    std::unique_ptr<CXUIApplication> application = parts.makeApplication();
    {
        VelPatchHandOverReceiver receiver(
            {std::move(parts.isLeaving), [&service] { RaiseWindow(service); }});
        service.SetDataReceiver([&receiver](uint64_t tag, absl::string_view bytes) {
            return receiver.Receive(tag, bytes.data(), bytes.size()) == kHandOverAccepted;
        });
        VelPatchInstanceListener listener(receiver);
        CXTaskLambda listening("VelPatchInstanceListener", [&listener] { listener.Poll(); });
        CXTaskHost::GetCurrent()->AddTask(&listening);
        CXMainLoop(service).Run(application.get());
        service.SetDataReceiver(nullptr);
    }
    application.reset();
    if (GetProcessSettings().selfDeleteOnExit) {
        VelPatchSelfDelete::Run(CXFileSystem::GetModulePath(),
                                [&service](const CXString& text, const CXString& caption) {
                                    service.GetBackend().ShowBox(text, caption);
                                });
    }
    StopWorkers();
    if (parts.stopWindowServices) {
        parts.stopWindowServices();
    }
}
