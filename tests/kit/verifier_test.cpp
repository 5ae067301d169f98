// What the kit says of a target before and after a patch must be what the player's program finds.
#include "kit/VelPatchRunner.h"
#include "kit/VelPatchVerifier.h"
#include "patch/DeleteWithAutoRetry.h"
#include "tests/kit/HandMadePatch.h"
#include "tests/support/Environment.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <random>

namespace {

class Verifier : public testing::Test {
protected:
    Verifier() {
        RedirectTemporaryFolder(m_folder.Path().GetData());
        m_earlierPause = SetDeleteRetryPause(0);
    }
    ~Verifier() override {
        RedirectTemporaryFolder(m_earlierTemporary);
        SetDeleteRetryPause(m_earlierPause);
    }

    std::string Look(const HandMadePatch& patch, bool after, unsigned workers = 2) const {
        const PatchControl control = patch.GetControl();
        VelPatchVerifier verifier(control, m_folder.Path("game"));
        verifier.SetWorkers(workers);
        EXPECT_TRUE(after ? verifier.CheckAfter() : verifier.CheckBefore());
        std::string text;
        for (const VelPatchMismatch& mismatch : verifier.GetMismatches()) {
            text += std::string(mismatch.path.GetData()) + (mismatch.isTolerated ? "~ " : " ") +
                    mismatch.why.GetData() + "\n";
        }
        EXPECT_LE(verifier.IsAnyWrong(), !text.empty());
        return text;
    }
    bool IsGood(const HandMadePatch& patch, bool after) const {
        const PatchControl control = patch.GetControl();
        VelPatchVerifier verifier(control, m_folder.Path("game"));
        EXPECT_TRUE(after ? verifier.CheckAfter() : verifier.CheckBefore());
        return !verifier.IsAnyWrong();
    }
    bool Apply(const HandMadePatch& patch, std::string& why) const {
        patch.Write(m_folder);
        TaskStatus last;
        const VelPatchOutcome outcome =
            RunPatch(m_folder.Path("control.txt"), m_folder.Path("data.bin"), m_folder.Path("game"),
                     VelPatchWatcher(), last);
        why = std::string(last.failureTitle.GetData()) + " " + last.failureDetail.GetData();
        return outcome == VelPatchOutcome::Finished;
    }

    uint32_t m_earlierPause = 0;
    std::string m_earlierTemporary = std::filesystem::temp_directory_path().string();
    LogCapture m_log;
    TempFolder m_folder;
};

std::string Show(const HandMadePatch& patch) {
    std::string text;
    for (const PatchOperation& operation : patch.operations) {
        text += CXString::Format("%s %s from '%s' %.4s %.4s flags %d\n",
                                 PatchCommandWord(operation.command),
                                 operation.destinationPath.GetData(),
                                 operation.sourcePath.GetData(), operation.sourceChecksum.GetData(),
                                 operation.destinationChecksum.GetData(), operation.flags)
                    .GetData();
    }
    return text;
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST_F(Verifier, ChainsOnOnePath) {
    HandMadePatch patch;
    patch.Create("new", "contents")
        .Add(COMMAND_MOVE_FILE, "twin", "new") // states nothing: the run makes its source
        .Add(COMMAND_MOVE_FILE, "away/old", "old", HashOf("old"))
        .Create("old", "replaced", "old", kPatchFlagMayReplace)
        .Edit("edited", "edited", std::string("\x01\0\0\0\x03\0\0\0\0\0\0\0\0\x01!", 15), "abc!")
        .Add(COMMAND_CREATE_FOLDER, "folder/made")
        .Add(COMMAND_DELETE_FILE, "gone/file")
        .Add(COMMAND_DELETE_FOLDER, "gone");
    patch.operations[2].sourceChecksum = HashOf("old").c_str();
    patch.operations[4].sourceChecksum = HashOf("abc").c_str();
    m_folder.WriteFile("game/old", "old");
    m_folder.WriteFile("game/edited", "abc");
    m_folder.WriteFile("game/gone/file", "x");
    EXPECT_EQ(Look(patch, false), "");
    const std::string untouched = Look(patch, true);
    for (const char* part :
         {"new is missing\ntwin is missing\naway/old is missing\nold has the checksum",
          "folder/made is missing", "gone/file is still there\ngone is still there"}) {
        EXPECT_TRUE(Has(untouched, part)) << untouched;
    }

    std::string why;
    ASSERT_TRUE(Apply(patch, why)) << why;
    EXPECT_EQ(Look(patch, true), "");
    EXPECT_EQ(Look(patch, true, 1), "");
    const std::string again = Look(patch, false);
    for (const char* part : {"new a file is here already", "away/old the source",
                             "edited the source", "has the checksum"}) {
        EXPECT_TRUE(Has(again, part)) << again;
    }
    // Every path that the patch leaves counts.
    for (const char* path : {"new", "twin", "away/old", "old", "edited"}) {
        const std::string contents = m_folder.ReadFile(std::string("game/") + path);
        m_folder.WriteFile(std::string("game/") + path, "damaged");
        EXPECT_EQ(Look(patch, true).rfind(std::string(path) + " has the checksum", 0), 0u) << path;
        m_folder.WriteFile(std::string("game/") + path, contents);
    }
    m_folder.Remove("game/folder/made");
    m_folder.WriteFile("game/folder/made", "");
    m_folder.MakeFolder("game/patcher-temp");
    EXPECT_EQ(Look(patch, true), "folder/made is a file and should be a folder\n"
                                 "patcher-temp~ is still there\n");
}

TEST_F(Verifier, PermissionsAndToleratedFailures) {
    if (std::filesystem::path::preferred_separator != '/') {
        GTEST_SKIP() << "no mode bits here";
    }
    HandMadePatch patch;
    patch.Create("tool", "#!").Create("may/fail", "x", {}, kPatchFlagIgnoreFailure);
    patch.operations[0].destinationPermissions = "posix:0755";
    m_folder.WriteFile("game/tool", "#!");
    m_folder.SetMode("game/tool", 0644);
    EXPECT_EQ(Look(patch, true), "tool has the permissions 0644, wanted are 0755\n"
                                 "may/fail~ is missing\n");
    m_folder.SetMode("game/tool", 0755);
    EXPECT_TRUE(IsGood(patch, true));
    // An unreadable file is no reason to stop at it.
    ASSERT_TRUE(m_folder.MakeLink("game/may", "/"));
    EXPECT_TRUE(Has(Look(patch, false), "a link leads out of the target"));
}

/// Lists of operations over a few paths, so that they meet each other. They state what is true of
/// the target that they are made with.
class ListMaker {
public:
    ListMaker(const TempFolder& folder, unsigned seed) : m_folder(folder), m_random(seed) {}

    HandMadePatch Make() {
        m_folder.Remove("game");
        m_folder.MakeFolder("game");
        for (const char* path : kPaths) {
            if (Below(2) == 0) {
                m_folder.WriteFile(std::string("game/") + path, Contents());
            }
        }
        HandMadePatch patch;
        for (unsigned i = 1 + Below(4); i > 0; i--) {
            AddOperation(patch);
        }
        return patch;
    }

private:
    static constexpr const char* kPaths[] = {"a", "b", "c/d", "c/e"};

    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
    std::string Path() { return kPaths[Below(4)]; }
    std::string Contents() { return std::string(1, static_cast<char>('x' + Below(3))); }
    /// Of what is on disk, sometimes; empty for none.
    std::string Checksum(const std::string& path) {
        const bool isStated = m_folder.Has("game/" + path) && Below(2) == 0;
        return isStated ? HashOf(m_folder.ReadFile("game/" + path)) : std::string();
    }

    void AddOperation(HandMadePatch& patch) {
        const std::string path = Path();
        const std::string source = Path();
        const bool isThere = m_folder.Has("game/" + path);
        switch (Below(5)) {
        case 0:
        case 1: {
            const bool replaces = isThere && Below(3) > 0;
            patch.Create(path, Contents(), replaces ? path : std::string(),
                         replaces || !isThere ? Below(2) * kPatchFlagMayReplace : 0);
            if (replaces) {
                patch.operations.back().sourceChecksum =
                    HashOf(m_folder.ReadFile("game/" + path)).c_str();
            }
            break;
        }
        case 2:
            patch.Add(COMMAND_MOVE_FILE, path, source, Checksum(source),
                      Below(2) * kPatchFlagMayReplace);
            patch.operations.back().sourceChecksum = Checksum(source).c_str();
            break;
        case 3:
            patch.Add(COMMAND_DELETE_FILE, path);
            break;
        default:
            if (Below(3) == 0) {
                patch.Add(COMMAND_DELETE_FOLDER, "c");
            } else {
                patch.Add(COMMAND_CREATE_FOLDER, Below(2) == 0 ? "c" : "f/g");
            }
        }
    }

    const TempFolder& m_folder;
    std::mt19937 m_random;
};

TEST_F(Verifier, AgreesWithRuns) {
    int finished = 0;
    for (unsigned seed = 0; seed < 120; seed++) {
        const HandMadePatch patch = ListMaker(m_folder, seed).Make();
        const std::string findings = Look(patch, false);
        std::string why;
        const bool isDone = Apply(patch, why);
        EXPECT_EQ(findings.empty(), isDone) << "seed " << seed << ": " << why << "\n"
                                            << Show(patch) << findings;
        if (isDone) {
            finished++;
            EXPECT_TRUE(IsGood(patch, true)) << "seed " << seed << "\n"
                                             << Show(patch) << Look(patch, true);
        }
    }
    EXPECT_GT(finished, 25);
}

TEST_F(Verifier, StopsWhenAsked) {
    HandMadePatch patch;
    for (int i = 0; i < 1000; i++) {
        patch.Add(COMMAND_DELETE_FILE, "file" + std::to_string(i));
    }
    m_folder.MakeFolder("game");
    const PatchControl control = patch.GetControl();
    VelPatchVerifier verifier(control, m_folder.Path("game"));
    verifier.SetProgress([](double) { return false; });
    EXPECT_FALSE(verifier.CheckBefore());
}

} // namespace
