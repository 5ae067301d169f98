#include "ui/alignment/UIAlignmentMethodGrid.h"

#include "dn/TextConfig.h"

#include <algorithm>
#include <iterator>

using Fit = UIAlignmentScene::Fit;

namespace {

const char* const kAxisNames[] = {"UIAlignmentMethodGrid::Axis", "horizontal", "vertical", nullptr};
const char* const kPairingNames[] = {"UIAlignmentMethodGrid::Pairing", "none", "aligned", "equal",
                                     nullptr};
constexpr const char* kKeys[] = {"horizontal-pairing", "vertical-pairing", "major-axis",
                                 "minor-axis-length", "minor-axis-align-to-end"};

template <typename Enum>
void ReadEnum(const DNValue& description, const char* key, const char* const* names, Enum& value) {
    const int place = ParseEnumValue(names[0], names, description.Get(key)->GetString());
    if (place != 0) {
        value = static_cast<Enum>(place);
    }
}

} // namespace

// One column or row, or one cell of it where they aren't paired.
struct UIAlignmentMethodGrid::Track {
    int32_t least = 0, natural = 0;
    int32_t near = 0, far = 0; // the distance that its children like to keep
    int32_t gap = 0;           // to the track before
    int32_t start = 0, length = 0;
};

// What differs between placing columns and placing rows.
struct UIAlignmentMethodGrid::Direction {
    size_t Cell::*place;  // which track
    size_t Cell::*across; // which line along this direction
    Pairing pairing;
    bool isMinor;
    Fit fit;
    int32_t UISize::*size;
    int32_t UIRect::*nearEdge;
    int32_t UIRect::*farEdge;
    int32_t UIInsets::*nearPadding;
    int32_t UIInsets::*farPadding;
};

UIAlignmentMethodGrid::UIAlignmentMethodGrid(const DNValue& description) {
    ReadEnum(description, "horizontal-pairing", kPairingNames, horizontalPairing);
    ReadEnum(description, "vertical-pairing", kPairingNames, verticalPairing);
    ReadEnum(description, "major-axis", kAxisNames, majorAxis);
    minorAxisLength = description.Get("minor-axis-length")->GetInt(minorAxisLength);
    const DNValueRef toEnd = description.Get("minor-axis-align-to-end");
    minorAxisAlignToEnd = toEnd->GetBool() || toEnd->GetInt() != 0;
}

bool UIAlignmentMethodGrid::IsDescribedBy(const DNValue& description) {
    return std::any_of(std::begin(kKeys), std::end(kKeys), [&](const char* key) {
        return !description.Get(key)->GetString().IsEmpty();
    });
}

std::vector<UIAlignmentMethodGrid::Cell>
UIAlignmentMethodGrid::Arrange(const UIAlignmentScene& scene) const {
    std::vector<Cell> cells;
    for (size_t index = 0; index < scene.children.size(); ++index) {
        const UIAlignmentChild& child = scene.children[index];
        if (child.visible || child.hints.keepMetricsWhileInvisible) {
            cells.push_back({index, 0, 0});
        }
    }
    const size_t count = cells.size();
    const size_t length = std::clamp<size_t>(static_cast<size_t>(std::max(1, minorAxisLength)), 1,
                                             std::max<size_t>(count, 1));
    const size_t missing = (length - count % length) % length;
    for (size_t index = 0; index < count; ++index) {
        const size_t line = index / length;
        const bool isLast = line == (count - 1) / length;
        const size_t slot = index % length + (isLast && minorAxisAlignToEnd ? missing : 0);
        const bool isVertical = majorAxis == Axis::Vertical;
        cells[index].column = isVertical ? slot : line;
        cells[index].row = isVertical ? line : slot;
    }
    return cells;
}

// The gaps between the tracks of one line, and their sum.
int32_t UIAlignmentMethodGrid::SetGaps(std::vector<Track>& line) {
    int32_t sum = 0;
    for (size_t index = 1; index < line.size(); ++index) {
        // Places left free at the start of a line need no distance.
        const bool isFirst = sum == 0 && line[index - 1].natural == 0;
        line[index].gap = isFirst ? 0 : std::max(line[index - 1].far, line[index].near);
        sum += line[index].gap;
    }
    return sum;
}

// Gives the tracks of one line their lengths and places within `given` pixels behind `before`.
// Returns where the last one ends.
int32_t UIAlignmentMethodGrid::SizeLine(std::vector<Track>& line, const Direction& direction,
                                        int32_t before, int64_t given) const {
    int64_t leastSum = 0;
    int64_t naturalSum = 0;
    Track largest;
    for (const Track& track : line) {
        largest.least = std::max(largest.least, track.least);
        largest.natural = std::max(largest.natural, track.natural);
    }
    for (Track& track : line) {
        if (direction.pairing == Pairing::Equal) {
            track.least = largest.least;
            track.natural = largest.natural;
        }
        leastSum += track.least;
        naturalSum += track.natural;
    }
    const int64_t room = direction.fit == Fit::Natural   ? naturalSum
                         : direction.fit == Fit::Minimum ? leastSum
                                                         : std::max(given, leastSum);
    // What lies between least and natural lengths is given out in proportion; what lies above only
    // to equal tracks. Each gets what is due up to it less what was given, so that all is given.
    const bool isShort = room < naturalSum;
    const int64_t weights = isShort ? naturalSum - leastSum : std::max<int64_t>(naturalSum, 1);
    const int64_t share = isShort                               ? room - leastSum
                          : direction.pairing == Pairing::Equal ? room - naturalSum
                                                                : 0;
    int64_t at = before;
    const bool startsFree = line.size() > 1 && line[0].natural == 0;
    if (direction.pairing == Pairing::None && minorAxisAlignToEnd && direction.isMinor &&
        direction.fit == Fit::Given && startsFree) {
        at += std::max<int64_t>(0, room - naturalSum);
    }
    int64_t weight = 0;
    int64_t givenOut = 0;
    for (Track& track : line) {
        weight += isShort ? track.natural - track.least : track.natural;
        const int64_t due = share * weight / weights;
        const int32_t base = isShort ? track.least : track.natural;
        at += track.gap;
        track.start = static_cast<int32_t>(at);
        track.length = static_cast<int32_t>(base + due - givenOut);
        givenOut = due;
        at += track.length;
    }
    return static_cast<int32_t>(at);
}

void UIAlignmentMethodGrid::Place(UIAlignmentScene& scene, const std::vector<Cell>& cells,
                                  const Direction& direction,
                                  const std::vector<UIIntrinsic>& sizes) const {
    const bool isPaired = direction.pairing != Pairing::None;
    size_t trackCount = 0;
    size_t lineCount = 1;
    for (const Cell& cell : cells) {
        trackCount = std::max(trackCount, cell.*direction.place + 1);
        lineCount = isPaired ? 1 : std::max(lineCount, cell.*direction.across + 1);
    }
    std::vector<std::vector<Track>> lines(lineCount, std::vector<Track>(trackCount));
    const auto trackOf = [&](const Cell& cell) -> Track& {
        return lines[isPaired ? 0 : cell.*direction.across][cell.*direction.place];
    };
    for (const Cell& cell : cells) {
        Track& track = trackOf(cell);
        const int32_t least = std::max(0, sizes[cell.child].min.*direction.size);
        const UIInsets& padding = scene.children[cell.child].padding;
        track.least = std::max(track.least, least);
        track.natural = std::max({track.natural, least, sizes[cell.child].natural.*direction.size});
        track.near = std::max(track.near, padding.*direction.nearPadding);
        track.far = std::max(track.far, padding.*direction.farPadding);
    }
    const int32_t before = scene.frame.padding.*direction.nearPadding;
    const int32_t after = scene.frame.padding.*direction.farPadding;
    int32_t& frameLength = scene.frame.size.*direction.size;
    int32_t end = before;
    for (std::vector<Track>& line : lines) {
        const int64_t given = int64_t{frameLength} - before - after - SetGaps(line);
        end = std::max(end, SizeLine(line, direction, before, given));
    }
    if (direction.fit != Fit::Given) {
        frameLength = end + after;
    }
    for (const Cell& cell : cells) {
        const Track& track = trackOf(cell);
        UIAlignmentChild& child = scene.children[cell.child];
        const UIIntrinsic& own = sizes[cell.child];
        const int32_t wanted = std::max(own.natural.*direction.size, own.min.*direction.size);
        const int32_t length =
            child.hints.sizeNotFlexible ? std::min(track.length, wanted) : track.length;
        child.rect.*direction.nearEdge = track.start;
        child.rect.*direction.farEdge = track.start + length;
    }
}

void UIAlignmentMethodGrid::Apply(UIAlignmentScene& scene) const {
    const std::vector<Cell> cells = Arrange(scene);
    std::vector<UIIntrinsic> sizes;
    for (UIAlignmentChild& child : scene.children) {
        child.rect = UIRect();
        sizes.push_back(child.intrinsic);
    }
    const bool isVertical = majorAxis == Axis::Vertical;
    Place(scene, cells,
          {&Cell::column, &Cell::row, horizontalPairing, isVertical, scene.fitWidth, &UISize::width,
           &UIRect::left, &UIRect::right, &UIInsets::left, &UIInsets::right},
          sizes);
    for (const Cell& cell : cells) {
        const UIAlignmentChild& child = scene.children[cell.child];
        const int32_t width = child.rect.right - child.rect.left;
        if ((child.intrinsic.heightFollowsWidth || child.hints.heightFollowsWidth) &&
            scene.measurer != nullptr && width != child.intrinsic.natural.width) {
            const UIIntrinsic at = scene.measurer->MeasureAlignmentChild(cell.child, width);
            sizes[cell.child].min.height = at.min.height;
            sizes[cell.child].natural.height = at.natural.height;
        }
    }
    Place(scene, cells,
          {&Cell::row, &Cell::column, verticalPairing, !isVertical, scene.fitHeight,
           &UISize::height, &UIRect::top, &UIRect::bottom, &UIInsets::top, &UIInsets::bottom},
          sizes);
}
