#include "kit/VelPatchDataWriter.h"

#include "kit/VelPatchDeflater.h"
#include "kit/VelPatchParallel.h"

#include <zlib.h>

#include <algorithm>
#include <utility>

namespace {

constexpr int kBestLevel = 9;
constexpr size_t kMostWaiting = 12; // pieces
constexpr uint64_t kFileWriteBuffer = 1 << 16;
constexpr size_t kLongString = 255;

/// One piece by zlib, up to a byte boundary.
void DeflatePiece(std::span<const uint8_t> bytes, size_t windowSize, bool isLast, int level,
                  std::vector<uint8_t>& out) {
    constexpr int kRawDeflate = -15;
    constexpr int kMemoryLevel = 9;
    z_stream zlib = {};
    deflateInit2(&zlib, level, Z_DEFLATED, kRawDeflate, kMemoryLevel, Z_DEFAULT_STRATEGY);
    // zlib only reads, whatever its types say.
    auto* const first = const_cast<Bytef*>(bytes.data());
    if (windowSize > 0) {
        deflateSetDictionary(&zlib, first, static_cast<uInt>(windowSize));
    }
    zlib.next_in = first + windowSize;
    zlib.avail_in = static_cast<uInt>(bytes.size() - windowSize);
    const size_t start = out.size();
    out.resize(start + deflateBound(&zlib, zlib.avail_in) + 16);
    zlib.next_out = out.data() + start;
    zlib.avail_out = static_cast<uInt>(out.size() - start);
    deflate(&zlib, isLast ? Z_FINISH : Z_SYNC_FLUSH);
    out.resize(start + zlib.total_out);
    deflateEnd(&zlib);
}

} // namespace

VelPatchDataWriter::VelPatchDataWriter() = default;
VelPatchDataWriter::~VelPatchDataWriter() = default;

CXResult VelPatchDataWriter::Open(const CXString& path, int level) {
    m_level = level;
    m_file.Open(path, kOpenRead | kOpenWrite | kOpenCreate | kOpenTruncate);
    if (!m_file.IsOpen()) {
        return CXResultCertainFailure(m_file.GetLastError());
    }
    m_file.SetOption(kCXStreamOptionWriteBuffer, kFileWriteBuffer);
    // RFC 1950: deflate with a window of 32 KiB; the second byte tells the level and a check.
    constexpr uint8_t kMethod = 0x78;
    const uint8_t header[2] = {kMethod, static_cast<uint8_t>(level >= 7 ? 0xDA : 0x9C)};
    WriteOut(header);
    return kCXResultOK;
}

void VelPatchDataWriter::WriteOut(std::span<const uint8_t> bytes) {
    m_digest.Update(bytes.data(), bytes.size());
    m_file.Write(bytes.data(), bytes.size());
    m_size += bytes.size();
}

void VelPatchDataWriter::Append(std::span<const uint8_t> bytes) {
    constexpr size_t kPiece = VelPatchDeflater::kMaxPiece;
    m_rawSize += bytes.size();
    while (!bytes.empty()) {
        // A full piece waits for one more byte: only Close knows what is last.
        if (m_pending.size() - m_windowSize == kPiece) {
            CutPiece(false);
            while (CountWaiting() > kMostWaiting) {
                CompressPiece();
            }
        }
        const size_t room = kPiece - (m_pending.size() - m_windowSize);
        const std::span<const uint8_t> part = bytes.first(std::min(room, bytes.size()));
        m_adler = static_cast<uint32_t>(adler32_z(m_adler, part.data(), part.size()));
        m_pending.insert(m_pending.end(), part.begin(), part.end());
        bytes = bytes.subspan(part.size());
    }
}

void VelPatchDataWriter::CutPiece(bool isLast) {
    Piece piece;
    piece.number = m_pieces++;
    piece.windowSize = m_windowSize;
    piece.isLast = isLast;
    m_windowSize = std::min(m_pending.size(), VelPatchDeflater::kWindow);
    std::vector<uint8_t> window(m_pending.end() - static_cast<ptrdiff_t>(m_windowSize),
                                m_pending.end());
    piece.bytes = std::exchange(m_pending, std::move(window));
    CXCriticalSectionGuard guard(m_lock);
    m_waiting.push_back(std::move(piece));
}

size_t VelPatchDataWriter::CountWaiting() const {
    CXCriticalSectionGuard guard(m_lock);
    return m_waiting.size();
}

void VelPatchDataWriter::AppendU64(uint64_t number) {
    uint8_t bytes[8];
    for (int i = 0; i < 8; i++) {
        bytes[i] = static_cast<uint8_t>(number >> (56 - 8 * i));
    }
    Append(bytes);
}

void VelPatchDataWriter::AppendString(const CXString& text) {
    const size_t length = text.GetLength();
    std::vector<uint8_t> bytes = {static_cast<uint8_t>(std::min(length, kLongString))};
    if (length >= kLongString) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<uint8_t>(length >> shift));
        }
    }
    bytes.insert(bytes.end(), text.GetData(), text.GetData() + length);
    Append(bytes);
}

bool VelPatchDataWriter::CompressPiece() {
    std::unique_lock<CXCriticalSection> guard(m_lock);
    if (m_waiting.empty()) {
        return false;
    }
    const Piece piece = std::move(m_waiting.front());
    m_waiting.pop_front();
    guard.unlock();
    std::vector<uint8_t> packed = Compress(piece);
    guard.lock();
    m_packed.emplace(piece.number, std::move(packed));
    if (m_isWriting) {
        return true; // who writes looks for it afterwards
    }
    m_isWriting = true;
    for (auto next = m_packed.find(m_written); next != m_packed.end();
         next = m_packed.find(m_written)) {
        packed = std::move(next->second);
        m_packed.erase(next);
        guard.unlock();
        WriteOut(packed);
        const CXResult error = m_file.GetLastError();
        guard.lock();
        m_error = error;
        m_written++;
    }
    m_isWriting = false;
    return true;
}

std::vector<uint8_t> VelPatchDataWriter::Compress(const Piece& piece) {
    std::vector<uint8_t> out;
    if (m_level < kBestLevel) {
        DeflatePiece(piece.bytes, piece.windowSize, piece.isLast, m_level, out);
        return out;
    }
    std::unique_ptr<VelPatchDeflater> deflater;
    {
        CXCriticalSectionGuard guard(m_lock);
        if (!m_idle.empty()) {
            deflater = std::move(m_idle.back());
            m_idle.pop_back();
        }
    }
    if (deflater == nullptr) {
        deflater = std::make_unique<VelPatchDeflater>();
    }
    deflater->Compress(piece.bytes, piece.windowSize, piece.isLast, out);
    CXCriticalSectionGuard guard(m_lock);
    m_idle.push_back(std::move(deflater));
    return out;
}

CXResult VelPatchDataWriter::GetLastError() const {
    CXCriticalSectionGuard guard(m_lock);
    return m_error;
}

CXResult VelPatchDataWriter::Close(unsigned workers) {
    CutPiece(true);
    RunParallel(CountWaiting(), workers, [&](size_t) { CompressPiece(); });
    uint8_t check[4];
    for (int i = 0; i < 4; i++) {
        check[i] = static_cast<uint8_t>(m_adler >> (24 - 8 * i));
    }
    WriteOut(check);
    m_checksum = m_digest.FinishHex();
    m_file.Flush();
    m_file.Close();
    return m_file.GetLastError();
}
