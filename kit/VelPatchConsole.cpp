#include "kit/VelPatchConsole.h"

#include "core/CXLog.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"
#include "kit/KitPlatform.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr int kBarColumns = 30;

void DropLine(const char*) {}

void LineToError(const char* line) {
    std::fprintf(stderr, "%s\n", line);
}

bool ErrorLineToError(const char* line) {
    LineToError(line);
    return false;
}

void WriteError(const CXString& text) {
    std::fwrite(text.GetData(), 1, text.GetLength(), stderr);
}

/// At most `columns` characters; a longer text loses its end.
CXString CutToColumns(const CXString& text, int columns) {
    absl::string_view rest = text.View();
    size_t end = 0;
    for (int i = 0; i < columns && !rest.empty(); i++) {
        const uint32_t size = CodePointSize(rest);
        end += size;
        rest.remove_prefix(size);
    }
    return CXString(text.View().substr(0, end));
}

} // namespace

VelPatchConsole::VelPatchConsole(const Options& options)
    : m_options(options), m_isTerminal(KitPlatform::IsErrorTerminal()) {
    CXSetLogSink(options.verbose ? LineToError : DropLine);
    CXSetErrorHook(options.verbose ? nullptr : ErrorLineToError);
}

VelPatchConsole::~VelPatchConsole() {
    EndProgress();
    CXSetErrorHook(nullptr);
    CXSetLogSink(LineToError); // what still comes at the end of the process is no data either
}

void VelPatchConsole::Say(const CXString& text) {
    if (!m_options.quiet) {
        EndProgress();
        WriteError(CXString::Format("%s\n", text.GetData()));
    }
}

void VelPatchConsole::Warn(const CXString& text) {
    EndProgress();
    WriteError(CXString::Format("velpatch-kit: note: %s\n", text.GetData()));
}

void VelPatchConsole::Complain(const CXString& text) {
    EndProgress();
    WriteError(CXString::Format("velpatch-kit: %s\n", text.GetData()));
}

void VelPatchConsole::ShowProgress(const CXString& activity, double fraction,
                                   const CXString& detail) {
    if (m_options.quiet) {
        return;
    }
    const int percent =
        fraction < 0 ? -1 : static_cast<int>(std::lround(std::min(fraction, 1.0) * 100));
    const bool isNew = activity != m_lastActivity;
    if (m_isTerminal) {
        if (isNew || percent != m_lastPercent || detail != m_lastDetail) {
            Draw(detail.IsEmpty()
                     ? activity
                     : CXString::Format("%s, %s", activity.GetData(), detail.GetData()),
                 percent);
            m_lastDetail = detail;
        }
    } else if (!activity.IsEmpty() && (isNew || percent / 10 > m_lastPercent / 10)) {
        WriteError(percent < 0 ? CXString::Format("%s\n", activity.GetData())
                               : CXString::Format("%s %d%%\n", activity.GetData(), percent));
    } else {
        return;
    }
    m_lastActivity = activity;
    m_lastPercent = percent;
}

void VelPatchConsole::Draw(const CXString& activity, int percent) {
    CXStringEdit line;
    line.Append("\r\x1b[K");
    if (percent >= 0) {
        const int filled = percent * kBarColumns / 100;
        line.Append("[");
        for (int i = 0; i < kBarColumns; i++) {
            line.AppendByte(i < filled ? '#' : '.');
        }
        line.AppendFormat("] %3d%% ", percent);
    }
    const int room = KitPlatform::GetTerminalColumns() - (percent >= 0 ? kBarColumns + 8 : 0) - 1;
    line.Append(CutToColumns(activity, std::max(room, 8)));
    WriteError(line.ToString());
    std::fflush(stderr);
    m_isLineOpen = true;
}

void VelPatchConsole::EndProgress() {
    if (m_isLineOpen) {
        WriteError("\n");
        m_isLineOpen = false;
    }
    m_lastActivity.Clear();
    m_lastPercent = -2;
}

void VelPatchConsole::PutData(const char* name, const CXString& value) {
    std::printf("%s\t%s\n", name, value.GetData());
    std::fflush(stdout);
}

void VelPatchConsole::PutData(const char* name, uint64_t value) {
    PutData(name, CXString::Format("%d", value));
}

bool VelPatchConsole::Ask(const CXString& title, const CXString& detail, const CXString& question) {
    EndProgress();
    WriteError(CXString::Format("%s\n", title.GetData()));
    if (!detail.IsEmpty()) {
        WriteError(CXString::Format("%s\n", detail.GetData()));
    }
    if (!KitPlatform::IsInputTerminal()) {
        return false;
    }
    for (;;) {
        WriteError(CXString::Format("%s [y/n] ", question.GetData()));
        std::fflush(stderr);
        char answer[64];
        if (KitPlatform::IsInterrupted() || std::fgets(answer, sizeof answer, stdin) == nullptr) {
            WriteError("\n");
            return false;
        }
        const unsigned char first = AsciiLower(static_cast<unsigned char>(answer[0]));
        if (first == 'y' || first == 'j') {
            return true;
        }
        if (first == 'n') {
            return false;
        }
    }
}
