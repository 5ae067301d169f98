#include "stream/CXStreamStringFilter.h"

CXStreamStringFilter::CXStreamStringFilter(const CXString& text) : m_text(text) {
    const absl::string_view view = m_text.View();
    m_failure.assign(view.size(), 0);
    size_t matched = 0;
    for (size_t i = 1; i < view.size(); ++i) {
        while (matched > 0 && view[i] != view[matched]) {
            matched = m_failure[matched - 1];
        }
        if (view[i] == view[matched]) {
            ++matched;
        }
        m_failure[i] = matched;
    }
}

std::unique_ptr<CXStreamFilter::FilterMatch> CXStreamStringFilter::Match(CXStream& stream,
                                                                         uint64_t searchStart) {
    if (stream.GetPosition() != searchStart &&
        stream.Seek(static_cast<int64_t>(searchStart), kCXSeekStart) != searchStart) {
        return nullptr;
    }
    const absl::string_view view = m_text.View();
    size_t matched = 0;
    while (matched < view.size()) {
        uint8_t byte;
        if (!stream.ReadU8(byte)) {
            return nullptr;
        }
        while (matched > 0 && byte != static_cast<uint8_t>(view[matched])) {
            matched = m_failure[matched - 1];
        }
        if (byte == static_cast<uint8_t>(view[matched])) {
            ++matched;
        }
    }
    return std::make_unique<FilterMatch>(stream.GetPosition() - view.size(), view.size());
}
