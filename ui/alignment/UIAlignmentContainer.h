// Ties an element that has children to the method that places them.
#pragma once

#include "ui/alignment/UIAlignmentMethod.h"

#include <memory>
#include <utility>

/// What a container must know of the element whose children it places; the element implements it.
/// All calls come from Layout and Measure, on their thread.
class UIAlignmentParent : public UIAlignmentMeasurer {
public:
    /// Appends one record per child, in tree order. `rect` holds the child's present place.
    virtual void GetAlignmentChildren(std::vector<UIAlignmentChild>& children) = 0;
    /// The padding and safe insets of the element; its size is given by the caller.
    virtual UIAlignmentFrame GetAlignmentFrame() = 0;
    /// Puts child `index` at its place, in the element's client coordinates. Called once for each
    /// child, also the invisible ones.
    virtual void PlaceAlignmentChild(size_t index, const UIRect& rect) = 0;
};

/// The layout of one element: owns the method, borrows the element.
class UIAlignmentContainer {
public:
    explicit UIAlignmentContainer(UIAlignmentParent& parent) : m_parent(parent) {}

    /// Takes over a method; null: children stay where they are.
    void SetMethod(std::unique_ptr<UIAlignmentMethod> method) { m_method = std::move(method); }
    /// The method of an element's description (UIAlignmentMethod::Load).
    void LoadMethod(const DNValue& description) { m_method = UIAlignmentMethod::Load(description); }
    const UIAlignmentMethod* GetMethod() const { return m_method.get(); }

    /// Places every child within a client area of this size.
    void Layout(UISize size);
    /// The container's own sizes, from its children: for containers in containers and for windows
    /// that fit their content. With a width that isn't negative, the heights are those at it.
    /// Without a method the sizes are zero. Places nothing.
    UIIntrinsic Measure(int32_t forWidth);

private:
    UISize Fit(UIAlignmentScene& scene, UIAlignmentScene::Fit width, UIAlignmentScene::Fit height);

    UIAlignmentParent& m_parent;
    std::unique_ptr<UIAlignmentMethod> m_method;
};
