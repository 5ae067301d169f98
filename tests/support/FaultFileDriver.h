// A file driver for tests: passes calls on to another one, counts and logs them, and makes chosen
// ones fail.
#pragma once

#include "core/CXFileDriver.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// Kinds of calls, as bits of a mask. An opening that may write or create is OpenWrite, any other
/// OpenRead.
namespace FileOp {
enum : uint32_t {
    OpenRead = 1U << 0,
    OpenWrite = 1U << 1,
    Close = 1U << 2,
    Read = 1U << 3,
    Write = 1U << 4,
    Seek = 1U << 5,
    Tell = 1U << 6,
    GetSize = 1U << 7,
    SetEnd = 1U << 8,
    Flush = 1U << 9,
    GetAttributes = 1U << 10,
    Rename = 1U << 11,
    MakeDirectory = 1U << 12,
    RemoveFile = 1U << 13,
    RemoveDirectory = 1U << 14,
    List = 1U << 15,
    ListVolumes = 1U << 16,
    ResolvePath = 1U << 17,
    GetPermissions = 1U << 18,
    SetPermissions = 1U << 19,
    SetMode = 1U << 20,
    RemoveAtReboot = 1U << 21,
    MakeLink = 1U << 22,

    All = (1U << 23) - 1,
    /// Whatever changes something on disk.
    Changing = OpenWrite | Write | SetEnd | Flush | Rename | MakeDirectory | RemoveFile |
               RemoveDirectory | SetPermissions | SetMode | RemoveAtReboot | MakeLink,
    /// Whatever may disclose or change contents: all but questions about attributes.
    Touching = Changing | OpenRead | Read | List,
};
} // namespace FileOp

/// Name of one FileOp bit, for messages.
const char* FileOpName(uint32_t op);

/// How a call fails. A short write transfers half of its bytes and reports success; a call that
/// isn't a write then fails like a full disk.
enum class FileFault : uint8_t { Busy, Denied, Full, NotFound, Exists, ShortWrite, Device };

/// One call, as it was asked for.
struct FileAccess {
    uint32_t op = 0;
    CXString path;     ///< also for calls on an open file
    CXString newPath;  ///< of a rename and a shortcut's target
    CXString realPath; ///< with links above it resolved, if SetResolving is on
    CXString realNewPath;
    bool failed = false; ///< made to fail by this driver
};

/// Wraps a driver (the platform's unless told). All members: any thread.
class FaultFileDriver final : public CXFileDriver {
public:
    explicit FaultFileDriver(CXFileDriver& inner = CXFileDriver::Platform()) : m_inner(inner) {}

    /// Lets the calls `first` to `last` (counted from 1) of the kinds in `operations` whose path
    /// holds `pathPart` fail. Several plans may stand; each counts for itself from now on.
    void Fail(FileFault fault, uint64_t first, uint64_t last, uint32_t operations = FileOp::All,
              const CXString& pathPart = CXString());
    /// From the given call of the kinds in `operations` on (counted from 1, from now) every
    /// changing call does nothing and fails, as if the machine had stopped there.
    void CutPower(uint64_t at, uint32_t operations = FileOp::Changing);
    /// True once the power is gone.
    bool IsPowerCut() const;
    /// Drops all plans and the cut.
    void Heal();

    /// Number of calls of these kinds since the start or the last ClearLog.
    uint64_t CountCalls(uint32_t operations = FileOp::All) const;
    /// Number of calls made to fail.
    uint64_t CountFaults() const;
    std::vector<FileAccess> GetLog() const;
    void ClearLog();
    /// Calls of these kinds with a path (or real path) that lies in none of the folders.
    std::vector<FileAccess> FindOutside(const std::vector<CXString>& folders,
                                        uint32_t operations = FileOp::Touching) const;
    /// Text of a list of calls, a line each, for messages.
    static std::string Describe(const std::vector<FileAccess>& accesses);

    /// Whether log entries get their real paths (two more calls to the wrapped driver each).
    void SetResolving(bool resolving);
    /// Called before each call, outside the lock; may call anything but this driver.
    void SetHook(std::function<void(const FileAccess&)> hook);
    /// Replaces the list of volumes; nothing restores the system's.
    void SetVolumes(std::optional<std::vector<CXVolume>> volumes);

    CXNativeError Open(const CXString& path, const CXFileOpen& how, CXFileHandle& out) override;
    CXNativeError Close(CXFileHandle file) override;
    CXNativeError Read(CXFileHandle file, void* data, uint64_t count, uint64_t& done) override;
    CXNativeError Write(CXFileHandle file, const void* data, uint64_t count,
                        uint64_t& done) override;
    CXNativeError Seek(CXFileHandle file, uint64_t position) override;
    CXNativeError Tell(CXFileHandle file, uint64_t& position) override;
    CXNativeError GetSize(CXFileHandle file, uint64_t& size) override;
    CXNativeError SetEnd(CXFileHandle file) override;
    CXNativeError Flush(CXFileHandle file) override;
    CXNativeError GetAttributes(const CXString& path, bool followLinks,
                                CXFileAttributes& out) override;
    CXNativeError Rename(const CXString& newPath, const CXString& existingPath) override;
    CXNativeError MakeDirectory(const CXString& path) override;
    CXNativeError RemoveFile(const CXString& path) override;
    CXNativeError RemoveDirectory(const CXString& path) override;
    CXNativeError List(const CXString& path, std::vector<CXFileEntry>& out) override;
    CXNativeError ListVolumes(std::vector<CXVolume>& out) override;
    CXNativeError ResolvePath(const CXString& path, CXString& out) override;
    CXNativeError GetPermissions(const CXString& path, CXString& out) override;
    CXNativeError SetPermissions(const CXString& path, const CXString& text) override;
    CXNativeError SetMode(const CXString& path, uint32_t mode) override;
    CXNativeError RemoveAtReboot(const CXString& path) override;
    CXNativeError MakeLink(const CXString& path, const CXString& target,
                           const CXString& workingFolder, const CXString& name) override;

private:
    struct Plan {
        FileFault fault;
        uint64_t first;
        uint64_t last;
        uint32_t operations;
        CXString pathPart;
        uint64_t seen = 0;
    };

    /// Logs the call and finds the fault that it is to meet.
    std::optional<FileFault> Enter(uint32_t op, const CXString& path,
                                   const CXString& newPath = CXString());
    /// The error of a call that is to fail, or that of `call`.
    template <typename Call>
    CXNativeError Pass(uint32_t op, const CXString& path, const CXString& newPath, Call call);
    CXString PathOf(CXFileHandle file) const;
    CXString RealPath(const CXString& path) const;

    CXFileDriver& m_inner;
    mutable std::mutex m_section;
    std::vector<Plan> m_plans;
    std::vector<FileAccess> m_log;
    std::map<CXFileHandle, CXString> m_open;
    std::function<void(const FileAccess&)> m_hook;
    std::optional<std::vector<CXVolume>> m_volumes;
    uint64_t m_faults = 0;
    uint64_t m_cutAt = 0; ///< 0: never
    uint64_t m_cutSeen = 0;
    uint32_t m_cutOperations = 0;
    bool m_powerCut = false;
    bool m_resolving = false;
};

/// Puts a driver in use for the length of a scope.
class ScopedFileDriver {
public:
    explicit ScopedFileDriver(CXFileDriver& driver)
        : m_earlier(CXFileDriver::SetCurrent(&driver)) {}
    ~ScopedFileDriver() { CXFileDriver::SetCurrent(m_earlier); }
    ScopedFileDriver(const ScopedFileDriver&) = delete;
    ScopedFileDriver& operator=(const ScopedFileDriver&) = delete;

private:
    CXFileDriver* m_earlier;
};
