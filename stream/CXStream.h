// The abstract byte stream under all file, memory, network and compression I/O.
//
// Every stream publishes a window onto its buffer in public fields, so that a read or write of a
// few bytes is a pointer comparison and a copy. Only when the window can't serve a request does a
// virtual operation run. One object is used by one thread at a time.
#pragma once

#include "core/CXRelaxed.h"
#include "core/CXResult.h"
#include "runtime/CXGenericEventSource.h"

#include <cstdint>
#include <cstring>
#include <functional>

// Capability and state bits of a stream.
inline constexpr uint32_t kCXStreamReadable = 0x001;
inline constexpr uint32_t kCXStreamWritable = 0x002;
inline constexpr uint32_t kCXStreamSizeKnown = 0x004;
inline constexpr uint32_t kCXStreamCanSkip = 0x008; ///< can skip forward by seeking
inline constexpr uint32_t kCXStreamSeekable = 0x010;
inline constexpr uint32_t kCXStreamFileBacked = 0x020;  ///< file open in progress or done
inline constexpr uint32_t kCXStreamSizeIsRest = 0x040;  ///< size tells the bytes available
inline constexpr uint32_t kCXStreamSeekWritten = 0x080; ///< seeks within the written window
inline constexpr uint32_t kCXStreamIsOpen = 0x100;
inline constexpr uint32_t kCXStreamEnd = 0x200; ///< a short read met the end; each seek clears it
/// A read of a socket stream returns after the first data that came; see `SetFlagsUnderMask`.
inline constexpr uint32_t kCXStreamPartialReads = 0x400;

// Option codes of `SetOption`; the values are bytes.
inline constexpr uint32_t kCXStreamOptionWriteBuffer = 0x46574253; ///< "FWBS"
inline constexpr uint32_t kCXStreamOptionReadBuffer = 0x46524453;  ///< "FRDS"
inline constexpr uint32_t kCXStreamOptionOverlap = 0x4652444F;     ///< "FRDO"
inline constexpr uint32_t kCXStreamOptionReserve = 0x52455356;     ///< "RESV"

// What a seek's offset counts from.
inline constexpr int kCXSeekStart = 0;
inline constexpr int kCXSeekRelative = 1;
inline constexpr int kCXSeekEnd = 2;

// Event numbers of a stream; any other number gives an event that always holds.
inline constexpr uint32_t kCXStreamEventCanRead = 1;
inline constexpr uint32_t kCXStreamEventNotOpen = 3;

/// Asks `Flush` that the data reach the device.
inline constexpr uint32_t kCXFlushToDevice = 0x1;

/// What a copy tells its progress function.
struct CXStreamProgressCallbackData {
    int64_t startTime;   ///< ms since the Unix epoch
    float fraction;      ///< 0 to 1
    uint8_t sizeUnknown; ///< 1 where the whole is not known and the fraction means nothing, else 0
    uint64_t bytesDone;
    uint64_t bytesTotal;
};

/// What a copy may be given besides its streams.
struct CXStreamCopyOptions {
    /// Called after each piece; false ends the copy with kCXResultCancelled.
    std::function<bool(const CXStreamProgressCallbackData&)> progress;
};

/// Operations return byte counts; a count below the request means look at `GetLastError`. The last
/// error is sticky: successes don't clear it, only opening and `ResetError` do. A failure doesn't
/// close the stream, and later operations are attempted.
class CXStream : public CXGenericEventSource {
public:
    CXStream() = default;
    ~CXStream() override;

    // ---- Virtual operations, in slot order ----

    /// Numbers kCXStreamEventCanRead and kCXStreamEventNotOpen tell the stream's state. To be
    /// tested on the thread that uses the stream.
    CXGenericEvent* CreateEvent(uint32_t number) override;
    /// Size in bytes: of the whole, or with kCXStreamSizeIsRest of what can be read. 0 if unknown.
    virtual uint64_t GetSize();
    /// Changes the size; where the position is afterwards is up to the kind of stream.
    virtual void SetSize(uint64_t size);
    /// Entry for callers that hold the stream without its inline operations; the same as `Write`.
    virtual uint64_t WriteUnbuffered(const void* data, uint64_t count);
    /// Sets the bits of `mask` to those of `value`, in streams that know such bits.
    virtual void SetFlagsUnderMask(uint32_t value, uint32_t mask);
    /// True if the stream took the option.
    virtual bool SetOption(uint32_t code, uint64_t value);
    /// Reserved; false.
    virtual bool QueryReserved();
    /// Ends the use; the base stores kCXResultNotSupported.
    virtual void Close();
    /// Hands buffered data on; see kCXFlushToDevice.
    virtual void Flush(uint32_t options = 0);
    /// What `Write`, `Read` and `Seek` call when the window can't serve.
    virtual uint64_t BufferedWrite(const void* data, uint64_t count);
    virtual uint64_t BufferedRead(void* data, uint64_t count);
    /// Returns the position reached; 0 with the error set on failure.
    virtual uint64_t BufferedSeek(int64_t position);

    // ---- Inline operations ----

    /// Returns the bytes read. A short count at the end stores kCXResultEndOfStream and
    /// kCXStreamEnd.
    uint64_t Read(void* data, uint64_t count) {
        if (HoldsInWindow(count)) {
            if (count != 0) {
                std::memcpy(data, m_cursor, static_cast<size_t>(count));
            }
            m_cursor += count;
            return count;
        }
        return BufferedRead(data, count);
    }

    /// Returns the bytes written.
    uint64_t Write(const void* data, uint64_t count) {
        uint64_t written;
        if (HasRoomInWindow(count)) {
            if (count < 9) {
                const uint8_t* from = static_cast<const uint8_t*>(data);
                for (uint64_t i = 0; i < count; ++i) {
                    m_cursor[i] = from[i];
                }
            } else {
                std::memcpy(m_cursor, data, static_cast<size_t>(count));
            }
            m_cursor += count;
            written = count;
        } else {
            written = BufferedWrite(data, count);
        }
        if (m_writtenEnd < m_cursor) {
            m_writtenEnd = m_cursor;
        }
        return written;
    }

    /// Moves the position and clears kCXStreamEnd (but not the error). Within the window no virtual
    /// call is made. Returns the new position; an unknown whence does nothing more and returns 0.
    uint64_t Seek(int64_t offset, int whence) {
        if (IsAtEnd()) {
            m_flags &= ~kCXStreamEnd;
        }
        const uint64_t position = GetPosition();
        uint64_t target = static_cast<uint64_t>(offset);
        if (whence == kCXSeekRelative) {
            target += position;
        } else if (whence == kCXSeekEnd) {
            target += GetSize();
        } else if (whence != kCXSeekStart) {
            return 0;
        }
        const bool hasRead = m_readLimit > m_windowBase;
        const bool hasWritten =
            (m_flags & kCXStreamSeekWritten) != 0 && m_writtenEnd > m_windowBase;
        if (m_windowBase == nullptr || m_cursor < m_windowBase || (!hasRead && !hasWritten)) {
            return BufferedSeek(static_cast<int64_t>(target));
        }
        const int64_t distance = static_cast<int64_t>(target - position);
        if (distance == 0) {
            return target;
        }
        if (distance < 0) {
            if (0 - static_cast<uint64_t>(distance) <=
                static_cast<uint64_t>(m_cursor - m_windowBase)) {
                m_cursor += distance;
                return target;
            }
        } else {
            const uint8_t* limit = hasRead ? m_readLimit : m_writtenEnd;
            if (limit > m_cursor && distance <= limit - m_cursor) {
                m_cursor += distance;
                return target;
            }
        }
        return BufferedSeek(static_cast<int64_t>(target));
    }

    /// Passes over `count` bytes: by seeking forward (then the end may be passed unnoticed), or by
    /// reading them off. Returns the bytes passed.
    uint64_t Skip(uint64_t count);

    uint64_t GetPosition() const {
        return m_windowOffset + static_cast<uint64_t>(m_cursor - m_windowBase);
    }
    /// True if `GetRemaining` can answer.
    bool IsRemainingKnown() const {
        return (m_flags & (kCXStreamSizeKnown | kCXStreamSeekable)) ==
                   (kCXStreamSizeKnown | kCXStreamSeekable) ||
               (m_flags & (kCXStreamSizeKnown | kCXStreamSizeIsRest)) ==
                   (kCXStreamSizeKnown | kCXStreamSizeIsRest);
    }
    /// Bytes between the position and the end (0 behind the end). Where they can't be known it sets
    /// kCXResultNotSupported and returns 0.
    uint64_t GetRemaining();

    uint32_t GetFlags() const { return m_flags; }
    bool IsOpen() const { return (m_flags & kCXStreamIsOpen) != 0; }
    /// True once a short read met the end, until the next seek.
    bool IsAtEnd() const { return (m_flags & kCXStreamEnd) != 0; }
    void ClearEnd() { m_flags &= ~kCXStreamEnd; }
    /// Stores a failure; a success changes nothing.
    void SetError(CXResult result) {
        if (result != kCXResultOK) {
            m_lastError = result;
        }
    }
    CXResult GetLastError() const { return m_lastError; }
    void ResetError() { m_lastError = kCXResultOK; }

    // Big-endian integers. False (and an output of 0) when fewer bytes could be moved.
    bool ReadU8(uint8_t& out);
    bool ReadU32(uint32_t& out);
    bool ReadU64(uint64_t& out);
    bool WriteU8(uint8_t value);
    bool WriteU32(uint32_t value);
    bool WriteU64(uint64_t value);

    /// Moves `count` bytes from the source's position to the destination's in pieces of at most
    /// 16,384 bytes, announcing the count to the destination first. Fails with the last error of
    /// the stream that fell short, or kCXResultFailed; bytes already written stay written.
    static CXResult Copy(CXStream& destination, CXStream& source, uint64_t count,
                         const CXStreamCopyOptions* options = nullptr) {
        if (options == nullptr && !destination.m_takesReserve && source.HoldsInWindow(count) &&
            destination.HasRoomInWindow(count)) {
            CopyWindow(destination, source, static_cast<size_t>(count));
            return kCXResultOK;
        }
        return CopyPieces(destination, source, count, options);
    }

    // ---- The window; derived classes keep it correct after every call ----

    // Streams that cross threads are closed by one thread while another asks for these two.
    CXRelaxed<uint32_t> m_flags =
        kCXStreamReadable | kCXStreamSizeKnown | kCXStreamSeekable | kCXStreamSizeIsRest;
    CXRelaxed<CXResult> m_lastError = kCXResultOK;
    uint8_t* m_windowBase = nullptr; ///< null: no window
    uint8_t* m_cursor = nullptr;     ///< next byte to read or write
    uint8_t* m_writeLimit = nullptr; ///< end of the room for writes
    uint8_t* m_writtenEnd = nullptr; ///< high-water mark of bytes written into the window
    uint8_t* m_readLimit = nullptr;  ///< end of the bytes that may be read
    uint64_t m_windowOffset = 0;     ///< position in the stream of the window's start
    /// False: `SetOption` does nothing with kCXStreamOptionReserve, so a copy that fits the windows
    /// doesn't call it. Such a stream is never both windows of one copy.
    bool m_takesReserve = true;

protected:
    /// A short read met the end.
    void MarkEnd() {
        SetError(kCXResultEndOfStream);
        m_flags |= kCXStreamEnd;
    }
    /// No window; the position becomes `position`.
    void ClearWindow(uint64_t position) {
        m_windowBase = m_cursor = m_writeLimit = m_writtenEnd = m_readLimit = nullptr;
        m_windowOffset = position;
    }

private:
    bool HoldsInWindow(uint64_t count) const {
        return m_windowBase != nullptr && m_cursor >= m_windowBase && m_readLimit >= m_cursor &&
               count <= static_cast<uint64_t>(m_readLimit - m_cursor);
    }
    bool HasRoomInWindow(uint64_t count) const {
        return m_windowBase != nullptr && m_cursor >= m_windowBase && m_writeLimit >= m_cursor &&
               count <= static_cast<uint64_t>(m_writeLimit - m_cursor);
    }
    static void CopyWindow(CXStream& destination, CXStream& source, size_t count) {
        std::memcpy(destination.m_cursor, source.m_cursor, count);
        source.m_cursor += count;
        destination.m_cursor += count;
        if (destination.m_writtenEnd < destination.m_cursor) {
            destination.m_writtenEnd = destination.m_cursor;
        }
    }
    static CXResult CopyPieces(CXStream& destination, CXStream& source, uint64_t count,
                               const CXStreamCopyOptions* options);
};

inline bool CXStream::ReadU8(uint8_t& out) {
    if (Read(&out, 1) == 1) {
        return true;
    }
    out = 0;
    return false;
}

inline bool CXStream::ReadU32(uint32_t& out) {
    uint8_t bytes[4];
    if (Read(bytes, sizeof(bytes)) != sizeof(bytes)) {
        out = 0;
        return false;
    }
    out = static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
          static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
    return true;
}

inline bool CXStream::ReadU64(uint64_t& out) {
    uint8_t bytes[8];
    if (Read(bytes, sizeof(bytes)) != sizeof(bytes)) {
        out = 0;
        return false;
    }
    uint64_t value = 0;
    for (const uint8_t byte : bytes) {
        value = value << 8 | byte;
    }
    out = value;
    return true;
}

inline bool CXStream::WriteU8(uint8_t value) {
    return Write(&value, 1) == 1;
}

inline bool CXStream::WriteU32(uint32_t value) {
    const uint8_t bytes[4] = {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                              static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    return Write(bytes, sizeof(bytes)) == sizeof(bytes);
}

inline bool CXStream::WriteU64(uint64_t value) {
    uint8_t bytes[8];
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<uint8_t>(value >> (56 - 8 * i));
    }
    return Write(bytes, sizeof(bytes)) == sizeof(bytes);
}
