#include "ui/UIDescription.h"

#include "core/CXLocalisation.h"
#include "core/CXLog.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "ui/UIBitmapElement.h"
#include "ui/UIButton.h"
#include "ui/UICheckBox.h"
#include "ui/UICustomControl.h"
#include "ui/UIEditTextControl.h"
#include "ui/UILabel.h"
#include "ui/UIListControl.h"
#include "ui/UIProgressBar.h"
#include "ui/UIProgressSpinner.h"
#include "ui/UIRichTextView.h"

#include <memory>

namespace {

template <typename T> std::unique_ptr<UIElement> MakeElement(const CXString& name) {
    return std::make_unique<T>(name);
}

constexpr struct {
    const char* type;
    std::unique_ptr<UIElement> (*make)(const CXString& name);
} kTypes[] = {
    {UILabel::kType, MakeElement<UILabel>},
    {UIButton::kType, MakeElement<UIButton>},
    {UICheckBox::kType, MakeElement<UICheckBox>},
    {UIEditTextControl::kType, MakeElement<UIEditTextControl>},
    {UIProgressBar::kType, MakeElement<UIProgressBar>},
    {UIProgressSpinner::kType, MakeElement<UIProgressSpinner>},
    {UIBitmapElement::kType, MakeElement<UIBitmapElement>},
    {UIRichTextView::kType, MakeElement<UIRichTextView>},
    {UIListControl::kType, MakeElement<UIListControl>},
    {UICustomControl::kType, MakeElement<UICustomControl>},
};

const char* const kRoles[] = {"UIButtonRole", "default", "cancel", nullptr};

CXString ReadText(const DNValue& description, const char* key) {
    const CXString text = description.Get(key)->GetString();
    return !text.IsEmpty() && text.GetData()[0] == '$' ? GetLocalisedString(text) : text;
}

void FillControl(UIControl& control, const DNValue& description) {
    const CXString text = ReadText(description, "text");
    if (!text.IsEmpty()) {
        control.SetText(text);
    }
    const CXString name = ReadText(description, "accessible-name");
    if (!name.IsEmpty()) {
        control.SetAccessibleName(name);
    }
    if (UIButton* button = control.As<UIButton>()) {
        const CXString role = description.Get("role")->GetString();
        button->SetRole(static_cast<UIButtonRole>(ParseEnumValue(kRoles[0], kRoles, role)));
    } else if (UICheckBox* check = control.As<UICheckBox>()) {
        check->SetChecked(description.Get("checked")->GetBool());
    } else if (UIEditTextControl* edit = control.As<UIEditTextControl>()) {
        edit->SetMasked(description.Get("masked")->GetBool());
        edit->SetReadOnly(description.Get("read-only")->GetBool());
    }
}

std::unique_ptr<UIElement> MakeChild(const CXString& name, const DNValue& description) {
    const CXString type = description.Get("type")->GetString();
    std::unique_ptr<UIElement> element;
    for (const auto& entry : kTypes) {
        if (type == entry.type) {
            element = entry.make(name);
        }
    }
    if (element == nullptr) {
        CXLogFormat("UIDescription::Load> unknown type '%s' of '%s'", type.GetData(),
                    name.GetData());
        return element;
    }
    element->SetHints(UIAlignmentHints::Load(description));
    element->SetShown(!description.Get("hidden")->GetBool());
    element->SetEnabled(!description.Get("disabled")->GetBool());
    if (UIControl* control = element->AsControl()) {
        FillControl(*control, description);
    }
    return element;
}

/// A panel whose children are to be made.
struct PendingPanel {
    UICustomControl* panel;
    DNValueRef description;
};

void LoadPanel(const PendingPanel& pending, std::vector<PendingPanel>& others) {
    UICustomControl& panel = *pending.panel;
    const DNValue& description = *pending.description;
    panel.GetAlignment().LoadMethod(description);
    const int32_t padding = description.Get("padding")->GetInt(kUIDefaultPadding);
    panel.SetPadding({padding, padding, padding, padding});
    const DNValueRef children = description.Get("children");
    for (size_t index = 0; index < children->GetChildCount(); ++index) {
        const DNValueRef child = children->ChildAt(index);
        std::unique_ptr<UIElement> element = MakeChild(children->KeyAt(index).GetString(), *child);
        if (element == nullptr) {
            continue;
        }
        UIElement* added = panel.Add(std::move(element));
        if (UICustomControl* inner = added->As<UICustomControl>()) {
            others.push_back({inner, child});
        }
    }
    // Labels may stand before what they name.
    for (size_t index = 0; index < children->GetChildCount(); ++index) {
        const DNValueRef child = children->ChildAt(index);
        UIElement* named = panel.Find(child->Get("label-for")->GetString());
        if (named != nullptr && named->AsControl() != nullptr) {
            named->AsControl()->SetAccessibleName(ReadText(*child, "text"));
        }
    }
}

} // namespace

void UIDescription::Load(UICustomControl& panel, const DNValueRef& description) {
    panel.SetHints(UIAlignmentHints::Load(*description));
    // A list instead of recursion: nothing bounds how deep a description goes.
    std::vector<PendingPanel> pending = {{&panel, description}};
    while (!pending.empty()) {
        const PendingPanel next = pending.back();
        pending.pop_back();
        LoadPanel(next, pending);
    }
}

void UIDescription::LoadText(UICustomControl& panel, absl::string_view text) {
    const DNValueRef root(new DNMemoryValue);
    TextConfig::Parse(text.data(), text.size(), *root);
    Load(panel, root);
}
