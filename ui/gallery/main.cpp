// Shows the gallery of widgets: velpatch-gallery [headless] [german] [press=NAME] [seconds=N]
//
// "headless" takes the backend without a screen and writes what is shown, and what a look at it
// would find wrong, to stdout. "press" presses a button when the window is up, so that a script
// can take pictures of the sheets. "seconds" ends it by itself.
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

struct Options {
    bool headless = false;
    UIGalleryLanguage language = UIGalleryLanguage::English;
    CXString press;
    int64_t seconds = 0;
};

Options ReadOptions(int argc, char** argv) {
    Options options;
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
            std::fprintf(stderr, "velpatch-gallery: unknown word '%s'\n", argv[index]);
        }
    }
    return options;
}

void RunGallery(const Options& options) {
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
        return;
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
    if (headless != nullptr) {
        std::fputs(headless->Dump(true).GetData(), stdout);
        std::fputs(headless->FindFaults().GetData(), stdout);
    }
    loop.CloseAll();
}

} // namespace

int main(int argc, char** argv) {
    CXRuntime::Start();
    RunGallery(ReadOptions(argc, argv));
    CXRuntime::Stop();
    return 0;
}
