#include "tests/patch/PatchScenario.h"

#include "core/CXFileSystem.h"
#include "core/CXLog.h"
#include "core/CXMD5.h"
#include "patch/DeleteWithAutoRetry.h"
#include "tests/support/Environment.h"

#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <random>
#include <thread>

namespace fs = std::filesystem;

namespace {

std::string Slurp(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void Spill(const fs::path& path, const std::string& contents) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
}

std::string Quoted(const std::string& text) {
    std::string out = "\"";
    for (const char byte : text) {
        out += byte == '"' ? std::string("\"\"") : std::string(1, byte);
    }
    return out + "\"";
}

TestOperation MakeOp(const std::string& command, const std::string& source,
                     const std::string& destination) {
    TestOperation operation;
    operation.command = command;
    operation.source = source;
    operation.destination = destination;
    return operation;
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

TestOperation TestOperation::With(const std::function<void(TestOperation&)>& change) const {
    TestOperation changed = *this;
    change(changed);
    return changed;
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
    TestOperation operation = MakeOp("create-file", "", path);
    operation.record = contents;
    operation.recordChecksum = MD5Of(contents);
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
    TestOperation operation = MakeOp("edit-file", source, destination);
    operation.record = SimpleDiff(oldContents, newContents);
    operation.recordChecksum = MD5Of(newContents);
    operation.sourceChecksum = MD5Of(oldContents);
    operation.destinationChecksum = MD5Of(newContents);
    return operation;
}

TestOperation MoveOp(const std::string& source, const std::string& destination,
                     const std::string& contents) {
    TestOperation operation = MakeOp("move-file", source, destination);
    operation.sourceChecksum = MD5Of(contents);
    operation.destinationChecksum = MD5Of(contents);
    return operation;
}

TestOperation DeleteFileOp(const std::string& path) {
    return MakeOp("delete-file", "", path);
}

TestOperation CreateFolderOp(const std::string& path) {
    return MakeOp("create-folder", "", path);
}

TestOperation DeleteFolderOp(const std::string& path) {
    return MakeOp("delete-folder", "", path);
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
    std::random_device random;
    m_root = fs::canonical(fs::temp_directory_path()) /
             ("velpatch-test-" + std::to_string(random()) + std::to_string(random()));
    fs::create_directories(m_root / "temp");
    fs::create_directories(m_root / "product" / "program" / "data");
    RedirectTemporaryFolder((m_root / "temp").string());
    CXFileSystem::SetApplicationFolder(Text("product/program"));
    CXSetLogSink(Quiet);
    SetDeleteRetryPause(1);
    dataURI = FileURI("data.bin");
    controlURI = FileURI("control.txt");
}

PatchWorld::~PatchWorld() {
    CXFileSystem::SetApplicationFolder(CXString());
    RedirectTemporaryFolder(m_root.parent_path().string());
    std::error_code ignored;
    fs::remove_all(m_root, ignored);
}

CXString PatchWorld::Text(const std::string& name) const {
    return CXString((m_root / name).generic_string());
}

CXURI PatchWorld::FileURI(const std::string& name) const {
    CXURI uri;
    uri.scheme = "file";
    const std::string path = (m_root / name).generic_string();
    uri.path = CXURI::Encode(path[0] == '/' ? path.substr(1) : path, "/");
    return uri;
}

void PatchWorld::WriteTarget(const Tree& files) {
    fs::create_directories(m_root / targetName);
    for (const auto& [path, contents] : files) {
        if (path.back() == '/') {
            fs::create_directories(m_root / targetName / path.substr(0, path.size() - 1));
        } else {
            Spill(m_root / targetName / path, contents);
        }
    }
}

Tree PatchWorld::ReadTarget() const {
    Tree out;
    const fs::path root = m_root / targetName;
    if (!fs::exists(root)) {
        return out;
    }
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = entry.path().lexically_relative(root).generic_string();
        if (entry.is_directory() && !entry.is_symlink()) {
            out[path + "/"] = "";
        } else {
            out[path] = Slurp(entry.path());
        }
    }
    return out;
}

void PatchWorld::WriteFile(const std::string& name, const std::string& contents) {
    Spill(m_root / name, contents);
}

std::string PatchWorld::ReadFile(const std::string& name) const {
    return Slurp(m_root / name);
}

void PatchWorld::WritePatch(const std::vector<TestOperation>& operations,
                            const std::string& extra) {
    WriteFile("control.txt", ControlTextOf(operations, extra));
    WriteFile("data.bin", Deflated(RecordsOf(operations)));
}

RunResult PatchWorld::Run() {
    RunResult result;
    fs::remove(m_root / "temp" / "velpatch-log.txt");
    {
        VelPatchTask_ApplyFilePatches task;
        task.Prepare(controlURI, dataURI);
        task.SetDiscPrompt(discPrompt);
        bool isReady = false;
        if (!task.Begin(Text(targetName))) {
            isReady = true;
        }
        const auto start = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - start < std::chrono::seconds(60)) {
            task.GetStatus(result.status);
            const uint32_t state = result.status.state;
            if (!task.IsRunning() && (state == kTaskStateFinished || state == kTaskStateFailed)) {
                result.ended = true;
                break;
            }
            if (state == kTaskStateReady && !isReady &&
                result.status.statusText == "$velpatch_task_ready_to_install") {
                isReady = true;
                if (atReady) {
                    atReady(task);
                } else {
                    task.Go();
                }
            } else if (state == kTaskStatePrompt) {
                result.prompts.push_back(result.status);
                const Answer answer = onPrompt ? onPrompt(result.status) : Answer::No;
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
    result.log = Slurp(m_root / "temp" / "velpatch-log.txt");
    return result;
}
