#include "app/VelPatchHeadlessRun.h"

#include "app/VelPatchApp.h"
#include "app/VelPatchWindowPatchPage.h"
#include "core/CXTime.h"
#include "ui/UIControl.h"
#include "ui/UIService.h"

#include <algorithm>
#include <string>
#include <utility>

namespace {

/// A line whose numbers alone change is written again after this time where there is no terminal.
constexpr int64_t kRepeatMilliseconds = 10000;

CXString WithoutDigits(const CXString& text) {
    std::string letters(text.View());
    std::erase_if(letters, [](char letter) { return letter >= '0' && letter <= '9'; });
    return CXString(letters);
}

int Percent(float fraction) {
    return std::clamp(static_cast<int>(fraction * 100.0F), 0, 100);
}

} // namespace

VelPatchHeadlessRun::VelPatchHeadlessRun(std::function<VelPatchApp*()> findApp, Ways ways)
    : CXTask("VelPatchHeadlessRun"), m_findApp(std::move(findApp)), m_ways(std::move(ways)) {}

VelPatchHeadlessRun::~VelPatchHeadlessRun() {
    Detach();
    EndLine();
}

void VelPatchHeadlessRun::Proc() {
    VelPatchApp* app = m_findApp();
    VelPatchWindow* window = app != nullptr ? app->GetWindow() : nullptr;
    if (window == nullptr || window->IsClosed() || m_isClosing) {
        return;
    }
    auto* page = window->GetPageIndex() == VelPatchWindow::kPatch
                     ? static_cast<VelPatchWindowPatchPage*>(window->GetPage())
                     : nullptr;
    const bool isBusy = page != nullptr && (page->IsBusy() || !page->HasStarted());
    if (page != nullptr && page->HasStarted()) {
        Show(*page, isBusy);
    }
    // What came up with the end is read before.
    if (m_ways.isInterrupted() || (!isBusy && m_ways.isIdle())) {
        m_isClosing = true;
        EndLine();
        window->Post(CXUIWindow::kForceClose);
    }
}

void VelPatchHeadlessRun::Show(VelPatchWindowPatchPage& page, bool isBusy) {
    const TaskStatus& status = page.GetStatus();
    if (status.state == kTaskStatePrompt) {
        if (std::exchange(m_answered, page.CountQuestions()) != page.CountQuestions()) {
            ShowQuestion(status);
            const bool retry = !m_ways.answers.empty() && m_ways.answers.front();
            if (!m_ways.answers.empty()) {
                m_ways.answers.pop_front();
            }
            page.AnswerPrompt(retry);
            if (!retry && isBusy) {
                page.Proc(); // sees the refusal before the task goes on: it ends the run
            }
        }
        return;
    }
    const CXString heading = page.Find("heading")->AsControl()->GetText();
    if (heading.IsEmpty() || (!isBusy && status.state == kTaskStateNone)) {
        return;
    }
    ShowLine(status.state == kTaskStateMeasured
                 ? CXString::Format("%s (%d %%)", heading, Percent(status.fraction))
                 : heading);
}

void VelPatchHeadlessRun::ShowQuestion(const TaskStatus& status) {
    EndLine();
    m_ways.write(CXString::Format("%s%s%s\n", status.failureTitle,
                                  status.failureDetail.IsEmpty() ? "" : " ", status.failureDetail));
}

void VelPatchHeadlessRun::ShowLine(const CXString& line) {
    if (m_ways.isTerminal) {
        if (line != m_line) {
            m_ways.write(CXString::Format("\r%s\x1B[K", line));
            m_line = line;
        }
        return;
    }
    const CXString activity = WithoutDigits(line);
    const int64_t now = CXTime::GetCurrentTime();
    if (activity != m_activity || (line != m_line && now - m_writtenAt >= kRepeatMilliseconds)) {
        m_ways.write(CXString::Format("%s\n", line));
        m_activity = activity;
        m_line = line;
        m_writtenAt = now;
    }
}

void VelPatchHeadlessRun::EndLine() {
    if (m_ways.isTerminal && !m_line.IsEmpty()) {
        m_ways.write("\n");
    }
    m_line.Clear();
}
