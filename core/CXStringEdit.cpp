#include "core/CXStringEdit.h"

#include "core/BlockAlloc.h"
#include "core/CXString.h"
#include "core/CXText.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace {

constexpr uint64_t kGrowthUnit = 4096;

} // namespace

CXStringEdit::CXStringEdit()
    : m_inline(), m_data(m_inline), m_capacity(sizeof(m_inline)), m_length(0) {}

CXStringEdit::CXStringEdit(absl::string_view view) : CXStringEdit() {
    Append(view);
}

CXStringEdit::CXStringEdit(const CXStringEdit& other) : CXStringEdit() {
    Append(other.View());
}

CXStringEdit::CXStringEdit(CXStringEdit&& other) noexcept : CXStringEdit() {
    *this = std::move(other);
}

CXStringEdit::~CXStringEdit() {
    ReleaseArea();
}

CXStringEdit& CXStringEdit::operator=(const CXStringEdit& other) {
    if (this != &other) {
        Assign(other.View());
    }
    return *this;
}

CXStringEdit& CXStringEdit::operator=(CXStringEdit&& other) noexcept {
    if (this == &other) {
        return *this;
    }
    if (other.m_data == other.m_inline) {
        Assign(other.View());
        other.m_length = 0;
        return *this;
    }
    ReleaseArea();
    m_data = std::exchange(other.m_data, other.m_inline);
    m_capacity = std::exchange(other.m_capacity, sizeof(other.m_inline));
    m_length = std::exchange(other.m_length, 0);
    return *this;
}

void CXStringEdit::ReleaseArea() {
    if (m_data != m_inline) {
        BlockAlloc::Free(m_data, static_cast<size_t>(m_capacity));
    }
}

bool CXStringEdit::Reserve(uint64_t position, uint64_t extra) {
    const uint64_t wanted = position + extra;
    if (wanted < position) {
        return false;
    }
    if (wanted < m_capacity) {
        return true;
    }
    uint64_t capacity = wanted;
    if ((m_capacity >> 63) == 0) {
        capacity = std::max(capacity, m_capacity * 2);
    }
    if (capacity <= UINT64_MAX - (kGrowthUnit - 1)) {
        capacity = (capacity + (kGrowthUnit - 1)) / kGrowthUnit * kGrowthUnit;
    }
    // More than any heap holds; the compiler may assume that no allocation asks for it.
    constexpr auto kLargest = static_cast<uint64_t>(PTRDIFF_MAX);
    void* area =
        capacity > kLargest ? nullptr : BlockAlloc::Allocate(static_cast<size_t>(capacity));
    if (area == nullptr) {
        m_length = 0;
        return false;
    }
    std::memcpy(area, m_data, static_cast<size_t>(m_length));
    ReleaseArea();
    m_data = static_cast<char*>(area);
    m_capacity = capacity;
    return true;
}

void CXStringEdit::Resize(uint64_t length) {
    if (length > m_length) {
        if (!Reserve(m_length, length - m_length)) {
            return;
        }
        std::memset(m_data + m_length, 0, static_cast<size_t>(length - m_length));
    }
    m_length = length;
}

void CXStringEdit::Assign(absl::string_view view) {
    if (Holds(view.data())) {
        std::memmove(m_data, view.data(), view.size());
        m_length = view.size();
        return;
    }
    m_length = 0;
    Append(view);
}

void CXStringEdit::AppendGrowing(absl::string_view view) {
    if (Holds(view.data())) {
        const CXStringEdit copy(view);
        AppendGrowing(copy.View());
    } else if (!view.empty() && Reserve(m_length, view.size())) {
        std::memcpy(m_data + m_length, view.data(), view.size());
        m_length += view.size();
    }
}

CXString CXStringEdit::ToString() const {
    return CXString(*this);
}

void CXStringEdit::AppendFormatUntyped(absl::string_view format,
                                       absl::Span<const absl::FormatArg> args) {
    // An argument may point into this buffer, which growing would move: format beside it.
    CXStringEdit text;
    if (absl::FormatUntyped(&text, absl::UntypedFormatSpec(format), args)) {
        Append(text.View());
    }
}

bool CXStringEdit::ReplaceAll(absl::string_view find, absl::string_view replacement) {
    if (IsEmpty() || find.empty()) {
        return false;
    }
    const absl::string_view text = View();
    size_t at = text.find(find);
    if (at == absl::string_view::npos) {
        return false;
    }
    CXStringEdit result;
    size_t from = 0;
    for (; at != absl::string_view::npos; at = text.find(find, from)) {
        result.Append(text.substr(from, at - from));
        result.Append(replacement);
        from = at + find.size();
    }
    result.Append(text.substr(from));
    *this = std::move(result);
    return true;
}

void CXStringEdit::NormaliseLineEndings(absl::string_view newline) {
    const absl::string_view text = View();
    CXStringEdit result;
    size_t from = 0;
    for (size_t at = 0; at < text.size();) {
        const char byte = text[at];
        if (byte != '\n' && byte != '\r') {
            ++at;
            continue;
        }
        result.Append(text.substr(from, at - from));
        result.Append(newline);
        ++at;
        if (at < text.size() && text[at] == (byte == '\n' ? '\r' : '\n')) {
            ++at;
        }
        from = at;
    }
    result.Append(text.substr(from));
    *this = std::move(result);
}

void CXStringEdit::AppendDecimal(int32_t value) {
    char digits[12];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value);
    Append(absl::string_view(digits, static_cast<size_t>(end.ptr - digits)));
}

bool SplitFirst(absl::string_view text, absl::string_view separator, CXStringEdit& left,
                CXStringEdit& right) {
    const size_t at = separator.empty() ? absl::string_view::npos : text.find(separator);
    const bool found = at != absl::string_view::npos;
    const absl::string_view head = text.substr(0, found ? at : text.size());
    const absl::string_view tail = text.substr(found ? at + separator.size() : text.size());
    // The text is often a piece of an output: write the outputs only when both pieces are safe.
    CXStringEdit tailCopy;
    const bool overlaps = !tail.empty() && tail.data() >= left.GetData() &&
                          tail.data() < left.GetData() + left.GetCapacity();
    if (overlaps) {
        tailCopy.Append(tail);
    }
    left.Assign(head);
    right.Assign(overlaps ? tailCopy.View() : tail);
    return found;
}

bool SplitFirst(absl::string_view text, uint32_t codePoint, CXStringEdit& left,
                CXStringEdit& right) {
    CXStringEdit separator;
    AppendCodePoint(separator, codePoint);
    return SplitFirst(text, separator.View(), left, right);
}

void SplitLines(absl::string_view text, std::vector<CXStringEdit>& lines) {
    std::vector<CXStringEdit> result;
    while (!text.empty()) {
        const size_t at = text.find('\n');
        result.emplace_back(text.substr(0, at));
        text.remove_prefix(at == absl::string_view::npos ? text.size() : at + 1);
    }
    lines = std::move(result);
}
