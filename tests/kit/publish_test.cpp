// Service files: what is refused and in which words, builds that are added to their text, and a
// publication that is cut off at any moment.
#include "core/CXMD5.h"
#include "kit/VelPatchControlWriter.h"
#include "kit/VelPatchPublishEdit.h"
#include "kit/VelPatchPublishReader.h"
#include "kit/VelPatchPublisher.h"
#include "tests/support/FaultFileDriver.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

const std::string kService = R"(; Two builds.
base-address "https://patches.test/"
streams
{
    live
    {
        name "Live"
        anchor-file "game.exe"
        builds
        {
            "1.0"
            {
                folder "one"   
                control "patch/c"
                data "patch/d"
                description "To two"
            }
            ; The newest.
            "2.0"
            {
                anchor-checksum "0123456789ABCDEF0123456789abcdef"
            }
        }
    }
    beta { name "Beta"
        restricted true
        builds { x { anchor-checksum "ffffffffffffffffffffffffffffffff"
} } }
}
products
{
    game
    {
        bundle-id "works.game"
        default-stream beta
        streams
        {
            live
            beta
        }
    }
}
accounts
{
    ada
    {
        password "x"
        products
        {
            game
        }
        streams
        {
            beta
        }
    }
}
)";
const std::string kTwo = "0123456789abcdef0123456789abcdef";

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
    const size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

std::string Lines(const std::vector<CXString>& lines) {
    std::string all;
    for (const CXString& line : lines) {
        all += Text(line) + "\n";
    }
    return all;
}

std::string ProblemsOf(const std::string& text) {
    VelPatchPublishText read("s.txt", text);
    VelPatchPublishService service;
    ReadPublishService(read, "/somewhere", service);
    return Lines(read.GetProblems());
}

TEST(PublishReader, SaysWhatIsWrongAndWhere) {
    EXPECT_EQ(ProblemsOf(kService), "");
    const struct {
        const char* what;
        const char* by;
        const char* problem;
    } cases[] = {
        {"https://patches.test/", "http://patches.test/", "s.txt:2: base-address: must look like"},
        {"https://patches.test/", "https://patches.test", "base-address: must look like"},
        {"https://patches.test/", "https://u!p@patches.test/", "base-address: must look like"},
        {"https://patches.test/", "https://patches.test/a/../b/", "base-address: must look like"},
        {"https://patches.test/", "https://patches.test/x;}/", "base-address: must look like"},
        {"base-address", "base-adress", "s.txt:2: base-adress: is not a key of this folder"},
        {"\"2.0\"", "\"1.0\"", "s.txt:19: '1.0' stands in line 11 already"},
        {"    beta {", "    live {", "'live' stands in line 5 already"},
        {"    beta {", "    \"be ta\" {", "a stream's id must not hold a blank"},
        {"    beta {", "    \"be\nta\" {", "the name is empty or holds control characters"},
        {"name \"Live\"", "name 1.5", "s.txt:7: streams/live/name: must stand in quotes"},
        {"name \"Live\"", "name \"Li\nve\"", "live/name: holds control characters"},
        {"name \"Live\"", "name {", "live/name: must be a text, not a folder"},
        {"name \"Live\"\n", "", "s.txt:5: streams/live: 'name' is missing"},
        {"folder \"one\"", "", "1.0: needs either 'anchor-checksum' or 'folder'"},
        {"folder \"one\"", "folder one\nanchor-checksum 0123456789abcdef0123456789abcdef",
         "1.0: needs either 'anchor-checksum' or 'folder'"},
        {"0123456789ABCDEF0", "0123456789ABCDEFg", "must be an MD5 of 32 hexadecimal digits"},
        {"anchor-file \"game.exe\"", "", "folder: the stream states no 'anchor-file'"},
        {"data \"patch/d\"", "", "streams/live/builds/1.0: 'data' is missing"},
        {"description \"To two\"", "", "streams/live/builds/1.0: 'description' is missing"},
        {"default-stream beta", "default-stream gone",
         "default-stream: is none of the product's streams"},
        {"            live\n", "            gone\n", "there is no such entry in this file"},
        {"            live\n            beta\n", "            beta\n",
         "s.txt:5: streams/live: no product has this stream"},
        {"            game\n", "            game 1\n", "is a name alone and takes no value"},
        {"        {\n            beta\n", "        {\n            live\n",
         "'live' is open to every owner"},
        {"            game\n        }\n        streams", "        }\n        streams",
         "accounts/ada/streams: 'beta' belongs to no product of the account"},
        {"password \"x\"", "password \"\"", "ada/password: 'password' is missing"},
        {"restricted true", "restricted yes", "streams/beta/restricted: must be true or false"},
        {"restricted true", "restricted {\n}", "streams/beta/restricted: must be true or false"},
        {"    game\n    {",
         "    copy { bundle-id works.game\nstreams {\nlive\n} }\n    game\n    {",
         "bundle-id: product 'copy' has the same ids"},
        {"accounts", "server { listen \"443; }\" }\naccounts", "listen: must look like"},
        {"accounts", "server { listen 443 }\naccounts", "never closed"},
        {"accounts", "server {\nlisten 443\ncertificate \"$x\"\ncertificate-key k\n}\naccounts",
         "can't name a path that holds '$'"},
        {"products\n{", "products\n{ }}", "a closing brace that closes nothing"},
        {"password \"x\"", "password \"x", "a text that begins here is never closed"},
    };
    for (const auto& one : cases) {
        const std::string problems = ProblemsOf(Replaced(kService, one.what, one.by));
        EXPECT_NE(problems.find(one.problem), std::string::npos)
            << one.what << " -> " << one.by << "\n"
            << problems;
    }
    // The web server would not start with more.
    const auto withPassword = [](size_t length) {
        return Replaced(kService, "password \"x\"",
                        "password \"" + std::string(length, 'x') + "\"");
    };
    EXPECT_EQ(ProblemsOf(withPassword(400)), "");
    EXPECT_NE(ProblemsOf(withPassword(450)).find("accounts/ada: is too long for the web server's"),
              std::string::npos);
    EXPECT_EQ(ProblemsOf("hash-passwords true\n" + withPassword(450)), "");
    EXPECT_NE(ProblemsOf(kService.substr(0, kService.find("accounts"))).find("no accounts"),
              std::string::npos);
    EXPECT_NE(ProblemsOf("").find("there are no products"), std::string::npos);
}

TEST(PublishEdit, AddsABuildAndLeavesTheRestAlone) {
    VelPatchNewBuild build;
    build.streamId = "live";
    build.name = "3 \"new\"";
    build.anchorChecksum = "33333333333333333333333333333333";
    build.description = "To \"three\"";
    build.patches = {{"1.0", "p13"}};
    build.installations = {{"game-1", "i3"}};
    const std::string wanted = Replaced(
        Replaced(kService,
                 "folder \"one\"   \n                control \"patch/c\"\n"
                 "                data \"patch/d\"\n                description \"To two\"",
                 "folder \"one\"\n                control \"p13/patch-control.txt\"\n"
                 "                data \"p13/patch-data.bin\"\n"
                 "                description \"To \"\"three\"\"\""),
        "89abcdef\"\n            }\n        }\n    }\n",
        "89abcdef\"\n            }\n            \"3 \"\"new\"\"\"\n            {\n"
        "                anchor-checksum \"33333333333333333333333333333333\"\n            }\n"
        "        }\n        installations\n        {\n            \"game-1\"\n            {\n"
        "                control \"i3/patch-control.txt\"\n"
        "                data \"i3/patch-data.bin\"\n"
        "                description \"To \"\"three\"\"\"\n            }\n        }\n    }\n");
    CXString out;
    CXString problem;
    ASSERT_TRUE(AddBuildToServiceText(kService, build, out, problem)) << problem.GetData();
    // A quoted name stays as it is written.
    EXPECT_EQ(Text(out), wanted);
    EXPECT_EQ(ProblemsOf(Text(out)), "");

    // Once more, over what is there by now; with the line ends of the file, in a cramped folder.
    std::string windows;
    for (const char byte : kService) {
        windows += byte == '\n' ? "\r\n" : std::string(1, byte);
    }
    build.streamId = "beta";
    build.patches = {{"x", "px"}};
    ASSERT_TRUE(AddBuildToServiceText(windows, build, out, problem)) << problem.GetData();
    EXPECT_EQ(ProblemsOf(Text(out)), "");
    EXPECT_EQ(Text(out).substr(0, windows.find("    beta {")),
              windows.substr(0, windows.find("    beta {")));
    VelPatchPublishText read("s.txt", out);
    VelPatchPublishService service;
    ReadPublishService(read, "/s", service);
    ASSERT_EQ(service.streams[1].builds.size(), 2U);
    EXPECT_EQ(Row(service.streams[1].builds[0].patch.controlPath, service.streams[1].builds[1].name,
                  service.streams[1].installations[0].id),
              "/s/px/patch-control.txt|3 \"new\"|game-1");
    for (size_t i = Text(out).find('\n'); i != std::string::npos; i = Text(out).find('\n', i + 1)) {
        EXPECT_EQ(Text(out)[i - 1], '\r') << i;
    }

    const std::string again = Text(out);
    EXPECT_FALSE(AddBuildToServiceText(again, build, out, problem));
    EXPECT_EQ(Text(problem), "stream 'beta' holds a build '3 \"new\"' already");
    build.name = "4";
    build.patches = {{"gone", "p"}};
    EXPECT_FALSE(AddBuildToServiceText(again, build, out, problem));
    EXPECT_EQ(Text(problem), "stream 'beta' holds no build 'gone'");
    build.streamId = "gone";
    EXPECT_FALSE(AddBuildToServiceText(again, build, out, problem));
}

class Publisher : public testing::Test {
protected:
    Publisher() {
        m_folder.WriteFile("one/game.exe", "one");
        MakePatch(CXMD5::OfBlock("one", 3), kTwo.c_str());
    }

    /// A patch that edits the anchor file, and whatever as its data.
    void MakePatch(const CXString& from, const CXString& to, const char* file = "game.exe") {
        PatchOperation edit;
        edit.command = COMMAND_EDIT_FILE;
        edit.sourcePath = file;
        edit.destinationPath = file;
        edit.sourceChecksum = from;
        edit.destinationChecksum = to;
        const std::string data = "data";
        m_folder.WriteFile("patch/d", data);
        ASSERT_EQ(WriteControlFile(m_folder.Path("patch/c"), {edit},
                                   static_cast<int64_t>(data.size()),
                                   CXMD5::OfBlock(data.data(), data.size())),
                  kCXResultOK);
    }

    VelPatchPublishService Read(const std::string& text) {
        VelPatchPublishText read("s.txt", text);
        VelPatchPublishService service;
        ReadPublishService(read, m_folder.Path(), service);
        EXPECT_EQ(Lines(read.GetProblems()), "");
        return service;
    }

    /// Problems, then warnings, of a check.
    std::string Check(const std::string& text) {
        VelPatchPublishService service = Read(text);
        VelPatchPublisher publisher(service, m_folder.Path("out"));
        const bool isGood = publisher.Check();
        EXPECT_EQ(isGood, publisher.GetProblems().empty());
        EXPECT_FALSE(m_folder.Has("out"));
        return Lines(publisher.GetProblems()) + Lines(publisher.GetWarnings());
    }

    CXResult Publish(const std::string& text, const char* out) {
        VelPatchPublishService service = Read(text);
        VelPatchPublisher publisher(service, m_folder.Path(out));
        CXString problem;
        if (!publisher.Check()) {
            return kCXResultFailed;
        }
        const CXResult result = publisher.Write(false, problem);
        EXPECT_EQ(problem.IsEmpty(), result == kCXResultOK);
        return result;
    }

    TempFolder m_folder;
};

TEST_F(Publisher, HoldsPatchesAgainstBuilds) {
    EXPECT_EQ(Check(kService), "");
    const auto says = [this](const std::string& text, const char* words) {
        const std::string said = Check(text);
        EXPECT_NE(said.find(words), std::string::npos) << said;
    };
    const CXString one = CXMD5::OfBlock("one", 3);
    says(Replaced(kService, "patch/c", "patch/gone"), "gone' can't be read as a plain file");
    says(Replaced(kService, "patch/c", "patch"), "patch' can't be read as a plain file");
    says(Replaced(kService, "patch/c", "patch/d"), "is not a control file that can be used");
    says(Replaced(kService, "patch/d", "one/game.exe"), "is not the data file of");
    says(Replaced(kService, "folder \"one\"", "folder \"gone\""), "the anchor file");
    says(Replaced(kService, "0123456789ABCDEF0123456789abcdef", Text(one)),
         "s.txt:19: streams/live/builds/2.0: has the anchor checksum of build '1.0'");
    MakePatch(one, one);
    says(kService, "leads back to this build");
    MakePatch(one, "22222222222222222222222222222222");
    says(kService, "leads to a build that the stream does not hold");
    MakePatch("22222222222222222222222222222222", kTwo.c_str());
    says(kService, "does not start from this build");
    MakePatch(one, kTwo.c_str(), "other.exe");
    says(kService, "does not write the anchor file 'game.exe'");
    MakePatch(one, "");
    EXPECT_EQ(Check(kService), "");
}

TEST_F(Publisher, RefusesAFolderOfSomethingElse) {
    m_folder.WriteFile("out/letter.txt", "dear");
    EXPECT_EQ(Publish(kService, "out"), kCXResultFailed);
    EXPECT_EQ(m_folder.Tree("out").size(), 1U);
}

/// The configuration that a server would read, or the one that stepped aside for it, is whole, and
/// so is all that it names.
void ExpectWhole(const TreeSnapshot& tree, const std::string& where) {
    const char* folder = tree.count("nginx/velpatch-http.conf") != 0 ? "nginx/" : "nginx.old/";
    for (const char* name : {"velpatch-http.conf", "velpatch-server.conf"}) {
        const auto found = tree.find(std::string(folder) + name);
        ASSERT_TRUE(found != tree.end()) << where;
        const std::string& text = found->second.contents;
        ASSERT_EQ(text.back(), '\n') << where;
        const size_t kNameLength = 32;
        for (size_t at = text.find(".txt;"); at != std::string::npos;
             at = text.find(".txt;", at + 1)) {
            const auto reply = tree.find("replies/" + text.substr(at - kNameLength, 36));
            ASSERT_TRUE(reply != tree.end()) << where;
            const std::string& words = reply->second.contents;
            EXPECT_EQ(Text(CXMD5::OfBlock(words.data(), words.size())),
                      text.substr(at - kNameLength, kNameLength))
                << where;
        }
    }
    for (const auto& [path, entry] : tree) {
        if (path.substr(0, 6) == "files/" && path.find(".tmp") == std::string::npos) {
            EXPECT_EQ(Text(CXMD5::OfBlock(entry.contents.data(), entry.contents.size())),
                      path.substr(6, 32))
                << where;
        }
    }
}

TEST_F(Publisher, IsWholeWhereverItIsCutOff) {
    const std::string later = Replaced(kService, "To two", "To two, better");
    ASSERT_EQ(Publish(kService, "before"), kCXResultOK);
    ASSERT_EQ(Publish(later, "after"), kCXResultOK);
    const TreeSnapshot after = m_folder.Tree("after");
    bool isCut = true;
    for (uint64_t at = 1; isCut; ++at) {
        m_folder.Remove("out");
        std::filesystem::copy(m_folder.Path("before").GetData(), m_folder.Path("out").GetData(),
                              std::filesystem::copy_options::recursive);
        const std::string where = "cut at change " + std::to_string(at);
        // One patch's files are another's by now, so that there is something to copy.
        m_folder.Remove("out/files");
        m_folder.MakeFolder("out/files");
        FaultFileDriver driver;
        {
            const ScopedFileDriver use(driver);
            driver.CutPower(at);
            const CXResult result = Publish(later, "out");
            isCut = driver.IsPowerCut();
            if (result == kCXResultOK) { // then only what had stepped aside may be left
                EXPECT_EQ(m_folder.ReadFile("out/nginx/velpatch-http.conf"),
                          m_folder.ReadFile("after/nginx/velpatch-http.conf"))
                    << where;
            } else {
                EXPECT_TRUE(isCut) << where;
            }
        }
        ASSERT_NO_FATAL_FAILURE(ExpectWhole(m_folder.Tree("out"), where));
        ASSERT_EQ(Publish(later, "out"), kCXResultOK) << where;
        TreeSnapshot tree = m_folder.Tree("out");
        for (const auto& [path, entry] : after) {
            ASSERT_TRUE(tree.count(path) != 0) << where << " " << path;
            // The folder's own name stands in the server's part.
            if (path.find("-server") == std::string::npos) {
                EXPECT_EQ(tree[path].contents, entry.contents) << where << " " << path;
            }
        }
        EXPECT_FALSE(m_folder.Has("out/nginx.new") || m_folder.Has("out/nginx.old")) << where;
    }
}

} // namespace
