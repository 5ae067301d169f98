// How the children of a container are placed: the interface that both methods share.
#pragma once

#include "ui/alignment/UIAlignmentTypes.h"

#include <cstdint>
#include <memory>
#include <vector>

/// Asks a child for its sizes at a width, for children whose height follows it.
class UIAlignmentMeasurer {
public:
    virtual ~UIAlignmentMeasurer() = default;
    /// The sizes of child `index` (as in UIAlignmentScene::children) when it is `width` pixels
    /// wide. Only `min.height` and `natural.height` are taken.
    virtual UIIntrinsic MeasureAlignmentChild(size_t index, int32_t width) = 0;
};

/// One layout: what goes in and, in the children's `rect` and in `frame.size`, what comes out.
struct UIAlignmentScene {
    enum class Fit : uint8_t {
        Given,   ///< the frame's size stands
        Natural, ///< the frame becomes as large as the children like
        Minimum, ///< the frame becomes as small as the children bear
    };

    UIAlignmentFrame frame;
    Fit fitWidth = Fit::Given, fitHeight = Fit::Given;
    std::vector<UIAlignmentChild> children;
    UIAlignmentMeasurer* measurer = nullptr; ///< may be null: natural heights are taken
};

/// A way to place children. Methods hold no state of a layout: one may be applied to many scenes,
/// by one thread at a time.
class UIAlignmentMethod {
public:
    /// The edges and lengths of an element that can be referred to.
    enum ElementMetricEnum : int32_t {
        kLeft,
        kRight,
        kTop,
        kBottom,
        kBaseline,
        kWidth,
        kHeight,
        kTopPadding,
        kBottomPadding,
        kLeftPadding,
        kRightPadding,
        kHorizontalCenter,
        kVerticalCenter,
        kContentWidth,
        kContentHeight,
        kSafeRight,
        kSafeBottom,
        kSafeLeft,
        kSafeTop,
        kTopSafeLeft,
        kTopSafeRight,
        kLeftSafeTop,
        kLeftSafeBottom,
        kBottomSafeLeft,
        kBottomSafeRight,
        kRightSafeTop,
        kRightSafeBottom,
        kInvalidMetric,
    };

    virtual ~UIAlignmentMethod() = default;
    /// Places the scene's children. Never fails: what can't be had is given up.
    virtual void Apply(UIAlignmentScene& scene) const = 0;

    /// The metric of a name in any case; kInvalidMetric (and a log line, unless empty) if unknown.
    static ElementMetricEnum ParseMetric(const CXString& name);
    /// The metric's name, empty for others.
    static const char* MetricName(int32_t metric);

    /// The method that an element's description asks for: constraints if it has the key
    /// "constraints", else a grid if it has a key of the grid, else null.
    static std::unique_ptr<UIAlignmentMethod> Load(const DNValue& description);
};
