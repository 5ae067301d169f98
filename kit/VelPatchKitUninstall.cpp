// "velpatch-kit uninstall".
#include "core/CXFileSystem.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchConsole.h"
#include "kit/VelPatchKit.h"
#include "kit/VelPatchKitCommands.h"
#include "kit/VelPatchKitTools.h"
#include "kit/VelPatchRunner.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace {

struct UninstallOptions {
    std::string target;
    std::string answer = "no";
    bool isSure = false;
};

int RunUninstallCommand(const UninstallOptions& options, VelPatchConsole& console) {
    const CXString target = TypedPath(options.target);
    if (!CXFileSystem::IsDirectory(target) || CXFileSystem::IsRoot(target)) {
        console.Complain(CXString::Format("'%s' is not a game's folder", target.GetData()));
        return kKitUsage;
    }
    if (!options.isSure) {
        if (!KitPlatform::IsInputTerminal()) {
            console.Complain(CXString::Format(
                "'%s' and all that is in it would be deleted; say --yes", target.GetData()));
            return kKitUsage;
        }
        if (!console.Ask(
                CXString::Format("'%s' will be deleted, with all that is in it.", target.GetData()),
                CXString(), "Delete it?")) {
            return kKitStopped;
        }
    }
    TaskStatus last;
    const CXString name = CXString::Format(" '%s'", CXFileSystem::GetFileName(target).GetData());
    const VelPatchOutcome outcome =
        RunUninstall(target, name, WatchOnConsole(console, options.answer == "retry"), last);
    console.EndProgress();
    if (outcome == VelPatchOutcome::Finished) {
        console.Say("The game is gone.");
        return kKitDone;
    }
    console.Complain(CXString::Format("some of '%s' is left", target.GetData()));
    return outcome == VelPatchOutcome::Stopped ? kKitStopped : kKitFailed;
}

} // namespace

void DefineUninstall(CLI::App& app, std::vector<VelPatchKitCommand>& commands) {
    const auto options = std::make_shared<UninstallOptions>();
    CLI::App* uninstall =
        app.add_subcommand("uninstall", "Remove an installed game and its shortcuts");
    uninstall->add_option("TARGET", options->target, "The game's folder")->required();
    uninstall->add_flag("--yes", options->isSure, "Don't ask whether to delete it");
    uninstall
        ->add_option("--answer", options->answer,
                     "Answer to questions when there is no terminal: retry or no")
        ->check(CLI::IsMember({"retry", "no"}))
        ->capture_default_str();
    commands.push_back({uninstall, [options](VelPatchConsole& console) {
                            return RunUninstallCommand(*options, console);
                        }});
}
