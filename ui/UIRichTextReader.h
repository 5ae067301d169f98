// Reads RTF into styled text.
#pragma once

#include "core/CXStringEdit.h"
#include "ui/UIRichText.h"

#include <absl/strings/string_view.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// One reading of one text: Rich Text Format (RTF), version 1.9.1, of which it
/// takes letters, their styles, paragraphs with alignment and indents, and the plain text of lists
/// and fields. Nesting costs memory, not stack, and only to a bound. Made for one Read.
class UIRichTextReader {
public:
    /// Borrows the text.
    explicit UIRichTextReader(absl::string_view rtf) : m_rest(rtf) {}
    UIRichText Read();

    /// The code point of a byte in Windows code page 1252.
    static uint32_t Windows1252(uint8_t byte);
    /// Appends a code point, or U+FFFD for one that isn't a letter; control characters but the tab
    /// and the line feed are left out.
    static void AppendLetter(CXStringEdit& text, uint32_t code);

private:
    // What a group restores at its end.
    struct State {
        UITextRun style; // without text
        UITextParagraph::Align align = UITextParagraph::Align::Left;
        int32_t leftIndent = 0, firstIndent = 0;
        int32_t fallbackLetters = 1; // to pass over behind a Unicode letter
        bool isSkipped = false;      // a destination that isn't shown
        bool isColourTable = false;
        bool isHidden = false;
        bool isBullet = false; // the text of a list's marker
    };
    struct Word {
        absl::string_view name;
        bool hasNumber = false;
        int32_t number = 0;
    };

    void Open();
    void Close();
    void Backslash();
    Word ReadWord();
    void Apply(const Word& word);
    void Symbol(char symbol);
    void HexLetter();
    void Unicode(int32_t number);
    void Byte(uint8_t byte);
    void Letter(uint32_t code);
    void ColourEnds();
    void EndRun();
    void StyleParagraph();
    void EndParagraph();

    absl::string_view m_rest;
    UIRichText m_result;
    UITextParagraph m_paragraph;
    CXStringEdit m_text;  // of the run being read
    UITextRun m_runStyle; // in which m_text stands
    State m_state;
    std::vector<State> m_stack;
    size_t m_tooDeep = 0; // groups open beyond the bound
    std::vector<int32_t> m_colours;
    int32_t m_red = 0, m_green = 0, m_blue = 0;
    bool m_hasColour = false;       // since the last end of a colour
    bool m_groupIsOptional = false; // "\*" was read: unless the next word is known, skip the group
    int32_t m_fallbackLeft = 0;
    uint32_t m_highSurrogate = 0;
};
