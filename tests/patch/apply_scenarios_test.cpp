// Whole patches told as tables: files before, operations, files after, status and log.
#include "core/CXExclusivePaths.h"
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "tests/patch/PatchScenario.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using Operations = std::vector<TestOperation>;

const std::string kOld = "the old text of a file, long enough to keep some of it";
const std::string kNew = "the new and longer text of a file, long enough to keep some of it";

struct Scenario {
    const char* name;
    Tree before;
    Operations operations;
    uint32_t state;
    std::string title;  ///< key of the failure title; empty: not looked at
    std::string detail; ///< start of the detail
    Tree after;
    std::string logLine; ///< must stand in the log
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

void SetPermission(TestOperation& operation) {
    operation.permissions = "posix:9999";
}
void SetIgnored(TestOperation& operation) {
    operation.flags = 1;
}
void SetReplace(TestOperation& operation) {
    operation.flags = 2;
}

std::vector<Scenario> Scenarios() {
    const Operations everything = {
        CreateFileOp("new/deep/file.bin", "fresh"),
        EditOp("a.txt", "a.txt", kOld, kNew),
        EditOp("a.txt", "copies/b.txt", kOld, kNew),
        MoveOp("dir/c.txt", "dir/moved.txt", "content c"),
        DeleteFileOp("dir/c.txt"),
        CreateFolderOp("empty/inner"),
        DeleteFileOp("gone/d.txt"),
        DeleteFolderOp("gone"),
    };
    const Tree before = {
        {"a.txt", kOld}, {"dir/c.txt", "content c"}, {"gone/d.txt", "d"}, {"untouched.dat", "u"}};
    const Tree after = {{"a.txt", kNew},        {"new/deep/file.bin", "fresh"},
                        {"copies/b.txt", kNew}, {"dir/moved.txt", "content c"},
                        {"empty/inner/", ""},   {"untouched.dat", "u"}};
    const TestOperation badCreate =
        CreateFileOp("bad.txt", "xyz").With([](TestOperation& o) { o.recordChecksum = "f00"; });
    return {
        {"every command", before, everything, kTaskStateFinished, "", "", after,
         "FinaliseRename> no rename necessary: "},
        {"empty list", before, {}, kTaskStateFinished, "", "", before, "rolling back"},
        {"failure after deletions rolls back and loses the victims",
         before,
         {CreateFileOp("n/x.txt", "x"), DeleteFileOp("gone/d.txt"),
          EditOp("a.txt", "a.txt", kOld, kNew), EditOp("a.txt", "free.txt", kOld, kNew),
          CreateFolderOp("f/g"), badCreate},
         kTaskStateFailed,
         "$velpatch_task_failed_unable_write_new_file",
         "$velpatch_task_result_checksum_mismatch",
         {{"a.txt", kOld},
          {"dir/c.txt", "content c"},
          {"gone/", ""},
          {"untouched.dat", "u"},
          {"free.txt", kNew},
          {"f/g/", ""}},
         "rolling back 5 changes"},
        {"a missing deletion victim is no failure",
         before,
         {DeleteFileOp("nowhere.txt")},
         kTaskStateFinished,
         "",
         "",
         before,
         "file was already deleted: "},
        {"folder that isn't empty stays under its temporary name",
         {{"full/x", "1"}},
         {DeleteFolderOp("full")},
         kTaskStateFinished,
         "",
         "",
         {{"patcher-temp/*/x", "1"}},
         "DeleteTemporaryPatchFilesDirectory> failed to delete"},
        {"edit whose result is there skips its record",
         {{"a.txt", kOld}, {"b.txt", kNew}},
         {EditOp("a.txt", "b.txt", kOld, kNew), CreateFileOp("c.txt", "c")},
         kTaskStateFinished,
         "",
         "",
         {{"a.txt", kOld}, {"b.txt", kNew}, {"c.txt", "c"}},
         "COMMAND_EDIT_FILE - matching file already exists"},
        {"move whose result is there copies nothing",
         {{"a.txt", "m"}, {"b.txt", "m"}},
         {MoveOp("a.txt", "b.txt", "m"), DeleteFileOp("a.txt")},
         kTaskStateFinished,
         "",
         "",
         {{"b.txt", "m"}},
         "COMMAND_MOVE_FILE - matching file already exists"},
        {"the replace flag beats a matching destination",
         {{"a.txt", kOld}, {"b.txt", kNew}},
         {EditOp("a.txt", "b.txt", kOld, kNew).With(SetReplace)},
         kTaskStateFinished,
         "",
         "",
         {{"a.txt", kOld}, {"b.txt", kNew}},
         "CreateTemporaryFilepathFor> '"},
        {"a create whose source is its destination replaces the file",
         {{"a.txt", kOld}},
         {CreateFileOp("a.txt", "whole").With([](TestOperation& o) {
             o.source = o.destination;
             o.sourceChecksum = MD5Of(kOld);
             o.flags = 2;
         })},
         kTaskStateFinished,
         "",
         "",
         {{"a.txt", "whole"}},
         "already exists: "},
        {"a create onto its own finished result passes the checks and fails",
         {{"a.txt", "same"}},
         {CreateFileOp("a.txt", "same").With([](TestOperation& o) {
             o.destinationChecksum = o.recordChecksum;
         })},
         kTaskStateFailed,
         "$velpatch_task_failed_unexpected_file",
         "",
         {{"a.txt", "same"}},
         "COMMAND_CREATE_FILE - file already exists"},
        {"an ignored failure leaves the reader out of step for the next create",
         {{"a.txt", "there"}},
         {CreateFileOp("a.txt", "first").With([](TestOperation& o) {
              o.source = o.destination;
              o.flags = 1;
          }),
          CreateFileOp("b.txt", "second")},
         kTaskStateFinished,
         "",
         "",
         {{"a.txt", "there"}, {"b.txt", "first"}},
         "Proc> (failure ignored)"},
        {"out of step fails an edit",
         {{"a.txt", "there"}, {"e.txt", kOld}},
         {CreateFileOp("a.txt", "first").With([](TestOperation& o) {
              o.source = o.destination;
              o.flags = 1;
          }),
          EditOp("e.txt", "e.txt", kOld, kNew)},
         kTaskStateFailed,
         "$velpatch_task_failed_apply_patches_file",
         "",
         {{"a.txt", "there"}, {"e.txt", kOld}},
         "binary diff application failed"},
        {"a bad diff rolls back",
         {{"a.txt", kOld}},
         {EditOp("a.txt", "a.txt", kOld, kNew).With([](TestOperation& o) { o.record += "\x07"; })},
         kTaskStateFailed,
         "$velpatch_task_failed_apply_patches_file",
         "",
         {{"a.txt", kOld}},
         "ApplyDiffFromStream> unknown command: 7"},
        {"a record without a checksum isn't tested",
         {{"a.txt", kOld}},
         {CreateFileOp("c.txt", "c").With([](TestOperation& o) { o.recordChecksum = ""; }),
          EditOp("a.txt", "a.txt", kOld, kNew).With([](TestOperation& o) {
              o.recordChecksum = "";
          })},
         kTaskStateFinished,
         "",
         "",
         {{"a.txt", kNew}, {"c.txt", "c"}},
         ""},
        {"an empty file",
         {},
         {CreateFileOp("zero", "")},
         kTaskStateFinished,
         "",
         "",
         {{"zero", ""}},
         ""},
        {"an edit of a file that is gone",
         {},
         {EditOp("a.txt", "a.txt", kOld, kNew).With([](TestOperation& o) {
             o.sourceChecksum = "";
         })},
         kTaskStateFailed,
         "$velpatch_task_failed_read_file",
         "",
         {},
         "unable to open source"},
        {"an ignored move of nothing",
         {{"x", "1"}},
         {MoveOp("nothing", "n/y", "?").With([](TestOperation& o) {
              o.sourceChecksum = "";
              o.flags = 1;
          }),
          CreateFileOp("z", "z")},
         kTaskStateFinished,
         "",
         "",
         {{"x", "1"}, {"z", "z"}},
         "creation? no rename necessary"},
        {"a file where a folder was to be made fails the checks",
         {{"f", "file"}},
         {CreateFolderOp("f")},
         kTaskStateFailed,
         "$velpatch_task_patch_not_viable",
         "$velpatch_task_plain_file_unexpected",
         {{"f", "file"}},
         "STATE_FAILED - "},
        {"a folder as victim of a file deletion fails the checks",
         {{"f/x", "1"}},
         {DeleteFileOp("f")},
         kTaskStateFailed,
         "$velpatch_task_patch_not_viable",
         "$velpatch_task_folder_unexpected",
         {{"f/x", "1"}},
         ""},
        {"source missing",
         {},
         {EditOp("a.txt", "b.txt", kOld, kNew)},
         kTaskStateFailed,
         "$velpatch_task_patch_not_viable",
         "$velpatch_task_failed_checksum",
         {},
         ""},
        {"source differs",
         {{"a.txt", "other"}},
         {EditOp("a.txt", "b.txt", kOld, kNew)},
         kTaskStateFailed,
         "$velpatch_task_patch_not_viable",
         "$velpatch_task_checksum_mismatch",
         {{"a.txt", "other"}},
         ""},
        {"a checksum in capitals is another text",
         {{"a.txt", "m"}},
         {MoveOp("a.txt", "b.txt", "m").With([](TestOperation& o) { o.sourceChecksum[0] = 'X'; })},
         kTaskStateFailed,
         "$velpatch_task_patch_not_viable",
         "$velpatch_task_checksum_mismatch",
         {{"a.txt", "m"}},
         ""},
        {"occupied without a checksum, flags or not",
         {{"a.txt", "x"}},
         {CreateFileOp("a.txt", "y").With([](TestOperation& o) { o.flags = 3; })},
         kTaskStateFailed,
         "$velpatch_task_patch_not_viable",
         "$velpatch_task_filepath_occupied",
         {{"a.txt", "x"}},
         ""},
        {"occupied by something else",
         {{"a.txt", kOld}, {"b.txt", "x"}},
         {EditOp("a.txt", "b.txt", kOld, kNew)},
         kTaskStateFailed,
         "$velpatch_task_patch_not_viable",
         "$velpatch_task_filepath_occupied_mismatch",
         {{"a.txt", kOld}, {"b.txt", "x"}},
         ""},
        {"more room wanted than any volume has",
         {{"a.txt", "x"}},
         {CreateFileOp("b", "b").With([](TestOperation& o) { o.effort = INT64_MAX; }),
          CreateFileOp("c", "c").With([](TestOperation& o) { o.effort = INT64_MAX; })},
         kTaskStateFailed,
         "$velpatch_task_patch_not_viable",
         "$velpatch_task_insufficient_space",
         {{"a.txt", "x"}},
         ""},
        {"an unknown command is left out with its record",
         {},
         {CreateFileOp("a", "a").With([](TestOperation& o) { o.command = "Create-File"; }),
          CreateFileOp("b", "b")},
         kTaskStateFinished,
         "",
         "",
         {{"b", "b"}},
         ""},
        {"bad permission digits of an ignored operation",
         {},
         {CreateFileOp("a", "a").With(SetPermission).With(SetIgnored), CreateFileOp("b", "b")},
         kTaskStateFinished,
         "",
         "",
         {{"a", "a"}, {"b", "b"}},
         ""},
    };
}

/// Temporary names are random: one component below patcher-temp is shown as "*".
Tree MaskTemporaryNames(const Tree& tree) {
    Tree out;
    for (const auto& [path, contents] : tree) {
        const std::string folder = "patcher-temp/";
        if (path.rfind(folder, 0) == 0 && path != folder) {
            const size_t end = std::min(path.find('/', folder.size()), path.size());
            out[folder + "*" + path.substr(end)] = contents;
        } else {
            out[path] = contents;
        }
    }
    return out;
}

class ApplyScenario : public testing::TestWithParam<Scenario> {};

TEST_P(ApplyScenario, EndsAsTold) {
    const Scenario& scenario = GetParam();
    PatchWorld world;
    world.WriteTarget(scenario.before);
    world.WritePatch(scenario.operations);
    const RunResult result = world.Run();
    ASSERT_TRUE(result.ended);
    EXPECT_EQ(result.status.state, scenario.state) << result.log;
    EXPECT_EQ(result.status.fraction, 1.0F);
    EXPECT_TRUE(result.status.statusText.IsEmpty());
    if (!scenario.title.empty()) {
        EXPECT_EQ(result.status.failureTitle, scenario.title.c_str());
        EXPECT_EQ(std::string(result.status.failureDetail.GetData()).rfind(scenario.detail, 0), 0U)
            << result.status.failureDetail.GetData();
    }
    EXPECT_EQ(MaskTemporaryNames(world.ReadTarget()), WithFolders(scenario.after)) << result.log;
    if (scenario.state == kTaskStateFinished && scenario.operations.empty()) {
        EXPECT_FALSE(result.LogHas(scenario.logLine));
    } else {
        EXPECT_TRUE(result.LogHas(scenario.logLine)) << result.log;
    }
}

INSTANTIATE_TEST_SUITE_P(Table, ApplyScenario, testing::ValuesIn(Scenarios()));

// ---- Control file, data file ----

struct DataCase {
    const char* name;
    std::string control; ///< whole control file; empty: of one create
    std::string extra;
    std::function<void(PatchWorld&)> change;
    uint32_t state;
    std::string title;
    bool hasPrompt;
    bool created;
    std::string detail = {}; ///< empty: not looked at
};

TEST(ApplyTask, ControlAndDataFiles) {
    const Operations one = {CreateFileOp("n/a.txt", "hello")};
    const std::string deflated = Deflated(RecordsOf(one));
    const std::string size = std::to_string(deflated.size());
    const std::string sum = "datafilechecksum \"" + MD5Of(deflated) + "\"\n";
    const auto nothing = [](PatchWorld&) {};
    const DataCase cases[] = {
        {"sound", "", "datafilesize " + size + "\n" + sum, nothing, kTaskStateFinished, "", false,
         true},
        {"wrong size", "", "datafilesize 3\n", nothing, kTaskStateFailed,
         "$velpatch_task_install_failed_wrong_size", false, false},
        {"wrong checksum", "", "datafilechecksum \"00\"\n", nothing, kTaskStateFailed,
         "$velpatch_task_installation_data_checksum", false, false},
        {"version 2", "velpatch-version 2\n", "", nothing, kTaskStateFailed,
         "$velpatch_task_failed_read_source_data", true, false},
        {"version beyond 32 bits", "velpatch-version 99999999999\n", "", nothing, kTaskStateFailed,
         "$velpatch_task_failed_read_source_data", true, false},
        {"no control file is an empty patch", "", "",
         [](PatchWorld& w) { std::filesystem::remove(w.Path("control.txt")); }, kTaskStateFinished,
         "", false, false},
        {"not a control file", std::string("\0\xFF}{{{", 6), "", nothing, kTaskStateFinished, "",
         false, false},
        {"scheme nobody serves", "", "",
         [](PatchWorld& w) { w.controlURI = CXURI("gopher://h/p"); }, kTaskStateFailed,
         "$velpatch_task_failed_read_source_data", true, false},
        {"data file missing", "", "",
         [](PatchWorld& w) { std::filesystem::remove(w.Path("data.bin")); }, kTaskStateFailed,
         "$velpatch_task_missing_data", false, false},
        {"data file cut", "", "",
         [&](PatchWorld& w) { w.WriteFile("data.bin", deflated.substr(0, 20)); }, kTaskStateFailed,
         "$velpatch_task_failed_unable_write_new_file", false, false},
        {"data file empty", "", "", [](PatchWorld& w) { w.WriteFile("data.bin", ""); },
         kTaskStateFailed, "$velpatch_task_failed_unable_write_new_file", false, false},
        {"data file is no zlib stream", "", "",
         [](PatchWorld& w) { w.WriteFile("data.bin", "no zlib stream at all"); }, kTaskStateFailed,
         "$velpatch_task_failed_unable_write_new_file", false, false},
        {"record states an absurd size", "", "",
         [](PatchWorld& w) { w.WriteFile("data.bin", Deflated(std::string(8, '\xFE') + "abc")); },
         kTaskStateFailed, "$velpatch_task_failed_unable_write_new_file", false, false},
        {"record without its checksum", "", "",
         [](PatchWorld& w) {
             w.WriteFile("data.bin", Deflated(BigEndian(2, 8) + "ab" + "\xFF\xFF\xFF\xFF\xFF"));
         },
         kTaskStateFailed, "$velpatch_task_failed_unable_write_new_file", false, false},
        {"record with a checksum of no end", "", "",
         [](PatchWorld& w) {
             const std::string endless(3000000, 'c');
             w.WriteFile("data.bin", Deflated(BigEndian(2, 8) + "ab" + StreamString(endless)));
             SetLocalisedString("$velpatch_task_failed_read_checksum", "[read $1]");
         },
         kTaskStateFailed, "$velpatch_task_failed_unable_write_new_file", false, false,
         "[read -12]"},
    };
    for (const DataCase& test : cases) {
        SCOPED_TRACE(test.name);
        PatchWorld world;
        world.WriteTarget({{"old.txt", "old"}});
        world.WritePatch(one, test.extra);
        if (!test.control.empty()) {
            world.WriteFile("control.txt", test.control);
        }
        test.change(world);
        const RunResult result = world.Run();
        ASSERT_TRUE(result.ended);
        EXPECT_EQ(result.status.state, test.state) << result.log;
        EXPECT_EQ(result.prompts.size(), test.hasPrompt ? 1U : 0U);
        if (!test.title.empty()) {
            EXPECT_EQ(result.status.failureTitle, test.title.c_str());
            EXPECT_TRUE(result.LogHas("STATE_FAILED - "));
        }
        if (!test.detail.empty()) {
            EXPECT_EQ(result.status.failureDetail, test.detail.c_str());
        }
        ClearLocalisedStrings();
        const Tree after = test.created ? WithFolders({{"old.txt", "old"}, {"n/a.txt", "hello"}})
                                        : Tree{{"old.txt", "old"}};
        EXPECT_EQ(world.ReadTarget(), after) << result.log;
    }
}

TEST(ApplyTask, RefusesPathsThatLeaveTheTarget) {
    for (const char* path : {"../out.txt", "/abs.txt", "a/../../out.txt", "patcher-temp/x",
                             "PATCHER-TEMP/x", "c:/x", "//server/share/x", ".", "a/.."}) {
        SCOPED_TRACE(path);
        PatchWorld world;
        world.WriteTarget({{"a.txt", kOld}});
        world.WritePatch({CreateFileOp(path, "evil")});
        const RunResult result = world.Run();
        EXPECT_EQ(result.status.state, static_cast<uint32_t>(kTaskStateFailed));
        EXPECT_EQ(result.status.failureTitle, "$velpatch_task_failed_read_source_data");
        EXPECT_TRUE(result.LogHas("path leaves the target: '" + std::string(path) + "'"));
        EXPECT_EQ(world.ReadTarget(), (Tree{{"a.txt", kOld}}));
        EXPECT_FALSE(std::filesystem::exists(world.Path("out.txt")));
    }
}

TEST(ApplyTask, InstallsIntoAFolderThatIsNotThere) {
    PatchWorld world;
    world.targetName = "deep/er/game///";
    world.WritePatch({CreateFileOp("bin/run", "#!")});
    EXPECT_EQ(world.Run().status.state, static_cast<uint32_t>(kTaskStateFinished));
    EXPECT_EQ(world.ReadTarget(), WithFolders({{"bin/run", "#!"}}));

    PatchWorld failing;
    failing.targetName = "deep/er/game";
    failing.WritePatch({CreateFileOp("bin/run", "#!")}, "datafilesize 1\n");
    EXPECT_EQ(failing.Run().status.state, static_cast<uint32_t>(kTaskStateFailed));
    EXPECT_FALSE(std::filesystem::exists(failing.Path("deep")));

    PatchWorld nowhere;
    nowhere.WritePatch({});
    VelPatchTask_ApplyFilePatches task;
    task.Prepare(nowhere.controlURI, nowhere.dataURI);
    EXPECT_FALSE(task.Begin(""));
    TaskStatus status;
    task.GetStatus(status);
    EXPECT_EQ(status.state, static_cast<uint32_t>(kTaskStateFailed));
    EXPECT_EQ(status.statusText, "$velpatch_task_invalid_target");
    EXPECT_EQ(status.failureTitle, "$velpatch_task_invalid_input_filepath");
}

TEST(ApplyTask, AFileInPlaceOfAFolderGetsNoFoldersMode) {
    PatchWorld world;
    world.WriteTarget({{"f/x", "1"}});
    world.WritePatch({DeleteFileOp("f/x"), DeleteFolderOp("f"),
                      CreateFileOp("f", "file").With([](TestOperation& o) {
                          o.source = o.destination;
                          o.flags = 2;
                      })});
    EXPECT_EQ(world.Run().status.state, static_cast<uint32_t>(kTaskStateFinished));
    EXPECT_EQ(world.ReadTarget(), (Tree{{"f", "file"}}));
    if (!CXFileSystem::HasWindowsPaths()) {
        using std::filesystem::perms;
        EXPECT_EQ(std::filesystem::status(world.Path("game/f")).permissions() & perms::owner_exec,
                  perms::none);
    }
}

// ---- Stop, prompts, repeated runs ----

TEST(ApplyTask, StopAtReadyChangesNothing) {
    PatchWorld world;
    world.WriteTarget({{"a.txt", kOld}});
    world.WritePatch({EditOp("a.txt", "a.txt", kOld, kNew)});
    world.atReady = [](VelPatchTask_ApplyFilePatches& task) { task.Stop(); };
    const RunResult result = world.Run();
    EXPECT_EQ(result.status.state, static_cast<uint32_t>(kTaskStateFailed));
    EXPECT_EQ(result.status.failureTitle, "$velpatch_task_patch_cancelled");
    EXPECT_EQ(world.ReadTarget(), (Tree{{"a.txt", kOld}}));
}

TEST(ApplyTask, ASecondRunOfAnInPlaceEditFailsItsSourceTest) {
    PatchWorld world;
    world.WriteTarget({{"a.txt", kOld}});
    world.WritePatch({EditOp("a.txt", "a.txt", kOld, kNew)});
    EXPECT_EQ(world.Run().status.state, static_cast<uint32_t>(kTaskStateFinished));
    SetLocalisedString("$velpatch_task_checksum_mismatch", "[$1|$2|$3]");
    const RunResult again = world.Run();
    EXPECT_EQ(again.status.failureDetail,
              CXString::Format("[%s|%s|%s]", world.Text("game/a.txt").GetData(),
                               MD5Of(kOld).c_str(), MD5Of(kNew).c_str()));
    ClearLocalisedStrings();
}

TEST(ApplyTask, PermissionPromptsRetryRefuseAndStop) {
    for (const Answer last : {Answer::No, Answer::Stop}) {
        PatchWorld world;
        world.WriteTarget({{"a.txt", "a"}});
        world.WritePatch({CreateFolderOp("n").With(SetPermission)});
        int asked = 0;
        world.onPrompt = [&](const TaskStatus& status) {
            EXPECT_EQ(status.failureTitle, "$velpatch_task_failed_unable_perm_folder");
            EXPECT_NE(std::string(status.failureDetail.GetData()).find("COMMAND_CREATE_FOLDER - "),
                      std::string::npos);
            return ++asked < 3 ? Answer::Retry : last;
        };
        const RunResult result = world.Run();
        ASSERT_TRUE(result.ended);
        if (asked == 0) {
            GTEST_SKIP() << "this system takes no such permissions";
        }
        EXPECT_EQ(asked, 3);
        EXPECT_EQ(result.status.state, static_cast<uint32_t>(kTaskStateFailed));
        EXPECT_EQ(world.ReadTarget(), (Tree{{"a.txt", "a"}, {"n/", ""}}));
    }
}

TEST(ApplyTask, AnswersOutsideAPromptHaveNoEffect) {
    PatchWorld world;
    world.WriteTarget({{"a.txt", kOld}});
    world.WritePatch({EditOp("a.txt", "a.txt", kOld, kNew)});
    world.atReady = [](VelPatchTask_ApplyFilePatches& task) {
        task.AnswerPrompt(false);
        task.AnswerPrompt(true);
        TaskStatus status;
        task.GetStatus(status);
        EXPECT_EQ(status.state, static_cast<uint32_t>(kTaskStateReady));
        task.Go();
    };
    EXPECT_EQ(world.Run().status.state, static_cast<uint32_t>(kTaskStateFinished));
}

TEST(ApplyTask, BusyVictimIsWaitedForAndThenLeft) {
    PatchWorld world;
    world.WriteTarget({{"a.txt", "a"}, {"b.txt", "b"}});
    world.WritePatch(
        {DeleteFileOp("a.txt"), EditOp("missing", "b2", kOld, kNew).With([](TestOperation& o) {
             o.sourceChecksum = "";
         })});
    // The rollback deletes a.txt; another stream of this process holds it.
    const CXString held = world.Text("game/a.txt");
    ASSERT_TRUE(CXExclusivePaths::Add(held));
    const RunResult result = world.Run();
    CXExclusivePaths::Remove(held);
    EXPECT_EQ(world.ReadTarget(), (Tree{{"a.txt", "a"}, {"b.txt", "b"}}));
    EXPECT_TRUE(result.LogHas("(retry: 9)"));
    EXPECT_FALSE(result.LogHas("(retry: 10)"));
    EXPECT_TRUE(result.LogHas("CancelCleanupOperations> deleted failed (-9)"));
}

TEST(ApplyTask, TaskCanBeDestroyedAndRestartedInAnyState) {
    PatchWorld world;
    world.WriteTarget({{"a.txt", kOld}});
    world.WritePatch({EditOp("a.txt", "a.txt", kOld, kNew)});
    {
        VelPatchTask_ApplyFilePatches unused;
        unused.Prepare(world.controlURI, world.dataURI);
    }
    {
        VelPatchTask_ApplyFilePatches waiting;
        waiting.Prepare(world.controlURI, world.dataURI);
        EXPECT_TRUE(waiting.Begin(world.Text("game")));
        EXPECT_TRUE(waiting.Begin(world.Text("game")));
    }
    EXPECT_EQ(world.ReadTarget(), (Tree{{"a.txt", kOld}}));
}

} // namespace
