#include "stream/CXStreamFile.h"

#include "core/CXExclusivePaths.h"
#include "core/CXFileSystem.h"

#include <algorithm>

namespace {

constexpr uint32_t kClosedFlags = kCXStreamReadable | kCXStreamWritable | kCXStreamSizeKnown |
                                  kCXStreamCanSkip | kCXStreamSeekable | kCXStreamFileBacked |
                                  kCXStreamSeekWritten;
constexpr uint32_t kExclusiveWrite = kOpenWrite | kOpenExclusive;
constexpr uint32_t kTruncate = kOpenWrite | kOpenCreate | kOpenTruncate;

/// Largest amount handed to the platform in one call.
constexpr uint64_t kLargestCall = 0x8000000;

bool HasAll(uint32_t mode, uint32_t bits) {
    return (mode & bits) == bits;
}

CXFileOpen HowToOpen(uint32_t mode) {
    CXFileOpen how;
    how.access = (mode & kOpenWrite) != 0  ? CXFileOpen::Access::ReadWrite
                 : (mode & kOpenRead) != 0 ? CXFileOpen::Access::Read
                                           : CXFileOpen::Access::None;
    how.creation = HasAll(mode, kTruncate)                  ? CXFileOpen::Creation::CreateAlways
                   : HasAll(mode, kOpenWrite | kOpenCreate) ? CXFileOpen::Creation::OpenAlways
                                                            : CXFileOpen::Creation::OpenExisting;
    how.lockExclusively = HasAll(mode, kExclusiveWrite);
    how.share = how.lockExclusively        ? CXFileOpen::Share::Nothing
                : (mode & kOpenWrite) != 0 ? CXFileOpen::Share::Delete
                                           : CXFileOpen::Share::ReadDelete;
    return how;
}

} // namespace

CXStreamFile::CXStreamFile() : CXStreamCacheHelper(this) {
    m_flags = kClosedFlags;
    m_takesReserve = false;
}

CXStreamFile::~CXStreamFile() {
    CXStreamFile::Close();
}

void CXStreamFile::Open(const CXString& path, uint32_t mode) {
    if (m_file != kCXNoFile) {
        SetError(kCXResultAlreadyOpen);
        return;
    }
    if (path.IsEmpty()) {
        SetError(kCXResultInvalidArgument);
        return;
    }
    const CXString fullPath = CXFileSystem::MakeAbsolute(path);
    const bool exclusive = HasAll(mode, kExclusiveWrite);
    if (exclusive && !LockFilePath(fullPath)) {
        return;
    }
    m_flags |= kCXStreamFileBacked;
    m_driver = &CXFileDriver::Current();
    CXFileHandle file = kCXNoFile;
    const CXNativeError error = m_driver->Open(fullPath, HowToOpen(mode), file);
    if (error != 0) {
        if (exclusive) {
            ReleaseExclusivePath();
        }
        SetError(CXResultCertainFailure(CXResultFromOpenError(error)));
        return;
    }
    m_file = file;
    m_windowOffset = 0;
    m_cachedSize = kUnknownSize;
    if ((mode & kOpenWrite) == 0) {
        m_flags &= ~kCXStreamWritable;
        if ((mode & kOpenRead) == 0) {
            m_flags &= ~kCXStreamReadable;
        }
    }
    const bool truncates = HasAll(mode, kTruncate);
    if (truncates) {
        SetSize(0);
    }
    m_flags |= kCXStreamIsOpen;
    ResetError();
    m_openMode = mode;
    m_cachedSize = truncates ? 0 : kUnknownSize;
}

bool CXStreamFile::LockFilePath(const CXString& path) {
    const CXString fullPath = CXFileSystem::MakeAbsolute(path);
    if (fullPath.IsEmpty()) {
        SetError(kCXResultInvalidArgument);
        return false;
    }
    if (m_exclusivePath == fullPath) {
        return true;
    }
    if (!CXExclusivePaths::Add(fullPath)) {
        SetError(kCXResultInUse);
        return false;
    }
    ReleaseExclusivePath();
    m_exclusivePath = fullPath;
    return true;
}

void CXStreamFile::ReleaseExclusivePath() {
    if (!m_exclusivePath.IsEmpty()) {
        CXExclusivePaths::Remove(m_exclusivePath);
        m_exclusivePath.Clear();
    }
}

void CXStreamFile::Close() {
    if (m_file != kCXNoFile) {
        FlushWindow();
        FreeWindow(0);
        const CXNativeError error = m_driver->Close(m_file);
        if (error != 0) {
            SetError(CXResultFromNativeError(error));
        }
        m_file = kCXNoFile;
    }
    m_flags = kClosedFlags;
    m_cachedSize = kUnknownSize;
    ReleaseExclusivePath();
}

uint64_t CXStreamFile::GetSize() {
    return std::max(RawGetSize(), GetWindowEnd());
}

void CXStreamFile::SetSize(uint64_t size) {
    if (m_file != kCXNoFile && (m_flags & kCXStreamWritable) == 0) {
        SetError(kCXResultAccessDenied);
        return;
    }
    DropWindow();
    m_cachedSize = kUnknownSize;
    RawSetSize(size);
}

bool CXStreamFile::SetOption(uint32_t code, uint64_t value) {
    return CachedSetOption(code, value);
}

void CXStreamFile::Flush(uint32_t options) {
    FlushWindow();
    if ((options & kCXFlushToDevice) != 0 && m_file != kCXNoFile &&
        (m_openMode & kOpenWrite) != 0) {
        SetError(CXResultFromNativeError(m_driver->Flush(m_file)));
    }
}

uint64_t CXStreamFile::BufferedWrite(const void* data, uint64_t count) {
    if (m_file == kCXNoFile) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    return CachedWrite(data, count);
}

uint64_t CXStreamFile::BufferedRead(void* data, uint64_t count) {
    if (m_file == kCXNoFile) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    return CachedRead(data, count);
}

uint64_t CXStreamFile::BufferedSeek(int64_t position) {
    if (m_file == kCXNoFile) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    return CachedSeek(position);
}

uint64_t CXStreamFile::RawTell() {
    uint64_t position = 0;
    if (m_file != kCXNoFile) {
        SetError(CXResultFromNativeError(m_driver->Tell(m_file, position)));
    }
    return position;
}

uint64_t CXStreamFile::RawWrite(const void* data, uint64_t count, bool /*reportErrors*/) {
    const uint8_t* from = static_cast<const uint8_t*>(data);
    uint64_t done = 0;
    while (done < count) {
        uint64_t put = 0;
        const CXNativeError error =
            m_driver->Write(m_file, from + done, std::min(count - done, kLargestCall), put);
        done += put;
        if (error != 0) {
            SetError(CXResultFromNativeError(error));
            break;
        }
        if (put == 0) {
            // Some systems report a full disk as a success that moved nothing.
            SetError(kCXResultNoResources);
            break;
        }
    }
    return done;
}

uint64_t CXStreamFile::RawRead(void* data, uint64_t count, bool reportErrors) {
    uint8_t* to = static_cast<uint8_t*>(data);
    uint64_t done = 0;
    while (done < count) {
        uint64_t got = 0;
        const CXNativeError error =
            m_driver->Read(m_file, to + done, std::min(count - done, kLargestCall), got);
        done += got;
        if (error != 0) {
            SetError(CXResultFromNativeError(error));
            break;
        }
        if (got == 0) {
            if (reportErrors) {
                MarkEnd();
            }
            break;
        }
    }
    return done;
}

bool CXStreamFile::RawSeek(uint64_t position) {
    const CXNativeError error = m_driver->Seek(m_file, position);
    SetError(CXResultFromNativeError(error));
    return error == 0;
}

uint64_t CXStreamFile::RawGetSize() {
    if (m_file == kCXNoFile) {
        return 0;
    }
    if (m_cachedSize == kUnknownSize) {
        uint64_t size = 0;
        const CXNativeError error = m_driver->GetSize(m_file, size);
        if (error != 0) {
            SetError(CXResultFromNativeError(error));
            return 0;
        }
        m_cachedSize = size;
    }
    return m_cachedSize;
}

bool CXStreamFile::RawSetSize(uint64_t size) {
    if (m_file == kCXNoFile || size > static_cast<uint64_t>(INT64_MAX)) {
        SetError(m_file == kCXNoFile ? kCXResultNotOpen : kCXResultInvalidArgument);
        return false;
    }
    // A position of 0 is also the answer of a failed seek.
    if (BufferedSeek(static_cast<int64_t>(size)) != size || RawTell() != size) {
        return false;
    }
    const CXNativeError error = m_driver->SetEnd(m_file);
    if (error != 0) {
        SetError(CXResultFromNativeError(error));
        return false;
    }
    m_cachedSize = size;
    return true;
}
