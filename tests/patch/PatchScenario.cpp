#include "tests/patch/PatchScenario.h"

#include "core/CXFileSystem.h"
#include "core/CXLog.h"
#include "patch/DeleteWithAutoRetry.h"
#include "tests/support/Environment.h"

#include <chrono>
#include <thread>

namespace {

void Quiet(const char* /*line*/) {}

} // namespace

Tree WithFolders(const Tree& files) {
    Tree out = files;
    for (const auto& [path, contents] : files) {
        for (size_t at = path.find('/'); at != std::string::npos; at = path.find('/', at + 1)) {
            out[path.substr(0, at + 1)] = "";
        }
    }
    return out;
}

PatchWorld::PatchWorld() {
    m_folder.MakeFolder("temp");
    m_folder.MakeFolder("product/program/data");
    RedirectTemporaryFolder(Text("temp").GetData());
    CXFileSystem::SetApplicationFolder(Text("product/program"));
    CXSetLogSink(Quiet);
    SetDeleteRetryPause(1);
    dataURI = FileURI("data.bin");
    controlURI = FileURI("control.txt");
}

PatchWorld::~PatchWorld() {
    CXFileSystem::SetApplicationFolder(CXString());
    RedirectTemporaryFolder(Path("").parent_path().string());
}

CXURI PatchWorld::FileURI(const std::string& name) const {
    CXURI uri;
    uri.scheme = "file";
    const CXString path = Text(name);
    uri.path = CXURI::Encode(path.View().substr(path.Left(1) == "/" ? 1 : 0), "/");
    return uri;
}

void PatchWorld::WriteTarget(const Tree& files) {
    m_folder.MakeFolder(targetName);
    for (const auto& [path, contents] : files) {
        if (path.back() == '/') {
            m_folder.MakeFolder(targetName + "/" + path);
        } else {
            WriteFile(targetName + "/" + path, contents);
        }
    }
}

Tree PatchWorld::ReadTarget() const {
    Tree out;
    for (const auto& [path, entry] : m_folder.Tree(targetName)) {
        out[entry.type == 'd' ? path + "/" : path] = entry.contents;
    }
    return out;
}

void PatchWorld::WritePatch(const std::vector<TestOperation>& operations,
                            const std::string& extra) {
    WriteFile("control.txt", ControlTextOf(operations, extra));
    WriteFile("data.bin", Deflated(RecordsOf(operations)));
}

RunResult PatchWorld::Run() {
    RunResult result;
    m_folder.Remove("temp/velpatch-log.txt");
    {
        VelPatchTask_ApplyFilePatches task;
        task.Prepare(controlURI, dataURI);
        task.SetDiscPrompt(discPrompt);
        bool isReady = !task.Begin(Text(targetName));
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!result.ended && std::chrono::steady_clock::now() < end) {
            task.GetStatus(result.status);
            const uint32_t state = result.status.state;
            result.ended =
                !task.IsRunning() && (state == kTaskStateFinished || state == kTaskStateFailed);
            if (state == kTaskStateReady && !isReady &&
                result.status.statusText == "$velpatch_task_ready_to_install") {
                isReady = true;
                atReady(task);
            } else if (state == kTaskStatePrompt) {
                result.prompts.push_back(result.status);
                const Answer answer = onPrompt(result.status);
                if (answer == Answer::Stop) {
                    task.Stop();
                } else {
                    task.AnswerPrompt(answer == Answer::Retry);
                }
                // The task looks for its answer from time to time; until then the answer stands.
                const uint32_t answered = answer == Answer::Retry ? kTaskStateRetry
                                          : answer == Answer::No  ? kTaskStateFailed
                                                                  : kTaskStatePrompt;
                TaskStatus now;
                do {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    task.GetStatus(now);
                } while (now.state == answered && task.IsRunning());
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    result.log = ReadFile("temp/velpatch-log.txt");
    return result;
}
