// An element that is made of others and places them by a method.
#pragma once

#include "ui/UIElement.h"
#include "ui/alignment/UIAlignmentContainer.h"

#include <map>
#include <memory>
#include <vector>

/// A panel. Without a method its children stay where they were put.
class UICustomControl : public UIElement, public UIAlignmentParent {
public:
    static constexpr const char* kType = "panel";
    explicit UICustomControl(const CXString& name) : UIElement(name), m_alignment(*this) {}
    const char* GetType() const override { return kType; }

    /// Set-up: makes the children. Whoever adds a panel calls it first, once; the base does
    /// nothing.
    virtual void Activate() {}

    /// How the children are placed; see UIAlignmentMethod.
    UIAlignmentContainer& GetAlignment() { return m_alignment; }
    /// What "padding" means between a child and an edge of this.
    void SetPadding(const UIInsets& padding) { m_padding = padding; }

    /// Measuring solves the layout several times, and who contains this asks more than once for the
    /// same, so answers are kept until something changes in here.
    UIIntrinsic Measure(int32_t forWidth) override;
    void Layout() override;

    void GetAlignmentChildren(std::vector<UIAlignmentChild>& children) override;
    UIAlignmentFrame GetAlignmentFrame() override;
    void PlaceAlignmentChild(size_t index, const UIRect& rect) override;
    UIIntrinsic MeasureAlignmentChild(size_t index, int32_t width) override;

protected:
    void ForgetMeasures() override { m_measures.clear(); }
    void Attach(CXUIWindow* window) override;
    /// An appearance with other letters is told in this way.
    void StateChanged() override { ForgetMeasures(); }

private:
    UIAlignmentContainer m_alignment;
    UIInsets m_padding = {kUIDefaultPadding, kUIDefaultPadding, kUIDefaultPadding,
                          kUIDefaultPadding};
    std::map<int32_t, UIIntrinsic> m_measures; // by width
};
