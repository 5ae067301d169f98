// What is looked at before anything is written.
#include "kit/VelPatchPublisher.h"

#include "kit/VelPatchInspector.h"
#include "kit/VelPatchVolumeSet.h"
#include "stream/CXStream.h"

#include "app/config/VelPatchConfiguration.h"
#include "core/CXFileSystem.h"
#include "core/CXText.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchPublishText.h"
#include "net/CXURI.h"
#include "patch/PatchControl.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<absl::string_view, 6> kOwnNames = {"files",     "replies",   "nginx",
                                                        "nginx.new", "nginx.old", "run"};

} // namespace

void VelPatchPublisher::Complain(const CXString& place, const CXString& words) {
    m_problems.push_back(CXString::Format("%s: %s", place.GetData(), words.GetData()));
}

void VelPatchPublisher::Warn(const CXString& place, const CXString& words) {
    m_warnings.push_back(CXString::Format("%s: %s", place.GetData(), words.GetData()));
}

bool VelPatchPublisher::Check() {
    CheckFolder();
    for (VelPatchPublishStream& stream : m_service.streams) {
        if (!IsStopped()) {
            CheckStream(stream);
        }
    }
    return m_problems.empty() && !IsStopped();
}

void VelPatchPublisher::CheckFolder() {
    const CXString served = GetServedFolder();
    if (served.FindChar('$') >= 0 || !VelPatchPublishText::IsPlain(served, false) ||
        !CXFileSystem::IsAbsolute(served)) {
        Complain(served, "the web server needs a whole path without '$' and control characters");
    }
    if (CXFileSystem::Exists(m_outFolder) && !CXFileSystem::IsDirectory(m_outFolder)) {
        Complain(m_outFolder, "is not a folder");
        return;
    }
    std::vector<CXFileEntry> entries;
    CXFileSystem::Enumerate(m_outFolder, entries);
    for (const CXFileEntry& entry : entries) {
        if (std::find(kOwnNames.begin(), kOwnNames.end(), entry.name.View()) == kOwnNames.end()) {
            Complain(m_outFolder, CXString::Format("holds '%s', so it is not a published service",
                                                   entry.name.GetData()));
        }
    }
    const VelPatchPublishServer& server = m_service.server;
    for (const CXString& path : {server.certificate, server.certificateKey}) {
        if (!server.listen.IsEmpty() && m_service.folder.IsEmpty() &&
            !KitPlatform::IsRegularFile(path)) {
            Complain(path, "the server's certificate or its key is missing");
        }
    }
}

void VelPatchPublisher::CheckStream(VelPatchPublishStream& stream) {
    std::map<CXString, const VelPatchPublishBuild*> known;
    for (VelPatchPublishBuild& build : stream.builds) {
        if (!build.anchorPath.IsEmpty()) {
            Source anchor;
            if (!Digest(build.anchorPath, "reading", nullptr, anchor)) {
                if (!IsStopped()) {
                    Complain(build.place, CXString::Format("the anchor file '%s' can't be read",
                                                           build.anchorPath.GetData()));
                }
                continue;
            }
            build.anchorChecksum = anchor.checksum;
        }
        const auto [other, isNew] = known.emplace(build.anchorChecksum, &build);
        if (!isNew) {
            Complain(build.place,
                     CXString::Format("has the anchor checksum of build '%s': the service could "
                                      "not tell them apart",
                                      other->second->name.GetData()));
        }
    }
    for (const VelPatchPublishBuild& build : stream.builds) {
        if (build.hasPatch) {
            CheckPatch(stream, &build, build.patch);
        }
    }
    for (const VelPatchPublishInstallation& one : stream.installations) {
        for (const auto& [checksum, build] : known) {
            if (EqualsNoCase(checksum, one.id)) {
                Complain(one.patch.place, "is also the anchor checksum of a build");
            }
        }
        CheckPatch(stream, nullptr, one.patch);
    }
}

void VelPatchPublisher::CheckPatch(const VelPatchPublishStream& stream,
                                   const VelPatchPublishBuild* build,
                                   const VelPatchPublishPatch& patch) {
    const Source* controlFile = AddSource(patch.place, patch.controlPath, "txt");
    const Source* dataFile = AddSource(patch.place, patch.dataPath, "bin");
    if (controlFile == nullptr || dataFile == nullptr) {
        return;
    }
    PatchControl control;
    CXString words;
    const CXResult result = LoadControlFile(CXURI(FileURIOfPath(patch.controlPath)), control,
                                            [&words](const CXString& line) { words = line; });
    if (result != kCXResultOK || control.operations.empty()) {
        Complain(patch.place, CXString::Format("'%s' is not a control file that can be used%s%s",
                                               patch.controlPath.GetData(),
                                               words.IsEmpty() ? "" : ": ", words.GetData()));
        return;
    }
    const bool isSize =
        control.dataSize <= 0 || static_cast<uint64_t>(control.dataSize) == dataFile->size;
    const bool isDigest =
        control.dataChecksum.IsEmpty() || control.dataChecksum == dataFile->checksum;
    if (!isSize || !isDigest) {
        Complain(patch.place,
                 CXString::Format("'%s' is not the data file of '%s'", patch.dataPath.GetData(),
                                  patch.controlPath.GetData()));
        return;
    }
    if (!stream.anchorFile.IsEmpty()) {
        const VelPatchDataFile data = OpenDataFile(patch.dataPath, words);
        if (data.stream) {
            TakeRecordChecksums(control, *data.stream, [this](double) { return !IsStopped(); });
        }
        CheckAnchor(stream, build, patch, control);
    }
}

/// After a patch the anchor file must be another build's, or players are offered the same patch
/// for ever, or nothing at all.
void VelPatchPublisher::CheckAnchor(const VelPatchPublishStream& stream,
                                    const VelPatchPublishBuild* build,
                                    const VelPatchPublishPatch& patch,
                                    const PatchControl& control) {
    const CXString anchor = CXFileSystem::NormalisePath(stream.anchorFile);
    const PatchOperation* maker = nullptr;
    for (const PatchOperation& operation : control.operations) {
        const bool isFile = operation.command == COMMAND_CREATE_FILE ||
                            operation.command == COMMAND_EDIT_FILE ||
                            operation.command == COMMAND_MOVE_FILE;
        if (isFile && CXFileSystem::NormalisePath(operation.destinationPath) == anchor) {
            maker = &operation;
        }
        if (build != nullptr && CXFileSystem::NormalisePath(operation.sourcePath) == anchor &&
            !operation.sourceChecksum.IsEmpty() &&
            operation.sourceChecksum != build->anchorChecksum) {
            Complain(patch.place, CXString::Format("'%s' does not start from this build",
                                                   patch.controlPath.GetData()));
            return;
        }
    }
    if (maker == nullptr) {
        Warn(patch.place, CXString::Format("the patch does not write the anchor file '%s': it will "
                                           "be offered again and again",
                                           stream.anchorFile.GetData()));
        return;
    }
    const bool isKnown = std::any_of(stream.builds.begin(), stream.builds.end(),
                                     [&](const VelPatchPublishBuild& other) {
                                         return other.anchorChecksum == maker->destinationChecksum;
                                     });
    if (!maker->destinationChecksum.IsEmpty() && !isKnown) {
        Warn(patch.place, "the patch leads to a build that the stream does not hold");
    } else if (build != nullptr && maker->destinationChecksum == build->anchorChecksum) {
        Warn(patch.place, "the patch leads back to this build: it will be offered for ever");
    }
}

const VelPatchPublisher::Source*
VelPatchPublisher::AddSource(const CXString& place, const CXString& path, const char* extension) {
    const auto found = m_sources.find(path);
    if (found != m_sources.end()) {
        return &found->second;
    }
    Source source;
    if (!Digest(path, "reading", nullptr, source)) {
        if (!IsStopped()) {
            Complain(place, CXString::Format("'%s' can't be read as a plain file", path.GetData()));
        }
        return nullptr;
    }
    source.name = CXString::Format("%s.%s", source.checksum.GetData(), extension);
    return &m_sources.emplace(path, source).first->second;
}
