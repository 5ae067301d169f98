// Registry edits: what a run does with a list, what an uninstall does, and what a check finds.
#include "app/config/VelPatchRegistryEdits.h"

#include "core/CXMD5.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

/// "root|path|name|type|value" a line.
std::vector<VelPatchRegistryEdit> Edits(const std::vector<std::string>& lines) {
    std::string text;
    for (size_t i = 0; i < lines.size(); i++) {
        text += std::to_string(i) + "\n{\n";
        std::string rest = lines[i] + "|";
        for (const char* key : {"root", "path", "name", "type", "value"}) {
            text += std::string(key) + " \"" + rest.substr(0, rest.find('|')) + "\"\n";
            rest.erase(0, rest.find('|') + 1);
        }
        text += "}\n";
    }
    DNValueRef root(new DNMemoryValue);
    TextConfig::Parse(text.data(), text.size(), *root);
    return ReadRegistryEdits(*root);
}

/// One operation as a line: the action's first letters, hive, key, name, and what is written.
std::string Show(const VelPatchRegistryOperation& operation) {
    static const char* const kActions[] = {"string", "number", "delete value", "delete key"};
    std::string line = kActions[static_cast<int>(operation.action)];
    line += " " + std::to_string(static_cast<uint32_t>(operation.root) & 0xF) + " " +
            Text(operation.path) + " [" + (operation.isNumbered ? "#" : "") + Text(operation.name) +
            "]";
    if (operation.action == VelPatchRegistryAction::SetNumber) {
        return line + " " + std::to_string(operation.number);
    }
    return operation.data.IsEmpty() ? line : line + " " + Text(operation.data);
}

std::vector<std::string> Show(const std::vector<VelPatchRegistryEdit>& edits, bool uninstall) {
    std::vector<std::string> lines;
    const VelPatchRegistryVariables variables =
        MakeRegistryVariables("C:/Games/Rowan", "bin/RSNE.exe", "rowan-2", 1535);
    for (const VelPatchRegistryOperation& operation :
         ListRegistryOperations(edits, variables, uninstall)) {
        lines.push_back(Show(operation));
    }
    return lines;
}

using Lines = std::vector<std::string>;

TEST(RegistryEdits, RunAndUninstall) {
    const std::vector<VelPatchRegistryEdit> edits = Edits({
        "HKLM|Software\\$(TargetPathKey)|First|STRING|never undone",
        "hkcu|Software\\Rowan||string|default value",
        "HKU|Software\\Rowan|Size|DWORD|$(INSTALLSIZE)",
        "HKCC|Software\\Rowan|Bad|DWORD|12 KiB",
        "HKCR|List|$(Iterative_Key)|STRING|$(TARGETPATH)",
        "HKCR|List|$(iterative_key)|STRING|the same everywhere",
        "HKCR|List|$(iterative_key)|DELETE|$(ANCHORPATH)",
        "HKCR|Old||DELETE|",
        "HKCR|Old|Value|Delete|",
        "HKLM|Software|$(broken|STRING|$(UNKNOWN) stays",
        "HKXX|Software|no hive|STRING|x",
        "|Software|no hive|STRING|x",
        "HKLM|Software|no type||x",
        "HKLM|Software|other type|QWORD|1",
    });
    const std::string key = "rowan-2-" + Text(CXMD5::OfBlock("C__Games_Rowan", 14));
    EXPECT_EQ(
        Show(edits, false),
        (Lines{"string 2 Software\\" + key + " [First] never undone",
               "string 1 Software\\Rowan [] default value", "number 3 Software\\Rowan [Size] 1",
               "number 5 Software\\Rowan [Bad] 0", "string 0 List [#] C:\\Games\\Rowan",
               "string 0 List [#] the same everywhere",
               "delete value 0 List [#] C:\\Games\\Rowan\\bin\\RSNE.exe", "delete key 0 Old []",
               "delete value 0 Old [Value]", "string 2 Software [] $(UNKNOWN) stays"}));
    // Backwards, everything a deletion whatever its type says; the first entry is never reached.
    EXPECT_EQ(
        Show(edits, true),
        (Lines{"delete value 2 Software [other type]", "delete value 2 Software [no type]",
               "delete key 2 Software []", "delete value 0 Old [Value]", "delete key 0 Old []",
               "delete value 0 List [#] C:\\Games\\Rowan\\bin\\RSNE.exe",
               "delete value 0 List [#] C:\\Games\\Rowan", "delete value 5 Software\\Rowan [Bad]",
               "delete value 3 Software\\Rowan [Size]", "delete key 1 Software\\Rowan []"}));
    EXPECT_EQ(Show(Edits({}), true), Lines());
}

TEST(RegistryEdits, NamesOfNumberedValues) {
    const std::vector<VelPatchRegistryValue> values = {{"3", "c"}, {"1", "a"}, {"x", "b"}};
    EXPECT_EQ(Text(FindRegistryValueName(values, "c", true)), "3");
    EXPECT_EQ(Text(FindRegistryValueName(values, "b", false)), "x");
    EXPECT_EQ(Text(FindRegistryValueName(values, "new", true)), "2");
    EXPECT_EQ(Text(FindRegistryValueName(values, "new", false)), "");
    EXPECT_EQ(Text(FindRegistryValueName({}, "new", true)), "1");
    std::vector<VelPatchRegistryValue> full;
    for (int i = 1; i <= 32766; i++) {
        full.push_back({CXString::Format("%d", i), "taken"});
    }
    EXPECT_EQ(Text(FindRegistryValueName(full, "new", true)), "");
}

TEST(RegistryEdits, Check) {
    const struct {
        const char* edit;
        const char* faults; ///< key and "!" for an error, in order
    } cases[] = {
        {"HKLM|Software\\$(TARGETPATHKEY)|Name|STRING|a$($)b$()", ""},
        {"HKLM|List|$(ITERATIVE_KEY)|STRING|$(TARGETPATH)", ""},
        {"HKXX|Software|Name|STRING|x", "root! "},
        {"|Software|Name|STRING|x", "root! "},
        {"HKLM||Name|STRING|x", "path! "},
        {"HKLM|$(TARGETPATH|Name|STRING|x", "path! "},
        {"HKLM|Software|$(NAME)|STRING|x", "name! "},
        {"HKLM|Software|Name|STRING|$(ANCHORPATH(a))", "value! "},
        {"HKLM|Software|Name|QWORD|1", "type! "},
        {"HKLM|Software|Name|DWORD|", "value! "},
        {"HKLM|Software|Name|DWORD|$(INSTALLSIZE)", ""},
        {"HKLM|Software|Name|DWORD|2147483648", "value! "},
        {"HKLM|List|$(iterative_key)|DWORD|1", "name! "},
        {"HKLM|List|$(iterative_key)|STRING|x", "value "},
        {"HKLM|List|$(iterative_key)|DELETE|x", "value! "},
    };
    for (const auto& one : cases) {
        std::string found;
        // The second entry: the first one has a rule of its own.
        for (const VelPatchRegistryFault& fault :
             CheckRegistryEdits(Edits({"HKCR|Old||DELETE|", one.edit}))) {
            EXPECT_EQ(fault.entry, 1u) << one.edit;
            found += std::string(fault.key) + (fault.isError ? "! " : " ");
        }
        EXPECT_EQ(found, one.faults) << one.edit;
    }
}

TEST(RegistryEdits, CheckFindsAFirstEntryThatStays) {
    const std::string first = "HKLM|Software\\Rowan|First|STRING|x";
    const std::string list = "HKLM|List|$(iterative_key)|STRING|$(TARGETPATH)";
    const std::pair<Lines, bool> cases[] = {
        {{first}, true},
        {{first, "HKLM|Software\\Rowan|Second|STRING|x"}, true},
        {{first, "HKCU|Software\\Rowan||STRING|x"}, true},
        {{first, "HKLM|SOFTWARE\\rowan||STRING|x"}, false}, // takes the whole key away
        {{first, "HKLM|Software\\Rowan|first|STRING|y"}, false},
        {{list, "HKLM|List|$(iterative_key)|STRING|$(ANCHORPATH)"}, true},
        {{list, list}, false},
        {{"HKLM|Software\\Rowan|First|DELETE|"}, false},
        {{}, false},
    };
    for (const auto& [lines, isFound] : cases) {
        EXPECT_EQ(!CheckRegistryEdits(Edits(lines)).empty(), isFound)
            << testing::PrintToString(lines);
    }
}

} // namespace
