#include "core/BlockAlloc.h"
#include "core/CXString.h"
#include "core/CXStringEdit.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace {

bool IsInline(const CXString& text) {
    return (text.GetWord() & 1) != 0;
}

uint64_t ReferenceWord(const CXString& text) {
    return reinterpret_cast<const CXStringBlock*>(text.GetWord())->reference.load();
}

// Made before main and released after the main thread's block cache is gone.
const CXString g_staticKey = "a-program-wide-key-in-a-block";

TEST(CXString, WordForms) {
    for (const CXString& empty :
         {CXString(), CXString(static_cast<const char*>(nullptr)), CXString(""), CXString("abc", 0),
          CXString(nullptr, 9), CXString(CXStringEdit())}) {
        EXPECT_EQ(empty.GetWord(), 0u);
    }
    // An integer that was cast to a pointer is never read.
    for (const intptr_t odd : {0x10, 4095, -1, -4095}) {
        EXPECT_EQ(CXString(reinterpret_cast<const char*>(odd)).GetWord(), 0u) << odd;
    }
    EXPECT_STREQ(CXString().GetData(), "");
    EXPECT_NE(CXString().View().data(), nullptr);

    EXPECT_EQ(CXString("abc").GetWord(), 0x0000000063626107u);
    const std::string longText = "0123456789";
    for (size_t length = 1; length <= longText.size(); ++length) {
        const CXString text(longText.data(), length);
        EXPECT_EQ(IsInline(text), length <= 6);
        EXPECT_EQ(text.GetLength(), length);
        EXPECT_EQ(Text(text), longText.substr(0, length));
        EXPECT_EQ(std::strlen(text.GetData()), length);
        if (IsInline(text)) {
            EXPECT_EQ(text.GetWord() & 0xFF, length * 2 + 1);
            EXPECT_EQ(text.GetWord() >> 56, 0u);
            EXPECT_EQ(text.GetData(), reinterpret_cast<const char*>(&text) + 1);
        } else {
            EXPECT_EQ(ReferenceWord(text), 0x102u);
        }
    }
    const CXString withNuls("a\0b\0c\0d\0e", 9);
    EXPECT_EQ(Text(withNuls), std::string("a\0b\0c\0d\0e", 9));
    EXPECT_STREQ(g_staticKey.GetData(), "a-program-wide-key-in-a-block");
}

TEST(CXString, CopiesShareABlockAndMovesTakeIt) {
    CXString first("a text of some length");
    CXString second(first);
    EXPECT_EQ(first.GetWord(), second.GetWord());
    EXPECT_EQ(ReferenceWord(first), 0x202u);
    CXString third;
    third = second;
    EXPECT_EQ(ReferenceWord(first), 0x302u);
    third = third.Left(100);
    EXPECT_EQ(ReferenceWord(first), 0x302u);
    const CXString moved(std::move(third));
    EXPECT_EQ(third.GetWord(), 0u);
    EXPECT_EQ(ReferenceWord(first), 0x302u);
    second = CXString("short");
    EXPECT_EQ(ReferenceWord(first), 0x202u);
    second = first;
    second = CXString("another text of some length");
    EXPECT_EQ(ReferenceWord(first), 0x202u);
    first.Clear();
    EXPECT_TRUE(first.IsEmpty());
    EXPECT_EQ(ReferenceWord(moved), 0x102u);
    EXPECT_EQ(Text(moved), "a text of some length");

    CXString shortOne("abc");
    CXString shortTwo(std::move(shortOne));
    EXPECT_TRUE(shortOne.IsEmpty());
    shortOne = std::move(shortTwo);
    EXPECT_TRUE(shortTwo.IsEmpty());
    EXPECT_EQ(Text(shortOne), "abc");
    CXString& self = shortOne;
    shortOne = self;
    EXPECT_EQ(Text(shortOne), "abc");
    shortOne.Clear();
    EXPECT_TRUE(shortOne.IsEmpty());
}

// Another owner of character storage: the release table hands its blocks back to it.
TEST(CXString, BlocksOfAnotherKindGoBackToTheirOwner) {
    struct Storage {
        CXStringBlock block;
        char text[16];
    };
    static int released = 0;
    int context = 0;
    CXString::RegisterRelease(77, {&context, [](const CXReleaseRecord& record, CXStringBlock*) {
                                       ++*static_cast<int*>(record.context);
                                       ++released;
                                   }});
    CXString::RegisterRelease(CXStringBlock::kOwnKind, {nullptr, nullptr}); // stays as it is
    Storage storage{};
    const auto make = [&](const char* text) {
        storage.block.reference = 0x100 | 77;
        storage.block.length = std::strlen(text);
        storage.block.capacity = storage.block.length + 1;
        std::strcpy(storage.block.GetText(), text);
        return CXString::FromBlock(&storage.block);
    };
    {
        const CXString whole = make("seven77");
        const CXString copy = whole;
        EXPECT_EQ(copy.GetData(), storage.block.GetText());
        EXPECT_EQ(context, 0);
    }
    EXPECT_EQ(context, 1);
    const CXString taken = make("sixsix");
    EXPECT_TRUE(IsInline(taken));
    EXPECT_EQ(context, 2);
    EXPECT_EQ(make("").GetWord(), 0u);
    EXPECT_EQ(context, 3);
    EXPECT_EQ(released, 3);
}

TEST(CXString, Parts) {
    const CXString text("0123456");
    EXPECT_TRUE(IsInline(text.Left(6)));
    EXPECT_EQ(Row(text.Left(6), text.Right(2), text.Left(-1), text.Right(INT64_MIN)),
              "012345|56||");
    EXPECT_EQ(text.Left(7).GetWord(), text.GetWord());
    EXPECT_EQ(text.Right(99).GetWord(), text.GetWord());
    EXPECT_EQ(Row(text.Mid(2, 4), text.Mid(5, SIZE_MAX), text.Mid(7, 9), text.Mid(4, 2),
                  CXString().Mid(0, 1)),
              "23|56|||");

    const std::tuple<int64_t, int64_t, const char*> cuts[] = {
        {2, 4, "01456"}, {-5, 1, "123456"}, {5, 99, "01234"},  {0, 7, ""},
        {-1, 99, ""},    {3, 3, "0123456"}, {5, 2, "0123456"}, {9, 12, "0123456"}};
    for (const auto& [start, end, rest] : cuts) {
        CXString changed(text);
        changed.Remove(start, end);
        EXPECT_EQ(Text(changed), rest) << start << ".." << end;
    }
    EXPECT_EQ(Text(text), "0123456");
    EXPECT_EQ(text.FindChar('4'), 4);
    EXPECT_EQ(text.FindChar('x'), -1);
    EXPECT_EQ(CXString().FindChar(0), -1);
    EXPECT_EQ(CXString("key=\xFF").FindChar('\xFF'), 4);
}

TEST(CXString, CaseAndHex) {
    for (const char* source : {"aZ@[`{", "\xC3\xA4 aBcXyZ \xC3\x84 {}"}) {
        const CXString original(source);
        CXString changed(original);
        changed.ToUpper();
        std::string expected(source);
        for (char& byte : expected) {
            byte = byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 32) : byte;
        }
        EXPECT_EQ(Text(changed), expected);
        changed.ToLower();
        EXPECT_EQ(Text(original), source);
        EXPECT_EQ(changed.FindChar('Z'), -1);
    }
    CXString hex("old");
    hex.ToHex("\x00\x7F\xA5\xFF", 4);
    EXPECT_EQ(Text(hex), "007fa5ff");
    hex.ToHex(nullptr, 0);
    EXPECT_TRUE(hex.IsEmpty());
}

TEST(CXString, Orders) {
    // Texts with their order: what a byte above 0x7F is, is large for `Less`, negative for
    // `Greater`.
    const std::tuple<const char*, const char*, bool, bool> rows[] = {
        {"", "", false, false},        {"", "a", true, false},
        {"a", "", false, true},        {"abc", "abd", true, false},
        {"abc", "abcd", true, false},  {"a long text 1", "a long text", false, true},
        {"a\xC3", "az", false, false}, {"az", "a\xC3", true, true}};
    for (const auto& [a, b, less, greater] : rows) {
        EXPECT_EQ(CXString(a).Less(b), less) << a << " " << b;
        EXPECT_EQ(CXString(a).Greater(b), greater) << a << " " << b;
        EXPECT_EQ(CXString(a) == CXString(b), std::strcmp(a, b) == 0);
    }
    EXPECT_TRUE(CXString("same long text").Equals(CXString("same long text")));
    EXPECT_FALSE(CXString("same long text").Equals(CXString("same long tex_")));
    EXPECT_TRUE(CXString().Equals(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(CXString("a").Equals(static_cast<const char*>(nullptr)));
    EXPECT_TRUE(CXString("abc") == "abc");
    EXPECT_FALSE(CXString("abc\0d", 5) == "abc");
    EXPECT_TRUE(CXString("abc\0d", 5) == absl::string_view("abc\0d", 5));
}

TEST(CXString, HashSkipsTheMiddleOfLongTexts) {
    const auto counts = [](size_t size, size_t at) {
        std::string text(size, 'x');
        const uint32_t before = CXHash(text);
        text[at] = 'y';
        return CXHash(text) != before;
    };
    EXPECT_FALSE(counts(1000, 500));
    EXPECT_TRUE(counts(1000, 127) && counts(1000, 872) && counts(256, 128));
    // CRC-32 of eight zero bytes, and of 03 00 00 00 00 00 00 00 "abc" (taken from Python's zlib).
    EXPECT_EQ(CXHash(""), 0x6522DF69u);
    EXPECT_EQ(CXHash("abc"), 0x38004F3Du);
    EXPECT_EQ(CXStringHasher()(CXString("abc")), CXHash("abc"));
}

TEST(CXString, FormatTakesCStringsAndFailsToEmpty) {
    const CXString name("a name of some length");
    EXPECT_EQ(Text(CXString::Format("%s|%d|%lld|%x|%02u|%03u|%0.1f", name.GetData(), -5,
                                    int64_t{1} << 40, 255, 7u, 9u, 2.25)),
              "a name of some length|-5|1099511627776|ff|07|009|2.2");
    EXPECT_EQ(Text(CXString::Format("100%%")), "100%");
    EXPECT_TRUE(CXString::Format("%d", "text").IsEmpty());
    EXPECT_TRUE(CXString::Format("%s and %s", "one").IsEmpty());
    EXPECT_EQ(CXString::Format("%s", std::string(5000, 'x').c_str()).GetLength(), 5000u);

    CXStringEdit edit("kept ");
    edit.AppendFormat("%s%s", edit.GetData(), 1);
    EXPECT_EQ(Text(edit.View()), "kept ");
    edit.Resize(6); // NUL behind the text
    edit.AppendFormat("%s%s", edit.GetData(), std::string(600, 'y').c_str());
    EXPECT_EQ(Text(edit.View().substr(0, 11)), std::string("kept \0kept ", 11));
    EXPECT_EQ(Text(edit.View().substr(11)), std::string(600, 'y'));
}

// Threads copy, assign, move and clear the same few objects; every text seen must be whole. Three
// objects in a ring, so that each word is in use with two others.
TEST(CXString, ObjectsMayBeSharedByThreads) {
    CXString shared[3] = {"the first of the shared texts", "abc", ""};
    std::atomic<bool> bad{false};
    std::vector<std::jthread> threads;
    for (unsigned seed = 0; seed < 4; ++seed) {
        threads.emplace_back([&shared, &bad, seed] {
            std::minstd_rand random(seed + 1);
            const auto check = [&bad](const CXString& text) {
                const std::string copy = Text(text);
                if (!copy.empty() && copy != "abc" && copy != "the first of the shared texts" &&
                    copy.substr(0, 8) != "a text: ") {
                    bad = true;
                }
            };
            for (int round = 0; round < 20000; ++round) {
                const size_t from = random() % 3;
                const size_t to = (from + 1 + random() % 2) % 3;
                const std::function<void()> steps[] = {
                    [&] { shared[to] = shared[from]; },
                    [&] { shared[to] = std::move(shared[from]); },
                    [&] { check(CXString(shared[from])); },
                    [&] { check(CXString(std::move(shared[from]))); },
                    [&] { shared[to] = CXString::Format("a text: %d", round); },
                    [&] { shared[to] = CXString("abc"); },
                    [&] { shared[to].Clear(); }};
                steps[random() % 7]();
            }
        });
    }
    threads.clear(); // waits for each
    EXPECT_FALSE(bad);
}

} // namespace
