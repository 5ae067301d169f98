#include "core/CXFileDriver.h"
#include "core/CXFileSystem.h"
#include "core/CXPlatformText.h"
#include "core/CXStringEdit.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

/// Largest single transfer in bytes; the kernel takes no more than 2 GiB at once.
constexpr uint64_t kMaxTransfer = 0x40000000;

CXNativeError LastError() {
    return static_cast<CXNativeError>(errno);
}

/// 0 for a call that answered 0, else errno.
CXNativeError ErrorOf(int result) {
    return result == 0 ? 0 : LastError();
}

int FdOf(CXFileHandle file) {
    return static_cast<int>(file);
}

/// A NUL inside a path would silently name another file.
bool HasNul(const CXString& path) {
    return path.View().find('\0') != absl::string_view::npos;
}

bool ReadWholeFile(const char* path, CXStringEdit& out) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char piece[4096];
    ssize_t got = 0;
    while ((got = read(fd, piece, sizeof piece)) > 0 || (got < 0 && errno == EINTR)) {
        if (got > 0) {
            out.Append(absl::string_view(piece, static_cast<size_t>(got)));
        }
    }
    close(fd);
    return got == 0;
}

CXNativeError WriteAll(int fd, absl::string_view text) {
    while (!text.empty()) {
        const ssize_t put = write(fd, text.data(), text.size());
        if (put < 0 && errno != EINTR) {
            return LastError();
        }
        text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(put, 0)));
    }
    return 0;
}

/// Where the kernel or file system can't rename without replacing, a test comes before the rename.
CXNativeError RenameTested(const char* newPath, const char* existingPath) {
    struct stat info;
    if (lstat(newPath, &info) == 0) {
        return EEXIST;
    }
    return ErrorOf(rename(existingPath, newPath));
}

class PosixFileDriver final : public CXFileDriver {
public:
    CXNativeError Open(const CXString& path, const CXFileOpen& how, CXFileHandle& out) override {
        out = kCXNoFile;
        if (HasNul(path)) {
            return EINVAL;
        }
        // Without O_NONBLOCK the opening of a pipe would wait for its other end.
        int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
        switch (how.access) {
        case CXFileOpen::Access::None:
            flags = O_PATH | O_CLOEXEC;
            break;
        case CXFileOpen::Access::Read:
            flags |= O_RDONLY;
            break;
        case CXFileOpen::Access::ReadWrite:
            flags |= O_RDWR;
            break;
        }
        // The contents of a file that is locked elsewhere must survive: empty it after the lock.
        bool emptyLater = false;
        switch (how.creation) {
        case CXFileOpen::Creation::OpenExisting:
            break;
        case CXFileOpen::Creation::OpenAlways:
            flags |= O_CREAT;
            break;
        case CXFileOpen::Creation::CreateAlways:
            flags |= O_CREAT | (how.lockExclusively ? 0 : O_TRUNC);
            emptyLater = how.lockExclusively;
            break;
        case CXFileOpen::Creation::CreateNew:
            flags |= O_CREAT | O_EXCL;
            break;
        }
        int fd = -1;
        do {
            fd = open(path.GetData(), flags, 0666);
        } while (fd < 0 && errno == EINTR);
        if (fd < 0) {
            return LastError();
        }
        const CXNativeError error = Settle(fd, how, emptyLater);
        if (error != 0) {
            close(fd);
            return error;
        }
        out = fd;
        return 0;
    }

    CXNativeError Close(CXFileHandle file) override { return ErrorOf(close(FdOf(file))); }

    CXNativeError Read(CXFileHandle file, void* data, uint64_t count, uint64_t& done) override {
        ssize_t got = 0;
        do {
            got = read(FdOf(file), data, static_cast<size_t>(std::min(count, kMaxTransfer)));
        } while (got < 0 && errno == EINTR);
        done = got > 0 ? static_cast<uint64_t>(got) : 0;
        return got < 0 ? LastError() : 0;
    }

    CXNativeError Write(CXFileHandle file, const void* data, uint64_t count,
                        uint64_t& done) override {
        ssize_t put = 0;
        do {
            put = write(FdOf(file), data, static_cast<size_t>(std::min(count, kMaxTransfer)));
        } while (put < 0 && errno == EINTR);
        done = put > 0 ? static_cast<uint64_t>(put) : 0;
        return put < 0 ? LastError() : 0;
    }

    CXNativeError Seek(CXFileHandle file, uint64_t position) override {
        return lseek(FdOf(file), static_cast<off_t>(position), SEEK_SET) < 0 ? LastError() : 0;
    }

    CXNativeError Tell(CXFileHandle file, uint64_t& position) override {
        const off_t at = lseek(FdOf(file), 0, SEEK_CUR);
        position = at < 0 ? 0 : static_cast<uint64_t>(at);
        return at < 0 ? LastError() : 0;
    }

    CXNativeError GetSize(CXFileHandle file, uint64_t& size) override {
        struct stat info;
        size = 0;
        if (fstat(FdOf(file), &info) != 0) {
            return LastError();
        }
        size = static_cast<uint64_t>(info.st_size);
        return 0;
    }

    CXNativeError SetEnd(CXFileHandle file) override {
        const off_t at = lseek(FdOf(file), 0, SEEK_CUR);
        return at < 0 ? LastError() : ErrorOf(ftruncate(FdOf(file), at));
    }

    CXNativeError Flush(CXFileHandle file) override { return ErrorOf(fsync(FdOf(file))); }

    CXNativeError GetAttributes(const CXString& path, bool followLinks,
                                CXFileAttributes& out) override {
        struct stat info;
        out = CXFileAttributes();
        if (HasNul(path)) {
            return EINVAL;
        }
        if ((followLinks ? stat(path.GetData(), &info) : lstat(path.GetData(), &info)) != 0) {
            return LastError();
        }
        out.isDirectory = S_ISDIR(info.st_mode);
        out.isLink = S_ISLNK(info.st_mode);
        out.size = static_cast<uint64_t>(info.st_size);
        out.mode = info.st_mode & 07777U;
        out.modified = static_cast<int64_t>(info.st_mtim.tv_sec) * 1000 +
                       static_cast<int64_t>(info.st_mtim.tv_nsec) / 1000000;
        out.device = info.st_dev;
        out.serial = info.st_ino;
        return 0;
    }

    CXNativeError Rename(const CXString& newPath, const CXString& existingPath) override {
        if (HasNul(newPath) || HasNul(existingPath)) {
            return EINVAL;
        }
        if (renameat2(AT_FDCWD, existingPath.GetData(), AT_FDCWD, newPath.GetData(),
                      RENAME_NOREPLACE) == 0) {
            return 0;
        }
        return errno == ENOSYS || errno == EINVAL
                   ? RenameTested(newPath.GetData(), existingPath.GetData())
                   : LastError();
    }

    CXNativeError MakeDirectory(const CXString& path) override {
        return HasNul(path) ? EINVAL : ErrorOf(mkdir(path.GetData(), 0777));
    }

    CXNativeError RemoveFile(const CXString& path) override {
        return HasNul(path) ? EINVAL : ErrorOf(unlink(path.GetData()));
    }

    CXNativeError RemoveDirectory(const CXString& path) override {
        if (HasNul(path)) {
            return EINVAL;
        }
        const CXNativeError error = ErrorOf(rmdir(path.GetData()));
        // Some file systems call a folder that isn't empty an existing one.
        return error == EEXIST ? ENOTEMPTY : error;
    }

    CXNativeError List(const CXString& path, std::vector<CXFileEntry>& out) override {
        out.clear();
        DIR* folder = HasNul(path) ? nullptr : opendir(path.GetData());
        if (folder == nullptr) {
            return HasNul(path) ? EINVAL : LastError();
        }
        errno = 0;
        while (const dirent* entry = readdir(folder)) {
            const absl::string_view name(entry->d_name);
            if (name != "." && name != "..") {
                CXFileEntry found;
                found.name = CXString(name);
                found.isDirectory = entry->d_type == DT_DIR;
                found.isLink = entry->d_type == DT_LNK;
                struct stat info;
                if (entry->d_type == DT_UNKNOWN &&
                    fstatat(dirfd(folder), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0) {
                    found.isDirectory = S_ISDIR(info.st_mode);
                    found.isLink = S_ISLNK(info.st_mode);
                }
                out.push_back(found);
            }
            errno = 0;
        }
        const CXNativeError error = LastError();
        closedir(folder);
        std::sort(out.begin(), out.end(),
                  [](const CXFileEntry& a, const CXFileEntry& b) { return a.name.Less(b.name); });
        return error;
    }

    CXNativeError ListVolumes(std::vector<CXVolume>& out) override {
        out.clear();
        CXStringEdit table;
        if (!ReadWholeFile("/proc/self/mountinfo", table)) {
            return LastError();
        }
        for (const CXString& mount : ParseMountInfo(table)) {
            struct statvfs info;
            if (statvfs(mount.GetData(), &info) == 0) {
                out.push_back({mount, static_cast<uint64_t>(info.f_bavail) * info.f_frsize});
            }
        }
        return 0;
    }

    CXNativeError ResolvePath(const CXString& path, CXString& out) override {
        out.Clear();
        char* resolved = HasNul(path) ? nullptr : realpath(path.GetData(), nullptr);
        if (resolved == nullptr) {
            return HasNul(path) ? EINVAL : LastError();
        }
        out = CXString(resolved);
        free(resolved);
        return 0;
    }

    CXNativeError GetPermissions(const CXString& path, CXString& out) override {
        CXFileAttributes attributes;
        const CXNativeError error = GetAttributes(path, true, attributes);
        out = error == 0 ? CXString::Format("posix:%04o", attributes.mode) : CXString();
        return error;
    }

    CXNativeError SetPermissions(const CXString& path, const CXString& text) override {
        uint32_t mode = 0;
        return CXFileSystem::ParsePosixPermissions(text, mode) ? SetMode(path, mode) : 0;
    }

    CXNativeError SetMode(const CXString& path, uint32_t mode) override {
        return HasNul(path) ? EINVAL
                            : ErrorOf(chmod(path.GetData(), static_cast<mode_t>(mode & 07777U)));
    }

    CXNativeError RemoveAtReboot(const CXString&) override { return ENOTSUP; }

    CXNativeError MakeLink(const CXString& path, const CXString& target,
                           const CXString& workingFolder, const CXString& name) override {
        if (HasNul(path)) {
            return EINVAL;
        }
        // File managers start an entry outside the menus only if it may be executed.
        const int fd = open(path.GetData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0755);
        if (fd < 0) {
            return LastError();
        }
        const CXNativeError error = WriteAll(fd, MakeDesktopEntry(name, target, workingFolder));
        close(fd);
        return error;
    }

private:
    /// What is left to do once a descriptor is there.
    static CXNativeError Settle(int fd, const CXFileOpen& how, bool emptyLater) {
        if (how.access == CXFileOpen::Access::None) {
            return 0;
        }
        struct stat info;
        if (fstat(fd, &info) != 0) {
            return LastError();
        }
        if (S_ISDIR(info.st_mode)) {
            return EISDIR;
        }
        if (!S_ISREG(info.st_mode)) {
            // Pipes and terminals are read in the ordinary, waiting way.
            const int flags = fcntl(fd, F_GETFL);
            return flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0 ? LastError() : 0;
        }
        if (how.lockExclusively && flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            return EWOULDBLOCK;
        }
        return emptyLater ? ErrorOf(ftruncate(fd, 0)) : 0;
    }
};

} // namespace

CXResult CXResultFromNativeError(CXNativeError error) {
    return CXResultFromErrno(static_cast<int>(error));
}

const CXNativeErrors& CXGetNativeErrors() {
    static const CXNativeErrors errors = {ENOENT, ENOTDIR, EACCES, EBUSY,      ETXTBSY,
                                          ENOSPC, EIO,     EEXIST, EWOULDBLOCK};
    return errors;
}

CXFileDriver& CXFileDriver::Platform() {
    static PosixFileDriver* driver = new PosixFileDriver;
    return *driver;
}
