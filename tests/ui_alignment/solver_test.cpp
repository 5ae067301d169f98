#include "ui/alignment/UIAlignmentSolver.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Solver = UIAlignmentSolver;

class FixedRange : public UIAlignmentRangeSource {
public:
    FixedRange(double min, double max) : m_range{min, max} {}
    Range GetRange() const override { return m_range; }

private:
    Range m_range;
};

const FixedRange kTooWide(-9e9, 9e9);
const FixedRange kTenToTwelve(10, 12);

// One row: "x relation c [a [coefficient [b [coefficient]]]]"; variables are numbers, 0 for none.
struct RowText {
    int priority;
    int x;
    Solver::Relation relation;
    double c;
    int a = 0;
    double coefficientA = 1;
    int b = 0;
    double coefficientB = 1;
    const UIAlignmentRangeSource* source = nullptr;
};

struct SolveCase {
    const char* what;
    int variables;
    std::vector<RowText> rows;
    std::vector<double> values;
    std::vector<size_t> gaveWay;
};

void Fill(Solver& solver, int variables, const std::vector<RowText>& rows) {
    for (int index = 1; index <= variables; ++index) {
        EXPECT_EQ(solver.GetVariable(CXString::Format("$%d", index)), index);
    }
    for (const RowText& from : rows) {
        Solver::Constraint row;
        row.x = static_cast<uint16_t>(from.x);
        row.a = static_cast<uint16_t>(from.a);
        row.b = static_cast<uint16_t>(from.b);
        row.priority = static_cast<int16_t>(from.priority);
        row.relation = from.relation;
        row.c = from.c;
        row.coefficientA = from.coefficientA;
        row.coefficientB = from.coefficientB;
        row.source = from.source;
        solver.Add(row);
    }
}

TEST(UIAlignmentSolver, Cases) {
    const SolveCase cases[] = {
        {"free ends at 0", 1, {}, {0}, {}},
        {"nearest to 0 from above", 1, {{1, 1, Solver::kAtLeast, 13}}, {13}, {}},
        {"nearest to 0 from below", 1, {{1, 1, Solver::kAtMost, -13}}, {-13}, {}},
        {"strict narrows alike", 1, {{1, 1, Solver::kMore, 13}}, {13}, {}},
        {"maximize within a bound",
         1,
         {{1, 1, Solver::kMaximize, 0}, {1, 1, Solver::kAtMost, 100}},
         {100},
         {}},
        {"wishes cancel out",
         1,
         {{1, 1, Solver::kMaximize, 0},
          {1, 1, Solver::kMinimize, 0},
          {1, 1, Solver::kAtMost, 9},
          {1, 1, Solver::kAtLeast, -9}},
         {0},
         {}},
        {"maximize alone reaches the limit", 1, {{1, 1, Solver::kMaximize, 0}}, {1000000}, {}},
        {"the lower priority gives way",
         1,
         {{1, 1, Solver::kEqual, 10}, {2, 1, Solver::kEqual, 20}},
         {20},
         {0}},
        {"so it does the other way round",
         1,
         {{2, 1, Solver::kEqual, 10}, {1, 1, Solver::kEqual, 20}},
         {10},
         {1}},
        {"equal priorities give way together",
         1,
         {{1, 1, Solver::kEqual, 10}, {1, 1, Solver::kEqual, 20}},
         {0},
         {0, 1}},
        {"constants one apart are both kept",
         1,
         {{1, 1, Solver::kEqual, 10}, {2, 1, Solver::kEqual, 11}},
         {11},
         {}},
        {"the weak end of a chain gives way, not what it hangs on",
         3,
         {{9, 1, Solver::kEqual, 10},
          {8, 2, Solver::kEqual, 5, 1},
          {7, 3, Solver::kEqual, 5, 2},
          {3, 3, Solver::kEqual, 100}},
         {10, 15, 20},
         {3}},
        {"coefficients, forwards and back",
         2,
         {{1, 1, Solver::kEqual, 4, 2, 0.5},
          {1, 1, Solver::kAtMost, 54},
          {1, 1, Solver::kAtLeast, 54}},
         {54, 100},
         {}},
        {"a negative coefficient swaps the ends",
         2,
         {{1, 1, Solver::kEqual, 50, 2, -1},
          {1, 1, Solver::kAtMost, 20},
          {1, 1, Solver::kMaximize, 0}},
         {20, 30},
         {}},
        {"at most, solved for its right side",
         2,
         {{1, 1, Solver::kAtMost, 0, 2, -2}, {1, 1, Solver::kAtLeast, 10}},
         {10, -5},
         {}},
        {"two variables on the right",
         3,
         {{1, 1, Solver::kEqual, 0, 2, 1, 3, 1},
          {1, 1, Solver::kAtLeast, 100},
          {1, 1, Solver::kAtMost, 100},
          {1, 3, Solver::kEqual, 30}},
         {100, 70, 30},
         {}},
        {"coefficient 0 counts as absent constraint",
         2,
         {{1, 1, Solver::kEqual, 7, 2, 0}},
         {0, 0},
         {}},
        {"flexible frees of constants, also of earlier ones, not of others",
         2,
         {{5, 1, Solver::kEqual, 40},
          {5, 1, Solver::kFlexible, 0},
          {5, 1, Solver::kMaximize, 0},
          {5, 1, Solver::kAtMost, 3, 2},
          {5, 1, Solver::kAtLeast, 2, 2}},
         {0, -2},
         {}},
        {"a wish before flexible stays",
         1,
         {{5, 1, Solver::kMinimize, 0}, {5, 1, Solver::kFlexible, 0}},
         {-1000000},
         {}},
        {"a source's range is added",
         1,
         {{1, 1, Solver::kEqual, 5, 0, 1, 0, 1, &kTenToTwelve}, {1, 1, Solver::kMaximize, 0}},
         {17},
         {}},
        {"and clamped",
         1,
         {{1, 1, Solver::kEqual, 0, 0, 1, 0, 1, &kTooWide}, {1, 1, Solver::kMaximize, 0}},
         {500000},
         {}},
        {"a contradiction in a circle is found",
         2,
         {{1, 1, Solver::kEqual, 1, 2}, {2, 2, Solver::kEqual, 1, 1}},
         {0, 1},
         {0}},
        {"rows without x or with unknown variables are ignored",
         1,
         {{1, 0, Solver::kEqual, 9}, {1, 9, Solver::kEqual, 9}, {1, 1, Solver::kEqual, 3, 9}},
         {0},
         {}},
    };
    for (const SolveCase& test : cases) {
        SCOPED_TRACE(test.what);
        Solver solver;
        Fill(solver, test.variables, test.rows);
        solver.Solve();
        std::vector<double> values;
        for (int index = 1; index <= test.variables; ++index) {
            values.push_back(solver.GetValue(static_cast<uint16_t>(index)));
        }
        EXPECT_EQ(values, test.values);
        std::vector<size_t> gaveWay;
        for (size_t index = 0; index < solver.GetConstraints().size(); ++index) {
            if (solver.GetConstraints()[index].gaveWay) {
                gaveWay.push_back(index);
            }
        }
        EXPECT_EQ(gaveWay, test.gaveWay);
    }
}

TEST(UIAlignmentSolver, WholeNumbersPrioritiesAndImpossibleStarts) {
    Solver solver;
    Fill(solver, 4,
         {{1, 1, Solver::kAtLeast, 2.5},
          {1, 1, Solver::kAtMost, 2.5},
          {1, 2, Solver::kAtLeast, -2.5},
          {1, 2, Solver::kAtMost, -2.5},
          {1, 3, Solver::kAtLeast, 2.5},
          {1, 3, Solver::kAtMost, 2.5}});
    solver.At(3).whole = false;
    solver.At(4).min = 10; // crossed from the start, and nobody to blame
    solver.At(4).max = 2;
    solver.Solve();
    EXPECT_EQ(solver.GetValue(1), 3); // halves go away from 0
    EXPECT_EQ(solver.GetValue(2), -3);
    EXPECT_EQ(solver.GetValue(3), 2.5);
    EXPECT_EQ(solver.GetValue(4), 6);
    EXPECT_EQ(solver.GetValue(0), 0);

    // Two share 100; the one that is decided first gets what it wants.
    for (const uint8_t first : {uint8_t{1}, uint8_t{2}}) {
        Solver shared;
        Fill(shared, 3,
             {{9, 3, Solver::kEqual, 0, 1, 1, 2, 1},
              {9, 3, Solver::kAtMost, 100},
              {9, 1, Solver::kAtLeast, 10},
              {9, 2, Solver::kAtLeast, 10},
              {9, 1, Solver::kMaximize, 0},
              {9, 2, Solver::kMaximize, 0}});
        for (uint16_t index = 1; index <= 3; ++index) {
            shared.At(index).priority = index == first ? 1 : 2;
        }
        shared.Solve();
        EXPECT_EQ(shared.GetValue(first), 90);
        EXPECT_EQ(shared.GetValue(static_cast<uint16_t>(3 - first)), 10);
    }
}

// Whatever is thrown at it, the solver ends after a bounded number of steps, with every variable at
// one number, and every constraint that it claims to keep is kept as far as rounding goes.
TEST(UIAlignmentSolver, RandomInputEnds) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto pick = [&](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(random);
    };
    const double coefficients[] = {1, 1, 1, 1, -1, 0.5, 2, 0, -3.25, 1e-9, 1e12, NAN, HUGE_VAL};
    const double constants[] = {0, 1, -1, 10, 100.5, 1e7, -1e7, HUGE_VAL, NAN};
    uint64_t most = 0;
    for (int turn = 0; turn < 60; ++turn) {
        const bool isSane = turn % 2 == 0;
        const int variables = pick(1, 40);
        Solver solver;
        std::vector<RowText> rows;
        for (int count = pick(0, 100); count > 0; --count) {
            const auto coefficient = [&] {
                return coefficients[pick(
                    0, isSane ? 6 : static_cast<int>(std::size(coefficients)) - 1)];
            };
            const double c = isSane
                                 ? pick(-100, 100)
                                 : constants[pick(0, static_cast<int>(std::size(constants)) - 1)];
            rows.push_back({pick(1, 20), pick(1, variables),
                            static_cast<Solver::Relation>(pick(0, pick(4, 7))), c,
                            pick(0, 2) == 0 ? 0 : pick(1, variables), coefficient(),
                            pick(0, 2) == 0 ? pick(1, variables) : 0, coefficient()});
        }
        Fill(solver, variables, rows);
        solver.Solve();
        most = std::max(most, solver.GetSteps());
        for (size_t index = 0; isSane && index < solver.GetConstraints().size(); ++index) {
            const Solver::Constraint& row = solver.GetConstraints()[index];
            if (row.off || solver.GetSteps() >= Solver::kMaxSteps) {
                continue;
            }
            const double rest = solver.GetValue(row.x) - row.c -
                                row.coefficientA * solver.GetValue(row.a) -
                                row.coefficientB * solver.GetValue(row.b);
            const double slack =
                1.25 * (1 + std::abs(row.coefficientA) + std::abs(row.coefficientB));
            ASSERT_TRUE(row.relation <= Solver::kEqual ? rest <= slack : true) << turn;
            ASSERT_TRUE(row.relation >= Solver::kEqual ? rest >= -slack : true) << turn;
        }
    }
    EXPECT_LE(most, Solver::kMaxSteps);
}

} // namespace
