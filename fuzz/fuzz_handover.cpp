// What one instance of the program takes from another: frames, lines, and the system's table of
// sockets, into which any user can write a name.
#include "app/VelPatchHandOver.h"
#include "app/config/VelPatchCommandLine.h"
#include "fuzz/FuzzTools.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SilenceLog();
    using State = VelPatchHandOverReader::State;
    const std::string bytes(data, data + size);

    // The first byte is the size of the pieces.
    const size_t piece = size > 0 ? data[0] % 16 + 1U : 1;
    VelPatchHandOverReader reader;
    State state = State::Wanting;
    size_t position = std::min<size_t>(size, 1);
    const size_t begin = position;
    while (position < size && state == State::Wanting) {
        const size_t count = std::min(piece, size - position);
        state = reader.Append(bytes.data() + position, count);
        position += count;
    }
    if (state == State::Complete) {
        Check(MakeHandOverFrame(reader.GetLine()) == bytes.substr(begin, position - begin));
    } else {
        Check(reader.GetLine().empty());
    }

    // A line is taken exactly if the words that will be read from it hold no windowless check.
    const VelPatchHandOverAction action = JudgeHandOver(bytes, {});
    const std::vector<CXString> words = SplitCommandLine(bytes);
    const bool isCheck = std::find(words.begin(), words.end(), "--checkforpatch") != words.end();
    Check(words.empty() == (action == VelPatchHandOverAction::Raise));
    Check(isCheck == (action == VelPatchHandOverAction::Refuse));

    // Arguments without quotes come through unchanged, whatever their blanks.
    std::vector<std::string> arguments(1);
    for (const char byte : bytes) {
        if (byte == '\n') {
            arguments.emplace_back();
        } else if (byte != '"') {
            arguments.back() += byte;
        }
    }
    const std::vector<CXString> again = SplitCommandLine(MakeHandOverLine(arguments));
    Check(std::equal(again.begin(), again.end(), arguments.begin(), arguments.end(),
                     [](const CXString& a, const std::string& b) { return a == b; }));

    Check(ListListeners(bytes, "velpatch-7-").size() <= size / sizeof("@velpatch-7-"));
    return 0;
}
