#include "ui/UIGallery.h"

#include "core/CXLocalisation.h"
#include "runtime/CXMessageParams.h"
#include "ui/CXFileDialog.h"
#include "ui/UIBitmapElement.h"
#include "ui/UIButton.h"
#include "ui/UICheckBox.h"
#include "ui/UIDescription.h"
#include "ui/UIEditTextControl.h"
#include "ui/UILabel.h"
#include "ui/UIListControl.h"
#include "ui/UIListSheet.h"
#include "ui/UIMessageSheet.h"
#include "ui/UIProgressBar.h"
#include "ui/UIRichTextSheet.h"
#include "ui/UIRichTextView.h"
#include "ui/UIService.h"

#include <memory>
#include <vector>

namespace {

constexpr UISize kContentSize = {660, 560};

constexpr struct {
    const char* key;
    const char* english;
    const char* german;
} kTexts[] = {
    {"$heading",
     "Every widget on one page. This heading wraps when the window is too narrow for it.",
     "Sämtliche Bedienelemente auf einer einzigen Seite. Diese Überschrift bricht um, sobald das "
     "Fenster für ihre ganze Länge zu schmal ist, was bei deutschen Texten fast immer vorkommt."},
    {"$user", "User name:", "Benutzername Ihres Spielerkontos:"},
    {"$password", "Password:", "Zugehöriges Passwort:"},
    {"$folder", "Folder:", "Zielverzeichnis:"},
    {"$shortcut", "Put a shortcut on the desktop",
     "Nach dem Abschluss der Installation eine Verknüpfung auf dem Schreibtisch anlegen"},
    {"$measured", "Measured:", "Mit messbarem Fortschritt:"},
    {"$moving", "Without a measure:", "Ohne messbaren Fortschritt:"},
    {"$message", "Message...", "Mitteilung anzeigen..."},
    {"$long-message", "Long Message...", "Sehr lange Mitteilung..."},
    {"$question", "Question...", "Rückfrage stellen..."},
    {"$choose", "List...", "Aus Liste auswählen..."},
    {"$licence", "Licence...", "Lizenzvereinbarung..."},
    {"$file", "File...", "Datei auswählen..."},
    {"$pick-folder", "Folder...", "Verzeichnis auswählen..."},
    {"$toggle", "Disable Form", "Eingabefelder umschalten"},
    {"$exit", "Exit", "Beenden"},
    {"$next", "Next", "Weiter zur nächsten Seite"},
    {"$status", "Nothing pressed yet", "Bisher wurde keine Schaltfläche betätigt"},
    {"$plain-text", "A message sheet. Tasks go on below it.",
     "Eine Mitteilung über dem Fenster. Laufende Aufgaben werden darunter unverändert fortgesetzt, "
     "auch wenn das Fenster selbst solange keine Eingaben annimmt."},
    {"$ask-text", "Cancel and revert the changes?",
     "Möchten Sie den Vorgang wirklich abbrechen und alle Änderungen rückgängig machen?"},
    {"$yes", "Quit", "Vorgang abbrechen"},
    {"$no", "Continue", "Vorgang fortsetzen"},
    {"$agree", "I Agree", "Ich stimme den Bedingungen zu"},
    {"$decline", "Decline", "Ablehnen"},
    {"$about", "About the Gallery", "Über diese Übersicht"},
    {"$edit", "Edit", "Bearbeiten"},
    {"$close", "Close", "Schließen"},
    {"$undo", "Undo", "Rückgängig"},
    {"$cut", "Cut", "Ausschneiden"},
    {"$copy", "Copy", "Kopieren"},
    {"$paste", "Paste", "Einfügen"},
    {"$select-all", "Select All", "Alles auswählen"},
    {"$lines", "Lines", "Auswahlzeilen"},
    {"$styled", "Styled text", "Formatierter Text"},
};

constexpr const char* kPage = R"(
padding 13
constraints {{{
picture.left = parent.left + padding
picture.top = parent.top + padding
heading.left = picture.right + 13
heading.right = parent.right - padding
heading.top = parent.top + padding
form.left = parent.left + padding
form.right = parent.right - padding
form.top >= heading.bottom + 8
form.top >= picture.bottom + 8
form.top = minimize
lines.left = form.left
lines.top = form.bottom + 8
lines.width = 250
lines.height = 90
styled.left = lines.right + 8
styled.right = form.right
styled.top = lines.top
styled.height = 90
first.left = form.left
first.right = form.right
first.top = lines.bottom + 8
second.left = form.left
second.right = form.right
second.top = first.bottom + 8
status.left = form.left
status.right = form.right
third.left = form.left
third.right = form.right
third.top = second.bottom + 8
status.top = third.bottom + 8
next.right = form.right
next.bottom = parent.bottom - padding
exit.right = next.left - 8
exit.bottom = next.bottom
}}}
children
{
    picture { type "bitmap" accessible-name "Colours" }
    heading { type "label" text "$heading" }
    form
    {
        type panel
        constraints {{{
user-label.left = parent.left
user.left >= user-label.right + 8
user.left >= password-label.right + 8
user.left >= folder-label.right + 8
user.left >= measured-label.right + 8
user.left >= moving-label.right + 8
user.left = minimize
user-label.width = user-label.content-width
password-label.width = password-label.content-width
folder-label.width = folder-label.content-width
measured-label.width = measured-label.content-width
moving-label.width = moving-label.content-width
user.right = parent.right
user.top = parent.top
user-label.vertical-center = user.vertical-center
password-label.left = parent.left
password.left = user.left
password.right = user.right
password.top = user.bottom + 8
password-label.vertical-center = password.vertical-center
folder-label.left = parent.left
folder.left = user.left
folder.right = user.right
folder.top = password.bottom + 8
folder-label.vertical-center = folder.vertical-center
shortcut.left = user.left
shortcut.right = user.right
shortcut.top = folder.bottom + 8
measured-label.left = parent.left
measured.left = user.left
measured.right = user.right
measured.top = shortcut.bottom + 8
measured-label.vertical-center = measured.vertical-center
moving-label.left = parent.left
moving.left = user.left
moving.right = spinner.left - 8
moving.top = measured.bottom + 12
moving-label.vertical-center = moving.vertical-center
spinner.right = user.right
spinner.width = 20
spinner.vertical-center = moving.vertical-center
parent.bottom = moving.bottom + 4
}}}
        children
        {
            user-label { type "label" text "$user" label-for "user" }
            user { type "edit" }
            password-label { type "label" text "$password" label-for "password" }
            password { type "edit" masked "true" }
            folder-label { type "label" text "$folder" label-for "folder" }
            folder { type "edit" read-only "true" text "C:/Games/Some Game" }
            shortcut { type "check" text "$shortcut" checked "true" }
            measured-label { type "label" text "$measured" }
            measured { type "progress" accessible-name "$measured" }
            moving-label { type "label" text "$moving" }
            moving { type "progress" accessible-name "$moving" }
            spinner { type "spinner" accessible-name "$moving" }
        }
    }
    lines { type "list" accessible-name "$lines" }
    styled { type "rich-text" accessible-name "$styled" }
    first
    {
        type panel
        constraints {{{
message.left = parent.left
message.top = parent.top
long-message.left = message.right + 8
long-message.top = parent.top
question.left = long-message.right + 8
question.top = parent.top
parent.bottom = message.bottom
}}}
        children
        {
            message { type "button" text "$message" }
            long-message { type "button" text "$long-message" }
            question { type "button" text "$question" }
        }
    }
    second
    {
        type panel
        constraints {{{
choose.left = parent.left
choose.top = parent.top
licence.left = choose.right + 8
licence.top = parent.top
file.left = licence.right + 8
file.top = parent.top
parent.bottom = choose.bottom
}}}
        children
        {
            choose { type "button" text "$choose" }
            licence { type "button" text "$licence" }
            file { type "button" text "$file" }
        }
    }
    third
    {
        type panel
        constraints {{{
pick-folder.left = parent.left
pick-folder.top = parent.top
toggle.left = pick-folder.right + 8
toggle.top = parent.top
parent.bottom = toggle.bottom
}}}
        children
        {
            pick-folder { type "button" text "$pick-folder" }
            toggle { type "button" text "$toggle" }
        }
    }
    status { type "label" text "$status" }
    exit { type "button" role "cancel" text "$exit" }
    next { type "button" role "default" text "$next" }
}
)";

constexpr const char* kStyledText =
    R"({\rtf1\ansi{\colortbl;\red160\green0\blue0;}\qc\b\fs32 Styled Text\b0\fs24\par\ql )"
    R"(Some \b bold\b0 , some \i italic\i0 , some \ul underlined\ulnone  and some \cf1 red\cf0  )"
    R"(words, in a paragraph that is long enough to wrap and to be scrolled.\par )"
    R"(A second paragraph with umlauts: \'e4\'f6\'fc\'df.\par})";

/// A picture that shows mirrored, turned or recoloured drawing at once: a bottom-up BMP of 24 bits
/// with red growing to the right and green growing downwards.
CXBitmap MakePicture() {
    constexpr uint32_t kSide = 64;
    constexpr uint32_t kHeader = 54;
    constexpr uint32_t kPixels = kSide * kSide * 3;
    std::vector<uint8_t> file(kHeader + kPixels);
    const auto put = [&file](size_t at, uint32_t value) {
        for (size_t byte = 0; byte < 4; ++byte) {
            file[at + byte] = static_cast<uint8_t>(value >> (8 * byte));
        }
    };
    file[0] = 'B';
    file[1] = 'M';
    put(2, kHeader + kPixels);
    put(10, kHeader);
    put(14, 40);
    put(18, kSide);
    put(22, kSide);
    file[26] = 1;
    file[28] = 24;
    for (uint32_t row = 0; row < kSide; ++row) {
        for (uint32_t column = 0; column < kSide; ++column) {
            uint8_t* pixel = &file[kHeader + (row * kSide + column) * 3];
            pixel[1] = static_cast<uint8_t>((kSide - 1 - row) * 4);
            pixel[2] = static_cast<uint8_t>(column * 4);
        }
    }
    CXBitmap picture;
    picture.Decode(file.data(), file.size());
    return picture;
}

std::vector<UIMenu> MakeMenus() {
    const auto text = [](const char* key) { return GetLocalisedString(key); };
    return {{"File", {{"close-front-window", text("$close"), 'W'}}},
            {text("$edit"),
             {{"edit-undo", text("$undo"), 'Z'},
              {"edit-cut", text("$cut"), 'X'},
              {"edit-copy", text("$copy"), 'C'},
              {"edit-paste", text("$paste"), 'V'},
              {"edit-select-all", text("$select-all"), 'A'}}},
            {"?", {{"about-app", text("$about"), 'H' + kUIMenuShift}}}};
}

CXString MakeLongText() {
    CXString text;
    for (int line = 0; line < 60; ++line) {
        text = CXString::Format("%s%d: %s\n", text.GetData(), line,
                                GetLocalisedString("$plain-text").GetData());
    }
    return text;
}

} // namespace

void UIGalleryPage::Activate() {
    UIDescription::LoadText(*this, kPage);
    Find<UIBitmapElement>("picture")->SetImage(MakePicture());
    Find<UIProgressBar>("measured")->SetProgress(UIProgressBar::kRange / 3);
    Find<UIProgressBar>("moving")->SetMoving();
    UIListControl* lines = Find<UIListControl>("lines");
    lines->SetItems({"Stable", "Testing", "Nightly", "Archive of all the older builds", "Fifth",
                     "Sixth", "Seventh"});
    lines->SetSelected(1);
    Find<UIRichTextView>("styled")->SetRichText(UIRichText::Read(kStyledText));
}

void UIGalleryPage::SetStatus(const CXString& text) {
    Find<UILabel>("status")->SetText(text);
}

void UIGalleryPage::Press(const CXString& button) {
    const auto text = [](const char* key) { return GetLocalisedString(key); };
    const auto report = [this](CXResult result, const CXString& path) {
        SetStatus(CXString::Format("picked: %d '%s'", result, path.GetData()));
    };
    if (button == "message") {
        UIMessageSheet::Tell(this, text("$plain-text"), "told");
    } else if (button == "long-message") {
        UIMessageSheet::Tell(this, MakeLongText());
    } else if (button == "question") {
        UIMessageSheet::Ask(this, text("$ask-text"),
                            {{text("$yes"), "asked", UIButtonRole::None},
                             {text("$no"), "asked", UIButtonRole::Cancel}});
    } else if (button == "choose") {
        UISheet::Show(std::make_unique<UIListSheet>(
            this, text("$choose"),
            std::vector<UIListSheet::Entry>{{"a", "Stable"}, {"b", "Testing"}, {"c", "Nightly"}},
            "b", "chosen"));
    } else if (button == "licence") {
        auto sheet = std::make_unique<UIRichTextSheet>(
            "licence-sheet", this,
            std::vector<UISheetButton>{{text("$agree"), "agreed", UIButtonRole::Default},
                                       {text("$decline"), "", UIButtonRole::Cancel}});
        sheet->SetTitle(text("$licence"));
        sheet->SetRichText(UIRichText::Read(kStyledText));
        UISheet::Show(std::move(sheet));
    } else if (button == "file") {
        CXFileDialog::Pick(*this, {false, CXString(), CXString(), "Game.exe"}, report);
    } else if (button == "pick-folder") {
        CXFileDialog::Pick(*this, {true, text("$folder"), CXString(), CXString()}, report);
    } else if (button == "toggle") {
        UIElement* form = Find("form");
        form->SetEnabled(!form->IsEnabled());
    } else if (button == "exit") {
        GetWindow()->ProcessMessage(CXMessage(CXUIWindow::kForceClose));
    } else {
        SetStatus(CXString::Format("pressed: %s", button.GetData()));
    }
}

CXResult UIGalleryPage::ProcessMessage(const CXMessage& message) {
    if (message.GetName() == kUIActionEvent) {
        Press(static_cast<UIElement*>(message.GetSource())->GetName());
        return kCXResultOK;
    }
    if (message.GetName() == UIEditTextControl::kTextChanged) {
        auto* edit = static_cast<UIEditTextControl*>(message.GetSource());
        SetStatus(CXString::Format("typed: %d bytes in %s", edit->GetText().GetLength(),
                                   edit->GetName().GetData()));
        return kCXResultOK;
    }
    if (message.GetName() == UIListControl::kSelectionChanged || message.Is("asked") ||
        message.Is("told") || message.Is("agreed")) {
        const auto& answer = static_cast<const CXMessageIntParam&>(message);
        SetStatus(CXString::Format("%s: %d", message.GetName().GetData(), answer.GetValue()));
        return kCXResultOK;
    }
    if (message.Is("chosen")) {
        SetStatus(CXString::Format(
            "chosen: %s",
            static_cast<const CXMessageStringParam&>(message).GetStrings()[0].GetData()));
        return kCXResultOK;
    }
    if (message.Is("about-app")) {
        UIMessageSheet::Tell(this, GetLocalisedString("$about"));
        return kCXResultOK;
    }
    return UICustomControl::ProcessMessage(message);
}

void UIGalleryWindow::Activate() {
    SetTitle("Gallery");
    SetContentSize(kContentSize);
    CXUIWindow::Activate();
    auto page = std::make_unique<UIGalleryPage>();
    page->Activate();
    page->SetRect({0, 0, kContentSize.width, kContentSize.height});
    Add(std::move(page));
}

void UIGalleryWindow::Close() {
    CXUIWindow::Close();
    if (UIService::Get()->CountWindows() == 0) {
        UIService::Get()->RequestQuit();
    }
}

UIGalleryApplication::UIGalleryApplication(UIGalleryLanguage language) {
    for (const auto& entry : kTexts) {
        SetLocalisedString(entry.key,
                           language == UIGalleryLanguage::German ? entry.german : entry.english);
    }
    UIService::Get()->GetMenuManager().SetMenus(MakeMenus());
}

CXResult UIGalleryApplication::ProcessMessage(const CXMessage& message) {
    UIService& service = *UIService::Get();
    if (message.Is("open-application")) {
        service.Open(std::make_unique<UIGalleryWindow>());
        return kCXResultOK;
    }
    if (message.Is("about-app") && service.GetFrontWindow() != nullptr) {
        if (UIElement* page = service.GetFrontWindow()->Find("page")) {
            return page->ProcessMessage(message);
        }
    }
    UICommandStatus* status = CXMenuManager::GetStatus(message);
    if (status != nullptr && status->command == "about-app") {
        status->enabled = !service.HasSheet();
        return kCXResultOK;
    }
    return CXUIApplication::ProcessMessage(message);
}
