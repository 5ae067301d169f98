// Fuzzes what reads outside bytes in the stream layer: inflating in several ways, windows of a
// stated size on an inflated stream, and stream strings.

#include "fuzz/FuzzTools.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/CXStreamSubfile.h"
#include "stream/CXStreamTools.h"
#include "stream/StreamProcessorZLib.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace {

/// A small input may inflate to a thousand times its size; the rest tells nothing new.
constexpr uint64_t kMostInflated = 1 << 20;

class Inflating {
public:
    Inflating(const uint8_t* data, size_t size)
        : m_source(data, size), m_stream(m_inflater, &m_source, nullptr) {}
    CXStream& Get() { return m_stream; }

private:
    CXStreamStaticBuffer m_source;
    StreamProcessorZLibDecompress m_inflater;
    CXStreamProcessorWrapper m_stream;
};

std::string InflateInPieces(const uint8_t* data, size_t size, uint64_t piece, CXResult& result) {
    Inflating inflating(data, size);
    std::string out;
    char part[8192];
    while (out.size() < kMostInflated) {
        const uint64_t got = inflating.Get().Read(part, piece);
        out.append(part, static_cast<size_t>(got));
        if (got < piece) {
            break;
        }
    }
    result = inflating.Get().GetLastError();
    out.resize(std::min(out.size(), static_cast<size_t>(kMostInflated)));
    return out;
}

void FuzzInflate(const uint8_t* data, size_t size) {
    CXResult small = kCXResultOK;
    CXResult large = kCXResultOK;
    const std::string first = InflateInPieces(data, size, 61, small);
    const std::string second = InflateInPieces(data, size, 8192, large);
    Check(first == second);
    if (first.size() < kMostInflated) {
        Check(small == large);
        Check(small == kCXResultEndOfStream || small == kCXResultUnusable);
    }
}

/// The walk over a data file: windows of a stated size, each with a text behind it.
void FuzzRecords(const uint8_t* data, size_t size) {
    Inflating inflating(data, size);
    CXStream& stream = inflating.Get();
    uint64_t length = 0;
    while (stream.GetPosition() < kMostInflated && stream.ReadU64(length)) {
        CXStreamSubfile window;
        Check(window.Open(stream, stream.GetPosition(), length));
        const uint64_t start = stream.GetPosition();
        uint8_t part[100];
        const uint64_t got = window.Read(part, std::min<uint64_t>(length / 2, sizeof(part)));
        Check(got <= length && stream.GetPosition() == start + got);
        window.Close();
        Check(stream.GetPosition() - start <= length);
        CXString text;
        if (!ReadStreamString(stream, text)) {
            Check(text.IsEmpty() && stream.GetLastError() != kCXResultOK);
            break;
        }
    }
}

void FuzzStrings(const uint8_t* data, size_t size) {
    CXStreamStaticBuffer stream(data, size);
    CXStreamDynamicBuffer again;
    CXString text;
    while (ReadStreamString(stream, text)) {
        WriteStreamString(again, text);
    }
    Check(text.IsEmpty() && stream.GetLastError() != kCXResultOK);
    // What was read writes to something that reads the same.
    again.Seek(0, kCXSeekStart);
    stream.Seek(0, kCXSeekStart);
    CXString other;
    while (again.GetRemaining() != 0) {
        Check(ReadStreamString(again, other) && ReadStreamString(stream, text) && text == other);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    switch (data[0] % 3) {
    case 0:
        FuzzInflate(data + 1, size - 1);
        break;
    case 1:
        FuzzRecords(data + 1, size - 1);
        break;
    default:
        FuzzStrings(data + 1, size - 1);
        break;
    }
    return 0;
}
