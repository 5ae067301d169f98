#include "core/CXLanguages.h"
#include "core/CXLocalisation.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace {

using Texts = std::map<CXString, CXString>;

bool Find(const Texts& texts, const CXString& key, CXStringEdit& out) {
    const auto found = texts.find(key);
    if (found == texts.end()) {
        return false;
    }
    out.Assign(found->second);
    return true;
}

/// One place in a chain of sources.
class Source : public CXStringSource {
public:
    Source(Texts texts, CXStringSource* parent, Texts fallbacks = Texts())
        : m_texts(std::move(texts)), m_fallbacks(std::move(fallbacks)), m_parent(parent) {}
    bool FindString(const CXString& key, CXStringEdit& out) override {
        return Find(m_texts, key, out);
    }
    CXStringSource* GetParentSource() override { return m_parent; }
    bool FindFallbackString(const CXString& key, CXStringEdit& out) override {
        return Find(m_fallbacks, key, out);
    }

private:
    Texts m_texts;
    Texts m_fallbacks;
    CXStringSource* m_parent;
};

std::string Expand(const std::string& text, const Texts& texts) {
    CXStringEdit edit{absl::string_view(text)};
    ExpandLocalisedText(
        edit,
        [&texts](const CXString& key, CXStringEdit& out, const CXLocalisedStringRecursionGuard*) {
            return Find(texts, key, out);
        },
        nullptr);
    return std::string(edit.View());
}

std::string Look(CXStringSource* chain, const char* key) {
    CXStringEdit out;
    EXPECT_TRUE(LookupUIText(chain, key, out, nullptr));
    return std::string(out.View());
}

} // namespace

TEST(Localisation, TableAndArguments) {
    ClearLocalisedStrings();
    EXPECT_EQ(GetLocalisedString("$velpatch_back"), "$velpatch_back");
    SetLocalisedString("$velpatch_back", "Back");
    SetLocalisedString("$velpatch_back", "Go back");
    EXPECT_EQ(GetLocalisedString("$velpatch_back"), "Go back");

    SetLocalisedString("$t", "$1, $2, $10, $11 %s $1");
    EXPECT_EQ(Text(FormatLocalisedString("$t", "a", 2, "3", "4", "5", "6", "7", "8", "9", "ten")),
              "a, 2, ten, a1 %s a");
    // An argument that looks like a placeholder is filled by a later, lower one.
    EXPECT_EQ(Text(FormatLocalisedString("$t", "A", "<$1>")), "A, <A>, A0, A1 %s A");
    EXPECT_EQ(Text(FormatLocalisedString("$t", "$2", "B")), "$2, B, $20, $21 %s $2");
    EXPECT_EQ(Text(FormatLocalisedString("$missing $1", CXString("x"))), "$missing x");
    ClearLocalisedStrings();
    EXPECT_EQ(GetLocalisedString("$t"), "$t");
}

TEST(Localisation, ExpandsReferences) {
    const Texts texts = {
        {"$(greeting)", "Hello $(who)"},
        {"$(old)", "Hello $0"},
        {"$(two)", "$0-$1-$(k)"},
        {"$(empty)", ""},
        {"$(x)", "X"},
        {"$(ref)", "$(x)"},
        {"$(a(b)", "odd"},
    };
    const std::pair<const char*, const char*> table[] = {
        {"$(greeting,who=World)!", "Hello World!"},
        {"$(old,World)", "Hello World"},
        {"$(old,World,unused)", "Hello World"},
        {"$(two,a,b,k=c=d)", "a-b-c=d"},
        {"$(two,f(1,2),g)", "f(1,2)-g-$(k)"},
        {"$(two,k=v,b)", "$0-b-v"},
        {"$(ESCAPE,$(x))$(x)", "$(x)X"},
        {"[$(empty)]", "[]"},
        {"$(none) $(x)", "$(none) X"},
        {"$(old,( $(x)", "$(old,( X"},
        {"$(ref)", "$(x)"},
        {"$(a(b)", "odd"},
        {"$$(x)(", "$X("},
    };
    for (const auto& [text, expanded] : table) {
        EXPECT_EQ(Expand(text, texts), expanded) << text;
    }
    for (const char* same : {"plain", "", "$(ESCAPE)", "$(ESCAPE,a,b)", "$(none,$(x))",
                             "$(open $(x", "$(x", "$(x=1)"}) {
        EXPECT_EQ(Expand(same, texts), same);
    }
}

TEST(Localisation, ChainOfSources) {
    Source root({{"$(title)", "Root $(name)"}, {"$(name)", "root name"}}, nullptr,
                {{"$(late)", "fallback"}});
    Source child({{"$(name)", "child name"}}, &root);
    EXPECT_EQ(Look(&child, "$(title)"), "Root child name");
    EXPECT_EQ(Look(&root, "$(title)"), "Root root name");
    EXPECT_EQ(Look(&child, "$(late)"), "fallback");
    EXPECT_EQ(Look(&child, "$(unknown)"), "$(unknown)");
    EXPECT_EQ(Look(nullptr, "$(unknown)"), "$(unknown)");
    EXPECT_EQ(Look(&child, "see $(name) and $(unknown)"), "see child name and $(unknown)");
}

TEST(Localisation, ReferencesToEnclosingTextsStop) {
    Source source(
        {{"$(self)", "$(self)"}, {"$(a)", "$(b)"}, {"$(b)", "$(a)"}, {"$(round)", "<$(round)>"}},
        nullptr);
    EXPECT_EQ(Look(&source, "$(self)"), "$(self)");
    EXPECT_EQ(Look(&source, "go $(a)"), "go $(b)");
    // Words around the reference hide it from the guard; the depth is bounded all the same.
    const std::string round = Look(&source, "$(round)");
    EXPECT_GT(round.size(), 60U);
    EXPECT_LT(round.size(), 1000U);
}

TEST(Variables, Expand) {
    const Texts variables = {
        {"TARGETPATH", "C:\\Games"}, {"EMPTY", ""}, {"PAIR", "$(a)+$(B)"}, {"RAW", "$(x"}};
    const std::pair<const char*, const char*> table[] = {
        {"a$($)b", "a$b"},
        {"a$()b", "ab"},
        {"$(unknown)", "$(UNKNOWN)"},
        {"x$(targetPath)\\p.exe", "xC:\\Games\\p.exe"},
        {"[$(EMPTY)]", "[]"},
        {"$(PAIR(a=1,b=2))", "1+2"},
        {"$(PAIR(a=1))", "1+$(B)"},
        {"$(PAIR)", "$(a)+$(B)"},
        {"$(pair(A=x=y,B=))!", "x=y+!"},
        {"$(UNKNOWN(a=1))", "$(UNKNOWN)"},
        {"[$(RAW(a=1))]", "[]"},
        {"$(RAW)", "$(x"},
        {"100$ (a) $", "100$ (a) $"},
    };
    for (const auto& [text, expanded] : table) {
        EXPECT_EQ(Text(ExpandVariables(text, variables)), expanded) << text;
    }
    for (const char* broken :
         {"", "$(target", "$(PAIR(a=1,A=2))", "$(PAIR(a))", "$(PAIR())", "$(PAIR(a=1)x)",
          "$(PAIR(a=1)", "$(PAIR(a=1", "$($(a=1))", "$((a=1))", "tail $("}) {
        EXPECT_EQ(Text(ExpandVariables(broken, variables)), "") << broken;
    }
}

TEST(Languages, Variables) {
    using List = std::vector<CXString>;
    EXPECT_EQ(ParseLanguageVariables("de_DE:en_GB.UTF-8::C:fr", "it_IT", "", ""),
              (List{"de-DE", "en-GB", "fr"}));
    EXPECT_EQ(ParseLanguageVariables("", "pt_BR.UTF-8@x", "de_DE", "fr_FR"), (List{"pt-BR"}));
    EXPECT_EQ(ParseLanguageVariables("", "", "de_AT@euro", "fr_FR"), (List{"de-AT"}));
    EXPECT_EQ(ParseLanguageVariables("", "", "", "C.UTF-8"), List());
    EXPECT_EQ(ParseLanguageVariables("POSIX", "", "", "fr_FR"), List());
    EXPECT_EQ(ParseLanguageVariables("", "", "", ""), List());
}

TEST(Languages, OverrideAndCodes) {
    const std::vector<CXString> wanted = {"fr-FR", "de-DE"};
    OverridePreferredLanguages(wanted);
    EXPECT_EQ(GetPreferredLanguages(), wanted);
    OverridePreferredLanguages(std::nullopt);
    EXPECT_EQ(GetPreferredLanguages(), GetSystemLanguages());
    EXPECT_EQ(GetISO639Language("en-US"), "en");
    EXPECT_EQ(GetISO639Language("fil-PH"), "fil");
    EXPECT_EQ(GetISO639Language("!?"), "");
    EXPECT_EQ(GetISO639Language("longword-XX"), "");
}
