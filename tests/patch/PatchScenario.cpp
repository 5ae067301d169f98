#include "tests/patch/PatchScenario.h"

#include "core/CXFileSystem.h"
#include "core/CXLog.h"
#include "core/CXMD5.h"
#include "patch/DeleteWithAutoRetry.h"
#include "tests/support/Environment.h"

#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

std::string Quoted(const std::string& text) {
    std::string out = "\"";
    for (const char byte : text) {
        out += byte == '"' ? std::string("\"\"") : std::string(1, byte);
    }
    return out + "\"";
}

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

std::string MD5Of(const std::string& bytes) {
    return CXMD5::OfBlock(bytes.data(), bytes.size()).GetData();
}

std::string BigEndian(uint64_t value, int bytes) {
    std::string out;
    for (int i = bytes - 1; i >= 0; --i) {
        out += static_cast<char>(value >> (8 * i));
    }
    return out;
}

std::string StreamString(const std::string& text) {
    return (text.size() < 255 ? BigEndian(text.size(), 1) : "\xFF" + BigEndian(text.size(), 4)) +
           text;
}

std::string Deflated(const std::string& bytes) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::string out(size, '\0');
    compress(reinterpret_cast<Bytef*>(out.data()), &size,
             reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()));
    out.resize(size);
    return out;
}

TestOperation CreateFileOp(const std::string& path, const std::string& contents) {
    return {"create-file", "", path, contents, MD5Of(contents)};
}

TestOperation ReplaceFileOp(const std::string& path, const std::string& contents, uint32_t flags,
                            const std::string& sourceChecksum) {
    TestOperation operation = CreateFileOp(path, contents);
    operation.source = path;
    operation.flags = flags;
    operation.sourceChecksum = sourceChecksum;
    return operation;
}

std::string SimpleDiff(const std::string& oldContents, const std::string& newContents) {
    const size_t shorter = std::min(oldContents.size(), newContents.size());
    size_t front = 0;
    while (front < shorter && oldContents[front] == newContents[front]) {
        ++front;
    }
    size_t back = 0;
    while (back < shorter - front && oldContents[oldContents.size() - 1 - back] ==
                                         newContents[newContents.size() - 1 - back]) {
        ++back;
    }
    const size_t oldMiddle = oldContents.size() - front - back;
    const size_t newMiddle = newContents.size() - front - back;
    return "\x01" + BigEndian(front, 4) + std::string(1, '\0') + BigEndian(oldMiddle, 4) +
           BigEndian(newMiddle, 4) + newContents.substr(front, newMiddle) + "\x01" +
           BigEndian(back, 4);
}

TestOperation EditOp(const std::string& source, const std::string& destination,
                     const std::string& oldContents, const std::string& newContents) {
    const std::string checksum = MD5Of(newContents);
    return {
        "edit-file",        source,  destination, SimpleDiff(oldContents, newContents), checksum,
        MD5Of(oldContents), checksum};
}

TestOperation MoveOp(const std::string& source, const std::string& destination,
                     const std::string& contents) {
    return {"move-file", source, destination, "", "", MD5Of(contents), MD5Of(contents)};
}

TestOperation DeleteFileOp(const std::string& path) {
    return {"delete-file", "", path};
}

TestOperation CreateFolderOp(const std::string& path) {
    return {"create-folder", "", path};
}

TestOperation DeleteFolderOp(const std::string& path) {
    return {"delete-folder", "", path};
}

std::string RecordsOf(const std::vector<TestOperation>& operations) {
    std::string out;
    for (const TestOperation& operation : operations) {
        if (operation.command == "create-file" || operation.command == "edit-file") {
            out += BigEndian(operation.record.size(), 8) + operation.record +
                   StreamString(operation.recordChecksum);
        }
    }
    return out;
}

std::string ControlTextOf(const std::vector<TestOperation>& operations,
                          const std::string& extraKeys) {
    std::string out = "velpatch-version 1\n" + extraKeys + "patch-operations\n{\n";
    for (size_t i = 0; i < operations.size(); ++i) {
        const TestOperation& operation = operations[i];
        out += "op" + std::to_string(i) + "\n{\ncommand " + Quoted(operation.command) + "\n";
        const std::pair<const char*, std::string> texts[] = {
            {"source-filepath", operation.source},
            {"source-checksum", operation.sourceChecksum},
            {"destination-filepath", operation.destination},
            {"destination-checksum", operation.destinationChecksum},
            {"destination-permissions", operation.permissions},
        };
        for (const auto& [key, value] : texts) {
            if (!value.empty()) {
                out += std::string(key) + " " + Quoted(value) + "\n";
            }
        }
        out += "estimated-effort " + std::to_string(operation.effort) + "\nflags " +
               std::to_string(operation.flags) + "\n}\n";
    }
    return out + "}\n";
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
