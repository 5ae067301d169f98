// Fills the solver's tables for one layout: the constraints and the rows that every element brings.
#pragma once

#include "ui/alignment/UIAlignmentMethodConstraints.h"
#include "ui/alignment/UIAlignmentSolver.h"

#include <array>
#include <deque>
#include <unordered_map>
#include <vector>

/// What earlier passes over the same scene found out.
struct UIAlignmentPins {
    std::vector<int32_t> widths, heights; ///< by child, the container's own at the end; -1: unknown
    std::vector<UIIntrinsic> intrinsics;  ///< by child
    std::vector<bool> measured;           ///< by child: the heights are those at its width
};

/// Rows in groups, each with a label for diagnostics. Priorities are bands; within a band the
/// earlier constraint or child is the stronger one, so that a conflict costs no more than it must.
class UIAlignmentRows {
public:
    using Constraint = UIAlignmentMethodConstraints::Constraint;

    /// Borrows all three for its lifetime.
    UIAlignmentRows(const UIAlignmentScene& scene, const UIAlignmentMethodConstraints& method,
                    const UIAlignmentPins& pins);

    UIAlignmentSolver& GetSolver() { return m_solver; }
    /// The solved value of a child's (or, with the number of children, the container's) metric
    /// among left, right, top, bottom, width and height.
    int32_t GetValue(size_t element, int32_t metric) const;
    /// Writes the rows, their fate and the values to the log.
    void Log() const;

private:
    // From the first to give way to the last.
    enum Band : int16_t {
        kPin,
        kWeak,
        kInside,
        kMinSize,
        kMaxSize,
        kConstraint,
        kStrong,
        kRelationship,
    };
    static constexpr int kBandWidth = 4000;
    // What is decided first among variables that are open. Children take turns in their order.
    enum Turn : uint8_t {
        kWishes = 0,
        kShortfalls = 1,
        kDeviations = 81,
        kSizes = 161,
        kContainer = 162,
        kPlaces = 163,
    };
    static constexpr size_t kTurns = kDeviations - kShortfalls;
    // The tables count in parts of a pixel, as the solver leaves a range of one unit undecided. Its
    // limit then is 31,250 pixels.
    static constexpr double kUnits = 32;

    // A distance between elements, added to or taken off a constraint.
    class Padding : public UIAlignmentRangeSource {
    public:
        explicit Padding(int32_t distance) : m_distance(distance * kUnits) {}
        Range GetRange() const override { return {m_distance, m_distance}; }

    private:
        double m_distance;
    };

    static int16_t Priority(Band band, size_t index);
    static uint8_t TurnOf(Turn turn, size_t index);
    size_t Parent() const { return m_scene.children.size(); }
    size_t FindElement(const CXString& name) const;
    bool IsCollapsed(size_t element) const;
    uint16_t Metric(size_t element, int32_t metric);
    void Define(size_t element, int32_t metric);
    uint16_t Side(const CXString& element, int32_t metric);
    int32_t PaddingOf(size_t element, int32_t metric) const;
    int32_t Distance(const Constraint& constraint) const;
    bool BindsCollapsedSize(const Constraint& constraint) const;

    void Row(const char* label, int16_t priority, uint16_t x, UIAlignmentSolver::Relation relation,
             double c, uint16_t a = 0, double coefficientA = 1, uint16_t b = 0);
    void Exactly(const char* label, int16_t priority, uint16_t x, double value);
    void AddParent();
    void AddRelationships(size_t element);
    void AddConstraints();
    void AddChild(size_t index);
    void AddSize(size_t index, int32_t metric);
    void AddFullSize(size_t index, int32_t metric, int32_t least, int32_t natural);
    bool IsWished(uint16_t variable) const;
    void AddPins();

    const UIAlignmentScene& m_scene;
    const UIAlignmentMethodConstraints& m_method;
    const UIAlignmentPins& m_pins;
    UIAlignmentSolver m_solver;
    std::vector<const char*> m_labels; // by the solver's constraints
    std::vector<CXString> m_names;     // of elements, for their variables
    std::unordered_map<CXString, size_t, CXStringHasher> m_elements;
    std::vector<std::array<uint16_t, UIAlignmentMethod::kInvalidMetric>> m_metrics;
    std::vector<bool> m_wished; // by variable: a constraint says how large it is to be
    std::deque<Padding> m_paddings;
};
