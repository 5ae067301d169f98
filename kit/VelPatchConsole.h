// What the kit shows on the console: words on standard error, data on standard output.
#pragma once

#include "core/CXString.h"

#include <cstdint>

/// One progress line that is redrawn on a terminal; elsewhere a plain line when the activity
/// changes and at every tenth of the way. Problems and warnings always show, everything else
/// unless quiet. Lines of the program's log go to standard error when asked for, and never to
/// standard output. One thread, but for the log lines, which come from any.
class VelPatchConsole {
public:
    struct Options {
        bool quiet = false;   ///< problems alone
        bool verbose = false; ///< log lines too
    };

    explicit VelPatchConsole(const Options& options);
    ~VelPatchConsole();
    VelPatchConsole(const VelPatchConsole&) = delete;
    VelPatchConsole& operator=(const VelPatchConsole&) = delete;

    /// A line of words.
    void Say(const CXString& text);
    void Warn(const CXString& text);
    void Complain(const CXString& text);
    /// Activity and how far it is: 0 to 1, below 0 not known. The detail stands behind it on a
    /// terminal alone.
    void ShowProgress(const CXString& activity, double fraction,
                      const CXString& detail = CXString());
    /// Ends the progress line.
    void EndProgress();
    /// A line of data: a name, a tab and a value.
    void PutData(const char* name, const CXString& value);
    void PutData(const char* name, uint64_t value);
    /// Asks on the terminal; true for yes. No terminal, the end of input and an interrupt mean no.
    bool Ask(const CXString& title, const CXString& detail, const CXString& question);

private:
    void Draw(const CXString& activity, int percent);

    Options m_options;
    bool m_isTerminal;
    bool m_isLineOpen = false; ///< a progress line stands unfinished
    CXString m_lastActivity;
    CXString m_lastDetail;
    int m_lastPercent = -2;
};
