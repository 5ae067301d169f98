// A product's configuration from hostile bytes: its check ends and names lines that are there, and
// the registry edits become operations that an uninstall takes back, the first one excepted.
#include "app/config/VelPatchRegistryEdits.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "fuzz/FuzzTools.h"
#include "kit/VelPatchConfigCheck.h"
#include "tests/support/TempFolder.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const TempFolder folder;
    SilenceLog();
    const std::string text(data, data + size);
    folder.WriteFile("patch-config.txt", text);
    VelPatchConfigCheck check(folder.Path(), 0);
    check.Run();
    const auto lines = std::count_if(text.begin(), text.end(),
                                     [](char byte) { return byte == '\n' || byte == '\r'; });
    for (const VelPatchConfigFinding& finding : check.GetFindings()) {
        Check(finding.line <= static_cast<size_t>(lines) + 1 && !finding.text.IsEmpty());
    }

    DNValueRef root(new DNMemoryValue);
    TextConfig::Parse(text.data(), text.size(), *root);
    const std::vector<VelPatchRegistryEdit> edits = ReadRegistryEdits(*root->Get("registry-edits"));
    const VelPatchRegistryVariables variables = MakeRegistryVariables("C:/a", "b", "c", size);
    Check(ListRegistryOperations(edits, variables, false).size() <= edits.size());
    const std::vector<VelPatchRegistryOperation> back =
        ListRegistryOperations(edits, variables, true);
    Check(back.empty() || back.size() < edits.size());
    for (const VelPatchRegistryOperation& operation : back) {
        Check(operation.action == VelPatchRegistryAction::DeleteValue ||
              operation.action == VelPatchRegistryAction::DeleteKey);
    }
    return 0;
}
