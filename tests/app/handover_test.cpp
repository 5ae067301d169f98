#include "app/VelPatchHandOver.h"

#include "app/config/VelPatchCommandLine.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

using Action = VelPatchHandOverAction;
using State = VelPatchHandOverReader::State;

TEST(HandOver, Judgement) {
    const struct {
        const char* line;
        VelPatchHandOverState state;
        Action action;
    } cases[] = {
        {"", {}, Action::Raise},
        {" \t", {}, Action::Raise},
        {"--target \"C:\\Some Folder\" --start", {}, Action::ParseAndRaise},
        {"nothing that is known", {}, Action::ParseAndRaise},
        {"--checkforpatch", {}, Action::Refuse},
        {"--target X \"--checkforpatch\"", {}, Action::Refuse},
        {"--target \"--checkforpatch X\" checkforpatch -checkforpatch --CheckForPatch",
         {},
         Action::ParseAndRaise},
        {"--target X --escalationstage 1 --start   ", {.isLeaving = true}, Action::Refuse},
        {"", {.isLeaving = true}, Action::Refuse},
        {"--target X", {.quitRequested = true}, Action::Refuse},
        {"", {.quitRequested = true}, Action::Refuse},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(JudgeHandOver(one.line, one.state), one.action) << one.line;
    }
}

TEST(HandOver, ReceiverReadsAndRaises) {
    const TempFolder folder;
    const CXString earlierFolder = CXFileSystem::GetCurrentDirectory();
    CXFileSystem::SetApplicationFolder(folder.Path());
    VelPatchProcessSettings& process = GetProcessSettings();
    bool isLeaving = false;
    std::string raised; // the target at each time
    VelPatchHandOverReceiver receiver(
        {[&] { return isLeaving; }, [&] { raised += Text(process.target) + ";"; }});
    const auto receive = [&receiver](const std::string& bytes, uint64_t tag = kHandOverTag) {
        return receiver.Receive(tag, bytes.data(), bytes.size());
    };
    using namespace std::string_literals;
    EXPECT_EQ(receive("--target C:/a\0--target C:/b"s), kHandOverAccepted);
    EXPECT_EQ(receive("--target C:/b"), kHandOverAccepted) << "no terminator";
    EXPECT_EQ(receiver.Receive(kHandOverTag, nullptr, 0), kHandOverAccepted);
    EXPECT_EQ(raised, "C:/a;C:/b;C:/b;");
    EXPECT_EQ(receive("--target C:/c", 0x73677241), kHandOverRefused) << "foreign tag";
    EXPECT_EQ(receive("--target C:/c", kHandOverTag | uint64_t{1} << 32), kHandOverRefused);
    EXPECT_EQ(receive("--target C:/c --checkforpatch"), kHandOverRefused);
    isLeaving = true;
    EXPECT_EQ(receive("--target C:/c"), kHandOverRefused);
    isLeaving = false;
    process.quitRequested = true;
    EXPECT_EQ(receive("--target C:/c"), kHandOverRefused);
    process.quitRequested = false;
    EXPECT_EQ(raised, "C:/a;C:/b;C:/b;");
    EXPECT_EQ(process.target, "C:/b");

    process.target.Clear();
    CXFileSystem::SetApplicationFolder(CXString());
    CXFileSystem::SetCurrentDirectory(earlierFolder);
}

TEST(HandOver, LinesOfArguments) {
    const struct {
        std::vector<std::string> words;
        const char* line;
    } cases[] = {
        {{}, ""},
        {{"--target", "/some folder", "--start"}, "--target \"/some folder\" --start"},
        {{"", "a\tb", "c"}, "\"\" \"a\tb\" c"},
        {{"new\nline"}, "new\nline"},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(MakeHandOverLine(one.words), one.line);
        std::vector<std::string> words;
        for (const CXString& word : SplitCommandLine(one.line)) {
            words.push_back(Text(word));
        }
        EXPECT_EQ(words, one.words) << one.line;
    }
}

TEST(HandOver, Frames) {
    using namespace std::string_literals;
    const std::string tag = "sgrA\0\0\0\0"s;
    const std::string good = tag + "\0\0\0\x08--start\0"s;
    EXPECT_EQ(MakeHandOverFrame("--start"), good);
    const struct {
        std::string bytes;
        State state;
    } cases[] = {
        {good, State::Complete},
        {tag + "\0\0\0\x01\0"s, State::Complete},
        {good.substr(0, good.size() - 1), State::Wanting},
        {good + "x", State::Broken},
        {tag + "\0\0\0\0"s, State::Broken},              // not even a terminator
        {tag + "\0\0\0\x02"s + "ab", State::Broken},     // no terminator
        {tag + "\0\0\0\x03"s + "a\0\0"s, State::Broken}, // two of them
        {tag + "\0\x40\0\0"s, State::Wanting},           // the longest
        {tag + "\0\x40\0\x01"s, State::Broken},
        {tag + "\xFF\xFF\xFF\xFF"s, State::Broken},
        {"Argsxxxx\0\0\0\x01\0"s, State::Broken},
        {"sgrA\0\0\0\x01\0\0\0\x01\0"s, State::Broken},
        {"", State::Wanting},
    };
    for (const auto& one : cases) {
        VelPatchHandOverReader whole;
        EXPECT_EQ(whole.Append(one.bytes.data(), one.bytes.size()), one.state)
            << testing::PrintToString(one.bytes);
        VelPatchHandOverReader piecewise;
        State state = State::Wanting;
        for (const char byte : one.bytes) {
            state = piecewise.Append(&byte, 1);
        }
        EXPECT_EQ(state, one.state) << testing::PrintToString(one.bytes);
    }
    VelPatchHandOverReader reader;
    reader.Append(good.data(), good.size());
    EXPECT_EQ(Text(reader.GetLine()), "--start");
}

TEST(HandOver, FindsListeners) {
    const char* table =
        "Num       RefCount Protocol Flags    Type St Inode Path\n"
        "ffff9a0b: 00000002 00000000 00010000 0001 01 21001 /run/velpatch-7-1\n"
        "ffff9a0c: 00000003 00000000 00000000 0001 03 21002\n"
        "ffff9a0d: 00000002 00000000 00010000 0001 01  2103 @velpatch-7-42\n"
        "ffff9a0e: 00000002 00000000 00010000 0001 01 21004 @velpatch-70-43\n"
        "ffff9a0f: 00000002 00000000 00010000 0001 01 21005 @velpatch-7-\n"
        "ffff9a10: 00000002 00000000 00010000 0001 01 21006 @velpatch-7-44@\n"
        "ffff9a11: 00000002 00000000 00010000 0001 01 21007 @velpatch-7--45\n"
        "ffff9a12: 00000002 00000000 00010000 0001 01 21008 @velpatch-7-99999999999999999999\n"
        "\n@velpatch-7-46\n"
        "ffff9a13: 00000002 00000000 00010000 0001 01 21009 @velpatch-7-47";
    EXPECT_EQ(ListListeners(table, "velpatch-7-"), (std::vector<int64_t>{42, 47}));
    EXPECT_TRUE(ListListeners("", "velpatch-7-").empty());

    using namespace std::string_view_literals;
    EXPECT_TRUE(IsSameImage("/opt/velpatch", "/opt/velpatch"));
    EXPECT_TRUE(IsSameImage("/opt/velpatch (deleted)", "/opt/velpatch"));
    EXPECT_TRUE(IsSameImage("/opt/velpatch", "/opt/velpatch/old"));
    EXPECT_FALSE(IsSameImage("/opt/velpatch", "/opt/Velpatch"));
    EXPECT_FALSE(IsSameImage("", "/opt/velpatch"));
    EXPECT_TRUE(IsSameImage(u"\\Device\\a.exe"sv, u"\\Device\\a.exe.old"sv));
    EXPECT_FALSE(IsSameImage(u"\\Device\\a.exe"sv, u""sv));
}
