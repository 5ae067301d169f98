// "velpatch-kit inspect" and "velpatch-kit verify".
#include "core/CXFileSystem.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchConsole.h"
#include "kit/VelPatchInspector.h"
#include "kit/VelPatchJson.h"
#include "kit/VelPatchKit.h"
#include "kit/VelPatchKitCommands.h"
#include "kit/VelPatchKitTools.h"
#include "kit/VelPatchMaker.h"
#include "kit/VelPatchParallel.h"
#include "kit/VelPatchVerifier.h"
#include "kit/VelPatchVolumeSet.h"
#include "stream/CXStream.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace {

/// How many of the costliest files are named.
constexpr size_t kCostliest = 10;

struct InspectionOptions {
    std::string control, data, target;
    bool json = false;
    bool after = false;
    unsigned workers = 0;
};

/// Names of the sums, in the table and in JSON alike.
struct NamedSum {
    const char* name;
    uint64_t bytes;
};

std::vector<NamedSum> ListSums(const VelPatchInspector::Sums& sums, uint64_t controlSize) {
    return {{"creates", sums.operations[COMMAND_CREATE_FILE]},
            {"edits", sums.operations[COMMAND_EDIT_FILE]},
            {"moves", sums.operations[COMMAND_MOVE_FILE]},
            {"deletes", sums.operations[COMMAND_DELETE_FILE]},
            {"folders",
             sums.operations[COMMAND_CREATE_FOLDER] + sums.operations[COMMAND_DELETE_FOLDER]},
            {"new-bytes", sums.newBytes},
            {"copied-bytes", sums.copiedBytes},
            {"literal-bytes", sums.literalBytes},
            {"download-bytes", sums.dataBytes + controlSize},
            {"asked-free-bytes",
             sums.askedFreeBytes > 0 ? static_cast<uint64_t>(sums.askedFreeBytes) : 0},
            {"temporary-bytes", sums.temporaryBytes},
            {"final-bytes-at-most", sums.finalBytesAtMost}};
}

/// Indices of the operations that cost most in the data file, or, if that wasn't read, that make
/// the largest files.
std::vector<size_t> ListCostliest(const std::vector<VelPatchOperationCost>& costs) {
    std::vector<size_t> order;
    for (size_t i = 0; i < costs.size(); i++) {
        if (costs[i].newBytes > 0) {
            order.push_back(i);
        }
    }
    std::stable_sort(order.begin(), order.end(), [&costs](size_t a, size_t b) {
        return std::make_pair(costs[a].storedBytes, costs[a].newBytes) >
               std::make_pair(costs[b].storedBytes, costs[b].newBytes);
    });
    order.resize(std::min(order.size(), kCostliest));
    return order;
}

CXString Number(uint64_t number, bool isKnown) {
    return isKnown ? CXString::Format("%d", number) : CXString("-");
}

void PutRow(const char* index, const char* command, const CXString& made, const CXString& copied,
            const CXString& literal, const CXString& stored, const CXString& path) {
    std::printf("%6s  %-13s %13s %13s %13s %13s  %s\n", index, command, made.GetData(),
                copied.GetData(), literal.GetData(), stored.GetData(), path.GetData());
}

CXString DescribePath(const PatchOperation& operation) {
    if (operation.sourcePath.IsEmpty() || operation.sourcePath == operation.destinationPath) {
        return operation.destinationPath;
    }
    return CXString::Format("%s (from %s)", operation.destinationPath.GetData(),
                            operation.sourcePath.GetData());
}

void PutOperationRow(const PatchControl& control, const VelPatchInspector& inspector,
                     size_t index) {
    const PatchOperation& operation = control.operations[index];
    const VelPatchOperationCost& cost = inspector.GetCosts()[index];
    const bool isCopy = operation.command == COMMAND_MOVE_FILE;
    PutRow(CXString::Format("%d", index).GetData(), PatchCommandWord(operation.command),
           Number(cost.newBytes, cost.newBytes > 0 || cost.isRead),
           Number(cost.copiedBytes, cost.isRead || isCopy), Number(cost.literalBytes, cost.isRead),
           Number(cost.storedBytes, cost.isRead), DescribePath(operation));
}

void ShowTable(const PatchControl& control, uint64_t controlSize,
               const VelPatchInspector& inspector, VelPatchConsole& console) {
    PutRow("#", "command", "new", "copied", "literal", "stored", "path");
    for (size_t i = 0; i < control.operations.size(); i++) {
        PutOperationRow(control, inspector, i);
    }
    std::printf("\nThe costliest files:\n");
    for (const size_t index : ListCostliest(inspector.GetCosts())) {
        PutOperationRow(control, inspector, index);
    }
    std::printf("\n");
    for (const NamedSum& sum : ListSums(inspector.GetSums(), controlSize)) {
        console.PutData(sum.name, sum.bytes);
    }
}

void PutOperation(VelPatchJson& json, const PatchOperation& operation,
                  const VelPatchOperationCost& cost) {
    json.OpenObject();
    json.PutText("command", PatchCommandWord(operation.command));
    json.PutText("path", operation.destinationPath);
    if (!operation.sourcePath.IsEmpty()) {
        json.PutText("source", operation.sourcePath);
    }
    json.PutNumber("flags", static_cast<uint64_t>(operation.flags));
    json.PutNumber("new-bytes", cost.newBytes);
    if (cost.isRead) {
        json.PutNumber("copied-bytes", cost.copiedBytes);
        json.PutNumber("literal-bytes", cost.literalBytes);
        json.PutNumber("stored-bytes", cost.storedBytes);
        json.PutNumber("old-bytes", cost.oldBytes);
    }
    json.CloseObject();
}

CXString MakeJson(const PatchControl& control, uint64_t controlSize,
                  const VelPatchInspector& inspector, const VelPatchDataFile& data) {
    VelPatchJson json;
    json.PutBool("data-read", data.stream != nullptr);
    json.OpenList("operations");
    for (size_t i = 0; i < control.operations.size(); i++) {
        PutOperation(json, control.operations[i], inspector.GetCosts()[i]);
    }
    json.CloseList();
    json.OpenList("costliest");
    for (const size_t index : ListCostliest(inspector.GetCosts())) {
        json.PutNumber(nullptr, static_cast<uint64_t>(index));
    }
    json.CloseList();
    json.OpenObject("sums");
    for (const NamedSum& sum : ListSums(inspector.GetSums(), controlSize)) {
        json.PutNumber(sum.name, sum.bytes);
    }
    json.CloseObject();
    json.OpenList("faults");
    for (const VelPatchDataFault& fault : inspector.GetFaults()) {
        json.OpenObject();
        json.PutText("text", fault.text);
        uint64_t offset = 0;
        json.PutText("file", data.FindPlace(fault.fileOffset, offset));
        json.PutNumber("file-offset", offset);
        json.PutNumber("inflated-offset", fault.inflatedOffset);
        if (fault.operation != VelPatchDataFault::kNoOperation) {
            json.PutNumber("operation", static_cast<uint64_t>(fault.operation));
            json.PutText("path", control.operations[fault.operation].destinationPath);
        }
        json.CloseObject();
    }
    json.CloseList();
    return json.Finish();
}

void ComplainOfFault(const PatchControl& control, const VelPatchDataFault& fault,
                     const VelPatchDataFile& data, VelPatchConsole& console) {
    uint64_t offset = 0;
    const CXString& file = data.FindPlace(fault.fileOffset, offset);
    CXString where = CXString::Format("byte %d of '%s', byte %d inflated", offset, file.GetData(),
                                      fault.inflatedOffset);
    if (fault.operation != VelPatchDataFault::kNoOperation) {
        const PatchOperation& operation = control.operations[fault.operation];
        where = CXString::Format("%s, operation %d (%s '%s')", where.GetData(), fault.operation,
                                 PatchCommandWord(operation.command),
                                 operation.destinationPath.GetData());
    }
    console.Complain(CXString::Format("%s: %s", where.GetData(), fault.text.GetData()));
}

int RunInspect(const InspectionOptions& options, VelPatchConsole& console) {
    PatchControl control;
    uint64_t controlSize = 0;
    if (!LoadTypedControl(options.control, console, control, controlSize)) {
        return kKitUsage;
    }
    VelPatchInspector inspector(control);
    VelPatchDataFile data;
    int code = kKitDone;
    if (!options.data.empty()) {
        CXString problem;
        const CXString path = TypedPath(options.data);
        data = OpenDataFile(path, problem);
        if (!data.stream) {
            console.Complain(problem);
            return CXFileSystem::Exists(path) ? kKitFailed : kKitUsage;
        }
        inspector.SetProgress([&console](double fraction) {
            console.ShowProgress("reading the data file", fraction);
            return !KitPlatform::IsInterrupted();
        });
        const CXResult result = inspector.ReadData(*data.stream);
        console.EndProgress();
        if (result == kCXResultCancelled) {
            console.Complain("stopped");
            return kKitStopped;
        }
        code = result == kCXResultOK ? kKitDone : kKitFailed;
    }
    if (options.json) {
        const CXString json = MakeJson(control, controlSize, inspector, data);
        std::fwrite(json.GetData(), 1, json.GetLength(), stdout);
    } else {
        ShowTable(control, controlSize, inspector, console);
    }
    std::fflush(stdout);
    for (const VelPatchDataFault& fault : inspector.GetFaults()) {
        ComplainOfFault(control, fault, data, console);
    }
    if (!options.data.empty() && code == kKitDone) {
        console.Say("Every record of the data file is good.");
    }
    return code;
}

CXString MakeVerifyJson(const VelPatchVerifier& verifier, bool after) {
    VelPatchJson json;
    json.PutText("state", after ? "after" : "before");
    json.PutNumber("checked", static_cast<uint64_t>(verifier.GetChecked()));
    json.PutBool("good", !verifier.IsAnyWrong());
    json.OpenList("mismatches");
    for (const VelPatchMismatch& mismatch : verifier.GetMismatches()) {
        json.OpenObject();
        json.PutText("path", mismatch.path);
        json.PutText("why", mismatch.why);
        json.PutBool("tolerated", mismatch.isTolerated);
        json.CloseObject();
    }
    json.CloseList();
    return json.Finish();
}

/// A control file states few checksums of finished files: the records have them all. Takes them
/// from the data file; without it the files can only be looked for.
int CompleteChecksums(const InspectionOptions& options, VelPatchConsole& console,
                      PatchControl& control) {
    const CXString path =
        options.data.empty()
            ? CXFileSystem::Join(CXFileSystem::GetParent(TypedPath(options.control)),
                                 kPatchDataName)
            : TypedPath(options.data);
    if (!LacksRecordChecksums(control)) {
        return kKitDone;
    }
    if (options.data.empty() && !CXFileSystem::Exists(path)) {
        console.Warn("the data file isn't at hand (name it with --data), so not all contents are "
                     "compared");
        return kKitDone;
    }
    CXString problem;
    const VelPatchDataFile data = OpenDataFile(path, problem);
    if (!data.stream) {
        console.Complain(problem);
        return kKitUsage;
    }
    const CXResult result = TakeRecordChecksums(control, *data.stream, [&](double fraction) {
        console.ShowProgress("reading the data file", fraction);
        return !KitPlatform::IsInterrupted();
    });
    console.EndProgress();
    if (result == kCXResultCancelled) {
        console.Complain("stopped");
        return kKitStopped;
    }
    if (result != kCXResultOK) {
        console.Complain(CXString::Format(
            "'%s' is damaged, or of another patch; inspect tells more", path.GetData()));
        return kKitUsage;
    }
    return kKitDone;
}

int RunVerify(const InspectionOptions& options, VelPatchConsole& console) {
    PatchControl control;
    uint64_t unused = 0;
    if (!LoadTypedControl(options.control, console, control, unused)) {
        return kKitUsage;
    }
    const CXString target = TypedPath(options.target);
    if (!CXFileSystem::IsDirectory(target)) {
        console.Complain(CXString::Format("'%s' is not a folder", target.GetData()));
        return kKitUsage;
    }
    const int completed = options.after ? CompleteChecksums(options, console, control) : kKitDone;
    if (completed != kKitDone) {
        return completed;
    }
    VelPatchVerifier verifier(control, target);
    if (options.workers > 0) {
        verifier.SetWorkers(options.workers);
    }
    verifier.SetProgress([&console](double fraction) {
        console.ShowProgress("checking the target", fraction);
        return !KitPlatform::IsInterrupted();
    });
    const bool isWhole = options.after ? verifier.CheckAfter() : verifier.CheckBefore();
    console.EndProgress();
    if (!isWhole) {
        console.Complain("stopped");
        return kKitStopped;
    }
    if (options.json) {
        const CXString json = MakeVerifyJson(verifier, options.after);
        std::fwrite(json.GetData(), 1, json.GetLength(), stdout);
    } else {
        for (const VelPatchMismatch& mismatch : verifier.GetMismatches()) {
            console.PutData(
                mismatch.isTolerated ? "tolerated" : "wrong",
                CXString::Format("%s\t%s", mismatch.path.GetData(), mismatch.why.GetData()));
        }
        console.PutData("checked", static_cast<uint64_t>(verifier.GetChecked()));
    }
    const bool isWrong = verifier.IsAnyWrong();
    console.Say(isWrong ? CXString::Format("The target isn't as it must be %s the patch.",
                                           options.after ? "after" : "before")
                        : CXString::Format("All is as it must be %s the patch.",
                                           options.after ? "after" : "before"));
    return isWrong ? kKitFailed : kKitDone;
}

} // namespace

void DefineInspection(CLI::App& app, std::vector<VelPatchKitCommand>& commands) {
    auto options = std::make_shared<InspectionOptions>();
    CLI::App* inspect = app.add_subcommand("inspect", "Show what a patch does, and check its data");
    inspect->add_option("CONTROL", options->control, "The control file, or its address")
        ->required();
    inspect->add_option("DATA", options->data,
                        "Data file, or folder of its volumes: every record is read and checked");
    inspect->add_flag("--json", options->json, "Write JSON in place of the table");
    commands.push_back(
        {inspect, [options](VelPatchConsole& console) { return RunInspect(*options, console); }});

    CLI::App* verify =
        app.add_subcommand("verify", "Check that a game is as a patch expects it, file by file");
    verify->add_option("CONTROL", options->control, "The control file, or its address")->required();
    verify->add_option("TARGET", options->target, "The game's folder")->required();
    verify->add_flag("--after", options->after, "Expect the state after the patch, not before it");
    verify->add_option("--data", options->data,
                       "With --after: the data file, or the folder of its volumes (default: "
                       "patch-data.bin beside the control file)");
    verify
        ->add_option("--workers", options->workers, "Threads (default: as many as the system runs)")
        ->check(CLI::Range(1, 256));
    verify->add_flag("--json", options->json, "Write JSON in place of lines");
    commands.push_back(
        {verify, [options](VelPatchConsole& console) { return RunVerify(*options, console); }});
}
