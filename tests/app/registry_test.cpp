// The registry: the same conduct wherever it is kept.
#include "app/VelPatchRegistryTree.h"
#include "core/CXFileSystem.h"
#include "tests/support/FaultFileDriver.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

namespace {

using Root = VelPatchRegistryRoot;

class Registry : public testing::TestWithParam<const char*> {
protected:
    VelPatchRegistry& Get() {
        const std::string kind = GetParam();
        return kind == "system" ? VelPatchRegistry::Platform() : kind == "file" ? m_file : m_memory;
    }
    std::string Read(Root root, const CXString& path, const CXString& name) {
        CXString text;
        const CXResult result = Get().ReadString(root, path, name, text);
        return result == kCXResultOK ? Text(text) : std::to_string(result);
    }
    std::string List(Root root, const CXString& path) {
        std::vector<VelPatchRegistryValue> values;
        std::string list = std::to_string(Get().ListStrings(root, path, values));
        std::map<std::string, std::string> sorted;
        for (const VelPatchRegistryValue& value : values) {
            sorted[Text(value.name)] = Text(value.data);
        }
        for (const auto& [name, data] : sorted) {
            list += " " + name + "=" + data;
        }
        return list;
    }

    const TempFolder m_folder;
    VelPatchRegistryTree m_file{[this] { return m_folder.Path("new/registry.dat"); }};
    VelPatchRegistryTree m_memory;
};

TEST_P(Registry, SetsReadsListsAndDeletes) {
    // A name of its own, since the system's registry is everybody's.
    const CXString key = CXString::Format("Software\\VelPatchTest-%s",
                                          CXFileSystem::GetFileName(m_folder.Path()).GetData());
    const CXString middle = CXString::Format("%s\\Be low", key.GetData());
    const CXString below = CXString::Format("%s\\Deep", middle.GetData());
    const CXString longText(std::string(5000, 'l'));
    const CXString odd("a \"quoted\" `x` {y} $(Z)\nC:\\\xC3\xA4\\ 100 %");
    for (const Root root : {Root::CurrentUser, Root::LocalMachine}) {
        EXPECT_EQ(List(root, key), "-7");
        EXPECT_EQ(Read(root, key, "Name"), "-7");
        EXPECT_EQ(Get().DeleteKey(root, key), kCXResultNotFound);
        EXPECT_EQ(Get().SetString(root, key, "", "default"), kCXResultOK);
        EXPECT_EQ(Get().SetString(root, key, "Odd name \xC3\xA4 = \"", odd), kCXResultOK);
        EXPECT_EQ(Get().SetString(root, key, "1", ""), kCXResultOK);
        EXPECT_EQ(Get().SetString(root, key, "007", "12"), kCXResultOK);
        EXPECT_EQ(Get().SetNumber(root, key, "Number", -5), kCXResultOK);
        EXPECT_EQ(Get().SetString(root, below, longText, longText), kCXResultOK);
        EXPECT_EQ(Read(root, key, "oDD NAME \xC3\xA4 = \""), Text(odd));
        EXPECT_EQ(Read(root, below, longText), Text(longText));
        EXPECT_EQ(List(root, below), "0 " + Text(longText) + "=" + Text(longText));
        EXPECT_EQ(Read(root, key, "Number"), "-7") << "no text";
        EXPECT_EQ(List(root, key), "0 =default 007=12 1= Odd name \xC3\xA4 = \"=" + Text(odd));

        CXString shouted = key;
        shouted.ToUpper();
        EXPECT_EQ(Get().SetString(root, shouted, "NUMBER", "text now"), kCXResultOK);
        EXPECT_EQ(Get().SetNumber(root, key, "1", 1), kCXResultOK);
        EXPECT_EQ(Get().DeleteValue(root, key, "odd name \xC3\xA4 = \""), kCXResultOK);
        EXPECT_EQ(Get().DeleteValue(root, key, ""), kCXResultOK);
        EXPECT_EQ(Get().DeleteValue(root, key, "none"), kCXResultNotFound);
        EXPECT_EQ(List(root, key), "0 007=12 Number=text now");

        EXPECT_EQ(Get().DeleteKey(root, key), kCXResultAccessDenied) << "holds others";
        EXPECT_EQ(Get().DeleteKey(root, below), kCXResultOK);
        Get().DeleteKey(root, middle); // there, where keys are made one by one
        EXPECT_EQ(Get().DeleteKey(root, key), kCXResultOK);
        EXPECT_EQ(List(root, key), "-7");
    }
}

std::vector<const char*> ListKinds() {
    std::vector<const char*> kinds = {"memory", "file"};
    if (CXFileSystem::HasWindowsPaths()) {
        kinds.push_back("system");
    }
    return kinds;
}

INSTANTIATE_TEST_SUITE_P(In, Registry, testing::ValuesIn(ListKinds()),
                         [](const auto& one) { return std::string(one.param); });

TEST(RegistryFile, SurvivesDamage) {
    const TempFolder folder;
    folder.WriteFile("r.dat", "HKCU 5\nHKLM\n{\n\"A\\B\"\n{\nx \"text:kept\"\ny 7\nz\n{\n}\n}\n"
                              "\"A\\C\" text\n}\n}\nHKCR\n{\nK\n{\na \"text:unread\"\n}\n}\n");
    VelPatchRegistryTree registry([&] { return folder.Path("r.dat"); });
    CXString text;
    EXPECT_EQ(registry.ReadString(Root::LocalMachine, "a\\b", "X", text), kCXResultOK);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(registry.ReadString(Root::LocalMachine, "a\\b", "y", text), kCXResultNotFound);
    EXPECT_EQ(registry.ReadString(Root::CurrentUser, "a", "", text), kCXResultNotFound);
    for (const Root root : {Root::CurrentUser, Root::LocalMachine}) {
        EXPECT_EQ(registry.SetString(root, "A\\C", "z", "new"), kCXResultOK);
        EXPECT_EQ(registry.ReadString(root, "a\\c", "Z", text), kCXResultOK);
    }
    EXPECT_EQ(registry.DeleteValue(Root::LocalMachine, "A\\B", "z"), kCXResultOK);
    EXPECT_EQ(registry.SetString(Root::None, "A", "z", "new"), kCXResultInvalidArgument);
    EXPECT_EQ(registry.SetString(Root::Users, "\\", "z", "new"), kCXResultInvalidArgument);

    // What can't be read now isn't lost by a write, and a write that fails leaves the old file.
    const std::string before = folder.ReadFile("r.dat");
    FaultFileDriver driver;
    CXFileDriver::SetCurrent(&driver);
    for (const uint32_t operation : {FileOp::OpenRead, FileOp::Read, FileOp::Write}) {
        driver.Fail(operation == FileOp::Write ? FileFault::Full : FileFault::Denied, 1, 1,
                    operation, "r.dat");
        EXPECT_NE(registry.SetNumber(Root::LocalMachine, "A", "z", 1), kCXResultOK);
        driver.Heal();
    }
    CXFileDriver::SetCurrent(nullptr);
    EXPECT_EQ(folder.ReadFile("r.dat"), before);
    EXPECT_EQ(folder.Tree().size(), 1u);
}

} // namespace
