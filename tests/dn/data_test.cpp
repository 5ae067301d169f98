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

std::string Name(const char* text) {
    return text;
}

DNData Bytes(uint32_t type, size_t count) {
    return {CXString(std::string(count, '\1').c_str(), count), type};
}

TEST(DNData, EncodesNumbersInTheWord) {
    // Inline strings: length * 2 + 1 in the first byte, then the bytes.
    EXPECT_EQ(DNData::Int(1).data.GetWord(), 0x0000000000000109u);
    EXPECT_EQ(DNData::Int(-1).data.GetWord(), 0x000000FFFFFFFF09u);
    EXPECT_EQ(DNData::Int(0).data.GetWord(), 0x09u);
    EXPECT_EQ(DNData::Bool(true).data.GetWord(), 0x0103u);
    EXPECT_EQ(DNData::Bool(false).data.GetWord(), 0x03u);
    EXPECT_EQ(DNData::Float(1.0f).data.GetWord(), 0x0000003F80000009u);
    EXPECT_EQ(DNData::Int64(1).data.GetLength(), 8u);
    EXPECT_EQ(DNData::Int64(1).data.GetWord() & 1, 0u) << "eight bytes don't fit the word";
    EXPECT_EQ(DNData::Whiteout().data.GetWord(), 0u);
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
    const struct {
        DNData from;
        uint32_t to;
        CXResult result;
    } cases[] = {
        {DNData::Int(1), kDNTypeInt, kCXResultOK},
        {DNData(), kDNTypeString, kCXResultOK}, // nothing stays nothing
        {DNData::String("x"), kDNTypeInt, kCXResultUnusable},
        {DNData::String("99999999999"), kDNTypeInt, kCXResultUnusable},
        {DNData::Int64(1LL << 40), kDNTypeInt, kCXResultUnusable},
        {DNData::Bool(true), kDNTypeInt, kCXResultUnusable},
        {DNData::Float(2), kDNTypeInt, kCXResultUnusable},
        {DNData::Raw("1", 1), kDNTypeString, kCXResultUnusable},
        {DNData::Folder(), kDNTypeString, kCXResultUnusable},
        {DNData::Int(1), 999, kCXResultUnusable},
        {Bytes(kDNTypeInt, 3), kDNTypeInt64, kCXResultBadData},
        {Bytes(kDNTypeInt, 3), kDNTypeString, kCXResultBadData},
        {Bytes(kDNTypeInt, 3), kDNTypeInt, kCXResultOK}, // a copy looks at nothing
        {Bytes(kDNTypeBool, 2), kDNTypeString, kCXResultBadData},
        {Bytes(kDNTypeBool, 2), kDNTypeInt, kCXResultBadData}, // in the first of two steps
        {Bytes(kDNTypeInt64, 4), kDNTypeInt, kCXResultBadData},
        {Bytes(kDNTypeFloat, 8), kDNTypeString, kCXResultBadData},
        {Bytes(kDNTypeFloats, 6), kDNTypeString, kCXResultBadData},
        {Bytes(kDNTypeInts, 6), kDNTypeFloats, kCXResultBadData},
        {Bytes(kDNTypeInts, 12), kDNTypeBox2i, kCXResultBadData},
        {DNData::String("1,2,3"), kDNTypeVector2i, kCXResultBadData},
    };
    for (const auto& one : cases) {
        DNData out = DNData::String("old");
        EXPECT_EQ(Translate(one.from, one.to, out), one.result)
            << Name(DNTypeName(one.from.type)) << " to " << one.to;
        if (one.result != kCXResultOK) {
            EXPECT_TRUE(out.IsNone());
        }
    }
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
    const struct {
        const char* text;
        bool isFloat;
        float value;
    } floats[] = {
        {"0", true, 0},
        {"-0", true, 0},
        {" 1.5 ", true, 1.5f},
        {"\t1", false, 0},
        {".5", true, 0.5f},
        {"5.", true, 5},
        {"-.5", true, -0.5f},
        {".", false, 0},
        {"-", false, 0},
        {"", false, 0},
        {"1e3", false, 0},
        {"0x10", false, 0},
        {"inf", false, 0},
        {"nan", false, 0},
        {"1,5", false, 0},
        {"+1", false, 0},
        {"1.2.3", false, 0},
        {"- 1", false, 0},
        {"16777217", true, 16777216.0f},
        {"0.1", true, 0.1f},
        {"999999999999999999999999999999999999999.0", false, 0},
        {"0.00000000000000000000000000000000000000000000000000001", true, 0},
    };
    for (const auto& one : floats) {
        float value = 0;
        EXPECT_EQ(DNNumberText::ReadFloat(one.text, value), one.isFloat) << one.text;
        if (one.isFloat) {
            EXPECT_EQ(value, one.value) << one.text;
        }
    }
}

} // namespace
