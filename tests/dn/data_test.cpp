#include "dn/DNData.h"
#include "dn/DNNumberText.h"
#include "dn/DNTranslator.h"

#include "core/CXGeometry.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

namespace {

DNData Bytes(uint32_t type, size_t count) {
    return {CXString(std::string(count, '\1').c_str(), count), type};
}

TEST(DNData, EncodesNumbersInTheWord) {
    // Inline strings: length * 2 + 1 in the first byte, then the bytes.
    const std::pair<DNData, uint64_t> words[] = {{DNData::Int(1), 0x0000000000000109},
                                                 {DNData::Int(-1), 0x000000FFFFFFFF09},
                                                 {DNData::Bool(true), 0x0103},
                                                 {DNData::Bool(false), 0x03},
                                                 {DNData::Whiteout(), 0},
                                                 {DNData::Float(1.0f), 0x0000003F80000009}};
    for (const auto& [data, word] : words) {
        EXPECT_EQ(data.data.GetWord(), word);
    }
    EXPECT_EQ(DNData::Int64(1).data.GetLength(), 8u);
    EXPECT_EQ(DNData::Int64(1).data.GetWord() & 1, 0u) << "eight bytes don't fit the word";
    const int32_t ints[] = {1, -2, 3};
    EXPECT_EQ(DNData::Ints(ints, 3).data.GetLength(), 12u);
    EXPECT_EQ(Bytes(kDNTypeInts, 11).GetElementCount(), 2u);

    EXPECT_TRUE(DNData::Int(7) == DNData::Int(7));
    EXPECT_FALSE(DNData::Int(1) == DNData::String("1"));
    EXPECT_FALSE(DNData::Raw("a", 1) == DNData::String("a"));
}

TEST(DNData, RawReadsExtendWithZeros) {
    EXPECT_EQ(Bytes(kDNTypeInt, 3).ReadRawInt(), 0x00010101);
    EXPECT_EQ(Bytes(kDNTypeInt, 9).ReadRawInt(), 0x01010101);
    EXPECT_EQ(Bytes(kDNTypeInt64, 5).ReadRawInt64(), 0x0101010101);
    EXPECT_EQ(DNData().ReadRawFloat(), 0.0f);
    EXPECT_FALSE(DNData().ReadRawBool());
    // A typed read of such a value goes through translation, which checks the length.
    EXPECT_EQ(Bytes(kDNTypeInt, 3).GetInt(-7), -7);
    EXPECT_EQ(Bytes(kDNTypeInt, 5).GetInt(-7), -7);
}

TEST(DNData, TypedReadsTranslate) {
    EXPECT_EQ(DNData::String("12").GetInt(), 12);
    EXPECT_EQ(DNData::String("\t -12 ").GetInt64(), -12);
    EXPECT_EQ(DNData::String("99999999999").GetInt64(), 99999999999);
    EXPECT_EQ(DNData::String("99999999999").GetInt(5), 5);
    EXPECT_EQ(DNData::String("-2147483648").GetInt(), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(DNData::Int64(2147483648).GetInt(5), 5);
    EXPECT_EQ(DNData::Int(-3).GetInt64(), -3);
    EXPECT_EQ(DNData::Float(2.0f).GetInt(5), 5) << "its text has a fraction";
    EXPECT_EQ(DNData::Bool(true).GetInt(5), 5);
    EXPECT_TRUE(DNData::String("TRUE").GetBool());
    EXPECT_FALSE(DNData::String("False").GetBool(true));
    EXPECT_TRUE(DNData::String(" true").GetBool(true)) << "blanks aren't allowed";
    EXPECT_FALSE(DNData::Int(1).GetBool()) << "a number is no truth value";
    EXPECT_EQ(DNData::String("0.5").GetFloat(), 0.5f);
    EXPECT_EQ(DNData::Int(3).GetFloat(), 3.0f);
    EXPECT_EQ(DNData::String("1, 2.5").GetFloats(), (std::vector<float>{1.0f, 2.5f}));
    EXPECT_EQ(DNData::String("7").GetInts(), std::vector<int32_t>{7});
    EXPECT_EQ(DNData::String("x").GetInts({4}), std::vector<int32_t>{4});
    EXPECT_EQ(DNData::Int(5).GetInts(), std::vector<int32_t>{5}) << "by way of a text";

    // Nothing is neither a text nor a number.
    EXPECT_EQ(Text(DNData().GetString("default")), "default");
    EXPECT_EQ(Text(DNData::Folder().GetString("default")), "default");
    EXPECT_EQ(Text(DNData::Raw("x", 1).GetString("default")), "default");
    EXPECT_EQ(DNData::Whiteout().GetInt64(9), 9);
    EXPECT_EQ(Text(DNData::String("").GetString("default")), "");
}

TEST(DNTranslator, Results) {
    const auto expect = [](CXResult result, std::vector<std::pair<DNData, uint32_t>> pairs) {
        for (const auto& [from, to] : pairs) {
            DNData out = DNData::String("old");
            EXPECT_EQ(Translate(from, to, out), result)
                << std::string(DNTypeName(from.type)) << " to " << to;
            EXPECT_TRUE(result == kCXResultOK || out.IsNone());
        }
    };
    // Nothing stays nothing, and a copy looks at nothing.
    expect(kCXResultOK, {{DNData::Int(1), kDNTypeInt},
                         {DNData(), kDNTypeString},
                         {Bytes(kDNTypeInt, 3), kDNTypeInt}});
    expect(kCXResultUnusable, {{DNData::String("x"), kDNTypeInt},
                               {DNData::String("99999999999"), kDNTypeInt},
                               {DNData::Int64(1LL << 40), kDNTypeInt},
                               {DNData::Bool(true), kDNTypeInt},
                               {DNData::Float(2), kDNTypeInt},
                               {DNData::Raw("1", 1), kDNTypeString},
                               {DNData::Folder(), kDNTypeString},
                               {DNData::Int(1), 999}});
    expect(kCXResultBadData, {{Bytes(kDNTypeInt, 3), kDNTypeInt64},
                              {Bytes(kDNTypeInt, 3), kDNTypeString},
                              {Bytes(kDNTypeBool, 2), kDNTypeString},
                              {Bytes(kDNTypeBool, 2), kDNTypeInt}, // in the first of two steps
                              {Bytes(kDNTypeInt64, 4), kDNTypeInt},
                              {Bytes(kDNTypeFloat, 8), kDNTypeString},
                              {Bytes(kDNTypeFloats, 6), kDNTypeString},
                              {Bytes(kDNTypeInts, 6), kDNTypeFloats},
                              {Bytes(kDNTypeInts, 12), kDNTypeBox2i},
                              {DNData::String("1,2,3"), kDNTypeVector2i}});
}

TEST(DNTranslator, GeometryKeepsItsComponents) {
    DNData box;
    ASSERT_EQ(Translate(DNData::String("1, -2, 3, 4"), kDNTypeBox2i, box), kCXResultOK);
    CXBox2i read;
    ASSERT_EQ(box.data.GetLength(), sizeof read);
    std::memcpy(&read, box.data.GetData(), sizeof read);
    EXPECT_EQ(read.left, 1);
    EXPECT_EQ(read.top, -2);
    EXPECT_EQ(read.bottom, 4);
    EXPECT_EQ(Text(box.GetString()), "1, -2, 3, 4");
    DNData colour;
    ASSERT_EQ(Translate(DNData::String("1,0.5,0,1"), kDNTypeColor, colour), kCXResultOK);
    EXPECT_EQ(colour.GetFloats(), (std::vector<float>{1, 0.5f, 0, 1}));
}

/// A later translator for the same pair of types takes over only what the earlier can't read.
TEST(DNTranslator, RegisteredOnesComeLast) {
    class OnOff final : public DNTranslator {
    public:
        OnOff() : DNTranslator(kDNTypeString, kDNTypeBool) {}
        CXResult Translate(const DNData& in, DNData& out) const override {
            out = DNData::Bool(in.data == "on");
            return in.data == "on" || in.data == "true" ? kCXResultOK : kCXResultUnusable;
        }
    };
    static const OnOff onOff; // the list keeps it for good
    EXPECT_FALSE(DNData::String("on").GetBool());
    DNTranslator::Register(&onOff);
    EXPECT_TRUE(DNData::String("on").GetBool());
    EXPECT_TRUE(DNData::String("TRUE").GetBool());
    EXPECT_FALSE(DNData::String("off").GetBool());
}

TEST(DNNumberText, WhatIsANumber) {
    const std::pair<const char*, float> floats[] = {
        {"0", 0},
        {"-0", 0},
        {" 1.5 ", 1.5f},
        {".5", 0.5f},
        {"5.", 5},
        {"-.5", -0.5f},
        {"16777217", 16777216.0f},
        {"0.1", 0.1f},
        {"0.00000000000000000000000000000000000000000000000000001", 0}};
    float value = 0;
    for (const auto& [text, expected] : floats) {
        EXPECT_TRUE(DNNumberText::ReadFloat(text, value)) << text;
        EXPECT_EQ(value, expected) << text;
    }
    for (const char* text : {"\t1", ".", "-", "", "1e3", "0x10", "inf", "nan", "1,5", "+1", "1.2.3",
                             "- 1", "999999999999999999999999999999999999999.0"}) {
        EXPECT_FALSE(DNNumberText::ReadFloat(text, value)) << text;
    }
}

} // namespace
