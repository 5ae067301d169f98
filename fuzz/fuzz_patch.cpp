// A whole patch from hostile bytes: the first NUL splits the input into the control file and the
// inflated data stream. Whatever they say, the run ends and nothing beside the target
// changes.
#include "core/CXFileSystem.h"
#include "fuzz/FuzzTools.h"
#include "patch/DeleteWithAutoRetry.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/StreamProcessorZLib.h"
#include "tests/support/TempFolder.h"

#include <algorithm>
#include <thread>

namespace {

void WriteDeflated(const CXString& path, const uint8_t* data, size_t size) {
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

void RunTask(const TempFolder& world) {
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
    static const TempFolder world;
    SilenceLog();
    SetDeleteRetryPause(0);
    const uint8_t* const end = data + size;
    const uint8_t* const split = std::find(data, end, uint8_t{0});
    const uint8_t* const records = split == end ? end : split + 1;
    world.WriteFile("control", std::string(data, split));
    WriteDeflated(world.Path("data"), records, static_cast<size_t>(end - records));
    world.Remove("game");
    world.WriteFile("game/a", "old a");
    world.WriteFile("game/sub/b", "old b");
    RunTask(world);
    std::vector<CXFileEntry> beside;
    CXFileSystem::Enumerate(world.Path(), beside);
    Check(beside.size() == 3);
    return 0;
}
