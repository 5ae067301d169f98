// "velpatch-kit check-config".
#include "core/CXFileSystem.h"
#include "core/CXTime.h"
#include "kit/VelPatchConfigCheck.h"
#include "kit/VelPatchConsole.h"
#include "kit/VelPatchJson.h"
#include "kit/VelPatchKit.h"
#include "kit/VelPatchKitCommands.h"
#include "kit/VelPatchKitTools.h"

#include <CLI/CLI.hpp>

namespace {

struct CheckOptions {
    std::string folder;
    bool json = false;
};

CXString MakeJson(const VelPatchConfigCheck& check) {
    VelPatchJson json;
    json.PutNumber("errors", static_cast<uint64_t>(check.CountErrors()));
    json.OpenList("findings");
    for (const VelPatchConfigFinding& finding : check.GetFindings()) {
        json.OpenObject();
        json.PutText("severity", finding.isError ? "error" : "warning");
        if (finding.line != 0) {
            json.PutNumber("line", static_cast<uint64_t>(finding.line));
        }
        json.PutText("key", finding.key);
        json.PutText("text", finding.text);
        json.CloseObject();
    }
    json.CloseList();
    return json.Finish();
}

int RunCheck(const CheckOptions& options, VelPatchConsole& console) {
    const CXString folder = TypedPath(options.folder);
    if (!CXFileSystem::IsDirectory(folder)) {
        console.Complain(CXString::Format("'%s' is not a folder", folder.GetData()));
        return kKitUsage;
    }
    VelPatchConfigCheck check(folder, CXTime::GetCurrentTime());
    check.Run();
    if (options.json) {
        const CXString json = MakeJson(check);
        std::fwrite(json.GetData(), 1, json.GetLength(), stdout);
        std::fflush(stdout);
    } else {
        for (const VelPatchConfigFinding& finding : check.GetFindings()) {
            console.PutData(finding.isError ? "error" : "warning",
                            CXString::Format("%d\t%s\t%s", finding.line, finding.key.GetData(),
                                             finding.text.GetData()));
        }
    }
    const size_t errors = check.CountErrors();
    console.Say(
        CXString::Format("%d errors, %d warnings.", errors, check.GetFindings().size() - errors));
    return errors == 0 ? kKitDone : kKitFailed;
}

} // namespace

void DefineConfigurationCheck(CLI::App& app, std::vector<VelPatchKitCommand>& commands) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* check =
        app.add_subcommand("check-config", "Find what is wrong with a product's data folder");
    check->add_option("DATA", options->folder, "Folder with patch-config.txt")->required();
    check->add_flag("--json", options->json, "Write JSON in place of lines");
    commands.push_back(
        {check, [options](VelPatchConsole& console) { return RunCheck(*options, console); }});
}
