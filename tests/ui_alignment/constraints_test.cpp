#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "tests/support/LogCapture.h"
#include "tests/ui_alignment/SceneTools.h"
#include "ui/alignment/UIAlignmentMethodConstraints.h"
#include "ui/alignment/UIAlignmentMethodGrid.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Constraint = UIAlignmentMethodConstraints::Constraint;

DNValueRef Parse(const std::string& text) {
    DNValueRef root(new DNMemoryValue);
    TextConfig::Parse(text.data(), text.size(), *root);
    return root;
}

// "element metric relation element metric constant padding": metrics as numbers, padding p, -p or
// nothing.
std::string Fields(const Constraint& read) {
    return CXString::Format("%s %d %d %s %d %d%s", read.leftElement.GetData(), read.leftMetric,
                            read.relation, read.rightElement.GetData(), read.rightMetric,
                            read.constant,
                            !read.usesPadding     ? ""
                            : read.negatesPadding ? " -p"
                                                  : " p")
        .GetData();
}

TEST(Constraint, LoadString) {
    const struct {
        const char* text;
        const char* fields;
    } cases[] = {
        {"a.left = b.right + 4", "a 0 2 b 1 4"},
        {"a.left = b.right - 4", "a 0 2 b 1 -4"},
        {"a.left = b.right + -4", "a 0 2 b 1 -4"},
        {"a.left < b.RIGHT", "a 0 0 b 1 0"},
        {"a.left >= $x + 2", "a 0 3 $x -1 2"},
        {"a.left > 7", "a 0 4  -1 7"},
        {"a.left = -7", "a 0 2  -1 -7"},
        {"a.width = maximize", "a 5 5  -1 0"},
        {"a.width = minimize", "a 5 6  -1 0"},
        {"a.width = flexible", "a 5 7  -1 0"},
        {"a.width <= 100", "a 5 1  -1 100"},
        {"$gap = 10", "$gap -1 2  -1 10"},
        {"a.left = b.right + padding", "a 0 2 b 1 0 p"},
        {"a.left = b.right - padding", "a 0 2 b 1 0 -p"},
        {"a.left = b.right + padding + 4", "a 0 2 b 1 4 p"},
        {"a.left = b.right + padding - 4", "a 0 2 b 1 -4 p"},
        {"a.left = b.right - padding + 4", "a 0 2 b 1 4 -p"},
        {"a.left = b.right - padding - 4", "a 0 2 b 1 -4 -p"},
        {"a.left = $x - padding + 4", "a 0 2 $x -1 4 -p"},
        {"the name.left = b.right-safebottom", "the name 0 2 b 26 0"},
        {"a.left = b - c.right + 4", "a 0 2 b - c 1 4"},
        // The relations are tried in a fixed order, not by place.
        {"$a = b < 3", "$a = b -1 0  -1 3"},
    };
    for (const auto& test : cases) {
        Constraint read;
        EXPECT_TRUE(read.LoadString(test.text)) << test.text;
        EXPECT_EQ(Fields(read), test.fields) << test.text;
    }
}

TEST(Constraint, FaultsLeaveItUnset) {
    const std::string who = "UIAlignmentMethodConstraints::Constraint::LoadString> invalid ";
    const std::string unknown =
        "ParseEnumValue> unknown 'UIAlignmentMethod::ElementMetricEnum' enum value 'deep'";
    const struct {
        const char* text;
        std::vector<std::string> log;
    } cases[] = {
        {"", {}},
        {"a.left", {}},
        {"a.left=b.left", {}},
        {"aleft = 3", {who + "syntax; left element and metric expected: aleft = 3"}},
        {"$ = 3", {who + "syntax; left element and metric expected: $ = 3"}},
        {".left = 3", {who + "syntax; left element expected: .left = 3"}},
        {"a.deep = 3", {unknown, who + "syntax: a.deep = 3"}},
        {"a. = 3", {who + "syntax: a. = 3"}},
        {"a.left = b.deep + 3", {unknown, who + "syntax: a.left = b.deep + 3"}},
        {"a.left = b", {who + "syntax; right element and metric expected: a.left = b"}},
        {"a.left = .left", {who + "syntax; right element and metric expected: a.left = .left"}},
        {"a.left = 3 + 4", {who + "syntax; right element and metric expected: a.left = 3 + 4"}},
        {"a.top >= maximize",
         {who + "syntax; right element and metric expected: a.top >= maximize"}},
        {"a.left = b.left + four", {who + "padding syntax"}},
        {"a.left = b.left + padding + ", {who + "padding syntax"}},
        {"a.left = b.left + 4 + padding", {who + "padding syntax"}},
        {"a.left = b.left + 99999999999", {who + "padding syntax"}},
        {"a.left = b.left - -2147483648", {who + "padding syntax"}},
    };
    for (const auto& test : cases) {
        const LogCapture log;
        Constraint read;
        EXPECT_FALSE(read.LoadString(test.text)) << test.text;
        EXPECT_EQ(read.relation, -1) << test.text;
        EXPECT_EQ(log.Get(), test.log) << test.text;
    }
}

TEST(UIAlignmentMethod, LoadsFromDescriptions) {
    const LogCapture log;
    EXPECT_EQ(UIAlignmentMethod::Load(*Parse("name box")), nullptr);
    // As lines, as keys and as values; what can't be read is left out.
    for (const char* text :
         {"constraints {{{\r\n  a.left = 4\r\r\nb.left = c\n\tb.top = 8 \n}}}",
          "constraints\n{\n\"a.left = 4\"\n\"b.left = c\"\n\"b.top = 8\"\n}",
          "constraints\n{\n0 \"a.left = 4\"\n1 \"b.left = c\"\n2 b.top = 8\n}"}) {
        const UIAlignmentMethodConstraints method(*Parse(text));
        ASSERT_EQ(method.GetConstraints().size(), 2U) << text;
        EXPECT_EQ(Fields(method.GetConstraints()[0]), "a 0 2  -1 4");
        EXPECT_EQ(Fields(method.GetConstraints()[1]), "b 2 2  -1 8");
    }
    using Priority = UIAlignmentMethodConstraints::IntrinsicPriority;
    const UIAlignmentMethodConstraints method(
        *Parse("constraints {{{a.left = 4}}}\n"
               "intrinsic-priority-overrides\n{\na strong\na.height weak\nb great\n}"));
    EXPECT_EQ(method.GetIntrinsicPriority("a", UIAlignmentMethod::kWidth), Priority::Strong);
    EXPECT_EQ(method.GetIntrinsicPriority("a", UIAlignmentMethod::kHeight), Priority::Weak);
    EXPECT_EQ(method.GetIntrinsicPriority("b", UIAlignmentMethod::kWidth), Priority::Normal);
    EXPECT_TRUE(log.Has("'great'"));

    const UIAlignmentMethodGrid grid(
        *Parse("horizontal-pairing equal\nvertical-pairing None\nmajor-axis horizontal\n"
               "minor-axis-length 3\nminor-axis-align-to-end true"));
    EXPECT_EQ(grid.horizontalPairing, UIAlignmentMethodGrid::Pairing::Equal);
    EXPECT_EQ(grid.verticalPairing, UIAlignmentMethodGrid::Pairing::None);
    EXPECT_EQ(grid.majorAxis, UIAlignmentMethodGrid::Axis::Horizontal);
    EXPECT_EQ(grid.minorAxisLength, 3);
    EXPECT_TRUE(grid.minorAxisAlignToEnd);
    EXPECT_NE(UIAlignmentMethod::Load(*Parse("minor-axis-length 2")), nullptr);

    const UIAlignmentHints hints = UIAlignmentHints::Load(
        *Parse("dont-allow-parent-to-override-minimum-height true\nhint-size-not-flexible 1\n"
               "does-vary-height-based-on-width false\nhint-ignore-full-size true"));
    EXPECT_TRUE(hints.keepMinimumHeight && hints.sizeNotFlexible && hints.ignoreFullSize);
    EXPECT_FALSE(hints.keepMinimumWidth || hints.heightFollowsWidth || hints.debug);
    EXPECT_TRUE(UIAlignmentHints::Load(*Parse("dont-allow-parent-to-override-minimum-size 1"))
                    .keepMinimumWidth);
}

} // namespace
