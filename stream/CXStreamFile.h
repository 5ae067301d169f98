// A file as a stream, with a shared read and write cache.
#pragma once

#include "core/CXFileDriver.h"
#include "core/CXString.h"
#include "stream/CXStreamCacheHelper.h"

// Bits of the open mode.
inline constexpr uint32_t kOpenRead = 0x01;
inline constexpr uint32_t kOpenWrite = 0x02; ///< read and write access
inline constexpr uint32_t kOpenCreate = 0x08;
inline constexpr uint32_t kOpenTruncate = 0x10;  ///< with create and write: start empty
inline constexpr uint32_t kOpenExclusive = 0x40; ///< with write: no other opener

/// Uses the file driver that is current at `Open`, which must outlive the open file. The destructor
/// closes. Failures of buffered writes show in the last error after `Flush` or `Close`.
class CXStreamFile : public CXStream, protected CXStreamCacheHelper {
public:
    CXStreamFile();
    ~CXStreamFile() override;

    /// Opens the file; a failure leaves the stream closed with its last error set, a success resets
    /// the last error. Without write access writes fail with kCXResultAccessDenied. A path that
    /// this process holds exclusively gives kCXResultInUse on a second exclusive open.
    void Open(const CXString& path, uint32_t mode);
    /// Registers a path for exclusive use without opening anything, until `Close`. False with
    /// kCXResultInUse if it is registered already.
    bool LockFilePath(const CXString& path);
    /// The mode given to the last successful `Open`.
    uint32_t GetOpenMode() const { return m_openMode; }

    uint64_t GetSize() override;
    /// The position is at the new end afterwards.
    void SetSize(uint64_t size) override;
    bool SetOption(uint32_t code, uint64_t value) override;
    void Close() override;
    void Flush(uint32_t options = 0) override;
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;
    /// May pass the end of the file.
    uint64_t BufferedSeek(int64_t position) override;

protected:
    uint64_t RawTell() override;
    uint64_t RawWrite(const void* data, uint64_t count, bool reportErrors) override;
    uint64_t RawRead(void* data, uint64_t count, bool reportErrors) override;
    bool RawSeek(uint64_t position) override;
    uint64_t RawGetSize() override;
    bool RawSetSize(uint64_t size) override;

private:
    void ReleaseExclusivePath();

    CXFileHandle m_file = kCXNoFile;
    uint32_t m_openMode = 0;
    CXString m_exclusivePath;
    CXFileDriver* m_driver = nullptr;
};
