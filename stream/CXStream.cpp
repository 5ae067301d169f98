#include "stream/CXStream.h"

#include "core/CXTime.h"
#include "runtime/CXGenericEvent.h"

#include <algorithm>
#include <limits>

namespace {

constexpr uint64_t kCopyPiece = 16384;
constexpr uint64_t kSkipPiece = 4096;

/// Whether a stream can be read, or is not open, as an event. It looks at plain fields, so it is
/// tested on the thread that uses the stream.
class StreamEvent final : public CXGenericEvent {
public:
    StreamEvent(const CXStream& stream, uint32_t number) : m_stream(stream), m_number(number) {}
    ~StreamEvent() override { DetachRefs(); }

    bool Test() override {
        if (m_number == kCXStreamEventNotOpen) {
            return !m_stream.IsOpen();
        }
        return m_stream.IsOpen() && (m_stream.GetFlags() & kCXStreamReadable) != 0 &&
               (m_stream.m_readLimit > m_stream.m_cursor || !m_stream.IsAtEnd());
    }

private:
    const CXStream& m_stream;
    uint32_t m_number;
};

} // namespace

CXStream::~CXStream() {
    DeleteEvents();
}

CXGenericEvent* CXStream::CreateEvent(uint32_t number) {
    if (number == kCXStreamEventCanRead || number == kCXStreamEventNotOpen) {
        return new StreamEvent(*this, number);
    }
    return new CXGenericEvent;
}

uint64_t CXStream::GetSize() {
    return 0;
}

void CXStream::SetSize(uint64_t /*size*/) {
    SetError(kCXResultNotSupported);
}

uint64_t CXStream::WriteUnbuffered(const void* data, uint64_t count) {
    return Write(data, count);
}

void CXStream::SetFlagsUnderMask(uint32_t /*value*/, uint32_t /*mask*/) {}

bool CXStream::SetOption(uint32_t /*code*/, uint64_t /*value*/) {
    return false;
}

bool CXStream::QueryReserved() {
    return false;
}

void CXStream::Close() {
    SetError(kCXResultNotSupported);
}

void CXStream::Flush(uint32_t /*options*/) {}

uint64_t CXStream::BufferedWrite(const void* /*data*/, uint64_t /*count*/) {
    SetError(kCXResultNotSupported);
    return 0;
}

uint64_t CXStream::BufferedRead(void* /*data*/, uint64_t /*count*/) {
    SetError(kCXResultNotSupported);
    return 0;
}

uint64_t CXStream::BufferedSeek(int64_t position) {
    const uint64_t target = static_cast<uint64_t>(position);
    if ((m_flags & kCXStreamSeekable) != 0 && target == GetPosition()) {
        return target;
    }
    SetError(kCXResultNotSupported);
    return 0;
}

uint64_t CXStream::Skip(uint64_t count) {
    constexpr uint32_t kBySeek = kCXStreamCanSkip | kCXStreamSeekable;
    if ((m_flags & kBySeek) == kBySeek) {
        const uint64_t before = GetPosition();
        const int64_t distance = static_cast<int64_t>(
            std::min(count, static_cast<uint64_t>(std::numeric_limits<int64_t>::max())));
        const uint64_t after = Seek(distance, kCXSeekRelative);
        return after > before ? after - before : 0;
    }
    uint8_t piece[kSkipPiece];
    uint64_t passed = 0;
    while (passed < count) {
        const uint64_t got = Read(piece, std::min(count - passed, kSkipPiece));
        if (got == 0) {
            break;
        }
        passed += got;
    }
    return passed;
}

uint64_t CXStream::GetRemaining() {
    if (!IsRemainingKnown()) {
        SetError(kCXResultNotSupported);
        return 0;
    }
    const uint64_t size = GetSize();
    if ((m_flags & kCXStreamSeekable) == 0) {
        return size;
    }
    const uint64_t position = GetPosition();
    return size > position ? size - position : 0;
}

CXResult CXStream::CopyPieces(CXStream& destination, CXStream& source, uint64_t count,
                              const CXStreamCopyOptions* options) {
    const bool reports = options != nullptr && options->progress != nullptr;
    CXStreamProgressCallbackData data = {reports ? CXTime::GetCurrentTime() : 0, 0.0F, 0, 0, count};
    destination.SetOption(kCXStreamOptionReserve, count);
    uint8_t piece[kCopyPiece];
    for (uint64_t left = count; left > 0;) {
        const uint64_t got = source.Read(piece, std::min(left, kCopyPiece));
        if (got == 0) {
            return CXResultCertainFailure(source.GetLastError());
        }
        if (destination.Write(piece, got) < got) {
            return CXResultCertainFailure(destination.GetLastError());
        }
        left -= got;
        if (reports) {
            data.bytesDone += got;
            data.fraction = static_cast<float>(static_cast<double>(data.bytesDone) /
                                               static_cast<double>(count));
            if (!options->progress(data)) {
                return kCXResultCancelled;
            }
        }
    }
    return kCXResultOK;
}
