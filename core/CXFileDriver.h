// The seam to the platform's files: one narrow virtual interface under CXFileSystem and
// CXStreamFile. Tests wrap the platform's driver in one that counts, fails or logs calls.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>
#include <memory>
#include <vector>

/// A number of the platform's own (errno, GetLastError); 0 is success.
using CXNativeError = uint32_t;
/// An open file of a driver; kCXNoFile when closed.
using CXFileHandle = int64_t;
inline constexpr CXFileHandle kCXNoFile = -1;

/// Converts a platform error by the platform's table; 0 gives success.
CXResult CXResultFromNativeError(CXNativeError error);
/// The same for an opening: an advisory lock that another process holds is kCXResultInUse.
CXResult CXResultFromOpenError(CXNativeError error);
/// The same for a deletion: an object that is in use is kCXResultInUse, so that callers may retry.
CXResult CXResultFromDeleteError(CXNativeError error);

/// Platform numbers of some conditions, for tests and shared decisions.
struct CXNativeErrors {
    CXNativeError notFound;
    CXNativeError pathNotFound;
    CXNativeError accessDenied;
    CXNativeError busy; ///< sharing violation, or the object is in use
    CXNativeError busyOther;
    CXNativeError diskFull;
    CXNativeError deviceFault;
    CXNativeError exists;
    CXNativeError lockHeld; ///< another process holds the advisory lock; 0 where there is none
};
/// Those of the system that this is built for.
const CXNativeErrors& CXGetNativeErrors();

/// How a file is to be opened.
struct CXFileOpen {
    enum class Access : uint8_t { None, Read, ReadWrite };
    enum class Creation : uint8_t { OpenExisting, OpenAlways, CreateAlways, CreateNew };
    enum class Share : uint8_t { Nothing, Delete, ReadDelete };
    Access access = Access::Read;
    Creation creation = Creation::OpenExisting;
    Share share = Share::ReadDelete;
    bool lockExclusively = false; ///< also take the platform's advisory whole-file lock
};

/// What the platform says of a path.
struct CXFileAttributes {
    bool isDirectory = false; ///< a link to a folder is one only when links are followed
    bool isLink = false;      ///< symbolic link or junction (only when links aren't followed)
    uint64_t size = 0;
    uint32_t mode = 0;    ///< POSIX permission bits; 0 elsewhere
    int64_t modified = 0; ///< ms since the Unix epoch
    uint64_t device = 0;  ///< with `serial` tells files apart
    uint64_t serial = 0;  ///< 0 where the sharing rules of openings keep a file from two uses
};

/// One entry of a folder.
struct CXFileEntry {
    CXString name;
    bool isDirectory = false; ///< a link to a folder is no folder here
    bool isLink = false;
};

/// One mounted storage volume.
struct CXVolume {
    CXString mountPath; ///< program form, for example "/" or "C:/"
    uint64_t freeBytes = 0;
};

/// Virtual interface to files. Paths are absolute or relative program paths ("/" as separator);
/// the driver makes the platform form; a NUL byte in a path is refused. Every call returns the
/// platform's error number, 0 for success. Any thread; one handle is used by one thread at a time.
class CXFileDriver {
public:
    virtual ~CXFileDriver() = default;

    /// `out` is a handle that `Close` ends, or kCXNoFile. A folder is no file to read or write.
    virtual CXNativeError Open(const CXString& path, const CXFileOpen& how, CXFileHandle& out) = 0;
    virtual CXNativeError Close(CXFileHandle file) = 0;
    /// One transfer at the current position; `done` may be short. The end is 0 bytes, no error.
    /// A short write may come with an error; one of 0 bytes without an error is a full disk too.
    virtual CXNativeError Read(CXFileHandle file, void* data, uint64_t count, uint64_t& done) = 0;
    virtual CXNativeError Write(CXFileHandle file, const void* data, uint64_t count,
                                uint64_t& done) = 0;
    /// Absolute position from the start.
    virtual CXNativeError Seek(CXFileHandle file, uint64_t position) = 0;
    virtual CXNativeError Tell(CXFileHandle file, uint64_t& position) = 0;
    virtual CXNativeError GetSize(CXFileHandle file, uint64_t& size) = 0;
    /// Sets the end of the file at the current position.
    virtual CXNativeError SetEnd(CXFileHandle file) = 0;
    /// Forces data to the device.
    virtual CXNativeError Flush(CXFileHandle file) = 0;

    /// A link's own attributes, or those of what it leads to.
    virtual CXNativeError GetAttributes(const CXString& path, bool followLinks,
                                        CXFileAttributes& out) = 0;
    /// Fails if `newPath` exists.
    virtual CXNativeError Rename(const CXString& newPath, const CXString& existingPath) = 0;
    /// One level; an existing folder is the platform's "exists" error.
    virtual CXNativeError MakeDirectory(const CXString& path) = 0;
    /// A file or a link; never what a link leads to.
    virtual CXNativeError RemoveFile(const CXString& path) = 0;
    /// Empty folders only.
    virtual CXNativeError RemoveDirectory(const CXString& path) = 0;
    /// Entries without "." and "..", sorted by bytes.
    virtual CXNativeError List(const CXString& path, std::vector<CXFileEntry>& out) = 0;
    /// What is mounted, with the bytes that this user may still fill.
    virtual CXNativeError ListVolumes(std::vector<CXVolume>& out) = 0;
    /// The path with all links resolved, in program form.
    virtual CXNativeError ResolvePath(const CXString& path, CXString& out) = 0;
    /// The permission text of this platform: "w32acl:..." or "posix:0755".
    virtual CXNativeError GetPermissions(const CXString& path, CXString& out) = 0;
    /// Applies a text that belongs to this platform; any other is success without a change.
    virtual CXNativeError SetPermissions(const CXString& path, const CXString& text) = 0;
    /// Gives `path` the permission bits `mode` (no effect where the platform has none).
    virtual CXNativeError SetMode(const CXString& path, uint32_t mode) = 0;
    /// Marks for removal at the next start of the system where that exists.
    virtual CXNativeError RemoveAtReboot(const CXString& path) = 0;
    /// Makes a shortcut to `target` at `path` (shell link, or desktop entry).
    virtual CXNativeError MakeLink(const CXString& path, const CXString& target,
                                   const CXString& workingFolder, const CXString& name) = 0;

    /// The driver in use; the platform's own unless replaced.
    static CXFileDriver& Current();
    /// Replaces the driver (not owned; null restores the platform's). Returns the earlier one.
    static CXFileDriver* SetCurrent(CXFileDriver* driver);
    /// The platform's own driver.
    static CXFileDriver& Platform();
};
