// "velpatch-kit split" and "velpatch-kit join".
#include "core/CXFileSystem.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchConsole.h"
#include "kit/VelPatchKit.h"
#include "kit/VelPatchKitCommands.h"
#include "kit/VelPatchKitTools.h"
#include "kit/VelPatchVolumeSet.h"
#include "patch/PatchControl.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamTools.h"

#include <CLI/CLI.hpp>

namespace {

struct VolumeOptions {
    std::string data, folder, size, out, control;
};

/// "650M" and the like: K, M and G count in thousands, KiB, MiB and GiB in 1024s. 0 for anything
/// else.
uint64_t ParseSize(const std::string& text) {
    uint64_t number = 0;
    size_t at = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; at++) {
        if (__builtin_mul_overflow(number, 10U, &number) ||
            __builtin_add_overflow(number, static_cast<unsigned>(text[at] - '0'), &number)) {
            return 0;
        }
    }
    const std::string unit = text.substr(at);
    static const struct {
        const char* name;
        uint64_t bytes;
    } kUnits[] = {{"", 1},          {"K", 1000},      {"M", 1000000},  {"G", 1000000000},
                  {"KiB", 1 << 10}, {"MiB", 1 << 20}, {"GiB", 1 << 30}};
    for (const auto& known : kUnits) {
        if (unit == known.name) {
            return __builtin_mul_overflow(number, known.bytes, &number) ? 0 : number;
        }
    }
    return 0;
}

int RunSplit(const VolumeOptions& options, VelPatchConsole& console) {
    const uint64_t size = ParseSize(options.size);
    if (size == 0) {
        console.Complain("--size takes a number of bytes, with K, M, G, KiB, MiB or GiB behind it");
        return kKitUsage;
    }
    std::vector<CXString> volumes;
    CXString problem;
    const CXResult result = SplitDataFile(
        TypedPath(options.data), TypedPath(options.folder), size,
        [&console](double fraction) {
            console.ShowProgress("writing the volumes", fraction);
            return !KitPlatform::IsInterrupted();
        },
        volumes, problem);
    console.EndProgress();
    if (result != kCXResultOK) {
        console.Complain(problem);
        if (result == kCXResultCancelled) {
            return kKitStopped;
        }
        return result == kCXResultInvalidArgument || result == kCXResultNotFound ? kKitUsage
                                                                                 : kKitFailed;
    }
    for (const CXString& volume : volumes) {
        console.PutData("volume", volume);
    }
    return kKitDone;
}

/// Holds the joined file against the control file.
bool IsAsStated(CXStreamFile& file, const PatchControl& control, VelPatchConsole& console) {
    const uint64_t size = file.GetSize();
    if (control.dataSize > 0 && static_cast<uint64_t>(control.dataSize) != size) {
        console.Complain(CXString::Format("the volumes hold %d bytes, and the control file says %d",
                                          size, control.dataSize));
        return false;
    }
    file.Seek(0, kCXSeekStart);
    if (!control.dataChecksum.IsEmpty() && MD5OfStream(file, size) != control.dataChecksum) {
        console.Complain("the volumes' data haven't the checksum that the control file says");
        return false;
    }
    return true;
}

int RunJoin(const VolumeOptions& options, VelPatchConsole& console) {
    PatchControl control;
    uint64_t unused = 0;
    if (!options.control.empty() && !LoadTypedControl(options.control, console, control, unused)) {
        return kKitUsage;
    }
    const CXString from = TypedPath(options.folder);
    if (!IsVolumeSet(from)) {
        console.Complain(CXString::Format("'%s' holds no volumes", from.GetData()));
        return kKitUsage;
    }
    CXString problem;
    const VelPatchDataFile data = OpenDataFile(from, problem);
    if (!data.stream) {
        console.Complain(problem);
        return kKitFailed;
    }
    const CXString path = TypedPath(options.out);
    for (const VelPatchDataFile::Piece& piece : data.pieces) {
        if (piece.path == path) {
            console.Complain(CXString::Format("'%s' is one of the volumes", path.GetData()));
            return kKitUsage;
        }
    }
    CXStreamCopyOptions copying;
    copying.progress = [&console](const CXStreamProgressCallbackData& now) {
        console.ShowProgress("joining the volumes", static_cast<double>(now.fraction));
        return !KitPlatform::IsInterrupted();
    };
    const uint64_t size = data.stream->GetRemaining();
    const int code = WriteNewFile(path, console, [&](CXStreamFile& file) {
        const CXResult copied = CXStream::Copy(file, *data.stream, size, &copying);
        console.EndProgress();
        if (copied != kCXResultOK) {
            return copied;
        }
        file.Flush();
        return IsAsStated(file, control, console) ? file.GetLastError() : kCXResultBadData;
    });
    if (code == kKitDone) {
        console.PutData("data", path);
        console.PutData("data-bytes", size);
    }
    return code;
}

} // namespace

void DefineVolumes(CLI::App& app, std::vector<VelPatchKitCommand>& commands) {
    auto options = std::make_shared<VolumeOptions>();
    CLI::App* split = app.add_subcommand("split", "Cut a data file into volumes for discs");
    split->add_option("DATA", options->data, "The data file")->required();
    split->add_option("OUT", options->folder, "Folder for patch-1.bin and so on")->required();
    split->add_option("--size", options->size, "Bytes of a volume, as 650M or 4GiB")->required();
    commands.push_back(
        {split, [options](VelPatchConsole& console) { return RunSplit(*options, console); }});
    CLI::App* join = app.add_subcommand("join", "Put the volumes of a data file together");
    join->add_option("FOLDER", options->folder, "Folder with patch-1.bin and so on")->required();
    join->add_option("DATA", options->out, "The data file to write")->required();
    join->add_option("--control", options->control, "Control file to hold the result against");
    commands.push_back(
        {join, [options](VelPatchConsole& console) { return RunJoin(*options, console); }});
}
