// Tells a patch as a scenario: files before, operations, what the user answers, files after.
#pragma once

#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "tests/support/TempFolder.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// Relative path ("/" as separator) to contents; a folder is its path + "/" with no contents.
/// Parents of files are listed too.
using Tree = std::map<std::string, std::string>;

/// A tree with the parent folders of its files filled in.
Tree WithFolders(const Tree& files);

/// One operation of a patch under test, with its data record if it has one.
struct TestOperation {
    std::string command;
    std::string source;
    std::string destination;
    std::string record = {};         ///< payload or diff
    std::string recordChecksum = {}; ///< as stated in the record
    std::string sourceChecksum = {};
    std::string destinationChecksum = {};
    std::string permissions = {};
    uint32_t flags = 0;
    int64_t effort = 100;

    /// A copy with another value in one member.
    template <typename T, typename Value>
    TestOperation With(T TestOperation::*member, const Value& value) const {
        TestOperation changed = *this;
        changed.*member = static_cast<T>(value);
        return changed;
    }
};

std::string MD5Of(const std::string& bytes);
std::string BigEndian(uint64_t value, int bytes);
std::string StreamString(const std::string& text);
std::string Deflated(const std::string& bytes);

TestOperation CreateFileOp(const std::string& path, const std::string& contents);
/// A create-file operation whose source is its destination, with these flags.
TestOperation ReplaceFileOp(const std::string& path, const std::string& contents, uint32_t flags,
                            const std::string& sourceChecksum = {});
/// A diff that keeps the common front and back of both contents.
std::string SimpleDiff(const std::string& oldContents, const std::string& newContents);
TestOperation EditOp(const std::string& source, const std::string& destination,
                     const std::string& oldContents, const std::string& newContents);
TestOperation MoveOp(const std::string& source, const std::string& destination,
                     const std::string& contents);
TestOperation DeleteFileOp(const std::string& path);
TestOperation CreateFolderOp(const std::string& path);
TestOperation DeleteFolderOp(const std::string& path);

/// The inflated data stream of a list, and the control file's text.
std::string RecordsOf(const std::vector<TestOperation>& operations);
std::string ControlTextOf(const std::vector<TestOperation>& operations,
                          const std::string& extraKeys = {});

/// What the user does when a prompt comes up.
enum class Answer { No, Retry, Stop };

struct RunResult {
    bool ended = false; ///< false: the run hung
    TaskStatus status;
    std::string log;
    std::vector<TaskStatus> prompts;

    bool Finished() const { return ended && status.state == kTaskStateFinished; }
    bool Failed() const { return ended && status.state == kTaskStateFailed; }
    bool LogHas(const std::string& text) const { return log.find(text) != std::string::npos; }
};

/// A scratch folder with "game" (the target), the patch files and a temporary folder of its own.
class PatchWorld {
public:
    PatchWorld();
    ~PatchWorld();
    PatchWorld(const PatchWorld&) = delete;
    PatchWorld& operator=(const PatchWorld&) = delete;

    void WriteTarget(const Tree& files);
    Tree ReadTarget() const;
    /// Writes control.txt and data.bin of the operations.
    void WritePatch(const std::vector<TestOperation>& operations, const std::string& extra = {});
    void WriteFile(const std::string& name, const std::string& contents) {
        m_folder.WriteFile(name, contents);
    }
    std::string ReadFile(const std::string& name) const { return m_folder.ReadFile(name); }
    const TempFolder& Folder() const { return m_folder; }

    CXString Text(const std::string& name) const { return m_folder.Path(name); }
    std::filesystem::path Path(const std::string& name) const { return Text(name).GetData(); }
    CXURI FileURI(const std::string& name) const;

    /// Runs control.txt with data.bin (or another data address) on the target.
    RunResult Run();

    // What a scenario may change before Run.
    std::function<Answer(const TaskStatus&)> onPrompt = [](const TaskStatus&) {
        return Answer::No;
    };
    std::function<void(VelPatchTask_ApplyFilePatches&)> atReady =
        [](VelPatchTask_ApplyFilePatches& task) { task.Go(); };
    PatchDiscPrompt discPrompt;
    CXURI dataURI;
    CXURI controlURI;
    std::string targetName = "game";

private:
    TempFolder m_folder;
};
