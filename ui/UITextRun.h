// Styled text, as a reader of rich text gives it and a text view shows it.
#pragma once

#include "core/CXString.h"

#include <cstdint>
#include <vector>

/// How the lines of a paragraph stand. The first run of a paragraph decides.
enum class UITextAlign : uint8_t { Left, Center, Right };

/// A stretch of text of one look. A "\n" ends a paragraph; a run may hold several.
struct UITextRun {
    CXString text; ///< UTF-8; the only control characters in it are "\n" and "\t"
    bool bold = false, italic = false, underline = false;
    int32_t halfPoints = 0; ///< height of the letters in half points; 0: the system's text size
    int32_t color = -1;     ///< 0xRRGGBB; -1: the system's text colour
    UITextAlign align = UITextAlign::Left;
};
using UITextRuns = std::vector<UITextRun>;
