// A window that shows every widget, to look at and to press in every backend.
#pragma once

#include "ui/CXUIApplication.h"
#include "ui/CXUIWindow.h"
#include "ui/UICustomControl.h"

/// The texts that the gallery shows; German ones are long, and wrap where English ones don't.
enum class UIGalleryLanguage : uint8_t { English, German };

/// The gallery's one page. Its buttons show the sheets and the file dialogs; what comes of them
/// stands in its status line.
class UIGalleryPage : public UICustomControl {
public:
    UIGalleryPage() : UICustomControl("page") {}

    void Activate() override;
    CXResult ProcessMessage(const CXMessage& message) override;

private:
    void Press(const CXString& button);
    void SetStatus(const CXString& text);
};

/// The window around it.
class UIGalleryWindow : public CXUIWindow {
public:
    UIGalleryWindow() : CXUIWindow("gallery") {}

    void Activate() override;
    /// Closing the last window ends the program.
    void Close() override;
};

/// Opens the window; has the menu bar.
class UIGalleryApplication : public CXUIApplication {
public:
    /// Sets the texts and the menus.
    explicit UIGalleryApplication(UIGalleryLanguage language);

    CXResult ProcessMessage(const CXMessage& message) override;
};
