#include "stream/CXStreamTools.h"

#include "core/CXMD5.h"
#include "stream/CXMD5Ahead.h"
#include "stream/CXStreamFile.h"

#include <algorithm>

namespace {

/// Above half of a stream's read buffer, so that a file reads straight into the piece, and small
/// enough to stay in the processor's nearest cache.
constexpr uint64_t kDigestPiece = 65536;
/// From here on it pays to read on one thread and digest on another.
constexpr uint64_t kDigestAheadFrom = 0x200000;
constexpr uint64_t kTextPiece = 65536;
constexpr uint8_t kLongForm = 255;
constexpr uint32_t kImpossibleLength = 0xFFFFFFFF;

bool ReadLength(CXStream& stream, uint32_t& length) {
    uint8_t first = 0;
    if (!stream.ReadU8(first)) {
        return false;
    }
    length = first;
    if (first != kLongForm) {
        return true;
    }
    return stream.ReadU32(length);
}

bool ReadPieces(CXStream& stream, uint64_t length, CXStringEdit& edit) {
    for (uint64_t done = 0; done < length;) {
        const uint64_t wanted = std::min(length - done, kTextPiece);
        edit.Resize(done + wanted);
        if (edit.GetLength() != done + wanted) {
            stream.SetError(kCXResultNoResources);
            return false;
        }
        if (stream.Read(edit.GetData() + done, wanted) != wanted) {
            stream.SetError(CXResultCertainFailure(stream.GetLastError()));
            return false;
        }
        done += wanted;
    }
    return true;
}

/// `grow(size)` gives memory for `size` bytes in all, or null.
template <typename Grow> CXResult ReadFilePieces(const CXString& path, uint64_t limit, Grow grow) {
    CXStreamFile file;
    file.Open(path, kOpenRead);
    if (!file.IsOpen()) {
        return CXResultCertainFailure(file.GetLastError());
    }
    if (file.GetSize() > limit) {
        return kCXResultNoResources;
    }
    // The size is only a hint: special files tell 0, and a file may grow while it is read.
    uint64_t done = 0;
    for (;;) {
        uint8_t* data = grow(done + kTextPiece);
        if (data == nullptr) {
            return kCXResultNoResources;
        }
        const uint64_t got = file.Read(data + done, kTextPiece);
        done += got;
        if (done > limit) {
            return kCXResultNoResources;
        }
        if (got < kTextPiece) {
            grow(done);
            return file.GetLastError() == kCXResultEndOfStream
                       ? kCXResultOK
                       : CXResultCertainFailure(file.GetLastError());
        }
    }
}

CXString MD5OfStreamAhead(CXStream& stream, uint64_t count) {
    CXMD5Ahead digest;
    for (uint64_t left = count; left > 0;) {
        const uint64_t wanted = std::min(left, CXMD5Ahead::kPieceSize);
        const uint64_t got = stream.Read(digest.GetPiece(), wanted);
        digest.PutPiece(got);
        left -= got;
        if (got < wanted) {
            break;
        }
    }
    return digest.FinishHex();
}

} // namespace

CXString MD5OfStream(CXStream& stream, uint64_t count) {
    if (count >= kDigestAheadFrom) {
        return MD5OfStreamAhead(stream, count);
    }
    CXMD5 digest;
    uint8_t piece[kDigestPiece];
    for (uint64_t left = count; left > 0;) {
        const uint64_t wanted = std::min(left, kDigestPiece);
        const uint64_t got = stream.Read(piece, wanted);
        digest.Update(piece, static_cast<size_t>(got));
        left -= got;
        if (got < wanted) {
            break;
        }
    }
    return digest.FinishHex();
}

bool ReadStreamString(CXStream& stream, CXString& text, uint32_t longest) {
    text.Clear();
    uint32_t length = 0;
    if (!ReadLength(stream, length)) {
        stream.SetError(CXResultCertainFailure(stream.GetLastError()));
        return false;
    }
    if (length == kImpossibleLength) {
        stream.SetError(kCXResultNoResources);
        return false;
    }
    if (length > longest || (stream.IsRemainingKnown() && length > stream.GetRemaining())) {
        stream.SetError(kCXResultBadData);
        return false;
    }
    CXStringEdit edit;
    if (!ReadPieces(stream, length, edit)) {
        return false;
    }
    text = edit.ToString();
    return true;
}

void WriteStreamString(CXStream& stream, absl::string_view text) {
    if (text.size() >= kImpossibleLength) {
        stream.SetError(kCXResultInvalidArgument);
        return;
    }
    if (text.size() < kLongForm) {
        stream.WriteU8(static_cast<uint8_t>(text.size()));
    } else {
        stream.WriteU8(kLongForm);
        stream.WriteU32(static_cast<uint32_t>(text.size()));
    }
    if (!text.empty()) {
        stream.Write(text.data(), text.size());
    }
}

CXResult ReadWholeFile(const CXString& path, CXStringEdit& out, uint64_t limit) {
    out.Clear();
    const CXResult result = ReadFilePieces(path, limit, [&out](uint64_t size) {
        out.Resize(size);
        return out.GetLength() == size ? reinterpret_cast<uint8_t*>(out.GetData()) : nullptr;
    });
    if (result != kCXResultOK) {
        out.Clear();
    }
    return result;
}

CXResult ReadWholeFile(const CXString& path, std::vector<uint8_t>& out, uint64_t limit) {
    out.clear();
    const CXResult result = ReadFilePieces(path, limit, [&out](uint64_t size) {
        out.resize(static_cast<size_t>(size));
        return out.data();
    });
    if (result != kCXResultOK) {
        out.clear();
    }
    return result;
}
