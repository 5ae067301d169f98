#include "core/CXFileDriver.h"
#include "core/CXFileSystem.h"
#include "core/CXPlatformText.h"
#include "core/CXStringUTF16.h"

#include <algorithm>

#include "core/win32_api.h"
#include <aclapi.h>
#include <objbase.h>
#include <sddl.h>
#include <shlobj.h>

namespace {

/// Largest single transfer in bytes; the calls count in 32 bits.
constexpr uint64_t kMaxTransfer = 0x40000000;

/// The error of a call that has failed: never 0, which would read as success.
CXNativeError LastError() {
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? error : ERROR_GEN_FAILURE;
}

/// 0 for a call that succeeded, else its error.
CXNativeError ErrorOf(BOOL succeeded) {
    return succeeded ? 0 : LastError();
}

HANDLE HandleOf(CXFileHandle file) {
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(file));
}

/// The wide platform form of a program path, for the length of a call.
class WidePath {
public:
    explicit WidePath(const CXString& path) : m_text(Convert(path)) {}
    operator const wchar_t*() const { return reinterpret_cast<const wchar_t*>(m_text.GetUnits()); }

private:
    /// The extended form takes no dot segments and no doubled separators.
    static CXStringUTF16 Convert(const CXString& path) {
        const CXString extended = CXFileSystem::GetExtendedPath(path);
        return ToUTF16(extended == path
                           ? path
                           : CXFileSystem::GetExtendedPath(CXFileSystem::NormalisePath(path)));
    }
    CXStringUTF16 m_text;
};

/// A NUL inside a path would silently name another file.
bool HasNul(const CXString& path) {
    return path.View().find('\0') != absl::string_view::npos;
}

CXString ToProgramPath(const wchar_t* path) {
    return FromWindowsPath(FromUTF16(reinterpret_cast<const char16_t*>(path)));
}

/// Closes a handle on leaving.
class ScopedHandle {
public:
    explicit ScopedHandle(HANDLE handle) : m_handle(handle) {}
    ~ScopedHandle() {
        if (IsOpen()) {
            CloseHandle(m_handle);
        }
    }
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;
    bool IsOpen() const { return m_handle != INVALID_HANDLE_VALUE && m_handle != nullptr; }
    HANDLE Get() const { return m_handle; }

private:
    HANDLE m_handle;
};

/// Frees memory that the security calls hand out.
class ScopedLocal {
public:
    ~ScopedLocal() {
        if (pointer != nullptr) {
            LocalFree(pointer);
        }
    }
    void* pointer = nullptr;
};

uint64_t Join64(DWORD high, DWORD low) {
    return (static_cast<uint64_t>(high) << 32) | low;
}

/// File times count 100 ns from 1601.
int64_t ToUnixMilliseconds(const FILETIME& time) {
    return static_cast<int64_t>(Join64(time.dwHighDateTime, time.dwLowDateTime) / 10000) -
           11644473600000LL;
}

bool IsLinkTag(DWORD attributes, DWORD tag) {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (tag == IO_REPARSE_TAG_SYMLINK || tag == IO_REPARSE_TAG_MOUNT_POINT);
}

/// Enables the right to see and set audit lists; without it they are left out.
bool EnableSecurityPrivilege() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token)) {
        return false;
    }
    const ScopedHandle closer(token);
    TOKEN_PRIVILEGES wanted = {};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    return LookupPrivilegeValueW(nullptr, L"SeSecurityPrivilege", &wanted.Privileges[0].Luid) &&
           AdjustTokenPrivileges(token, FALSE, &wanted, 0, nullptr, nullptr) &&
           GetLastError() == ERROR_SUCCESS;
}

HANDLE OpenForSecurity(const CXString& path, DWORD access) {
    return CreateFileW(WidePath(path), access,
                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

CXNativeError ErrorOfResult(HRESULT result) {
    if (SUCCEEDED(result)) {
        return 0;
    }
    return HRESULT_FACILITY(result) == FACILITY_WIN32
               ? static_cast<CXNativeError>(HRESULT_CODE(result))
               : static_cast<CXNativeError>(result);
}

/// Drives without a medium must not ask for one while this lives.
class QuietDrives {
public:
    QuietDrives() { SetThreadErrorMode(SEM_FAILCRITICALERRORS, &m_earlier); }
    ~QuietDrives() { SetThreadErrorMode(m_earlier, nullptr); }
    QuietDrives(const QuietDrives&) = delete;
    QuietDrives& operator=(const QuietDrives&) = delete;

private:
    DWORD m_earlier = 0;
};

/// Adds the mount paths of one volume, if it holds a medium.
void AppendVolume(const wchar_t* volume, std::vector<CXVolume>& out) {
    std::vector<wchar_t> names(512);
    DWORD length = 0;
    while (!GetVolumePathNamesForVolumeNameW(volume, names.data(), static_cast<DWORD>(names.size()),
                                             &length)) {
        if (GetLastError() != ERROR_MORE_DATA || length <= names.size()) {
            return;
        }
        names.resize(length);
    }
    for (const wchar_t* name = names.data(); *name != 0; name += wcslen(name) + 1) {
        const UINT kind = GetDriveTypeW(name);
        ULARGE_INTEGER freeBytes = {};
        if (kind != DRIVE_UNKNOWN && kind != DRIVE_NO_ROOT_DIR &&
            GetVolumeInformationW(name, nullptr, 0, nullptr, nullptr, nullptr, nullptr, 0) &&
            GetDiskFreeSpaceExW(name, &freeBytes, nullptr, nullptr)) {
            out.push_back({ToProgramPath(name), freeBytes.QuadPart});
        }
    }
}

class Win32FileDriver final : public CXFileDriver {
public:
    CXNativeError Open(const CXString& path, const CXFileOpen& how, CXFileHandle& out) override {
        out = kCXNoFile;
        if (HasNul(path)) {
            return ERROR_INVALID_NAME;
        }
        DWORD access = 0;
        if (how.access == CXFileOpen::Access::Read) {
            access = GENERIC_READ;
        } else if (how.access == CXFileOpen::Access::ReadWrite) {
            access = GENERIC_READ | GENERIC_WRITE;
        }
        DWORD creation = OPEN_EXISTING;
        switch (how.creation) {
        case CXFileOpen::Creation::OpenExisting:
            break;
        case CXFileOpen::Creation::OpenAlways:
            creation = OPEN_ALWAYS;
            break;
        case CXFileOpen::Creation::CreateAlways:
            creation = CREATE_ALWAYS;
            break;
        case CXFileOpen::Creation::CreateNew:
            creation = CREATE_NEW;
            break;
        }
        DWORD share = 0;
        if (how.share == CXFileOpen::Share::Delete) {
            share = FILE_SHARE_DELETE;
        } else if (how.share == CXFileOpen::Share::ReadDelete) {
            share = FILE_SHARE_READ | FILE_SHARE_DELETE;
        }
        const HANDLE handle = CreateFileW(WidePath(path), access, share, nullptr, creation,
                                          FILE_ATTRIBUTE_NORMAL, nullptr);
        if (handle == INVALID_HANDLE_VALUE) {
            return LastError();
        }
        out = static_cast<CXFileHandle>(reinterpret_cast<intptr_t>(handle));
        return 0;
    }

    CXNativeError Close(CXFileHandle file) override { return ErrorOf(CloseHandle(HandleOf(file))); }

    CXNativeError Read(CXFileHandle file, void* data, uint64_t count, uint64_t& done) override {
        DWORD got = 0;
        const BOOL succeeded = ReadFile(
            HandleOf(file), data, static_cast<DWORD>(std::min(count, kMaxTransfer)), &got, nullptr);
        done = got;
        return succeeded || GetLastError() == ERROR_HANDLE_EOF ? 0 : LastError();
    }

    CXNativeError Write(CXFileHandle file, const void* data, uint64_t count,
                        uint64_t& done) override {
        const DWORD wanted = static_cast<DWORD>(std::min(count, kMaxTransfer));
        DWORD put = 0;
        const BOOL succeeded = WriteFile(HandleOf(file), data, wanted, &put, nullptr);
        done = put;
        if (!succeeded) {
            return LastError();
        }
        // A write to a disk is never short for another reason, even where the call says success.
        return put < wanted ? ERROR_DISK_FULL : 0;
    }

    CXNativeError Seek(CXFileHandle file, uint64_t position) override {
        LARGE_INTEGER to;
        to.QuadPart = static_cast<LONGLONG>(position);
        return ErrorOf(SetFilePointerEx(HandleOf(file), to, nullptr, FILE_BEGIN));
    }

    CXNativeError Tell(CXFileHandle file, uint64_t& position) override {
        LARGE_INTEGER none = {};
        LARGE_INTEGER at = {};
        const BOOL succeeded = SetFilePointerEx(HandleOf(file), none, &at, FILE_CURRENT);
        position = static_cast<uint64_t>(at.QuadPart);
        return ErrorOf(succeeded);
    }

    CXNativeError GetSize(CXFileHandle file, uint64_t& size) override {
        LARGE_INTEGER value = {};
        const BOOL succeeded = GetFileSizeEx(HandleOf(file), &value);
        size = static_cast<uint64_t>(value.QuadPart);
        return ErrorOf(succeeded);
    }

    CXNativeError SetEnd(CXFileHandle file) override {
        return ErrorOf(SetEndOfFile(HandleOf(file)));
    }

    CXNativeError Flush(CXFileHandle file) override {
        return ErrorOf(FlushFileBuffers(HandleOf(file)));
    }

    CXNativeError GetAttributes(const CXString& path, bool followLinks,
                                CXFileAttributes& out) override {
        out = CXFileAttributes();
        if (HasNul(path)) {
            return ERROR_INVALID_NAME;
        }
        const WidePath wide(path);
        WIN32_FILE_ATTRIBUTE_DATA data = {};
        if (!GetFileAttributesExW(wide, GetFileExInfoStandard, &data)) {
            return LastError();
        }
        out.isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        out.size = Join64(data.nFileSizeHigh, data.nFileSizeLow);
        out.modified = ToUnixMilliseconds(data.ftLastWriteTime);
        if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
            return 0;
        }
        return followLinks ? FollowAttributes(wide, out) : LinkAttributes(wide, out);
    }

    CXNativeError Rename(const CXString& newPath, const CXString& existingPath) override {
        if (HasNul(newPath) || HasNul(existingPath)) {
            return ERROR_INVALID_NAME;
        }
        return ErrorOf(MoveFileExW(WidePath(existingPath), WidePath(newPath), 0));
    }

    CXNativeError MakeDirectory(const CXString& path) override {
        return HasNul(path) ? ERROR_INVALID_NAME
                            : ErrorOf(CreateDirectoryW(WidePath(path), nullptr));
    }

    CXNativeError RemoveFile(const CXString& path) override {
        if (HasNul(path)) {
            return ERROR_INVALID_NAME;
        }
        const WidePath wide(path);
        if (DeleteFileW(wide)) {
            return 0;
        }
        const CXNativeError error = LastError();
        // A link to a folder is removed like a folder; what it leads to stays.
        CXFileAttributes attributes;
        if (error == ERROR_ACCESS_DENIED && GetAttributes(path, false, attributes) == 0 &&
            attributes.isLink && RemoveDirectoryW(wide)) {
            return 0;
        }
        return error;
    }

    CXNativeError RemoveDirectory(const CXString& path) override {
        return HasNul(path) ? ERROR_INVALID_NAME : ErrorOf(RemoveDirectoryW(WidePath(path)));
    }

    CXNativeError List(const CXString& path, std::vector<CXFileEntry>& out) override {
        out.clear();
        if (HasNul(path)) {
            return ERROR_INVALID_NAME;
        }
        WIN32_FIND_DATAW data;
        const HANDLE search = FindFirstFileW(WidePath(CXFileSystem::Join(path, "*")), &data);
        if (search == INVALID_HANDLE_VALUE) {
            // The root of an empty volume holds not even the dot entries.
            return GetLastError() == ERROR_FILE_NOT_FOUND ? 0 : LastError();
        }
        do {
            if (wcscmp(data.cFileName, L".") != 0 && wcscmp(data.cFileName, L"..") != 0) {
                CXFileEntry found;
                found.name = FromUTF16(reinterpret_cast<const char16_t*>(data.cFileName));
                found.isLink = IsLinkTag(data.dwFileAttributes, data.dwReserved0);
                found.isDirectory =
                    !found.isLink && (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
                out.push_back(found);
            }
        } while (FindNextFileW(search, &data));
        const CXNativeError error = LastError();
        FindClose(search);
        std::sort(out.begin(), out.end(),
                  [](const CXFileEntry& a, const CXFileEntry& b) { return a.name.Less(b.name); });
        return error == ERROR_NO_MORE_FILES ? 0 : error;
    }

    CXNativeError ListVolumes(std::vector<CXVolume>& out) override {
        out.clear();
        const QuietDrives quiet;
        wchar_t volume[MAX_PATH] = {};
        const HANDLE search = FindFirstVolumeW(volume, MAX_PATH);
        if (search == INVALID_HANDLE_VALUE) {
            return LastError();
        }
        do {
            AppendVolume(volume, out);
        } while (FindNextVolumeW(search, volume, MAX_PATH));
        const CXNativeError error = LastError();
        FindVolumeClose(search);
        return error == ERROR_NO_MORE_FILES ? 0 : error;
    }

    CXNativeError ResolvePath(const CXString& path, CXString& out) override {
        out.Clear();
        if (HasNul(path)) {
            return ERROR_INVALID_NAME;
        }
        const ScopedHandle handle(OpenForSecurity(path, 0));
        if (!handle.IsOpen()) {
            return LastError();
        }
        std::vector<wchar_t> resolved(MAX_PATH);
        for (;;) {
            const DWORD length = GetFinalPathNameByHandleW(handle.Get(), resolved.data(),
                                                           static_cast<DWORD>(resolved.size()), 0);
            if (length == 0) {
                return LastError();
            }
            if (length < resolved.size()) {
                break;
            }
            resolved.resize(static_cast<size_t>(length) + 1);
        }
        out = ToProgramPath(resolved.data());
        return 0;
    }

    CXNativeError GetPermissions(const CXString& path, CXString& out) override {
        out.Clear();
        if (HasNul(path)) {
            return ERROR_INVALID_NAME;
        }
        const bool audit = EnableSecurityPrivilege();
        const ScopedHandle handle(
            OpenForSecurity(path, READ_CONTROL | (audit ? ACCESS_SYSTEM_SECURITY : 0U)));
        if (!handle.IsOpen()) {
            return LastError();
        }
        const SECURITY_INFORMATION parts = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                           DACL_SECURITY_INFORMATION |
                                           (audit ? SACL_SECURITY_INFORMATION : 0U);
        ScopedLocal descriptor;
        const DWORD error = GetSecurityInfo(handle.Get(), SE_FILE_OBJECT, parts, nullptr, nullptr,
                                            nullptr, nullptr, &descriptor.pointer);
        if (error != ERROR_SUCCESS) {
            return error;
        }
        ScopedLocal text;
        if (!ConvertSecurityDescriptorToStringSecurityDescriptorA(
                descriptor.pointer, SDDL_REVISION_1, parts, reinterpret_cast<char**>(&text.pointer),
                nullptr)) {
            return LastError();
        }
        out = CXString::Format("w32acl:%s", static_cast<const char*>(text.pointer));
        return 0;
    }

    CXNativeError SetPermissions(const CXString& path, const CXString& text) override {
        absl::string_view words = text;
        if (words.substr(0, 7) == "w32acl:") {
            words.remove_prefix(7);
        } else if (words.substr(0, 6) == "win32:") {
            words.remove_prefix(6);
        } else {
            return 0;
        }
        if (HasNul(path)) {
            return ERROR_INVALID_NAME;
        }
        const bool audit = EnableSecurityPrivilege();
        ScopedLocal descriptor;
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(
                CXString(words).GetData(), SDDL_REVISION_1, &descriptor.pointer, nullptr)) {
            return LastError();
        }
        return ApplyDescriptor(path, descriptor.pointer, audit);
    }

    CXNativeError SetMode(const CXString&, uint32_t) override { return 0; }

    CXNativeError RemoveAtReboot(const CXString& path) override {
        return HasNul(path)
                   ? ERROR_INVALID_NAME
                   : ErrorOf(MoveFileExW(WidePath(path), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT));
    }

    CXNativeError MakeLink(const CXString& path, const CXString& target,
                           const CXString& workingFolder, const CXString& name) override {
        if (HasNul(path)) {
            return ERROR_INVALID_NAME;
        }
        const HRESULT entered = CoInitialize(nullptr);
        const CXNativeError error = SaveShellLink(path, target, workingFolder, name);
        if (SUCCEEDED(entered)) {
            CoUninitialize();
        }
        return error;
    }

private:
    /// Attributes of what a link leads to.
    static CXNativeError FollowAttributes(const wchar_t* path, CXFileAttributes& out) {
        const ScopedHandle handle(
            CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        BY_HANDLE_FILE_INFORMATION info = {};
        if (!handle.IsOpen() || !GetFileInformationByHandle(handle.Get(), &info)) {
            return LastError();
        }
        out.isDirectory = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        out.size = Join64(info.nFileSizeHigh, info.nFileSizeLow);
        out.modified = ToUnixMilliseconds(info.ftLastWriteTime);
        return 0;
    }

    /// Tells links from the other reparse points, which are ordinary files and folders to us.
    static CXNativeError LinkAttributes(const wchar_t* path, CXFileAttributes& out) {
        WIN32_FIND_DATAW data;
        const HANDLE search = FindFirstFileW(path, &data);
        if (search == INVALID_HANDLE_VALUE) {
            return LastError();
        }
        FindClose(search);
        out.isLink = IsLinkTag(data.dwFileAttributes, data.dwReserved0);
        out.isDirectory = out.isDirectory && !out.isLink;
        return 0;
    }

    /// Sets the parts that the descriptor holds; the audit list only with the right to.
    static CXNativeError ApplyDescriptor(const CXString& path, PSECURITY_DESCRIPTOR descriptor,
                                         bool audit) {
        PSID owner = nullptr;
        PSID group = nullptr;
        PACL access = nullptr;
        PACL system = nullptr;
        BOOL hasAccess = FALSE;
        BOOL hasSystem = FALSE;
        BOOL defaulted = FALSE;
        SECURITY_DESCRIPTOR_CONTROL control = 0;
        DWORD revision = 0;
        if (!GetSecurityDescriptorOwner(descriptor, &owner, &defaulted) ||
            !GetSecurityDescriptorGroup(descriptor, &group, &defaulted) ||
            !GetSecurityDescriptorDacl(descriptor, &hasAccess, &access, &defaulted) ||
            !GetSecurityDescriptorSacl(descriptor, &hasSystem, &system, &defaulted) ||
            !GetSecurityDescriptorControl(descriptor, &control, &revision)) {
            return LastError();
        }
        SECURITY_INFORMATION parts = 0;
        DWORD rights = READ_CONTROL;
        if (owner != nullptr) {
            parts |= OWNER_SECURITY_INFORMATION;
            rights |= WRITE_OWNER;
        }
        if (group != nullptr) {
            parts |= GROUP_SECURITY_INFORMATION;
            rights |= WRITE_OWNER;
        }
        if (hasAccess) {
            parts |= DACL_SECURITY_INFORMATION |
                     ((control & SE_DACL_PROTECTED) != 0 ? PROTECTED_DACL_SECURITY_INFORMATION
                                                         : UNPROTECTED_DACL_SECURITY_INFORMATION);
            rights |= WRITE_DAC;
        }
        if (hasSystem && audit) {
            parts |= SACL_SECURITY_INFORMATION;
            rights |= ACCESS_SYSTEM_SECURITY;
        }
        const ScopedHandle handle(OpenForSecurity(path, rights));
        if (!handle.IsOpen()) {
            return LastError();
        }
        return SetSecurityInfo(handle.Get(), SE_FILE_OBJECT, parts, owner, group, access, system);
    }

    static CXNativeError SaveShellLink(const CXString& path, const CXString& target,
                                       const CXString& workingFolder, const CXString& name) {
        IShellLinkW* link = nullptr;
        HRESULT result = CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER,
                                          IID_IShellLinkW, reinterpret_cast<void**>(&link));
        if (FAILED(result)) {
            return ErrorOfResult(result);
        }
        IPersistFile* file = nullptr;
        result = link->SetWorkingDirectory(ShellPath(workingFolder));
        if (SUCCEEDED(result)) {
            result = link->SetPath(ShellPath(target));
        }
        if (SUCCEEDED(result)) {
            result =
                link->SetDescription(reinterpret_cast<const wchar_t*>(ToUTF16(name).GetUnits()));
        }
        if (SUCCEEDED(result)) {
            result = link->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file));
        }
        if (SUCCEEDED(result)) {
            result = file->Save(ShellPath(path), TRUE);
            file->Release();
        }
        link->Release();
        return ErrorOfResult(result);
    }

    /// The shell takes backslashes only.
    class ShellPath {
    public:
        explicit ShellPath(const CXString& path) : m_text(ToUTF16(path)) {
            m_units.assign(m_text.GetUnits(), m_text.GetUnits() + m_text.CountUnits());
            std::replace(m_units.begin(), m_units.end(), u'/', u'\\');
            m_units.push_back(0);
        }
        operator const wchar_t*() const { return reinterpret_cast<const wchar_t*>(m_units.data()); }

    private:
        CXStringUTF16 m_text;
        std::vector<char16_t> m_units;
    };
};

} // namespace

CXResult CXResultFromNativeError(CXNativeError error) {
    return CXResultFromWin32Error(error);
}

const CXNativeErrors& CXGetNativeErrors() {
    static const CXNativeErrors errors = {
        ERROR_FILE_NOT_FOUND,    ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED,
        ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION, ERROR_DISK_FULL,
        ERROR_WRITE_FAULT,       ERROR_FILE_EXISTS,    0};
    return errors;
}

CXFileDriver& CXFileDriver::Platform() {
    static Win32FileDriver* driver = new Win32FileDriver;
    return *driver;
}
