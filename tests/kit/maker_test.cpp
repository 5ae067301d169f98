// Patches made from pairs of trees, applied by the code that players run.
#include "app/config/VelPatchConfiguration.h"
#include "core/CXFileSystem.h"
#include "kit/VelPatchDataWriter.h"
#include "kit/VelPatchInspector.h"
#include "kit/VelPatchMaker.h"
#include "kit/VelPatchRecordLine.h"
#include "kit/VelPatchRunner.h"
#include "net/CXURI.h"
#include "patch/PatchControl.h"
#include "stream/CXStreamFile.h"
#include "tests/support/Environment.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <random>

namespace {

const bool kHasModes = std::filesystem::path::preferred_separator == '/';

class Maker : public testing::Test {
protected:
    // The task's log file goes into the test's own folder.
    Maker() { RedirectTemporaryFolder(m_folder.Path().GetData()); }
    ~Maker() override { RedirectTemporaryFolder(m_earlierTemporary); }

    /// Makes the patch from "old" (or nothing) to "new" into "out".
    CXResult Make(bool fromOld = true, bool check = false, unsigned workers = 2) {
        m_folder.MakeFolder("old");
        m_folder.MakeFolder("new");
        VelPatchMaker::Options options;
        options.oldFolder = fromOld ? m_folder.Path("old") : CXString();
        options.newFolder = m_folder.Path("new");
        options.outFolder = m_folder.Path("out");
        options.check = check;
        options.workers = workers;
        options.ignored = m_ignored;
        VelPatchMaker maker(options);
        maker.SetStopTest([this] { return m_meanwhile && m_meanwhile(); });
        m_problem.Clear();
        const CXResult result = maker.Run(m_problem);
        m_warnings = maker.GetWarnings();
        m_summary = maker.GetSummary();
        return result;
    }

    std::vector<PatchOperation> Operations() {
        PatchControl control;
        const CXURI uri(FileURIOfPath(m_folder.Path("out/patch-control.txt")));
        EXPECT_EQ(LoadControlFile(uri, control), kCXResultOK) << uri.ToString().GetData();
        EXPECT_EQ(control.dataSize,
                  static_cast<int64_t>(m_folder.ReadFile("out/patch-data.bin").size()));
        return control.operations;
    }

    /// Applies "out" to a copy of "old" (or to nothing) and answers the tree that comes out.
    TreeSnapshot Applied(bool fromOld = true) {
        m_folder.Remove("target");
        if (fromOld) {
            std::error_code error;
            std::filesystem::copy(m_folder.Path("old").GetData(), m_folder.Path("target").GetData(),
                                  std::filesystem::copy_options::recursive, error);
            for (const auto& [path, entry] : m_folder.Tree("old")) {
                if (kHasModes) {
                    m_folder.SetMode("target/" + path, entry.mode);
                }
            }
        }
        TaskStatus last;
        const VelPatchOutcome outcome =
            RunPatch(m_folder.Path("out/patch-control.txt"), m_folder.Path("out/patch-data.bin"),
                     m_folder.Path("target"), VelPatchWatcher(), last);
        EXPECT_EQ(outcome, VelPatchOutcome::Finished)
            << last.failureTitle.GetData() << " " << last.failureDetail.GetData();
        return m_folder.Tree("target");
    }

    /// Bytes that nothing compresses, others with each call.
    std::string Noise(size_t size) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(m_random());
        }
        return bytes;
    }

    bool Complains(const char* word) const {
        return m_problem.View().find(word) != absl::string_view::npos;
    }
    bool Warns(const char* word) const {
        for (const CXString& warning : m_warnings) {
            if (warning.View().find(word) != absl::string_view::npos) {
                return true;
            }
        }
        return false;
    }

    std::string m_earlierTemporary = std::filesystem::temp_directory_path().string();
    LogCapture m_log; // keeps the test's output readable
    TempFolder m_folder;
    CXString m_problem;
    std::vector<CXString> m_warnings;
    VelPatchSummary m_summary;
    std::vector<CXString> m_ignored;
    std::function<bool()> m_meanwhile; ///< asked whether to stop
    std::mt19937 m_random{17};
};

/// Fills a tree with files of related contents, so that edits and moves come about.
class TreeMaker {
public:
    explicit TreeMaker(unsigned seed) : m_random(seed) {}

    void Fill(const TempFolder& folder, const std::string& root) {
        for (int i = 0; i < 40; i++) {
            const std::string path = root + "/" + Name(true);
            if (Below(8) == 0) {
                if (!folder.Has(path)) {
                    folder.MakeFolder(path);
                }
            } else if (!folder.Has(path) && IsFree(folder, root, path)) {
                folder.WriteFile(path, Contents());
                if (kHasModes) {
                    folder.SetMode(path, Below(4) == 0 ? 0755 : 0644);
                }
            }
        }
    }

    /// Turns a copy of the old tree into the new one.
    void Change(const TempFolder& folder, const std::string& root) {
        for (const auto& [path, entry] : folder.Tree(root)) {
            const std::string full = root + "/" + path;
            if (!folder.Has(full)) {
                continue;
            }
            const unsigned change = Below(9);
            const bool isFile = entry.type == 'f';
            if (change == 0) {
                folder.Remove(full);
            } else if (change == 1 && isFile) {
                const std::string target = root + "/" + Name(true) + "x";
                if (!folder.Has(target) && IsFree(folder, root, target)) {
                    folder.WriteFile(target, entry.contents);
                    folder.Remove(full);
                }
            } else if ((change == 2 || change == 3) && isFile) {
                folder.WriteFile(full, Edited(entry.contents));
            } else if (change == 4 && kHasModes) {
                folder.SetMode(full, isFile ? (Below(2) ? 0600 : 0755) : (Below(2) ? 0755 : 0700));
            } else if (change == 5 && !isFile && Below(2) == 0) { // a folder becomes a file
                folder.Remove(full);
                folder.WriteFile(full, Contents());
            }
        }
        Fill(folder, root);
    }

private:
    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

    /// Names that rarely meet, except where they should.
    std::string Name(bool deep) {
        static const char* const kFolders[] = {"bin", "data", "data/levels", "data/levels/one",
                                               "M\xC3\xBCsik & more"};
        const std::string name = "f" + std::to_string(Below(60)) + (Below(3) ? ".dat" : "");
        return deep && Below(4) ? std::string(kFolders[Below(5)]) + "/" + name : name;
    }
    /// No parent of the path is a file in either tree: that can't be told in a patch.
    static bool IsFree(const TempFolder& folder, const std::string& root, const std::string& path) {
        for (size_t at = path.find('/', root.size() + 1); at != std::string::npos;
             at = path.find('/', at + 1)) {
            for (const std::string& tree : {root, std::string("old")}) {
                const TreeSnapshot found = folder.Tree(tree);
                const auto entry = found.find(path.substr(root.size() + 1, at - root.size() - 1));
                if (entry != found.end() && entry->second.type == 'f') {
                    return false;
                }
            }
        }
        return true;
    }
    std::string Contents() {
        std::string contents;
        for (unsigned blocks = Below(12); blocks > 0; blocks--) {
            std::mt19937 block(Below(6)); // few different blocks: files resemble each other
            for (int i = 0; i < 700; i++) {
                contents.push_back(static_cast<char>(block()));
            }
        }
        return contents;
    }
    std::string Edited(std::string contents) {
        for (unsigned edits = 1 + Below(3); edits > 0; edits--) {
            contents.insert(contents.empty() ? 0 : m_random() % contents.size(),
                            std::to_string(m_random()));
        }
        return contents;
    }

    std::mt19937 m_random;
};

} // namespace

TEST_F(Maker, RandomTreesComeOutAsTheyShould) {
    const auto seed = static_cast<unsigned>(std::random_device()());
    for (unsigned round = 0; round < 8; round++) {
        SCOPED_TRACE("seed " + std::to_string(seed + round));
        for (const char* each : {"old", "new", "out"}) {
            m_folder.Remove(each);
        }
        TreeMaker trees(seed + round);
        m_folder.MakeFolder("old");
        trees.Fill(m_folder, "old");
        std::error_code error;
        std::filesystem::copy(m_folder.Path("old").GetData(), m_folder.Path("new").GetData(),
                              std::filesystem::copy_options::recursive, error);
        trees.Change(m_folder, "new");

        const CXResult made = Make();
        if (made != kCXResultOK && Complains("becomes a folder")) {
            continue;
        }
        ASSERT_EQ(made, kCXResultOK) << m_problem.GetData();
        const std::string control = m_folder.ReadFile("out/patch-control.txt");
        const std::string data = m_folder.ReadFile("out/patch-data.bin");
        EXPECT_EQ(Applied(), m_folder.Tree("new"));
        ASSERT_EQ(Make(true, false, 1), kCXResultOK);
        EXPECT_EQ(m_folder.ReadFile("out/patch-control.txt"), control) << "not the same again";
        EXPECT_EQ(m_folder.ReadFile("out/patch-data.bin"), data) << "not the same again";

        ASSERT_EQ(Make(false), kCXResultOK) << m_problem.GetData();
        EXPECT_EQ(Applied(false), m_folder.Tree("new"));
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(Maker, ChoosesTheCheapestOperation) {
    const std::string large(50000, 'a');
    const std::string noise = Noise(40000);
    m_folder.WriteFile("old/same", large);
    m_folder.WriteFile("new/same", large);
    m_folder.WriteFile("old/edited", noise + large);
    m_folder.WriteFile("new/edited", noise + "+" + large);
    m_folder.WriteFile("old/replaced", large);
    m_folder.WriteFile("new/replaced", noise.substr(0, 900));
    m_folder.WriteFile("old/moved", "moved" + noise);
    m_folder.WriteFile("new/elsewhere/moved", "moved" + noise);
    m_folder.WriteFile("old/lib/both", "both" + noise);
    m_folder.WriteFile("new/inc/both", "both" + noise + "more");
    m_folder.WriteFile("new/copied", large);
    m_folder.WriteFile("old/becomes/file", "x");
    m_folder.WriteFile("new/becomes", "now a file");
    m_folder.MakeFolder("new/empty/inside");
    m_folder.WriteFile("old/gone", "gone");
    ASSERT_EQ(Make(true, true), kCXResultOK) << m_problem.GetData();
    EXPECT_EQ(Applied(), m_folder.Tree("new"));
    EXPECT_LT(m_summary.dataSize, 3000U) << "moves and edits carry next to nothing";
    // Only the efforts tell what moves take, and the list states them in sum.
    PatchControl control;
    control.operations = Operations();
    VelPatchInspector inspector(control);
    CXStreamFile data;
    data.Open(m_folder.Path("out/patch-data.bin"), kOpenRead);
    EXPECT_EQ(inspector.ReadData(data), kCXResultOK);
    uint64_t made = 0;
    for (const char* path :
         {"copied", "edited", "elsewhere/moved", "inc/both", "replaced", "becomes"}) {
        made += m_folder.ReadFile(std::string("new/") + path).size();
    }
    EXPECT_EQ(inspector.GetSums().newBytes, made);

    struct Expected {
        PatchCommand command;
        const char* source;
        const char* destination;
        uint32_t flags;
    };
    const Expected expected[] = {
        {COMMAND_MOVE_FILE, "replaced", "copied", 0},
        {COMMAND_MOVE_FILE, "moved", "elsewhere/moved", 0},
        {COMMAND_EDIT_FILE, "edited", "edited", 0},
        {COMMAND_EDIT_FILE, "lib/both", "inc/both", 0},
        {COMMAND_CREATE_FILE, "replaced", "replaced", kPatchFlagMayReplace},
        {COMMAND_CREATE_FOLDER, "", "empty/inside", 0},
        {COMMAND_DELETE_FILE, "", "becomes/file", 0},
        {COMMAND_DELETE_FILE, "", "gone", 0},
        {COMMAND_DELETE_FILE, "", "lib/both", 0},
        {COMMAND_DELETE_FILE, "", "moved", 0},
        {COMMAND_DELETE_FOLDER, "", "lib", 0},
        {COMMAND_DELETE_FOLDER, "", "becomes", 0},
        {COMMAND_CREATE_FILE, "becomes", "becomes", kPatchFlagMayReplace},
    };
    const std::vector<PatchOperation> operations = Operations();
    ASSERT_EQ(operations.size(), std::size(expected));
    for (size_t i = 0; i < operations.size(); i++) {
        SCOPED_TRACE(i);
        EXPECT_EQ(operations[i].command, expected[i].command);
        EXPECT_STREQ(operations[i].sourcePath.GetData(), expected[i].source);
        EXPECT_STREQ(operations[i].destinationPath.GetData(), expected[i].destination);
        EXPECT_EQ(operations[i].flags, expected[i].flags);
    }
}

TEST_F(Maker, NewFilesComeFromTheMostSimilar) {
    const std::string program = Noise(300000);
    const std::string level = Noise(90000);
    const std::string fresh = Noise(50000);
    m_folder.WriteFile("old/bin/app-1f3a.js", program);
    m_folder.WriteFile("old/maps/one", level);
    m_folder.WriteFile("old/other", Noise(300000));
    m_folder.WriteFile("new/lib/app-99c0.js",
                       program.substr(0, 200000) + "changed" + program.substr(200000));
    m_folder.WriteFile("new/maps/one", level);
    m_folder.WriteFile("new/maps/two", level.substr(0, 60000) + Noise(200) + level.substr(60000));
    m_folder.WriteFile("new/a", fresh);
    m_folder.WriteFile("new/b", fresh);
    m_folder.WriteFile("new/c", "0123456789" + fresh);
    ASSERT_EQ(Make(true, true), kCXResultOK) << m_problem.GetData();
    EXPECT_EQ(Applied(), m_folder.Tree("new"));
    EXPECT_LT(m_summary.dataSize, fresh.size() + 2000U);
    const struct {
        PatchCommand command;
        const char* source;
        const char* destination;
        bool isMade;
    } expected[] = {{COMMAND_CREATE_FILE, "", "a", false},
                    {COMMAND_EDIT_FILE, "a", "c", true},
                    {COMMAND_EDIT_FILE, "bin/app-1f3a.js", "lib/app-99c0.js", false},
                    {COMMAND_EDIT_FILE, "maps/one", "maps/two", false},
                    {COMMAND_MOVE_FILE, "a", "b", true}};
    const std::vector<PatchOperation> operations = Operations();
    ASSERT_GT(operations.size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); i++) {
        EXPECT_EQ(operations[i].command, expected[i].command) << i;
        EXPECT_STREQ(operations[i].sourcePath.GetData(), expected[i].source);
        EXPECT_STREQ(operations[i].destinationPath.GetData(), expected[i].destination);
        // What the run itself makes can't be asked for before it.
        EXPECT_EQ(operations[i].sourceChecksum.IsEmpty(), expected[i].isMade || i == 0);
    }
}

TEST_F(Maker, WhatIsAlikeStandsTogether) {
    // Every new text stands in two files that are far apart by their names, and of the second of
    // them come a copy and an edit.
    constexpr size_t kText = 6000;
    constexpr int kPairs = 20;
    for (int i = 0; i < kPairs; i++) {
        const std::string text = Noise(kText);
        const std::string own = Noise(9000);
        const std::string number = std::to_string(10 + i);
        m_folder.WriteFile("old/a/" + number, own);
        m_folder.WriteFile("new/a/" + number, own.substr(0, 5000) + text + own.substr(5000));
        const std::string second = text + Noise(500);
        m_folder.WriteFile("new/b/" + number, second);
        m_folder.WriteFile("new/c/" + number, second);
        m_folder.WriteFile("new/d/" + number, "~" + second);
    }
    ASSERT_EQ(Make(true, true), kCXResultOK) << m_problem.GetData();
    EXPECT_EQ(Applied(), m_folder.Tree("new"));
    EXPECT_LT(m_summary.dataSize, kPairs * (kText + 500 + 400)) << "a text is carried twice";
}

TEST_F(Maker, WorkersDontShow) {
    // One file that is shared out among threads, one that isn't read into memory, and many small
    // ones before, between and behind them.
    std::mt19937 random(23);
    std::string program;
    for (int i = 0; i < 750000; i++) {
        program += {static_cast<char>(i / 7), static_cast<char>(random() % 16),
                    static_cast<char>(random()), '\x90'};
    }
    m_folder.WriteFile("old/program", program);
    for (size_t at = 100; at + 600 < program.size(); at += 550 + random() % 50) {
        program[at] = static_cast<char>(random());
    }
    program.insert(program.size() / 3, "some more");
    m_folder.WriteFile("new/program", program);
    std::string film(5 << 20, '\0');
    for (size_t at = 0; at < film.size(); at += 1 + random() % 4096) {
        film[at] = static_cast<char>(random());
    }
    m_folder.WriteFile("new/film", film);
    for (int i = 0; i < 60; i++) {
        const std::string text = program.substr(random() % 2500000, 3000);
        const std::string name = std::string(1, "afmz"[i % 4]) + std::to_string(i);
        m_folder.WriteFile("old/" + name, text);
        m_folder.WriteFile("new/" + name, text.substr(0, 1000) + "-" + text.substr(1100));
    }
    ASSERT_EQ(Make(true, true, 1), kCXResultOK) << m_problem.GetData();
    const std::string control = m_folder.ReadFile("out/patch-control.txt");
    const std::string data = m_folder.ReadFile("out/patch-data.bin");
    for (const unsigned workers : {2U, 5U}) {
        ASSERT_EQ(Make(true, false, workers), kCXResultOK);
        EXPECT_EQ(m_folder.ReadFile("out/patch-control.txt"), control);
        EXPECT_TRUE(m_folder.ReadFile("out/patch-data.bin") == data);
    }
}

TEST_F(Maker, StopsAnywhere) {
    std::mt19937 random(29);
    for (int i = 0; i < 40; i++) {
        std::string text(80000, '\0');
        for (char& letter : text) {
            letter = "etaoin shrdlu"[random() % 13];
        }
        m_folder.WriteFile("new/f" + std::to_string(i), text);
    }
    for (int calls = 1;; calls *= 2) {
        int left = calls;
        m_meanwhile = [&] { return --left <= 0; };
        if (Make(false, false, 3) == kCXResultOK) {
            EXPECT_GE(calls, 4) << "asked too rarely";
            break;
        }
        ASSERT_TRUE(m_folder.Tree("out").empty()) << calls;
    }
}

TEST_F(Maker, TheFirstOfManyFailuresIsTold) {
    // Files that have other sizes than when they were planned fail as soon as they are read.
    std::vector<VelPatchPlannedOperation> operations;
    for (int i = 10; i < 90; i++) {
        const std::string name = "f" + std::to_string(i);
        m_folder.WriteFile(name, std::string(5000, 'b'));
        VelPatchPlannedOperation& planned = operations.emplace_back();
        planned.operation.command = COMMAND_CREATE_FILE;
        planned.operation.destinationPath = name.c_str();
        planned.newFile = m_folder.Path(name);
        planned.newSize = i == 33 || i == 34 || i == 80 ? 5001 : 5000;
    }
    for (int round = 0; round < 20; round++) {
        VelPatchDataWriter data;
        ASSERT_EQ(data.Open(m_folder.Path("data.bin"), 9), kCXResultOK);
        std::vector<VelPatchPlannedOperation> list = operations;
        const auto goOn = [](uint64_t) { return true; };
        EXPECT_NE(VelPatchRecordLine(list, data).Run(4, goOn, m_problem), kCXResultOK);
        EXPECT_TRUE(Complains("f33' has changed")) << m_problem.GetData();
        data.Close(1);
    }
}

TEST_F(Maker, LeavesOutWhatIsIgnored) {
    for (const char* file : {"keep.txt", "a.pdb", "sub/b.pdb", "sub/logs/1.log", "logs/2.log",
                             "sub/deep/cache/x/y", "sub/cache.txt"}) {
        m_folder.WriteFile(std::string("new/") + file, file);
    }
    m_folder.WriteFile("old/a.pdb", "old");
    m_ignored = {"*.pdb", "sub/**/cache", "logs/?.log", "/none"};
    ASSERT_EQ(Make(), kCXResultOK) << m_problem.GetData();
    std::string made;
    for (const PatchOperation& operation : Operations()) {
        made += std::string(operation.destinationPath.GetData()) + ' ';
    }
    EXPECT_EQ(made, "keep.txt sub/cache.txt sub/logs/1.log sub/deep logs ");
    const struct {
        const char* path;
        const char* glob;
        bool isMatch;
    } cases[] = {
        {"a/b/c", "a/**", true},   {"a/b/c", "a/*", false},         {"a/b/c", "**/c", true},
        {"a/b/c", "c", true},      {"a/b/c", "a/*/c", true},        {"\xC3\xA4.txt", "?.txt", true},
        {"a/b/c", "a?b/c", false}, {"aXbXbc", "a*bc", true},        {"a/x/b/y/b", "a/**/b", true},
        {"ab", "a*b*c", false},    {"a/b1/c/b2/d", "**/b*/d", true}};
    for (const auto& each : cases) {
        EXPECT_EQ(MatchesGlob(each.path, each.glob), each.isMatch) << each.path << " " << each.glob;
    }
}

TEST_F(Maker, NoticesFilesThatChangeMeanwhile) {
    m_folder.WriteFile("old/a", "1");
    m_folder.WriteFile("new/a", "22");
    m_folder.WriteFile("old/same", "the same");
    m_folder.WriteFile("new/same", "the same");
    for (const char* changing : {"new/a", "old/a", "new/same", "old/same"}) {
        SCOPED_TRACE(changing);
        const std::string before = m_folder.ReadFile(changing);
        int calls = 0;
        m_meanwhile = [&] { // asked between any two steps
            if (++calls == 2) {
                m_folder.WriteFile(changing, before + "+");
            }
            return false;
        };
        EXPECT_NE(Make(), kCXResultOK);
        EXPECT_TRUE(Complains(changing)) << m_problem.GetData();
        EXPECT_TRUE(m_folder.Tree("out").empty()) << "nothing half done";
        m_folder.WriteFile(changing, before);
    }
    for (const char* coming : {"new/late", "old/later/late"}) {
        SCOPED_TRACE(coming);
        m_meanwhile = [&] {
            m_folder.WriteFile(coming, "late");
            return false;
        };
        EXPECT_NE(Make(), kCXResultOK);
        EXPECT_TRUE(Complains("late' has changed") || Complains("later' has changed"))
            << m_problem.GetData();
    }
}

TEST_F(Maker, OldLetterCaseStays) {
    m_folder.WriteFile("old/Data/Level.dat", "one");
    m_folder.WriteFile("old/Data/other", "same");
    m_folder.WriteFile("new/data/level.dat", "two");
    m_folder.WriteFile("new/data/other", "same");
    m_folder.WriteFile("new/data/more", "new");
    ASSERT_EQ(Make(true, true), kCXResultOK) << m_problem.GetData();
    EXPECT_TRUE(Warns("letter case"));
    const TreeSnapshot tree = Applied();
    EXPECT_EQ(tree.size(), 4U);
    EXPECT_EQ(tree.at("Data/Level.dat").contents, "two");
    EXPECT_EQ(tree.at("Data/more").contents, "new");
}

TEST_F(Maker, RefusesWhatCannotBeTold) {
    struct Case {
        const char* what;
        std::vector<const char*> files;
        const char* named; ///< in the complaint
        bool posixOnly = false;
    };
    const Case cases[] = {
        {"nothing to do", {}, "same"},
        {"file to folder", {"old/a/name", "new/a/name/inside"}, "a/name"},
        {"two names in one", {"new/Readme", "new/README"}, "README", true},
        {"a link", {"new/file"}, "new/link", true},
        {"a name that Windows cuts", {"new/name."}, "name.", true},
        {"a name that is no text", {"new/n\xFFme"}, "UTF-8", true},
        {"the patcher's own folder", {"new/Patcher-Temp/file"}, "Patcher-Temp", true},
    };
    for (const Case& each : cases) {
        if (each.posixOnly && !kHasModes) {
            continue;
        }
        SCOPED_TRACE(each.what);
        for (const char* folder : {"old", "new", "out"}) {
            m_folder.Remove(folder);
        }
        for (const char* file : each.files) {
            m_folder.WriteFile(file, "x");
        }
        if (std::string(each.what) == "a link") {
            EXPECT_TRUE(m_folder.MakeLink("new/link", "file"));
        }
        EXPECT_NE(Make(), kCXResultOK);
        EXPECT_TRUE(Complains(each.named)) << m_problem.GetData();
        EXPECT_FALSE(m_folder.Has("out/patch-control.txt"));
    }
    m_folder.Remove("new");
    m_folder.WriteFile("new/file", "x");
    VelPatchMaker::Options options;
    options.newFolder = m_folder.Path("new");
    options.outFolder = m_folder.Path("new/out");
    EXPECT_NE(VelPatchMaker(options).Run(m_problem), kCXResultOK);
    EXPECT_FALSE(m_folder.Has("new/out"));
}

TEST_F(Maker, LeavesNothingHalfDone) {
    m_folder.WriteFile("old/a", "1");
    m_folder.WriteFile("new/a", "2");
    ASSERT_EQ(Make(true, true), kCXResultOK);
    const TreeSnapshot before = m_folder.Tree("out");
    EXPECT_EQ(before.size(), 2U) << "the check cleans up behind itself";

    // A run that is stopped leaves the patch of before alone.
    m_folder.WriteFile("new/a", "3");
    VelPatchMaker::Options options;
    options.oldFolder = m_folder.Path("old");
    options.newFolder = m_folder.Path("new");
    options.outFolder = m_folder.Path("out");
    VelPatchMaker maker(options);
    maker.SetStopTest([] { return true; });
    EXPECT_EQ(maker.Run(m_problem), kCXResultCancelled);
    EXPECT_EQ(m_folder.Tree("out"), before);
}

TEST_F(Maker, ChangedPermissionsSurviveARollback) {
    if (!kHasModes) {
        GTEST_SKIP() << "no permission bits here";
    }
    m_folder.WriteFile("old/tool", "program");
    m_folder.WriteFile("new/tool", "program");
    m_folder.WriteFile("old/z", "1");
    m_folder.WriteFile("new/z", "2");
    m_folder.SetMode("new/tool", 0755);
    ASSERT_EQ(Make(), kCXResultOK);
    EXPECT_EQ(Applied(), m_folder.Tree("new"));
    EXPECT_EQ(Operations().at(0).command, COMMAND_MOVE_FILE);

    // A broken data file: the edit behind the move fails, and the old bits stand.
    std::string data = m_folder.ReadFile("out/patch-data.bin");
    std::string control = m_folder.ReadFile("out/patch-control.txt");
    data.resize(data.size() / 2);
    control.replace(control.find("datafilesize"), 12, "datafilesize-");
    control.replace(control.find("datafilechecksum"), 16, "datafilechecksum-");
    m_folder.WriteFile("out/patch-data.bin", data);
    m_folder.WriteFile("out/patch-control.txt", control);
    m_folder.Remove("target");
    m_folder.WriteFile("target/tool", "program");
    m_folder.WriteFile("target/z", "1");
    const TreeSnapshot before = m_folder.Tree("target");
    TaskStatus last;
    EXPECT_EQ(RunPatch(m_folder.Path("out/patch-control.txt"), m_folder.Path("out/patch-data.bin"),
                       m_folder.Path("target"), VelPatchWatcher(), last),
              VelPatchOutcome::Failed);
    EXPECT_EQ(m_folder.Tree("target"), before);
}
