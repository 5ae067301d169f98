// A file driver for tests: passes calls on to another one, counts and logs them, and makes chosen
// ones fail.
#pragma once

#include "core/CXFileDriver.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
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

/// How a call fails. A short write transfers half of its bytes and reports success; a call that
/// isn't a write then fails like a full disk.
enum class FileFault : uint8_t { Busy, Denied, Full, NotFound, ShortWrite, Device };

/// One call, as it was asked for.
struct FileAccess {
    uint32_t op = 0;
    CXString path;       ///< also for calls on an open file
    CXString newPath;    ///< of a rename and a shortcut's target
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
    /// Calls of these kinds whose path holds `pathPart` wait from now on until Release.
    void Hold(uint32_t operations, const CXString& pathPart);
    /// Lets go on what waits; no call waits any more.
    void Release();
    /// True while a call waits for Release.
    bool IsHolding() const;
    /// Drops all plans and the cut.
    void Heal();

    /// Number of calls of these kinds since the start or the last ClearLog.
    uint64_t CountCalls(uint32_t operations = FileOp::All) const;
    /// Number of calls made to fail.
    uint64_t CountFaults() const;
    std::vector<FileAccess> GetLog() const;
    void ClearLog();
    /// Calls of these kinds with a path that lies in none of the folders.
    std::vector<FileAccess> FindOutside(const std::vector<CXString>& folders,
                                        uint32_t operations = FileOp::Touching) const;
    /// Text of a list of calls, a line each, for messages.
    static std::string Describe(const std::vector<FileAccess>& accesses);

    /// Replaces the list of volumes; nothing restores the system's.
    void SetVolumes(std::optional<std::vector<CXVolume>> volumes);

    CXNativeError Open(const CXString& path, const CXFileOpen& how, CXFileHandle& out) override;
    CXNativeError Close(CXFileHandle file) override;
    CXNativeError Write(CXFileHandle file, const void* data, uint64_t count,
                        uint64_t& done) override;
    CXNativeError ListVolumes(std::vector<CXVolume>& out) override;
    CXNativeError Read(CXFileHandle file, void* data, uint64_t count, uint64_t& done) override {
        return Pass(FileOp::Read, &Base::Read, file, data, count, done);
    }
    CXNativeError Seek(CXFileHandle file, uint64_t position) override {
        return Pass(FileOp::Seek, &Base::Seek, file, position);
    }
    CXNativeError Tell(CXFileHandle file, uint64_t& position) override {
        return Pass(FileOp::Tell, &Base::Tell, file, position);
    }
    CXNativeError GetSize(CXFileHandle file, uint64_t& size) override {
        return Pass(FileOp::GetSize, &Base::GetSize, file, size);
    }
    CXNativeError SetEnd(CXFileHandle file) override {
        return Pass(FileOp::SetEnd, &Base::SetEnd, file);
    }
    CXNativeError Flush(CXFileHandle file) override {
        return Pass(FileOp::Flush, &Base::Flush, file);
    }
    CXNativeError GetAttributes(const CXString& path, bool follow, CXFileAttributes& out) override {
        return Pass(FileOp::GetAttributes, &Base::GetAttributes, path, follow, out);
    }
    CXNativeError Rename(const CXString& newPath, const CXString& existingPath) override {
        return Enter(FileOp::Rename, existingPath, newPath, &Base::Rename, newPath, existingPath);
    }
    CXNativeError MakeDirectory(const CXString& path) override {
        return Pass(FileOp::MakeDirectory, &Base::MakeDirectory, path);
    }
    CXNativeError RemoveFile(const CXString& path) override {
        return Pass(FileOp::RemoveFile, &Base::RemoveFile, path);
    }
    CXNativeError RemoveDirectory(const CXString& path) override {
        return Pass(FileOp::RemoveDirectory, &Base::RemoveDirectory, path);
    }
    CXNativeError List(const CXString& path, std::vector<CXFileEntry>& out) override {
        return Pass(FileOp::List, &Base::List, path, out);
    }
    CXNativeError ResolvePath(const CXString& path, CXString& out) override {
        return Pass(FileOp::ResolvePath, &Base::ResolvePath, path, out);
    }
    CXNativeError GetPermissions(const CXString& path, CXString& out) override {
        return Pass(FileOp::GetPermissions, &Base::GetPermissions, path, out);
    }
    CXNativeError SetPermissions(const CXString& path, const CXString& text) override {
        return Pass(FileOp::SetPermissions, &Base::SetPermissions, path, text);
    }
    CXNativeError SetMode(const CXString& path, uint32_t mode) override {
        return Pass(FileOp::SetMode, &Base::SetMode, path, mode);
    }
    CXNativeError RemoveAtReboot(const CXString& path) override {
        return Pass(FileOp::RemoveAtReboot, &Base::RemoveAtReboot, path);
    }
    CXNativeError MakeLink(const CXString& path, const CXString& target, const CXString& folder,
                           const CXString& name) override {
        return Enter(FileOp::MakeLink, path, target, &Base::MakeLink, path, target, folder, name);
    }

private:
    using Base = CXFileDriver;
    struct Plan {
        FileFault fault;
        uint64_t first;
        uint64_t last;
        uint32_t operations;
        CXString pathPart;
        uint64_t seen = 0;
    };

    /// Logs the call and finds the fault that it is to meet.
    std::optional<FileFault> Meet(uint32_t op, const CXString& path,
                                  const CXString& newPath = CXString());
    static CXNativeError ErrorFor(FileFault fault);
    /// Logs the call, then makes it or lets it fail, with every output reset.
    template <typename Call, typename... Args>
    CXNativeError Enter(uint32_t op, const CXString& path, const CXString& newPath, Call call,
                        Args&... args) {
        if (const std::optional<FileFault> fault = Meet(op, path, newPath)) {
            (Reset(args), ...);
            return ErrorFor(*fault);
        }
        return (m_inner.*call)(args...);
    }
    template <typename Call, typename First, typename... Args>
    CXNativeError Pass(uint32_t op, Call call, First& first, Args&... args) {
        return Enter(op, PathOf(first), CXString(), call, first, args...);
    }
    template <typename T> static void Reset(T& value) {
        if constexpr (!std::is_const_v<T>) {
            value = T();
        }
    }
    CXString PathOf(CXFileHandle file) const;
    static const CXString& PathOf(const CXString& path) { return path; }

    CXFileDriver& m_inner;
    mutable std::mutex m_section;
    std::vector<Plan> m_plans;
    std::condition_variable m_released;
    uint32_t m_heldOperations = 0;
    CXString m_heldPart;
    int m_holding = 0; ///< calls that wait
    std::vector<FileAccess> m_log;
    std::map<CXFileHandle, CXString> m_open;
    std::optional<std::vector<CXVolume>> m_volumes;
    uint64_t m_faults = 0;
    uint64_t m_cutAt = 0; ///< 0: never
    uint64_t m_cutSeen = 0;
    uint32_t m_cutOperations = 0;
    bool m_powerCut = false;
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
