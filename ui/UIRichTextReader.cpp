#include "ui/UIRichTextReader.h"

#include "core/CXText.h"

#include <algorithm>
#include <iterator>
#include <utility>

using absl::string_view;

namespace {

// Deeper groups are read, but what they set lasts until the bound is left again.
constexpr size_t kMostGroups = 256;
constexpr size_t kMostColours = 1024;
constexpr int32_t kMostNumber = 100000000;
constexpr int32_t kMostHalfPoints = 400;
constexpr int32_t kMostIndent = 31680; // 22 inches, the widest page there is
constexpr int32_t kDefaultHalfPoints = 24;
constexpr uint32_t kReplacement = 0xFFFD;
constexpr uint32_t kBullet = 0x2022;

// Bytes 0x80 to 0x9F; the others are Latin-1. Holes stand for themselves, as in Windows.
constexpr uint16_t kWindows1252[] = {0x20AC, 0x81,   0x201A, 0x192,  0x201E, 0x2026, 0x2020, 0x2021,
                                     0x2C6,  0x2030, 0x160,  0x2039, 0x152,  0x8D,   0x17D,  0x8F,
                                     0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                     0x2DC,  0x2122, 0x161,  0x203A, 0x153,  0x9D,   0x17E,  0x178};

bool IsLetter(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}
bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}
bool IsControl(uint32_t code) {
    return code < 0x20 && code != '\t' && code != '\n';
}
int HexDigit(char byte) {
    const char lower = static_cast<char>(AsciiLower(static_cast<unsigned char>(byte)));
    return IsDigit(byte) ? byte - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

enum class Does : uint8_t {
    Skip, // starts a destination that isn't shown
    ColourTable,
    BulletText,
    Letter, // stands for a letter, the code in the entry
    Paragraph,
    ParagraphDefaults,
    LetterDefaults,
    Align,
    Bold,
    Italic,
    Underline,
    NoUnderline,
    Strikeout,
    Hidden,
    Size,
    Colour,
    Red,
    Green,
    Blue,
    LeftIndent,
    FirstIndent,
    Unicode,
    FallbackLetters,
    Binary,
};

struct Keyword {
    string_view name;
    Does does;
    uint32_t value = 0;
};

// Sorted for the search.
constexpr Keyword kKeywords[] = {
    {"b", Does::Bold},
    {"bin", Does::Binary},
    {"blue", Does::Blue},
    {"bullet", Does::Letter, kBullet},
    {"cell", Does::Letter, '\t'},
    {"cf", Does::Colour},
    {"colortbl", Does::ColourTable},
    {"emdash", Does::Letter, 0x2014},
    {"emspace", Does::Letter, 0x2003},
    {"endash", Does::Letter, 0x2013},
    {"enspace", Does::Letter, 0x2002},
    {"fi", Does::FirstIndent},
    {"filetbl", Does::Skip},
    {"fldinst", Does::Skip},
    {"fonttbl", Does::Skip},
    {"footer", Does::Skip},
    {"footerf", Does::Skip},
    {"footerl", Does::Skip},
    {"footerr", Does::Skip},
    {"footnote", Does::Skip},
    {"fs", Does::Size},
    {"green", Does::Green},
    {"header", Does::Skip},
    {"headerf", Does::Skip},
    {"headerl", Does::Skip},
    {"headerr", Does::Skip},
    {"i", Does::Italic},
    {"info", Does::Skip},
    {"ldblquote", Does::Letter, 0x201C},
    {"li", Does::LeftIndent},
    {"line", Does::Letter, '\n'},
    {"listoverridetable", Does::Skip},
    {"listtable", Does::Skip},
    {"listtext", Does::BulletText},
    {"lquote", Does::Letter, 0x2018},
    {"nonshppict", Does::Skip},
    {"object", Does::Skip},
    {"page", Does::Paragraph},
    {"par", Does::Paragraph},
    {"pard", Does::ParagraphDefaults},
    {"pict", Does::Skip},
    {"plain", Does::LetterDefaults},
    {"pntext", Does::BulletText},
    {"qc", Does::Align, static_cast<uint32_t>(UITextParagraph::Align::Center)},
    {"qj", Does::Align, static_cast<uint32_t>(UITextParagraph::Align::Justify)},
    {"ql", Does::Align, static_cast<uint32_t>(UITextParagraph::Align::Left)},
    {"qmspace", Does::Letter, 0x2005},
    {"qr", Does::Align, static_cast<uint32_t>(UITextParagraph::Align::Right)},
    {"rdblquote", Does::Letter, 0x201D},
    {"red", Does::Red},
    {"row", Does::Paragraph},
    {"rquote", Does::Letter, 0x2019},
    {"rsidtbl", Does::Skip},
    {"sect", Does::Paragraph},
    {"strike", Does::Strikeout},
    {"stylesheet", Does::Skip},
    {"tab", Does::Letter, '\t'},
    {"u", Does::Unicode},
    {"uc", Does::FallbackLetters},
    {"ul", Does::Underline},
    {"uld", Does::Underline},
    {"uldash", Does::Underline},
    {"uldb", Does::Underline},
    {"ulnone", Does::NoUnderline},
    {"ulw", Does::Underline},
    {"v", Does::Hidden},
};
static_assert(std::is_sorted(std::begin(kKeywords), std::end(kKeywords),
                             [](const Keyword& left, const Keyword& right) {
                                 return left.name < right.name;
                             }));

} // namespace

uint32_t UIRichTextReader::Windows1252(uint8_t byte) {
    return byte >= 0x80 && byte < 0xA0 ? kWindows1252[byte - 0x80] : byte;
}

void UIRichTextReader::AppendLetter(CXStringEdit& text, uint32_t code) {
    if (IsControl(code)) {
        return;
    }
    // The last code of each length would be written a byte longer, which others don't read.
    const bool isLast = code == 0x7F || code == 0x7FF || code == 0xFFFF;
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    AppendCodePoint(text, isLast || isSurrogate || code > 0x10FFFD ? kReplacement : code);
}

UIRichText UIRichTextReader::Read() {
    m_state.style.halfPoints = kDefaultHalfPoints;
    m_runStyle = m_state.style;
    while (!m_rest.empty()) {
        const char byte = m_rest.front();
        m_rest.remove_prefix(1);
        switch (byte) {
        case '{':
            Open();
            break;
        case '}':
            Close();
            break;
        case '\\':
            Backslash();
            break;
        case '\r':
        case '\n':
            break; // only lay out the file
        default:
            Byte(static_cast<uint8_t>(byte));
        }
    }
    // A text ends with the mark of its last paragraph, which opens no further one.
    EndRun();
    if (!m_paragraph.runs.empty()) {
        EndParagraph();
    }
    return std::move(m_result);
}

void UIRichTextReader::Open() {
    m_fallbackLeft = 0;
    m_groupIsOptional = false;
    if (m_stack.size() < kMostGroups) {
        m_stack.push_back(m_state);
    } else {
        ++m_tooDeep;
    }
}

void UIRichTextReader::Close() {
    m_fallbackLeft = 0;
    m_groupIsOptional = false;
    if (m_tooDeep > 0) {
        --m_tooDeep;
    } else if (!m_stack.empty()) {
        m_state = std::move(m_stack.back());
        m_stack.pop_back();
    }
}

void UIRichTextReader::Backslash() {
    if (m_rest.empty()) {
        return;
    }
    if (IsLetter(m_rest.front())) {
        Apply(ReadWord());
        return;
    }
    const char symbol = m_rest.front();
    m_rest.remove_prefix(1);
    Symbol(symbol);
}

// A control word: letters, perhaps a number, and a blank that belongs to it.
UIRichTextReader::Word UIRichTextReader::ReadWord() {
    Word word;
    size_t length = 0;
    while (length < m_rest.size() && IsLetter(m_rest[length])) {
        ++length;
    }
    word.name = m_rest.substr(0, length);
    m_rest.remove_prefix(length);
    const bool isNegative = m_rest.size() > 1 && m_rest[0] == '-' && IsDigit(m_rest[1]);
    if (isNegative) {
        m_rest.remove_prefix(1);
    }
    while (!m_rest.empty() && IsDigit(m_rest.front())) {
        word.hasNumber = true;
        word.number = std::min(word.number * 10 + (m_rest.front() - '0'), kMostNumber);
        m_rest.remove_prefix(1);
    }
    word.number = isNegative ? -word.number : word.number;
    if (!m_rest.empty() && m_rest.front() == ' ') {
        m_rest.remove_prefix(1);
    }
    return word;
}

void UIRichTextReader::Apply(const Word& word) {
    const Keyword* const end = std::end(kKeywords);
    const Keyword* const found = std::lower_bound(
        std::begin(kKeywords), end, word.name,
        [](const Keyword& keyword, string_view name) { return keyword.name < name; });
    const bool isKnown = found != end && found->name == word.name;
    const bool isOptional = std::exchange(m_groupIsOptional, false);
    if (isKnown && found->does == Does::Binary) {
        m_rest.remove_prefix(
            std::min(m_rest.size(), static_cast<size_t>(std::max(0, word.number))));
        return;
    }
    if (isOptional && (!isKnown || found->does != Does::BulletText)) {
        m_state.isSkipped = true;
    }
    if (!isKnown || m_state.isSkipped) {
        return;
    }
    const bool isOn = !word.hasNumber || word.number != 0;
    const int32_t byte = std::clamp(word.number, 0, 255);
    UITextRun& style = m_state.style;
    switch (found->does) {
    case Does::Skip:
        m_state.isSkipped = true;
        break;
    case Does::ColourTable:
        m_state.isColourTable = true;
        break;
    case Does::BulletText:
        m_state.isBullet = true;
        break;
    case Does::Letter:
        Letter(found->value);
        break;
    case Does::Paragraph:
        StyleParagraph();
        EndRun();
        EndParagraph();
        break;
    case Does::ParagraphDefaults:
        m_state.align = UITextParagraph::Align::Left;
        m_state.leftIndent = m_state.firstIndent = 0;
        break;
    case Does::LetterDefaults:
        style = UITextRun();
        style.halfPoints = kDefaultHalfPoints;
        m_state.isHidden = false;
        break;
    case Does::Align:
        m_state.align = static_cast<UITextParagraph::Align>(found->value);
        break;
    case Does::Bold:
        style.bold = isOn;
        break;
    case Does::Italic:
        style.italic = isOn;
        break;
    case Does::Underline:
        style.underline = isOn;
        break;
    case Does::NoUnderline:
        style.underline = false;
        break;
    case Does::Strikeout:
        style.strikeout = isOn;
        break;
    case Does::Hidden:
        m_state.isHidden = isOn;
        break;
    case Does::Size:
        style.halfPoints =
            word.hasNumber ? std::clamp(word.number, 2, kMostHalfPoints) : kDefaultHalfPoints;
        break;
    case Does::Colour:
        style.colour = word.number >= 0 && static_cast<size_t>(word.number) < m_colours.size()
                           ? m_colours[static_cast<size_t>(word.number)]
                           : UITextRun::kDefaultColour;
        break;
    case Does::Red:
        m_red = byte;
        m_hasColour = true;
        break;
    case Does::Green:
        m_green = byte;
        m_hasColour = true;
        break;
    case Does::Blue:
        m_blue = byte;
        m_hasColour = true;
        break;
    case Does::LeftIndent:
        m_state.leftIndent = std::clamp(word.number, 0, kMostIndent);
        break;
    case Does::FirstIndent:
        m_state.firstIndent = std::clamp(word.number, -kMostIndent, kMostIndent);
        break;
    case Does::Unicode:
        Unicode(word.number);
        break;
    case Does::FallbackLetters:
        m_state.fallbackLetters = std::clamp(word.number, 0, 255);
        break;
    case Does::Binary:
        break;
    }
}

void UIRichTextReader::Symbol(char symbol) {
    switch (symbol) {
    case '*':
        m_groupIsOptional = true;
        break;
    case '\'':
        HexLetter();
        break;
    case '~':
        Letter(0xA0);
        break;
    case '_':
        Letter(0x2011);
        break;
    case '{':
    case '}':
    case '\\':
        Byte(static_cast<uint8_t>(symbol));
        break;
    case '\r':
    case '\n':
        // The same as "\par".
        if (!m_state.isSkipped) {
            StyleParagraph();
            EndRun();
            EndParagraph();
        }
        break;
    default:
        break; // optional hyphens, index marks and what isn't known
    }
}

void UIRichTextReader::HexLetter() {
    const int high = m_rest.empty() ? -1 : HexDigit(m_rest[0]);
    const int low = m_rest.size() < 2 ? -1 : HexDigit(m_rest[1]);
    if (high < 0 || low < 0) {
        return;
    }
    m_rest.remove_prefix(2);
    Byte(static_cast<uint8_t>(high * 16 + low));
}

// A letter as a signed 16-bit number; beyond 16 bits as two of them.
void UIRichTextReader::Unicode(int32_t number) {
    m_fallbackLeft = 0;
    const uint32_t unit = static_cast<uint32_t>(number) & 0xFFFF;
    if (unit >= 0xD800 && unit < 0xDC00) {
        m_highSurrogate = unit;
    } else if (unit >= 0xDC00 && unit < 0xE000 && m_highSurrogate != 0) {
        const uint32_t high = std::exchange(m_highSurrogate, 0U);
        Letter(0x10000 + ((high & 0x3FF) << 10) + (unit & 0x3FF));
    } else {
        Letter(unit);
    }
    m_fallbackLeft = m_state.fallbackLetters;
}

// A byte of the text, unless it is what readers without Unicode would show.
void UIRichTextReader::Byte(uint8_t byte) {
    if (m_fallbackLeft > 0) {
        --m_fallbackLeft;
        return;
    }
    if (m_state.isColourTable) {
        if (byte == ';') {
            ColourEnds();
        }
        return;
    }
    // Lists take their marker from a font of symbols, in which this is the dot.
    constexpr uint8_t kSymbolBullet = 0xB7;
    Letter(m_state.isBullet && byte == kSymbolBullet ? kBullet : Windows1252(byte));
}

void UIRichTextReader::ColourEnds() {
    if (m_colours.size() < kMostColours && !m_state.isSkipped) {
        const int32_t colour = m_red << 16 | m_green << 8 | m_blue;
        m_colours.push_back(m_hasColour ? colour : UITextRun::kDefaultColour);
    }
    m_red = m_green = m_blue = 0;
    m_hasColour = false;
}

void UIRichTextReader::Letter(uint32_t code) {
    if (m_fallbackLeft > 0) {
        --m_fallbackLeft;
        return;
    }
    if (m_state.isSkipped || m_state.isHidden || m_state.isColourTable || IsControl(code)) {
        return;
    }
    if (!m_runStyle.SameStyle(m_state.style)) {
        EndRun();
        m_runStyle = m_state.style;
    }
    AppendLetter(m_text, code);
    StyleParagraph();
}

void UIRichTextReader::EndRun() {
    if (m_text.IsEmpty()) {
        return;
    }
    m_paragraph.runs.push_back(m_runStyle);
    m_paragraph.runs.back().text = m_text.ToString();
    m_text.Clear();
}

// The style at a paragraph's mark counts, and at its last letter if the text ends without one.
void UIRichTextReader::StyleParagraph() {
    m_paragraph.align = m_state.align;
    m_paragraph.leftIndent = m_state.leftIndent;
    m_paragraph.firstIndent = std::max(m_state.firstIndent, -m_state.leftIndent);
}

void UIRichTextReader::EndParagraph() {
    m_result.m_paragraphs.push_back(std::move(m_paragraph));
    m_paragraph = UITextParagraph();
}
