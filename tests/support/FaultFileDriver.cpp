#include "tests/support/FaultFileDriver.h"

#include "core/CXFileSystem.h"

#include <algorithm>
#include <bit>

namespace {

bool LiesIn(const std::vector<CXString>& folders, const CXString& path) {
    const CXString whole = CXFileSystem::MakeAbsolute(path);
    return std::any_of(folders.begin(), folders.end(), [&](const CXString& folder) {
        return CXFileSystem::IsWithin(CXFileSystem::MakeAbsolute(folder), whole);
    });
}

} // namespace

CXNativeError FaultFileDriver::ErrorFor(FileFault fault) {
    const CXNativeErrors& errors = CXGetNativeErrors();
    const CXNativeError numbers[] = {errors.busy,     errors.accessDenied, errors.diskFull,
                                     errors.notFound, errors.diskFull,     errors.deviceFault};
    return numbers[static_cast<size_t>(fault)];
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

void FaultFileDriver::Hold(uint32_t operations, const CXString& pathPart) {
    std::lock_guard<std::mutex> guard(m_section);
    m_heldOperations = operations;
    m_heldPart = pathPart;
}

void FaultFileDriver::Release() {
    std::lock_guard<std::mutex> guard(m_section);
    m_heldOperations = 0;
    m_released.notify_all();
}

bool FaultFileDriver::IsHolding() const {
    std::lock_guard<std::mutex> guard(m_section);
    return m_holding != 0;
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
        if ((!access.path.IsEmpty() && !LiesIn(folders, access.path)) ||
            (!access.newPath.IsEmpty() && !LiesIn(folders, access.newPath))) {
            found.push_back(access);
        }
    }
    return found;
}

std::string FaultFileDriver::Describe(const std::vector<FileAccess>& accesses) {
    static const char* const names[] = {
        "OpenRead",      "OpenWrite",      "Close",         "Read",           "Write",
        "Seek",          "Tell",           "GetSize",       "SetEnd",         "Flush",
        "GetAttributes", "Rename",         "MakeDirectory", "RemoveFile",     "RemoveDirectory",
        "List",          "ListVolumes",    "ResolvePath",   "GetPermissions", "SetPermissions",
        "SetMode",       "RemoveAtReboot", "MakeLink"};
    std::string text;
    for (const FileAccess& access : accesses) {
        const auto name = static_cast<size_t>(std::countr_zero(access.op));
        text += std::string(names[name]) + " '" + access.path.GetData() + "'";
        if (!access.newPath.IsEmpty()) {
            text += std::string(" -> '") + access.newPath.GetData() + "'";
        }
        text += access.failed ? " (made to fail)\n" : "\n";
    }
    return text;
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

std::optional<FileFault> FaultFileDriver::Meet(uint32_t op, const CXString& path,
                                               const CXString& newPath) {
    std::unique_lock<std::mutex> guard(m_section);
    if ((m_heldOperations & op) != 0 &&
        path.View().find(m_heldPart.View()) != absl::string_view::npos) {
        ++m_holding;
        m_released.wait(guard, [&] { return (m_heldOperations & op) == 0; });
        --m_holding;
    }
    std::optional<FileFault> fault;
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
    m_faults += fault ? 1 : 0;
    m_log.push_back({op, path, newPath, fault.has_value()});
    return fault;
}

CXNativeError FaultFileDriver::Open(const CXString& path, const CXFileOpen& how,
                                    CXFileHandle& out) {
    const bool writes = how.access == CXFileOpen::Access::ReadWrite ||
                        how.creation != CXFileOpen::Creation::OpenExisting;
    out = kCXNoFile;
    if (const auto fault = Meet(writes ? FileOp::OpenWrite : FileOp::OpenRead, path)) {
        return ErrorFor(*fault);
    }
    const CXNativeError error = m_inner.Open(path, how, out);
    if (error == 0) {
        std::lock_guard<std::mutex> guard(m_section);
        m_open[out] = path;
    }
    return error;
}

CXNativeError FaultFileDriver::Close(CXFileHandle file) {
    const std::optional<FileFault> fault = Meet(FileOp::Close, PathOf(file));
    {
        std::lock_guard<std::mutex> guard(m_section);
        m_open.erase(file);
    }
    // A handle is gone even when its closing fails.
    const CXNativeError error = m_inner.Close(file);
    return fault ? ErrorFor(*fault) : error;
}

CXNativeError FaultFileDriver::Write(CXFileHandle file, const void* data, uint64_t count,
                                     uint64_t& done) {
    done = 0;
    const std::optional<FileFault> fault = Meet(FileOp::Write, PathOf(file));
    const bool isShort = fault == FileFault::ShortWrite;
    return fault && !isShort ? ErrorFor(*fault)
                             : m_inner.Write(file, data, isShort ? count / 2 : count, done);
}

CXNativeError FaultFileDriver::ListVolumes(std::vector<CXVolume>& out) {
    {
        std::lock_guard<std::mutex> guard(m_section);
        out = m_volumes.value_or(std::vector<CXVolume>());
    }
    const std::optional<FileFault> fault = Meet(FileOp::ListVolumes, CXString());
    return fault ? ErrorFor(*fault) : m_volumes ? 0 : m_inner.ListVolumes(out);
}
