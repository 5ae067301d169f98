#include "ui/UICustomControl.h"

void UICustomControl::Attach(CXUIWindow* window) {
    ForgetMeasures(); // without native controls there was nothing to measure
    UIElement::Attach(window);
}

UIIntrinsic UICustomControl::Measure(int32_t forWidth) {
    const auto known = m_measures.find(forWidth);
    if (known != m_measures.end()) {
        return known->second;
    }
    const UIIntrinsic measure = m_alignment.Measure(forWidth);
    m_measures.emplace(forWidth, measure);
    return measure;
}

void UICustomControl::Layout() {
    if (m_alignment.GetMethod() != nullptr) {
        m_alignment.Layout({UIWidth(GetRect()), UIHeight(GetRect())});
    }
    UIElement::Layout();
}

void UICustomControl::GetAlignmentChildren(std::vector<UIAlignmentChild>& children) {
    for (const auto& child : GetChildren()) {
        UIAlignmentChild record;
        record.name = child->GetName();
        record.intrinsic = child->Measure(-1);
        record.hints = child->GetHints();
        record.visible = child->IsShown();
        record.rect = child->GetRect();
        children.push_back(record);
    }
}

UIAlignmentFrame UICustomControl::GetAlignmentFrame() {
    UIAlignmentFrame frame;
    frame.padding = m_padding;
    frame.debug = GetHints().debug;
    return frame;
}

void UICustomControl::PlaceAlignmentChild(size_t index, const UIRect& rect) {
    GetChildren()[index]->SetRect(rect);
}

UIIntrinsic UICustomControl::MeasureAlignmentChild(size_t index, int32_t width) {
    return GetChildren()[index]->Measure(width);
}
