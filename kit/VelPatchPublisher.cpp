#include "kit/VelPatchPublisher.h"

#include "core/CXFileSystem.h"
#include "core/CXMD5.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchPublishConfig.h"
#include "kit/VelPatchPublishText.h"
#include "kit/VelPatchResultText.h"
#include "stream/CXStreamFile.h"

#include <algorithm>
#include <array>

namespace {

constexpr size_t kBlockSize = 1 << 20;
// Only for the one who starts the server: the patterns of passwords stand there.
constexpr const char* kOwnFolder = "posix:0700";
constexpr const char* kOwnFile = "posix:0600";

CXString Failure(const CXString& path, CXResult result) {
    return CXString::Format("'%s' can't be written: %s", path.GetData(), ResultText(result));
}

/// Writes a file whose folder isn't in use yet. Permissions come before the contents.
CXResult WriteText(const CXString& path, const CXString& text, const char* permissions) {
    CXStreamFile file;
    file.Open(path, kOpenRead | kOpenWrite | kOpenCreate | kOpenTruncate);
    if (!file.IsOpen()) {
        return CXResultCertainFailure(file.GetLastError());
    }
    if (permissions != nullptr) {
        const CXResult result = CXFileSystem::SetFilePermissions(path, permissions);
        if (result != kCXResultOK) {
            return result;
        }
    }
    file.Write(text.GetData(), text.GetLength());
    file.Flush();
    file.Close();
    return file.GetLastError();
}

/// Makes a folder that is empty, or has these permissions at least.
CXResult MakeFolder(const CXString& path, const char* permissions) {
    const CXResult result = CXFileSystem::CreateDirectories(path);
    return result != kCXResultOK || permissions == nullptr
               ? result
               : CXFileSystem::SetFilePermissions(path, permissions);
}

} // namespace

CXString VelPatchPublisher::GetPath(const char* relative) const {
    return CXFileSystem::Join(m_outFolder, relative);
}
CXString VelPatchPublisher::GetHttpPath() const {
    return GetPath("nginx/velpatch-http.conf");
}
CXString VelPatchPublisher::GetServerPath() const {
    return GetPath("nginx/velpatch-server.conf");
}
CXString VelPatchPublisher::GetStandAlonePath() const {
    return m_service.server.listen.IsEmpty() ? CXString() : GetPath("nginx/nginx.conf");
}
CXString VelPatchPublisher::GetServedFolder() const {
    return m_service.folder.IsEmpty() ? m_outFolder
                                      : CXFileSystem::StripTrailingSeparators(m_service.folder);
}

bool VelPatchPublisher::Digest(const CXString& path, const char* activity, CXStreamFile* to,
                               Source& source) {
    CXStreamFile file;
    file.Open(path, kOpenRead);
    if (!file.IsOpen() || !KitPlatform::IsRegularFile(path)) {
        return false;
    }
    const CXString words =
        CXString::Format("%s %s", activity, CXFileSystem::GetFileName(path).GetData());
    const uint64_t whole = file.GetSize();
    std::vector<char> block(kBlockSize);
    CXMD5 digest;
    source.path = path;
    source.size = 0;
    while (source.size < whole && !IsStopped()) {
        const uint64_t count =
            file.Read(block.data(), std::min<uint64_t>(kBlockSize, whole - source.size));
        if (count == 0) {
            return false;
        }
        digest.Update(block.data(), static_cast<size_t>(count));
        if (to != nullptr) {
            to->Write(block.data(), count);
        }
        source.size += count;
        if (m_progress) {
            m_progress(words, static_cast<double>(source.size) / static_cast<double>(whole));
        }
    }
    source.checksum = digest.FinishHex();
    return !IsStopped();
}

CXResult VelPatchPublisher::CopySource(const Source& source, CXString& problem) {
    const CXString path = CXFileSystem::Join(GetPath("files"), source.name);
    CXFileAttributes there;
    if (CXFileSystem::GetAttributes(path, false, there) == kCXResultOK && !there.isDirectory &&
        there.size == source.size) {
        return kCXResultOK; // the name tells the contents
    }
    const CXString temporary = CXString::Format("%s.tmp", path.GetData());
    CXStreamFile copy;
    copy.Open(temporary, kOpenRead | kOpenWrite | kOpenCreate | kOpenTruncate);
    CXResult result = CXResultCertainFailure(copy.GetLastError());
    if (copy.IsOpen()) {
        Source read;
        const bool isRead = Digest(source.path, "copying", &copy, read);
        copy.Flush();
        copy.Close();
        result = copy.GetLastError();
        if (IsStopped()) {
            result = kCXResultCancelled;
        } else if (!isRead || read.checksum != source.checksum) {
            problem = CXString::Format("'%s' has changed while it was read", source.path.GetData());
            result = kCXResultBadData;
        } else if (result == kCXResultOK) {
            CXFileSystem::DeleteFile(path); // of another size: cut off
            result = CXFileSystem::Rename(path, temporary);
        }
    }
    if (result != kCXResultOK) {
        CXFileSystem::DeleteFile(temporary);
        if (problem.IsEmpty()) {
            problem = Failure(path, result);
        }
        return result;
    }
    ++m_summary.filesCopied;
    m_summary.bytesCopied += source.size;
    return kCXResultOK;
}

CXResult VelPatchPublisher::WriteReplies(const std::map<CXString, CXString>& replies,
                                         CXString& problem) {
    for (const auto& [name, text] : replies) {
        const CXString path = CXFileSystem::Join(GetPath("replies"), name);
        CXFileAttributes there;
        if (CXFileSystem::GetAttributes(path, false, there) == kCXResultOK &&
            there.size == text.GetLength()) {
            continue;
        }
        const CXString temporary = CXString::Format("%s.tmp", path.GetData());
        CXResult result = WriteText(temporary, text, nullptr);
        if (result == kCXResultOK) {
            CXFileSystem::DeleteFile(path);
            result = CXFileSystem::Rename(path, temporary);
        }
        if (result != kCXResultOK) {
            CXFileSystem::DeleteFile(temporary);
            problem = Failure(path, result);
            return result;
        }
    }
    return kCXResultOK;
}

CXResult VelPatchPublisher::WriteConfiguration(const CXString& httpPart, CXString& problem) {
    const CXString present = GetPath("nginx");
    const CXString next = GetPath("nginx.new");
    const CXString earlier = GetPath("nginx.old");
    const CXString folder = GetServedFolder();
    CXFileSystem::DeleteRecursive(next);
    CXResult result = MakeFolder(next, kOwnFolder);
    std::vector<std::pair<const char*, CXString>> parts = {
        {"velpatch-http.conf", httpPart},
        {"velpatch-server.conf", VelPatchPublishConfig::ServerPart(m_service, folder)}};
    if (!m_service.server.listen.IsEmpty()) {
        parts.emplace_back("nginx.conf", VelPatchPublishConfig::StandAlone(m_service, folder));
    }
    for (const auto& [name, text] : parts) {
        if (result == kCXResultOK) {
            result = WriteText(CXFileSystem::Join(next, name), text, kOwnFile);
        }
    }
    if (result == kCXResultOK) {
        // A run that was cut between the two moves left the earlier one only.
        if (CXFileSystem::Exists(present)) {
            CXFileSystem::DeleteRecursive(earlier);
            result = CXFileSystem::Rename(earlier, present);
        }
        if (result == kCXResultOK) {
            result = CXFileSystem::Rename(present, next);
            if (result == kCXResultOK) {
                CXFileSystem::DeleteRecursive(earlier);
                return kCXResultOK;
            }
            CXFileSystem::Rename(present, earlier);
        }
    }
    CXFileSystem::DeleteRecursive(next);
    problem = Failure(present, result);
    return result;
}

void VelPatchPublisher::Prune(const char* folder, const std::set<CXString>& kept) {
    std::vector<CXFileEntry> entries;
    CXFileSystem::Enumerate(GetPath(folder), entries);
    for (const CXFileEntry& entry : entries) {
        const CXString path = CXFileSystem::Join(GetPath(folder), entry.name);
        if (kept.count(entry.name) == 0 && !entry.isDirectory) {
            if (CXFileSystem::DeleteFile(path) == kCXResultOK) {
                ++m_summary.filesRemoved;
            } else {
                m_warnings.push_back(CXString::Format("'%s' can't be removed", path.GetData()));
            }
        }
    }
}

CXResult VelPatchPublisher::Write(bool prune, CXString& problem) {
    for (const char* name : {"files", "replies"}) {
        const CXResult result = MakeFolder(GetPath(name), nullptr);
        if (result != kCXResultOK) {
            problem = Failure(GetPath(name), result);
            return result;
        }
    }
    if (!m_service.server.listen.IsEmpty()) {
        // Requests stand in an error log with all that they hold.
        const CXResult result = MakeFolder(GetPath("run/log"), kOwnFolder);
        if (result != kCXResultOK) {
            problem = Failure(GetPath("run/log"), result);
            return result;
        }
    }
    std::set<CXString> files;
    for (const auto& [path, source] : m_sources) {
        const CXResult result = CopySource(source, problem);
        if (result != kCXResultOK) {
            return result;
        }
        files.insert(source.name);
    }
    std::map<CXString, CXString> replies;
    const auto address = [this](const CXString& path) {
        return CXString::Format("%s%s", m_service.filesAddress.GetData(),
                                m_sources[path].name.GetData());
    };
    const CXString httpPart = VelPatchPublishConfig::HttpPart(
        m_service,
        [&](const VelPatchPublishPatch& patch) {
            ++m_summary.patches;
            return VelPatchPublishConfig::PatchReply(address(patch.controlPath),
                                                     address(patch.dataPath), patch.description);
        },
        [&](const CXString& reply) {
            CXString name = CXString::Format(
                "%s.txt", CXMD5::OfBlock(reply.GetData(), reply.GetLength()).GetData());
            replies[name] = reply;
            return name;
        });
    m_summary.replies = replies.size();
    CXResult result = WriteReplies(replies, problem);
    if (result == kCXResultOK) {
        result = WriteConfiguration(httpPart, problem);
    }
    if (result == kCXResultOK && prune) {
        std::set<CXString> names;
        for (const auto& [name, text] : replies) {
            names.insert(name);
        }
        Prune("files", files);
        Prune("replies", names);
    }
    return result;
}
