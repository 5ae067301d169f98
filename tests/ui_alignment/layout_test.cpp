// Scenes to rectangles: what the rows that elements bring make of a set of constraints.

#include "tests/support/LogCapture.h"
#include "tests/ui_alignment/SceneTools.h"
#include "ui/alignment/UIAlignmentContainer.h"
#include "ui/alignment/UIAlignmentMethodConstraints.h"
#include "ui/alignment/UIAlignmentMethodGrid.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

UIAlignmentMethodConstraints Constraints(const std::string& lines) {
    UIAlignmentMethodConstraints method;
    method.AddLines(lines);
    return method;
}

struct LayoutCase {
    const char* what;
    const char* children; // in 200 x 100 with padding 12; children keep 8
    const char* constraints;
    const char* rectangles;
};

TEST(ConstraintLayout, Cases) {
    const LayoutCase cases[] = {
        {"natural size at the start", "a 10 10 60 20", "", "a 0,0 60x20"},
        {"padding to the container and between", "a 10 10 60 20;b 10 10 30 20 pad=9",
         "a.left = parent.left + padding\nb.left = a.right + padding\nb.top = a.bottom + padding",
         "a 12,0 60x20; b 81,29 30x20"},
        {"from the far edges", "ok 10 10 60 20;no 10 10 50 20",
         "ok.right = parent.right - padding\nok.bottom = parent.bottom - padding\n"
         "no.right = ok.left - padding + 2\nno.bottom = ok.bottom",
         "ok 128,68 60x20; no 72,68 50x20"},
        {"both edges stretch", "a 10 10 60 20",
         "a.left = parent.left + padding\na.right = parent.right - padding", "a 12,0 176x20"},
        {"the later of two stretches", "a 10 10 60 20;b 10 10 60 20",
         "a.left = 0\nb.left = a.right\nb.right = parent.right", "a 0,0 60x20; b 60,0 140x20"},
        {"unless it isn't flexible", "a 10 10 60 20;b 10 10 60 20 rigid",
         "a.left = 0\nb.left = a.right\nb.right = parent.right", "a 0,0 140x20; b 140,0 60x20"},
        {"short room shrinks to least sizes and no further", "a 90 10 150 20;b 70 10 150 20",
         "b.left = a.right", "a 0,0 130x20; b 130,0 70x20"},
        {"least sizes stick out rather than shrink", "a 150 10 150 20;b 70 10 90 20",
         "b.left = a.right", "a 0,0 150x20; b 150,0 90x20"},
        {"a constraint overrides the least size", "a 90 10 150 20", "a.width = 30", "a 0,0 30x20"},
        {"which can be forbidden", "a 90 10 150 20 keepmin", "a.width <= 30", "a 0,0 150x20"},
        {"maximize goes beyond the natural size", "a 10 10 60 20",
         "a.width = maximize\na.width <= 100\na.height = maximize", "a 0,0 100x100"},
        {"minimize", "a 10 10 60 20", "a.width = minimize", "a 0,0 10x20"},
        {"flexible is bound by relations alone", "a 90 10 150 20;b 10 10 40 20",
         "a.width = flexible\na.width <= b.width", "a 0,0 0x20; b 0,0 40x20"},
        {"no striving for the natural size", "a 10 10 60 20 nofull", "", "a 0,0 10x10"},
        {"equal widths are those of the wider", "a 60 20 60 20;b 80 20 80 20",
         "a.width = b.width\nb.left = a.right + padding", "a 0,0 80x20; b 88,0 80x20"},
        {"centred; odd halves go down", "a 61 21 61 21",
         "a.horizontal-center = parent.horizontal-center\n"
         "a.vertical-center = parent.vertical-center",
         "a 70,40 61x21"},
        {"on one baseline, whatever the heights",
         "a 10 15 30 15 baseline=12;b 10 30 30 30 baseline=20;c 9 9 9 9",
         "b.top = 10\na.baseline = b.baseline\nc.baseline = b.baseline",
         "a 0,18 30x15; b 0,10 30x30; c 0,21 9x9"},
        {"variables", "a 10 10 60 20;b 10 10 60 20",
         "$gap = 10\n$edge = a.right + 3\na.left = $gap\nb.left = $edge",
         "a 10,0 60x20; b 73,0 60x20"},
        {"metrics of padding, content and safe edges", "a 10 10 60 20;b 10 10 40 20;c 10 10 20 20",
         "a.left = parent.left-padding\na.width = parent.content-width\na.top = parent.safetop\n"
         "b.width = a.content-width + 1\nb.right = parent.bottom-saferight\n"
         "c.width = b.left-padding\nc.bottom = parent.safebottom",
         "a 12,5 176x20; b 136,0 61x20; c 0,75 8x20"},
        {"an invisible one takes no room and its gap closes",
         "a 10 10 60 20;b 10 10 60 20 hidden;c 10 10 60 20",
         "b.left = a.right + padding\nb.width = 50\nc.left = b.right + padding\n"
         "c.height = b.height",
         "a 0,0 60x20; b 60,0 0x0; c 68,0 60x20"},
        {"unless it keeps its metrics", "a 10 10 60 20;b 10 10 60 20 hidden keep;c 10 10 60 20",
         "b.left = a.right + padding\nb.width = 50\nc.left = b.right + padding",
         "a 0,0 60x20; b 68,0 50x20; c 126,0 60x20"},
        {"the later of two constraints gives way", "a 10 10 60 20",
         "a.left = 30\na.left = 90\na.left = 60", "a 30,0 60x20"},
        {"names that nobody has, twice or not at all, and the container's",
         "a 9 9 20 20;a 9 9 30 20; 9 9 40 20;parent 9 9 50 20",
         "a.left = nobody.right + 5\nparent.top = 3",
         "a 0,0 20x20; a 0,0 30x20;  0,0 40x20; parent 0,0 50x20"},
    };
    for (const LayoutCase& test : cases) {
        SCOPED_TRACE(test.what);
        UIAlignmentScene scene = Scene(200, 100, test.children);
        if (scene.children.size() > 2 && scene.children[2].name == "9") {
            scene.children[2] = Child("x 9 9 40 20");
            scene.children[2].name.Clear();
        }
        scene.frame.safe = {4, 5, 3, 5};
        Constraints(test.constraints).Apply(scene);
        EXPECT_EQ(Show(scene), test.rectangles);
    }
}

// The patch page, with long texts: nothing overlaps, and gaps are to the pixel.
TEST(ConstraintLayout, WizardPage) {
    const std::string lines = "heading.left = parent.left + padding\n"
                              "heading.right = parent.right - padding\n"
                              "heading.top = parent.top + padding\n"
                              "bar.left = heading.left\nbar.right = heading.right\n"
                              "bar.top = heading.bottom + padding\n"
                              "launch.left = heading.left\nlaunch.top = bar.bottom + padding\n"
                              "cancel.right = parent.right - padding\n"
                              "cancel.bottom = parent.bottom - padding\n"
                              "start.right = cancel.left - padding\nstart.bottom = cancel.bottom\n"
                              "back.right = start.left - padding\nback.bottom = cancel.bottom\n";
    UIAlignmentScene scene = Scene(473, 260,
                                   "heading 7 15 1400 15 wrap;bar 40 14 200 14;"
                                   "launch 150 21 150 21;start 87 26 87 26;cancel 75 26 75 26;"
                                   "back 66 26 66 26");
    WrappingText heading(200);
    scene.measurer = &heading;
    Constraints(lines).Apply(scene);
    EXPECT_EQ(Show(scene), "heading 12,12 449x60; bar 12,80 449x14; launch 12,102 150x21; "
                           "start 291,222 87x26; cancel 386,222 75x26; back 217,222 66x26");
    EXPECT_EQ(heading.calls, 1);
}

// Elements that hang on one another have their sizes and gaps to the pixel, however many they are
// and whichever end is fixed; what has to give is the last one.
TEST(ConstraintLayout, ChainsDoNotDrift) {
    for (const int32_t width : {500, 641, 700, 997}) {
        for (const bool isFromLeft : {true, false}) {
            SCOPED_TRACE(width);
            UIAlignmentScene scene = Scene(width, 100, "");
            UIAlignmentMethodConstraints method;
            const char* first = isFromLeft ? "left" : "right";
            const char* last = isFromLeft ? "right" : "left";
            const char* sign = isFromLeft ? "+" : "-";
            const auto tie = [&](int index, const char* edge, const CXString& to, const char* op) {
                method.Add(
                    CXString::Format("e%d.%s = %s %s padding", index, edge, to.GetData(), op));
            };
            tie(0, first, CXString::Format("parent.%s", first), sign);
            for (int index = 0; index < 12; ++index) {
                scene.children.push_back(Child("e 10 10 33 20"));
                scene.children.back().name = CXString::Format("e%d", index);
                scene.children.back().intrinsic.natural.width += index;
                if (index > 0) {
                    tie(index, first, CXString::Format("e%d.%s", index - 1, last), sign);
                }
            }
            tie(11, last, CXString::Format("parent.%s", last), isFromLeft ? "-" : "+");
            method.Apply(scene);
            int32_t at = 12;
            int32_t left = width - 24 - 11 * 8;
            for (int index = 0; index < 12; ++index) {
                const UIRect rect = scene.children[static_cast<size_t>(index)].rect;
                const int32_t others = (11 - index) * 10;
                const int32_t size = index == 11 ? left : std::min(33 + index, left - others);
                EXPECT_EQ(isFromLeft ? rect.left : width - rect.right, at) << index;
                EXPECT_EQ(rect.right - rect.left, size) << index;
                at += size + 8;
                left -= size;
            }
        }
    }
}

TEST(ConstraintLayout, OverridesAndDebugLog) {
    UIAlignmentMethodConstraints method = Constraints("a.width = 30\na.height = 5");
    method.SetIntrinsicPriority("a.width", UIAlignmentMethodConstraints::IntrinsicPriority::Strong);
    UIAlignmentScene scene = Scene(200, 100, "a 90 10 150 20");
    method.Apply(scene);
    EXPECT_EQ(Show(scene), "a 0,0 150x5");

    const LogCapture log;
    scene.children[0].hints.debug = true;
    scene.children[0].intrinsic.heightFollowsWidth = true;
    scene.children.push_back(Child("b 1 1 1 1 hidden"));
    scene.children.push_back(Child("c 1 1 1 1 rigid"));
    method.Apply(scene);
    for (const char* label :
         {"constraint", "parent metrics", "relationship metrics", "invisible element", "min size",
          "max size", "full size", "CXStaticText static height", "gave way", "a.width is 150"}) {
        EXPECT_TRUE(log.Has(label)) << label;
    }
}

struct GridCase {
    const char* what;
    UIAlignmentMethodGrid::Axis major;
    int32_t length;
    bool toEnd;
    UIAlignmentMethodGrid::Pairing horizontal, vertical;
    const char* children; // in 200 x 100 with padding 12
    const char* rectangles;
};

TEST(GridLayout, Cases) {
    using Axis = UIAlignmentMethodGrid::Axis;
    using Pairing = UIAlignmentMethodGrid::Pairing;
    const char* three = "a 10 10 60 20;b 10 10 30 10;c 10 10 40 30";
    const GridCase cases[] = {
        {"a list", Axis::Vertical, 1, false, Pairing::Aligned, Pairing::Aligned,
         "a 9 9 60 20;x 9 9 90 90 hidden;b 9 9 30 10 rigid",
         "a 12,12 60x20; x 0,0 0x0; b 12,40 30x10"},
        {"rows of two", Axis::Vertical, 2, false, Pairing::Aligned, Pairing::Aligned, three,
         "a 12,12 60x20; b 80,12 30x20; c 12,40 60x30"},
        {"the last line at the end", Axis::Vertical, 2, true, Pairing::Aligned, Pairing::Aligned,
         three, "a 12,12 60x20; b 80,12 40x20; c 80,40 40x30"},
        {"columns of two", Axis::Horizontal, 2, false, Pairing::Aligned, Pairing::Aligned, three,
         "a 12,12 60x30; b 12,50 60x10; c 80,12 40x30"},
        {"equal columns share the room", Axis::Vertical, 2, false, Pairing::Equal, Pairing::Aligned,
         three, "a 12,12 84x20; b 104,12 84x20; c 12,40 84x30"},
        {"rows on their own", Axis::Vertical, 2, true, Pairing::None, Pairing::None, three,
         "a 12,12 60x20; b 80,12 30x10; c 148,30 40x30"},
        {"short of room, in proportion", Axis::Vertical, 2, false, Pairing::Aligned,
         Pairing::Aligned, "a 20 9 180 20;b 20 9 100 20", "a 12,12 105x20; b 125,12 63x20"},
        {"never below the least", Axis::Vertical, 2, false, Pairing::Aligned, Pairing::Aligned,
         "a 90 9 180 20;b 90 9 100 20", "a 12,12 90x20; b 110,12 90x20"},
        {"nothing to place", Axis::Vertical, -5, true, Pairing::Equal, Pairing::Equal, "", ""},
    };
    for (const GridCase& test : cases) {
        SCOPED_TRACE(test.what);
        UIAlignmentMethodGrid grid;
        grid.majorAxis = test.major;
        grid.minorAxisLength = test.length;
        grid.minorAxisAlignToEnd = test.toEnd;
        grid.horizontalPairing = test.horizontal;
        grid.verticalPairing = test.vertical;
        UIAlignmentScene scene = Scene(200, 100, test.children);
        grid.Apply(scene);
        EXPECT_EQ(Show(scene), test.rectangles);
    }
}

class Box : public UIAlignmentParent {
public:
    explicit Box(UIAlignmentScene given) : scene(std::move(given)) {}
    void GetAlignmentChildren(std::vector<UIAlignmentChild>& children) override {
        children = scene.children;
    }
    UIAlignmentFrame GetAlignmentFrame() override { return scene.frame; }
    void PlaceAlignmentChild(size_t index, const UIRect& rect) override {
        scene.children[index].rect = rect;
    }
    UIIntrinsic MeasureAlignmentChild(size_t index, int32_t width) override {
        return WrappingText(40).MeasureAlignmentChild(index, width);
    }
    UIAlignmentScene scene;
};

TEST(UIAlignmentContainer, MeasuresAndLaysOut) {
    // 40 letters of 7 x 15 over a button.
    Box box(Scene(0, 0, "text 70 15 280 15 wrap;ok 60 26 60 26"));
    UIAlignmentContainer container(box);
    EXPECT_EQ(container.Measure(-1).natural, UISize());
    container.Layout({10, 10});

    auto constraints = std::make_unique<UIAlignmentMethodConstraints>();
    constraints->AddLines("text.left = parent.left + padding\ntext.top = parent.top + padding\n"
                          "text.right <= parent.right - padding\nok.top = text.bottom + padding\n"
                          "ok.right = parent.right - padding\n"
                          "ok.bottom = parent.bottom - padding\nok.left >= parent.left + padding");
    auto grid = std::make_unique<UIAlignmentMethodGrid>();
    std::unique_ptr<UIAlignmentMethod> methods[] = {std::move(constraints), std::move(grid)};
    for (std::unique_ptr<UIAlignmentMethod>& method : methods) {
        container.SetMethod(std::move(method));
        const UIIntrinsic sizes = container.Measure(-1);
        EXPECT_TRUE(sizes.heightFollowsWidth);
        EXPECT_EQ(sizes.natural, (UISize{280 + 24, 15 + 8 + 26 + 24}));
        EXPECT_EQ(sizes.min, (UISize{70 + 24, 15 + 8 + 26 + 24}));
        EXPECT_EQ(container.Measure(140 + 24).natural.height, 30 + 8 + 26 + 24);
    }

    container.Layout({140 + 24, 88});
    EXPECT_EQ(Show(box.scene), "text 12,12 140x30; ok 12,50 140x26");
}

} // namespace
