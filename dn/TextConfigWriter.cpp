#include "core/CXStringEdit.h"
#include "dn/TextConfig.h"

#include <vector>

namespace {

constexpr char kLineEnd = '\r';
constexpr size_t kIndentPerLevel = 2;
constexpr size_t kInlineRawBytes = 8; ///< the most that stand on the key's line
constexpr size_t kRawBytesPerLine = 16;

bool IsPlain(char byte) {
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
           (byte >= '0' && byte <= '9') || byte == '_' || byte == '-' || byte == '#' || byte == '$';
}

/// For keys and texts: quotes unless the text is a plain word that doesn't look like a number with
/// a leading zero.
bool NeedsQuotesStrict(absl::string_view text) {
    if (text.empty() || (text[0] == '0' && text.size() > 1) || text.substr(0, 2) == "-0") {
        return true;
    }
    for (const char byte : text) {
        if (!IsPlain(byte)) {
            return true;
        }
    }
    return false;
}

/// For values of other types: quotes only around what would break the syntax.
bool NeedsQuotesLoose(absl::string_view text) {
    constexpr absl::string_view kSyntax("\"`{}$");
    for (const char byte : text) {
        const auto code = static_cast<signed char>(byte);
        if (code < 32 || code == 127 || kSyntax.find(byte) != absl::string_view::npos) {
            return true;
        }
    }
    return text.empty();
}

class Writer {
public:
    explicit Writer(CXStream& stream) : m_stream(stream) {}

    /// The folders that are being written stand on an explicit stack.
    void Run(const DNValue& root) {
        m_levels.push_back({&root, DNValueRef(), 0, false});
        while (!m_levels.empty()) {
            Level& level = m_levels.back();
            if (!level.metaDone) {
                level.metaDone = true;
                const DNValueRef meta = level.folder->FindMeta();
                if (level.folder->IsFolder() && meta->GetChildCount() > 0) {
                    Indent();
                    m_line.Append("$meta");
                    OpenFolder(meta);
                }
            } else if (level.next < level.folder->GetChildCount()) {
                WriteEntry(level.folder->KeyAt(level.next), level.folder->ChildAt(level.next));
            } else {
                m_levels.pop_back();
                if (!m_levels.empty()) {
                    Indent();
                    m_line.AppendByte('}');
                    m_line.AppendByte(kLineEnd);
                    EndLine();
                }
            }
        }
    }

private:
    struct Level {
        const DNValue* folder;
        DNValueRef hold; ///< unset for the root, which the caller holds
        size_t next;
        bool metaDone;
    };

    void Indent() {
        for (size_t i = 0; i < (m_levels.size() - 1) * kIndentPerLevel; ++i) {
            m_line.AppendByte(' ');
        }
    }

    void EndLine() {
        m_line.AppendByte(kLineEnd);
        m_stream.Write(m_line.GetData(), m_line.GetLength());
        m_line.Clear();
    }

    void Quoted(absl::string_view text, bool quotes) {
        if (!quotes) {
            m_line.Append(text);
            return;
        }
        m_line.AppendByte('"');
        for (const char byte : text) {
            if (byte == '"') {
                m_line.AppendByte('"');
            }
            m_line.AppendByte(byte);
        }
        m_line.AppendByte('"');
    }

    void OpenFolder(const DNValueRef& folder) {
        EndLine();
        Indent();
        m_line.AppendByte('{');
        EndLine();
        m_levels.push_back({folder.Get(), folder, 0, false});
    }

    void WriteEntry(const DNData& keyData, const DNValueRef& value) {
        ++m_levels.back().next;
        Indent();
        const CXString key = keyData.GetString();
        Quoted(key, NeedsQuotesStrict(key));
        const DNData data = value->GetData();
        switch (data.type) {
        case kDNTypeFolder:
            OpenFolder(value);
            return;
        case kDNTypeRaw:
            WriteRaw(data.data);
            break;
        case kDNTypeWhiteout:
            m_line.Append(" `WHITEOUT`");
            break;
        case kDNTypeNone:
            m_line.Append(" ``");
            break;
        default: {
            const CXString text = data.GetString();
            m_line.AppendByte(' ');
            Quoted(text,
                   data.type == kDNTypeString ? NeedsQuotesStrict(text) : NeedsQuotesLoose(text));
            break;
        }
        }
        EndLine();
    }

    void WriteRaw(absl::string_view bytes) {
        static const char kDigits[] = "0123456789ABCDEF";
        if (bytes.size() <= kInlineRawBytes) {
            m_line.AppendByte(' ');
        } else {
            m_line.AppendByte(kLineEnd);
            Indent();
        }
        m_line.AppendByte('`');
        for (size_t i = 0; i < bytes.size(); ++i) {
            const auto byte = static_cast<unsigned char>(bytes[i]);
            m_line.AppendByte(kDigits[byte >> 4]);
            m_line.AppendByte(kDigits[byte & 15]);
            if ((i + 1) % kRawBytesPerLine == 0) {
                m_line.AppendByte(kLineEnd);
                Indent();
            } else if (i + 1 < bytes.size()) {
                m_line.AppendByte(' ');
            }
        }
        m_line.AppendByte('`');
    }

    CXStream& m_stream;
    CXStringEdit m_line;
    std::vector<Level> m_levels;
};

} // namespace

void TextConfig::Write(const DNValue& value, CXStream& stream) {
    Writer(stream).Run(value);
}
