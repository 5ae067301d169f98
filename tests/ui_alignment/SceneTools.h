// Scenes from short texts and answers as text, for the layout tests.
#pragma once

#include "ui/alignment/UIAlignmentMethodConstraints.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

/// A child from "name min-width min-height natural-width natural-height" and any of the words
/// "hidden", "keep", "rigid", "keepmin", "nofull", "pad=N", "baseline=N", "wrap".
inline UIAlignmentChild Child(const std::string& text) {
    std::istringstream in(text);
    UIAlignmentChild child;
    std::string word;
    in >> word;
    child.name = CXString(word.c_str());
    in >> child.intrinsic.min.width >> child.intrinsic.min.height >>
        child.intrinsic.natural.width >> child.intrinsic.natural.height;
    while (in >> word) {
        const auto number = [&] { return std::stoi(word.substr(word.find('=') + 1)); };
        child.visible = child.visible && word != "hidden";
        child.hints.keepMetricsWhileInvisible |= word == "keep";
        child.hints.sizeNotFlexible |= word == "rigid";
        child.hints.keepMinimumWidth |= word == "keepmin";
        child.hints.keepMinimumHeight |= word == "keepmin";
        child.hints.ignoreFullSize |= word == "nofull";
        child.intrinsic.heightFollowsWidth |= word == "wrap";
        if (word.rfind("pad=", 0) == 0) {
            child.padding = {number(), number(), number(), number()};
        } else if (word.rfind("baseline=", 0) == 0) {
            child.intrinsic.baseline = number();
        }
    }
    return child;
}

/// Children are separated by ";".
inline UIAlignmentScene Scene(int32_t width, int32_t height, const std::string& children) {
    UIAlignmentScene scene;
    scene.frame.size = {width, height};
    scene.frame.padding = {12, 12, 12, 12};
    std::istringstream in(children);
    for (std::string child; std::getline(in, child, ';');) {
        scene.children.push_back(Child(child));
    }
    return scene;
}

/// "name left,top widthxheight", separated by "; ".
inline std::string Show(const UIAlignmentScene& scene) {
    std::ostringstream out;
    for (const UIAlignmentChild& child : scene.children) {
        const UIRect& rect = child.rect;
        out << (&child == scene.children.data() ? "" : "; ") << child.name.GetData() << ' '
            << rect.left << ',' << rect.top << ' ' << rect.right - rect.left << 'x'
            << rect.bottom - rect.top;
    }
    return out.str();
}

/// Text of 7 x 15 letters, `letters` of them, that wraps at any place.
class WrappingText : public UIAlignmentMeasurer {
public:
    explicit WrappingText(int32_t letters) : m_letters(letters) {}
    UIIntrinsic MeasureAlignmentChild(size_t, int32_t width) override {
        const int32_t perLine = std::max(1, width / 7);
        const int32_t height = (m_letters + perLine - 1) / perLine * 15;
        ++calls;
        return {{7, height}, {width, height}};
    }
    int calls = 0;

private:
    int32_t m_letters;
};
