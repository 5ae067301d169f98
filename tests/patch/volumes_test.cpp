// Data files in numbered volumes, and the paths of operations.
#include "core/CXFileSystem.h"
#include "patch/PatchPaths.h"
#include "patch/PatchVolumes.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamFile.h"
#include "tests/patch/PatchScenario.h"
#include "tests/support/FaultFileDriver.h"

#include <gtest/gtest.h>

namespace {

std::string Volume(uint32_t index, uint32_t count, const std::string& payload,
                   const std::string& set = {}) {
    return "VePa" + BigEndian(0, 4) + StreamString(set) + BigEndian(index, 4) +
           BigEndian(count, 4) + BigEndian(payload.size(), 8) + payload;
}

TEST(Volumes, OneVolumeIsJudgedWhole) {
    const std::string sound = Volume(1, 2, "payload");
    const struct {
        const char* name;
        std::string bytes;
        uint32_t index;
        bool good;
        uint32_t countAfter;
    } cases[] = {
        {"sound", sound, 1, true, 2},
        {"first sets the count", Volume(0, 9, "payload"), 0, true, 9},
        {"other count", Volume(1, 3, "payload"), 1, false, 2},
        {"other index", Volume(1, 2, "payload"), 0, false, 2},
        {"other set", Volume(1, 2, "payload", "other"), 1, false, 2},
        {"other version", "VePa" + BigEndian(1, 4) + sound.substr(8), 1, false, 2},
        {"other magic", "VePb" + sound.substr(4), 1, false, 2},
        {"first, cut, leaves the count", Volume(0, 9, "payload").substr(0, 30), 0, false, 2},
        {"absurd size", sound.substr(0, 17) + std::string(8, '\xFF') + "payload", 1, false, 2},
    };
    PatchWorld world;
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        world.WriteFile("v.bin", test.bytes);
        CXStreamDynamicBuffer output;
        output.Write("front", 5);
        uint32_t count = 2;
        EXPECT_EQ(CopyVolumePayload(output, world.Text("v.bin"), "", test.index, count), test.good);
        EXPECT_EQ(count, test.countAfter);
        EXPECT_EQ(output.GetSize(), test.good ? 12U : 5U);
        EXPECT_EQ(output.GetPosition(), output.GetSize());
    }
    // Every cut of a sound volume is refused.
    for (size_t cut = 0; cut < sound.size(); ++cut) {
        world.WriteFile("v.bin", sound.substr(0, cut));
        CXStreamDynamicBuffer output;
        uint32_t count = 2;
        EXPECT_FALSE(CopyVolumePayload(output, world.Text("v.bin"), "", 1, count)) << cut;
        EXPECT_EQ(output.GetSize(), 0U);
    }
}

TEST(Volumes, APayloadThatStaysInTheBufferIsNoSuccess) {
    PatchWorld world;
    world.WriteFile("v.bin", Volume(1, 2, "payload"));
    FaultFileDriver driver;
    const ScopedFileDriver use(driver);
    CXStreamFile output;
    output.Open(world.Text("out.bin"), kOpenWrite | kOpenCreate | kOpenTruncate);
    output.Write("front", 5);
    output.Flush();
    uint32_t count = 2;
    driver.Fail(FileFault::Full, 1, 1, FileOp::Write, "out.bin");
    EXPECT_FALSE(CopyVolumePayload(output, world.Text("v.bin"), "", 1, count));
    EXPECT_TRUE(CopyVolumePayload(output, world.Text("v.bin"), "", 1, count));
    output.Close();
    EXPECT_EQ(world.ReadFile("out.bin"), "frontpayload");
}

TEST(Volumes, PatchFromDiscsWithPrompts) {
    const std::vector<TestOperation> operations = {CreateFileOp("a.txt", std::string(5000, 'a')),
                                                   CreateFileOp("b.txt", "bb")};
    PatchWorld world;
    world.WritePatch(operations);
    const std::string data = Deflated(RecordsOf(operations));
    world.WriteFile("product/program/patch-1.bin", Volume(0, 3, data.substr(0, 10)));
    world.WriteFile("product/program/patch-2.bin", Volume(7, 3, "wrong index"));
    world.WriteFile("disc/two.bin", Volume(1, 3, data.substr(10, 10)));
    world.WriteFile("disc/patch-3.bin", Volume(2, 3, data.substr(20)));
    world.dataURI = CXURI();
    std::vector<std::string> folders;
    world.discPrompt = [&](const CXString& title, const CXString& folder,
                           const std::function<bool()>& stopped) {
        EXPECT_EQ(title, "$please_insert_disc");
        EXPECT_FALSE(stopped());
        folders.emplace_back(folder.GetData());
        return world.Text(folders.size() == 1 ? "disc/patch-3.bin" : "disc/two.bin");
    };
    RunResult result = world.Run();
    EXPECT_TRUE(result.Finished()) << result.log;
    const std::string program = world.Text("product/program").GetData();
    EXPECT_EQ(folders, (std::vector<std::string>{program, program}));
    EXPECT_EQ(world.ReadTarget(), (Tree{{"a.txt", std::string(5000, 'a')}, {"b.txt", "bb"}}));
    EXPECT_FALSE(std::filesystem::exists(world.Path("patch.bin")));

    // Nobody answers: failure, and the part that was assembled goes.
    world.discPrompt = nullptr;
    std::filesystem::remove_all(world.Path("game"));
    world.WriteFile("patch.bin", "somebody's file");
    result = world.Run();
    EXPECT_TRUE(result.Failed());
    EXPECT_EQ(result.status.failureTitle, "$velpatch_task_failed_copying_payload_data");
    EXPECT_TRUE(result.LogHas("rolling back 0 changes"));
    EXPECT_FALSE(std::filesystem::exists(world.Path("game")));
    EXPECT_FALSE(std::filesystem::exists(world.Path("patch-1.bin")));
    EXPECT_EQ(world.ReadFile("patch.bin"), "somebody's file");

    // The data beside the program is used where it lies, and stays.
    world.WriteFile("product/Resources/patch.bin", data);
    EXPECT_TRUE(world.Run().Finished());
    EXPECT_EQ(world.ReadFile("product/Resources/patch.bin"), data);
}

TEST(OperationPaths, StayInsideTheTarget) {
    const auto expect = [](bool posix, bool windows, const std::vector<std::string>& paths) {
        for (const std::string& path : paths) {
            EXPECT_EQ(IsSafeOperationPath(path, false), posix) << path;
            EXPECT_EQ(IsSafeOperationPath(path, true), windows) << path;
        }
    };
    expect(true, true,
           {"a", "a/b.txt", "a/../b", "a//b/./c", "a/patcher-temp", "patcher-temporary", "..a/b",
            "auxiliary/com10"});
    expect(false, false,
           {"", "/a", "//s/x", "..", "a/../../b", "./..", ".", "a/..", "C:/x", "c:x",
            "patcher-temp", "Patcher-Temp/x", "./patcher-temp/x", "a/../patcher-temp/x"});
    expect(true, false,
           {"a\\..\\..\\b", "\\a", "ab:c", "patcher-temp./x", "patcher-temp /x", "a/.. ./.. ./b",
            " /x", "sub/nul", "COM1.txt", "a/aux ", "a*b"});
    EXPECT_FALSE(IsSafeOperationPath(absl::string_view("a\0b", 3), false));
    EXPECT_TRUE(IsSafeOperationPath(std::string(4096, 'a'), false));
    EXPECT_FALSE(IsSafeOperationPath(std::string(4097, 'a'), false));
}

} // namespace
