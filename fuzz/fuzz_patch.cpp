// A whole patch from hostile bytes: the first line's length splits the input into the control file
// and the inflated data stream. Whatever they say, the run ends and nothing beside the target
// changes.
#include "core/CXFileSystem.h"
#include "core/CXLog.h"
#include "patch/DeleteWithAutoRetry.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/CXStreamTools.h"
#include "stream/StreamProcessorZLib.h"

#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

void Quiet(const char* /*line*/) {}

void WriteFile(const CXString& path, const void* data, size_t size) {
    CXStreamFile file;
    file.Open(path, kOpenWrite | kOpenCreate | kOpenTruncate);
    file.Write(data, size);
}

void WriteDeflated(const CXString& path, const void* data, size_t size) {
    CXStreamFile file;
    file.Open(path, kOpenWrite | kOpenCreate | kOpenTruncate);
    StreamProcessorZLibCompress deflater(1);
    CXStreamProcessorWrapper out(deflater, nullptr, &file);
    out.Write(data, size);
    out.Close();
}

CXURI FileURI(const CXString& path) {
    CXURI uri;
    uri.scheme = "file";
    const CXString relative = path.Left(1) == "/" ? CXString(path.Mid(1, path.GetLength())) : path;
    uri.path = CXURI::Encode(relative, "/");
    return uri;
}

/// The scratch folder of this process.
class World {
public:
    World() {
        const CXString temp = CXFileSystem::GetTempPath();
        m_root = CXFileSystem::CreateUniqueFileName(&temp, "fuzz-patch");
        CXFileSystem::DeleteFile(m_root);
        CXFileSystem::CreateDirectory(m_root);
        CXSetLogSink(Quiet);
        SetDeleteRetryPause(0);
    }
    ~World() { CXFileSystem::DeleteRecursive(m_root); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    CXString Path(const char* name) const { return CXFileSystem::Join(m_root, name); }

private:
    CXString m_root;
};

void RunTask(const World& world) {
    VelPatchTask_ApplyFilePatches task;
    task.Prepare(FileURI(world.Path("control")), FileURI(world.Path("data")));
    task.Begin(world.Path("game"));
    TaskStatus status;
    do {
        task.Go();
        task.GetStatus(status);
        if (status.state == kTaskStatePrompt) {
            task.Stop();
        }
        std::this_thread::yield();
    } while (task.IsRunning());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const World world;
    const uint8_t* split =
        size == 0 ? nullptr : static_cast<const uint8_t*>(std::memchr(data, '\0', size));
    const size_t control = split == nullptr ? size : static_cast<size_t>(split - data);
    WriteFile(world.Path("control"), data, control);
    WriteDeflated(world.Path("data"), split == nullptr ? data : split + 1,
                  split == nullptr ? 0 : size - control - 1);
    CXFileSystem::DeleteRecursive(world.Path("game"));
    CXFileSystem::CreateDirectories(world.Path("game/sub"));
    WriteFile(world.Path("game/a"), "old a", 5);
    WriteFile(world.Path("game/sub/b"), "old b", 5);
    RunTask(world);
    std::vector<CXFileEntry> beside;
    CXFileSystem::Enumerate(world.Path(""), beside);
    if (beside.size() != 3) {
        std::abort();
    }
    return 0;
}
