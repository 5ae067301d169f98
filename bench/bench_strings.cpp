// CXString and CXStringEdit against std::string: nanoseconds of one operation, best of several
// rounds within one run. The ratio is what to watch; above 1 we are slower.

#include "core/CXString.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int kRounds = 9;
constexpr double kRoundSeconds = 0.02;

constexpr char kShort[] = "target";
constexpr char kMedium[] = "patch-control-file";
constexpr char kPath[] = "/home/player/games/the-game/data/textures/terrain/rock_03.dds";

// Makes the compiler believe that the value is used, and may have changed.
template <typename T> void Keep(T& value) {
    __asm__ volatile("" : : "g"(&value) : "memory");
}

double Seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Seconds that `count` calls take.
template <typename Body> double Run(Body& body, size_t count) {
    const double start = Seconds();
    for (size_t index = 0; index < count; ++index) {
        body();
    }
    return Seconds() - start;
}

template <typename Ours, typename Theirs> void Compare(const char* name, Ours ours, Theirs theirs) {
    size_t count = 16;
    while (Run(theirs, count) < kRoundSeconds) {
        count *= 2;
    }
    double best[2] = {1e9, 1e9};
    for (int round = 0; round < kRounds; ++round) {
        best[0] = std::min(best[0], Run(ours, count));
        best[1] = std::min(best[1], Run(theirs, count));
    }
    const double scale = 1e9 / static_cast<double>(count);
    std::printf("%-34s %10.1f %12.1f %8.2f\n", name, best[0] * scale, best[1] * scale,
                best[0] / best[1]);
}

template <typename String> auto Construct(const char* text) {
    return [text] {
        String made(text);
        Keep(made);
    };
}

template <typename String> auto Copy(const char* text) {
    return [source = String(text)] {
        String copy(source);
        Keep(copy);
    };
}

template <typename String> auto Assign(const char* text) {
    return [source = String(text), other = String("another text, longer"), target = String(),
            turn = false]() mutable {
        target = turn ? source : other;
        turn = !turn;
        Keep(target);
    };
}

template <typename String> auto Move(const char* text) {
    return [a = String(text), b = String()]() mutable {
        b = std::move(a);
        Keep(b);
        a = std::move(b);
        Keep(a);
    };
}

template <typename String> auto Equal(const char* text) {
    return [a = String(text), b = String(text)]() mutable {
        Keep(a);
        bool same = a == b;
        Keep(same);
    };
}

template <typename Map, typename String> auto Lookup() {
    Map map;
    std::vector<String> keys;
    for (int index = 0; index < 1000; ++index) {
        keys.emplace_back(("folder/file-" + std::to_string(index * 7919 % 1000)).c_str());
        map[keys.back()] = index;
    }
    return [map, keys, at = size_t{0}]() mutable {
        auto found = map.find(keys[at++ % keys.size()]);
        Keep(found);
    };
}

template <typename String> auto Grow() {
    return [] {
        std::vector<String> list;
        for (int index = 0; index < 1000; ++index) {
            list.emplace_back(kPath);
        }
        Keep(list);
    };
}

} // namespace

int main() {
    std::printf("%-34s %10s %12s %8s\n", "operation (ns)", "ours", "std::string", "ratio");
    Compare("construct, 6 bytes", Construct<CXString>(kShort), Construct<std::string>(kShort));
    Compare("construct, 18 bytes", Construct<CXString>(kMedium), Construct<std::string>(kMedium));
    Compare("construct, 62 bytes", Construct<CXString>(kPath), Construct<std::string>(kPath));
    Compare("copy, 6 bytes", Copy<CXString>(kShort), Copy<std::string>(kShort));
    Compare("copy, 18 bytes", Copy<CXString>(kMedium), Copy<std::string>(kMedium));
    Compare("copy, 62 bytes", Copy<CXString>(kPath), Copy<std::string>(kPath));
    Compare("assign, 6 bytes", Assign<CXString>(kShort), Assign<std::string>(kShort));
    Compare("assign, 62 bytes", Assign<CXString>(kPath), Assign<std::string>(kPath));
    Compare("move twice, 62 bytes", Move<CXString>(kPath), Move<std::string>(kPath));
    Compare("equal, 62 bytes", Equal<CXString>(kPath), Equal<std::string>(kPath));
    Compare("map of 1,000, find", Lookup<std::map<CXString, int>, CXString>(),
            Lookup<std::map<std::string, int>, std::string>());
    Compare("vector, 1,000 x 62 bytes", Grow<CXString>(), Grow<std::string>());

    Compare(
        "build a line of 5 pieces",
        [] {
            CXStringEdit edit;
            for (int piece = 0; piece < 5; ++piece) {
                edit.Append(kMedium);
                edit.AppendByte('/');
            }
            Keep(edit);
        },
        [] {
            std::string text;
            for (int piece = 0; piece < 5; ++piece) {
                text.append(kMedium);
                text.push_back('/');
            }
            Keep(text);
        });
    Compare(
        "append 4,096 single bytes",
        [] {
            CXStringEdit edit;
            for (int index = 0; index < 4096; ++index) {
                edit.AppendByte(static_cast<char>(index));
            }
            Keep(edit);
        },
        [] {
            std::string text;
            for (int index = 0; index < 4096; ++index) {
                text.push_back(static_cast<char>(index));
            }
            Keep(text);
        });
    Compare(
        "append 1,000 x 62 bytes",
        [] {
            CXStringEdit edit;
            for (int index = 0; index < 1000; ++index) {
                edit.Append(absl::string_view(kPath, sizeof(kPath) - 1));
            }
            Keep(edit);
        },
        [] {
            std::string text;
            for (int index = 0; index < 1000; ++index) {
                text.append(kPath, sizeof(kPath) - 1);
            }
            Keep(text);
        });
    Compare(
        "format (against snprintf)",
        [] {
            const CXString text = CXString::Format("Class::Method> '%s' (%d)", kPath, -17);
            Keep(text);
        },
        [] {
            char line[512];
            const int length =
                std::snprintf(line, sizeof(line), "Class::Method> '%s' (%d)", kPath, -17);
            const std::string text(line, static_cast<size_t>(length));
            Keep(text);
        });
    Compare(
        "parse a number (against strtoll)",
        [] {
            const char* digits = "9876543210";
            Keep(digits);
            int64_t value = ToInt64(absl::string_view(digits, 10), 0);
            Keep(value);
        },
        [] {
            const char* digits = "9876543210";
            Keep(digits);
            long long value = std::strtoll(digits, nullptr, 10);
            Keep(value);
        });
    return 0;
}
