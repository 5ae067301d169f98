#include "app/VelPatchWizard.h"

#include "app/VelPatchApp.h"
#include "app/VelPatchConsole.h"
#include "app/VelPatchElevation.h"
#include "app/VelPatchHeadlessRun.h"
#include "app/VelPatchRunApplication.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXLog.h"
#include "runtime/CXTaskHost.h"
#include "ui/HeadlessBackend.h"
#include "ui/UINativeBackend.h"

#include <cstdio>
#include <memory>
#include <utility>

namespace {

void Write(std::FILE* file, const CXString& text) {
    std::fwrite(text.GetData(), 1, text.GetLength(), file);
    std::fflush(file);
}

/// The words for the user have the console to themselves.
void DropLogLine(const char*) {}

std::unique_ptr<HeadlessBackend> MakeHeadlessBackend() {
    auto backend = std::make_unique<HeadlessBackend>();
    backend->SetSheetReader(
        [](const CXString& text) { Write(stderr, CXString::Format("%s\n", text)); });
    return backend;
}

} // namespace

void RunVelPatchWizard(const std::function<void()>& stopWindowServices) {
    VelPatchApp* app = nullptr;
    std::unique_ptr<UIBackend> backend = UIMakeNativeBackend();
    std::unique_ptr<VelPatchHeadlessRun> run;
    if (backend == nullptr) {
        const VelPatchProcessSettings& process = GetProcessSettings();
        if (!process.startImmediately || process.target.IsEmpty()) {
            Write(stderr, "velpatch: there is no display; give it one, or what to do: "
                          "--target FOLDER --start\n");
            return;
        }
        CXSetLogSink(DropLogLine);
        std::unique_ptr<HeadlessBackend> screen = MakeHeadlessBackend();
        run = std::make_unique<VelPatchHeadlessRun>(
            [&app] { return app; },
            VelPatchHeadlessRun::Ways{[](const CXString& text) { Write(stdout, text); },
                                      VelPatchConsole::IsInterrupted,
                                      [screen = screen.get()] { return screen->IsIdle(); },
                                      VelPatchConsole::IsTerminal()});
        backend = std::move(screen);
        VelPatchConsole::CatchInterrupts();
        CXTaskHost::GetCurrent()->AddTask(run.get());
    }
    RunVelPatchApplication(
        {std::move(backend),
         [&app] {
             auto made = std::make_unique<VelPatchApp>(VelPatchWizardServices::OfTheSystem());
             app = made.get();
             return made;
         },
         [&app] { return app != nullptr && app->IsLeaving(); }, stopWindowServices});
    if (run != nullptr) {
        VelPatchElevation::WaitForStarted();
    }
}
