#include "ui/UIRichText.h"

#include "core/CXStringEdit.h"
#include "core/CXText.h"
#include "ui/UIRichTextReader.h"

#include <algorithm>

using absl::string_view;

namespace {

constexpr string_view kByteOrderMark = "\xEF\xBB\xBF";

UITextParagraph PlainParagraph(string_view line, bool isUTF8) {
    CXStringEdit text;
    for (const char letter : line) {
        const uint8_t byte = static_cast<uint8_t>(letter);
        if (byte >= 0x80 && !isUTF8) {
            UIRichTextReader::AppendLetter(text, UIRichTextReader::Windows1252(byte));
        } else if (byte >= 0x20 || byte == '\t') {
            text.AppendByte(letter);
        }
    }
    UITextParagraph paragraph;
    if (!text.IsEmpty()) {
        paragraph.runs.emplace_back();
        paragraph.runs.back().text = text.ToString();
    }
    return paragraph;
}

} // namespace

CXString UIRichText::GetPlainText() const {
    CXStringEdit text;
    for (const UITextParagraph& paragraph : m_paragraphs) {
        if (&paragraph != m_paragraphs.data()) {
            text.AppendByte('\n');
        }
        for (const UITextRun& run : paragraph.runs) {
            text.Append(run.text);
        }
    }
    return text.ToString();
}

UIRichText UIRichText::Read(string_view data) {
    if (data.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        data.remove_prefix(kByteOrderMark.size());
    }
    if (data.substr(0, 5) == "{\\rtf") {
        return UIRichTextReader(data).Read();
    }
    UIRichText text;
    const bool isUTF8 = IsUTF8(data);
    while (!data.empty()) {
        const size_t end = std::min(data.find_first_of("\r\n"), data.size());
        text.m_paragraphs.push_back(PlainParagraph(data.substr(0, end), isUTF8));
        const size_t mark = data.substr(end, 2) == "\r\n" ? 2 : 1;
        data.remove_prefix(std::min(end + mark, data.size()));
    }
    return text;
}
