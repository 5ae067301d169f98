// The solver behind constraint layouts: variables as intervals that linear relations narrow.
#pragma once

#include "core/CXString.h"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

/// Something that knows a constant only as a range, such as a padding. Asked once for each Solve.
class UIAlignmentRangeSource {
public:
    struct Range {
        double min = 0, max = 0;
    };
    virtual ~UIAlignmentRangeSource() = default;
    virtual Range GetRange() const = 0;
};

/// Two tables, variables and constraints, filled by the caller and solved in place. Propagation
/// narrows intervals (hull consistency of interval constraint programming); where that leaves a
/// choice, one variable at a time is halved towards the end it prefers. There is no failure: of
/// constraints that can't all hold, those of the lowest priority are switched off. Made anew for
/// each layout; one thread.
class UIAlignmentSolver {
public:
    /// Half the width of the range that every variable starts with.
    static constexpr double kLimit = 1000000;
    /// A range from a source is clamped to this on both sides.
    static constexpr double kSourceLimit = 500000;
    /// Most rounds over the constraints in one propagation.
    static constexpr int kMaxRounds = 10000;
    /// Most narrowings tried in one Solve; what is open by then ends in the middle. Far above what
    /// any layout needs: it bounds the time that a contradictory description can take.
    static constexpr uint64_t kMaxSteps = 5000000;

    enum Relation : uint8_t {
        kLess,
        kAtMost,
        kEqual,
        kAtLeast,
        kMore,
        kMaximize,
        kMinimize,
        kFlexible,
    };
    static constexpr uint32_t kNone = UINT32_MAX;

    struct Variable {
        double min = -kLimit, max = kLimit; ///< equal once solved
        int8_t preference = 0; ///< above 0: as large as possible; below: as small as possible
        uint8_t priority = 0;  ///< lower ones are decided first
        bool whole = true;     ///< ends as a whole number
        uint32_t minBy = kNone, maxBy = kNone; ///< the constraint that last narrowed each end
    };
    /// x relation c + coefficientA * a + coefficientB * b. Strict relations narrow like the others.
    struct Constraint {
        uint16_t x = 0, a = 0, b = 0; ///< variable numbers; 0: absent
        int16_t priority = 0;         ///< lower ones give way first
        Relation relation = kEqual;
        bool off = false;     ///< not (or no longer) to be kept
        bool gaveWay = false; ///< switched off because of a conflict
        double c = 0, coefficientA = 1, coefficientB = 1;
        const UIAlignmentRangeSource* source = nullptr; ///< borrowed; its range is added to c
    };

    UIAlignmentSolver() : m_variables(1), m_nameOf(1) {}

    /// The number of the variable with this name, made if there is none; 0 when 65,535 are in use.
    uint16_t GetVariable(const CXString& name);
    /// The number of a name, 0 if there is none.
    uint16_t FindVariable(const CXString& name) const;
    const CXString& GetName(uint16_t number) const { return m_nameOf[number]; }
    /// By number; number 0 stands for none.
    Variable& At(uint16_t number) { return m_variables[number]; }
    const Variable& At(uint16_t number) const { return m_variables[number]; }
    size_t GetVariableCount() const { return m_variables.size(); }
    /// The value of a solved variable; 0 for number 0.
    double GetValue(uint16_t number) const {
        return number == 0 ? 0 : (m_variables[number].min + m_variables[number].max) / 2;
    }

    /// Enters a constraint; one without x, or with a number that isn't a variable's, is ignored.
    void Add(const Constraint& constraint);
    std::vector<Constraint>& GetConstraints() { return m_constraints; }
    const std::vector<Constraint>& GetConstraints() const { return m_constraints; }

    /// Gives every variable its value. Called once.
    void Solve();
    /// Narrowings tried by Solve, a measure of its cost.
    uint64_t GetSteps() const { return m_steps; }

private:
    // What propagation needs of a live constraint, in the order in which they are gone through.
    struct Link {
        uint16_t x, a, b;
        Relation relation;
        uint32_t constraint; // index into m_constraints
        double low, high;    // the range of the constant
        double coefficientA, coefficientB;
    };

    void TakePreferences();
    void Order();
    void MarkAll();
    void Mark(uint16_t variable);
    bool Propagate();
    bool Narrow(const Link& link);
    bool Clip(uint16_t variable, double low, double high, uint32_t constraint);
    void Inspect(uint16_t& conflict, uint16_t& open) const;
    void GiveWay(uint16_t conflict);
    void Decide(uint16_t open);
    void Finish();
    bool OutOfSteps() const { return m_steps >= kMaxSteps; }

    std::vector<Variable> m_variables; // [0] is reserved
    std::vector<CXString> m_nameOf;    // by number
    std::unordered_map<CXString, uint16_t, CXStringHasher> m_names;
    std::vector<Constraint> m_constraints;

    std::vector<Link> m_links;
    std::vector<uint32_t> m_touchStart; // by variable: its part of m_touching
    std::vector<uint32_t> m_touching;   // link numbers
    std::vector<uint64_t> m_dirty;      // one bit a link: something that it reads has changed
    std::vector<Variable> m_start;      // what every variable starts anew from
    uint64_t m_steps = 0;
};
