// The read and write cache that file and concatenated streams share.
#pragma once

#include "stream/CXStream.h"

#include <cstdint>

/// Held as a second base beside CXStream; it drives the window of its owner. The window is either a
/// read window (write limit at its base) or a write window (read limit at its base). Between calls
/// the raw position stands at the end of a read window, or at the base of a write window.
/// Transfers of more than half the buffer go straight to the raw layer.
class CXStreamCacheHelper {
public:
    virtual ~CXStreamCacheHelper();
    CXStreamCacheHelper(const CXStreamCacheHelper&) = delete;
    CXStreamCacheHelper& operator=(const CXStreamCacheHelper&) = delete;

protected:
    explicit CXStreamCacheHelper(CXStream* owner) : m_owner(owner) {}

    // ---- The raw access, in slot order ----

    virtual uint64_t RawTell() = 0;
    /// Returns the bytes moved. A platform error is always stored in the owner; with `reportErrors`
    /// the end of a read is stored as well.
    virtual uint64_t RawWrite(const void* data, uint64_t count, bool reportErrors) = 0;
    virtual uint64_t RawRead(void* data, uint64_t count, bool reportErrors) = 0;
    /// False with the owner's error set on failure.
    virtual bool RawSeek(uint64_t position) = 0;
    virtual uint64_t RawGetSize() = 0;
    virtual bool RawSetSize(uint64_t size) = 0;

    // ---- The cached operations ----

    uint64_t CachedRead(void* data, uint64_t count);
    uint64_t CachedWrite(const void* data, uint64_t count);
    /// Writes out and drops the window and moves the raw position; 0 with the error set on failure,
    /// the position is then what it was.
    uint64_t CachedSeek(int64_t position);
    /// "FRDO", "FRDS", "FWBS"; false for any other code.
    bool CachedSetOption(uint32_t code, uint64_t value);
    /// Writes out a write window, which stays as an empty one.
    void FlushWindow();
    /// Gives a read window up and moves the raw position to the logical one. False with the error
    /// set if that can't be; the window then stays.
    bool Synchronise();
    /// Writes out a write window, gives any window up, and brings the raw position to the logical
    /// one.
    void DropWindow();
    /// Frees the window without a look at the raw layer; the logical position becomes `position`.
    void FreeWindow(uint64_t position);
    /// Position behind the data that waits in a write window; 0 without any.
    uint64_t GetWindowEnd() const;

    static constexpr uint64_t kUnknownSize = ~static_cast<uint64_t>(0);

    uint64_t m_cachedSize = kUnknownSize;
    CXStream* m_owner;
    uint64_t m_writeBufferSize = 4096;
    uint64_t m_readBufferSize = 4096;
    uint64_t m_readOverlap = 128;
    uint64_t m_largestTransfer = ~static_cast<uint64_t>(0);

private:
    bool HasWriteWindow() const;
    bool HasReadWindow() const;
    bool AllocateWindow(uint64_t size);
    bool Refill();
    uint64_t CopyFromWindow(uint8_t* data, uint64_t count);
    uint64_t ReadStraight(uint8_t* data, uint64_t count);
    void RaiseCachedSize(uint64_t end);

    uint64_t m_bufferSize = 0; ///< bytes allocated for the window
};
