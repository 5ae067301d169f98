#include "stream/CXStreamMemoryCacheWrapper.h"

#include <algorithm>
#include <utility>

namespace {

/// Memory grows with what the source really gives, not with what is asked for.
constexpr uint64_t kFetchPiece = 65536;

} // namespace

CXStreamMemoryCacheWrapper::CXStreamMemoryCacheWrapper(std::unique_ptr<CXStream> source)
    : m_source(std::move(source)) {
    m_flags &= ~kCXStreamWritable;
    if (m_source == nullptr) {
        m_flags &= ~kCXStreamIsOpen;
    } else if (!m_source->IsRemainingKnown()) {
        m_flags &= ~kCXStreamSizeKnown;
    }
}

CXStreamMemoryCacheWrapper::~CXStreamMemoryCacheWrapper() = default;

uint64_t CXStreamMemoryCacheWrapper::GetSize() {
    if ((m_flags & kCXStreamSizeKnown) == 0 || m_source == nullptr) {
        return 0;
    }
    return m_size + m_source->GetRemaining();
}

void CXStreamMemoryCacheWrapper::SetSize(uint64_t /*size*/) {
    SetError(kCXResultNotSupported);
}

bool CXStreamMemoryCacheWrapper::SetOption(uint32_t /*code*/, uint64_t /*value*/) {
    return false;
}

void CXStreamMemoryCacheWrapper::Close() {
    if (m_source != nullptr) {
        m_source->Close();
        m_source.reset();
    }
    CXStreamDynamicBuffer::Close();
}

uint64_t CXStreamMemoryCacheWrapper::BufferedWrite(const void* /*data*/, uint64_t /*count*/) {
    SetError(IsOpen() ? kCXResultAccessDenied : kCXResultNotOpen);
    return 0;
}

CXResult CXStreamMemoryCacheWrapper::FetchUpTo(uint64_t end) {
    while (m_size < end) {
        const uint64_t wanted = std::min(end - m_size, kFetchPiece);
        if (!Grow(m_size + wanted)) {
            return kCXResultNoResources;
        }
        m_source->ResetError();
        const uint64_t got = m_source->Read(m_start + m_size, wanted);
        m_size += got;
        if (got < wanted) {
            const CXResult error = m_source->GetLastError();
            return error != kCXResultOK ? error : kCXResultEndOfStream;
        }
    }
    return kCXResultOK;
}

uint64_t CXStreamMemoryCacheWrapper::BufferedRead(void* data, uint64_t count) {
    if (!IsOpen()) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    const uint64_t position = GetPosition();
    const CXResult fetched =
        FetchUpTo(count > UINT64_MAX - position ? UINT64_MAX : position + count);
    const uint64_t amount = CopyOut(data, count);
    if (amount < count) {
        SetError(fetched);
        if (fetched == kCXResultEndOfStream) {
            MarkEnd();
        }
    }
    return amount;
}

uint64_t CXStreamMemoryCacheWrapper::BufferedSeek(int64_t position) {
    if (!IsOpen() || position < 0) {
        SetError(IsOpen() ? kCXResultInvalidArgument : kCXResultNotOpen);
        return 0;
    }
    const uint64_t target = static_cast<uint64_t>(position);
    const CXResult fetched = FetchUpTo(target);
    if (fetched != kCXResultEndOfStream) {
        SetError(fetched);
    }
    const uint64_t reached = std::min(target, m_size);
    PublishWindow(reached);
    return reached;
}
