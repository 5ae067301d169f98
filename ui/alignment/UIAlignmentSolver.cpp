#include "ui/alignment/UIAlignmentSolver.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

namespace {

// A change smaller than this isn't one: it keeps two relations from creeping towards each other.
constexpr double kLeastChange = 1e-9;
// An interval shorter than this holds one whole number at most: nothing is left to decide.
constexpr double kSettled = 1.0;
// How far the ends may cross before it counts as a contradiction and not as rounding.
constexpr double kCrossing = 1.5;
// A plain constant stands for all numbers that round to it.
constexpr double kRounding = 0.49999999;
constexpr uint16_t kMostVariables = UINT16_MAX;

struct Interval {
    double low, high;
};

Interval Scale(const UIAlignmentSolver::Variable& variable, double coefficient) {
    const double first = variable.min * coefficient;
    const double second = variable.max * coefficient;
    return coefficient < 0 ? Interval{second, first} : Interval{first, second};
}

bool IsUpperBound(UIAlignmentSolver::Relation relation) {
    return relation <= UIAlignmentSolver::kEqual;
}
bool IsLowerBound(UIAlignmentSolver::Relation relation) {
    return relation >= UIAlignmentSolver::kEqual && relation <= UIAlignmentSolver::kMore;
}

} // namespace

uint16_t UIAlignmentSolver::GetVariable(const CXString& name) {
    const auto found = m_names.find(name);
    if (found != m_names.end()) {
        return found->second;
    }
    if (m_variables.size() > kMostVariables) {
        return 0;
    }
    const uint16_t number = static_cast<uint16_t>(m_variables.size());
    m_variables.emplace_back();
    m_nameOf.push_back(name);
    m_names.emplace(name, number);
    return number;
}

uint16_t UIAlignmentSolver::FindVariable(const CXString& name) const {
    const auto found = m_names.find(name);
    return found == m_names.end() ? uint16_t{0} : found->second;
}

void UIAlignmentSolver::Add(const Constraint& constraint) {
    const size_t count = m_variables.size();
    if (constraint.x != 0 && constraint.x < count && constraint.a < count && constraint.b < count) {
        m_constraints.push_back(constraint);
    }
}

void UIAlignmentSolver::Solve() {
    TakePreferences();
    Order();
    m_start = m_variables;
    MarkAll();
    for (;;) {
        Propagate();
        uint16_t conflict = 0;
        uint16_t open = 0;
        Inspect(conflict, open);
        if (OutOfSteps() || (conflict == 0 && open == 0)) {
            Finish();
            return;
        }
        if (conflict != 0) {
            GiveWay(conflict);
        } else {
            Decide(open);
        }
    }
}

// Turns the relations that only state a wish into preferences.
void UIAlignmentSolver::TakePreferences() {
    const auto isConstant = [](const Constraint& constraint) {
        return constraint.a == 0 && constraint.b == 0;
    };
    std::vector<bool> flexible(m_variables.size(), false);
    for (Constraint& constraint : m_constraints) {
        if (constraint.off || (flexible[constraint.x] && isConstant(constraint))) {
            continue;
        }
        int8_t& preference = m_variables[constraint.x].preference;
        if (constraint.relation == kMaximize) {
            preference = static_cast<int8_t>(std::min(preference + 1, INT8_MAX));
        } else if (constraint.relation == kMinimize) {
            preference = static_cast<int8_t>(std::max(preference - 1, INT8_MIN));
        } else if (constraint.relation == kFlexible) {
            flexible[constraint.x] = true;
        }
    }
    for (Constraint& constraint : m_constraints) {
        constraint.off = constraint.off || constraint.relation >= kMaximize ||
                         (flexible[constraint.x] && isConstant(constraint)) ||
                         constraint.coefficientA == 0 || constraint.coefficientB == 0;
    }
}

// Two passes: the live constraints by falling priority, then for each variable those that touch it.
void UIAlignmentSolver::Order() {
    std::vector<uint32_t> order(m_constraints.size());
    std::iota(order.begin(), order.end(), 0U);
    std::stable_sort(order.begin(), order.end(), [this](uint32_t left, uint32_t right) {
        return m_constraints[left].priority > m_constraints[right].priority;
    });
    m_links.clear();
    for (const uint32_t index : order) {
        const Constraint& from = m_constraints[index];
        if (from.off) {
            continue;
        }
        UIAlignmentRangeSource::Range range;
        if (from.source != nullptr) {
            range = from.source->GetRange();
            range.min = std::clamp(range.min, -kSourceLimit, kSourceLimit);
            range.max = std::clamp(range.max, range.min, kSourceLimit);
        }
        Link link = {from.x,
                     from.a,
                     from.b,
                     from.relation,
                     index,
                     from.c + range.min,
                     from.c + range.max,
                     from.coefficientA,
                     from.coefficientB};
        if (from.relation == kEqual && from.a == 0 && from.b == 0 && link.low == link.high &&
            link.low != 0) {
            link.low -= kRounding;
            link.high += kRounding;
        }
        m_links.push_back(link);
    }

    m_touchStart.assign(m_variables.size() + 1, 0);
    const auto forEachEnd = [this](auto&& visit) {
        for (uint32_t number = 0; number < m_links.size(); ++number) {
            for (const uint16_t variable :
                 {m_links[number].x, m_links[number].a, m_links[number].b}) {
                if (variable != 0) {
                    visit(variable, number);
                }
            }
        }
    };
    forEachEnd([this](uint16_t variable, uint32_t) { ++m_touchStart[variable + 1U]; });
    std::partial_sum(m_touchStart.begin(), m_touchStart.end(), m_touchStart.begin());
    m_touching.resize(m_touchStart.back());
    std::vector<uint32_t> next(m_touchStart.begin(), m_touchStart.end() - 1);
    forEachEnd([&](uint16_t variable, uint32_t number) { m_touching[next[variable]++] = number; });
}

void UIAlignmentSolver::MarkAll() {
    m_dirty.assign((m_links.size() + 63) / 64, ~uint64_t{0});
    if (m_links.size() % 64 != 0) {
        m_dirty.back() = (uint64_t{1} << (m_links.size() % 64)) - 1;
    }
}

void UIAlignmentSolver::Mark(uint16_t variable) {
    for (uint32_t at = m_touchStart[variable]; at < m_touchStart[variable + 1U]; ++at) {
        m_dirty[m_touching[at] / 64] |= uint64_t{1} << (m_touching[at] % 64);
    }
}

// Rounds over the constraints until nothing changes. A constraint none of whose variables changed
// since its turn would change nothing, so it is passed over. False at a contradiction.
bool UIAlignmentSolver::Propagate() {
    for (int round = 0; round < kMaxRounds; ++round) {
        bool worked = false;
        for (size_t word = 0; word < m_dirty.size(); ++word) {
            uint64_t left = m_dirty[word];
            while (left != 0) {
                const int bit = std::countr_zero(left);
                m_dirty[word] &= ~(uint64_t{1} << bit);
                const Link& link = m_links[word * 64 + static_cast<size_t>(bit)];
                if (!m_constraints[link.constraint].off) {
                    worked = true;
                    ++m_steps;
                    if (OutOfSteps() || !Narrow(link)) {
                        return false;
                    }
                }
                // Those behind this one that have become dirty take their turn in this round.
                left = bit == 63 ? 0 : m_dirty[word] & (~uint64_t{0} << (bit + 1));
            }
        }
        if (!worked) {
            return true;
        }
    }
    return true;
}

bool UIAlignmentSolver::Narrow(const Link& link) {
    const bool below = IsUpperBound(link.relation);
    const bool above = IsLowerBound(link.relation);
    const Variable& x = m_variables[link.x];
    // Taken afresh each time: a constraint may have one variable on both sides.
    const auto term = [this](uint16_t variable, double coefficient) {
        return variable == 0 ? Interval{0, 0} : Scale(m_variables[variable], coefficient);
    };
    const Interval a = term(link.a, link.coefficientA);
    const Interval b = term(link.b, link.coefficientB);
    if (!Clip(link.x, above ? link.low + a.low + b.low : -HUGE_VAL,
              below ? link.high + a.high + b.high : HUGE_VAL, link.constraint)) {
        return false;
    }
    // The other way: coefficient * variable lies in x - c - rest; "at most" bounds it from below.
    const auto narrowTerm = [&](uint16_t variable, double coefficient, const Interval& rest) {
        double low = below ? x.min - link.high - rest.high : -HUGE_VAL;
        double high = above ? x.max - link.low - rest.low : HUGE_VAL;
        if (coefficient != 1) {
            low /= coefficient;
            high /= coefficient;
            if (coefficient < 0) {
                std::swap(low, high);
            }
        }
        return variable == 0 || Clip(variable, low, high, link.constraint);
    };
    return narrowTerm(link.a, link.coefficientA, term(link.b, link.coefficientB)) &&
           narrowTerm(link.b, link.coefficientB, term(link.a, link.coefficientA));
}

bool UIAlignmentSolver::Clip(uint16_t variable, double low, double high, uint32_t constraint) {
    Variable& target = m_variables[variable];
    bool changed = false;
    if (low - target.min >= kLeastChange) {
        target.min = low;
        target.minBy = constraint;
        changed = true;
    }
    if (target.max - high >= kLeastChange) {
        target.max = high;
        target.maxBy = constraint;
        changed = true;
    }
    if (!changed) {
        return true;
    }
    Mark(variable);
    return target.max + kCrossing >= target.min;
}

// The lowest variable that is in conflict, and the best one to decide next; 0 if there is none.
void UIAlignmentSolver::Inspect(uint16_t& conflict, uint16_t& open) const {
    double bestRange = 0;
    for (size_t index = 1; index < m_variables.size(); ++index) {
        const Variable& variable = m_variables[index];
        if (variable.max < variable.min + kSettled) {
            if (variable.max + kCrossing <= variable.min) {
                conflict = static_cast<uint16_t>(index);
                return;
            }
            continue;
        }
        const double range = variable.max - variable.min;
        bool better = open == 0;
        if (!better) {
            const Variable& best = m_variables[open];
            better = variable.priority != best.priority ? variable.priority < best.priority
                     : range != bestRange               ? range < bestRange
                                          : variable.preference != 0 && best.preference == 0;
        }
        if (better) {
            open = static_cast<uint16_t>(index);
            bestRange = range;
        }
    }
}

// Walks back from the variable along the constraints that narrowed it, and those that narrowed
// what they read, and switches off the least important ones on the way.
void UIAlignmentSolver::GiveWay(uint16_t conflict) {
    std::vector<uint16_t> queue = {conflict};
    std::vector<bool> queued(m_variables.size(), false);
    queued[conflict] = true;
    std::vector<uint32_t> found;
    std::vector<bool> seen(m_constraints.size(), false);
    int16_t lowest = INT16_MAX;
    for (size_t next = 0; next < queue.size(); ++next) {
        const Variable& variable = m_variables[queue[next]];
        for (const uint32_t index : {variable.minBy, variable.maxBy}) {
            if (index == kNone || seen[index]) {
                continue;
            }
            seen[index] = true;
            found.push_back(index);
            const Constraint& constraint = m_constraints[index];
            lowest = std::min(lowest, constraint.priority);
            for (const uint16_t end : {constraint.x, constraint.a, constraint.b}) {
                if (end != 0 && !queued[end]) {
                    queued[end] = true;
                    queue.push_back(end);
                }
            }
        }
    }
    bool gaveWay = false;
    for (const uint32_t index : found) {
        Constraint& constraint = m_constraints[index];
        if (constraint.priority == lowest && !constraint.off) {
            constraint.off = constraint.gaveWay = true;
            gaveWay = true;
        }
    }
    if (!gaveWay) {
        Variable& start = m_start[conflict];
        start.min = start.max = (m_variables[conflict].min + m_variables[conflict].max) / 2;
    }
    // What the lost constraints narrowed, directly or not, is void: everything starts anew.
    m_variables = m_start;
    MarkAll();
}

void UIAlignmentSolver::Decide(uint16_t open) {
    Variable& variable = m_variables[open];
    const double pivot = variable.preference < 0   ? variable.min
                         : variable.preference > 0 ? variable.max
                                                   : std::clamp(0.0, variable.min, variable.max);
    // Near the end in small steps, so that others can still be pushed off their places.
    constexpr double kSmallRange = 4.0;
    const double factor = variable.max <= variable.min + kSmallRange ? 15.0 / 16.0 : 0.5;
    const double low = (pivot - variable.min) * factor;
    const double high = (variable.max - pivot) * factor;
    variable.min = pivot - low;
    variable.max = pivot + high;
    Mark(open);
}

void UIAlignmentSolver::Finish() {
    for (size_t index = 1; index < m_variables.size(); ++index) {
        Variable& variable = m_variables[index];
        const double middle = (variable.min + variable.max) / 2;
        variable.min = variable.max = variable.whole ? std::round(middle) : middle;
    }
}
