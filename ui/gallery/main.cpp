// Shows the gallery of widgets; kUsage tells how.
#include "core/CXText.h"
#include "core/CXTime.h"
#include "runtime/CXRuntime.h"
#include "ui/CXMainLoop.h"
#include "ui/HeadlessBackend.h"
#include "ui/UIButton.h"
#include "ui/UIGallery.h"
#include "ui/UINativeBackend.h"
#include "ui/UIService.h"

#include <cstdio>
#include <memory>

namespace {

constexpr char kUsage[] =
    "usage: velpatch-gallery [headless] [german] [press=NAME] [seconds=N]\n"
    "  headless    takes no screen: writes what would be shown, and what a look at it would find\n"
    "              wrong\n"
    "  german      long texts\n"
    "  press=NAME  presses a button at once: message, long-message, question, choose, licence,\n"
    "              file, pick-folder, toggle, exit\n"
    "  seconds=N   ends by itself\n"
    "Exit codes: 0 done, 1 something looks wrong without a screen, 2 wrong usage or no display.\n";
constexpr int kLooksWrong = 1;
constexpr int kWrongUsage = 2;

struct Options {
    bool headless = false;
    UIGalleryLanguage language = UIGalleryLanguage::English;
    CXString press;
    int64_t seconds = 0;
};

/// False at a word that it doesn't know.
bool ReadOptions(int argc, char** argv, Options& options) {
    for (int index = 1; index < argc; ++index) {
        const absl::string_view word = argv[index];
        if (word == "headless") {
            options.headless = true;
        } else if (word == "german") {
            options.language = UIGalleryLanguage::German;
        } else if (word.substr(0, 6) == "press=") {
            options.press = CXString(word.substr(6));
        } else if (word.substr(0, 8) == "seconds=") {
            options.seconds = ToInt64(word.substr(8), 0);
        } else {
            return false;
        }
    }
    return true;
}

/// Gives the exit code.
int RunGallery(const Options& options) {
    std::atomic<bool> quit{false};
    HeadlessBackend* headless = nullptr;
    std::unique_ptr<UIBackend> backend;
    if (options.headless) {
        auto made = std::make_unique<HeadlessBackend>();
        headless = made.get();
        backend = std::move(made);
    } else {
        backend = UIMakeNativeBackend();
    }
    if (backend == nullptr) {
        std::fputs("velpatch-gallery: no display; try the word headless\n", stderr);
        return kWrongUsage;
    }
    UIService service(std::move(backend), quit);
    UIGalleryApplication application(options.language);
    CXMainLoop loop(service);
    application.ProcessMessage(CXMessage("open-application"));
    bool isPressed = false;
    const int64_t start = CXTime::GetCurrentTime();
    while (loop.RunOne()) {
        const int64_t age = CXTime::GetCurrentTime() - start;
        CXUIWindow* front = service.GetFrontWindow();
        if (!isPressed && front != nullptr && age > 100) {
            isPressed = true;
            if (UIButton* button = front->Find<UIButton>(options.press)) {
                button->Press();
            }
        }
        if ((options.seconds > 0 && age > options.seconds * 1000) || (headless && age > 300)) {
            break;
        }
    }
    CXString faults;
    if (headless != nullptr) {
        faults = headless->FindFaults();
        std::fputs(headless->Dump(true).GetData(), stdout);
        std::fputs(faults.GetData(), stdout);
    }
    loop.CloseAll();
    return faults.IsEmpty() ? 0 : kLooksWrong;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ReadOptions(argc, argv, options)) {
        const bool isAsked = absl::string_view(argv[1]) == "--help";
        std::fputs(kUsage, isAsked ? stdout : stderr);
        return isAsked ? 0 : kWrongUsage;
    }
    CXRuntime::Start();
    const int exitCode = RunGallery(options);
    CXRuntime::Stop();
    return exitCode;
}
