#include "core/CXFileSystem.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchConsole.h"
#include "kit/VelPatchKit.h"
#include "kit/VelPatchKitCommands.h"
#include "kit/VelPatchKitTools.h"
#include "kit/VelPatchPublishEdit.h"
#include "kit/VelPatchPublishReader.h"
#include "kit/VelPatchPublisher.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamTools.h"

#include <CLI/CLI.hpp>

namespace {

constexpr uint64_t kLargestServiceFile = 64 << 20;

CXString TextOf(const std::string& text) {
    return CXString(text.data(), text.size());
}

struct PublishOptions {
    std::string serviceFile;
    std::string outFolder;
    bool prune = false;
    std::vector<std::string> addBuild; ///< empty, or STREAM and BUILD
    std::string anchorFile, anchorChecksum, description;
    std::vector<std::string> patches;       ///< BUILD=FOLDER
    std::vector<std::string> installations; ///< ID=FOLDER
};

bool ComplainAll(const std::vector<CXString>& problems, VelPatchConsole& console) {
    for (const CXString& problem : problems) {
        console.Complain(problem);
    }
    return !problems.empty();
}

/// "NAME=FOLDER" pairs. Folders below that of the service file are written relative to it.
bool ReadPairs(const std::vector<std::string>& words, const CXString& base,
               std::vector<std::pair<CXString, CXString>>& pairs, VelPatchConsole& console) {
    for (const std::string& word : words) {
        const size_t sign = word.rfind('=');
        if (sign == std::string::npos || sign == 0 || sign + 1 == word.size()) {
            console.Complain(
                CXString::Format("'%s' should be a name, '=' and a folder", word.c_str()));
            return false;
        }
        CXString folder = TypedPath(word.substr(sign + 1));
        if (CXFileSystem::IsWithin(base, folder) && folder != base) {
            folder = CXString(
                folder.View().substr(CXFileSystem::StripTrailingSeparators(base).GetLength() + 1));
        }
        pairs.emplace_back(TextOf(word.substr(0, sign)), folder);
    }
    return true;
}

bool ReadNewBuild(const PublishOptions& options, const CXString& base, VelPatchNewBuild& build,
                  VelPatchConsole& console) {
    build.streamId = TextOf(options.addBuild[0]);
    build.name = TextOf(options.addBuild[1]);
    build.description = TextOf(options.description);
    build.anchorChecksum = TextOf(options.anchorChecksum);
    if (!ReadPairs(options.patches, base, build.patches, console) ||
        !ReadPairs(options.installations, base, build.installations, console)) {
        return false;
    }
    if (options.anchorFile.empty() == options.anchorChecksum.empty()) {
        console.Complain("--add-build needs either --anchor or --anchor-checksum");
        return false;
    }
    if (build.description.IsEmpty() && !(build.patches.empty() && build.installations.empty())) {
        console.Complain("--description is missing: players read it above the patch");
        return false;
    }
    if (options.anchorFile.empty()) {
        return true;
    }
    CXStreamFile file;
    if (!OpenForReading(file, TypedPath(options.anchorFile), console)) {
        return false;
    }
    build.anchorChecksum = MD5OfStream(file, file.GetSize());
    return file.GetLastError() == kCXResultOK;
}

/// Puts the text in place of the service file's. A service file may hold passwords, so its
/// permissions stay.
CXResult ReplaceServiceFile(const CXString& path, const CXString& text) {
    const CXString temporary = CXString::Format("%s.tmp", path.GetData());
    CXStreamFile file;
    file.Open(temporary, kOpenRead | kOpenWrite | kOpenCreate | kOpenTruncate);
    if (!file.IsOpen()) {
        return CXResultCertainFailure(file.GetLastError());
    }
    CXResult result = CXFileSystem::CopyMode(path, temporary);
    if (result == kCXResultOK) {
        file.Write(text.GetData(), text.GetLength());
    }
    file.Flush();
    file.Close();
    if (result == kCXResultOK) {
        result = file.GetLastError();
    }
    if (result != kCXResultOK) {
        CXFileSystem::DeleteFile(temporary);
        return result;
    }
    return CXFileSystem::ReplaceWithBackup(path, temporary);
}

void ShowDone(const VelPatchPublisher& publisher, const CXString& checked,
              VelPatchConsole& console) {
    const VelPatchPublisher::Summary& summary = publisher.GetSummary();
    console.PutData("http-configuration", publisher.GetHttpPath());
    console.PutData("server-configuration", publisher.GetServerPath());
    if (!publisher.GetStandAlonePath().IsEmpty()) {
        console.PutData("stand-alone-configuration", publisher.GetStandAlonePath());
    }
    console.PutData("patches", summary.patches);
    console.PutData("replies", summary.replies);
    console.PutData("files-copied", summary.filesCopied);
    console.PutData("bytes-copied", summary.bytesCopied);
    console.PutData("files-removed", summary.filesRemoved);
    console.Say(checked);
}

int RunPublish(const PublishOptions& options, VelPatchConsole& console) {
    const CXString path = TypedPath(options.serviceFile);
    const CXString base = CXFileSystem::GetParent(path);
    const CXString fileName = CXFileSystem::GetFileName(path);
    CXStringEdit bytes;
    CXFileSystem::RecoverBackup(path);
    if (!KitPlatform::IsRegularFile(path) ||
        ReadWholeFile(path, bytes, kLargestServiceFile) != kCXResultOK) {
        console.Complain(CXString::Format("'%s' can't be read", path.GetData()));
        return kKitUsage;
    }
    CXString contents = bytes.ToString();
    VelPatchPublishService service;
    auto text = std::make_unique<VelPatchPublishText>(fileName, contents);
    ReadPublishService(*text, base, service);
    if (ComplainAll(text->GetProblems(), console)) {
        return kKitUsage;
    }
    if (!options.addBuild.empty()) {
        VelPatchNewBuild build;
        CXString problem;
        if (!ReadNewBuild(options, base, build, console)) {
            return kKitUsage;
        }
        if (!AddBuildToServiceText(bytes, build, contents, problem)) {
            console.Complain(problem);
            return kKitUsage;
        }
        service = VelPatchPublishService();
        text = std::make_unique<VelPatchPublishText>(
            CXString::Format("%s with the new build", fileName.GetData()), contents);
        ReadPublishService(*text, base, service);
        if (ComplainAll(text->GetProblems(), console)) {
            return kKitUsage;
        }
    }

    VelPatchPublisher publisher(service, TypedPath(options.outFolder));
    publisher.SetProgress(
        [&](const CXString& words, double fraction) { console.ShowProgress(words, fraction); });
    publisher.SetStopTest(KitPlatform::IsInterrupted);
    const bool isGood = publisher.Check();
    console.EndProgress();
    for (const CXString& warning : publisher.GetWarnings()) {
        console.Warn(warning);
    }
    if (!isGood) {
        ComplainAll(publisher.GetProblems(), console);
        return KitPlatform::IsInterrupted() ? kKitStopped : kKitUsage;
    }
    CXString problem;
    CXResult result = publisher.Write(options.prune, problem);
    console.EndProgress();
    if (result == kCXResultOK && !options.addBuild.empty()) {
        result = ReplaceServiceFile(path, contents);
        problem = CXString::Format("the service is published, but '%s' can't be written (result "
                                   "%d)",
                                   path.GetData(), result);
    }
    if (result != kCXResultOK) {
        console.Complain(problem);
        return result == kCXResultCancelled ? kKitStopped : kKitFailed;
    }
    ShowDone(publisher, "Published. A running nginx serves it once it is told to reload.", console);
    return kKitDone;
}

} // namespace

void DefinePublish(CLI::App& app, std::vector<VelPatchKitCommand>& commands) {
    auto options = std::make_shared<PublishOptions>();
    CLI::App* publish = app.add_subcommand(
        "publish", "Make the files and the nginx configuration of a patch stream service");
    publish->add_option("SERVICE-FILE", options->serviceFile, "Products, streams, builds, accounts")
        ->required();
    publish->add_option("OUT", options->outFolder, "The folder to publish into")->required();
    publish->add_flag("--prune", options->prune,
                      "Remove files that are on offer no more; only when nginx has read the last "
                      "configuration");
    CLI::Option* add = publish
                           ->add_option("--add-build", options->addBuild,
                                        "Add a build to the service file first: STREAM BUILD")
                           ->expected(2)
                           ->allow_extra_args(false); // or it would take what follows
    publish->add_option("--anchor", options->anchorFile, "The new build's anchor file")->needs(add);
    publish->add_option("--anchor-checksum", options->anchorChecksum, "Or its MD5")->needs(add);
    publish
        ->add_option("--patch", options->patches,
                     "BUILD=FOLDER: the patch from an earlier build, as \"make\" left it")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->needs(add);
    publish
        ->add_option("--installation", options->installations,
                     "ID=FOLDER: the installation that this installation id gets")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->needs(add);
    publish->add_option("--description", options->description, "What players read above the patch")
        ->needs(add);
    commands.push_back(
        {publish, [options](VelPatchConsole& console) { return RunPublish(*options, console); }});
}
