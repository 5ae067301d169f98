// Patches large enough for the threads that inflate and digest ahead: every run makes the same
// calls on files in the same order, and ends alike.

#include "tests/patch/PatchScenario.h"
#include "tests/support/FaultFileDriver.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>

namespace {

std::string Noise(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random() & 0x3F); // compresses a little
    }
    return bytes;
}

/// The patch is made once: packing it takes longer than a run.
struct Large {
    std::string oldContents = Noise(2500000, 1);
    std::string newContents =
        oldContents.substr(0, 900000) + Noise(1300000, 2) + oldContents.substr(1000000);
    std::string fresh = Noise(1000000, 3);
    std::string control;
    std::string packed;

    Large() {
        PatchWorld world;
        world.WritePatch({CreateFileOp("one.bin", fresh),
                          EditOp("big.bin", "big.bin", oldContents, newContents),
                          CreateFileOp("two.bin", fresh)});
        packed = world.ReadFile("data.bin");
        // Spoilt data is to reach the inflater.
        control = std::regex_replace(world.ReadFile("control.txt"),
                                     std::regex("datafile(size|checksum)[^\n]*\n"), "");
    }
};

struct LargeRun {
    RunResult result;
    std::string calls; ///< one a line, without what differs by chance
    Tree tree;
};

LargeRun RunLarge(const Large& data, const std::function<void(std::string&)>& spoil,
                  const std::function<void(FaultFileDriver&)>& arm) {
    LargeRun run;
    PatchWorld world;
    world.WriteTarget({{"big.bin", data.oldContents}});
    std::string packed = data.packed;
    spoil(packed);
    world.WriteFile("data.bin", packed);
    world.WriteFile("control.txt", data.control);
    FaultFileDriver driver;
    driver.SetVolumes(std::vector<CXVolume>{{world.Text("product"), UINT64_MAX}});
    {
        const ScopedFileDriver use(driver);
        arm(driver);
        run.result = world.Run();
    }
    const std::string root = world.Path("").string();
    for (const FileAccess& call : driver.GetLog()) {
        run.calls += std::to_string(call.op) + " " + call.path.GetData() + "\n";
    }
    for (size_t at = 0; (at = run.calls.find(root, at)) != std::string::npos;) {
        run.calls.erase(at, root.size());
    }
    run.calls = std::regex_replace(run.calls, std::regex("temp-[0-9]+-[0-9]+"), "temp");
    run.tree = world.ReadTarget();
    return run;
}

TEST(LargeData, EveryRunMakesTheSameCallsAndEndsAlike) {
    const Large data;
    const Tree before = {{"big.bin", data.oldContents}};
    const Tree after = {
        {"big.bin", data.newContents}, {"one.bin", data.fresh}, {"two.bin", data.fresh}};
    const auto intact = [](std::string& /*packed*/) {};
    const auto healthy = [](FaultFileDriver& /*driver*/) {};
    const auto failing = [](const char* path, uint32_t operation, uint64_t call) {
        return [=](FaultFileDriver& driver) {
            driver.Fail(FileFault::Device, call, call, operation, path);
        };
    };
    struct Case {
        const char* name;
        std::function<void(std::string&)> spoil;
        std::function<void(FaultFileDriver&)> arm;
        const char* failure; ///< null: it succeeds
    };
    const Case cases[] = {
        {"all well", intact, healthy, nullptr},
        {"a flipped bit", [](std::string& packed) { packed[packed.size() / 2] ^= 1; }, healthy,
         "$velpatch_task_failed_apply_patches_file"},
        {"cut short", [](std::string& packed) { packed.resize(packed.size() - 200000); }, healthy,
         "$velpatch_task_failed_unable_write_new_file"},
        {"data unreadable in the middle", intact, failing("data.bin", FileOp::Read, 20),
         "$velpatch_task_failed_apply_patches_file"},
        {"data unreadable ahead of a failed write", intact,
         [&](FaultFileDriver& driver) {
             failing("data.bin", FileOp::Read, 4)(driver);
             failing("one.bin", FileOp::Write, 1)(driver);
         },
         "$velpatch_task_failed_unable_write_new_file"},
        {"read-back fails", intact, failing("two.bin", FileOp::Read, 10),
         "$velpatch_task_failed_unable_write_new_file"},
        {"check of the source fails", intact, failing("big.bin", FileOp::Read, 30),
         "$velpatch_task_patch_not_viable"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        const LargeRun first = RunLarge(data, test.spoil, test.arm);
        ASSERT_TRUE(first.result.ended);
        EXPECT_EQ(
            first.result.status.state,
            static_cast<uint32_t>(test.failure == nullptr ? kTaskStateFinished : kTaskStateFailed));
        EXPECT_EQ(first.result.status.failureTitle, test.failure == nullptr ? "" : test.failure);
        EXPECT_TRUE(first.tree == (test.failure == nullptr ? after : before));
        const LargeRun second = RunLarge(data, test.spoil, test.arm);
        EXPECT_EQ(second.result.status.failureTitle, first.result.status.failureTitle);
        EXPECT_EQ(second.calls, first.calls);
    }
}

} // namespace
