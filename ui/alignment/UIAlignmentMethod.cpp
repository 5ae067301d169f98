#include "ui/alignment/UIAlignmentMethod.h"

#include "dn/TextConfig.h"
#include "ui/alignment/UIAlignmentMethodConstraints.h"
#include "ui/alignment/UIAlignmentMethodGrid.h"

#include <iterator>

namespace {

const char* const kMetricNames[] = {"UIAlignmentMethod::ElementMetricEnum",
                                    "left",
                                    "right",
                                    "top",
                                    "bottom",
                                    "baseline",
                                    "width",
                                    "height",
                                    "top-padding",
                                    "bottom-padding",
                                    "left-padding",
                                    "right-padding",
                                    "horizontal-center",
                                    "vertical-center",
                                    "content-width",
                                    "content-height",
                                    "saferight",
                                    "safebottom",
                                    "safeleft",
                                    "safetop",
                                    "top-safeleft",
                                    "top-saferight",
                                    "left-safetop",
                                    "left-safebottom",
                                    "bottom-safeleft",
                                    "bottom-saferight",
                                    "right-safetop",
                                    "right-safebottom",
                                    nullptr};
static_assert(std::size(kMetricNames) == UIAlignmentMethod::kInvalidMetric + 2);

} // namespace

UIAlignmentMethod::ElementMetricEnum UIAlignmentMethod::ParseMetric(const CXString& name) {
    const int place = ParseEnumValue(kMetricNames[0], kMetricNames, name);
    return place == 0 ? kInvalidMetric : static_cast<ElementMetricEnum>(place - 1);
}

const char* UIAlignmentMethod::MetricName(int32_t metric) {
    return metric >= 0 && metric < kInvalidMetric ? kMetricNames[metric + 1] : "";
}

std::unique_ptr<UIAlignmentMethod> UIAlignmentMethod::Load(const DNValue& description) {
    if (UIAlignmentMethodConstraints::IsDescribedBy(description)) {
        return std::make_unique<UIAlignmentMethodConstraints>(description);
    }
    if (UIAlignmentMethodGrid::IsDescribedBy(description)) {
        return std::make_unique<UIAlignmentMethodGrid>(description);
    }
    return nullptr;
}

UIAlignmentHints UIAlignmentHints::Load(const DNValue& description) {
    const auto flag = [&](const char* key) {
        const DNValueRef value = description.Get(key);
        return value->GetBool() || value->GetInt() != 0;
    };
    const bool keepMinimum = flag("dont-allow-parent-to-override-minimum-size");
    UIAlignmentHints hints;
    hints.keepMinimumWidth = keepMinimum || flag("dont-allow-parent-to-override-minimum-width");
    hints.keepMinimumHeight = keepMinimum || flag("dont-allow-parent-to-override-minimum-height");
    hints.sizeNotFlexible = flag("hint-size-not-flexible");
    hints.ignoreFullSize = flag("hint-ignore-full-size");
    hints.noUpdateOnChildChange = flag("does-not-update-on-child-change");
    hints.heightFollowsWidth = flag("does-vary-height-based-on-width");
    hints.keepMetricsWhileInvisible = flag("maintain-metrics-while-invisible");
    hints.debug = flag("debug-constraints");
    return hints;
}
