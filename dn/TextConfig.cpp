#include "dn/TextConfig.h"

#include "core/CXLog.h"
#include "core/CXStringEdit.h"
#include "dn/DNMemoryValue.h"
#include "dn/DNNumberText.h"

#include <algorithm>
#include <vector>

namespace {

constexpr absl::string_view kBlanks(" \t");
constexpr absl::string_view kLineEnds("\r\n");
constexpr absl::string_view kBlanksAndLineEnds(" \t\r\n");
constexpr absl::string_view kWhiteout("`WHITEOUT`");
constexpr absl::string_view kVerbatimStart("{{{");
constexpr absl::string_view kVerbatimEnd("}}}");

bool IsOneOf(char byte, absl::string_view bytes) {
    return bytes.find(byte) != absl::string_view::npos;
}

bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool StartsWith(absl::string_view text, absl::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

int HexDigit(char byte) {
    if (IsDigit(byte)) {
        return byte - '0';
    }
    const int letter = byte | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

/// A minus and digits, without a leading zero but for the single "0".
bool LooksLikeInteger(absl::string_view text) {
    const bool single = text.size() == 1;
    if (!text.empty() && text[0] == '-') {
        text.remove_prefix(1);
    }
    if (text.empty() || (text[0] == '0' && !single)) {
        return false;
    }
    for (const char byte : text) {
        if (!IsDigit(byte)) {
            return false;
        }
    }
    return true;
}

/// The one spelling of a number with a point: no leading zero, no trailing zero or point.
bool LooksLikeFloat(absl::string_view text) {
    if (!text.empty() && text[0] == '-') {
        text.remove_prefix(1);
    }
    if (text.empty() || !IsDigit(text[0]) || text[0] == '0') {
        return false;
    }
    size_t points = 0;
    for (const char byte : text) {
        points += byte == '.' ? 1 : 0;
        if (byte != '.' && !IsDigit(byte)) {
            return false;
        }
    }
    return points == 1 && text.back() != '0' && text.back() != '.';
}

/// The type of a bare value follows from its spelling. A spelling that the number doesn't give
/// back ("012", "1.50") stays a text, so that a file keeps its form.
DNData InferBare(absl::string_view text) {
    if (LooksLikeInteger(text)) {
        int32_t number = 0;
        int64_t wide = 0;
        if (DNNumberText::ReadInt(text, number)) {
            return DNData::Int(number);
        }
        if (DNNumberText::ReadInt64(text, wide)) {
            return DNData::Int64(wide);
        }
        return DNData::String(text);
    }
    float single = 0;
    if (LooksLikeFloat(text) && DNNumberText::ReadFloat(text, single)) {
        return DNData::Float(single);
    }
    std::vector<int32_t> ints;
    if (DNNumberText::ReadInts(text, ints) && ints.size() > 1) {
        return DNData::Ints(ints.data(), ints.size());
    }
    std::vector<float> floats;
    if (DNNumberText::ReadFloats(text, floats) && floats.size() > 1) {
        return DNData::Floats(floats.data(), floats.size());
    }
    return DNData::String(text);
}

/// Reads a document. The open folders stand on an explicit stack, so that depth costs memory in
/// proportion to the input and nothing else.
class Parser {
public:
    Parser(absl::string_view input, TextConfig::Trace& trace,
           std::initializer_list<absl::string_view> repeatingKeys)
        : m_input(input), m_rest(input), m_trace(trace), m_repeatingKeys(repeatingKeys) {}

    /// False if input remains behind a closing brace that closes nothing.
    bool Run(DNValue& root) {
        m_folders.push_back({&root, 0});
        for (;;) {
            Skip(kBlanks);
            if (m_rest.empty()) {
                if (m_folders.size() > 1) {
                    m_trace.openFolder = m_folders.back().brace;
                }
                return true;
            }
            const char byte = m_rest[0];
            if (byte == '}') {
                if (m_folders.size() == 1) {
                    m_trace.strayBrace = GetOffset();
                    return false;
                }
                if (m_trace.close) {
                    m_trace.close(m_folders.back().value, GetOffset());
                }
                m_rest.remove_prefix(1);
                m_folders.pop_back();
            } else if (byte == ';') {
                SkipToLineEnd();
            } else if (byte == '$') {
                ReadMetaEntry();
            } else if (IsOneOf(byte, kLineEnds)) {
                Skip(kLineEnds);
            } else {
                ReadEntry();
            }
        }
    }

private:
    struct Folder {
        DNValueRef value;
        size_t brace; ///< offset of the brace that opened it
    };

    size_t GetOffset() const { return m_input.size() - m_rest.size(); }

    void Skip(absl::string_view bytes) {
        const size_t first = m_rest.find_first_not_of(bytes);
        m_rest.remove_prefix(first == absl::string_view::npos ? m_rest.size() : first);
    }

    absl::string_view Take(size_t count) {
        const absl::string_view taken = m_rest.substr(0, count);
        m_rest.remove_prefix(taken.size());
        return taken;
    }

    void SkipToLineEnd() { Take(m_rest.find_first_of(kLineEnds)); }

    CXString ReadToken() {
        if (m_rest[0] == '"') {
            return ReadQuoted();
        }
        return CXString(Take(m_rest.find_first_of(kBlanksAndLineEnds)));
    }

    CXString ReadQuoted() {
        const size_t start = GetOffset();
        m_rest.remove_prefix(1);
        const size_t quote = m_rest.find('"');
        const absl::string_view first = Take(quote);
        if (m_rest.size() < 2 || m_rest[1] != '"') {
            NoteOpenText(m_rest.empty(), start);
            Take(1);
            return CXString(first);
        }
        CXStringEdit edit(first);
        while (!m_rest.empty()) { // stands on a quote
            const bool doubled = m_rest.size() > 1 && m_rest[1] == '"';
            Take(doubled ? 2 : 1);
            if (!doubled) {
                return edit.ToString();
            }
            edit.AppendByte('"');
            edit.Append(Take(m_rest.find('"')));
        }
        NoteOpenText(true, start);
        return edit.ToString();
    }

    void NoteOpenText(bool isOpen, size_t start) {
        if (isOpen) {
            m_trace.openText = start;
        }
    }

    /// "$meta" followed by a block fills the folder's meta-data; other blocks are dropped.
    void ReadMetaEntry() {
        const CXString token = ReadToken();
        Skip(kBlanksAndLineEnds);
        if (m_rest.empty() || m_rest[0] != '{') {
            return;
        }
        OpenFolder(token == "$meta" ? m_folders.back().value->GetMeta()
                                    : DNValueRef(new DNMemoryValue));
    }

    /// Stands on the brace.
    void OpenFolder(const DNValueRef& value) {
        m_folders.push_back({value, GetOffset()});
        m_rest.remove_prefix(1);
    }

    void ReadEntry() {
        const size_t start = GetOffset();
        const CXString name = ReadToken();
        if (m_trace.entry) {
            m_trace.entry(m_folders.back().value, name, start);
        }
        const DNData key = DNData::String(name);
        const absl::string_view behindKey = m_rest;
        Skip(kBlanks);
        if (!m_rest.empty() && IsOneOf(m_rest[0], kLineEnds)) {
            // Only a folder or bytes may stand on a later line.
            Skip(kBlanksAndLineEnds);
            if (m_rest.empty() || (m_rest[0] != '{' && m_rest[0] != '`')) {
                m_rest = behindKey;
            }
        }
        DNValue& folder = *m_folders.back().value;
        if (!m_rest.empty() && m_rest[0] == '{' && (m_rest.size() == 1 || m_rest[1] != '{')) {
            OpenFolder(SlotOf(folder, key)->GetChildren());
            return;
        }
        ReadValue(folder, key);
    }

    /// Whether each entry with this key is one of its own.
    bool IsRepeating(const DNData& key) const {
        return m_folders.size() == 1 && std::find(m_repeatingKeys.begin(), m_repeatingKeys.end(),
                                                  key.data.View()) != m_repeatingKeys.end();
    }

    /// The entry that the key's value belongs to, made if needed.
    DNIteratorRef SlotOf(DNValue& folder, const DNData& key) const {
        if (!IsRepeating(key)) {
            return folder.FindOrCreate(key);
        }
        DNIteratorRef added = folder.End();
        added->SetKey(key);
        return added;
    }

    void Store(DNValue& folder, const DNData& key, const DNValueRef& value) const {
        if (IsRepeating(key)) {
            SlotOf(folder, key)->SetValue(value);
        } else {
            folder.Set(key, value); // without an iterator
        }
    }

    void StoreNew(DNValue& folder, const DNData& key, const DNData& data) const {
        Store(folder, key, folder.CreateValue(data));
    }

    void ReadValue(DNValue& folder, const DNData& key) {
        if (!m_rest.empty() && m_rest[0] == '"') {
            StoreNew(folder, key, DNData::String(ReadQuoted()));
        } else if (StartsWith(m_rest, kVerbatimStart)) {
            const size_t start = GetOffset();
            m_rest.remove_prefix(kVerbatimStart.size());
            const absl::string_view text = Take(m_rest.find(kVerbatimEnd));
            NoteOpenText(m_rest.empty(), start);
            Take(kVerbatimEnd.size());
            StoreNew(folder, key, DNData::String(text));
        } else if (StartsWith(m_rest, kWhiteout)) {
            m_rest.remove_prefix(kWhiteout.size());
            StoreNew(folder, key, DNData::Whiteout());
        } else if (!m_rest.empty() && m_rest[0] == '`') {
            const CXStringEdit bytes = ReadRaw();
            if (bytes.IsEmpty()) {
                SlotOf(folder, key);
            } else {
                StoreNew(folder, key, DNData::Raw(bytes.GetData(), bytes.GetLength()));
            }
        } else {
            const absl::string_view text = ReadBare();
            if (text.empty()) {
                Store(folder, key, DNValueRef());
            } else {
                StoreNew(folder, key, InferBare(text));
            }
        }
    }

    absl::string_view ReadBare() {
        const absl::string_view line = Take(m_rest.find_first_of(kLineEnds));
        const size_t first = line.find_first_not_of(kBlanks);
        if (first == absl::string_view::npos) {
            return absl::string_view();
        }
        return line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
    }

    CXStringEdit ReadRaw() {
        CXStringEdit bytes;
        m_rest.remove_prefix(1);
        for (;;) {
            Skip(kBlanksAndLineEnds);
            if (!m_rest.empty() && m_rest[0] == '`') {
                m_rest.remove_prefix(1);
                return bytes;
            }
            if (m_rest.size() < 2) {
                return bytes;
            }
            const int high = HexDigit(m_rest[0]);
            const int low = HexDigit(m_rest[1]);
            if (high < 0 || low < 0) {
                return bytes;
            }
            bytes.AppendByte(static_cast<char>(high * 16 + low));
            m_rest.remove_prefix(2);
        }
    }

    const absl::string_view m_input;
    absl::string_view m_rest;
    TextConfig::Trace& m_trace;
    const std::vector<absl::string_view> m_repeatingKeys;
    std::vector<Folder> m_folders; ///< from the root to the one being filled
};

void ParseDocument(const void* data, size_t size, DNValue& root, TextConfig::Trace& trace,
                   std::initializer_list<absl::string_view> repeatingKeys) {
    Parser parser(absl::string_view(static_cast<const char*>(data), size), trace, repeatingKeys);
    if (!parser.Run(root)) {
        CXLog("TextConfig::Parse> error in data");
    }
}

} // namespace

void TextConfig::Parse(const void* data, size_t size, DNValue& root, Trace* trace) {
    Trace unused;
    ParseDocument(data, size, root, trace != nullptr ? *trace : unused, {});
}

void TextConfig::ParseRepeating(const void* data, size_t size, DNValue& root,
                                std::initializer_list<absl::string_view> repeatingKeys) {
    Trace unused;
    ParseDocument(data, size, root, unused, repeatingKeys);
}

DNValueRef TextConfig::Read(CXStream& stream) {
    // The stream's word for its size isn't trusted with an allocation: pieces are added as they
    // really come.
    constexpr uint64_t kPiece = 64 * 1024;
    DNValueRef root(new DNMemoryValue);
    const uint64_t size = stream.GetRemaining();
    std::vector<char> text;
    while (text.size() < size) {
        const uint64_t before = text.size();
        const uint64_t wanted = size - before < kPiece ? size - before : kPiece;
        text.resize(static_cast<size_t>(before + wanted));
        if (stream.Read(text.data() + before, wanted) != wanted) {
            return root;
        }
    }
    Parse(text.data(), text.size(), *root);
    return root;
}

int ParseEnumValue(const char* name, const char* const* table, const CXString& value) {
    if (value.IsEmpty()) {
        return 0;
    }
    CXString lower(value);
    lower.ToLower();
    for (int index = 0; table[index]; ++index) {
        if (lower == table[index]) {
            return index;
        }
    }
    CXLogFormat("ParseEnumValue> unknown '%s' enum value '%s'", name, value.GetData());
    return 0;
}
