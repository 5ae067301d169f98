// What the pages of the wizard have in common.
#pragma once

#include "core/CXLocalisation.h"
#include "ui/UICustomControl.h"

class UIControl;
class VelPatchWindow;

/// A page lives as long as it is the current one, and keeps what it must remember in the window.
/// Main thread.
class VelPatchWindowPage : public UICustomControl {
public:
    VelPatchWindowPage(VelPatchWindow& window, const CXString& name);
    ~VelPatchWindowPage() override;

    /// It is in the window now.
    virtual void Shown() {}
    /// It is no longer the current page, or its window has closed: ends what it has begun.
    virtual void ClosePage() {}
    /// Buttons go to `Press`.
    CXResult ProcessMessage(const CXMessage& message) override;
    /// Whether work is running that closing would cut short.
    virtual bool IsBusy() const { return false; }

protected:
    VelPatchWindow& GetWizard() const { return m_window; }
    /// Carries out the press of a button or check box; kCXResultNotSupported for none of its own.
    virtual CXResult Press(const CXString& control) = 0;

    /// To the page behind or before, once the handler that runs now has returned.
    CXResult GoNext();
    CXResult GoBack();
    /// Makes a button of this page the one that Enter presses, or merely one.
    void SetButton(const char* name, const CXString& text, bool isDefault);
    /// A control that this page's description has.
    UIControl& Get(const char* name) const;

private:
    VelPatchWindow& m_window;
};
