// The configuration that ships with the program, read by the program's own reader.
// tests/scripts/check-texts.py checks the texts themselves.

#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

namespace {

std::string ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

DNValueRef ReadConfiguration() {
    const std::string text = ReadFile("data/patch-config.txt");
    DNValueRef root(new DNMemoryValue);
    TextConfig::Parse(text.data(), text.size(), *root);
    return root;
}

TEST(ShippedConfiguration, IsReadToItsEnd) {
    DNValueRef root = ReadConfiguration();
    ASSERT_EQ(root->GetChildCount(), 13u);
    EXPECT_EQ(root->KeyAt(12).GetString(), "locales");
    EXPECT_EQ(root->Get("patch-anchor-file")->GetString(), "RSNE.exe");
    EXPECT_EQ(root->Get("patch-anchor-checksum")->GetString().GetLength(), 32u);
    EXPECT_FALSE(root->Get("patch-is-installation")->GetBool());
}

TEST(ShippedConfiguration, RegistryEditsKeepTheirQuotesAndBackslashes) {
    DNValueRef edits = ReadConfiguration()->Get("registry-edits");
    ASSERT_EQ(edits->GetChildCount(), 9u);
    for (size_t i = 0; i < edits->GetChildCount(); i++) {
        DNValueRef edit = edits->ChildAt(i);
        EXPECT_EQ(edit->GetChildCount(), 5u) << i;
        EXPECT_FALSE(edit->Get("path")->GetString().IsEmpty()) << i;
    }
    // A patcher finds the installed game by exactly this command.
    EXPECT_EQ(edits->ChildAt(8)->Get("value")->GetString(),
              R"("$(TARGETPATH)\RSNE.exe" --installcontent "%1")");
    EXPECT_TRUE(edits->ChildAt(8)->Get("name")->GetString().IsEmpty());
}

TEST(ShippedConfiguration, EveryLanguageHoldsTheListedKeys) {
    DNValueRef languages = ReadConfiguration()->Get("locales");
    ASSERT_EQ(languages->GetChildCount(), 2u);
    EXPECT_EQ(languages->KeyAt(0).GetString(), "en-US");
    EXPECT_EQ(languages->KeyAt(1).GetString(), "de-DE");
    std::ifstream list("tests/scripts/text-keys.txt");
    size_t listed = 0;
    for (std::string line; std::getline(list, line);) {
        if (line.empty() || line[0] != '$') {
            continue;
        }
        listed++;
        const std::string key = line.substr(0, line.find(' '));
        for (size_t i = 0; i < languages->GetChildCount(); i++) {
            EXPECT_FALSE(languages->ChildAt(i)->Get(key.c_str())->GetString().IsEmpty())
                << key << " in language " << i;
        }
    }
    EXPECT_EQ(languages->ChildAt(0)->GetChildCount(), listed);
    EXPECT_EQ(languages->ChildAt(1)->GetChildCount(), listed);
}

} // namespace
