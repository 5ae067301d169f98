// A data file's inflated bytes, with the place in the file that each comes from.
#pragma once

#include "stream/CXMD5Ahead.h"
#include "stream/CXStream.h"

#include <zlib.h>

#include <memory>

/// Reads a zlib stream (RFC 1950) forwards, without reading ahead of the caller by more than the
/// inflater's few bytes of look-ahead, so that an inflated byte can be told by its place in the
/// file. Digests the file on the way, on a second thread. The source isn't owned; it is read from
/// where it stands, by nobody else meanwhile.
class VelPatchInflateStream : public CXStream {
public:
    enum class State : uint8_t {
        Reading,
        Ended,      ///< the zlib stream ends here
        CutShort,   ///< the source ends inside it
        Damaged,    ///< it breaks the rules of the format, or its own checksum
        Unreadable, ///< the source failed: see its error
    };

    explicit VelPatchInflateStream(CXStream& source);
    ~VelPatchInflateStream() override;

    /// Short where the state is no longer Reading.
    uint64_t BufferedRead(void* data, uint64_t count) override;

    State GetState() const { return m_state; }
    /// Bytes of the source that the inflater has taken so far.
    uint64_t GetInputOffset() const { return m_inputRead - m_zlib.avail_in; }
    /// Reads the source to its end, and returns the bytes that lie behind the zlib stream.
    uint64_t Drain();
    /// The source's digest after Drain, 32 lower-case hexadecimal characters. Once.
    CXString FinishChecksum() { return m_digest.FinishHex(); }

private:
    bool Refill();

    CXStream& m_source;
    std::unique_ptr<uint8_t[]> m_input;
    z_stream m_zlib = {};
    State m_state = State::Reading;
    uint64_t m_inputRead = 0; ///< bytes taken from the source
    CXMD5Ahead m_digest;
};
