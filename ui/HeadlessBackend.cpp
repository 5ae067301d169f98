#include "ui/HeadlessBackend.h"

#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

namespace {

/// Whether a dialog shows a file of this name.
bool Offers(const UIPickRequest& request, absl::string_view name) {
    const absl::string_view wanted = request.fileName.View();
    if (wanted.empty() || wanted[0] != '*') {
        return wanted.empty() || EqualsNoCase(name, wanted);
    }
    const absl::string_view end = wanted.substr(1);
    return name.size() >= end.size() && EqualsNoCase(name.substr(name.size() - end.size()), end);
}

} // namespace

HeadlessBackend::~HeadlessBackend() = default;

// ---- What the toolkit tells ----

std::unique_ptr<UIPeer> HeadlessBackend::Make(UIKind kind, UIPeer* parent, UIPeerSink* sink,
                                              const CXString& name) {
    auto peer =
        std::make_unique<HeadlessPeer>(*this, kind, static_cast<HeadlessPeer*>(parent), sink, name);
    m_peers.push_back(peer.get());
    return peer;
}

void HeadlessBackend::SetMenus(UIPeer* window, const std::vector<UIMenu>& menus) {
    static_cast<HeadlessPeer*>(window)->m_menus = menus;
}

UIPeer* HeadlessBackend::GetFocus(UIPeer* window) {
    return static_cast<HeadlessPeer*>(window)->m_focus.Get();
}

void HeadlessBackend::PickPath(UIPeer* owner, const UIPickRequest& request,
                               std::function<void(bool chosen, const CXString& path)> done) {
    m_picks.push_back({CXSafePointer<HeadlessPeer>(static_cast<HeadlessPeer*>(owner)),
                       owner != nullptr, request, std::move(done)});
}

void HeadlessBackend::ShowBox(const CXString& text, const CXString& caption) {
    m_boxes.push_back(CXString::Format("%s: %s", caption.GetData(), text.GetData()));
    std::fprintf(stderr, "%s\n", m_boxes.back().GetData());
}

void HeadlessBackend::PostQuit() {
    Message message;
    message.isQuit = true;
    m_queue.push_back(std::move(message));
}

void HeadlessBackend::Queue(HeadlessPeer* target,
                            std::function<void(HeadlessPeer& target)> dispatch) {
    Message message;
    message.target = target;
    message.dispatch = std::move(dispatch);
    m_queue.push_back(std::move(message));
}

void HeadlessBackend::TopShown(HeadlessPeer& top) {
    if (!top.GetState().shown) {
        if (m_active.Get() == &top) {
            Activate(top.GetParent());
        }
        return;
    }
    Activate(&top);
    if (top.GetKind() == UIKind::Sheet && m_sheetReader) {
        Queue(&top, [this](HeadlessPeer& sheet) { m_sheetReader(ReadSheet(sheet)); });
    }
}

void HeadlessBackend::PeerGone(HeadlessPeer* peer, HeadlessPeer* fallback) {
    std::erase(m_peers, peer);
    if (!m_active && peer->IsTopLevel()) {
        Activate(fallback);
    }
}

void HeadlessBackend::Activate(HeadlessPeer* top) {
    // A blocked window lets its sheet have it; without a candidate the top-most window has it.
    for (HeadlessPeer* peer : m_peers) {
        if (top == nullptr && peer->IsTopLevel() && peer->IsSeen() && !IsBlocked(peer)) {
            top = peer;
        }
        if (top != nullptr && peer->GetKind() == UIKind::Sheet && peer->IsSeen() &&
            peer->GetParent() == top) {
            top = peer;
        }
    }
    HeadlessPeer* old = m_active.Get();
    if (old == top) {
        return;
    }
    m_active = top;
    if (old != nullptr) {
        Queue(old, [](HeadlessPeer& peer) { peer.GetSink()->PeerActivated(false); });
    }
    if (top != nullptr) {
        Queue(top, [](HeadlessPeer& peer) { peer.GetSink()->PeerActivated(true); });
    }
}

// ---- The loop ----

bool HeadlessBackend::RunOne(int32_t maxWaitMs, UILoopClient& client) {
    if (m_queue.empty() && m_picks.empty() && maxWaitMs > 0) {
        m_wake.Wait(static_cast<uint32_t>(maxWaitMs));
        m_wake.Reset();
    }
    Message message;
    if (!m_queue.empty()) {
        message = std::move(m_queue.front());
        m_queue.pop_front();
    }
    if (message.isQuit || !client.BeforeMessage()) {
        return false;
    }
    UIMessage routed;
    HeadlessPeer* top = message.isKey    ? m_active.Get()
                        : message.target ? message.target->GetTop()
                                         : nullptr;
    routed.window = top;
    routed.focus = top != nullptr ? top->m_focus.Get() : nullptr;
    routed.isKeyDown = message.isKey && top != nullptr;
    routed.key = message.key;
    if (!client.Route(routed)) {
        if (message.isKey) {
            DispatchKey(message.key);
        } else if (HeadlessPeer* target = message.target.Get()) {
            message.dispatch(*target);
        } else {
            AnswerDialog();
        }
    }
    client.AfterMessage();
    return true;
}

void HeadlessBackend::DispatchKey(const UIKey& key) {
    HeadlessPeer* top = m_active.Get();
    HeadlessPeer* focus = top != nullptr ? top->m_focus.Get() : nullptr;
    if (focus != nullptr && !IsBlocked(top)) {
        focus->DispatchKey(key);
    }
}

bool HeadlessBackend::AnswerDialog() {
    while (!m_picks.empty() && m_picks.front().hasOwner && !m_picks.front().owner) {
        m_picks.pop_front(); // closed with its owner
    }
    if (m_picks.empty() || (m_answers.empty() && m_holdPicks)) {
        return false;
    }
    const Pick pick = std::move(m_picks.front());
    m_picks.pop_front();
    CXString answer;
    if (!m_answers.empty()) {
        answer = std::move(m_answers.front());
        m_answers.pop_front();
        const bool isThere = pick.request.folder ? CXFileSystem::IsDirectory(answer)
                                                 : CXFileSystem::Exists(answer) &&
                                                       !CXFileSystem::IsDirectory(answer);
        if (!answer.IsEmpty() &&
            (!isThere || !Offers(pick.request, CXFileSystem::GetFileName(answer)))) {
            Refuse("the dialog doesn't offer", answer);
            answer.Clear();
        }
    }
    pick.done(!answer.IsEmpty(), answer);
    return true;
}

// ---- What the user does ----

bool HeadlessBackend::Refuse(const char* reason, absl::string_view what) {
    m_refusal = CXString::Format("%s '%s'", reason, CXString(what).GetData());
    return false;
}

CXString HeadlessBackend::GetRefusal() {
    return std::exchange(m_refusal, CXString());
}

bool HeadlessBackend::IsBlocked(HeadlessPeer* top) {
    for (HeadlessPeer* peer : m_peers) {
        if (peer->GetKind() == UIKind::Sheet && peer->GetState().shown) {
            for (HeadlessPeer* below = peer->GetParent(); below != nullptr;
                 below = below->GetParent()) {
                if (below == top) {
                    return true;
                }
            }
        }
    }
    return std::any_of(m_picks.begin(), m_picks.end(),
                       [top](const Pick& pick) { return pick.owner.Get() == top; });
}

HeadlessPeer* HeadlessBackend::FindShown(absl::string_view control) {
    HeadlessPeer* active = m_active.Get();
    for (const bool inActive : {true, false}) {
        for (const int by : {0, 1, 2}) {
            for (HeadlessPeer* peer : m_peers) {
                const CXString& text = by == 0   ? peer->GetName()
                                       : by == 1 ? peer->m_text
                                                 : peer->GetAccessibleName();
                if (text == control && peer->IsSeen() && !peer->IsTopLevel() &&
                    (peer->GetTop() == active) == inActive) {
                    return peer;
                }
            }
        }
    }
    return nullptr;
}

bool HeadlessBackend::CanReach(HeadlessPeer* peer, absl::string_view what) {
    if (peer == nullptr) {
        return Refuse("nothing shown is called", what);
    }
    if (IsBlocked(peer->GetTop())) {
        return Refuse("a sheet or dialog lies over", what);
    }
    if (!peer->IsSeen()) {
        return Refuse("hidden is", what);
    }
    return peer->GetState().enabled || Refuse("disabled is", what);
}

void HeadlessBackend::FocusByClick(HeadlessPeer& peer) {
    Activate(peer.GetTop());
    peer.Focus(false);
}

bool HeadlessBackend::Press(absl::string_view control) {
    HeadlessPeer* peer = FindShown(control);
    if (!CanReach(peer, control)) {
        return false;
    }
    if (peer->GetKind() != UIKind::Button && peer->GetKind() != UIKind::Check) {
        return Refuse("no button is", control);
    }
    Queue(peer, [this](HeadlessPeer& target) {
        if (CanReach(&target, target.GetName())) {
            FocusByClick(target);
            target.Click();
        }
    });
    return true;
}

bool HeadlessBackend::ClickInto(absl::string_view control) {
    HeadlessPeer* peer = FindShown(control);
    if (!CanReach(peer, control)) {
        return false;
    }
    if (!UIKindIsFocusable(peer->GetKind())) {
        return Refuse("no focus for", control);
    }
    Queue(peer, [this](HeadlessPeer& target) {
        if (CanReach(&target, target.GetName())) {
            FocusByClick(target);
        }
    });
    return true;
}

bool HeadlessBackend::ClickLine(absl::string_view list, absl::string_view line, bool twice) {
    HeadlessPeer* peer = FindShown(list);
    if (!CanReach(peer, list)) {
        return false;
    }
    const auto& items = peer->GetItems();
    const auto found = std::find(items.begin(), items.end(), line);
    if (found == items.end()) {
        return Refuse("not in the list is", line);
    }
    Queue(peer,
          [this, twice, index = static_cast<int32_t>(found - items.begin())](HeadlessPeer& target) {
              if (CanReach(&target, target.GetName())) {
                  FocusByClick(target);
                  target.ClickLine(index, twice);
              }
          });
    return true;
}

bool HeadlessBackend::Type(absl::string_view text) {
    HeadlessPeer* focus = m_active ? m_active->m_focus.Get() : nullptr;
    if (focus == nullptr || focus->GetKind() != UIKind::Edit) {
        return Refuse("nothing takes the text", text);
    }
    if (IsBlocked(focus->GetTop()) || focus->GetState().readOnly || !focus->GetState().enabled) {
        return Refuse("can't be changed:", focus->GetName());
    }
    QueueTyping(text, false);
    return true;
}

void HeadlessBackend::QueueTyping(absl::string_view text, bool inFront) {
    std::vector<Message> messages;
    while (!text.empty()) {
        const size_t size = std::max<size_t>(CodePointSize(text), 1);
        const unsigned char upper = text[0] >= 'a' && text[0] <= 'z'
                                        ? static_cast<unsigned char>(text[0] - 32)
                                        : static_cast<unsigned char>(text[0]);
        const bool hasCode =
            (upper >= 'A' && upper <= 'Z') || (upper >= '0' && upper <= '9') || upper == ' ';
        Message down;
        down.isKey = true;
        down.key.code = hasCode ? upper : 0U;
        messages.push_back(std::move(down));
        // The character comes behind its key, to what has the focus by then.
        Message typed;
        typed.target = m_active;
        typed.dispatch = [character = CXString(text.substr(0, size))](HeadlessPeer& top) {
            if (HeadlessPeer* target = top.m_focus.Get()) {
                target->DispatchCharacter(character);
            }
        };
        messages.push_back(std::move(typed));
        text.remove_prefix(size);
    }
    m_queue.insert(inFront ? m_queue.begin() : m_queue.end(),
                   std::make_move_iterator(messages.begin()),
                   std::make_move_iterator(messages.end()));
}

bool HeadlessBackend::Fill(absl::string_view edit, absl::string_view text) {
    HeadlessPeer* peer = FindShown(edit);
    if (!CanReach(peer, edit)) {
        return false;
    }
    if (peer->GetKind() != UIKind::Edit || peer->GetState().readOnly) {
        return Refuse("can't be changed:", edit);
    }
    Queue(peer, [this, all = CXString(text)](HeadlessPeer& target) {
        if (!CanReach(&target, target.GetName()) || target.GetState().readOnly) {
            return;
        }
        FocusByClick(target);
        target.m_selectedAll = true;
        if (all.IsEmpty()) {
            target.DispatchKey(UIKey{kUIKeyDelete});
        } else {
            QueueTyping(all, true); // before what the user does next
        }
    });
    return true;
}

bool HeadlessBackend::Key(const UIKey& key) {
    if (!m_active || IsBlocked(m_active.Get())) {
        return Refuse("no window takes keys", "");
    }
    Message message;
    message.isKey = true;
    message.key = key;
    m_queue.push_back(std::move(message));
    return true;
}

bool HeadlessBackend::PressClose() {
    HeadlessPeer* top = m_active.Get();
    if (top == nullptr || IsBlocked(top)) {
        return Refuse("no window to close", "");
    }
    Queue(top, [this](HeadlessPeer& target) {
        if (!IsBlocked(&target)) {
            target.GetSink()->PeerCloseAsked();
        }
    });
    return true;
}

bool HeadlessBackend::ChooseMenu(absl::string_view command) {
    for (HeadlessPeer* peer : m_peers) {
        if (peer->m_menus.empty() || !peer->IsSeen()) {
            continue;
        }
        if (IsBlocked(peer)) {
            return Refuse("a sheet or dialog lies over the menu", command);
        }
        Queue(peer, [this, name = CXString(command)](HeadlessPeer& window) {
            const CXSafePointer<HeadlessPeer> self(&window);
            window.GetSink()->PeerMenusOpening();
            const std::vector<UIMenu> menus = self ? window.m_menus : std::vector<UIMenu>();
            for (const UIMenu& menu : menus) {
                for (const UIMenuItem& item : menu.items) {
                    if (item.command == name && item.enabled && self) {
                        window.GetSink()->PeerMenu(name);
                        return;
                    }
                }
            }
            Refuse("disabled or not in the menus is", name);
        });
        return true;
    }
    return Refuse("no window has menus for", command);
}

bool HeadlessBackend::SwitchTo(absl::string_view window) {
    for (HeadlessPeer* peer : m_peers) {
        if (peer->IsTopLevel() && peer->IsSeen() &&
            (peer->GetName() == window || peer->m_text == window)) {
            Activate(peer);
            return true;
        }
    }
    return Refuse("no window is called", window);
}

bool HeadlessBackend::Minimise() {
    HeadlessPeer* top = m_active.Get();
    if (top == nullptr || top->GetKind() != UIKind::Window) {
        return Refuse("no window to minimise", "");
    }
    top->m_minimised = true;
    return true;
}

void HeadlessBackend::AnswerPick(const CXString& path) {
    m_answers.push_back(path);
}

bool HeadlessBackend::SendData(uint64_t tag, absl::string_view bytes) {
    for (HeadlessPeer* peer : m_peers) {
        if (peer->GetKind() == UIKind::Window && peer->IsSeen()) {
            return peer->GetSink()->PeerCopyData(tag, bytes);
        }
    }
    return false;
}

void HeadlessBackend::ChangeAppearance(UISize letterSize, bool highContrast) {
    m_letterSize = letterSize;
    m_highContrast = highContrast;
    for (HeadlessPeer* peer : m_peers) {
        if (peer->IsTopLevel()) {
            Queue(peer, [](HeadlessPeer& top) { top.GetSink()->PeerMetricsChanged(); });
        }
    }
}

// ---- What is to be seen ----

CXString HeadlessBackend::ReadSheet(HeadlessPeer& sheet) {
    CXStringEdit text;
    for (HeadlessPeer* peer : m_peers) {
        const bool isText = peer->GetKind() == UIKind::Label || peer->GetKind() == UIKind::RichText;
        if (isText && peer->GetParent() == &sheet && peer->IsSeen()) {
            text.Append(text.View().empty() ? "" : "\n");
            text.Append(peer->GetKind() == UIKind::Label
                            ? peer->m_text.View()
                            : peer->GetRichText().GetPlainText().View());
        }
    }
    return CXString(text);
}

CXString HeadlessBackend::Dump(bool withRects) {
    CXStringEdit out;
    for (HeadlessPeer* top : m_peers) {
        if (!top->IsTopLevel() || !top->IsSeen()) {
            continue;
        }
        const char* state = IsBlocked(top) ? " blocked" : m_active.Get() == top ? " active" : "";
        out.Append(CXString::Format("%s %dx%d%s\n", top->Describe(false).GetData(),
                                    UIWidth(top->GetRect()), UIHeight(top->GetRect()), state));
        for (HeadlessPeer* peer : m_peers) {
            if (peer->IsTopLevel() || peer->GetParent() != top || !peer->IsSeen()) {
                continue;
            }
            out.Append("  ");
            out.Append(peer->Describe(top->m_focus.Get() == peer).View());
            const UIRect& rect = peer->GetRect();
            if (withRects) {
                out.Append(CXString::Format(" (%d,%d %dx%d)", rect.left, rect.top, UIWidth(rect),
                                            UIHeight(rect)));
            }
            out.Append("\n");
        }
    }
    return CXString(out);
}

CXString HeadlessBackend::DumpMenus() {
    CXStringEdit out;
    for (HeadlessPeer* peer : m_peers) {
        if (peer->m_menus.empty() || !peer->IsSeen()) {
            continue;
        }
        for (const UIMenu& menu : peer->m_menus) {
            for (const UIMenuItem& item : menu.items) {
                out.Append(CXString::Format("%s / %s%s\n", menu.text.GetData(), item.text.GetData(),
                                            item.enabled ? "" : " (disabled)"));
            }
        }
        break;
    }
    return CXString(out);
}

void HeadlessBackend::AddFaults(HeadlessPeer& peer, std::vector<CXString>& faults) {
    const UIRect& rect = peer.GetRect();
    const UISize window = {UIWidth(peer.GetParent()->GetRect()),
                           UIHeight(peer.GetParent()->GetRect())};
    const auto add = [&](const char* fault) {
        faults.push_back(CXString::Format("%s '%s' %s", peer.Describe(false).GetData(),
                                          peer.GetName().GetData(), fault));
    };
    if (rect.left < 0 || rect.top < 0 || rect.right > window.width || rect.bottom > window.height) {
        add("reaches out of its window");
    }
    const UIIntrinsic measure = peer.Measure(UIWidth(rect));
    const int32_t height = measure.heightFollowsWidth ? measure.natural.height : measure.min.height;
    if (UIWidth(rect) < measure.min.width || UIHeight(rect) < height) {
        add("is cut off");
    }
    if (UIKindIsFocusable(peer.GetKind()) && peer.GetAccessibleName().IsEmpty()) {
        add("has no accessible name");
    }
    for (HeadlessPeer* other : m_peers) {
        if (other == &peer) {
            break; // each pair once
        }
        const UIRect& place = other->GetRect();
        const bool overlap = place.left < rect.right && rect.left < place.right &&
                             place.top < rect.bottom && rect.top < place.bottom;
        if (overlap && !other->IsTopLevel() && other->GetParent() == peer.GetParent() &&
            other->IsSeen() && other->GetKind() != UIKind::Bitmap) {
            add(CXString::Format("lies over '%s'", other->GetName().GetData()).GetData());
        }
    }
}

CXString HeadlessBackend::FindFaults() {
    std::vector<CXString> faults;
    for (HeadlessPeer* peer : m_peers) {
        if (!peer->IsTopLevel() && peer->IsSeen()) {
            AddFaults(*peer, faults);
        }
    }
    CXStringEdit out;
    for (const CXString& fault : faults) {
        out.Append(fault.View());
        out.Append("\n");
    }
    return CXString(out);
}
