#include "app/VelPatchWindowPage.h"

#include "app/VelPatchWindow.h"
#include "ui/UIButton.h"
#include "ui/UIControl.h"

VelPatchWindowPage::VelPatchWindowPage(VelPatchWindow& window, const CXString& name)
    : UICustomControl(name), m_window(window) {}

VelPatchWindowPage::~VelPatchWindowPage() = default;

CXResult VelPatchWindowPage::ProcessMessage(const CXMessage& message) {
    if (message.GetName() == kUIActionEvent) {
        const CXResult result = Press(static_cast<UIElement*>(message.GetSource())->GetName());
        if (result != kCXResultNotSupported) {
            return result;
        }
    }
    return UICustomControl::ProcessMessage(message);
}

CXResult VelPatchWindowPage::GoNext() {
    Post(VelPatchWindow::kNextPage);
    return kCXResultOK;
}

CXResult VelPatchWindowPage::GoBack() {
    Post(VelPatchWindow::kPrevPage);
    return kCXResultOK;
}

UIControl& VelPatchWindowPage::Get(const char* name) const {
    return *Find(name)->AsControl();
}

void VelPatchWindowPage::SetButton(const char* name, const CXString& text, bool isDefault) {
    UIButton* button = Find<UIButton>(name);
    button->SetText(text);
    button->SetRole(isDefault ? UIButtonRole::Default : UIButtonRole::None);
}
