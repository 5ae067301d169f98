#include "core/CXFileSystem.h"
#include "core/CXPlatformText.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>
#include <string>

namespace fs = CXFileSystem;

TEST(Paths, Parts) {
    const std::pair<const char*, const char*> table[] = {
        // parent|name|stem|extension
        {"a/b.tar.gz", "a|b.tar.gz|b.tar|gz"},
        {"b", "|b|b|"},
        {"/b", "/|b|b|"},
        {"C:/b.x", "C:/|b.x|b|x"},
        {"C:/", "|||"},
        {"/", "|||"},
        {"a//b", "a|b|b|"},
        {"//server/share", "|share|share|"},
        {"//server/share/x", "//server/share|x|x|"},
        {"a.d/.profile", "a.d|.profile|.profile|"},
        {"a/b.", "a|b.|b|"},
        {"a/b/", "a/b|||"},
    };
    for (const auto& [path, parts] : table) {
        EXPECT_EQ(Row(fs::GetParent(path), fs::GetFileName(path), fs::GetStem(path),
                      fs::GetExtension(path)),
                  parts)
            << path;
    }
}

TEST(Paths, Join) {
    EXPECT_EQ(fs::Join("", "b"), "b");
    for (const char* parent : {"a", "a/"}) {
        EXPECT_EQ(fs::Join(parent, "b"), "a/b");
        EXPECT_EQ(fs::Join(parent, "/b"), "a/b");
    }
    EXPECT_EQ(fs::Join("/", "b"), "/b");
    EXPECT_EQ(fs::Join("C:/", "b"), "C:/b");
}

TEST(Paths, RootsAndAbsolutes) {
    for (const char* path : {"/", "C:", "c:/", "C:\\", "//server/share", "//server/share/"}) {
        EXPECT_TRUE(fs::IsRoot(path)) << path;
    }
    for (const char* path : {"", "a", "/a", "C:/a", "C:a", "1:/", "//", "//server", "//server/",
                             "//server/share/x", "///"}) {
        EXPECT_FALSE(fs::IsRoot(path)) << path;
    }
    for (const char* path : {"/", "/a", "//s/h", "C:/", "z:\\x"}) {
        EXPECT_TRUE(fs::IsAbsolute(path)) << path;
    }
    for (const char* path : {"", "a/b", "./a", "C:", "C:a", "\\a", "1:/a", "cc:/a"}) {
        EXPECT_FALSE(fs::IsAbsolute(path)) << path;
    }
}

TEST(Paths, Normalise) {
    const std::pair<const char*, const char*> table[] = {
        {".", ""},
        {"a/./b//c/", "a/b/c"},
        {"a/b/../c", "a/c"},
        {"a/../..", ".."},
        {"../../a/..", "../.."},
        {"a/..", ""},
        {"/..", "/"},
        {"/../a/../..", "/"},
        {"/a/", "/a"},
        {"C:/..", "C:/"},
        {"C:\\x\\..\\y", "C:/y"},
        {"C:/x\\y", "C:/x/y"},
        {"\\\\server\\share\\x\\..\\..", "//server/share"},
        {"//server/share/a/", "//server/share/a"},
        {"//server/share/../../..", "//server/share"},
        {"a/../\\\\s\\h", "./\\\\s\\h"},
    };
    for (const auto& [path, normal] : table) {
        EXPECT_EQ(Text(fs::NormalisePath(path)), normal) << path;
        EXPECT_EQ(Text(fs::NormalisePath(normal)), normal) << path;
    }
    for (const char* normal :
         {"", "..", "C:/", "C:", "//server/share/", "/a/b\\..\\c", "a/...", "./C:/x"}) {
        EXPECT_EQ(Text(fs::NormalisePath(normal)), normal);
    }
}

TEST(Paths, ForeignAndTrailing) {
    EXPECT_EQ(fs::FromForeignPath("C:\\a\\b"), "C:/a/b");
    EXPECT_EQ(fs::FromForeignPath("\\\\s\\h\\a"), "//s/h/a");
    EXPECT_EQ(fs::FromForeignPath("a\\b"), fs::HasWindowsPaths() ? "a/b" : "a\\b");
    EXPECT_EQ(fs::StripTrailingSeparators("/a/\\/"), "/a");
    EXPECT_EQ(fs::StripTrailingSeparators("///"), "/");
    EXPECT_EQ(fs::StripTrailingSeparators(""), "");
}

TEST(Paths, ExtendedForm) {
    const auto sized = [](std::string front, size_t size) {
        return front + std::string(size - front.size(), 'x');
    };
    EXPECT_EQ(fs::GetExtendedPath(sized("C:/a/", 229)), sized("C:/a/", 229));
    EXPECT_EQ(fs::GetExtendedPath(sized("C:/a/", 230)), sized("\\\\?\\C:\\a\\", 234));
    EXPECT_EQ(fs::GetExtendedPath(sized("a/b/", 400)), sized("a/b/", 400));
    EXPECT_EQ(fs::GetExtendedPath(sized("//server/share/", 300)),
              sized("\\\\?\\UNC\\server\\share\\", 306));
}

TEST(Paths, FileURI) {
    EXPECT_EQ(fs::ToFileURI("a b/c"), "file:a b/c");
    EXPECT_EQ(fs::ToFileURI("C:/a"), "file:///C:/a");
    EXPECT_EQ(fs::ToFileURI("//server/a"), "file:////server/a");
    EXPECT_EQ(fs::ToFileURI("/opt/a"), "file:///opt/a");
}

TEST(Paths, Names) {
    for (const char* name : {"CON", "con.txt", "aux", "Prn.a.b", "nul", "com1", "COM9.x", "lpt5"}) {
        EXPECT_FALSE(fs::IsValidFileName(name)) << name;
        EXPECT_EQ(Text(fs::SanitiseFileName(name)), std::string("_") + name);
        EXPECT_EQ(fs::IsValidPath(std::string("C:/a/") + name + "/b"), !fs::HasWindowsPaths());
    }
    for (const char* name : {"console", "COM0", "com10", "co", "com", "LPT", "auxx", "_con",
                             "a.con", "\xC3\xA4.txt", "a b"}) {
        EXPECT_TRUE(fs::IsValidFileName(name)) << name;
        EXPECT_TRUE(fs::IsValidPath(std::string("C:/a/") + name)) << name;
    }
    for (const char* name :
         {"", ".", "..", "a/b", "a\\b", "a:b", "a*", "a?", "\"a", "<", "a|b", "a\x1F"}) {
        EXPECT_FALSE(fs::IsValidFileName(name)) << name;
    }
    EXPECT_FALSE(fs::IsValidPath(""));
    EXPECT_FALSE(fs::IsValidPath(absl::string_view("a\0b", 3)));
    EXPECT_TRUE(fs::IsValidPath("//server/share/../x"));

    const std::pair<const char*, const char*> table[] = {
        {"", "Untitled"},
        {".", "_"},
        {"a.", "a._"},
        {".hidden", "_hidden"},
        {"C:/Games/x", "C__Games_x"},
        {"\xC3\xA4\x7F", "___"},
        {"a\tb", "a_b"},
        {"nul.", "_nul._"},
        {"..", "_._"},
    };
    for (const auto& [name, clean] : table) {
        EXPECT_EQ(Text(fs::SanitiseFileName(name)), clean) << name;
    }
}

TEST(Paths, Within) {
    EXPECT_TRUE(fs::IsWithin("/a/b", "/a/b") && fs::IsWithin("/a/b", "/a/b/c") &&
                fs::IsWithin("/", "/a") && fs::IsWithin("C:/", "C:/a"));
    EXPECT_FALSE(fs::IsWithin("/a/b", "/a/bc") || fs::IsWithin("/a/b", "/a") ||
                 fs::IsWithin("", "a"));
}

TEST(Paths, PosixPermissionTexts) {
    uint32_t mode = 0;
    EXPECT_TRUE(fs::ParsePosixPermissions("posix:0755", mode));
    EXPECT_EQ(mode, 0755U);
    EXPECT_TRUE(fs::ParsePosixPermissions("posix:7777", mode));
    EXPECT_EQ(mode, 07777U);
    for (const char* text : {"", "posix", "posix:", "posix:0789", "posix:17777", "posix: 755",
                             "POSIX:0755", "posix:40000000000000000755"}) {
        EXPECT_FALSE(fs::ParsePosixPermissions(text, mode)) << text;
    }
}

TEST(PlatformText, MountTable) {
    const std::vector<CXString> mounts =
        ParseMountInfo("22 1 8:1 / / rw,noatime shared:1 master:2 - ext4 /dev/sda1 rw\n"
                       "23 22 0:5 / /proc rw - proc proc rw\n"
                       "24 22 0:30 / /sys/fs/cgroup rw - cgroup2 cgroup rw\n"
                       "25 22 0:31 / /mnt/a\\040b\\134c rw - tmpfs tmpfs rw\n"
                       "26 22 0:32 / /merged rw - overlay overlay rw\n"
                       "27 22 8:1 / /merged rw - ext4 /dev/sdb rw\n"
                       "28 22 8:1 / relative rw - ext4 /dev/sdb rw\n"
                       "broken line\n"
                       "29 22 8:1 / /late rw - xfs");
    const std::vector<CXString> expected = {"/", "/mnt/a b\\c", "/merged", "/late"};
    EXPECT_EQ(mounts, expected);
}

TEST(PlatformText, DesktopFolder) {
    const char* text = "# XDG_DESKTOP_DIR=\"/no\"\nXDG_MUSIC_DIR=\"$HOME/Music\"\n"
                       "  XDG_DESKTOP_DIR=\"$HOME/My \\\"Desk\\\"\"\n";
    EXPECT_EQ(ParseDesktopFolder(text, "/home/u"), "/home/u/My \"Desk\"");
    EXPECT_EQ(ParseDesktopFolder("XDG_DESKTOP_DIR=\"/d\"", "/home/u"), "/d");
    EXPECT_EQ(ParseDesktopFolder("XDG_DESKTOP_DIR=\"rel\"", "/home/u"), "");
    EXPECT_EQ(ParseDesktopFolder("", "/home/u"), "");
}

TEST(PlatformText, DesktopEntryEscapes) {
    EXPECT_EQ(Text(MakeDesktopEntry("A\\B\n", "/opt/a b/100%$\"x\\y", "/opt/a b")),
              "[Desktop Entry]\nVersion=1.5\nType=Application\nName=A\\\\B\\n\n"
              "Exec=\"/opt/a b/100%%\\\\$\\\\\"x\\\\\\\\y\"\nPath=/opt/a b\nTerminal=false\n");
}

TEST(PlatformText, WindowsCommandLine) {
    EXPECT_EQ(Text(MakeWindowsCommandLine(
                  {"C:/a b/p.exe", "plain", "", "say \"hi\"", "dir\\", "dir x\\", "a\\\\\"b"})),
              R"("C:/a b/p.exe" plain "" "say \"hi\"" dir\ "dir x\\" "a\\\\\"b")");
}

TEST(PlatformText, FromWindows) {
    EXPECT_EQ(FromWindowsPath("C:\\a\\b"), "C:/a/b");
    EXPECT_EQ(FromWindowsPath("\\\\?\\C:\\a"), "C:/a");
    EXPECT_EQ(FromWindowsPath("\\\\?\\UNC\\s\\h"), "//s/h");
    EXPECT_EQ(FromWindowsPath("\\\\s\\h"), "//s/h");
}
