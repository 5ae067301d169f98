// The configuration that ships with the program, read by the program's own reader.
// The check of whole configurations has its own tests, with the kit.

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
    const DNValueRef locales = root->Get("locales");
    ASSERT_EQ(locales->GetChildCount(), 2u);
    EXPECT_GT(locales->Get("en-US")->GetChildCount(), 100u);
    EXPECT_EQ(locales->Get("de-DE")->GetChildCount(), locales->Get("en-US")->GetChildCount());
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

} // namespace
