// Constraint layouts: how long a wizard page takes against drawing the least conclusion from its
// texts (reading them), and how the cost grows with the number of constraints.

#include "ui/alignment/UIAlignmentMethodConstraints.h"
#include "ui/alignment/UIAlignmentSolver.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace {

constexpr int kRounds = 9;

// The fullest page: a heading that wraps, a bar, a check box and a row of four buttons.
constexpr char kPage[] = "heading.left = parent.left + padding\n"
                         "heading.right = parent.right - padding\n"
                         "heading.top = parent.top + padding\n"
                         "bar.left = heading.left\n"
                         "bar.right = heading.right\n"
                         "bar.top = heading.bottom + padding\n"
                         "launch.left = heading.left\n"
                         "launch.top = bar.bottom + padding\n"
                         "cancel.right = parent.right - padding\n"
                         "cancel.bottom = parent.bottom - padding\n"
                         "start.right = cancel.left - padding\n"
                         "start.bottom = cancel.bottom\n"
                         "retry.right = start.left - padding\n"
                         "retry.bottom = cancel.bottom\n"
                         "back.right = retry.left - padding\n"
                         "back.bottom = cancel.bottom\n";

double Seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Seconds of one call, the best of several rounds.
template <typename Body> double Best(int calls, Body body) {
    double best = 1e9;
    for (int round = 0; round < kRounds; ++round) {
        const double start = Seconds();
        for (int call = 0; call < calls; ++call) {
            body();
        }
        best = std::min(best, (Seconds() - start) / calls);
    }
    return best;
}

UIAlignmentChild Child(const char* name, UISize least, UISize natural) {
    UIAlignmentChild child;
    child.name = name;
    child.intrinsic.min = least;
    child.intrinsic.natural = natural;
    return child;
}

class Wrapping : public UIAlignmentMeasurer {
public:
    UIIntrinsic MeasureAlignmentChild(size_t, int32_t width) override {
        return {{7, 15}, {width, (1400 / std::max(7, width) + 1) * 15}};
    }
};

UIAlignmentScene Page() {
    UIAlignmentScene scene;
    scene.frame.size = {473, 260};
    scene.frame.padding = {12, 12, 12, 12};
    scene.children = {Child("heading", {7, 15}, {1400, 15}), Child("bar", {40, 14}, {200, 14}),
                      Child("launch", {150, 21}, {150, 21}), Child("start", {87, 26}, {87, 26}),
                      Child("cancel", {75, 26}, {75, 26}),   Child("retry", {75, 26}, {75, 26}),
                      Child("back", {66, 26}, {66, 26})};
    scene.children[0].intrinsic.heightFollowsWidth = true;
    return scene;
}

// A form of `constraints` constraints: labels that may shrink, each with a field beside it.
double Form(int constraints) {
    UIAlignmentMethodConstraints method;
    UIAlignmentScene scene;
    const int rows = constraints / 5;
    scene.frame.size = {500, rows * 40};
    for (int row = 0; row < rows; ++row) {
        scene.children.push_back(
            Child(CXString::Format("label%d", row).GetData(), {20, 15}, {90 + row % 7, 15}));
        scene.children.push_back(
            Child(CXString::Format("edit%d", row).GetData(), {60, 26}, {120, 26}));
        method.Add(CXString::Format("label%d.left = parent.left + padding", row));
        method.Add(CXString::Format("edit%d.left = label%d.right + padding", row, row));
        method.Add(CXString::Format("edit%d.right = parent.right - padding", row));
        method.Add(CXString::Format("label%d.baseline = edit%d.baseline", row, row));
        method.Add(row == 0
                       ? CXString("edit0.top = parent.top + padding")
                       : CXString::Format("edit%d.top = edit%d.bottom + padding", row, row - 1));
    }
    return Best(3, [&] { method.Apply(scene); });
}

} // namespace

int main() {
    UIAlignmentMethodConstraints method;
    method.AddLines(kPage);
    UIAlignmentScene page = Page();
    Wrapping wrapping;
    page.measurer = &wrapping;
    const double solved = Best(50, [&] { method.Apply(page); });
    const double read = Best(50, [] {
        UIAlignmentMethodConstraints again;
        again.AddLines(kPage);
    });
    std::printf("wizard page, 7 elements, 16 constraints: %.3f ms, %.1f times reading them\n",
                solved * 1e3, solved / read);

    std::printf("%12s %10s %22s\n", "constraints", "ms", "growth (exponent)");
    double before = 0;
    for (const int count : {60, 125, 250, 500}) {
        const double seconds = Form(count);
        if (before == 0) {
            std::printf("%12d %10.3f\n", count, seconds * 1e3);
        } else {
            std::printf("%12d %10.3f %22.2f\n", count, seconds * 1e3, std::log2(seconds / before));
        }
        before = seconds;
    }
    return 0;
}
