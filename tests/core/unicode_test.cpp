#include "core/CXStringEdit.h"
#include "core/CXStringUTF16.h"
#include "core/CXText.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string Encoded(uint32_t code) {
    CXStringEdit edit;
    return AppendCodePoint(edit, code) ? Text(edit.View()) : "refused";
}

TEST(Text, NumbersAreParsedAtTheFront) {
    const struct {
        const char* text;
        int64_t value;
        const char* rest;
    } rows[] = {
        {"123abc", 123, "abc"},
        {"-5", -5, ""},
        {"007", 7, ""},
        {"-0", 0, ""},
        {"9223372036854775807", INT64_MAX, ""},
        {"-9223372036854775808x", INT64_MIN, "x"},
    };
    for (const auto& row : rows) {
        absl::string_view cursor(row.text);
        int64_t out = 99;
        EXPECT_TRUE(ParseInt64(cursor, out)) << row.text;
        EXPECT_EQ(out, row.value) << row.text;
        EXPECT_EQ(cursor, row.rest);
        EXPECT_EQ(ToInt64(row.text, -77), *row.rest == 0 ? row.value : -77);
    }
    for (const char* bad : {"9223372036854775808", "-", "--1", "+1", " 1", "x1", ""}) {
        absl::string_view cursor(bad);
        int64_t out = 99;
        EXPECT_FALSE(ParseInt64(cursor, out)) << bad;
        EXPECT_EQ(out, 0) << bad;
        EXPECT_EQ(cursor, bad);
        EXPECT_EQ(ToInt64(bad, -77), -77);
    }
    absl::string_view cursor("2147483648");
    int32_t out = 99;
    EXPECT_FALSE(ParseInt32(cursor, out));
    EXPECT_EQ(out, 0);
    EXPECT_EQ(cursor, "2147483648");
    EXPECT_EQ(ToInt32("2147483648"), 0);
    EXPECT_EQ(ToInt32("-2147483648"), INT32_MIN);
    EXPECT_EQ(ToInt32("12 "), 0);
    EXPECT_EQ(ToUInt64("18446744073709551615", 1), UINT64_MAX);
    for (const char* bad : {"18446744073709551616", "-1", "+1", "", "1x"}) {
        EXPECT_EQ(ToUInt64(bad, 42), 42u) << bad;
    }
    EXPECT_EQ(ToUInt64(absl::string_view("\0001", 2), 42), 42u);
}

TEST(Text, CodePointsTakeTheLongerFormOneEarly) {
    const std::pair<uint32_t, std::string> codes[] = {{0x7E, "~"},
                                                      {0x7F, "\xC1\xBF"},
                                                      {0x7FE, "\xDF\xBE"},
                                                      {0x7FF, "\xE0\x9F\xBF"},
                                                      {0xFFFE, "\xEF\xBF\xBE"},
                                                      {0xFFFF, "\xF0\x8F\xBF\xBF"},
                                                      {0x10FFFF, "\xF4\x8F\xBF\xBF"},
                                                      {0x110000, "refused"},
                                                      {0, std::string(1, '\0')}};
    for (const auto& [code, bytes] : codes) {
        EXPECT_EQ(Encoded(code), bytes) << code;
    }

    // What is written reads back, but for 0x7F and the surrogates.
    std::vector<uint32_t> wrong;
    for (uint32_t code = 0; code < 0x10FFFF; ++code) {
        CXStringEdit edit;
        AppendCodePoint(edit, code);
        uint32_t decoded = 1;
        uint32_t size = 9;
        const bool good = DecodeCodePoint(edit.View(), decoded, size);
        const bool expected = code != 0x7F && (code < 0xD800 || code > 0xDFFF);
        if (good != expected || decoded != (expected ? code : 0x3F) ||
            size != (expected ? edit.GetLength() : 0)) {
            wrong.push_back(code);
        }
    }
    EXPECT_EQ(wrong, std::vector<uint32_t>());
}

TEST(Text, DecodingFaults) {
    const std::pair<const char*, uint32_t> rows[] = {
        {"\xE0\x80\x80", 0}, // overlong behind a legal lead
        {"\xF0\x8F\xBF\xBF", 0xFFFF},
        {"\xF4\x8F\xBF\xBE", 0x10FFFE},
    };
    uint32_t code = 0;
    uint32_t size = 0;
    for (const auto& [bytes, expected] : rows) {
        EXPECT_TRUE(DecodeCodePoint(bytes, code, size)) << bytes;
        EXPECT_EQ(code, expected);
        EXPECT_EQ(size, std::strlen(bytes));
    }
    for (const char* bad :
         {"\xF4\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xC1\xBF", "\x80", "\xC3",
          "\xC3(", "\xE2\x82", "\xE2\x82\xC3", "\xED\xA0\x80", "\xF0\x8D\xA0\x80", ""}) {
        EXPECT_FALSE(DecodeCodePoint(bad, code, size)) << bad;
        EXPECT_EQ(code, 0x3Fu);
        EXPECT_EQ(size, 0u);
    }
    EXPECT_EQ(CodePointSize(""), 0u);
    EXPECT_EQ(CodePointSize("\xFF\xFF"), 1u);
    EXPECT_EQ(CodePointSize("\xE2\x82\xAC\xE2"), 3u);
    EXPECT_EQ(CountCodePoints("a\xE2\x82\xAC\xFF\xC3"), 4u);
}

TEST(Text, ComparesWithoutCase) {
    EXPECT_TRUE(EqualsNoCase("Content-LENGTH[", "content-length["));
    EXPECT_FALSE(EqualsNoCase("@", "`"));
    EXPECT_FALSE(EqualsNoCase("abc", "ab"));
    EXPECT_FALSE(EqualsNoCase("\xC3\x84", "\xC3\xA4"));

    const struct {
        const char *a, *b;
        int folded, ascii;
    } rows[] = {
        {"", "", 0, 0},
        {"ABC", "abd", -1, -1},
        {"abc", "AB", 1, 1},
        {"\xC3\x84pfel", "\xC3\xA4PFEL", 0, -1},          // letter with a row of status C
        {"Fu\xC3\x9F", "FUSS", 0, 1},                     // sharp s: status F, two letters
        {"\xEF\xAC\x83", "FFI", 0, 1},                    // ligature: three letters
        {"\xCE\xA3", "\xCF\x82", 0, -1},                  // both sigmas
        {"I", "\xC4\xB1", -1, -1},                        // Turkish rows (T) are not used
        {"\xE1\x8F\xB8", "\xE1\x8F\xB0", 0, 1},           // Cherokee came with 8.0
        {"\xF0\x9E\xA4\x80", "\xF0\x9E\xA4\xA2", -1, -1}, // Adlam came with 9.0
        {"a\xFF", "A\xFF", 0, 0},                         // undecodable bytes as they are
        {"ab", "a\xC3\xA4", -1, -1},
        {"a", "a\xC3\xA4", -1, -1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(CompareNoCase(row.a, row.b, false), row.folded) << row.a << " " << row.b;
        EXPECT_EQ(CompareNoCase(row.b, row.a, false), -row.folded) << row.a << " " << row.b;
        EXPECT_EQ(CompareNoCase(row.a, row.b, true), row.ascii) << row.a << " " << row.b;
    }
    CXStringEdit folded;
    AppendCaseFolded(folded, "A\x7F\xC3\x9F\xFF\xE1\xBE\x80");
    EXPECT_EQ(Text(folded.View()), "a\xC1\xBFss\xFF\xE1\xBC\x80\xCE\xB9");
}

TEST(UTF16, FormsOfTheWord) {
    EXPECT_EQ(CXStringUTF16().GetUnits()[0], 0);
    EXPECT_EQ(ToUTF16("").GetWord(), 0u);
    for (size_t count = 1; count <= 9; ++count) {
        const CXStringUTF16 text = ToUTF16(std::string(count, 'x'));
        EXPECT_EQ(text.GetLength(), count * 2 + 1);
        EXPECT_EQ(text.CountUnits(), count);
        EXPECT_EQ((text.GetWord() & 1) != 0, count <= 2);
        const char16_t* units = text.GetUnits();
        EXPECT_EQ(reinterpret_cast<uintptr_t>(units) % 2, 0u);
        EXPECT_EQ(static_cast<const void*>(units) == text.GetData(), count > 2);
        EXPECT_EQ(std::u16string(units), std::u16string(count, u'x'));
    }
    const CXStringUTF16 original = ToUTF16("ab");
    const CXStringUTF16 copy = original;
    EXPECT_EQ(std::u16string(copy), u"ab");
}

TEST(UTF16, BothWays) {
    const struct {
        const char* utf8;
        std::u16string units;
    } rows[] = {
        {"a\xC3\xA4\xE2\x82\xAC", u"a\u00E4\u20AC"},
        {"\xF0\x9F\x98\x80!", u"\U0001F600!"},
        {"\xEF\xBF\xBD", u"\uFFFD"},
    };
    for (const auto& row : rows) {
        const CXStringUTF16 wide = ToUTF16(row.utf8);
        EXPECT_EQ(std::u16string(wide.GetUnits()), row.units);
        EXPECT_EQ(FromUTF16(wide), row.utf8);
        EXPECT_EQ(FromUTF16(wide.GetUnits()), row.utf8);
    }
    // One '?' for each byte that doesn't decode.
    EXPECT_EQ(std::u16string(ToUTF16("a\xFF\xE2\x82z")), u"a???z");

    const struct {
        std::u16string units;
        const char *whole, *terminated;
    } broken[] = {
        {{u'a', 0xD83D}, "a?", "a?"},
        {{u'a', 0xDE00, u'b'}, "a?b", "a"},
        {{0xD83D, u'A', u'!'}, "\xF0\x9F\x91\x81!", "\xF0\x9F\x91\x81!"},
    };
    for (const auto& row : broken) {
        EXPECT_EQ(FromUTF16(CXStringUTF16(row.units.data(), row.units.size())), row.whole);
        EXPECT_EQ(FromUTF16(row.units.c_str()), row.terminated);
    }
    EXPECT_TRUE(FromUTF16(static_cast<const char16_t*>(nullptr)).IsEmpty());
    // Zero units inside a text are kept, 0x7F takes the form that AppendCodePoint gives it.
    const std::u16string odd{u'a', 0, 0x7F};
    EXPECT_EQ(FromUTF16(CXStringUTF16(odd.data(), 3)), CXString("a\0\xC1\xBF", 4));
}

} // namespace
