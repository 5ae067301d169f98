#include "tests/support/FaultFileDriver.h"

#include "core/CXFileSystem.h"

#include <algorithm>

namespace {

CXNativeError ErrorFor(FileFault fault) {
    const CXNativeErrors& errors = CXGetNativeErrors();
    switch (fault) {
    case FileFault::Busy:
        return errors.busy;
    case FileFault::Denied:
        return errors.accessDenied;
    case FileFault::NotFound:
        return errors.notFound;
    case FileFault::Exists:
        return errors.exists;
    case FileFault::Device:
        return errors.deviceFault;
    case FileFault::Full:
    case FileFault::ShortWrite:
        break;
    }
    return errors.diskFull;
}

bool LiesIn(const std::vector<CXString>& folders, const CXString& path) {
    const CXString whole = CXFileSystem::MakeAbsolute(path);
    return std::any_of(folders.begin(), folders.end(), [&](const CXString& folder) {
        return CXFileSystem::IsWithin(CXFileSystem::MakeAbsolute(folder), whole);
    });
}

} // namespace

const char* FileOpName(uint32_t op) {
    static const char* const names[] = {
        "OpenRead",      "OpenWrite",      "Close",         "Read",           "Write",
        "Seek",          "Tell",           "GetSize",       "SetEnd",         "Flush",
        "GetAttributes", "Rename",         "MakeDirectory", "RemoveFile",     "RemoveDirectory",
        "List",          "ListVolumes",    "ResolvePath",   "GetPermissions", "SetPermissions",
        "SetMode",       "RemoveAtReboot", "MakeLink"};
    for (size_t i = 0; i < std::size(names); ++i) {
        if (op == 1U << i) {
            return names[i];
        }
    }
    return "?";
}

void FaultFileDriver::Fail(FileFault fault, uint64_t first, uint64_t last, uint32_t operations,
                           const CXString& pathPart) {
    std::lock_guard<std::mutex> guard(m_section);
    m_plans.push_back({fault, first, last, operations, pathPart});
}

void FaultFileDriver::CutPower(uint64_t at, uint32_t operations) {
    std::lock_guard<std::mutex> guard(m_section);
    m_cutAt = at;
    m_cutSeen = 0;
    m_cutOperations = operations;
    m_powerCut = false;
}

bool FaultFileDriver::IsPowerCut() const {
    std::lock_guard<std::mutex> guard(m_section);
    return m_powerCut;
}

void FaultFileDriver::Heal() {
    std::lock_guard<std::mutex> guard(m_section);
    m_plans.clear();
    m_cutAt = 0;
    m_powerCut = false;
}

uint64_t FaultFileDriver::CountCalls(uint32_t operations) const {
    std::lock_guard<std::mutex> guard(m_section);
    return static_cast<uint64_t>(
        std::count_if(m_log.begin(), m_log.end(),
                      [&](const FileAccess& access) { return (access.op & operations) != 0; }));
}

uint64_t FaultFileDriver::CountFaults() const {
    std::lock_guard<std::mutex> guard(m_section);
    return m_faults;
}

std::vector<FileAccess> FaultFileDriver::GetLog() const {
    std::lock_guard<std::mutex> guard(m_section);
    return m_log;
}

void FaultFileDriver::ClearLog() {
    std::lock_guard<std::mutex> guard(m_section);
    m_log.clear();
    m_faults = 0;
}

std::vector<FileAccess> FaultFileDriver::FindOutside(const std::vector<CXString>& folders,
                                                     uint32_t operations) const {
    std::vector<FileAccess> found;
    for (const FileAccess& access : GetLog()) {
        if ((access.op & operations) == 0) {
            continue;
        }
        for (const CXString& path :
             {access.path, access.newPath, access.realPath, access.realNewPath}) {
            if (!path.IsEmpty() && !LiesIn(folders, path)) {
                found.push_back(access);
                break;
            }
        }
    }
    return found;
}

std::string FaultFileDriver::Describe(const std::vector<FileAccess>& accesses) {
    std::string text;
    for (const FileAccess& access : accesses) {
        text += std::string(FileOpName(access.op)) + " '" + access.path.GetData() + "'";
        if (!access.newPath.IsEmpty()) {
            text += std::string(" -> '") + access.newPath.GetData() + "'";
        }
        text += access.failed ? " (made to fail)\n" : "\n";
    }
    return text;
}

void FaultFileDriver::SetResolving(bool resolving) {
    std::lock_guard<std::mutex> guard(m_section);
    m_resolving = resolving;
}

void FaultFileDriver::SetHook(std::function<void(const FileAccess&)> hook) {
    std::lock_guard<std::mutex> guard(m_section);
    m_hook = std::move(hook);
}

void FaultFileDriver::SetVolumes(std::optional<std::vector<CXVolume>> volumes) {
    std::lock_guard<std::mutex> guard(m_section);
    m_volumes = std::move(volumes);
}

CXString FaultFileDriver::PathOf(CXFileHandle file) const {
    std::lock_guard<std::mutex> guard(m_section);
    const auto found = m_open.find(file);
    return found != m_open.end() ? found->second : CXString();
}

CXString FaultFileDriver::RealPath(const CXString& path) const {
    // The last component may not exist yet, or may itself be the link that is meant.
    CXString parent;
    const CXString whole = CXFileSystem::MakeAbsolute(path);
    if (whole.IsEmpty() || m_inner.ResolvePath(CXFileSystem::GetParent(whole), parent) != 0) {
        return CXString();
    }
    return CXFileSystem::Join(parent, CXFileSystem::GetFileName(whole));
}

std::optional<FileFault> FaultFileDriver::Enter(uint32_t op, const CXString& path,
                                                const CXString& newPath) {
    FileAccess access;
    access.op = op;
    access.path = path;
    access.newPath = newPath;
    std::optional<FileFault> fault;
    std::function<void(const FileAccess&)> hook;
    {
        std::unique_lock<std::mutex> guard(m_section);
        if (m_resolving) {
            guard.unlock();
            access.realPath = RealPath(path);
            access.realNewPath = RealPath(newPath);
            guard.lock();
        }
        for (Plan& plan : m_plans) {
            const bool named = path.View().find(plan.pathPart.View()) != absl::string_view::npos ||
                               newPath.View().find(plan.pathPart.View()) != absl::string_view::npos;
            if ((plan.operations & op) != 0 && named) {
                ++plan.seen;
                if (!fault && plan.seen >= plan.first && plan.seen <= plan.last) {
                    fault = plan.fault;
                }
            }
        }
        if (m_cutAt != 0 && (op & m_cutOperations) != 0 && ++m_cutSeen >= m_cutAt) {
            m_powerCut = true;
        }
        if (m_powerCut && (op & FileOp::Changing) != 0) {
            fault = FileFault::Device;
        }
        access.failed = fault.has_value();
        m_faults += access.failed ? 1 : 0;
        m_log.push_back(access);
        hook = m_hook;
    }
    if (hook) {
        hook(access);
    }
    return fault;
}

template <typename Call>
CXNativeError FaultFileDriver::Pass(uint32_t op, const CXString& path, const CXString& newPath,
                                    Call call) {
    const std::optional<FileFault> fault = Enter(op, path, newPath);
    return fault ? ErrorFor(*fault) : call();
}

CXNativeError FaultFileDriver::Open(const CXString& path, const CXFileOpen& how,
                                    CXFileHandle& out) {
    out = kCXNoFile;
    const bool writes = how.access == CXFileOpen::Access::ReadWrite ||
                        how.creation != CXFileOpen::Creation::OpenExisting;
    return Pass(writes ? FileOp::OpenWrite : FileOp::OpenRead, path, CXString(), [&] {
        const CXNativeError error = m_inner.Open(path, how, out);
        if (error == 0) {
            std::lock_guard<std::mutex> guard(m_section);
            m_open[out] = path;
        }
        return error;
    });
}

CXNativeError FaultFileDriver::Close(CXFileHandle file) {
    const std::optional<FileFault> fault = Enter(FileOp::Close, PathOf(file));
    {
        std::lock_guard<std::mutex> guard(m_section);
        m_open.erase(file);
    }
    // A handle is gone even when its closing fails.
    const CXNativeError error = m_inner.Close(file);
    return fault ? ErrorFor(*fault) : error;
}

CXNativeError FaultFileDriver::Read(CXFileHandle file, void* data, uint64_t count, uint64_t& done) {
    done = 0;
    return Pass(FileOp::Read, PathOf(file), CXString(),
                [&] { return m_inner.Read(file, data, count, done); });
}

CXNativeError FaultFileDriver::Write(CXFileHandle file, const void* data, uint64_t count,
                                     uint64_t& done) {
    done = 0;
    const std::optional<FileFault> fault = Enter(FileOp::Write, PathOf(file));
    if (fault == FileFault::ShortWrite) {
        return m_inner.Write(file, data, count / 2, done);
    }
    return fault ? ErrorFor(*fault) : m_inner.Write(file, data, count, done);
}

CXNativeError FaultFileDriver::Seek(CXFileHandle file, uint64_t position) {
    return Pass(FileOp::Seek, PathOf(file), CXString(),
                [&] { return m_inner.Seek(file, position); });
}

CXNativeError FaultFileDriver::Tell(CXFileHandle file, uint64_t& position) {
    position = 0;
    return Pass(FileOp::Tell, PathOf(file), CXString(),
                [&] { return m_inner.Tell(file, position); });
}

CXNativeError FaultFileDriver::GetSize(CXFileHandle file, uint64_t& size) {
    size = 0;
    return Pass(FileOp::GetSize, PathOf(file), CXString(),
                [&] { return m_inner.GetSize(file, size); });
}

CXNativeError FaultFileDriver::SetEnd(CXFileHandle file) {
    return Pass(FileOp::SetEnd, PathOf(file), CXString(), [&] { return m_inner.SetEnd(file); });
}

CXNativeError FaultFileDriver::Flush(CXFileHandle file) {
    return Pass(FileOp::Flush, PathOf(file), CXString(), [&] { return m_inner.Flush(file); });
}

CXNativeError FaultFileDriver::GetAttributes(const CXString& path, bool followLinks,
                                             CXFileAttributes& out) {
    out = CXFileAttributes();
    return Pass(FileOp::GetAttributes, path, CXString(),
                [&] { return m_inner.GetAttributes(path, followLinks, out); });
}

CXNativeError FaultFileDriver::Rename(const CXString& newPath, const CXString& existingPath) {
    return Pass(FileOp::Rename, existingPath, newPath,
                [&] { return m_inner.Rename(newPath, existingPath); });
}

CXNativeError FaultFileDriver::MakeDirectory(const CXString& path) {
    return Pass(FileOp::MakeDirectory, path, CXString(),
                [&] { return m_inner.MakeDirectory(path); });
}

CXNativeError FaultFileDriver::RemoveFile(const CXString& path) {
    return Pass(FileOp::RemoveFile, path, CXString(), [&] { return m_inner.RemoveFile(path); });
}

CXNativeError FaultFileDriver::RemoveDirectory(const CXString& path) {
    return Pass(FileOp::RemoveDirectory, path, CXString(),
                [&] { return m_inner.RemoveDirectory(path); });
}

CXNativeError FaultFileDriver::List(const CXString& path, std::vector<CXFileEntry>& out) {
    out.clear();
    return Pass(FileOp::List, path, CXString(), [&] { return m_inner.List(path, out); });
}

CXNativeError FaultFileDriver::ListVolumes(std::vector<CXVolume>& out) {
    out.clear();
    return Pass(FileOp::ListVolumes, CXString(), CXString(), [&]() -> CXNativeError {
        {
            std::lock_guard<std::mutex> guard(m_section);
            if (m_volumes) {
                out = *m_volumes;
                return 0;
            }
        }
        return m_inner.ListVolumes(out);
    });
}

CXNativeError FaultFileDriver::ResolvePath(const CXString& path, CXString& out) {
    out.Clear();
    return Pass(FileOp::ResolvePath, path, CXString(),
                [&] { return m_inner.ResolvePath(path, out); });
}

CXNativeError FaultFileDriver::GetPermissions(const CXString& path, CXString& out) {
    out.Clear();
    return Pass(FileOp::GetPermissions, path, CXString(),
                [&] { return m_inner.GetPermissions(path, out); });
}

CXNativeError FaultFileDriver::SetPermissions(const CXString& path, const CXString& text) {
    return Pass(FileOp::SetPermissions, path, CXString(),
                [&] { return m_inner.SetPermissions(path, text); });
}

CXNativeError FaultFileDriver::SetMode(const CXString& path, uint32_t mode) {
    return Pass(FileOp::SetMode, path, CXString(), [&] { return m_inner.SetMode(path, mode); });
}

CXNativeError FaultFileDriver::RemoveAtReboot(const CXString& path) {
    return Pass(FileOp::RemoveAtReboot, path, CXString(),
                [&] { return m_inner.RemoveAtReboot(path); });
}

CXNativeError FaultFileDriver::MakeLink(const CXString& path, const CXString& target,
                                        const CXString& workingFolder, const CXString& name) {
    return Pass(FileOp::MakeLink, path, target,
                [&] { return m_inner.MakeLink(path, target, workingFolder, name); });
}
