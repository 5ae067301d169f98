// A run with windows from the application object to its end, and the program that deletes itself.
#include "app/VelPatchHandOver.h"
#include "app/VelPatchRunApplication.h"
#include "app/VelPatchSelfDelete.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "runtime/CXMessage.h"
#include "runtime/CXRuntime.h"
#include "runtime/CXWorkerHost.h"
#include "tests/support/TempFolder.h"
#include "ui/CXUIWindow.h"
#include "ui/HeadlessBackend.h"
#include "ui/UIService.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;

Names s_events;

class TracingWindow : public CXUIWindow {
public:
    explicit TracingWindow(const CXString& name) : CXUIWindow(name) {}
    ~TracingWindow() override { Trace("gone"); }
    CXResult ProcessMessage(const CXMessage& message) override {
        Trace(message.GetName().GetData());
        return CXUIWindow::ProcessMessage(message);
    }

private:
    void Trace(const char* what) { s_events.push_back(std::string(GetName().View()) + " " + what); }
};

class TracingApplication : public CXUIApplication {
public:
    explicit TracingApplication(HeadlessBackend& user) : m_user(user) {}
    ~TracingApplication() override {
        s_events.emplace_back(CXWorkerHost::GetExisting() != nullptr ? "application gone"
                                                                     : "workers gone first");
    }
    CXResult ProcessMessage(const CXMessage& message) override {
        if (message.Is("open-application")) {
            UIService::Get()->Open(std::make_unique<TracingWindow>("one"));
            UIService::Get()->Open(std::make_unique<TracingWindow>("two"));
            CXWorkerHost::GetSingleton()->PostToMain(this, [this] { SecondInstanceCalls(); });
            return kCXResultOK;
        }
        return CXUIApplication::ProcessMessage(message);
    }

private:
    // A second instance's line is taken and brings the window up; then the user quits.
    void SecondInstanceCalls() {
        if (!m_user.IsIdle()) { // the windows are not told yet which of them is in front
            CXWorkerHost::GetSingleton()->PostToMain(this, [this] { SecondInstanceCalls(); });
            return;
        }
        m_user.Minimise();
        const std::string line = "--target \"/some folder\"";
        EXPECT_TRUE(
            m_user.SendData(kHandOverTag, absl::string_view(line.c_str(), line.size() + 1)));
        EXPECT_FALSE(m_user.SendData(kHandOverTag + 1, "x"));
        EXPECT_EQ(m_user.Dump().View().find("minimised"), absl::string_view::npos);
        EXPECT_EQ(GetProcessSettings().target, CXFileSystem::MakeAbsolute("/some folder"));
        UIService::Get()->RequestQuit();
    }

    HeadlessBackend& m_user;
};

TEST(RunApplication, ClearsAwayInOrder) {
    CXRuntimeScope runtime;
    s_events.clear();
    GetProcessSettings().quitRequested = false;
    auto backend = std::make_unique<HeadlessBackend>();
    HeadlessBackend& user = *backend;
    RunVelPatchApplication({std::move(backend),
                            [&user] { return std::make_unique<TracingApplication>(user); },
                            {},
                            [] {
                                EXPECT_EQ(CXWorkerHost::GetExisting(), nullptr);
                                EXPECT_NE(UIService::Get(), nullptr);
                                s_events.emplace_back("window services gone");
                            }});
    EXPECT_EQ(s_events, (Names{"two ForceClose", "one ForceClose", "two gone", "one gone",
                               "application gone", "window services gone"}));
    EXPECT_EQ(CXWorkerHost::GetExisting(), nullptr);
    EXPECT_EQ(UIService::Get(), nullptr);
    GetProcessSettings().quitRequested = false;
    GetProcessSettings().target.Clear();
}

TEST(SelfDelete, SparesTheFolderOfAUser) {
    const bool isWindows = CXFileSystem::HasWindowsPaths();
    const std::string library = isWindows ? "ssl.dll" : "libssl.so.3";
    const struct {
        const char* what;
        Names files;
        std::string complaint; // empty: it goes
        bool keepsFolder = false;
    } kCases[] = {
        {"a plain copy", {"velpatch", library, "data/patch-config.txt", "data/sub/x"}, ""},
        {"a stray text", {"velpatch", library, "data/patch-config.txt", "notes.txt"}, "notes.txt"},
        {"a hidden file", {"velpatch", ".hidden", "data/x"}, "", true},
        {"a stray folder", {"velpatch", "saves/x", "data/x"}, "saves"},
        {"a file called data", {"velpatch", "data"}, "data"},
        {"nothing but itself", {"velpatch"}, ""},
    };
    for (const auto& test : kCases) {
        const TempFolder temp;
        for (const std::string& file : test.files) {
            temp.WriteFile("folder/" + file, "x");
        }
        const TreeSnapshot before = temp.Tree();
        Names boxes;
        const bool went = VelPatchSelfDelete::Run(
            temp.Path("folder/velpatch"), [&boxes](const CXString& text, const CXString& caption) {
                boxes.push_back(std::string(caption.View()) + "|" + std::string(text.View()));
            });
        EXPECT_EQ(went, test.complaint.empty()) << test.what;
        if (!went) {
            EXPECT_EQ(boxes, Names{std::string(temp.Path("folder/" + test.complaint).View()) +
                                   "|Unexpected file in patch folder"})
                << test.what;
            EXPECT_EQ(temp.Tree(), before) << test.what;
            continue;
        }
        EXPECT_EQ(boxes, Names{}) << test.what;
        EXPECT_FALSE(temp.Has("folder/data")) << test.what;
        if (!isWindows) { // where the rest waits for the next start of the system
            EXPECT_EQ(temp.Has("folder"), test.keepsFolder) << test.what;
            EXPECT_FALSE(temp.Has("folder/velpatch")) << test.what;
        }
    }
}

TEST(SelfDelete, KnowsLibrariesOfBothSystems) {
    const struct {
        const char* name;
        bool onWindows, elsewhere;
    } kCases[] = {
        {"libssl.dll", true, true},      {"LIBSSL.DLL", true, false},  {"libssl.so", false, true},
        {"libssl.so.3", false, true},    {"a.sort.txt", false, false}, {"dll", false, false},
        {"notes.dll.txt", false, false}, {"x.solution", false, false},
    };
    for (const auto& test : kCases) {
        EXPECT_EQ(VelPatchSelfDelete::IsLibrary(test.name, true), test.onWindows) << test.name;
        EXPECT_EQ(VelPatchSelfDelete::IsLibrary(test.name, false), test.elsewhere) << test.name;
    }
}

} // namespace
