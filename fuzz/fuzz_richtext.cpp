// Styled text: whatever the bytes are, what comes out is valid UTF-8 without control characters,
// no larger than they allow, and plain text of it reads back as it stands.
#include "core/CXText.h"
#include "fuzz/FuzzTools.h"
#include "ui/UIRichText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const absl::string_view input(reinterpret_cast<const char*>(data), size);
    const UIRichText text = UIRichText::Read(input);
    Check(text.GetParagraphs().size() <= size);
    const UITextRun* before = nullptr;
    for (const UITextParagraph& paragraph : text.GetParagraphs()) {
        before = nullptr;
        Check(paragraph.leftIndent >= 0 && paragraph.leftIndent + paragraph.firstIndent >= 0);
        for (const UITextRun& run : paragraph.runs) {
            Check(!run.text.IsEmpty() && run.halfPoints >= 0 && run.halfPoints <= 400);
            Check(before == nullptr || !before->SameStyle(run));
            before = &run;
        }
    }
    const CXString plain = text.GetPlainText();
    Check(plain.GetLength() <= 3 * size);
    absl::string_view rest = plain;
    while (!rest.empty()) {
        uint32_t code = 0;
        uint32_t length = 0;
        Check(DecodeCodePoint(rest, code, length));
        Check(code >= 0x20 || code == '\t' || code == '\n');
        rest.remove_prefix(length);
    }
    return 0;
}
