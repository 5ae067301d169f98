// Whole patches told as tables: files before, operations, files after, status and log.
#include "core/CXExclusivePaths.h"
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "tests/patch/PatchScenario.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using Op = TestOperation;
using Operations = std::vector<TestOperation>;

const std::string kOld = "the old text of a file, long enough to keep some of it";
const std::string kNew = "the new and longer text of a file, long enough to keep some of it";
const char kBadMode[] = "posix:9999";

struct Scenario {
    const char* name;
    Tree before;
    Operations operations;
    Tree after;
    std::string logLine; ///< must stand in the log
    std::string title;   ///< key of the failure title; empty: the patch succeeds
    std::string detail;  ///< start of the detail
};

Scenario Works(const char* name, const Tree& before, const Operations& operations,
               const Tree& after, const std::string& logLine = {}) {
    return {name, before, operations, after, logLine, "", ""};
}

Scenario Fails(const char* name, const Tree& before, const Operations& operations,
               const Tree& after, const std::string& title, const std::string& logLine = {},
               const std::string& detail = {}) {
    return {name, before, operations, after, logLine, "$velpatch_task_" + title, detail};
}

/// Found out by the checks before anything is changed.
Scenario NotViable(const char* name, const Tree& before, const Operations& operations,
                   const std::string& detail) {
    return Fails(name, before, operations, before, "patch_not_viable", "STATE_FAILED - ",
                 "$velpatch_task_" + detail);
}

std::vector<Scenario> Scenarios() {
    const Tree before = {
        {"a.txt", kOld}, {"dir/c.txt", "content c"}, {"gone/d.txt", "d"}, {"untouched.dat", "u"}};
    const Tree old = {{"a.txt", kOld}};
    const Tree both = {{"a.txt", kOld}, {"b.txt", kNew}};
    const TestOperation edit = EditOp("a.txt", "a.txt", kOld, kNew);
    const TestOperation editToB = EditOp("a.txt", "b.txt", kOld, kNew);
    const TestOperation createC = CreateFileOp("c.txt", "c");
    const TestOperation bad = CreateFileOp("bad.txt", "xyz").With(&Op::recordChecksum, "f00");
    const TestOperation large = CreateFileOp("b", "b").With(&Op::effort, INT64_MAX);
    return {
        Works("every command", before,
              {CreateFileOp("new/deep/file.bin", "fresh"), edit,
               EditOp("a.txt", "copies/b.txt", kOld, kNew),
               MoveOp("dir/c.txt", "dir/moved.txt", "content c"), DeleteFileOp("dir/c.txt"),
               CreateFolderOp("empty/inner"), DeleteFileOp("gone/d.txt"), DeleteFolderOp("gone")},
              {{"a.txt", kNew},
               {"new/deep/file.bin", "fresh"},
               {"copies/b.txt", kNew},
               {"dir/moved.txt", "content c"},
               {"empty/inner/", ""},
               {"untouched.dat", "u"}},
              "FinaliseRename> no rename necessary: "),
        Works("empty list", before, {}, before),
        Fails("failure after deletions rolls back and loses the victims", before,
              {CreateFileOp("n/x.txt", "x"), DeleteFileOp("gone/d.txt"), edit,
               EditOp("a.txt", "free.txt", kOld, kNew), CreateFolderOp("f/g"), bad},
              {{"a.txt", kOld},
               {"dir/c.txt", "content c"},
               {"gone/", ""},
               {"untouched.dat", "u"},
               {"free.txt", kNew},
               {"f/g/", ""}},
              "failed_unable_write_new_file", "rolling back 5 changes",
              "$velpatch_task_result_checksum_mismatch"),
        Works("a missing deletion victim is no failure", before, {DeleteFileOp("nowhere.txt")},
              before, "file was already deleted: "),
        Works("folder that isn't empty stays under its temporary name", {{"full/x", "1"}},
              {DeleteFolderOp("full")}, {{"patcher-temp/*/x", "1"}},
              "DeleteTemporaryPatchFilesDirectory> failed to delete"),
        Works("edit whose result is there skips its record", both, {editToB, createC},
              {{"a.txt", kOld}, {"b.txt", kNew}, {"c.txt", "c"}},
              "COMMAND_EDIT_FILE - matching file already exists"),
        Works("move whose result is there copies nothing", {{"a.txt", "m"}, {"b.txt", "m"}},
              {MoveOp("a.txt", "b.txt", "m"), DeleteFileOp("a.txt")}, {{"b.txt", "m"}},
              "COMMAND_MOVE_FILE - matching file already exists"),
        Works("the replace flag beats a matching destination", both, {editToB.With(&Op::flags, 2)},
              both, "CreateTemporaryFilepathFor> '"),
        Works("a create whose source is its destination replaces the file", old,
              {ReplaceFileOp("a.txt", "whole", 2, MD5Of(kOld))}, {{"a.txt", "whole"}},
              "already exists: "),
        Fails("a create onto its own finished result passes the checks and fails",
              {{"a.txt", "same"}},
              {CreateFileOp("a.txt", "same").With(&Op::destinationChecksum, MD5Of("same"))},
              {{"a.txt", "same"}}, "failed_unexpected_file",
              "COMMAND_CREATE_FILE - file already exists"),
        Works("an ignored failure leaves the reader out of step for the next create",
              {{"a.txt", "there"}},
              {ReplaceFileOp("a.txt", "first", 1), CreateFileOp("b.txt", "second")},
              {{"a.txt", "there"}, {"b.txt", "first"}}, "Proc> (failure ignored)"),
        Fails("out of step fails an edit", {{"a.txt", "there"}, {"e.txt", kOld}},
              {ReplaceFileOp("a.txt", "first", 1), EditOp("e.txt", "e.txt", kOld, kNew)},
              {{"a.txt", "there"}, {"e.txt", kOld}}, "failed_apply_patches_file",
              "binary diff application failed"),
        Fails("a bad diff rolls back", old, {edit.With(&Op::record, edit.record + "\x07")}, old,
              "failed_apply_patches_file", "ApplyDiffFromStream> unknown command: 7"),
        Works("a record without a checksum isn't tested", old,
              {createC.With(&Op::recordChecksum, ""), edit.With(&Op::recordChecksum, "")},
              {{"a.txt", kNew}, {"c.txt", "c"}}),
        Works("an empty file", {}, {CreateFileOp("zero", "")}, {{"zero", ""}}),
        Fails("an edit of a file that is gone", {}, {edit.With(&Op::sourceChecksum, "")}, {},
              "failed_read_file", "unable to open source"),
        Works("an ignored move of nothing", {{"x", "1"}},
              {MoveOp("nothing", "n/y", "?").With(&Op::sourceChecksum, "").With(&Op::flags, 1),
               CreateFileOp("z", "z")},
              {{"x", "1"}, {"z", "z"}}, "creation? no rename necessary"),
        Works("an unknown command is left out with its record", {},
              {CreateFileOp("a", "a").With(&Op::command, "Create-File"), createC},
              {{"c.txt", "c"}}),
        Works(
            "bad permission digits of an ignored operation", {},
            {CreateFileOp("a", "a").With(&Op::permissions, kBadMode).With(&Op::flags, 1), createC},
            {{"a", "a"}, {"c.txt", "c"}}),
        NotViable("a file where a folder was to be made", {{"f", "file"}}, {CreateFolderOp("f")},
                  "plain_file_unexpected"),
        NotViable("a folder as victim of a file deletion", {{"f/x", "1"}}, {DeleteFileOp("f")},
                  "folder_unexpected"),
        NotViable("source missing", {}, {editToB}, "failed_checksum"),
        NotViable("source differs", {{"a.txt", "other"}}, {editToB}, "checksum_mismatch"),
        NotViable("a checksum in capitals is another text", old,
                  {editToB.With(&Op::sourceChecksum, "X" + MD5Of(kOld).substr(1))},
                  "checksum_mismatch"),
        NotViable("occupied without a checksum, flags or not", old,
                  {CreateFileOp("a.txt", "y").With(&Op::flags, 3)}, "filepath_occupied"),
        NotViable("occupied by something else", {{"a.txt", kOld}, {"b.txt", "x"}}, {editToB},
                  "filepath_occupied_mismatch"),
        NotViable("more room wanted than any volume has", old, {large, large},
                  "insufficient_space"),
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

TEST(ApplyScenario, EndsAsTold) {
    for (const Scenario& scenario : Scenarios()) {
        SCOPED_TRACE(scenario.name);
        PatchWorld world;
        world.WriteTarget(scenario.before);
        world.WritePatch(scenario.operations);
        const RunResult result = world.Run();
        EXPECT_TRUE(scenario.title.empty() ? result.Finished() : result.Failed()) << result.log;
        EXPECT_EQ(result.status.fraction, 1.0F);
        EXPECT_TRUE(result.status.statusText.IsEmpty());
        if (!scenario.title.empty()) {
            EXPECT_EQ(result.status.failureTitle, scenario.title);
            EXPECT_TRUE(
                std::string(result.status.failureDetail.GetData()).starts_with(scenario.detail))
                << result.status.failureDetail.GetData();
        }
        EXPECT_EQ(MaskTemporaryNames(world.ReadTarget()), WithFolders(scenario.after))
            << result.log;
        EXPECT_TRUE(result.LogHas(scenario.logLine)) << result.log;
        EXPECT_TRUE(result.Failed() || !result.LogHas("rolling back"));
    }
}

// ---- Control file, data file ----

TEST(ApplyTask, ControlAndDataFiles) {
    const Operations one = {CreateFileOp("n/a.txt", "hello")};
    const std::string deflated = Deflated(RecordsOf(one));
    const std::string sound = "datafilesize " + std::to_string(deflated.size()) +
                              "\ndatafilechecksum \"" + MD5Of(deflated) + "\"\n";
    const std::string unread = "$velpatch_task_failed_read_source_data"; // with a prompt
    const std::string unwritten = "$velpatch_task_failed_unable_write_new_file";
    using Change = std::function<void(PatchWorld&)>;
    const auto keys = [&one](const std::string& extra) -> Change {
        return [=](PatchWorld& world) { world.WritePatch(one, extra); };
    };
    const auto file = [](const char* name, const std::string& contents) -> Change {
        return [=](PatchWorld& world) { world.WriteFile(name, contents); };
    };
    const auto records = [&file](const std::string& stream) {
        return file("data.bin", Deflated(stream));
    };
    const auto gone = [](const char* name) -> Change {
        return [=](PatchWorld& world) { world.Folder().Remove(name); };
    };
    const Change gopher = [](PatchWorld& world) { world.controlURI = CXURI("gopher://h/p"); };
    const struct {
        const char* name;
        Change change;
        std::string title = {}; ///< empty: success
        const char* detail = nullptr;
    } cases[] = {
        {"sound", keys(sound)},
        {"no control file is an empty patch", gone("control.txt")},
        {"not a control file", file("control.txt", std::string("\0\xFF}{{{", 6))},
        {"wrong size", keys("datafilesize 3\n"), "$velpatch_task_install_failed_wrong_size"},
        {"wrong checksum", keys("datafilechecksum \"00\"\n"),
         "$velpatch_task_installation_data_checksum"},
        {"version 2", file("control.txt", "velpatch-version 2\n"), unread},
        {"version beyond 32 bits", file("control.txt", "velpatch-version 99999999999\n"), unread},
        {"scheme nobody serves", gopher, unread},
        {"data file missing", gone("data.bin"), "$velpatch_task_missing_data"},
        {"data file cut", file("data.bin", deflated.substr(0, 20)), unwritten},
        {"data file empty", file("data.bin", ""), unwritten},
        {"data file of other bytes", file("data.bin", "no zlib stream at all"), unwritten},
        {"record states an absurd size", records(std::string(8, '\xFE') + "abc"), unwritten},
        {"record without its checksum", records(BigEndian(2, 8) + "ab" + "\xFF\xFF\xFF\xFF\xFF"),
         unwritten},
        {"record with a checksum of no end",
         records(BigEndian(2, 8) + "ab" + StreamString(std::string(3000000, 'c'))), unwritten,
         "[read -12]"},
    };
    SetLocalisedString("$velpatch_task_failed_read_checksum", "[read $1]");
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        PatchWorld world;
        world.WriteTarget({{"old.txt", "old"}});
        world.WritePatch(one);
        test.change(world);
        const RunResult result = world.Run();
        EXPECT_TRUE(test.title.empty() ? result.Finished() : result.Failed()) << result.log;
        EXPECT_EQ(result.prompts.size(), test.title == unread ? 1U : 0U);
        if (!test.title.empty()) {
            EXPECT_EQ(result.status.failureTitle, test.title);
            EXPECT_TRUE(result.LogHas("STATE_FAILED - "));
        }
        if (test.detail != nullptr) {
            EXPECT_EQ(result.status.failureDetail, test.detail);
        }
        const Tree after = &test == cases ? WithFolders({{"old.txt", "old"}, {"n/a.txt", "hello"}})
                                          : Tree{{"old.txt", "old"}};
        EXPECT_EQ(world.ReadTarget(), after) << result.log;
    }
    ClearLocalisedStrings();
}

TEST(ApplyTask, RefusesPathsThatLeaveTheTarget) {
    for (const char* path : {"../out.txt", "/abs.txt", "a/../../out.txt", "patcher-temp/x",
                             "PATCHER-TEMP/x", "c:/x", "//server/share/x", ".", "a/.."}) {
        SCOPED_TRACE(path);
        PatchWorld world;
        world.WriteTarget({{"a.txt", kOld}});
        world.WritePatch({CreateFileOp(path, "evil")});
        const RunResult result = world.Run();
        EXPECT_TRUE(result.Failed());
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
    EXPECT_TRUE(world.Run().Finished());
    EXPECT_EQ(world.ReadTarget(), WithFolders({{"bin/run", "#!"}}));

    PatchWorld failing;
    failing.targetName = "deep/er/game";
    failing.WritePatch({CreateFileOp("bin/run", "#!")}, "datafilesize 1\n");
    EXPECT_TRUE(failing.Run().Failed());
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
    world.WritePatch({DeleteFileOp("f/x"), DeleteFolderOp("f"), ReplaceFileOp("f", "file", 2)});
    EXPECT_TRUE(world.Run().Finished());
    EXPECT_EQ(world.ReadTarget(), (Tree{{"f", "file"}}));
    if (!CXFileSystem::HasWindowsPaths()) {
        using std::filesystem::perms;
        EXPECT_EQ(std::filesystem::status(world.Path("game/f")).permissions() & perms::owner_exec,
                  perms::none);
    }
}

// ---- Stop, prompts, repeated runs ----

/// One file, and a patch that edits it.
struct EditWorld : PatchWorld {
    EditWorld() {
        WriteTarget({{"a.txt", kOld}});
        WritePatch({EditOp("a.txt", "a.txt", kOld, kNew)});
    }
};

TEST(ApplyTask, StopAtReadyChangesNothing) {
    EditWorld world;
    world.atReady = [](VelPatchTask_ApplyFilePatches& task) { task.Stop(); };
    const RunResult result = world.Run();
    EXPECT_TRUE(result.Failed());
    EXPECT_EQ(result.status.failureTitle, "$velpatch_task_patch_cancelled");
    EXPECT_EQ(world.ReadTarget(), (Tree{{"a.txt", kOld}}));
}

TEST(ApplyTask, ASecondRunOfAnInPlaceEditFailsItsSourceTest) {
    EditWorld world;
    world.atReady = [](VelPatchTask_ApplyFilePatches& task) {
        task.AnswerPrompt(false); // nothing is asked: no effect
        task.AnswerPrompt(true);
        TaskStatus status;
        task.GetStatus(status);
        EXPECT_EQ(status.state, static_cast<uint32_t>(kTaskStateReady));
        task.Go();
    };
    EXPECT_TRUE(world.Run().Finished());
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
        world.WritePatch({CreateFolderOp("n").With(&Op::permissions, kBadMode)});
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
        EXPECT_TRUE(result.Failed());
        EXPECT_EQ(world.ReadTarget(), (Tree{{"a.txt", "a"}, {"n/", ""}}));
    }
}

TEST(ApplyTask, BusyVictimIsWaitedForAndThenLeft) {
    PatchWorld world;
    world.WriteTarget({{"a.txt", "a"}, {"b.txt", "b"}});
    world.WritePatch(
        {DeleteFileOp("a.txt"), EditOp("missing", "b2", kOld, kNew).With(&Op::sourceChecksum, "")});
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
    EditWorld world;
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
