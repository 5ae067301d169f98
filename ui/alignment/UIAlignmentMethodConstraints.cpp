#include "ui/alignment/UIAlignmentMethodConstraints.h"

#include "core/CXLog.h"
#include "core/CXText.h"
#include "dn/TextConfig.h"
#include "ui/alignment/UIAlignmentRows.h"
#include "ui/alignment/UIAlignmentSolver.h"

#include <algorithm>

using absl::string_view;

namespace {

struct RelationText {
    string_view text;
    UIAlignmentSolver::Relation relation;
};
// In the order in which they are tried.
constexpr RelationText kRelations[] = {{" < ", UIAlignmentSolver::kLess},
                                       {" <= ", UIAlignmentSolver::kAtMost},
                                       {" = ", UIAlignmentSolver::kEqual},
                                       {" >= ", UIAlignmentSolver::kAtLeast},
                                       {" > ", UIAlignmentSolver::kMore}};
constexpr RelationText kWishes[] = {{"maximize", UIAlignmentSolver::kMaximize},
                                    {"minimize", UIAlignmentSolver::kMinimize},
                                    {"flexible", UIAlignmentSolver::kFlexible}};
constexpr string_view kPlus = " + ";
constexpr string_view kMinus = " - ";
constexpr string_view kPadding = "padding";
constexpr string_view kMinusPadding = " - padding";

const char* const kPriorityNames[] = {"UIAlignmentMethodConstraints::IntrinsicPriority", "weak",
                                      "normal", "strong", nullptr};

// Splits at the first separator; false (and nothing changed) without one.
bool Split(string_view text, string_view separator, string_view& left, string_view& right) {
    const size_t at = text.find(separator);
    if (at == string_view::npos) {
        return false;
    }
    right = text.substr(at + separator.size());
    left = text.substr(0, at);
    return true;
}

bool ParseWhole(string_view text, int32_t& value) {
    return ParseInt32(text, value) && text.empty();
}

bool Negate(int32_t& value) {
    if (value == INT32_MIN) {
        return false;
    }
    value = -value;
    return true;
}

// What can be wrong with one side of a constraint; each takes the whole text.
struct SideFaults {
    const char* noMetric;
    const char* noElement;
};
constexpr SideFaults kLeftFaults = {"UIAlignmentMethodConstraints::Constraint::LoadString> invalid "
                                    "syntax; left element and metric expected: %s",
                                    "UIAlignmentMethodConstraints::Constraint::LoadString> invalid "
                                    "syntax; left element expected: %s"};
constexpr SideFaults kRightFaults = {
    "UIAlignmentMethodConstraints::Constraint::LoadString> invalid "
    "syntax; right element and metric expected: %s",
    "UIAlignmentMethodConstraints::Constraint::LoadString> invalid "
    "syntax; right element and metric expected: %s"};
constexpr const char* kUnknownMetric =
    "UIAlignmentMethodConstraints::Constraint::LoadString> invalid syntax: %s";

bool LogFault(const char* fault, const CXString& text) {
    CXLogFormat(fault, text.GetData());
    return false;
}

// What stands behind the operator: a number, "padding", or both.
bool ParseTail(string_view tail, bool negated, UIAlignmentMethodConstraints::Constraint& into) {
    if (ParseWhole(tail, into.constant)) {
        return !negated || Negate(into.constant);
    }
    string_view padding = tail;
    string_view number;
    if (Split(tail, kPlus, padding, number)) {
        if (!ParseWhole(number, into.constant)) {
            return false;
        }
    } else if (Split(tail, kMinus, padding, number)) {
        if (!ParseWhole(number, into.constant) || !Negate(into.constant)) {
            return false;
        }
    }
    into.usesPadding = padding == kPadding;
    into.negatesPadding = into.usesPadding && negated;
    return into.usesPadding;
}

bool ParseElement(string_view text, CXString& element, int32_t& metric, const SideFaults& faults,
                  const CXString& whole) {
    string_view name;
    string_view metricName;
    if (!Split(text, ".", name, metricName)) {
        return LogFault(faults.noMetric, whole);
    }
    if (name.empty()) {
        return LogFault(faults.noElement, whole);
    }
    metric = UIAlignmentMethod::ParseMetric(CXString(metricName));
    if (metric == UIAlignmentMethod::kInvalidMetric) {
        return LogFault(kUnknownMetric, whole);
    }
    element = CXString(name);
    return true;
}

bool IsVariable(string_view text) {
    return !text.empty() && text.front() == '$';
}

// The right side. "a.b - padding + 4" has its operator before the plus sign; any other " - " there
// belongs to a name.
bool ParseRight(string_view right, UIAlignmentMethodConstraints::Constraint& into,
                const CXString& whole) {
    string_view term = right;
    string_view tail;
    bool negated = false;
    bool hasTail = Split(right, kPlus, term, tail);
    const size_t minus = term.size() - std::min(kMinusPadding.size(), term.size());
    if (!hasTail) {
        negated = Split(right, kMinus, term, tail);
        hasTail = negated;
    } else if (term.substr(minus) == kMinusPadding) {
        negated = true;
        term = right.substr(0, minus);
        tail = right.substr(minus + kMinus.size());
    }
    if (!hasTail) {
        if (ParseWhole(term, into.constant)) {
            return true;
        }
        for (const RelationText& wish : kWishes) {
            if (into.relation == UIAlignmentSolver::kEqual && term == wish.text) {
                into.relation = wish.relation;
                return true;
            }
        }
    }
    if (IsVariable(term)) {
        into.rightElement = CXString(term);
    } else if (!ParseElement(term, into.rightElement, into.rightMetric, kRightFaults, whole)) {
        return false;
    }
    if (hasTail && !ParseTail(tail, negated, into)) {
        CXLog("UIAlignmentMethodConstraints::Constraint::LoadString> invalid padding syntax");
        return false;
    }
    return true;
}

// Asks the children whose height follows their width again. Whether any answered with new heights.
bool MeasureAtWidths(const UIAlignmentScene& scene, UIAlignmentPins& pins) {
    bool changed = false;
    for (size_t index = 0; index < scene.children.size() && scene.measurer != nullptr; ++index) {
        const UIAlignmentChild& child = scene.children[index];
        const bool follows = child.intrinsic.heightFollowsWidth || child.hints.heightFollowsWidth;
        const bool counts = child.visible || child.hints.keepMetricsWhileInvisible;
        if (!follows || !counts || pins.widths[index] == child.intrinsic.natural.width) {
            continue;
        }
        const UIIntrinsic at = scene.measurer->MeasureAlignmentChild(index, pins.widths[index]);
        UIIntrinsic& known = pins.intrinsics[index];
        changed = changed || at.natural.height != known.natural.height ||
                  at.min.height != known.min.height;
        known.natural.height = at.natural.height;
        known.min.height = at.min.height;
        pins.measured[index] = true;
    }
    return changed;
}

} // namespace

bool UIAlignmentMethodConstraints::Constraint::LoadString(const CXString& text) {
    *this = Constraint();
    const RelationText* found = nullptr;
    string_view left;
    string_view right;
    for (const RelationText& candidate : kRelations) {
        if (Split(text, candidate.text, left, right)) {
            found = &candidate;
            break;
        }
    }
    if (found == nullptr) {
        return false;
    }
    Constraint read;
    read.relation = found->relation;
    if (left.size() >= 2 && IsVariable(left)) {
        read.leftElement = CXString(left);
    } else if (!ParseElement(left, read.leftElement, read.leftMetric, kLeftFaults, text)) {
        return false;
    }
    if (!ParseRight(right, read, text)) {
        return false;
    }
    *this = read;
    return true;
}

UIAlignmentMethodConstraints::UIAlignmentMethodConstraints(const DNValue& description) {
    const DNValueRef list = description.Get("constraints");
    if (list->IsFolder()) {
        for (size_t index = 0; index < list->GetChildCount(); ++index) {
            const CXString value = list->ChildAt(index)->GetString();
            Add(value.IsEmpty() ? list->KeyAt(index).GetString() : value);
        }
    } else {
        AddLines(list->GetString());
    }
    const DNValueRef overrides = description.Get("intrinsic-priority-overrides");
    for (size_t index = 0; index < overrides->GetChildCount(); ++index) {
        const int place = ParseEnumValue(kPriorityNames[0], kPriorityNames,
                                         overrides->ChildAt(index)->GetString());
        if (place != 0) {
            SetIntrinsicPriority(overrides->KeyAt(index).GetString(),
                                 static_cast<IntrinsicPriority>(place));
        }
    }
}

bool UIAlignmentMethodConstraints::IsDescribedBy(const DNValue& description) {
    const DNValueRef list = description.Get("constraints");
    return list->IsFolder() || !list->GetString().IsEmpty();
}

bool UIAlignmentMethodConstraints::Add(const CXString& text) {
    Constraint constraint;
    if (!constraint.LoadString(text)) {
        return false;
    }
    m_constraints.push_back(constraint);
    return true;
}

void UIAlignmentMethodConstraints::AddLines(string_view text) {
    while (!text.empty()) {
        const size_t end = std::min(text.find_first_of("\r\n"), text.size());
        string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const size_t first = std::min(line.find_first_not_of(" \t"), line.size());
        line.remove_prefix(first);
        line = line.substr(0, line.find_last_not_of(" \t") + 1);
        if (!line.empty()) {
            Add(CXString(line));
        }
    }
}

UIAlignmentMethodConstraints::IntrinsicPriority
UIAlignmentMethodConstraints::GetIntrinsicPriority(const CXString& element, int32_t metric) const {
    if (m_overrides.empty()) {
        return IntrinsicPriority::Normal;
    }
    auto found = m_overrides.find(
        CXString::Format("%s.%s", element.GetData(), UIAlignmentMethod::MetricName(metric)));
    if (found == m_overrides.end()) {
        found = m_overrides.find(element);
    }
    return found == m_overrides.end() ? IntrinsicPriority::Normal : found->second;
}

// Up to three passes over the same rows. The first finds the sizes. The second gives children whose
// height follows their width the height that they need at it. The last has all sizes as whole
// numbers, so that what is placed one behind the other doesn't drift by fractions.
void UIAlignmentMethodConstraints::Apply(UIAlignmentScene& scene) const {
    const size_t count = scene.children.size();
    UIAlignmentPins pins;
    pins.widths.assign(count + 1, -1);
    pins.heights.assign(count + 1, -1);
    pins.measured.assign(count, false);
    for (const UIAlignmentChild& child : scene.children) {
        pins.intrinsics.push_back(child.intrinsic);
    }
    const auto solve = [&](auto&& take) {
        UIAlignmentRows rows(scene, *this, pins);
        rows.GetSolver().Solve();
        take(rows);
    };
    const auto takeSizes = [&](UIAlignmentRows& rows) {
        for (size_t index = 0; index <= count; ++index) {
            pins.widths[index] = std::max(0, rows.GetValue(index, kWidth));
            pins.heights[index] = std::max(0, rows.GetValue(index, kHeight));
        }
    };
    solve(takeSizes);

    if (MeasureAtWidths(scene, pins)) {
        pins.heights.assign(count + 1, -1);
        solve(takeSizes);
    }

    solve([&](UIAlignmentRows& rows) {
        for (size_t index = 0; index < count; ++index) {
            UIRect& rect = scene.children[index].rect;
            rect.left = rows.GetValue(index, kLeft);
            rect.top = rows.GetValue(index, kTop);
            rect.right = rect.left + std::max(0, rows.GetValue(index, kWidth));
            rect.bottom = rect.top + std::max(0, rows.GetValue(index, kHeight));
        }
        if (scene.fitWidth != UIAlignmentScene::Fit::Given) {
            scene.frame.size.width = std::max(0, rows.GetValue(count, kWidth));
        }
        if (scene.fitHeight != UIAlignmentScene::Fit::Given) {
            scene.frame.size.height = std::max(0, rows.GetValue(count, kHeight));
        }
        const auto isDebugged = [](const UIAlignmentChild& child) { return child.hints.debug; };
        if (scene.frame.debug ||
            std::any_of(scene.children.begin(), scene.children.end(), isDebugged)) {
            rows.Log();
        }
    });
}
