// The differ: whatever the files, its pieces must rebuild the new one; and where a person sees the
// likeness, it must too.
#include "kit/VelPatchDiffer.h"
#include "kit/VelPatchFileDiff.h"
#include "patch/BinaryDiff.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamStaticBuffer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes RandomBytes(std::mt19937& random, size_t count, int kinds = 256) {
    Bytes bytes(count);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(random() % static_cast<unsigned>(kinds));
    }
    return bytes;
}

void Insert(Bytes& bytes, size_t at, const Bytes& what) {
    bytes.insert(bytes.begin() + static_cast<ptrdiff_t>(at), what.begin(), what.end());
}

void Erase(Bytes& bytes, size_t at, size_t count) {
    const auto from = bytes.begin() + static_cast<ptrdiff_t>(at);
    bytes.erase(from, from + static_cast<ptrdiff_t>(std::min(count, bytes.size() - at)));
}

/// Checks every promise of FindMatches and answers the literal bytes that the diff must carry.
size_t LiteralBytes(const Bytes& oldBytes, const Bytes& newBytes) {
    const std::vector<VelPatchMatch> matches = VelPatchDiffer(oldBytes, newBytes).FindMatches();
    uint64_t oldAt = 0;
    uint64_t newAt = 0;
    size_t literal = newBytes.size();
    for (const VelPatchMatch& match : matches) {
        EXPECT_GT(match.length, 0U);
        EXPECT_GE(match.oldStart, oldAt);
        EXPECT_GE(match.newStart, newAt);
        oldAt = match.OldEnd();
        newAt = match.NewEnd();
        if (oldAt > oldBytes.size() || newAt > newBytes.size()) {
            ADD_FAILURE() << "a piece leaves its file";
            return SIZE_MAX;
        }
        EXPECT_EQ(0, memcmp(&oldBytes[match.oldStart], &newBytes[match.newStart], match.length));
        literal -= match.length;
    }
    return literal;
}

/// A piece of a "program": every sixteenth word is an address, which `shift` moves.
Bytes Program(uint32_t seed, size_t words, uint32_t shift) {
    std::mt19937 random(seed);
    Bytes bytes;
    for (size_t i = 0; i < words; i++) {
        auto word = static_cast<uint32_t>(random());
        if (i % 16 == 7) {
            word = (word & 0xFFFFF) + shift;
        }
        for (int byte = 0; byte < 4; byte++) {
            bytes.push_back(static_cast<uint8_t>(word >> (8 * byte)));
        }
    }
    return bytes;
}

} // namespace

TEST(Differ, RebuildsWhateverItGets) {
    const auto seed = static_cast<unsigned>(std::random_device()());
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 400; round++) {
        // Few kinds of bytes make repeats, on which an index is easily confused.
        const int kinds = round % 3 == 0 ? 2 : (round % 3 == 1 ? 5 : 256);
        const Bytes oldBytes = RandomBytes(random, random() % 6000, kinds);
        Bytes newBytes = oldBytes;
        for (auto edits = random() % 20; edits > 0; edits--) {
            const size_t at = newBytes.empty() ? 0 : random() % newBytes.size();
            switch (random() % 4) {
            case 0:
                Insert(newBytes, at, RandomBytes(random, random() % 300, kinds));
                break;
            case 1:
                Erase(newBytes, at, random() % 300);
                break;
            case 2:
                if (!newBytes.empty()) {
                    newBytes[at] ^= 1;
                }
                break;
            default: { // a block moves
                Bytes block(newBytes.begin() + static_cast<ptrdiff_t>(at),
                            newBytes.begin() +
                                static_cast<ptrdiff_t>(std::min(at + 200, newBytes.size())));
                Erase(newBytes, at, block.size());
                Insert(newBytes, newBytes.empty() ? 0 : random() % newBytes.size(), block);
            }
            }
        }
        LiteralBytes(oldBytes, newBytes);
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

TEST(Differ, FindsWhatAPersonSees) {
    std::mt19937 random(7);
    const Bytes base = RandomBytes(random, 3 << 20);
    EXPECT_EQ(LiteralBytes(base, base), 0U);
    EXPECT_EQ(LiteralBytes({}, base), base.size());
    EXPECT_EQ(LiteralBytes(base, {}), 0U);

    Bytes cut = base;
    Erase(cut, 1000, 500000);
    EXPECT_EQ(LiteralBytes(base, cut), 0U);
    EXPECT_EQ(LiteralBytes(cut, base), 500000U);

    Bytes edited = base;
    Insert(edited, 2 << 20, RandomBytes(random, 777));
    for (size_t at = 5000; at < edited.size(); at += 10000) {
        edited[at] ^= 0x55;
    }
    EXPECT_LT(LiteralBytes(base, edited), 777U + 2 * 320U);

    // Two halves change places: the larger stays, since the old file is only read forwards.
    Bytes swapped(base.begin() + (2 << 20), base.end());
    swapped.insert(swapped.end(), base.begin(), base.begin() + (2 << 20));
    EXPECT_EQ(LiteralBytes(base, swapped), size_t{1} << 20);
}

TEST(Differ, FollowsShiftedAddresses) {
    // A 32 KiB insertion in the middle moves every address behind it: four bytes in each 64.
    Bytes before = Program(1, 200000, 0);
    const Bytes tail = Program(2, 200000, 0);
    Bytes after = before;
    before.insert(before.end(), tail.begin(), tail.end());
    const Bytes inserted = Program(3, 8192, 0);
    after.insert(after.end(), inserted.begin(), inserted.end());
    const Bytes moved = Program(2, 200000, 0x8000);
    after.insert(after.end(), moved.begin(), moved.end());
    EXPECT_LT(LiteralBytes(before, after), inserted.size() + 200000 / 16 * 3 + 4096);
}

TEST(Differ, FollowsTablesWhoseRecordsHaveChanged) {
    // As a linker writes them: in each record a name's offset and an address have moved, and some
    // records are new. Beside a program that gives thousands of gaps of its own.
    std::mt19937 random(13);
    Bytes oldBytes = Program(5, 400000, 0);
    Bytes newBytes = Program(5, 400000, 0x3456);
    constexpr size_t kRecords = 50000;
    constexpr size_t kInserted = 1500; // one in so many
    const auto add = [](Bytes& bytes, uint64_t number, int size) {
        for (int byte = 0; byte < size; byte++) {
            bytes.push_back(static_cast<uint8_t>(number >> (8 * byte)));
        }
    };
    const auto addRecord = [&](Bytes& bytes, uint32_t name, uint64_t address, uint64_t size) {
        add(bytes, name, 4);
        add(bytes, address, 8);
        add(bytes, size, 8);
    };
    uint32_t name = 1;
    uint32_t shift = 0x51;
    for (size_t i = 0; i < kRecords; i++) {
        name += 20 + static_cast<uint32_t>(random() % 60);
        const uint64_t address = 0x800000 + random() % 0x1000000;
        const uint64_t size = random() % (i % 3 == 0 ? 2000 : 50);
        if (i % kInserted == 0) {
            addRecord(newBytes, name + shift, address + 0x40, 17);
            shift += 0x31;
        }
        addRecord(oldBytes, name, address, size);
        addRecord(newBytes, name + shift, address + 0x3210, size);
    }
    // Of 20 bytes some four or five have changed; two between them are no run.
    EXPECT_LT(LiteralBytes(oldBytes, newBytes), 26000U * 4 + kRecords * 8);
}

TEST(Differ, RepetitionCostsNoTime) {
    // Runs, short periods and one block over and over: every seed stands everywhere. Each of these
    // takes milliseconds; a quadratic scan would take hours.
    std::mt19937 random(11);
    const Bytes block = RandomBytes(random, 1000);
    Bytes zeros(4 << 20);
    Bytes period;
    Bytes blocks;
    for (size_t i = 0; i < zeros.size(); i++) {
        period.push_back(static_cast<uint8_t>(i % 3));
        blocks.push_back(block[i % block.size()]);
    }
    const auto started = std::chrono::steady_clock::now();
    for (const Bytes& old : {zeros, period, blocks}) {
        Bytes changed = old;
        for (size_t at = 3000; at < changed.size(); at += 4096) {
            changed[at] ^= 0x80;
        }
        Insert(changed, 1 << 20, RandomBytes(random, 100));
        LiteralBytes(old, changed);
        LiteralBytes(changed, old);
        LiteralBytes(old, RandomBytes(random, 1 << 20, 2));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(60));
}

TEST(FileDiff, WritesWhatThePatcherReads) {
    std::mt19937 random(23);
    const Bytes oldBytes = RandomBytes(random, 300000);
    Bytes newBytes = oldBytes;
    Erase(newBytes, 0, 10);
    Insert(newBytes, 1000, RandomBytes(random, 50));
    Erase(newBytes, 20000, 5000);
    newBytes[150000] ^= 1;
    Insert(newBytes, newBytes.size(), RandomBytes(random, 99));
    const struct {
        const char* what;
        Bytes before;
        Bytes after;
    } cases[] = {{"edited", oldBytes, newBytes},
                 {"same", oldBytes, oldBytes},
                 {"to nothing", oldBytes, {}},
                 {"from nothing", {}, newBytes},
                 {"nothing alike", oldBytes, RandomBytes(random, 1000)},
                 {"a large program", Program(4, 2500000, 0), Program(4, 2500000, 0x1234)}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        const Bytes diff = MakeFileDiff(each.before, each.after, 1);
        EXPECT_EQ(MakeFileDiff(each.before, each.after, 3), diff) << "workers show";
        CXStreamStaticBuffer written(diff.data(), diff.size());
        CXStreamStaticBuffer oldStream(each.before.data(), each.before.size());
        CXStreamDynamicBuffer result;
        CXString message;
        ASSERT_EQ(ApplyDiffFromStream(oldStream, result, written, message), kCXResultOK)
            << message.GetData();
        Bytes made(static_cast<size_t>(result.GetSize()));
        result.Seek(0, kCXSeekStart);
        result.Read(made.data(), made.size());
        EXPECT_EQ(made, each.after);
    }
}
