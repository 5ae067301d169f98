// Layout stated as text equations between element edges.
#pragma once

#include "ui/alignment/UIAlignmentMethod.h"

#include <absl/strings/string_view.h>

#include <map>
#include <vector>

/// Places children by constraints such as "next.right = parent.right - padding", where "parent" is
/// the container and the other names are children. Of constraints that can't all hold, the later
/// ones in the list give way.
class UIAlignmentMethodConstraints : public UIAlignmentMethod {
public:
    /// One constraint: left relation right + constant.
    struct Constraint {
        CXString leftElement;    ///< an element's name, or a variable's with its "$"
        int32_t leftMetric = -1; ///< ElementMetricEnum, -1 for a variable
        int32_t relation = -1;   ///< UIAlignmentSolver::Relation; -1: unset
        CXString rightElement;   ///< as leftElement; empty when there is none
        int32_t rightMetric = -1;
        int32_t constant = 0;
        bool usesPadding = false;    ///< the distance that both elements like to keep is added,
        bool negatesPadding = false; ///< or taken off

        /// Reads one constraint. A text without a relation leaves it unset; other faults are
        /// logged. False in both cases.
        bool LoadString(const CXString& text);
    };

    /// How hard an element insists on the size that its content asks for.
    enum class IntrinsicPriority : uint8_t {
        Weak = 1, ///< gives way before anything else
        Normal,   ///< natural sizes give way first, least sizes just before constraints
        Strong,   ///< gives way after all constraints
    };

    UIAlignmentMethodConstraints() = default;
    /// From an element's description: "constraints" (a text with one constraint a line, or a folder
    /// whose keys or values are constraints) and "intrinsic-priority-overrides" (a folder from
    /// "element" or "element.width" or "element.height" to "weak", "normal" or "strong").
    explicit UIAlignmentMethodConstraints(const DNValue& description);
    static bool IsDescribedBy(const DNValue& description);

    /// Adds a constraint; one that can't be read is left out, and the answer is false.
    bool Add(const CXString& text);
    /// Adds every line of a text; blanks around them and empty lines don't count.
    void AddLines(absl::string_view text);
    const std::vector<Constraint>& GetConstraints() const { return m_constraints; }

    void SetIntrinsicPriority(const CXString& elementOrMetric, IntrinsicPriority priority) {
        m_overrides[elementOrMetric] = priority;
    }
    /// Of an element's width (kWidth) or height (kHeight).
    IntrinsicPriority GetIntrinsicPriority(const CXString& element, int32_t metric) const;

    void Apply(UIAlignmentScene& scene) const override;

private:
    std::vector<Constraint> m_constraints;
    std::map<CXString, IntrinsicPriority> m_overrides;
};
