// What a layout is given for each child, and the plain geometry that it answers in. No graphics.
#pragma once

#include "core/CXGeometry.h"
#include "core/CXString.h"

#include <cstdint>

class DNValue;

/// Width and height in pixels.
struct UISize {
    int32_t width = 0, height = 0;
    friend bool operator==(const UISize&, const UISize&) = default;
};

/// A rectangle by its edges, in pixels of the container, y down; right and bottom lie outside.
using UIRect = CXBox2i;

/// Distances from the four edges, in pixels.
struct UIInsets {
    int32_t left = 0, top = 0, right = 0, bottom = 0;
};

/// The distance that "padding" means where nobody says otherwise.
inline constexpr int32_t kUIDefaultPadding = 8;

/// What an element says of its own size.
struct UIIntrinsic {
    UISize min;           ///< below this it is not usable
    UISize natural;       ///< what it likes best; never below min
    int32_t baseline = 0; ///< of its first line of text, from the top; 0: it has none (its bottom)
    bool heightFollowsWidth = false; ///< wrapped text: ask again once the width is known
};

/// The keys of an element's description that bear on layout.
struct UIAlignmentHints {
    bool keepMinimumWidth = false;  ///< dont-allow-parent-to-override-minimum-width (or -size)
    bool keepMinimumHeight = false; ///< dont-allow-parent-to-override-minimum-height (or -size)
    bool sizeNotFlexible = false;   ///< hint-size-not-flexible: never larger than its natural size
    bool ignoreFullSize = false;    ///< hint-ignore-full-size: doesn't strive for its natural size
    bool noUpdateOnChildChange = false;     ///< does-not-update-on-child-change: the owner asks for
                                            ///< layouts itself; nothing here reads it
    bool heightFollowsWidth = false;        ///< does-vary-height-based-on-width, as in UIIntrinsic
    bool keepMetricsWhileInvisible = false; ///< maintain-metrics-while-invisible
    bool debug = false; ///< debug-constraints: a layout with such a child logs its rows

    /// Reads the keys of an element's description; what is missing is false.
    static UIAlignmentHints Load(const DNValue& description);
};

/// One child of a container.
struct UIAlignmentChild {
    CXString name; ///< as constraints call it; nameless children can't be referred to
    UIIntrinsic intrinsic;
    UIAlignmentHints hints;
    UIInsets padding = {kUIDefaultPadding, kUIDefaultPadding, kUIDefaultPadding,
                        kUIDefaultPadding}; ///< distance that it likes to keep to its neighbours
    bool visible = true; ///< an invisible child has no size and no padding, unless hinted
    UIRect rect;         ///< the answer
};

/// The container itself.
struct UIAlignmentFrame {
    UISize size;        ///< of its client area
    UIInsets padding;   ///< distance that "padding" means between a child and the container's edge
    UIInsets safe;      ///< from the edges to the area where nothing is cut off
    bool debug = false; ///< debug-constraints of the container
};
