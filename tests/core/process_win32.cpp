// What CXFileSystem asks of Windows and its shell.
#include "core/CXFileSystem.h"
#include "core/CXTime.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

namespace fs = CXFileSystem;

TEST(ProcessWin32, KnownFolders) {
    for (const fs::KnownFolder folder : {fs::KnownFolder::LocalAppData, fs::KnownFolder::StartMenu,
                                         fs::KnownFolder::Desktop, fs::KnownFolder::ProgramFiles}) {
        const CXString path = fs::GetKnownFolder(folder);
        EXPECT_TRUE(fs::IsAbsolute(path)) << path.GetData();
        EXPECT_EQ(path.FindChar('\\'), -1) << path.GetData();
        EXPECT_NE(path.Right(1), "/") << path.GetData();
    }
    EXPECT_EQ(fs::MakeAbsolute("C:"), "C:/");
}

TEST(ProcessWin32, LaunchPassesArguments) {
    TempFolder temp;
    ASSERT_EQ(fs::Launch("cmd.exe", {"/c", "mkdir", "made by launch"}, temp.Path()), kCXResultOK);
    for (int i = 0; i < 1000 && !temp.Has("made by launch"); ++i) {
        CXSleep(10);
    }
    EXPECT_TRUE(temp.Has("made by launch"));
    EXPECT_EQ(fs::Launch(temp.Path("none.exe"), {}, CXString()), kCXResultNotFound);
}

TEST(ProcessWin32, AnOpenFileIsInUse) {
    TempFolder temp;
    temp.WriteFile("f", "x");
    CXFileOpen how;
    how.share = CXFileOpen::Share::Nothing;
    CXFileHandle file = kCXNoFile;
    ASSERT_EQ(CXFileDriver::Platform().Open(temp.Path("f"), how, file), 0U);
    EXPECT_EQ(fs::DeleteFile(temp.Path("f")), kCXResultInUse);
    CXFileHandle second = kCXNoFile;
    EXPECT_EQ(CXResultFromNativeError(
                  CXFileDriver::Platform().Open(temp.Path("f"), CXFileOpen(), second)),
              kCXResultAccessDenied);
    EXPECT_EQ(CXFileDriver::Platform().Close(file), 0U);
    EXPECT_EQ(fs::DeleteFile(temp.Path("f")), kCXResultOK);
}
