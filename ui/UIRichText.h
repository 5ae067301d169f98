// Styled text as data, and the reader that makes it from RTF or plain text.
#pragma once

#include "core/CXString.h"

#include <absl/strings/string_view.h>

#include <cstdint>
#include <vector>

/// Text in one style.
struct UITextRun {
    static constexpr int32_t kDefaultColour = -1;

    CXString text; ///< UTF-8; a tab is a tab, a line feed breaks the line within the paragraph
    bool bold = false, italic = false, underline = false, strikeout = false;
    int32_t halfPoints = 0;          ///< size of the letters (24 is 12 points); 0: the system's own
    int32_t colour = kDefaultColour; ///< 0xRRGGBB, or the system's own

    bool SameStyle(const UITextRun& other) const {
        return bold == other.bold && italic == other.italic && underline == other.underline &&
               strikeout == other.strikeout && halfPoints == other.halfPoints &&
               colour == other.colour;
    }
};

/// A paragraph. No runs: an empty line.
struct UITextParagraph {
    enum class Align : uint8_t { Left, Center, Right, Justify };

    std::vector<UITextRun> runs;
    Align align = Align::Left;
    int32_t leftIndent = 0;  ///< twentieths of a point (1,440 an inch), never negative
    int32_t firstIndent = 0; ///< of the first line, added to the left one; may be negative
};

/// A styled text. A value; not shared between threads.
class UIRichText {
public:
    const std::vector<UITextParagraph>& GetParagraphs() const { return m_paragraphs; }
    /// The letters alone: a line feed after each paragraph but the last. For accessibility, for
    /// tests, and where styles can't be shown.
    CXString GetPlainText() const;

    /// RTF (recognised by its first bytes) or plain text in UTF-8, or in Windows-1252 if it isn't
    /// valid UTF-8. Never fails: of RTF, what isn't understood is passed over, and what stands
    /// behind a fault is read as far as it goes.
    static UIRichText Read(absl::string_view data);

private:
    friend class UIRichTextReader;

    std::vector<UITextParagraph> m_paragraphs;
};
