#include "kit/VelPatchKit.h"

#include "app/config/VelPatchConfiguration.h"
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchConsole.h"
#include "kit/VelPatchFetch.h"
#include "kit/VelPatchFileDiff.h"
#include "kit/VelPatchKitCommands.h"
#include "kit/VelPatchKitTools.h"
#include "kit/VelPatchMaker.h"
#include "kit/VelPatchParallel.h"
#include "kit/VelPatchRunner.h"
#include "net/CXURI.h"
#include "patch/BinaryDiff.h"
#include "patch/PatchControl.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "stream/CXStreamFile.h"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace {

constexpr const char* kExamples = R"(
Examples:
  velpatch-kit make game-1.0 game-1.1 out     the patch from one build to the next
  velpatch-kit make --full game-1.1 out       an installation
  velpatch-kit apply out/patch-control.txt installed-game
                                              what a player's run does
  velpatch-kit uninstall installed-game       ... and how the game goes again
  velpatch-kit inspect out/patch-control.txt out/patch-data.bin
                                              what it does, and whether its data are sound
  velpatch-kit verify --after out/patch-control.txt installed-game
                                              has it worked?
  velpatch-kit split out/patch-data.bin discs --size 650M
                                              volumes for discs
  velpatch-kit check-config data              what is wrong with a product's configuration
  velpatch-kit diff old.pak new.pak pak.diff  one file alone ...
  velpatch-kit patch old.pak pak.diff new.pak ... and back again
  velpatch-kit fetch https://host/patch-data.bin patch-data.bin
                                              try a server
  velpatch-kit publish service.txt out        a patch stream service for nginx

"make" leaves patch-control.txt and patch-data.bin in OUT. Results go to standard output, one
"name<tab>value" a line; words go to standard error.
Exit codes: 0 done, 1 failed (the target was rolled back), 2 wrong usage, 130 stopped.
)";

struct KitOptions {
    bool quiet = false;
    bool verbose = false;
    std::string oldFile, newFile, diffFile;
    std::string control, target, data;
    std::string address, file, trustFile, proxy;
    bool resume = false;
    std::string answer = "no";
};

int RunDiff(const KitOptions& options, VelPatchConsole& console) {
    std::vector<uint8_t> oldBytes;
    std::vector<uint8_t> newBytes;
    CXString problem;
    console.ShowProgress("comparing the files", -1);
    if (ReadFileToDiff(TypedPath(options.oldFile), oldBytes, problem) != kCXResultOK ||
        ReadFileToDiff(TypedPath(options.newFile), newBytes, problem) != kCXResultOK) {
        console.Complain(problem);
        return kKitUsage;
    }
    const std::vector<uint8_t> diff = MakeFileDiff(oldBytes, newBytes, GetProcessorCount());
    const CXString path = TypedPath(options.diffFile);
    const int code = WriteNewFile(path, console, [&](CXStreamFile& file) {
        file.Write(diff.data(), diff.size());
        return file.GetLastError();
    });
    if (code == kKitDone) {
        console.PutData("diff", path);
        console.PutData("diff-bytes", uint64_t{diff.size()});
        console.PutData("new-bytes", uint64_t{newBytes.size()});
    }
    return code;
}

int RunPatchFile(const KitOptions& options, VelPatchConsole& console) {
    CXStreamFile oldFile;
    CXStreamFile diffFile;
    if (!OpenForReading(oldFile, TypedPath(options.oldFile), console) ||
        !OpenForReading(diffFile, TypedPath(options.diffFile), console)) {
        return kKitUsage;
    }
    const CXString path = TypedPath(options.newFile);
    CXString message;
    uint64_t newSize = 0;
    const int code = WriteNewFile(path, console, [&](CXStreamFile& file) {
        const CXResult result = ApplyDiffFromStream(oldFile, file, diffFile, message);
        newSize = file.GetSize();
        return result;
    });
    if (code != kKitDone) {
        if (!message.IsEmpty()) {
            console.Complain(message);
        }
        return code;
    }
    console.PutData("new", path);
    console.PutData("new-bytes", newSize);
    return kKitDone;
}

int RunApply(const KitOptions& options, VelPatchConsole& console) {
    PatchControl stated;
    uint64_t controlSize = 0;
    if (!LoadTypedControl(options.control, console, stated, controlSize)) {
        return kKitUsage;
    }
    // Without a name of its own the data file lies beside the control file.
    const CXString beside =
        CXFileSystem::Join(CXFileSystem::GetParent(options.control), kPatchDataName);
    const std::string data = options.data.empty() ? beside.GetData() : options.data;
    if (!IsWebAddress(data) && !KitPlatform::IsRegularFile(TypedPath(data))) {
        console.Complain(CXString::Format("the data file '%s' is missing; name it with --data",
                                          TypedPath(data).GetData()));
        return kKitUsage;
    }
    const CXString target = TypedPath(options.target);
    if (CXFileSystem::Exists(target) && !CXFileSystem::IsDirectory(target)) {
        console.Complain(CXString::Format("'%s' is not a folder", target.GetData()));
        return kKitUsage;
    }

    const VelPatchWatcher watcher = WatchOnConsole(console, options.answer == "retry");
    TaskStatus last;
    const VelPatchOutcome outcome =
        RunPatch(TypedAddress(options.control), TypedAddress(data), target, watcher, last);
    console.EndProgress();
    const CXString log = VelPatchTask_ApplyFilePatches::GetLogFilePath();
    console.PutData("log", log);
    if (outcome == VelPatchOutcome::Finished) {
        console.Say(CXString::Format("Done. The log is '%s'.", log.GetData()));
        return kKitDone;
    }
    console.Complain(last.failureTitle.IsEmpty() ? CXString("the patch has failed")
                                                 : last.failureTitle);
    if (!last.failureDetail.IsEmpty()) {
        console.Complain(last.failureDetail);
    }
    console.Say(CXString::Format("The log is '%s'.", log.GetData()));
    return outcome == VelPatchOutcome::Stopped ? kKitStopped : kKitFailed;
}

int RunFetch(const KitOptions& options, VelPatchConsole& console) {
    VelPatchFetchOptions fetching;
    fetching.address = CXString(options.address.data(), options.address.size());
    fetching.path = TypedPath(options.file);
    fetching.resume = options.resume;
    fetching.proxy = CXString(options.proxy.data(), options.proxy.size());
    return FetchFile(fetching, console);
}

void DefineFiles(CLI::App& app, KitOptions& options) {
    CLI::App* diff = app.add_subcommand("diff", "Make the diff of one pair of files");
    diff->add_option("OLD", options.oldFile)->required();
    diff->add_option("NEW", options.newFile)->required();
    diff->add_option("DIFF", options.diffFile, "The file to write")->required();
    CLI::App* patch = app.add_subcommand("patch", "Apply a diff to one file");
    patch->add_option("OLD", options.oldFile)->required();
    patch->add_option("DIFF", options.diffFile)->required();
    patch->add_option("NEW", options.newFile, "The file to write")->required();
}

void DefineApply(CLI::App& app, KitOptions& options) {
    CLI::App* apply = app.add_subcommand("apply", "Apply a patch to an installed game");
    apply->add_option("CONTROL", options.control, "The control file, or its address")->required();
    apply->add_option("TARGET", options.target, "The game's folder")->required();
    apply->add_option("--data", options.data,
                      "The data file or its address (default: patch-data.bin beside it)");
    apply
        ->add_option("--answer", options.answer,
                     "Answer to questions when there is no terminal: retry or no")
        ->check(CLI::IsMember({"retry", "no"}))
        ->capture_default_str();
}

void DefineFetch(CLI::App& app, KitOptions& options) {
    CLI::App* fetch = app.add_subcommand("fetch", "Fetch a file as a player's run does");
    fetch->add_option("URI", options.address, "An http or https address")->required();
    fetch->add_option("FILE", options.file, "The file to write")->required();
    fetch->add_flag("--resume", options.resume, "Ask for what an existing file lacks");
    fetch->add_option("--proxy", options.proxy, "HOST:PORT of an HTTP proxy");
}

/// Reads the command line. The answer counts if `isRead` stays false: the exit code of a run that
/// ends here, after help or a usage error has been printed.
int ParseArguments(CLI::App& app, int argc, const char* const* argv, bool& isRead) {
    CLI11_PARSE(app, argc, argv);
    isRead = true;
    return 0;
}

int RunCommand(const CLI::App& app, const KitOptions& options,
               const std::vector<VelPatchKitCommand>& commands, VelPatchConsole& console) {
    if (app.got_subcommand("diff")) {
        return RunDiff(options, console);
    }
    if (app.got_subcommand("patch")) {
        return RunPatchFile(options, console);
    }
    if (app.got_subcommand("fetch")) {
        return RunFetch(options, console);
    }
    for (const VelPatchKitCommand& command : commands) {
        if (command.app->parsed()) {
            return command.run(console);
        }
    }
    return RunApply(options, console);
}

} // namespace

int RunKit(const std::vector<std::string>& arguments) {
    KitOptions options;
    CLI::App app("Makes and applies VelPatch patches.", "velpatch-kit");
    app.footer(kExamples);
    app.set_version_flag("--version", "velpatch-kit " VELPATCH_VERSION);
    app.add_flag("-q,--quiet", options.quiet, "Show problems alone");
    app.add_flag("-v,--verbose", options.verbose, "Show the log's lines too");
    app.add_option("--ca", options.trustFile,
                   "PEM file of roots that https addresses are trusted by (default: "
                   "data/openssl.crt beside the program)");
    app.require_subcommand(1);
    app.fallthrough(); // --quiet may stand behind the command
    std::vector<VelPatchKitCommand> commands;
    DefineMake(app, commands);
    DefineFiles(app, options);
    DefineApply(app, options);
    DefineFetch(app, options);
    DefineInspection(app, commands);
    DefineVolumes(app, commands);
    DefineConfigurationCheck(app, commands);
    DefinePublish(app, commands);
    DefineUninstall(app, commands);

    std::vector<const char*> pointers;
    pointers.reserve(arguments.size());
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    bool isRead = false;
    const int code =
        ParseArguments(app, static_cast<int>(pointers.size()), pointers.data(), isRead);
    if (!isRead) {
        return code == 0 ? kKitDone : kKitUsage;
    }

    VelPatchConsole::Options showing;
    showing.quiet = options.quiet;
    showing.verbose = options.verbose;
    VelPatchConsole console(showing);
    KitPlatform::ReturnFreedMemory();
    KitPlatform::CatchInterrupts();
    LoadApplicationConfiguration();
    if (!options.trustFile.empty() && !TrustTypedFile(options.trustFile, console)) {
        return kKitUsage;
    }
    const int result = RunCommand(app, options, commands, console);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        console.Complain("the results can't be written to standard output");
        return result == kKitDone ? kKitFailed : result;
    }
    return result;
}
