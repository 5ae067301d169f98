#include "core/CXString.h"
#include "core/CXStringEdit.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

bool UsesInlineArea(const CXStringEdit& edit) {
    const auto* object = reinterpret_cast<const char*>(&edit);
    return edit.GetData() >= object && edit.GetData() < object + sizeof(edit);
}

TEST(CXStringEdit, GrowsInSteps) {
    CXStringEdit edit;
    EXPECT_EQ(edit.GetCapacity(), 512u);
    EXPECT_TRUE(UsesInlineArea(edit));
    EXPECT_EQ(std::string(edit.GetData(), 512), std::string(512, '\0'));
    // Room is enough only when a terminator fits behind it.
    EXPECT_TRUE(edit.Reserve(500, 11));
    EXPECT_EQ(edit.GetCapacity(), 512u);
    edit.Append(std::string(511, 'a'));
    EXPECT_TRUE(UsesInlineArea(edit));
    edit.AppendByte('b');
    EXPECT_EQ(edit.GetCapacity(), 4096u);
    EXPECT_EQ(Text(edit), std::string(511, 'a') + 'b');
    edit.Reserve(4095, 1);
    EXPECT_EQ(edit.GetCapacity(), 8192u);
    edit.Reserve(100000, 0);
    EXPECT_EQ(edit.GetCapacity(), 102400u);
    edit.Clear();
    EXPECT_EQ(edit.GetCapacity(), 102400u);

    CXStringEdit full("kept");
    EXPECT_FALSE(full.Reserve(UINT64_MAX, 1));
    EXPECT_EQ(Text(full), "kept");
    EXPECT_FALSE(full.Reserve(1, UINT64_MAX / 2));
    EXPECT_TRUE(full.IsEmpty());
    full.Append("again");
    EXPECT_EQ(Text(full), "again");
    full.Resize(UINT64_MAX - 5);
    EXPECT_TRUE(full.IsEmpty());
}

TEST(CXStringEdit, SourcesMayLieInsideTheBuffer) {
    for (const size_t length : {20u, 500u, 3000u}) {
        std::string model;
        for (size_t index = 0; index < length; ++index) {
            model += static_cast<char>('a' + index % 26);
        }
        CXStringEdit edit(model);
        for (int round = 0; round < 5; ++round) {
            edit.Append(edit.View().substr(3, length - 5));
            model += model.substr(3, length - 5);
            ASSERT_EQ(Text(edit), model);
        }
        edit.Assign(edit.View().substr(7, 12));
        EXPECT_EQ(Text(edit), model.substr(7, 12));
        const absl::string_view find = edit.View().substr(1, 2);
        EXPECT_TRUE(edit.ReplaceAll(find, edit.View()));
        EXPECT_EQ(Text(edit), model.substr(7, 1) + model.substr(7, 12) + model.substr(10, 9));
    }
}

TEST(CXStringEdit, CopiesAndMoves) {
    for (const size_t length : {0u, 5u, 511u, 5000u}) {
        const std::string text(length, 'q');
        CXStringEdit first(text);
        CXStringEdit second(first);
        CXStringEdit third(std::move(first));
        EXPECT_EQ(Text(second), text);
        EXPECT_EQ(Text(third), text);
        EXPECT_TRUE(first.IsEmpty());
        first.Append("usable");
        EXPECT_EQ(Text(first), "usable");
        third = std::move(second);
        second = third;
        CXStringEdit& self = second;
        second = self;
        EXPECT_EQ(Text(second), text);
        EXPECT_EQ(Text(third), text);
        EXPECT_EQ(CXString(third), CXString(text));
        EXPECT_EQ(third.ToString(), CXString(text));
    }
    CXStringEdit edit("abcdef");
    edit.Resize(3);
    edit.Resize(5);
    EXPECT_EQ(Text(edit), std::string("abc\0\0", 5));
}

TEST(CXStringEdit, TextOperations) {
    const struct {
        const char *text, *find, *replacement, *result;
    } rows[] = {{"aaa", "aa", "b", "ba"},  {"a.b.c", ".", "::", "a::b::c"},
                {"a.b.c", ".", "", "abc"}, {"abc", "x", "y", "abc"},
                {"", "x", "y", ""},        {"abc", "", "y", "abc"},
                {"abc", "abc", "", ""}};
    for (const auto& row : rows) {
        CXStringEdit edit(row.text);
        EXPECT_EQ(edit.ReplaceAll(row.find, row.replacement), Text(row.text) != row.result);
        EXPECT_EQ(Text(edit), row.result);
    }
    CXStringEdit lines("a\nb\r\nc\n\rd\re\n\nf\r\r\n\n");
    lines.NormaliseLineEndings("|");
    EXPECT_EQ(Text(lines), "a|b|c|d|e||f|||");
    CXStringEdit numbers;
    for (const int32_t value : {0, -1, INT32_MIN, INT32_MAX}) {
        numbers.AppendDecimal(value);
        numbers.AppendByte(' ');
    }
    EXPECT_EQ(Text(numbers), "0 -1 -2147483648 2147483647 ");
}

TEST(CXStringEdit, Splits) {
    CXStringEdit left;
    CXStringEdit right("old");
    EXPECT_TRUE(SplitFirst("key=value=more", "=", left, right));
    EXPECT_EQ(Row(left, right), "key|value=more");
    EXPECT_TRUE(SplitFirst(right.View(), "=", left, right)); // out of its own output
    EXPECT_EQ(Row(left, right), "value|more");
    left.Assign("one, two, three");
    EXPECT_TRUE(SplitFirst(left.View(), ", ", left, right));
    EXPECT_EQ(Row(left, right), "one|two, three");
    for (const char* absent : {",", ""}) {
        EXPECT_FALSE(SplitFirst("plain", absent, left, right));
        EXPECT_EQ(Row(left, right), "plain|");
    }
    EXPECT_TRUE(SplitFirst("a\xE2\x82\xAC!", uint32_t{0x20AC}, left, right));
    EXPECT_EQ(Row(left, right), "a|!");

    const struct {
        const char* text;
        std::vector<std::string> lines;
    } rows[] = {
        {"", {}}, {"a", {"a"}}, {"a\n", {"a"}}, {"\n", {""}}, {"a\n\nb\r\n", {"a", "", "b\r"}}};
    for (const auto& row : rows) {
        std::vector<CXStringEdit> lines(3);
        SplitLines(row.text, lines);
        std::vector<std::string> got;
        for (const CXStringEdit& line : lines) {
            got.push_back(Text(line));
        }
        EXPECT_EQ(got, row.lines) << row.text;
    }
}

// Random edits against std::string.
TEST(CXStringEdit, AgreesWithAModel) {
    std::minstd_rand random(20240615);
    CXStringEdit edit;
    std::string model;
    for (int round = 0; round < 20000; ++round) {
        const size_t size = random() % (random() % 8 == 0 ? 2000 : 20);
        const size_t from = model.empty() ? 0 : random() % model.size();
        const std::string piece(size, static_cast<char>('a' + random() % 26));
        const std::function<void()> steps[] = {
            [&] { edit.Append(piece), model += piece; },
            [&] { edit.AppendByte(static_cast<char>(size)), model += static_cast<char>(size); },
            [&] {
                edit.Append(edit.View().substr(from, size));
                model += std::string(model, from, size);
            },
            [&] { edit.Append(CXString(piece)), model += piece; },
            [&] { edit.Resize(model.size() + size), model.resize(model.size() + size); },
            [&] { edit.Assign(edit.View().substr(from)), model = model.substr(from); }};
        // The last one, which shortens, keeps the text from growing for ever.
        steps[model.size() > 20000 ? 5 : random() % 50 == 0 ? 5 : random() % 5]();
        ASSERT_EQ(edit.View(), absl::string_view(model)) << "round " << round;
    }
}

} // namespace
