// "velpatch-kit make".
#include "core/CXFileSystem.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchConsole.h"
#include "kit/VelPatchJson.h"
#include "kit/VelPatchKit.h"
#include "kit/VelPatchKitCommands.h"
#include "kit/VelPatchKitTools.h"
#include "kit/VelPatchMaker.h"
#include "kit/VelPatchParallel.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>

namespace {

struct MakeOptions {
    bool full = false;
    bool noCheck = false;
    bool json = false;
    int level = 9;
    unsigned workers = 0;
    std::vector<std::string> ignored;
    std::vector<std::string> folders; ///< OLD NEW OUT, or NEW OUT
};

/// Rate and time left of an activity, from its share of the way and the bytes behind it.
class ProgressClock {
public:
    CXString Describe(const CXString& activity, double fraction, uint64_t bytes) {
        const Clock::time_point now = Clock::now();
        if (activity != m_activity) {
            m_activity = activity;
            m_start = now;
        }
        const double seconds = std::chrono::duration<double>(now - m_start).count();
        if (fraction <= 0 || seconds < 1) {
            return CXString();
        }
        const auto left = static_cast<uint64_t>(std::lround(seconds / fraction * (1 - fraction)));
        CXString time = left < 60 ? CXString::Format("%d s left", left)
                                  : CXString::Format("%d min left", (left + 59) / 60);
        if (bytes == 0) {
            return time;
        }
        constexpr double kMiB = 1 << 20;
        return CXString::Format("%.1f MiB/s, %s", static_cast<double>(bytes) / kMiB / seconds,
                                time.GetData());
    }

private:
    using Clock = std::chrono::steady_clock;

    CXString m_activity;
    Clock::time_point m_start;
};

int ReportFailure(VelPatchConsole& console, CXResult result, const CXString& problem) {
    console.Complain(problem);
    if (result == kCXResultCancelled) {
        return kKitStopped;
    }
    return result == kCXResultInvalidArgument ? kKitUsage : kKitFailed;
}

void PutSummary(const VelPatchMaker& maker, bool isJson, VelPatchConsole& console) {
    const VelPatchSummary& summary = maker.GetSummary();
    const struct {
        const char* name;
        uint64_t number;
    } numbers[] = {{"data-bytes", summary.dataSize},
                   {"control-bytes", summary.controlSize},
                   {"inflated-bytes", summary.rawSize},
                   {"new-bytes", summary.newSize},
                   {"creates", summary.creates},
                   {"edits", summary.edits},
                   {"moves", summary.moves},
                   {"deletes", summary.deletes},
                   {"folders", summary.folders}};
    if (!isJson) {
        console.PutData("control", maker.GetControlPath());
        console.PutData("data", maker.GetDataPath());
        for (const auto& each : numbers) {
            console.PutData(each.name, each.number);
        }
        return;
    }
    VelPatchJson json;
    json.PutText("control", maker.GetControlPath().View());
    json.PutText("data", maker.GetDataPath().View());
    for (const auto& each : numbers) {
        json.PutNumber(each.name, each.number);
    }
    json.OpenList("notes");
    for (const CXString& warning : maker.GetWarnings()) {
        json.PutText(nullptr, warning.View());
    }
    json.CloseList();
    const CXString text = json.Finish();
    std::fwrite(text.GetData(), 1, text.GetLength(), stdout);
}

int RunMake(const MakeOptions& options, VelPatchConsole& console) {
    const size_t wanted = options.full ? 2 : 3;
    if (options.folders.size() != wanted) {
        console.Complain(options.full ? "make --full takes two folders: NEW OUT"
                                      : "make takes three folders: OLD NEW OUT");
        return kKitUsage;
    }
    VelPatchMaker::Options making;
    size_t next = 0;
    if (!options.full) {
        making.oldFolder = TypedPath(options.folders[next++]);
    }
    making.newFolder = TypedPath(options.folders[next++]);
    making.outFolder = TypedPath(options.folders[next]);
    making.check = !options.noCheck;
    making.level = options.level;
    making.workers = options.workers > 0 ? options.workers : GetProcessorCount();
    for (const std::string& glob : options.ignored) {
        making.ignored.emplace_back(absl::string_view(glob.data(), glob.size()));
    }
    for (const CXString& folder : {making.oldFolder, making.newFolder}) {
        if (!folder.IsEmpty() && !CXFileSystem::IsDirectory(folder)) {
            console.Complain(CXString::Format("'%s' is not a folder", folder.GetData()));
            return kKitUsage;
        }
    }

    VelPatchMaker maker(making);
    ProgressClock clock;
    maker.SetProgress([&](const CXString& text, double fraction, uint64_t bytes) {
        console.ShowProgress(text, fraction, clock.Describe(text, fraction, bytes));
    });
    maker.SetStopTest(KitPlatform::IsInterrupted);
    CXString problem;
    const CXResult result = maker.Run(problem);
    console.EndProgress();
    for (const CXString& warning : maker.GetWarnings()) {
        console.Warn(warning);
    }
    if (result != kCXResultOK) {
        return ReportFailure(console, result, problem);
    }
    PutSummary(maker, options.json, console);
    console.Say(making.check ? "The patch is made and has passed its self-check."
                             : "The patch is made, without a self-check.");
    return kKitDone;
}

} // namespace

void DefineMake(CLI::App& app, std::vector<VelPatchKitCommand>& commands) {
    auto options = std::make_shared<MakeOptions>();
    CLI::App* make = app.add_subcommand("make", "Make the patch that turns folder OLD into NEW");
    make->add_flag("--full", options->full, "Make an installation of NEW; there is no OLD");
    make->add_flag("--no-check", options->noCheck, "Don't apply the result to a copy of OLD");
    make->add_option("--ignore", options->ignored,
                     "Leave out of both folders what matches this glob; may be given again. * "
                     "stands for a part of a name, ** for folders too; without a slash it is held "
                     "against names in every folder")
        ->expected(1)
        ->allow_extra_args(false) // or it would take the folders behind it
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    make->add_option("--level", options->level, "Compression, 1 (fast) to 9 (small)")
        ->check(CLI::Range(1, 9))
        ->capture_default_str();
    make->add_option("--workers", options->workers,
                     "Threads (default: as many as the system runs); the patch is the same")
        ->check(CLI::Range(1, 256));
    make->add_flag("--json", options->json, "Write the summary as JSON");
    make->add_option("FOLDERS", options->folders,
                     "OLD NEW OUT, or with --full NEW OUT; OUT receives patch-control.txt and "
                     "patch-data.bin")
        ->required()
        ->expected(2, 3);
    commands.push_back(
        {make, [options](VelPatchConsole& console) { return RunMake(*options, console); }});
}
