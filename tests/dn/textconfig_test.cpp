#include "dn/TextConfig.h"

#include "dn/CXApplicationSettings.h"
#include "dn/DNMemoryDataValue.h"
#include "dn/DNMemoryValue.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamStaticBuffer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

DNValueRef Parse(const std::string& text) {
    DNValueRef root(new DNMemoryValue);
    TextConfig::Parse(text.data(), text.size(), *root);
    return root;
}

std::string Write(const DNValueRef& value) {
    CXStreamDynamicBuffer out;
    TextConfig::Write(*value, out);
    EXPECT_EQ(out.GetLastError(), kCXResultOK);
    return std::string(reinterpret_cast<const char*>(out.GetData()),
                       static_cast<size_t>(out.GetSize()));
}

/// One line that tells type and content: "int 12", "{a: int 1}". Recursive, for small trees.
std::string Show(const DNValueRef& value) {
    switch (value->GetType()) {
    case kDNTypeNone:
        return "none";
    case kDNTypeWhiteout:
        return "whiteout";
    case kDNTypeInt64:
        return "int64 " + Text(value->GetString());
    case kDNTypeRaw: {
        CXString hex;
        hex.ToHex(value->GetData().data.GetData(), value->GetData().data.GetLength());
        return "raw " + Text(hex);
    }
    case kDNTypeFolder: {
        std::string text = "{";
        for (size_t i = 0; i < value->GetChildCount(); ++i) {
            text += (i == 0 ? "" : ", ") + Text(value->KeyAt(i).GetString()) + ": " +
                    Show(value->ChildAt(i));
        }
        if (value->FindMeta()->GetChildCount() > 0) {
            text += " $" + Show(value->FindMeta());
        }
        return text + "}";
    }
    default:
        return Text(value->GetTypeText()) + " " + Text(value->GetString());
    }
}

TEST(TextConfigParse, BareValuesAreInferred) {
    const std::pair<std::string, const char*> cases[] = {
        {"12", "int 12"},
        {"0", "int 0"},
        {"-5", "int -5"},
        {"2147483647", "int 2147483647"},
        {"2147483648", "int64 2147483648"},
        {"-9223372036854775808", "int64 -9223372036854775808"},
        {"1.5", "float 1.500000"},
        {"-1.5", "float -1.500000"},
        {"1,2", "int[] 1, 2"},
        {"1, 2,\t-3", "int[] 1, 2, -3"},
        {"01,2", "int[] 1, 2"},
        {"1.5, 2.5", "float[] 1.500000, 2.500000"},
        {"1, 0.5", "float[] 1.000000, 0.500000"},
        {"1, 2147483648", "float[] 1.000000, 2147483648.000000"},
        {"  a b\t ", "string a b"},
    };
    for (const auto& [bare, value] : cases) {
        EXPECT_EQ(Show(Parse("key " + bare)->Get("key")), value) << bare;
    }
    // What no number would be written as stays a text; too large a number is never a float.
    for (const std::string text : {"012",  "-0", "-012", "-",   "+1",    "9223372036854775808",
                                   "1.50", "1.", ".5",   "0.5", "1.2.3", "1e5",
                                   "nan",  "1,", "1, x", "a;b", "a }",   "true",
                                   "{{x",  "}"}) {
        EXPECT_EQ(Show(Parse("key " + text)->Get("key")), "string " + text);
    }
    EXPECT_EQ(Parse("k 0.5")->Get("k")->GetFloat(), 0.5f) << "the reader still gets the number";
}

TEST(TextConfigParse, Documents) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "{}"},
        {" \t\r\n\n\r ", "{}"},
        {"key", "{key: none}"},
        {"key\n", "{key: none}"},
        {"key \t\nother 1", "{key: none, other: int 1}"},
        {"a 1\rb 2\r\nc 3", "{a: int 1, b: int 2, c: int 3}"},
        {"\t a 1 \n", "{a: int 1}"},
        {"a 1\na 2", "{a: int 2}"},
        {"a 1\na", "{a: none}"},
        {"a 1\na ``", "{a: int 1}"}, // no bytes: the entry is only made sure of
        {"; comment\na 1 ; no comment\n  ; b 2\n", "{a: string 1 ; no comment}"},
        {"a\n{\nb 1\n}\nc 2", "{a: {b: int 1}, c: int 2}"},
        {"a {b 1\n} c 2", "{a: {b: int 1}, c: int 2}"},
        {"a{ 1", "{a{: int 1}"},
        {"a \n\n \t { b \"x\"}", "{a: {b: string x}}"},
        {"a { b { c 1", "{a: {b: {c: int 1}}}"}, // an open end closes everything
        {"a {", "{a: {}}"},
        {"a {x 1\n}\na {y 2\n}", "{a: {x: int 1, y: int 2}}"},
        {"a 1\na {y 2\n}", "{a: {y: int 2}}"},
        {"a {y 2\n}\na 1", "{a: int 1}"},
        {"{ 1", "{{: int 1}"},
        // Quoted texts.
        {"\"a key\" \"a \"\"b\"\"\n c\"", "{a key: string a \"b\"\n c}"},
        {"a \"\"", "{a: string }"},
        {"\"\" 1", "{: int 1}"},
        {"a \"open", "{a: string open}"},
        {"a \"\"\"", "{a: string \"}"},
        {"a \"x\"\"", "{a: string x\"}"},
        {"a \"x\" b 1", "{a: string x, b: int 1}"},
        {"a \"12\"", "{a: string 12}"},
        {"\"$a\" 1", "{$a: int 1}"},
        // Verbatim texts.
        {"a {{{b}}}", "{a: string b}"},
        {"a {{{ \"b\" }\n;c}}} d 1", "{a: string  \"b\" }\n;c, d: int 1}"},
        {"a {{{b\nc", "{a: string b\nc}"},
        {"a\n{{{b}}}", "{a: string b}"},
        {"a {{{}}}", "{a: string }"},
        // Bytes.
        {"a `00 fF\r\n1\t`", "{a: raw 00ff, 1: none}"}, // a lone digit ends the bytes
        {"a `00fF10`b 1", "{a: raw 00ff10, b: int 1}"},
        {"a\n\t`01`", "{a: raw 01}"},
        {"a `01", "{a: raw 01}"},
        {"a `0", "{a: none, 0: none}"},
        {"a ``", "{a: none}"},
        {"a `WHITEOUT`", "{a: whiteout}"},
        {"a\n`WHITEOUT`\nb 1", "{a: whiteout, b: int 1}"},
        {"a `WHITEOUT", "{a: none, WHITEOUT: none}"},
        {"a\n\nb `01`", "{a: none, b: raw 01}"},
        // Meta entries.
        {"$meta {m 1\n} a 2", "{a: int 2 ${m: int 1}}"},
        {"a { $meta\n{m 1\n}\n}", "{a: { ${m: int 1}}}"},
        {"$other { a { $meta { b 1\n} } } c 2", "{c: int 2}"},
        {"$key \"text\"\na 1", "{text: none, a: int 1}"}, // only the word is dropped
        {"$key 1\na 2", "{1: none, a: int 2}"},
        {"$key", "{}"},
    };
    for (const auto& [text, tree] : cases) {
        const LogCapture log;
        EXPECT_EQ(Show(Parse(text)), tree) << text;
        EXPECT_TRUE(log.Get().empty()) << text;
    }
}

TEST(TextConfigParse, ABraceTooManyEndsTheReading) {
    const std::vector<std::string> error{"TextConfig::Parse> error in data"};
    for (const char* text :
         {"a 1\n}\nb 2", "a 1\n}", "a 1\nb {{{x}}}}", "a {b 1\n} a 1\n}}", "a 1\n} \n"}) {
        const LogCapture log;
        const DNValueRef root = Parse(text);
        EXPECT_EQ(log.Get(), error) << text;
        EXPECT_EQ(root->Get("a")->GetInt(), 1) << "what was read stays";
        EXPECT_LE(root->GetChildCount(), 2u);
    }
}

TEST(TextConfigParse, DepthAndSizeAreNoMatter) {
    const auto start = std::chrono::steady_clock::now();
    constexpr int kDepth = 300000;
    std::string deep;
    for (int i = 0; i < kDepth; ++i) {
        deep += i % 3 == 0 ? "$meta {" : i % 3 == 1 ? "$x {" : "a {";
    }
    Parse(deep);
    std::string folders;
    for (int i = 0; i < kDepth; ++i) {
        folders += "a {";
    }
    DNValueRef at = Parse(folders);
    int depth = 0;
    while (at->GetChildCount() > 0) {
        at = at->ChildAt(0);
        ++depth;
    }
    EXPECT_EQ(depth, kDepth);
    at.Clear();

    constexpr int kEntries = 100000;
    std::string flat;
    for (int i = 0; i < kEntries; ++i) {
        flat += "key-" + std::to_string(i * 7919 % kEntries) + " " + std::to_string(i) + "\n";
    }
    const DNValueRef root = Parse(flat);
    ASSERT_EQ(root->GetChildCount(), static_cast<size_t>(kEntries));
    EXPECT_EQ(Text(root->KeyAt(1).GetString()), "key-7919") << "order is kept";
    EXPECT_EQ(root->Get("key-7919")->GetInt(), 1);
    EXPECT_EQ(Write(root).size(), flat.size());
    root->RemoveAll();

    // Keys that agree in all but the middle, as the string hash would see them.
    std::string alike;
    const std::string side(200, 'k');
    for (int i = 0; i < 20000; ++i) {
        alike += side + std::to_string(100000 + i) + side + " 1\n";
    }
    EXPECT_EQ(Parse(alike)->GetChildCount(), 20000u);
    const auto spent = std::chrono::steady_clock::now() - start;
    EXPECT_LT(std::chrono::duration_cast<std::chrono::seconds>(spent).count(), 30);
}

TEST(TextConfigWrite, WritesEveryKind) {
    const int32_t ints[] = {1, 2};
    const auto text = [](const char* bytes) { return DNData::String(bytes); };
    const std::tuple<DNData, DNData, const char*> entries[] = {
        {text("int"), DNData::Int(-5), "int -5\r"},
        {text("long"), DNData::Int64(1LL << 40), "long 1099511627776\r"},
        {text("float"), DNData::Float(1.5f), "float 1.500000\r"},
        {text("bool"), DNData::Bool(true), "bool true\r"},
        {text("ints"), DNData::Ints(ints, 2), "ints 1, 2\r"},
        {text("no-ints"), DNData::Ints(ints, 0), "no-ints \"\"\r"},
        {text("plain"), text("A_b-#$9"), "plain A_b-#$9\r"},
        {text("digits"), text("12"), "digits 12\r"},
        {text("zero"), text("0"), "zero 0\r"},
        {text("zeros"), text("00"), "zeros \"00\"\r"},
        {text("minus"), text("-0x"), "minus \"-0x\"\r"},
        {text("point"), text("0.5"), "point \"0.5\"\r"},
        {text("empty"), text(""), "empty \"\"\r"},
        {text("quote"), text("a \"b\""), "quote \"a \"\"b\"\"\"\r"},
        {text("umlaut"), text("\xC3\xBC"), "umlaut \"\xC3\xBC\"\r"},
        {text("$key"), text("x"), "$key x\r"},
        {text("a key"), text("x"), "\"a key\" x\r"},
        {DNData::Int(7), text("x"), "7 x\r"},
        {text("gone"), DNData::Whiteout(), "gone `WHITEOUT`\r"},
        {text("nothing"), DNData(), "nothing ``\r"},
        {text("packed"), DNData("bytes", kDNTypeCompressed), "packed \"\"\r"}, // no text form
        {text("bytes"), DNData::Raw("\1\xAB\3\4\5\6\7\x08", 8),
         "bytes `01 AB 03 04 05 06 07 08`\r"},
        {text("more"), DNData::Raw("\1\2\3\4\5\6\7\x08\x09", 9),
         "more\r`01 02 03 04 05 06 07 08 09`\r"},
    };
    const DNValueRef root(new DNMemoryValue);
    std::string expected;
    for (const auto& [key, value, line] : entries) {
        root->SetNew(key, value);
        expected += line;
    }
    const DNValueRef folder = root->GetOrCreateFolder(DNData::String("folder"));
    folder->SetNew("line", DNData::Raw("0123456789abcdefg", 17));
    folder->SetNew("full", DNData::Raw("0123456789abcdef", 16));
    folder->GetOrCreateFolder(DNData::String("below"));
    folder->GetMeta()->SetNew("m", DNData::Int(1));
    expected += "folder\r{\r"
                "  $meta\r  {\r    m 1\r  }\r\r"
                "  line\r  `30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66\r  67`\r"
                "  full\r  `30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66\r  `\r"
                "  below\r  {\r  }\r\r"
                "}\r\r";
    EXPECT_EQ(Write(root), expected);
    EXPECT_EQ(Write(DNValueRef(new DNMemoryDataValue(DNData::Int(1)))), "");
}

TEST(TextConfigWrite, ReadsBack) {
    const std::string bytes("\0\1\"`{}$\r\n\t;\x7F\xFF", 13);
    const DNValueRef root(new DNMemoryValue);
    root->SetNew(DNData::String(CXString(bytes.data(), bytes.size())),
                 DNData::String(CXString(bytes.data(), bytes.size())));
    root->SetNew("bytes", DNData::Raw(bytes.data(), bytes.size()));
    root->SetNew("gone", DNData::Whiteout());
    root->FindOrCreate(DNData::String("none"));
    const DNValueRef folder = root->GetOrCreateFolder(DNData::String("f"));
    folder->SetNew("{{{", DNData::String("}}}"));
    folder->GetMeta()->SetNew("k", DNData::String("\n"));
    root->SetNew("after", DNData::String("1,2"));
    EXPECT_EQ(Show(Parse(Write(root))), Show(root));

    // Two kinds of value come back as another type than they were.
    root->RemoveAll();
    root->SetNew("float", DNData::Float(1.5f));
    root->SetNew("text", DNData::String("12"));
    EXPECT_EQ(Show(Parse(Write(root))), "{float: string 1.500000, text: int 12}");
}

TEST(TextConfigRead, TakesWhatRemains) {
    const std::string text = "skipped 1\nkey 2\n";
    CXStreamStaticBuffer stream(text.data(), text.size());
    stream.Seek(10, kCXSeekStart);
    EXPECT_EQ(Show(TextConfig::Read(stream)), "{key: int 2}");
    EXPECT_EQ(Show(TextConfig::Read(stream)), "{}") << "nothing remains";

    /// Promises more than it holds, as a damaged medium would.
    class ShortStream : public CXStreamStaticBuffer {
    public:
        using CXStreamStaticBuffer::CXStreamStaticBuffer;
        uint64_t GetSize() override { return 1ULL << 50; }
    };
    ShortStream shortStream(static_cast<const void*>(text.data()), text.size());
    EXPECT_EQ(Show(TextConfig::Read(shortStream)), "{}");

    class UnknownSize : public CXStream {};
    UnknownSize unknown;
    EXPECT_EQ(Show(TextConfig::Read(unknown)), "{}");
}

TEST(TextConfig, ParseEnumValue) {
    const char* const table[] = {"alignment", "left", "right", nullptr};
    const LogCapture log;
    EXPECT_EQ(ParseEnumValue("alignment", table, "left"), 1);
    EXPECT_EQ(ParseEnumValue("alignment", table, "RIGHT"), 2);
    EXPECT_EQ(ParseEnumValue("alignment", table, ""), 0);
    EXPECT_TRUE(log.Get().empty());
    EXPECT_EQ(ParseEnumValue("alignment", table, "Up"), 0);
    EXPECT_EQ(log.Get(),
              std::vector<std::string>{"ParseEnumValue> unknown 'alignment' enum value 'Up'"});
}

TEST(CXApplicationSettings, KeepsValuesUnderLabels) {
    const TempFolder folder;
    const CXString path = folder.Path("settings.txt");
    const DNValueRef value(new DNMemoryValue);
    value->SetNew("width", DNData::Int(100));
    {
        CXApplicationSettings settings;
        const LogCapture log;
        settings.SetSettingsByLabel("window", value);
        EXPECT_EQ(log.Get(),
                  std::vector<std::string>{
                      "CXApplicationSettings::SetSettingsByLabel> can't save settings 'window' "
                      "while settings are not open"});
        EXPECT_EQ(settings.GetSettingsByLabel("window")->GetType(), kDNTypeNone);
        settings.Open(path);
        settings.SetSettingsByLabel("window", value);
    }
    EXPECT_EQ(folder.ReadFile("settings.txt"), "window\r{\r  width 100\r}\r\r");
    CXApplicationSettings settings;
    settings.Open(path);
    EXPECT_EQ(settings.GetSettingsByLabel("window")->Get("width")->GetInt(), 100);
    settings.SetSettingsByLabel("window", new DNMemoryDataValue(DNData::Int(1)));
    EXPECT_EQ(folder.ReadFile("settings.txt"), "window 1\r") << "shorter than before";
    settings.Close();
    EXPECT_FALSE(settings.IsOpen());

    settings.Open(folder.Path("missing/settings.txt"));
    const LogCapture log;
    settings.SetSettingsByLabel("window", value);
    ASSERT_EQ(log.Get().size(), 1u);
    EXPECT_EQ(log.Get()[0].rfind("CXApplicationSettings::SetSettingsByLabel> failed to create "
                                 "settings file: ",
                                 0),
              0u);
}

} // namespace
