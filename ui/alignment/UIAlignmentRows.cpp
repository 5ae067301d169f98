#include "ui/alignment/UIAlignmentRows.h"

#include "core/CXLog.h"

#include <algorithm>
#include <cmath>

using Fit = UIAlignmentScene::Fit;
using Method = UIAlignmentMethod;
using Solver = UIAlignmentSolver;

namespace {

constexpr char kConstraintLabel[] = "constraint";
constexpr char kParentLabel[] = "parent metrics";
constexpr char kRelationshipLabel[] = "relationship metrics";
constexpr char kInvisibleLabel[] = "invisible element";
constexpr char kMinLabel[] = "min size";
constexpr char kMaxLabel[] = "max size";
constexpr char kFullLabel[] = "full size";
constexpr char kStaticHeightLabel[] = "CXStaticText static height";
constexpr char kDynamicHeightLabel[] = "CXStaticText dynamic height";

const char* const kRelationTexts[] = {
    "<", "<=", "=", ">=", ">", "maximize", "minimize", "flexible"};

// How a metric lies in its element.
enum class Axis : uint8_t { Horizontal, Vertical };
struct MetricTrait {
    Axis axis;
    bool isSize;             // a length that a collapsed element doesn't have
    int32_t UIInsets::*side; // the padding that a distance from it crosses; null: either
    int32_t reference;       // the edge that a safe edge or padding belongs to
};
constexpr MetricTrait kTraits[] = {
    {Axis::Horizontal, false, &UIInsets::left, Method::kLeft},   // left
    {Axis::Horizontal, false, &UIInsets::right, Method::kRight}, // right
    {Axis::Vertical, false, &UIInsets::top, Method::kTop},       // top
    {Axis::Vertical, false, &UIInsets::bottom, Method::kBottom}, // bottom
    {Axis::Vertical, false, &UIInsets::top, Method::kTop},       // baseline
    {Axis::Horizontal, true, nullptr, Method::kWidth},           // width
    {Axis::Vertical, true, nullptr, Method::kHeight},            // height
    {Axis::Vertical, false, &UIInsets::top, Method::kTop},       // top-padding
    {Axis::Vertical, false, &UIInsets::bottom, Method::kBottom}, // bottom-padding
    {Axis::Horizontal, false, &UIInsets::left, Method::kLeft},   // left-padding
    {Axis::Horizontal, false, &UIInsets::right, Method::kRight}, // right-padding
    {Axis::Horizontal, false, nullptr, Method::kWidth},          // horizontal-center
    {Axis::Vertical, false, nullptr, Method::kHeight},           // vertical-center
    {Axis::Horizontal, true, nullptr, Method::kWidth},           // content-width
    {Axis::Vertical, true, nullptr, Method::kHeight},            // content-height
    {Axis::Horizontal, false, &UIInsets::right, Method::kRight}, // saferight
    {Axis::Vertical, false, &UIInsets::bottom, Method::kBottom}, // safebottom
    {Axis::Horizontal, false, &UIInsets::left, Method::kLeft},   // safeleft
    {Axis::Vertical, false, &UIInsets::top, Method::kTop},       // safetop
    {Axis::Horizontal, false, &UIInsets::left, Method::kLeft},   // top-safeleft
    {Axis::Horizontal, false, &UIInsets::right, Method::kRight}, // top-saferight
    {Axis::Vertical, false, &UIInsets::top, Method::kTop},       // left-safetop
    {Axis::Vertical, false, &UIInsets::bottom, Method::kBottom}, // left-safebottom
    {Axis::Horizontal, false, &UIInsets::left, Method::kLeft},   // bottom-safeleft
    {Axis::Horizontal, false, &UIInsets::right, Method::kRight}, // bottom-saferight
    {Axis::Vertical, false, &UIInsets::top, Method::kTop},       // right-safetop
    {Axis::Vertical, false, &UIInsets::bottom, Method::kBottom}, // right-safebottom
};
static_assert(std::size(kTraits) == Method::kInvalidMetric);

} // namespace

UIAlignmentRows::UIAlignmentRows(const UIAlignmentScene& scene,
                                 const UIAlignmentMethodConstraints& method,
                                 const UIAlignmentPins& pins)
    : m_scene(scene), m_method(method), m_pins(pins), m_metrics(scene.children.size() + 1) {
    m_elements.emplace("parent", Parent());
    for (size_t index = 0; index < Parent(); ++index) {
        const CXString& name = scene.children[index].name;
        const bool isKnown = !name.IsEmpty() && m_elements.emplace(name, index).second;
        m_names.push_back(isKnown ? name : CXString::Format("#%d", static_cast<int>(index)));
    }
    m_names.push_back("parent");
    // Wishes count only until a "flexible", so constraints come before what children wish.
    AddParent();
    AddConstraints();
    for (size_t index = 0; index < Parent(); ++index) {
        AddChild(index);
    }
    AddPins();
}

int32_t UIAlignmentRows::GetValue(size_t element, int32_t metric) const {
    const uint16_t number = m_metrics[element][static_cast<size_t>(metric)];
    return static_cast<int32_t>(std::lround(m_solver.GetValue(number) / kUnits));
}

int16_t UIAlignmentRows::Priority(Band band, size_t index) {
    const int place = static_cast<int>(std::min<size_t>(index, kBandWidth - 1));
    return static_cast<int16_t>(band * kBandWidth + kBandWidth - 1 - place);
}

uint8_t UIAlignmentRows::TurnOf(Turn turn, size_t index) {
    return static_cast<uint8_t>(turn + std::min(index, kTurns - 1));
}

bool UIAlignmentRows::IsWished(uint16_t variable) const {
    return variable < m_wished.size() && m_wished[variable];
}

size_t UIAlignmentRows::FindElement(const CXString& name) const {
    const auto found = m_elements.find(name);
    return found == m_elements.end() ? Parent() + 1 : found->second;
}

// An invisible element takes no room.
bool UIAlignmentRows::IsCollapsed(size_t element) const {
    return element < Parent() && !m_scene.children[element].visible &&
           !m_scene.children[element].hints.keepMetricsWhileInvisible;
}

// The variable of an element's metric; its meaning is entered with its first use.
uint16_t UIAlignmentRows::Metric(size_t element, int32_t metric) {
    uint16_t& number = m_metrics[element][static_cast<size_t>(metric)];
    if (number == 0) {
        number = m_solver.GetVariable(
            CXString::Format("%s.%s", m_names[element].GetData(), Method::MetricName(metric)));
        const bool isSize = metric == Method::kWidth || metric == Method::kHeight;
        m_solver.At(number).priority = element == Parent() ? kContainer : isSize ? kSizes : kPlaces;
        Define(element, metric);
    }
    return number;
}

// What the metrics beyond the four edges and two sizes mean.
void UIAlignmentRows::Define(size_t element, int32_t metric) {
    const int16_t priority = Priority(kRelationship, 0);
    const uint16_t number = m_metrics[element][static_cast<size_t>(metric)];
    const MetricTrait& trait = kTraits[metric];
    const bool isParent = element == Parent();
    const UIInsets padding = isParent ? m_scene.frame.padding : m_scene.children[element].padding;
    const auto equal = [&](double c, int32_t of, double coefficient = 1, int32_t plus = -1) {
        Row(kRelationshipLabel, priority, number, Solver::kEqual, c, Metric(element, of),
            coefficient, plus < 0 ? uint16_t{0} : Metric(element, plus));
    };
    switch (metric) {
    case Method::kLeft:
    case Method::kRight:
    case Method::kTop:
    case Method::kBottom:
    case Method::kWidth:
    case Method::kHeight:
        return; // AddRelationships
    case Method::kBaseline: {
        const int32_t baseline = isParent ? 0 : m_pins.intrinsics[element].baseline;
        if (IsCollapsed(element) || baseline > 0) {
            equal(IsCollapsed(element) ? 0 : baseline, Method::kTop);
        } else {
            equal(0, Method::kBottom);
        }
        return;
    }
    case Method::kHorizontalCenter:
        return equal(0, Method::kWidth, 0.5, Method::kLeft);
    case Method::kVerticalCenter:
        return equal(0, Method::kHeight, 0.5, Method::kTop);
    case Method::kContentWidth:
        // Of the container the room between its paddings, of a child what its content asks for.
        if (isParent) {
            return equal(-padding.left - padding.right, Method::kWidth);
        }
        return Exactly(kRelationshipLabel, priority, number,
                       m_pins.intrinsics[element].natural.width);
    case Method::kContentHeight:
        if (isParent) {
            return equal(-padding.top - padding.bottom, Method::kHeight);
        }
        return Exactly(kRelationshipLabel, priority, number,
                       m_pins.intrinsics[element].natural.height);
    case Method::kTopPadding:
    case Method::kBottomPadding:
    case Method::kLeftPadding:
    case Method::kRightPadding:
        return Exactly(kRelationshipLabel, priority, number, PaddingOf(element, metric));
    default: {
        // The safe edges. Only the container can lie where something is cut off.
        const int32_t inset = isParent ? m_scene.frame.safe.*trait.side : 0;
        const bool inward = trait.reference == Method::kLeft || trait.reference == Method::kTop;
        return equal(inward ? inset : -inset, trait.reference);
    }
    }
}

// A side of a constraint as a variable; 0 for an empty one.
uint16_t UIAlignmentRows::Side(const CXString& element, int32_t metric) {
    if (element.IsEmpty()) {
        return 0;
    }
    if (metric < 0) {
        const uint16_t number = m_solver.GetVariable(element);
        m_solver.At(number).priority = kPlaces;
        return number;
    }
    const size_t index = FindElement(element);
    if (index <= Parent()) {
        return Metric(index, metric);
    }
    // Nobody's: it has no meaning but in the constraints that mention it.
    const uint16_t number = m_solver.GetVariable(
        CXString::Format("%s.%s", element.GetData(), Method::MetricName(metric)));
    m_solver.At(number).priority = kPlaces;
    return number;
}

int32_t UIAlignmentRows::PaddingOf(size_t element, int32_t metric) const {
    if (element > Parent() || IsCollapsed(element)) {
        return 0;
    }
    const UIInsets& padding =
        element == Parent() ? m_scene.frame.padding : m_scene.children[element].padding;
    const MetricTrait& trait = kTraits[metric];
    if (trait.side != nullptr) {
        return padding.*trait.side;
    }
    return trait.axis == Axis::Horizontal ? std::max(padding.left, padding.right)
                                          : std::max(padding.top, padding.bottom);
}

// What "padding" is in a constraint: the container's own at its edges, else what the two elements
// like to keep, whichever is more. A collapsed element keeps no distance itself.
int32_t UIAlignmentRows::Distance(const Constraint& constraint) const {
    const size_t left =
        constraint.leftMetric < 0 ? Parent() + 1 : FindElement(constraint.leftElement);
    const size_t right =
        constraint.rightMetric < 0 ? Parent() + 1 : FindElement(constraint.rightElement);
    if (IsCollapsed(left)) {
        return 0;
    }
    if (left > Parent() && right > Parent()) {
        return kUIDefaultPadding;
    }
    if (left == Parent() || right == Parent()) {
        return left == Parent() ? PaddingOf(left, constraint.leftMetric)
                                : PaddingOf(right, constraint.rightMetric);
    }
    return std::max(PaddingOf(left, constraint.leftMetric),
                    PaddingOf(right, constraint.rightMetric));
}

// Nobody shall shrink to nothing because an element whose size it follows isn't shown.
bool UIAlignmentRows::BindsCollapsedSize(const Constraint& constraint) const {
    const auto binds = [this](const CXString& element, int32_t metric) {
        return metric >= 0 && kTraits[metric].isSize && IsCollapsed(FindElement(element));
    };
    return binds(constraint.leftElement, constraint.leftMetric) ||
           binds(constraint.rightElement, constraint.rightMetric);
}

void UIAlignmentRows::Row(const char* label, int16_t priority, uint16_t x,
                          Solver::Relation relation, double c, uint16_t a, double coefficientA,
                          uint16_t b) {
    Solver::Constraint row;
    row.x = x;
    row.a = a;
    row.b = b;
    row.priority = priority;
    row.relation = relation;
    row.c = c * kUnits;
    row.coefficientA = coefficientA;
    m_solver.Add(row);
    m_labels.resize(m_solver.GetConstraints().size(), label);
}

// A plain equality with a constant would stand for all that rounds to it.
void UIAlignmentRows::Exactly(const char* label, int16_t priority, uint16_t x, double value) {
    Row(label, priority, x, Solver::kAtMost, value);
    Row(label, priority, x, Solver::kAtLeast, value);
}

void UIAlignmentRows::AddParent() {
    const int16_t priority = Priority(kRelationship, 0);
    AddRelationships(Parent());
    const auto add = [&](int32_t near, int32_t size, int32_t length, Fit fit) {
        Row(kParentLabel, priority, Metric(Parent(), near), Solver::kEqual, 0);
        if (fit == Fit::Given) {
            Exactly(kParentLabel, priority, Metric(Parent(), size), length);
        } else {
            Row(kParentLabel, priority, Metric(Parent(), size), Solver::kMinimize, 0);
        }
    };
    add(Method::kLeft, Method::kWidth, m_scene.frame.size.width, m_scene.fitWidth);
    add(Method::kTop, Method::kHeight, m_scene.frame.size.height, m_scene.fitHeight);
}

void UIAlignmentRows::AddRelationships(size_t element) {
    const int16_t priority = Priority(kRelationship, 0);
    const auto add = [&](int32_t near, int32_t far, int32_t size) {
        // Sizes get their numbers first: of equal choices the lower number is decided first.
        const uint16_t length = Metric(element, size);
        Row(kRelationshipLabel, priority, length, Solver::kAtLeast, 0);
        const uint16_t start = Metric(element, near);
        Row(kRelationshipLabel, priority, Metric(element, far), Solver::kEqual, 0, start, 1,
            length);
    };
    add(Method::kLeft, Method::kRight, Method::kWidth);
    add(Method::kTop, Method::kBottom, Method::kHeight);
}

void UIAlignmentRows::AddConstraints() {
    for (size_t index = 0; index < Parent(); ++index) {
        AddRelationships(index);
    }
    const std::vector<Constraint>& constraints = m_method.GetConstraints();
    for (size_t index = 0; index < constraints.size(); ++index) {
        const Constraint& from = constraints[index];
        if (BindsCollapsedSize(from)) {
            continue;
        }
        Solver::Constraint row;
        row.x = Side(from.leftElement, from.leftMetric);
        row.a = Side(from.rightElement, from.rightMetric);
        row.priority = Priority(kConstraint, index);
        row.relation = static_cast<Solver::Relation>(from.relation);
        row.c = from.constant * kUnits;
        if (from.usesPadding) {
            const int32_t distance = Distance(from);
            row.source = &m_paddings.emplace_back(from.negatesPadding ? -distance : distance);
        }
        m_solver.Add(row);
        m_labels.resize(m_solver.GetConstraints().size(), kConstraintLabel);
        if (row.relation >= Solver::kMaximize) {
            m_wished.resize(std::max<size_t>(m_wished.size(), row.x + size_t{1}));
            m_wished[row.x] = true;
            m_solver.At(row.x).priority = kWishes;
        }
    }
}

void UIAlignmentRows::AddChild(size_t index) {
    const size_t parent = Parent();
    if (IsCollapsed(index)) {
        for (const int32_t size : {Method::kWidth, Method::kHeight}) {
            Row(kInvisibleLabel, Priority(kStrong, index), Metric(index, size), Solver::kEqual, 0);
        }
        return;
    }
    // A child stays within the container as far as its least size and the constraints allow.
    const int16_t inside = Priority(kInside, index);
    for (const int32_t edge : {Method::kLeft, Method::kTop}) {
        Row(kParentLabel, inside, Metric(index, edge), Solver::kAtLeast, 0, Metric(parent, edge));
    }
    for (const int32_t edge : {Method::kRight, Method::kBottom}) {
        Row(kParentLabel, inside, Metric(index, edge), Solver::kAtMost, 0, Metric(parent, edge));
    }
    AddSize(index, Method::kWidth);
    AddSize(index, Method::kHeight);
}

// What a child asks for along one axis: its least size, and to be near its natural size.
void UIAlignmentRows::AddSize(size_t index, int32_t metric) {
    using IntrinsicPriority = UIAlignmentMethodConstraints::IntrinsicPriority;
    const UIAlignmentChild& child = m_scene.children[index];
    const UIIntrinsic& sizes = m_pins.intrinsics[index];
    const bool isWidth = metric == Method::kWidth;
    const int32_t least = std::max(0, isWidth ? sizes.min.width : sizes.min.height);
    const int32_t natural = std::max(least, isWidth ? sizes.natural.width : sizes.natural.height);
    const bool follows = !isWidth && (sizes.heightFollowsWidth || child.hints.heightFollowsWidth);
    const bool keepsLeast = isWidth ? child.hints.keepMinimumWidth : child.hints.keepMinimumHeight;

    const IntrinsicPriority own = m_method.GetIntrinsicPriority(child.name, metric);
    const auto priority = [&](Band band) {
        return Priority(own == IntrinsicPriority::Weak     ? kWeak
                        : own == IntrinsicPriority::Strong ? kStrong
                                                           : band,
                        index);
    };
    const uint16_t size = Metric(index, metric);
    const char* const leastLabel = !follows                 ? kMinLabel
                                   : m_pins.measured[index] ? kDynamicHeightLabel
                                                            : kStaticHeightLabel;
    Row(leastLabel, priority(keepsLeast ? kStrong : kMinSize), size, Solver::kAtLeast, least);
    if (child.hints.sizeNotFlexible || own == IntrinsicPriority::Strong) {
        Exactly(kMaxLabel, priority(kMaxSize), size, natural);
    }
    if (child.hints.ignoreFullSize || IsWished(size)) {
        return;
    }
    const bool isLeast = (isWidth ? m_scene.fitWidth : m_scene.fitHeight) == Fit::Minimum;
    AddFullSize(index, metric, least, isLeast ? least : natural);
}

// Rows that never conflict: how far the size stays below the natural one and how far it is from it
// are variables of their own, which end as near to 0 as they can. Shortfalls are decided first, so
// an element would rather be stretched than that another is cut short.
void UIAlignmentRows::AddFullSize(size_t index, int32_t metric, int32_t least, int32_t natural) {
    const int16_t priority = Priority(kRelationship, 0);
    const uint16_t size = Metric(index, metric);
    const auto helper = [&](const char* what, Turn turn) {
        const uint16_t number = m_solver.GetVariable(CXString::Format(
            "%s.%s %s", m_names[index].GetData(), Method::MetricName(metric), what));
        m_solver.At(number).priority = TurnOf(turn, index);
        return number;
    };
    if (natural > least) {
        const uint16_t shortfall = helper("shortfall", kShortfalls);
        Row(kFullLabel, priority, shortfall, Solver::kAtLeast, 0);
        Row(kFullLabel, priority, shortfall, Solver::kAtMost, natural);
        Row(kFullLabel, priority, size, Solver::kAtLeast, natural, shortfall, -1);
    }
    Row(kFullLabel, priority, size, Solver::kEqual, natural, helper("deviation", kDeviations));
}

void UIAlignmentRows::AddPins() {
    for (size_t index = 0; index <= Parent(); ++index) {
        const auto pin = [&](int32_t metric, int32_t value) {
            if (value >= 0) {
                Exactly(kFullLabel, Priority(kPin, index), Metric(index, metric), value);
            }
        };
        pin(Method::kWidth, m_pins.widths[index]);
        pin(Method::kHeight, m_pins.heights[index]);
    }
}

void UIAlignmentRows::Log() const {
    const std::vector<Solver::Constraint>& rows = m_solver.GetConstraints();
    for (size_t index = 0; index < rows.size(); ++index) {
        const Solver::Constraint& row = rows[index];
        CXLogFormat("UIAlignmentMethodConstraints::Apply> %s (%d): %s %s %g + %g * %s + %g * %s%s",
                    m_labels[index], row.priority, m_solver.GetName(row.x).GetData(),
                    kRelationTexts[row.relation], row.c / kUnits, row.coefficientA,
                    m_solver.GetName(row.a).GetData(), row.coefficientB,
                    m_solver.GetName(row.b).GetData(), row.gaveWay ? "; gave way" : "");
    }
    for (size_t number = 1; number < m_solver.GetVariableCount(); ++number) {
        const uint16_t variable = static_cast<uint16_t>(number);
        CXLogFormat("UIAlignmentMethodConstraints::Apply> %s is %g",
                    m_solver.GetName(variable).GetData(), m_solver.GetValue(variable) / kUnits);
    }
}
