#include "ui/HeadlessPeer.h"

#include "core/CXStringEdit.h"
#include "core/CXText.h"
#include "ui/HeadlessBackend.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int32_t kProgressRange = 16384;

int32_t CountLetters(absl::string_view text) {
    return static_cast<int32_t>(std::min<uint64_t>(CountCodePoints(text), 100000));
}

/// Letters of the longest line, lines, and letters of the longest word of a text that wraps at
/// `columns` letters (0: only where it says so). Words that are longer than a line are broken.
struct TextShape {
    int32_t columns = 0, lines = 1, word = 0;

    TextShape(absl::string_view text, int32_t wrapAt) {
        int32_t line = 0;
        while (true) {
            const size_t end = std::min(text.find_first_of(" \n"), text.size());
            const int32_t letters = CountLetters(text.substr(0, end));
            word = std::max(word, letters);
            if (wrapAt > 0 && line > 0 && line + 1 + letters > wrapAt) {
                ++lines;
                line = letters;
            } else {
                line += letters + (line > 0 ? 1 : 0);
            }
            if (wrapAt > 0 && line > wrapAt) {
                columns = wrapAt;
                lines += (line - 1) / wrapAt;
                line = (line - 1) % wrapAt + 1;
            }
            columns = std::max(columns, line);
            if (end == text.size()) {
                return;
            }
            if (text[end] == '\n') {
                ++lines;
                line = 0;
            }
            text.remove_prefix(end + 1);
        }
    }
};

/// A text on one line, in quotes.
CXString Quote(absl::string_view text) {
    CXStringEdit out;
    out.Append("\"");
    for (const char byte : text) {
        out.Append(byte == '\n' ? absl::string_view("\\n") : absl::string_view(&byte, 1));
    }
    out.Append("\"");
    return CXString(out);
}

const char* KindName(UIKind kind) {
    static constexpr const char* kNames[] = {"Window", "Sheet",    "Label",    "Button",
                                             "Check",  "Edit",     "Progress", "Spinner",
                                             "Bitmap", "RichText", "List"};
    return kNames[static_cast<size_t>(kind)];
}

} // namespace

HeadlessPeer::HeadlessPeer(HeadlessBackend& backend, UIKind kind, HeadlessPeer* parent,
                           UIPeerSink* sink, const CXString& name)
    : m_backend(backend), m_kind(kind), m_parent(parent), m_sink(sink), m_name(name),
      m_value(kind == UIKind::List ? -1 : 0) {
    m_state.shown = false;
}

HeadlessPeer::~HeadlessPeer() {
    ClearSafePointers();
    m_backend.PeerGone(this, IsTopLevel() && m_state.shown ? m_parent.Get() : nullptr);
}

void HeadlessPeer::SetText(const CXString& text) {
    if (m_text != text) {
        m_text = text;
        m_selectedAll = m_canUndo = false;
    }
}

void HeadlessPeer::SetValue(int32_t value) {
    switch (m_kind) {
    case UIKind::Check:
        m_value = std::clamp(value, 0, 1);
        break;
    case UIKind::Progress:
        m_value = std::clamp(value, -1, kProgressRange);
        break;
    case UIKind::List:
        m_value = value < static_cast<int32_t>(m_items.size()) ? std::max(value, -1) : -1;
        break;
    default:
        break;
    }
}

void HeadlessPeer::SetItems(const std::vector<CXString>& items) {
    m_items = items;
    m_value = -1;
}

void HeadlessPeer::SetState(const UIPeerState& state) {
    const bool wasShown = std::exchange(m_state, state).shown;
    if (IsTopLevel()) {
        if (state.shown != wasShown) {
            m_backend.TopShown(*this);
        }
    } else if ((!state.shown || !state.enabled) && m_parent && m_parent->m_focus.Get() == this) {
        m_parent->m_focus = nullptr;
    }
}

bool HeadlessPeer::IsSeen() {
    HeadlessPeer* top = GetTop();
    return m_state.shown && top != nullptr && top->m_state.shown;
}

UIIntrinsic HeadlessPeer::Measure(int32_t forWidth) {
    const int32_t letter = m_backend.GetLetterSize().width;
    const int32_t line = m_backend.GetLetterSize().height;
    UIIntrinsic measure;
    UISize& natural = measure.natural;
    switch (m_kind) {
    case UIKind::Label:
    case UIKind::Check: {
        const int32_t box = m_kind == UIKind::Check ? line + 4 : 0;
        const TextShape shape(m_text, forWidth < 0 ? 0 : std::max((forWidth - box) / letter, 1));
        natural = {box + shape.columns * letter, shape.lines * line};
        measure.min = {box + std::min(shape.word * letter, kUILongestWord), natural.height};
        measure.baseline = line - 3;
        measure.heightFollowsWidth = true;
        break;
    }
    case UIKind::Button:
        natural = {std::max(75, CountLetters(m_text) * letter + 20), line + 8};
        measure.min = natural;
        measure.baseline = line + 1;
        break;
    case UIKind::Edit:
        natural = {160, line + 8};
        measure.min = {60, natural.height};
        measure.baseline = line + 1;
        break;
    case UIKind::Progress:
        natural = {160, 16};
        measure.min = {40, 16};
        break;
    case UIKind::Spinner:
        measure.min = natural = {20, 20};
        break;
    case UIKind::Bitmap:
        measure.min = natural = {m_image.GetWidth(), m_image.GetHeight()};
        break;
    case UIKind::RichText:
    case UIKind::List:
        measure.min = {80, 60};
        natural = {320, 160};
        break;
    default:
        break;
    }
    return measure;
}

void HeadlessPeer::Focus(bool selectAll) {
    if (IsTopLevel()) {
        m_focus = nullptr;
    } else if (m_parent && UIKindIsFocusable(m_kind) && m_state.shown && m_state.enabled) {
        m_parent->m_focus = this;
        m_selectedAll = m_kind == UIKind::Edit && selectAll;
    }
}

void HeadlessPeer::Raise() {
    m_minimised = false;
    m_backend.Activate(this);
}

bool HeadlessPeer::CanEdit(UIEditCommand command) {
    const bool isEdit = m_kind == UIKind::Edit;
    if (!isEdit && m_kind != UIKind::RichText) {
        return false;
    }
    const bool canChange = isEdit && m_state.enabled && !m_state.readOnly;
    const bool canRead = !m_state.masked && (isEdit ? IsSelected() : m_selectedAll);
    switch (command) {
    case UIEditCommand::Undo:
        return canChange && m_canUndo;
    case UIEditCommand::Redo:
        return false;
    case UIEditCommand::Cut:
        return canChange && canRead;
    case UIEditCommand::Copy:
        return canRead;
    case UIEditCommand::Paste:
        return canChange && !m_backend.GetClipboard().IsEmpty();
    case UIEditCommand::Clear:
        return canChange && IsSelected();
    case UIEditCommand::SelectAll:
        return true;
    }
    return false;
}

void HeadlessPeer::DoEdit(UIEditCommand command) {
    if (!CanEdit(command)) {
        return;
    }
    switch (command) {
    case UIEditCommand::Undo: {
        const CXString text = m_undoText;
        Change(text);
        break;
    }
    case UIEditCommand::Redo:
        break;
    case UIEditCommand::Cut:
        m_backend.SetClipboard(m_text);
        Change(CXString());
        break;
    case UIEditCommand::Copy:
        m_backend.SetClipboard(m_kind == UIKind::Edit ? m_text : m_richText.GetPlainText());
        break;
    case UIEditCommand::Paste:
        DispatchCharacter(m_backend.GetClipboard());
        break;
    case UIEditCommand::Clear:
        Change(CXString());
        break;
    case UIEditCommand::SelectAll:
        m_selectedAll = true;
        break;
    }
}

void HeadlessPeer::Change(const CXString& text) {
    m_selectedAll = false;
    if (text != m_text) {
        m_undoText = m_text;
        m_text = text;
        m_canUndo = true;
        m_sink->PeerTextChanged(); // this may be gone afterwards
    }
}

void HeadlessPeer::DispatchCharacter(const CXString& character) {
    if (m_kind == UIKind::Edit && m_state.enabled && !m_state.readOnly) {
        CXStringEdit text(IsSelected() ? CXString() : m_text);
        text.Append(character.View());
        Change(CXString(text));
    }
}

void HeadlessPeer::Click() {
    if (m_kind == UIKind::Button) {
        m_sink->PeerAction(UIPeerEvent::Pressed, 0);
    } else if (m_kind == UIKind::Check) {
        m_value = 1 - m_value;
        m_sink->PeerAction(UIPeerEvent::Pressed, m_value);
    }
}

void HeadlessPeer::ClickLine(int32_t index, bool twice) {
    const CXSafePointer<HeadlessPeer> self(this);
    if (m_value != index) {
        m_value = index;
        m_sink->PeerAction(UIPeerEvent::Selected, index);
    }
    if (twice && self) {
        m_sink->PeerAction(UIPeerEvent::Chosen, index);
    }
}

void HeadlessPeer::DispatchKey(const UIKey& key) {
    if (key.code == kUIKeySpace && (m_kind == UIKind::Button || m_kind == UIKind::Check)) {
        Click();
    } else if (m_kind == UIKind::List) {
        const int32_t last = static_cast<int32_t>(m_items.size()) - 1;
        int32_t line = m_value;
        switch (key.code) {
        case kUIKeyUp:
            line = std::max(m_value - 1, 0);
            break;
        case kUIKeyDown:
            line = m_value + 1;
            break;
        case kUIKeyHome:
            line = 0;
            break;
        case kUIKeyEnd:
            line = last;
            break;
        default:
            return;
        }
        if (last >= 0) {
            ClickLine(std::min(line, last), false);
        }
    } else if (m_kind == UIKind::Edit && m_state.enabled && !m_state.readOnly) {
        if (key.code == kUIKeyBackspace || key.code == kUIKeyDelete) {
            size_t end = IsSelected() ? 0 : m_text.GetLength();
            while (end > 0 && key.code == kUIKeyBackspace &&
                   (static_cast<unsigned char>(m_text.GetData()[--end]) & 0xC0) == 0x80) {
            }
            Change(m_text.Left(static_cast<int64_t>(end)));
        }
    }
}

CXString HeadlessPeer::Describe(bool hasFocus) {
    CXStringEdit line;
    line.Append(KindName(m_kind));
    switch (m_kind) {
    case UIKind::Edit: {
        const CXString shown =
            m_state.masked ? CXString::Format("%d letters", CountLetters(m_text)) : Quote(m_text);
        line.Append(
            CXString::Format(" %s: %s", Quote(m_accessibleName).GetData(), shown.GetData()));
        break;
    }
    case UIKind::Check:
        line.Append(
            CXString::Format(" [%s] %s", m_value == 1 ? "x" : " ", Quote(m_text).GetData()));
        break;
    case UIKind::Progress:
        line.Append(m_value < 0 ? CXString(" moving")
                                : CXString::Format(" %d of %d", m_value, kProgressRange));
        break;
    case UIKind::Bitmap:
        line.Append(CXString::Format(" %dx%d", m_image.GetWidth(), m_image.GetHeight()));
        break;
    case UIKind::RichText:
        line.Append(CXString::Format(" %s", Quote(m_richText.GetPlainText()).GetData()));
        break;
    case UIKind::List:
        for (size_t index = 0; index < m_items.size(); ++index) {
            line.Append(CXString::Format(" %s%s", static_cast<int32_t>(index) == m_value ? ">" : "",
                                         Quote(m_items[index]).GetData()));
        }
        break;
    case UIKind::Spinner:
        break;
    default:
        line.Append(CXString::Format(" %s", Quote(m_text).GetData()));
        break;
    }
    const std::pair<bool, const char*> notes[] = {
        {m_default, " default"},          {!m_state.enabled, " disabled"},
        {m_state.readOnly, " read-only"}, {m_state.masked, " masked"},
        {m_minimised, " minimised"},      {hasFocus, " focus"}};
    for (const auto& [applies, note] : notes) {
        if (applies) {
            line.Append(note);
        }
    }
    return CXString(line);
}
