#include "kit/VelPatchDataWriter.h"

#include "core/CXLock.h"
#include "kit/VelPatchDeflater.h"
#include "kit/VelPatchParallel.h"

#include <zlib.h>

#include <algorithm>

namespace {

constexpr int kBestLevel = 9;
constexpr size_t kPiecesAtOnce = 16;
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

/// Deflaters that threads borrow.
class VelPatchDataWriter::Pool {
public:
    std::unique_ptr<VelPatchDeflater> Take() {
        CXCriticalSectionGuard guard(m_lock);
        if (m_free.empty()) {
            return std::make_unique<VelPatchDeflater>();
        }
        std::unique_ptr<VelPatchDeflater> taken = std::move(m_free.back());
        m_free.pop_back();
        return taken;
    }
    void Give(std::unique_ptr<VelPatchDeflater> deflater) {
        CXCriticalSectionGuard guard(m_lock);
        m_free.push_back(std::move(deflater));
    }

private:
    CXCriticalSection m_lock;
    std::vector<std::unique_ptr<VelPatchDeflater>> m_free;
};

VelPatchDataWriter::VelPatchDataWriter() : m_pool(std::make_unique<Pool>()) {}
VelPatchDataWriter::~VelPatchDataWriter() = default;

CXResult VelPatchDataWriter::Open(const CXString& path, int level, unsigned workers) {
    m_level = level;
    m_workers = std::max(1U, workers);
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
    constexpr size_t kBatch = kPiecesAtOnce * VelPatchDeflater::kMaxPiece;
    m_rawSize += bytes.size();
    while (!bytes.empty()) {
        // A full batch waits for one more byte: only Close knows what is last.
        if (m_pending.size() - m_windowSize == kBatch) {
            Compress(false);
        }
        const size_t room = kBatch - (m_pending.size() - m_windowSize);
        const std::span<const uint8_t> part = bytes.first(std::min(room, bytes.size()));
        m_adler = static_cast<uint32_t>(adler32_z(m_adler, part.data(), part.size()));
        m_pending.insert(m_pending.end(), part.begin(), part.end());
        bytes = bytes.subspan(part.size());
    }
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

void VelPatchDataWriter::Compress(bool isLast) {
    constexpr size_t kPiece = VelPatchDeflater::kMaxPiece;
    const size_t total = m_pending.size() - m_windowSize;
    const size_t count = std::max<size_t>(1, (total + kPiece - 1) / kPiece);
    std::vector<std::vector<uint8_t>> outs(count);
    const std::span<const uint8_t> all(m_pending);
    const auto compress = [&](size_t i) {
        const size_t start = m_windowSize + i * kPiece;
        const size_t window = std::min(start, VelPatchDeflater::kWindow);
        const size_t end = std::min(start + kPiece, all.size());
        const std::span<const uint8_t> bytes = all.subspan(start - window, end - start + window);
        const bool isEnd = isLast && i + 1 == count;
        if (m_level >= kBestLevel) {
            std::unique_ptr<VelPatchDeflater> deflater = m_pool->Take();
            deflater->Compress(bytes, window, isEnd, outs[i]);
            m_pool->Give(std::move(deflater));
        } else {
            DeflatePiece(bytes, window, isEnd, m_level, outs[i]);
        }
    };
    RunParallel(count, m_workers, compress);
    for (const std::vector<uint8_t>& out : outs) {
        WriteOut(out);
    }
    const size_t kept = std::min(m_pending.size(), VelPatchDeflater::kWindow);
    m_pending.erase(m_pending.begin(), m_pending.end() - static_cast<ptrdiff_t>(kept));
    m_windowSize = kept;
}

CXResult VelPatchDataWriter::Close() {
    Compress(true);
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
