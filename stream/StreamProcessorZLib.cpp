#include "stream/StreamProcessorZLib.h"

#include "core/BlockAlloc.h"

#include <algorithm>
#include <cstring>

namespace {

// Blocks of fewer than 16 bytes: the request's size in 8 bytes, then the data, which is therefore
// 8 bytes off an alignment of 16. Larger blocks: a marker byte of 1, zeros, the size in the 4 bytes
// before the data, and the data aligned to 16. The alignment tells the two apart, and walking back
// over the zeros finds the marker.
constexpr uint64_t kSmallRequest = 16;
constexpr uint64_t kSmallExtra = 8;
constexpr uint64_t kLargeExtra = 20;
constexpr uint64_t kAlignment = 16;

bool IsAligned(const void* block) {
    return reinterpret_cast<uintptr_t>(block) % kAlignment == 0;
}

CXResult FromZLib(int code, bool starvedIsEnd) {
    if (code == Z_OK) {
        return kCXResultOK;
    }
    if (code == Z_STREAM_END || (starvedIsEnd && code == Z_BUF_ERROR)) {
        return kCXResultEndOfStream;
    }
    return kCXResultUnusable;
}

} // namespace

void* StreamProcessorZLib::AllocateForZLib(void* /*context*/, unsigned items, unsigned size) {
    const uint64_t request = static_cast<uint64_t>(items) * size;
    if (request > UINT32_MAX - kLargeExtra) {
        return nullptr;
    }
    const bool small = request < kSmallRequest;
    const size_t whole = static_cast<size_t>(request + (small ? kSmallExtra : kLargeExtra));
    uint8_t* block = static_cast<uint8_t*>(BlockAlloc::Allocate(whole));
    if (block == nullptr) {
        return nullptr;
    }
    if (small) {
        std::memcpy(block, &request, sizeof(request));
        return block + kSmallExtra;
    }
    // The block is aligned to 16 bytes itself: the first aligned place with 4 bytes in front.
    std::memset(block, 0, kAlignment);
    block[0] = 1;
    const uint32_t stored = static_cast<uint32_t>(request);
    std::memcpy(block + kAlignment - sizeof(stored), &stored, sizeof(stored));
    return block + kAlignment;
}

void StreamProcessorZLib::FreeForZLib(void* /*context*/, void* block) {
    if (block == nullptr) {
        return;
    }
    uint8_t* data = static_cast<uint8_t*>(block);
    if (!IsAligned(data)) {
        uint64_t request;
        std::memcpy(&request, data - kSmallExtra, sizeof(request));
        BlockAlloc::Free(data - kSmallExtra, static_cast<size_t>(request + kSmallExtra));
        return;
    }
    uint32_t request;
    uint8_t* start = data - sizeof(request);
    std::memcpy(&request, start, sizeof(request));
    do {
        --start;
    } while (*start == 0);
    BlockAlloc::Free(start, static_cast<size_t>(request + kLargeExtra));
}

StreamProcessorZLib::StreamProcessorZLib() {
    std::memset(&m_zlib, 0, sizeof(m_zlib));
    m_zlib.zalloc = AllocateForZLib;
    m_zlib.zfree = FreeForZLib;
    PointAtOutputArea();
}

void StreamProcessorZLib::PointAtOutputArea() {
    m_zlib.next_out = m_output;
    m_zlib.avail_out = kAreaSize;
    m_outputTaken = 0;
}

uint64_t StreamProcessorZLib::GetInputRoom() {
    return kAreaSize - m_inputCount;
}

uint64_t StreamProcessorZLib::GetOutputAvailable() {
    return kAreaSize - m_zlib.avail_out - m_outputTaken;
}

void StreamProcessorZLib::Finish() {
    m_finished = true;
}

CXResult StreamProcessorZLib::FillInput(CXStream& stream, uint64_t count) {
    if (m_inputPosition != 0) {
        std::memmove(m_input, m_input + m_inputPosition, m_inputCount);
        m_inputPosition = 0;
    }
    if (count > GetInputRoom()) {
        return kCXResultInvalidArgument;
    }
    if (count == 0) {
        return kCXResultOK;
    }
    const uint64_t got = stream.Read(m_input + m_inputCount, count);
    m_inputCount += static_cast<uint32_t>(got);
    return got < count ? CXResultCertainFailure(stream.GetLastError()) : kCXResultOK;
}

/// What is left isn't moved forward before the room is needed: small reads would move a whole area
/// for a few bytes each.
void StreamProcessorZLib::DropOutput(uint64_t count) {
    m_outputTaken += static_cast<uint32_t>(count);
    if (GetOutputAvailable() == 0) {
        PointAtOutputArea();
    }
}

void StreamProcessorZLib::CompactOutput() {
    if (m_outputTaken != 0) {
        const uint64_t rest = GetOutputAvailable();
        std::memmove(m_output, m_output + m_outputTaken, static_cast<size_t>(rest));
        PointAtOutputArea();
        m_zlib.next_out += rest;
        m_zlib.avail_out -= static_cast<uInt>(rest);
    }
}

CXResult StreamProcessorZLib::ReadOutput(void* data, uint64_t count) {
    if (count > GetOutputAvailable()) {
        return kCXResultInvalidArgument;
    }
    if (count != 0) {
        std::memcpy(data, m_output + m_outputTaken, static_cast<size_t>(count));
        DropOutput(count);
    }
    return kCXResultOK;
}

CXResult StreamProcessorZLib::ReadOutputToStream(CXStream& stream, uint64_t count) {
    if (count > GetOutputAvailable()) {
        return kCXResultInvalidArgument;
    }
    const uint64_t put = stream.Write(m_output + m_outputTaken, count);
    DropOutput(put);
    return put < count ? CXResultCertainFailure(stream.GetLastError()) : kCXResultOK;
}

StreamProcessorZLibCompress::StreamProcessorZLibCompress(int level) {
    m_valid = deflateInit(&m_zlib, level) == Z_OK;
}

StreamProcessorZLibCompress::~StreamProcessorZLibCompress() {
    if (m_valid) {
        deflateEnd(&m_zlib);
    }
}

CXResult StreamProcessorZLibCompress::Process() {
    if (!m_valid) {
        return kCXResultFailed;
    }
    if (m_inputCount == 0) {
        m_finished = true;
    }
    CompactOutput();
    m_zlib.next_in = m_input + m_inputPosition;
    m_zlib.avail_in = m_inputCount;
    const int code = deflate(&m_zlib, m_finished ? Z_FINISH : Z_NO_FLUSH);
    m_inputPosition += m_inputCount - m_zlib.avail_in;
    m_inputCount = m_zlib.avail_in;
    return FromZLib(code, false);
}

StreamProcessorZLibDecompress::StreamProcessorZLibDecompress() {
    m_valid = inflateInit(&m_zlib) == Z_OK;
}

StreamProcessorZLibDecompress::~StreamProcessorZLibDecompress() {
    if (m_valid) {
        inflateEnd(&m_zlib);
    }
}

CXResult StreamProcessorZLibDecompress::Inflate() {
    if (!m_valid) {
        return kCXResultFailed;
    }
    m_zlib.next_in = m_input + m_inputPosition;
    m_zlib.avail_in = m_inputCount;
    const int code = inflate(&m_zlib, Z_NO_FLUSH);
    m_inputPosition += m_inputCount - m_zlib.avail_in;
    m_inputCount = m_zlib.avail_in;
    if (code == Z_STREAM_END) {
        m_finished = true;
    }
    return FromZLib(code, true);
}

CXResult StreamProcessorZLibDecompress::Process() {
    CompactOutput();
    return Inflate();
}

CXResult StreamProcessorZLibDecompress::ProcessInto(void* data, uint64_t count,
                                                    uint64_t& produced) {
    produced = 0;
    if (GetOutputAvailable() != 0) {
        return kCXResultInvalidArgument;
    }
    const uInt room = static_cast<uInt>(std::min(count, static_cast<uint64_t>(0x40000000)));
    m_zlib.next_out = static_cast<Bytef*>(data);
    m_zlib.avail_out = room;
    const CXResult result = Inflate();
    produced = room - m_zlib.avail_out;
    PointAtOutputArea();
    return result;
}
