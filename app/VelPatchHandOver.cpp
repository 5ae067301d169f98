#include "app/VelPatchHandOver.h"

#include "app/config/VelPatchCommandLine.h"
#include "app/config/VelPatchProcessSettings.h"

#include <algorithm>

namespace {

constexpr size_t kTagBytes = 8;
constexpr size_t kHeadBytes = kTagBytes + 4;

template <typename View> bool IsSamePrefix(View a, View b) {
    const size_t length = std::min(a.size(), b.size());
    return length > 0 && a.substr(0, length) == b.substr(0, length);
}

uint32_t ReadLength(const std::string& head) {
    uint32_t length = 0;
    for (size_t i = kTagBytes; i < kHeadBytes; ++i) {
        length = length << 8 | static_cast<uint8_t>(head[i]);
    }
    return length;
}

std::string MakeHead(uint32_t length) {
    std::string head;
    for (size_t i = 0; i < kTagBytes; ++i) {
        head += static_cast<char>(kHandOverTag >> (8 * i) & 0xFF);
    }
    for (int shift = 24; shift >= 0; shift -= 8) {
        head += static_cast<char>(length >> shift & 0xFF);
    }
    return head;
}

/// The process id that a name consists of behind the prefix; 0 if it doesn't.
int64_t ProcessOf(absl::string_view name, absl::string_view prefix) {
    constexpr size_t kMaxDigits = 18;
    if (name.substr(0, prefix.size()) != prefix) {
        return 0;
    }
    name.remove_prefix(prefix.size());
    if (name.empty() || name.size() > kMaxDigits) {
        return 0;
    }
    int64_t process = 0;
    for (const char digit : name) {
        if (digit < '0' || digit > '9') {
            return 0;
        }
        process = process * 10 + (digit - '0');
    }
    return process;
}

} // namespace

VelPatchHandOverAction JudgeHandOver(absl::string_view line, const VelPatchHandOverState& state) {
    if (state.quitRequested || state.isLeaving) {
        return VelPatchHandOverAction::Refuse;
    }
    std::vector<CXString> words = SplitCommandLine(line);
    if (words.empty()) {
        return VelPatchHandOverAction::Raise;
    }
    words.insert(words.begin(), CXString());
    return FindRecordedOption(RecordOptions(kVelPatchOptions, words), "checkforpatch")
               ? VelPatchHandOverAction::Refuse
               : VelPatchHandOverAction::ParseAndRaise;
}

uint32_t VelPatchHandOverReceiver::Receive(uint64_t tag, const void* data, size_t bytes) {
    if (tag != kHandOverTag) {
        return kHandOverRefused;
    }
    absl::string_view line(static_cast<const char*>(data), data ? bytes : 0);
    line = line.substr(0, line.find('\0'));
    VelPatchHandOverState state;
    state.quitRequested = GetProcessSettings().quitRequested.load(std::memory_order_relaxed);
    state.isLeaving = m_window.isLeaving && m_window.isLeaving();
    const VelPatchHandOverAction action = JudgeHandOver(line, state);
    if (action == VelPatchHandOverAction::Refuse) {
        return kHandOverRefused;
    }
    if (action == VelPatchHandOverAction::ParseAndRaise) {
        ParseHandedOverCommandLine(line);
    }
    if (m_window.raise) {
        m_window.raise();
    }
    return kHandOverAccepted;
}

std::string MakeHandOverLine(const std::vector<std::string>& arguments) {
    std::string line;
    for (const std::string& argument : arguments) {
        const bool quoted = argument.empty() || argument.find_first_of(" \t") != std::string::npos;
        line += line.empty() ? "" : " ";
        line += quoted ? "\"" + argument + "\"" : argument;
    }
    return line;
}

std::string MakeHandOverFrame(absl::string_view line) {
    std::string frame = MakeHead(static_cast<uint32_t>(line.size() + 1));
    frame.append(line.data(), line.size());
    frame += '\0';
    return frame;
}

VelPatchHandOverReader::State VelPatchHandOverReader::Append(const char* data, size_t bytes) {
    if (m_state == State::Broken) {
        return m_state;
    }
    m_bytes.append(data, bytes);
    if (m_bytes.size() < kHeadBytes) {
        return m_state;
    }
    const uint32_t length = ReadLength(m_bytes);
    const size_t present = m_bytes.size() - kHeadBytes;
    if (m_bytes.compare(0, kHeadBytes, MakeHead(length)) != 0 || length == 0 ||
        length > kHandOverMaxBytes || present > length) {
        m_state = State::Broken;
    } else if (present == length) {
        // The terminator is the last byte and the only one of its kind.
        m_state =
            m_bytes.find('\0', kHeadBytes) == m_bytes.size() - 1 ? State::Complete : State::Broken;
    }
    return m_state;
}

absl::string_view VelPatchHandOverReader::GetLine() const {
    return m_state == State::Complete
               ? absl::string_view(m_bytes.data() + kHeadBytes, m_bytes.size() - kHeadBytes - 1)
               : absl::string_view();
}

std::vector<int64_t> ListListeners(absl::string_view table, absl::string_view prefix) {
    constexpr int kColumnsBeforeName = 7;
    std::vector<int64_t> processes;
    const std::string shownPrefix = "@" + std::string(prefix); // "@" is how an abstract name starts
    while (!table.empty()) {
        absl::string_view row = table.substr(0, table.find('\n'));
        table.remove_prefix(std::min(row.size() + 1, table.size()));
        for (int column = 0; column < kColumnsBeforeName && !row.empty(); ++column) {
            row.remove_prefix(std::min(row.find_first_not_of(' '), row.size()));
            row.remove_prefix(std::min(row.find(' '), row.size()));
        }
        row.remove_prefix(std::min<size_t>(1, row.size()));
        if (const int64_t process = ProcessOf(row, shownPrefix)) {
            processes.push_back(process);
        }
    }
    return processes;
}

bool IsSameImage(absl::string_view a, absl::string_view b) {
    return IsSamePrefix(a, b);
}

bool IsSameImage(std::u16string_view a, std::u16string_view b) {
    return IsSamePrefix(a, b);
}
