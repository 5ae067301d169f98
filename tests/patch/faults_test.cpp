// Fails every single call to the file system in turn, over a patch that uses every command, and
// holds what is left on disk against what each moment of failure must leave.
#include "core/CXFileSystem.h"
#include "tests/patch/PatchScenario.h"
#include "tests/support/FaultFileDriver.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

const std::string kOldText = "old text " + std::string(300, 'o') + " end";
const std::string kNewText = "new text " + std::string(400, 'n') + " end";
const std::string kOldBig = std::string(3000, 'B') + "tail";
const std::string kNewBig = std::string(3000, 'B') + "longer tail";
const std::string kFresh = std::string(2000, 'f');

const Tree kBefore = {{"a.txt", kOldText}, {"bin/big.dat", kOldBig}, {"dir/c.txt", "content c"},
                      {"gone/d.txt", "d"}, {"late/e.txt", "e"},      {"replace.me", "replaced"},
                      {"rest.txt", "rest"}};
const Tree kAfter = {{"a.txt", kNewText},
                     {"bin/big.dat", kOldBig},
                     {"copy/big2.dat", kNewBig},
                     {"dir/moved.txt", "content c"},
                     {"late/", ""},
                     {"made/here/", ""},
                     {"new/deep/f.bin", kFresh},
                     {"replace.me", "whole new contents"},
                     {"rest.txt", "rest"}};

std::vector<TestOperation> Operations() {
    return {
        DeleteFileOp("gone/d.txt"),
        CreateFileOp("new/deep/f.bin", kFresh),
        EditOp("a.txt", "a.txt", kOldText, kNewText),
        EditOp("bin/big.dat", "copy/big2.dat", kOldBig, kNewBig),
        MoveOp("dir/c.txt", "dir/moved.txt", "content c"),
        ReplaceFileOp("replace.me", "whole new contents", 2, MD5Of("replaced")),
        CreateFolderOp("made/here").With(&TestOperation::permissions, "posix:0755"),
        MoveOp("missing", "never.txt", "")
            .With(&TestOperation::sourceChecksum, "")
            .With(&TestOperation::flags, 1U),
        DeleteFileOp("dir/c.txt"),
        DeleteFileOp("late/e.txt"),
        DeleteFolderOp("gone"),
    };
}
constexpr size_t kFolderOperation = 6;

/// What the final pass does to one existing path, in the order of its renames.
struct Change {
    const char* path;
    bool isReplaced; ///< two renames: to a backup, then the new file in; else one, a deletion
};
const Change kChanges[] = {{"gone/d.txt", false}, {"a.txt", true},       {"replace.me", true},
                           {"dir/c.txt", false},  {"late/e.txt", false}, {"gone/", false}};

bool IsIn(const CXString& path, const std::string& part) {
    return std::string(path.GetData()).find(part) != std::string::npos;
}

/// One run with its faults, and what happened.
struct FaultRun {
    RunResult result;
    std::vector<FileAccess> calls;
    std::vector<FileAccess> outside;
    Tree tree;

    bool Succeeded(uint32_t op, const std::string& end) const {
        return std::any_of(calls.begin(), calls.end(), [&](const FileAccess& call) {
            return call.op == op && !call.failed && std::string(call.path.GetData()).ends_with(end);
        });
    }
    size_t CountCommands() const {
        size_t count = 0;
        for (size_t at = 0; (at = result.log.find("cmd:", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }
};

FaultRun RunWith(const std::function<void(FaultFileDriver&)>& arm, Answer answer) {
    FaultRun run;
    PatchWorld world;
    world.WriteTarget(kBefore);
    world.WriteFile("beside.txt", "not ours");
    world.WritePatch(Operations());
    world.onPrompt = [&](const TaskStatus&) { return answer; };
    FaultFileDriver driver;
    driver.SetVolumes(std::vector<CXVolume>{{world.Text("product"), UINT64_MAX}});
    {
        const ScopedFileDriver use(driver);
        arm(driver);
        run.result = world.Run();
    }
    run.calls = driver.GetLog();
    run.outside =
        driver.FindOutside({world.Text("game"), world.Text("control.txt"), world.Text("data.bin"),
                            world.Text("patch.bin"), world.Text("product"), world.Text("temp")});
    run.tree = world.ReadTarget();
    EXPECT_EQ(world.ReadFile("beside.txt"), "not ours");
    EXPECT_FALSE(std::filesystem::exists(world.Path("patch.bin"))) << run.result.log;
    return run;
}

/// A failed operation in the install pass: `reached` operations were begun, the last one failed.
Tree AfterFailedOperation(const FaultRun& run, size_t reached) {
    Tree tree = WithFolders(kBefore);
    tree.erase("gone/d.txt"); // a deletion that was reached takes its victim
    const size_t failing = reached - 1;
    if (failing > 3 || (run.Succeeded(FileOp::MakeDirectory, "game/copy") &&
                        run.Succeeded(FileOp::OpenWrite, "copy/big2.dat"))) {
        tree["copy/"] = "";
        tree["copy/big2.dat"] = failing > 3 ? kNewBig : "?";
    }
    if (failing > 4 || run.Succeeded(FileOp::OpenWrite, "dir/moved.txt")) {
        tree["dir/moved.txt"] = failing > 4 ? "content c" : "?";
    }
    if (failing >= kFolderOperation && run.Succeeded(FileOp::MakeDirectory, "game/made")) {
        tree["made/"] = "";
        if (run.Succeeded(FileOp::MakeDirectory, "made/here")) {
            tree["made/here/"] = "";
        } else {
            tree.erase("made/"); // the only parent, made for it and empty
        }
    }
    return tree;
}

/// The final pass stopped after `renames` good renames.
Tree AfterFailedFinalising(size_t renames) {
    Tree tree = WithFolders(kBefore);
    tree["copy/"] = "";
    tree["copy/big2.dat"] = kNewBig;
    tree["dir/moved.txt"] = "content c";
    tree["made/"] = "";
    tree["made/here/"] = "";
    for (const Change& change : kChanges) {
        const size_t wanted = change.isReplaced ? 2 : 1;
        // A replaced file is lost only when both its renames were done; of a deletion the victim
        // goes in any case, but the folder can't: its file goes after it.
        const bool isLost = change.isReplaced ? renames >= wanted : true;
        if (isLost && change.path != std::string("gone/")) {
            tree.erase(change.path);
        }
        renames -= std::min(renames, wanted);
    }
    return tree;
}

/// The paths in which two trees differ, for messages; empty when they are equal. Where "?" is
/// expected, a file may hold any part of its contents.
std::string Difference(const Tree& found, const Tree& expected) {
    std::string out;
    for (const auto& [path, contents] : found) {
        const auto wanted = expected.find(path);
        if (wanted == expected.end()) {
            out += "too much: " + path + "\n";
        } else if (wanted->second != contents && wanted->second != "?") {
            out += "other contents: " + path + "\n";
        }
    }
    for (const auto& [path, contents] : expected) {
        out += found.count(path) == 0 ? "missing: " + path + "\n" : "";
    }
    return out;
}

Tree WithoutTemporaries(const Tree& tree) {
    Tree out;
    for (const auto& [path, contents] : tree) {
        if (path.rfind("patcher-temp/", 0) != 0) {
            out[path] = contents;
        }
    }
    return out;
}

bool HoldsOldContents(const std::string& contents) {
    return contents.empty() || std::any_of(kBefore.begin(), kBefore.end(), [&](const auto& entry) {
               return entry.second == contents;
           });
}

void ExpectFinished(const FaultRun& run, const FileAccess& fault) {
    Tree expected = WithFolders(kAfter);
    if (run.CountCommands() == 0 && !run.result.log.empty()) {
        // A control file that can't be opened reads as an empty patch.
        EXPECT_TRUE(IsIn(fault.path, "control.txt")) << fault.path.GetData();
        expected = WithFolders(kBefore);
    }
    for (const char* victim : {"gone/d.txt", "dir/c.txt", "late/e.txt"}) {
        // A victim that couldn't be looked at counts as gone already, and stays.
        if (fault.op == FileOp::GetAttributes && IsIn(fault.path, std::string("game/") + victim) &&
            run.tree.count(victim) != 0) {
            expected[victim] = kBefore.at(victim);
        }
    }
    expected = WithFolders(expected);
    if (run.tree.count("gone/") != 0 && fault.op == FileOp::GetAttributes) {
        expected["gone/"] = "";
    }
    if (CXFileSystem::HasWindowsPaths() && fault.op == FileOp::MakeDirectory &&
        IsIn(fault.path, "game/made")) {
        // A folder that couldn't be made is noticed by its permissions alone, and this patch's are
        // another system's here: they are passed over, and the folder stays away.
        expected.erase("made/here/");
        if (run.tree.count("made/") == 0) {
            expected.erase("made/");
        }
    }
    EXPECT_EQ(Difference(WithoutTemporaries(run.tree), expected), "");
    size_t left = 0;
    for (const auto& [path, contents] : run.tree) {
        if (path.rfind("patcher-temp/", 0) == 0) {
            ++left;
            EXPECT_TRUE(HoldsOldContents(contents)) << path;
        }
    }
    if (left != 0) {
        // A backup that couldn't be deleted, or a folder's with a file in it that had been missed.
        EXPECT_TRUE(IsIn(fault.path, "patcher-temp") || fault.op == FileOp::GetAttributes)
            << fault.path.GetData();
        EXPECT_LE(left, 3U);
    }
}

void ExpectRolledBack(const FaultRun& run) {
    const std::string& log = run.result.log;
    const size_t reached = run.CountCommands();
    Tree expected = WithFolders(kBefore);
    if (run.result.LogHas("failed to finalise patch")) {
        size_t renames = 0;
        for (const FileAccess& call : run.calls) {
            if (call.failed) {
                break;
            }
            renames += call.op == FileOp::Rename ? 1 : 0;
        }
        // A destination that couldn't be looked at fails at its second rename, without a backup.
        expected = AfterFailedFinalising(renames);
    } else if (reached != 0) {
        ASSERT_TRUE(run.result.LogHas("(patch failed)")) << log;
        expected = AfterFailedOperation(run, reached);
    }
    EXPECT_EQ(Difference(run.tree, expected), "") << log;
}

TEST(Faults, EveryCallFailsOnce) {
    const FaultRun whole = RunWith([](FaultFileDriver&) {}, Answer::No);
    ASSERT_TRUE(whole.result.Finished()) << whole.result.log;
    ASSERT_EQ(whole.tree, WithFolders(kAfter));
    ASSERT_TRUE(whole.outside.empty()) << FaultFileDriver::Describe(whole.outside);
    ASSERT_GT(whole.calls.size(), 100U);

    for (size_t call = 1; call <= whole.calls.size(); ++call) {
        std::vector<FileFault> faults = {FileFault::Device};
        const uint32_t op = whole.calls[call - 1].op;
        if (op == FileOp::Write) {
            faults = {FileFault::Full, FileFault::ShortWrite};
        } else if ((op & (FileOp::Changing | FileOp::OpenRead)) != 0) {
            faults = {FileFault::Busy, FileFault::Denied};
        }
        for (const FileFault fault : faults) {
            SCOPED_TRACE("call " + std::to_string(call) + " fault " +
                         std::to_string(static_cast<int>(fault)) + " " +
                         FaultFileDriver::Describe({whole.calls[call - 1]}));
            const auto arm = [&](FaultFileDriver& driver) { driver.Fail(fault, call, call); };
            const FaultRun run = RunWith(arm, Answer::No);
            ASSERT_TRUE(run.result.ended);
            EXPECT_TRUE(run.outside.empty()) << FaultFileDriver::Describe(run.outside);
            const auto failed = std::find_if(run.calls.begin(), run.calls.end(),
                                             [](const FileAccess& each) { return each.failed; });
            if (failed == run.calls.end()) {
                continue; // a shorter run, for instance after a random name
            }
            if (run.result.status.state == kTaskStateFinished) {
                ExpectFinished(run, *failed);
            } else {
                ASSERT_TRUE(run.result.Failed());
                ExpectRolledBack(run);
            }
            if (!run.result.prompts.empty() && fault != FileFault::Device) {
                const FaultRun retried = RunWith(arm, Answer::Retry);
                EXPECT_TRUE(retried.result.Finished());
                EXPECT_EQ(Difference(retried.tree, WithFolders(kAfter)), "") << retried.result.log;
            }
            if (HasFailure()) {
                return; // one report is enough
            }
        }
    }
}

TEST(Faults, PowerCutAtEveryChangeKeepsOldOrNew) {
    const FaultRun whole = RunWith([](FaultFileDriver&) {}, Answer::No);
    const auto changes = static_cast<size_t>(
        std::count_if(whole.calls.begin(), whole.calls.end(),
                      [](const FileAccess& call) { return (call.op & FileOp::Changing) != 0; }));
    const Tree after = WithFolders(kAfter);
    for (size_t at = 1; at <= changes; ++at) {
        SCOPED_TRACE("change " + std::to_string(at));
        const FaultRun run =
            RunWith([&](FaultFileDriver& driver) { driver.CutPower(at); }, Answer::No);
        ASSERT_TRUE(run.result.ended);
        EXPECT_TRUE(run.outside.empty()) << FaultFileDriver::Describe(run.outside);
        for (const auto& [path, contents] : kBefore) {
            const auto found = run.tree.find(path);
            const auto wanted = after.find(path);
            if (found != run.tree.end()) {
                EXPECT_TRUE(found->second == contents ||
                            (wanted != after.end() && found->second == wanted->second))
                    << path;
                continue;
            }
            // Gone from its place: it waits in the temporary folder, or the pass had succeeded.
            bool isKept = false;
            for (const auto& [other, bytes] : run.tree) {
                isKept = isKept || (other.rfind("patcher-temp/", 0) == 0 && bytes == contents);
            }
            EXPECT_TRUE(isKept || run.Succeeded(FileOp::RemoveFile, ".tmp")) << path;
        }
        if (HasFailure()) {
            return;
        }
    }
}

TEST(Faults, LostWritesShowWithoutAChecksum) {
    for (const TestOperation& operation :
         {CreateFileOp("f.bin", kFresh), EditOp("a.txt", "f.bin", kOldText, kNewText),
          MoveOp("a.txt", "f.bin", kOldText)}) {
        SCOPED_TRACE(operation.command);
        PatchWorld world;
        world.WriteTarget({{"a.txt", kOldText}});
        world.WritePatch({operation.With(&TestOperation::recordChecksum, "")});
        FaultFileDriver driver;
        driver.Fail(FileFault::Full, 1, 1, FileOp::Write, "f.bin");
        const ScopedFileDriver use(driver);
        EXPECT_TRUE(world.Run().Failed());
    }
}

TEST(Faults, AStatedDataFileIsNeverLookedForOnDiscs) {
    PatchWorld world;
    world.WriteTarget({});
    world.WritePatch({CreateFileOp("a", "a")});
    world.discPrompt = [](const CXString&, const CXString&, const std::function<bool()>&) {
        ADD_FAILURE() << "asked for a disc";
        return CXString();
    };
    FaultFileDriver driver;
    driver.Fail(FileFault::Device, 2, 9, FileOp::GetAttributes, "data.bin");
    const ScopedFileDriver use(driver);
    EXPECT_TRUE(world.Run().Finished());
}

TEST(Faults, LinksThatLeadOutOfTheTarget) {
    const bool followsText = CXFileSystem::HasWindowsPaths();
    const struct {
        const char* link;
        const char* to;
        TestOperation operation;
        bool isAllowed = false;
    } cases[] = {
        {"out", "../outside", CreateFileOp("out/x", "x")},
        {"x", "../outside/new", CreateFileOp("x", "x")}, // a dangling link
        {"out", "../outside", EditOp("out/f", "out/f", "outside f", "changed")},
        {"f", "../outside/f", EditOp("f", "f", "outside f", "changed")},
        {"out", "../outside", MoveOp("out/f", "here", "outside f")},
        {"out", "../outside", DeleteFileOp("out/f")},
        {"out", "../outside", DeleteFileOp("out")},
        {"out", "../outside", CreateFolderOp("out/n")},
        {"patcher-temp", "../outside", EditOp("in.txt", "in.txt", "inside", "changed")},
        {"out", "../outside", CreateFileOp("out/../x", "x"), followsText},
        {"alias", "sub", CreateFileOp("alias/x", "x"), true},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.operation.command + " " + test.operation.destination);
        PatchWorld world;
        world.WriteTarget({{"in.txt", "inside"}, {"sub/y", "y"}});
        world.WriteFile("outside/f", "outside f");
        if (!world.Folder().MakeLink(std::string("game/") + test.link, test.to)) {
            GTEST_SKIP() << "this system makes no links";
        }
        world.WritePatch({test.operation});
        const RunResult result = world.Run();
        EXPECT_TRUE(test.isAllowed ? result.Finished() : result.Failed()) << result.log;
        EXPECT_EQ(world.ReadFile("outside/f"), "outside f");
        EXPECT_EQ(world.Folder().Tree("outside").size(), 1U);
        EXPECT_EQ(world.ReadFile("game/in.txt"), "inside");
    }
}

} // namespace
