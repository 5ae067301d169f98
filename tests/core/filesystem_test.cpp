#include "core/CXExclusivePaths.h"
#include "core/CXFileSystem.h"
#include "tests/support/FaultFileDriver.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>
#include <string>

namespace fs = CXFileSystem;

TEST(FileDriver, RefusesFoldersAndNulBytes) {
    TempFolder temp;
    CXFileDriver& driver = CXFileDriver::Platform();
    CXFileHandle file = kCXNoFile;
    EXPECT_EQ(CXResultFromNativeError(driver.Open(temp.Path(), CXFileOpen(), file)),
              kCXResultAccessDenied);
    temp.WriteFile("f", "x");
    const CXString path(Text(temp.Path("f")) + std::string("\0y", 2));
    CXFileAttributes attributes;
    std::vector<CXFileEntry> entries;
    for (const CXNativeError error :
         {driver.Open(path, CXFileOpen(), file), driver.GetAttributes(path, false, attributes),
          driver.RemoveFile(path), driver.RemoveDirectory(path), driver.MakeDirectory(path),
          driver.Rename(path, temp.Path("f")), driver.List(path, entries)}) {
        EXPECT_NE(error, 0U);
    }
    EXPECT_TRUE(temp.Has("f"));
}

TEST(FileDriver, AnExclusiveLockKeepsTheContentsOfAnotherOpener) {
    TempFolder temp;
    temp.WriteFile("f", "precious");
    CXFileDriver& driver = CXFileDriver::Platform();
    CXFileOpen how;
    how.access = CXFileOpen::Access::ReadWrite;
    how.creation = CXFileOpen::Creation::OpenAlways;
    how.share = CXFileOpen::Share::Nothing;
    how.lockExclusively = true;
    CXFileHandle first = kCXNoFile;
    CXFileHandle second = kCXNoFile;
    ASSERT_EQ(driver.Open(temp.Path("f"), how, first), 0U);
    how.creation = CXFileOpen::Creation::CreateAlways;
    const CXNativeError error = driver.Open(temp.Path("f"), how, second);
    EXPECT_EQ(CXResultFromOpenError(error),
              fs::HasWindowsPaths() ? kCXResultAccessDenied : kCXResultInUse);
    EXPECT_EQ(driver.Close(first), 0U);
    EXPECT_EQ(temp.ReadFile("f"), "precious");
    ASSERT_EQ(driver.Open(temp.Path("f"), how, second), 0U);
    EXPECT_EQ(driver.Close(second), 0U);
    EXPECT_EQ(temp.ReadFile("f"), "");
}

TEST(FileSystem, QueriesSeeLinksAndNames) {
    TempFolder temp;
    temp.WriteFile("d/b.txt", "12345");
    temp.WriteFile("d/\xC3\xA4 name", "1");
    temp.MakeFolder("d/sub");
    temp.WriteFile("d/sub/c", "123");
    EXPECT_TRUE(fs::Exists(temp.Path("d/b.txt")));
    EXPECT_FALSE(fs::Exists(temp.Path("d/none")));
    EXPECT_FALSE(fs::Exists(temp.Path("d/b.txt/below")));
    EXPECT_TRUE(fs::IsDirectory(temp.Path("d")));
    EXPECT_FALSE(fs::IsDirectory(temp.Path("d/b.txt")));
    EXPECT_EQ(fs::GetDirectorySize(temp.Path("d")), 9U);

    std::vector<CXFileEntry> entries;
    ASSERT_EQ(fs::Enumerate(temp.Path("d"), entries), kCXResultOK);
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(Row(entries[0].name, entries[1].name, entries[2].name), "b.txt|sub|\xC3\xA4 name");
    EXPECT_TRUE(!entries[0].isDirectory && entries[1].isDirectory);
    EXPECT_EQ(fs::Enumerate(temp.Path("none"), entries), kCXResultNotFound);

    CXFileAttributes attributes;
    ASSERT_EQ(fs::GetAttributes(temp.Path("d/b.txt"), true, attributes), kCXResultOK);
    EXPECT_EQ(attributes.size, 5U);
    EXPECT_GT(attributes.modified, 1500000000000);

    if (!temp.MakeLink("dangling", "nowhere") || !temp.MakeLink("d/up", "../d")) {
        GTEST_SKIP() << "no symbolic links here";
    }
    EXPECT_TRUE(fs::Exists(temp.Path("dangling")));
    EXPECT_TRUE(fs::IsLink(temp.Path("dangling")));
    EXPECT_FALSE(fs::IsDirectory(temp.Path("dangling")));
    EXPECT_TRUE(fs::IsDirectory(temp.Path("d/up")));
    EXPECT_EQ(fs::GetDirectorySize(temp.Path("d")), 9U);
}

TEST(FileSystem, OddFailuresOfExistsAreLogged) {
    FaultFileDriver faulty;
    faulty.Fail(FileFault::Denied, 1, 1);
    faulty.Fail(FileFault::NotFound, 2, 2);
    ScopedFileDriver use(faulty);
    {
        LogCapture log;
        EXPECT_FALSE(fs::Exists("/some/path"));
        EXPECT_TRUE(log.Has("CXFileSystem::Exists> error " +
                            std::to_string(CXGetNativeErrors().accessDenied) + " for /some/path"));
    }
    LogCapture log;
    EXPECT_FALSE(fs::Exists("/some/path"));
    EXPECT_FALSE(log.Has("Exists>"));
}

TEST(FileSystem, RenameNeverReplaces) {
    TempFolder temp;
    temp.WriteFile("a", "A");
    temp.WriteFile("b", "B");
    temp.WriteFile("d/x", "X");
    temp.MakeFolder("e");
    EXPECT_EQ(fs::Rename(temp.Path("b"), temp.Path("a")), kCXResultAlreadyExists);
    EXPECT_NE(fs::Rename(temp.Path("e"), temp.Path("d")), kCXResultOK);
    EXPECT_EQ(temp.ReadFile("b"), "B");
    EXPECT_EQ(fs::Rename(temp.Path("c"), temp.Path("none")), kCXResultNotFound);
    EXPECT_EQ(fs::Rename(temp.Path("c"), temp.Path("a")), kCXResultOK);
    EXPECT_EQ(fs::Rename(temp.Path("f"), temp.Path("d")), kCXResultOK);
    EXPECT_EQ(temp.ReadFile("c"), "A");
    EXPECT_EQ(temp.ReadFile("f/x"), "X");
    EXPECT_FALSE(temp.Has("a"));
}

TEST(FileSystem, CreateAndDelete) {
    TempFolder temp;
    EXPECT_EQ(fs::CreateDirectory(temp.Path("d")), kCXResultOK);
    EXPECT_EQ(fs::CreateDirectory(temp.Path("d")), kCXResultOK);
    EXPECT_EQ(fs::CreateDirectory(temp.Path("x/y")), kCXResultNotFound);
    EXPECT_EQ(fs::CreateDirectories(temp.Path("x/y/z/")), kCXResultOK);
    EXPECT_EQ(fs::CreateDirectories(temp.Path("x/y/z")), kCXResultOK);
    temp.WriteFile("f", "x");
    EXPECT_EQ(fs::CreateDirectory(temp.Path("f")), kCXResultAlreadyExists);
    EXPECT_NE(fs::CreateDirectories(temp.Path("f/g")), kCXResultOK);
    if (!fs::HasWindowsPaths()) {
        EXPECT_EQ(fs::CreateDirectories(temp.Path("odd\\")), kCXResultOK);
        EXPECT_TRUE(temp.Has("odd\\") && !temp.Has("odd")) << "the backslash is of the name";
    }

    EXPECT_EQ(fs::DeleteDirectory(temp.Path("x")), kCXResultFailed);
    EXPECT_EQ(fs::DeleteDirectory(temp.Path("x/y/z")), kCXResultOK);
    EXPECT_EQ(fs::DeleteFile(temp.Path("d")), kCXResultAccessDenied);
    EXPECT_EQ(fs::DeleteFile(temp.Path("f")), kCXResultOK);
    EXPECT_EQ(fs::DeleteFile(temp.Path("f")), kCXResultNotFound);
    EXPECT_TRUE(temp.Has("d"));
}

TEST(FileSystem, DeletionsTellWhatIsInUse) {
    TempFolder temp;
    temp.WriteFile("f", "x");
    temp.MakeFolder("d");
    ASSERT_TRUE(CXExclusivePaths::Add(temp.Path("f")));
    EXPECT_FALSE(CXExclusivePaths::Add(temp.Path("f")));
    EXPECT_EQ(fs::DeleteFile(temp.Path("d/../f")), kCXResultInUse);
    EXPECT_TRUE(temp.Has("f"));
    CXExclusivePaths::Remove(temp.Path("f"));
    EXPECT_FALSE(CXExclusivePaths::Contains(temp.Path("f")));
    {
        FaultFileDriver faulty;
        faulty.Fail(FileFault::Busy, 1, 2);
        ScopedFileDriver use(faulty);
        EXPECT_EQ(fs::DeleteFile(temp.Path("f")), kCXResultInUse);
        EXPECT_EQ(fs::DeleteDirectory(temp.Path("d")), kCXResultInUse);
    }
    EXPECT_EQ(fs::DeleteFile(temp.Path("f")), kCXResultOK);
    EXPECT_EQ(fs::DeleteDirectory(temp.Path("d")), kCXResultOK);
}

TEST(FileSystem, DeleteRecursive) {
    TempFolder temp;
    {
        // Nothing of the real root may be touched, should one of these get through.
        FaultFileDriver faulty;
        faulty.Fail(FileFault::Full, 1, UINT64_MAX);
        ScopedFileDriver use(faulty);
        for (const char* path : {"", "/", "C:/", "//server/share", "/..", "/a/.."}) {
            EXPECT_EQ(fs::DeleteRecursive(path), kCXResultAccessDenied) << path;
        }
        // Where no path names a server these are the root, too.
        for (const char* path : {"//", "///", "//.", "//a/..", "///a/b/../.."}) {
            const CXResult result = fs::DeleteRecursive(path);
            EXPECT_TRUE(fs::HasWindowsPaths() || result == kCXResultAccessDenied) << path;
        }
    }
    temp.WriteFile("keep/k", "k");
    temp.WriteFile("t/a/b/c", "1");
    temp.WriteFile("t/a/d", "2");
    temp.MakeFolder("t/empty");
    const bool links = temp.MakeLink("t/out", "../keep") && temp.MakeLink("lone", "keep");
    {
        // One file resists: all else goes, and its failure is the result.
        FaultFileDriver faulty;
        faulty.Fail(FileFault::Denied, 1, 1, FileOp::RemoveFile, "/a/d");
        ScopedFileDriver use(faulty);
        EXPECT_EQ(fs::DeleteRecursive(temp.Path("t")), kCXResultAccessDenied);
        const std::vector<FileAccess> outside =
            faulty.FindOutside({temp.Path("t")}, FileOp::Changing);
        EXPECT_TRUE(outside.empty()) << FaultFileDriver::Describe(outside);
    }
    EXPECT_EQ(temp.Tree("t").size(), 2U);
    EXPECT_TRUE(temp.Has("t/a/d"));
    EXPECT_EQ(fs::DeleteRecursive(temp.Path("t")), kCXResultOK);
    EXPECT_FALSE(temp.Has("t"));
    EXPECT_EQ(fs::DeleteRecursive(temp.Path("t")), kCXResultNotFound);
    if (links) {
        EXPECT_EQ(fs::DeleteRecursive(fs::Join(temp.Path("lone"), "/")), kCXResultOK);
        EXPECT_FALSE(temp.Has("lone"));
    }
    EXPECT_EQ(temp.ReadFile("keep/k"), "k");
}

TEST(FileSystem, DeepTreesNeedNoDeepStack) {
    TempFolder temp;
    // Nearly as deep as a path text can say; elsewhere less, for what the test itself can open.
    const size_t size = fs::HasWindowsPaths() ? 150 : 1900;
    std::string path = "deep";
    while (path.size() < size) {
        path += "/d";
    }
    temp.MakeFolder(path);
    temp.WriteFile(path + "/f", "x");
    EXPECT_EQ(fs::GetDirectorySize(temp.Path("deep")), 1U);
    EXPECT_EQ(fs::CopyDirectory(temp.Path("deep"), temp.Path("copy")), kCXResultOK);
    EXPECT_EQ(temp.Tree("copy"), temp.Tree("deep"));
    EXPECT_EQ(fs::DeleteRecursive(temp.Path("deep")), kCXResultOK);
    EXPECT_EQ(fs::DeleteRecursive(temp.Path("copy")), kCXResultOK);
    EXPECT_FALSE(temp.Has("deep"));
}

TEST(FileSystem, LongPaths) {
    TempFolder temp;
    const std::string name(120, 'n');
    const std::string path = name + "/" + name + "/" + name;
    ASSERT_EQ(fs::CreateDirectories(temp.Path(path)), kCXResultOK);
    const CXString file = fs::Join(temp.Path(path), "./x/../f");
    fs::CreateDirectory(temp.Path(path + "/x"));
    temp.WriteFile("short", "x");
    EXPECT_EQ(fs::CopyFile(temp.Path("short"), file, false), kCXResultOK);
    EXPECT_EQ(fs::Rename(temp.Path(path + "/g"), file), kCXResultOK);
    std::vector<CXFileEntry> entries;
    EXPECT_EQ(fs::Enumerate(temp.Path(path), entries), kCXResultOK);
    EXPECT_EQ(entries.size(), 2U);
    EXPECT_EQ(fs::DeleteRecursive(temp.Path(name)), kCXResultOK);
}

TEST(FileSystem, CopyFile) {
    TempFolder temp;
    const std::string contents(200000, 'c');
    temp.WriteFile("a", contents);
    temp.SetMode("a", 0750);
    temp.WriteFile("b", "old");
    EXPECT_EQ(fs::CopyFile(temp.Path("a"), temp.Path("b"), false), kCXResultAlreadyExists);
    EXPECT_EQ(fs::CopyFile(temp.Path("a"), temp.Path("./a"), true), kCXResultAccessDenied);
    if (temp.MakeLink("same", "a")) {
        EXPECT_EQ(fs::CopyFile(temp.Path("a"), temp.Path("same"), true), kCXResultAccessDenied);
        EXPECT_EQ(temp.ReadFile("a"), contents);
        temp.Remove("same");
    }
    EXPECT_EQ(fs::CopyFile(temp.Path("none"), temp.Path("c"), true), kCXResultNotFound);
    EXPECT_FALSE(temp.Has("c"));
    EXPECT_EQ(fs::CopyFile(temp.Path("a"), temp.Path("b"), true), kCXResultOK);
    EXPECT_EQ(temp.ReadFile("b"), contents);
    EXPECT_EQ(temp.GetMode("b"), temp.GetMode("a"));

    const struct {
        FileFault fault;
        uint32_t op;
        CXResult result;
    } faults[] = {
        {FileFault::Full, FileOp::Write, kCXResultNoResources},
        {FileFault::Device, FileOp::Read, kCXResultNoResources},
        {FileFault::Denied, FileOp::Close, kCXResultAccessDenied},
        {FileFault::ShortWrite, FileOp::Write, kCXResultOK},
    };
    for (const auto& row : faults) {
        FaultFileDriver faulty;
        faulty.Fail(row.fault, 2, 2, row.op);
        if (row.op == FileOp::Close) {
            faulty.Fail(row.fault, 1, 1, row.op);
        }
        ScopedFileDriver use(faulty);
        EXPECT_EQ(fs::CopyFile(temp.Path("a"), temp.Path("c"), false), row.result);
        EXPECT_EQ(temp.ReadFile("c"), row.result == kCXResultOK ? contents : "");
        temp.Remove("c");
    }
}

TEST(FileSystem, CopyDirectory) {
    TempFolder temp;
    temp.WriteFile("a/x/1", "one");
    temp.WriteFile("a/2", "two");
    temp.MakeFolder("a/empty");
    temp.SetMode("a/2", 0700);
    temp.SetMode("a/empty", 0500);
    EXPECT_EQ(fs::CopyDirectory(temp.Path("a"), temp.Path("new/b")), kCXResultOK);
    EXPECT_EQ(temp.Tree("new/b"), temp.Tree("a"));
    EXPECT_EQ(fs::CopyDirectory(temp.Path("a"), temp.Path("a/x/inside")), kCXResultInvalidArgument);
    EXPECT_EQ(fs::CopyDirectory(temp.Path("none"), temp.Path("c")), kCXResultNotFound);
    EXPECT_FALSE(temp.Has("c"));
}

// A stop after any call must leave one good copy under the name or the backup's, and the repair
// must bring it back.
TEST(FileSystem, ReplaceWithBackupSurvivesAStopAtEveryCall) {
    for (uint64_t stop = 1; stop < 10; ++stop) {
        TempFolder temp;
        temp.WriteFile("t", "old");
        temp.WriteFile("t.abku", "stale");
        temp.WriteFile("r", "new");
        CXResult result = kCXResultOK;
        bool cut = false;
        {
            FaultFileDriver faulty;
            faulty.CutPower(stop);
            ScopedFileDriver use(faulty);
            result = fs::ReplaceWithBackup(temp.Path("t"), temp.Path("r"));
            cut = faulty.IsPowerCut();
        }
        EXPECT_EQ(fs::RecoverBackup(temp.Path("t")), kCXResultOK) << stop;
        EXPECT_EQ(temp.ReadFile("t"), stop <= 3 ? "old" : "new") << stop;
        EXPECT_FALSE(temp.Has("t.abku")) << stop;
        if (!cut) {
            EXPECT_EQ(result, kCXResultOK);
            EXPECT_FALSE(temp.Has("r"));
            EXPECT_EQ(stop, 5U);
            break;
        }
    }
}

TEST(FileSystem, ReplaceWithBackupFailures) {
    for (const uint64_t rename : {1U, 2U}) {
        TempFolder temp;
        temp.WriteFile("t", "old");
        temp.WriteFile("r", "new");
        FaultFileDriver faulty;
        faulty.Fail(FileFault::Denied, rename, rename, FileOp::Rename);
        ScopedFileDriver use(faulty);
        EXPECT_EQ(fs::ReplaceWithBackup(temp.Path("t"), temp.Path("r")), kCXResultAccessDenied);
        EXPECT_EQ(temp.ReadFile("t"), "old");
        EXPECT_EQ(temp.Tree().size(), 1U);
    }
    TempFolder temp;
    temp.WriteFile("r", "new");
    EXPECT_EQ(fs::ReplaceWithBackup(temp.Path("t"), temp.Path("r")), kCXResultOK);
    EXPECT_EQ(temp.ReadFile("t"), "new");
    EXPECT_EQ(fs::ReplaceWithBackup(temp.Path("t"), temp.Path("none")), kCXResultNotFound);
    EXPECT_EQ(temp.ReadFile("t"), "new");
    EXPECT_EQ(temp.Tree().size(), 1U);
    EXPECT_EQ(fs::RecoverBackup(temp.Path("neither")), kCXResultOK);

    // The only copy is the backup of an interrupted call that nobody has repaired.
    temp.Remove("t");
    temp.WriteFile("t.abku", "old");
    EXPECT_EQ(fs::ReplaceWithBackup(temp.Path("t"), temp.Path("none")), kCXResultNotFound);
    EXPECT_EQ(temp.ReadFile("t"), "old");
    temp.Remove("t");
    temp.WriteFile("t.abku", "old");
    temp.WriteFile("r", "new");
    EXPECT_EQ(fs::ReplaceWithBackup(temp.Path("t"), temp.Path("r")), kCXResultOK);
    EXPECT_EQ(temp.ReadFile("t"), "new");
    EXPECT_EQ(temp.Tree().size(), 1U);
}

TEST(FileSystem, UniqueNames) {
    TempFolder temp;
    const CXString parent = temp.Path();
    const std::pair<const char*, const char*> names[] = {
        {"a.txt", "a.txt"}, {"a.txt", "a-1.txt"}, {"a.txt", "a-2.txt"}, {"", "Untitled"},
        {"noext", "noext"}, {"../a:b", "_._a_b"}, {"noext", "noext-1"}};
    for (const auto& [wanted, made] : names) {
        EXPECT_EQ(fs::CreateUniqueFileName(&parent, wanted), temp.Path(made));
    }
    EXPECT_TRUE(temp.Has("noext-1"));
    for (int i = 0; i < 500; ++i) {
        temp.WriteFile(i == 0 ? "n.x" : "n-" + std::to_string(i) + ".x", "");
    }
    const CXString drawn = fs::CreateUniqueFileName(&parent, "n.x");
    EXPECT_EQ(fs::GetFileName(drawn).Left(5), "temp-");
    EXPECT_TRUE(fs::Exists(drawn));

    LogCapture log;
    EXPECT_EQ(fs::CreateUniqueFileName(nullptr, "a"), "");
    EXPECT_TRUE(log.Has("CXFileSystem::CreateUniqueFileName> null parent folder path"));
    const CXString missing = temp.Path("missing");
    EXPECT_EQ(fs::CreateUniqueFileName(&missing, "a"), "");
    EXPECT_TRUE(log.Has("unable to create a unique file path at '" + Text(missing) + "'"));
}

TEST(FileSystem, Permissions) {
    TempFolder temp;
    temp.WriteFile("f", "x");
    temp.SetMode("f", 0640);
    CXString text;
    ASSERT_TRUE(fs::GetFilePermissions(temp.Path("f"), text));
    EXPECT_FALSE(fs::GetFilePermissions(temp.Path("none"), text));
    EXPECT_EQ(fs::SetFilePermissions(temp.Path("none"), ""), kCXResultOK);
    EXPECT_EQ(fs::SetFilePermissions(temp.Path("none"), "other:1"), kCXResultOK);
    ASSERT_TRUE(fs::GetFilePermissions(temp.Path("f"), text));
    if (fs::HasWindowsPaths()) {
        EXPECT_EQ(text.Left(9), "w32acl:O:");
        EXPECT_EQ(fs::SetFilePermissions(temp.Path("f"), "posix:9"), kCXResultOK);
        EXPECT_EQ(fs::SetFilePermissions(temp.Path("none"), "w32acl:D:(A;;FA;;;WD)"),
                  kCXResultNotFound);
        EXPECT_EQ(fs::SetFilePermissions(temp.Path("f"), "win32:D:(A;;FA;;;WD)"), kCXResultOK);
        EXPECT_NE(fs::SetFilePermissions(temp.Path("f"), "w32acl:nonsense"), kCXResultOK);
        return;
    }
    EXPECT_EQ(text, "posix:0640");
    EXPECT_EQ(fs::SetFilePermissions(temp.Path("f"), "posix:0755"), kCXResultOK);
    EXPECT_EQ(temp.GetMode("f"), 0755U);
    for (const char* bad : {"posix:", "posix:0789", "posix:rwx", "posix:77777"}) {
        EXPECT_EQ(fs::SetFilePermissions(temp.Path("f"), bad), kCXResultUnusable) << bad;
    }
    for (const char* ignored : {"w32acl:D:(A;;FA;;;WD)", "win32:x", "Posix:0000", "anything"}) {
        EXPECT_EQ(fs::SetFilePermissions(temp.Path("f"), ignored), kCXResultOK) << ignored;
    }
    EXPECT_EQ(temp.GetMode("f"), 0755U);
    EXPECT_EQ(fs::SetFilePermissions(temp.Path("none"), "posix:0755"), kCXResultNotFound);
    temp.WriteFile("g", "y");
    EXPECT_EQ(fs::CopyMode(temp.Path("f"), temp.Path("g")), kCXResultOK);
    EXPECT_EQ(temp.GetMode("g"), 0755U);
}

TEST(FileSystem, LeadsOutside) {
    TempFolder temp;
    temp.MakeFolder("out");
    temp.MakeFolder("in/a/b");
    const CXString root = temp.Path("in");
    const auto leads = [&](const char* path, bool last = true) {
        return fs::LeadsOutside(root, temp.Path(path), last);
    };
    EXPECT_FALSE(leads("in") || leads("in/a/b/new/x"));
    EXPECT_TRUE(leads("in/../out") && leads("inside"));
    if (!temp.MakeLink("in/esc", "../out") || !temp.MakeLink("in/a/self", "b") ||
        !temp.MakeLink("in/dead", "nothing") || !temp.MakeLink("in/a/b/twice", "../../esc")) {
        GTEST_SKIP() << "no symbolic links here";
    }
    for (const char* path : {"in/esc/x", "in/a/b/twice/x", "in/a/self/twice/x"}) {
        EXPECT_TRUE(leads(path, false)) << path;
    }
    EXPECT_FALSE(leads("in/esc", false) || leads("in/a/self/x"));
    EXPECT_TRUE(leads("in/esc") && leads("in/dead"));
    // ".." leads up from where a link leads to, but on Windows from the link.
    ASSERT_TRUE(temp.MakeLink("in/a/top", ".."));
    EXPECT_EQ(leads("in/esc/../x"), !fs::HasWindowsPaths());
    EXPECT_EQ(leads("in/a/top/../x"), !fs::HasWindowsPaths());
    EXPECT_FALSE(leads("in/a/self/../x"));
    // A target that is itself reached through a link is no escape.
    ASSERT_TRUE(temp.MakeLink("alias", "in"));
    EXPECT_FALSE(fs::LeadsOutside(temp.Path("alias"), temp.Path("alias/a/self/x"), true));
}

TEST(FileSystem, Volumes) {
    std::vector<CXVolume> volumes = {{"/", 1}, {"/mnt/disk", 2}, {"/mnt", 3}};
    if (fs::HasWindowsPaths()) {
        volumes = {{"C:/", 1}, {"C:/mnt/disk/", 2}, {"D:/", 3}};
        for (const char* path : {"c:/games", "C:/mnt/disk/x"}) {
            EXPECT_TRUE(fs::IsOnVolume(path, "C:/", volumes)) << path;
        }
        EXPECT_TRUE(fs::IsOnVolume("C:/mnt/disk/x", "C:/mnt/disk/", volumes));
        EXPECT_FALSE(fs::IsOnVolume("C:/mnt/disks", "C:/mnt/disk/", volumes));
        EXPECT_FALSE(fs::IsOnVolume("C:/x", "D:/", volumes));
    } else {
        const std::pair<const char*, const char*> homes[] = {
            {"/games", "/"}, {"/mnt/disk/x", "/mnt/disk"}, {"/mnt/disks/x", "/mnt"}};
        for (const auto& [path, home] : homes) {
            for (const CXVolume& volume : volumes) {
                EXPECT_EQ(fs::IsOnVolume(path, volume.mountPath, volumes), volume.mountPath == home)
                    << path;
            }
        }
        FaultFileDriver driver;
        driver.SetVolumes(volumes);
        ScopedFileDriver use(driver);
        EXPECT_EQ(fs::GetVolumeRoot("/mnt/disk/../disk/x"), "/mnt/disk");
        EXPECT_EQ(fs::GetVolumeRoot("/opt"), "/");
    }
    // The real list names a volume for this folder, with room on it.
    TempFolder temp;
    const CXString root = fs::GetVolumeRoot(temp.Path());
    ASSERT_FALSE(root.IsEmpty());
    bool found = false;
    for (const CXVolume& volume : fs::ListVolumes()) {
        found = found || (volume.mountPath == root && volume.freeBytes > 0);
    }
    EXPECT_TRUE(found) << Text(root);
}

TEST(FileSystem, FoldersOfTheProcess) {
    EXPECT_TRUE(fs::IsAbsolute(fs::GetModulePath()));
    EXPECT_EQ(fs::GetApplicationFolder(), fs::GetParent(fs::GetModulePath()));
    fs::SetApplicationFolder("/elsewhere");
    EXPECT_EQ(fs::GetApplicationFolder(), "/elsewhere");
    fs::SetApplicationFolder(CXString());
    EXPECT_TRUE(fs::IsDirectory(fs::GetTempPath()));
    EXPECT_NE(Text(fs::GetTempPath()).back(), '/');

    TempFolder temp;
    const CXString earlier = fs::GetCurrentDirectory();
    ASSERT_EQ(fs::SetCurrentDirectory(temp.Path()), kCXResultOK);
    EXPECT_EQ(fs::MakeAbsolute("x/../y"), fs::Join(fs::GetCurrentDirectory(), "y"));
    EXPECT_EQ(fs::MakeAbsolute("."), fs::GetCurrentDirectory());
    EXPECT_EQ(fs::MakeAbsolute(""), "");
    EXPECT_EQ(fs::MakeAbsolute("/a/./b"), "/a/b");
    EXPECT_EQ(fs::SetCurrentDirectory(temp.Path("none")), kCXResultNotFound);
    EXPECT_EQ(fs::SetCurrentDirectory(earlier), kCXResultOK);
}

TEST(FileSystem, Links) {
    TempFolder temp;
    temp.WriteFile("game/p.exe", "x");
    ASSERT_EQ(fs::CreateLink(temp.Path("short"), temp.Path("game/p.exe"), temp.Path("game"), "P"),
              kCXResultOK);
    const std::string name = "short" + std::string(fs::GetLinkExtension());
    EXPECT_TRUE(temp.Has(name));
    EXPECT_FALSE(temp.ReadFile(name).empty());
    EXPECT_NE(fs::CreateLink(temp.Path("no/short"), temp.Path("game/p.exe"), "", "P"), kCXResultOK);
}

// What the fault tests of the other layers lean on.
TEST(FaultFileDriver, FindsCallsOutside) {
    TempFolder temp;
    temp.WriteFile("a", "12345678");
    temp.MakeFolder("1");
    FaultFileDriver faulty;
    ScopedFileDriver use(faulty);
    EXPECT_EQ(fs::CopyFile(temp.Path("a"), temp.Path("1/c"), false), kCXResultOK);
    const std::vector<FileAccess> outside = faulty.FindOutside({temp.Path("1")});
    ASSERT_EQ(outside.size(), 3U) << FaultFileDriver::Describe(outside);
    EXPECT_EQ(outside[0].op, static_cast<uint32_t>(FileOp::OpenRead));
    EXPECT_TRUE(faulty.FindOutside({temp.Path("1")}, FileOp::Changing).empty());
}
