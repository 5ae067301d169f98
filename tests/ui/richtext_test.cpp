#include "ui/UIRichText.h"

#include "core/CXStringEdit.h"
#include "stream/CXStreamTools.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Paragraphs as lines: "<c li fi>" where not the default, then "[style]text" for each run; styles
// are b, i, u, s, the size unless 24, and the colour.
std::string Show(const UIRichText& text) {
    std::string shown;
    for (const UITextParagraph& paragraph : text.GetParagraphs()) {
        if (&paragraph != text.GetParagraphs().data()) {
            shown += "|";
        }
        const char align = "lcrj"[static_cast<int>(paragraph.align)];
        if (align != 'l' || paragraph.leftIndent != 0 || paragraph.firstIndent != 0) {
            shown +=
                CXString::Format("<%c %d %d>", align, paragraph.leftIndent, paragraph.firstIndent)
                    .GetData();
        }
        for (const UITextRun& run : paragraph.runs) {
            std::string style = std::string(run.bold ? "b" : "") + (run.italic ? "i" : "") +
                                (run.underline ? "u" : "") + (run.strikeout ? "s" : "");
            style += run.halfPoints == 24 ? "" : std::to_string(run.halfPoints);
            if (run.colour != UITextRun::kDefaultColour) {
                style += CXString::Format("#%06x", run.colour).GetData();
            }
            shown += (style.empty() ? "" : "[" + style + "]") + run.text.GetData();
        }
    }
    return shown;
}

TEST(UIRichText, ReadsRTF) {
    const struct {
        const char* rtf;
        const char* shown;
    } cases[] = {
        {"{\\rtf1 a\\b b\\b0 c\\i\\ul d\\ulnone\\i0 e\\strike f}", "a[b]bc[iu]de[s]f"},
        {"{\\rtf1 a{\\b\\fs28 b}c\\plain\\fs d\\fs9999 e}", "a[b28]bcd[400]e"},
        {"{\\rtf1 one\\par two\\\nthree\\par\\par four\\par}", "one|two|three||four"},
        {"{\\rtf1 a\\line b\\tab c\\~d\\_e\\-f\\{\\}\\\\}", "a\nb\tc\u00A0d\u2011ef{}\\"},
        {"{\\rtf1\\qc a\\par\\ql\\li720\\fi-360 b\\par\\pard\\fi-99\\qj c\\par\\qr d}",
         "<c 0 0>a|<l 720 -360>b|<j 0 0>c|<r 0 0>d"},
        {"{\\rtf1{\\colortbl;\\red255\\green0\\blue16;\\blue999;}\\cf1 a\\cf2 b\\cf0 c\\cf9 d}",
         "[#ff0010]a[#0000ff]bcd"},
        // Letters in every spelling, with what older readers would show in their place.
        {"{\\rtf1 \\'e4\\'DF\\'80\\'93x\\'94\\'zz\\'}", "\u00E4\u00DF\u20AC\u201Cx\u201Dzz"},
        {"{\\rtf1 \\u228?\\u-9847?\\u8364 \\'80!\\uc0\\u955 x\\uc2\\u956 ab{\\u957 c}d}",
         "\u00E4\u20AC!\u03BBx\u03BC\u03BDd"},
        {"{\\rtf1 \\u-10179?\\u-8704?\\u-10179?x\\u8226\\bullet y\\emdash z}",
         "\U0001F600x\u2022y\u2014z"},
        {"{\\rtf1 \\u127?\\u2047?\\u-1?\\u0?\\u1?}", "\uFFFD\uFFFD\uFFFD"},
        // What isn't shown, and what is shown although it stands in a destination.
        {"{\\rtf1{\\fonttbl{\\f0 Font;}}{\\info{\\title T}}{\\*\\generator G;}{\\pict\\bin3 }}}}x"
         "{\\*\\unknown{deep}y}{\\unknown z}{\\v hidden}}",
         "xz"},
        {"{\\rtf1{\\field{\\*\\fldinst HYPERLINK \"h\"}{\\fldrslt{\\ul link}}}"
         "{\\pntext\\f1\\'B7\\tab}{\\*\\pn\\pnlvlblt}item}",
         "[u]link\u2022\titem"},
        // Faults: what there is is read.
        {"{\\rtf1 a}}}b{\\b", "ab"},
        {"{\\rtf1 a\\", "a"},
        {"{\\rtf1\\bin999999999999 a", ""},
        {"{\\rtf1\\bin-5 a\\u99999999999 ?b\\b99999999999999 c}", "a\uE100b[b]c"},
        {"{\\rtf", ""},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Show(UIRichText::Read(test.rtf)), test.shown) << test.rtf;
    }
    // Nesting beyond the bound: no crash, and the text is whole.
    const std::string deep =
        "{\\rtf1" + std::string(100000, '{') + "\\b x" + std::string(100000, '}') + "y}";
    EXPECT_EQ(Show(UIRichText::Read(deep)), "[b]xy");
}

TEST(UIRichText, ReadsPlainText) {
    const struct {
        const char* text;
        const char* plain;
        size_t paragraphs;
    } cases[] = {
        {"", "", 0},
        {"a\r\nb\n\nc\rd\n", "a\nb\n\nc\nd", 5},
        {"\xEF\xBB\xBFl\u00E4\u20AC\t\x01x", "l\u00E4\u20AC\tx", 1},
        {"l\xE4\x80", "l\u00E4\u20AC", 1},
        {"{\\rt", "{\\rt", 1},
    };
    for (const auto& test : cases) {
        const UIRichText read = UIRichText::Read(test.text);
        EXPECT_EQ(read.GetPlainText(), test.plain);
        EXPECT_EQ(read.GetParagraphs().size(), test.paragraphs) << test.text;
    }
    EXPECT_EQ(UIRichText::Read("a").GetParagraphs()[0].runs[0].halfPoints, 0);
}

TEST(UIRichText, TheLicencesThatAreShipped) {
    CXStringEdit file;
    ASSERT_EQ(ReadWholeFile("data/licence-en.rtf", file, 100000), kCXResultOK);
    const std::string english = Show(UIRichText::Read(file));
    EXPECT_EQ(english.rfind("[b28]Rowan Sails: Northern Estuary|[18]Licence of the demonstration "
                            "game||[b18]1. What this is|[18]",
                            0),
              0U)
        << english;
    EXPECT_NE(english.find("[18]The files come [i18]as they are[18]. Nobody"), std::string::npos);
    ASSERT_EQ(ReadWholeFile("data/licence-de.rtf", file, 100000), kCXResultOK);
    const UIRichText german = UIRichText::Read(file);
    const std::string plain = german.GetPlainText().GetData();
    EXPECT_NE(plain.find("\u00FC"), std::string::npos) << plain;
    EXPECT_EQ(plain.find('\\'), std::string::npos) << plain;
    EXPECT_EQ(plain.find('?'), std::string::npos) << plain;
}

} // namespace
