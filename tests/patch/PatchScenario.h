// Tells a patch as a scenario: files before, operations, what the user answers, files after.
#pragma once

#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "tests/support/PatchData.h"
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
