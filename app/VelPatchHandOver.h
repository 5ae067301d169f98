// What a second instance of the program says to the first one, and what that answers.
#pragma once

#include "core/CXString.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Marks a message as a command line.
inline constexpr uint64_t kHandOverTag = 0x41726773;
/// The answer that lets the second instance end; with any other it goes on by itself.
inline constexpr uint32_t kHandOverAccepted = 1;
inline constexpr uint32_t kHandOverRefused = 0;
/// Longer lines are refused.
inline constexpr uint32_t kHandOverMaxBytes = 4 * 1024 * 1024;

/// What the running instance is about.
struct VelPatchHandOverState {
    bool quitRequested = false; ///< the main loop is about to end
    bool isLeaving = false;     ///< a later stage was started, or a close is under way
};

enum class VelPatchHandOverAction : uint8_t {
    Refuse,        ///< the other instance shall do its work itself
    Raise,         ///< nothing to read: a second double-click
    ParseAndRaise, ///< read the line, then bring the window to the top
};

/// Pure: what to do with a line. An instance that is leaving takes none, or the stage that it has
/// started would vanish together with it; nor is a windowless check taken, whose caller waits for
/// the exit code.
VelPatchHandOverAction JudgeHandOver(absl::string_view line, const VelPatchHandOverState& state);

/// The receiving end: judges a line, reads it, answers. Main thread.
class VelPatchHandOverReceiver {
public:
    /// What the window knows and can do. Each may be unset.
    struct Window {
        std::function<bool()> isLeaving; ///< a later stage was started, or a close is under way
        std::function<void()> raise;     ///< undo a minimised state, come to the top
    };

    explicit VelPatchHandOverReceiver(Window window) : m_window(std::move(window)) {}

    /// Takes one message; on Windows the window procedure passes on the three fields of WM_COPYDATA
    /// and returns the answer. The text ends at its terminator or with the data. A foreign tag is
    /// refused. Gives the answer for the sender.
    uint32_t Receive(uint64_t tag, const void* data, size_t bytes);

private:
    Window m_window;
};

/// Arguments (without the program's name) as one line, for a system that keeps none: each is in
/// double quotes if it is empty or holds a blank or a tab.
std::string MakeHandOverLine(const std::vector<std::string>& arguments);

/// A line as it goes over a socket: the tag in 8 bytes, least significant first; the number of
/// bytes that follow, in 4 bytes, most significant first; the line and a terminator.
std::string MakeHandOverFrame(absl::string_view line);

/// Collects such a frame piece by piece.
class VelPatchHandOverReader {
public:
    enum class State : uint8_t {
        Wanting,  ///< more must come
        Complete, ///< the line is there
        Broken,   ///< not a frame; stays so
    };

    State Append(const char* data, size_t bytes);
    /// The line, once it is complete.
    absl::string_view GetLine() const;

private:
    std::string m_bytes;
    State m_state = State::Wanting;
};

/// Pure: the processes that listen, out of the system's table of local sockets
/// ("/proc/net/unix"), in its order. Their abstract names are `prefix` and a decimal process id.
std::vector<int64_t> ListListeners(absl::string_view table, absl::string_view prefix);

/// Pure: whether two image paths are of one program. Only the length of the shorter one counts; an
/// empty path is nobody's.
bool IsSameImage(absl::string_view a, absl::string_view b);
bool IsSameImage(std::u16string_view a, std::u16string_view b);
