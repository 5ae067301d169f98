// Reading a data file through: what it costs, and the first byte that is wrong.
#include "kit/VelPatchInspector.h"
#include "stream/CXStreamStaticBuffer.h"
#include "tests/kit/HandMadePatch.h"

#include <gtest/gtest.h>

namespace {

constexpr size_t kNone = VelPatchDataFault::kNoOperation;

/// A patch of which every offset is known: a diff of 25 bytes that keeps 3, skips 1, adds 2 and
/// keeps 4, and a payload that doesn't compress.
class Inspector : public testing::Test {
protected:
    Inspector() {
        patch.Add(COMMAND_MOVE_FILE, "moved", "from");
        const std::string diff = std::string("\x01\0\0\0\x03", 5) +
                                 std::string("\0\0\0\0\x01\0\0\0\x02xy", 11) +
                                 std::string("\x01\0\0\0\x04", 5);
        patch.Edit("edited", "edited", diff, "abcxyefgh");
        diffAt = 8;
        checksumAt = diffAt + diff.size();
        payloadAt = patch.records.size() + 8;
        for (unsigned i = 0; i < 5000; i++) {
            contents += static_cast<char>((i * i * 7919) >> 5 & 0xFF);
        }
        patch.Create("bin/made", contents);
    }

    /// Reads the data with the patch's list, and answers "operation@offset text" of the first
    /// fault.
    std::string Read(const std::string& data) {
        control = patch.GetControl();
        control.dataSize = static_cast<int64_t>(data.size());
        control.dataChecksum = HashOf(data).c_str();
        return ReadAs(data);
    }
    std::string ReadAs(const std::string& data) {
        CXStreamStaticBuffer stream(data.data(), data.size());
        inspector = std::make_unique<VelPatchInspector>(control);
        const CXResult result = inspector->ReadData(stream);
        const std::vector<VelPatchDataFault>& faults = inspector->GetFaults();
        EXPECT_EQ(result, faults.empty() ? kCXResultOK : kCXResultBadData);
        if (faults.empty()) {
            return "good";
        }
        fileOffset = faults[0].fileOffset;
        EXPECT_LE(fileOffset, data.size());
        return (faults[0].operation == kNone ? "-" : std::to_string(faults[0].operation)) + "@" +
               std::to_string(faults[0].inflatedOffset) + " " + faults[0].text.GetData();
    }

    HandMadePatch patch;
    size_t diffAt = 0, checksumAt = 0, payloadAt = 0; ///< in the inflated stream
    std::string contents;
    PatchControl control;
    std::unique_ptr<VelPatchInspector> inspector;
    uint64_t fileOffset = 0;
};

TEST_F(Inspector, CountsWhatAPatchCosts) {
    const std::string data = Deflated(patch.records);
    ASSERT_EQ(Read(data), "good");
    const std::vector<VelPatchOperationCost>& costs = inspector->GetCosts();
    EXPECT_FALSE(costs[0].isRead);
    EXPECT_EQ(costs[0].newBytes, 1000u) << "a move has no record; its effort tells its size";
    EXPECT_EQ(costs[1].newBytes, 9u);
    EXPECT_EQ(costs[1].copiedBytes, 7u);
    EXPECT_EQ(costs[1].literalBytes, 2u);
    EXPECT_EQ(costs[1].oldBytes, 8u);
    EXPECT_EQ(costs[2].literalBytes, contents.size());
    EXPECT_NEAR(static_cast<double>(costs[1].storedBytes + costs[2].storedBytes),
                static_cast<double>(data.size()), 16);
    const VelPatchInspector::Sums& sums = inspector->GetSums();
    EXPECT_EQ(sums.newBytes, 1000 + 9 + contents.size());
    EXPECT_EQ(sums.dataBytes, data.size());
    EXPECT_EQ(sums.askedFreeBytes, 2 * 3000 + 100000000);
    EXPECT_EQ(sums.operations[COMMAND_CREATE_FILE], 1u);
}

TEST_F(Inspector, NamesTheFirstByteThatIsWrong) {
    const std::string good = patch.records;
    const size_t end = good.size();
    const std::string diff = "1@" + std::to_string(diffAt);
    const struct {
        size_t at;
        std::string bytes; ///< what stands there instead
        std::string fault; ///< begins so
    } cases[] = {
        {diffAt, "\x07", diff + " the diff has an unknown command: 7"},
        {diffAt + 5, "\x02", "1@13 the diff has an unknown command: 2"},
        // A longer literal than the record has left, and a record that ends in a command.
        {diffAt + 13, "\x09", "1@22 a command of the diff carries 9 bytes, and its record has 7"},
        {0, BigEndian(3, 8), "1@9 the record ends inside a command"},
        {0, BigEndian(1, 8) + "\x01", "1@9 the record ends inside a command"},
        {checksumAt, "\x05", "1@29 what stands where the checksum should be is none"},
        {checksumAt + 1, HashOf("other"), "1@29 the record makes a file with the checksum"},
        {payloadAt + 1234, "?!?", "2@" + std::to_string(payloadAt) + " the file's contents, 5000"},
        {end - 32, HashOf("other"), "2@" + std::to_string(end - 33) + " the record makes a file"},
        {payloadAt - 8, BigEndian(UINT64_MAX, 8),
         "2@" + std::to_string(end) + " the content of the file is missing: the data end here"},
        {end, "more", "-@" + std::to_string(end) + " the data go on behind the last record"},
    };
    for (const auto& one : cases) {
        std::string records = good;
        records.replace(one.at, std::min(one.bytes.size(), end - one.at), one.bytes);
        const std::string fault = Read(Deflated(records));
        EXPECT_EQ(fault.substr(0, one.fault.size()), one.fault) << fault;
    }
}

TEST_F(Inspector, TellsDamageOfTheFileItself) {
    const std::string good = Deflated(patch.records);
    const std::string end = std::to_string(patch.records.size());

    std::string data = good;
    data[0] = 'x' ^ 1;
    EXPECT_EQ(Read(data).substr(0, 35), "1@0 the size of the record can't be");
    data = good.substr(0, good.size() / 2);
    EXPECT_NE(Read(data).find("the content of the file is missing: the file ends here"),
              std::string::npos);
    EXPECT_EQ(fileOffset, data.size());
    data = good;
    data.back() ^= 1; // zlib's own checksum
    EXPECT_EQ(Read(data).rfind("-@" + end + " all records can be read, but", 0), 0U) << Read(data);
    EXPECT_EQ(fileOffset, good.size());
    EXPECT_EQ(Read(good + "tail"),
              "-@" + end + " 4 bytes lie behind the end of the compressed data");
    EXPECT_EQ(fileOffset, good.size());

    EXPECT_EQ(Read(good), "good");
    control.dataSize++;
    EXPECT_NE(ReadAs(good).find("and the control file says"), std::string::npos);
    control.dataSize--;
    control.dataChecksum = HashOf("other").c_str();
    EXPECT_NE(ReadAs(good).find("the data file's checksum is " + HashOf(good)), std::string::npos);
}

/// Damage anywhere is found, and never behind where it is.
TEST_F(Inspector, FindsEveryDamagedByte) {
    const std::string good = Deflated(patch.records);
    ASSERT_EQ(Read(good), "good");
    const CXString checksum = control.dataChecksum;
    for (size_t at = 0; at < good.size(); at += 7) {
        std::string data = good;
        data[at] = static_cast<char>(data[at] ^ 0x10);
        EXPECT_NE(ReadAs(data), "good") << at;
        // What the file holds tells it too, without the control file's help.
        control.dataChecksum.Clear();
        EXPECT_NE(ReadAs(data), "good") << at;
        control.dataChecksum = checksum;
    }
}

TEST_F(Inspector, StopsWhenAsked) {
    control = patch.GetControl();
    const std::string data = Deflated(patch.records);
    CXStreamStaticBuffer stream(data.data(), data.size());
    VelPatchInspector stopped(control);
    stopped.SetProgress([](double) { return false; });
    EXPECT_EQ(stopped.ReadData(stream), kCXResultCancelled);
}

} // namespace
