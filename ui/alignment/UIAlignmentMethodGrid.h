// Layout in rows and columns.
#pragma once

#include "ui/alignment/UIAlignmentMethod.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Places the visible children in cells, in tree order: line after line along the major axis, the
/// cells of a line along the minor axis. A child fills its cell unless its size isn't flexible.
/// Cells keep the distance that their children like; where room is short, they shrink towards the
/// least sizes.
class UIAlignmentMethodGrid : public UIAlignmentMethod {
public:
    enum class Axis : uint8_t { Horizontal = 1, Vertical };
    /// How cells that lie in one column (horizontal pairing) or row (vertical) go together.
    enum class Pairing : uint8_t {
        None = 1, ///< not at all: every line along the axis has its own sizes
        Aligned,  ///< one width for a column, one height for a row: that of the largest
        Equal,    ///< one size for all columns or rows; room to spare is shared out
    };

    UIAlignmentMethodGrid() = default;
    /// From an element's description: "horizontal-pairing" and "vertical-pairing" ("none",
    /// "aligned", "equal"), "major-axis" ("horizontal", "vertical"), "minor-axis-length",
    /// "minor-axis-align-to-end". What is missing keeps its default.
    explicit UIAlignmentMethodGrid(const DNValue& description);
    static bool IsDescribedBy(const DNValue& description);

    void Apply(UIAlignmentScene& scene) const override;

    Axis majorAxis = Axis::Vertical; ///< the way from one line to the next
    int32_t minorAxisLength = 1;     ///< cells in a line; below 1 counts as 1
    bool minorAxisAlignToEnd =
        false; ///< a last line that isn't full stands at the end, not the start
    Pairing horizontalPairing = Pairing::Aligned;
    Pairing verticalPairing = Pairing::Aligned;

private:
    struct Cell {
        size_t child;
        size_t column, row;
    };
    struct Track;
    struct Direction;

    std::vector<Cell> Arrange(const UIAlignmentScene& scene) const;
    static int32_t SetGaps(std::vector<Track>& line);
    int32_t SizeLine(std::vector<Track>& line, const Direction& direction, int32_t before,
                     int64_t given) const;
    void Place(UIAlignmentScene& scene, const std::vector<Cell>& cells, const Direction& direction,
               const std::vector<UIIntrinsic>& sizes) const;
};
