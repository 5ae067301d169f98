// The order of records: what shares bytes comes within reach of deflate's window.
#include "kit/VelPatchRecordOrder.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

constexpr size_t kWindow = 32768;

class RecordOrder : public testing::Test {
protected:
    std::string Noise(size_t size) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(m_random());
        }
        return bytes;
    }

    void Add(const std::string& bytes, size_t after = VelPatchRecordToPlace::kNone) {
        m_bytes.push_back(bytes);
        m_after.push_back(after);
    }

    /// Where each record has come to stand.
    std::vector<size_t> Place() {
        std::vector<VelPatchRecordToPlace> records;
        for (size_t i = 0; i < m_bytes.size(); i++) {
            const auto* bytes = reinterpret_cast<const uint8_t*>(m_bytes[i].data());
            records.push_back({{bytes, m_bytes[i].size()}, m_after[i]});
        }
        const std::vector<size_t> order = PlaceRecords(records);
        EXPECT_EQ(order.size(), records.size());
        std::vector<size_t> places(records.size(), VelPatchRecordToPlace::kNone);
        for (size_t i = 0; i < order.size(); i++) {
            EXPECT_EQ(places.at(order[i]), VelPatchRecordToPlace::kNone) << order[i] << " twice";
            places.at(order[i]) = i;
        }
        for (size_t i = 0; i < records.size(); i++) {
            EXPECT_TRUE(m_after[i] == VelPatchRecordToPlace::kNone ||
                        places[m_after[i]] < places[i])
                << i;
        }
        return places;
    }

    std::mt19937 m_random{7};
    std::vector<std::string> m_bytes;
    std::vector<size_t> m_after;
};

TEST_F(RecordOrder, NothingInCommonLeavesTheList) {
    EXPECT_TRUE(Place().empty());
    for (const size_t size : {0U, 5U, 3000U, 40000U, 0U, 11U, 12U, 100000U}) {
        Add(Noise(size));
    }
    EXPECT_EQ(Place(), (std::vector<size_t>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST_F(RecordOrder, TwinsBecomeNeighbours) {
    constexpr size_t kPairs = 30;
    const std::string everywhere = Noise(600);
    for (size_t i = 0; i < kPairs; i++) {
        Add(everywhere + Noise(3000));
    }
    for (size_t i = 0; i < kPairs; i++) {
        std::string twin = Noise(200);
        twin += m_bytes[i].substr(1000);
        Add(twin);
    }
    const std::vector<size_t> places = Place();
    for (size_t i = 0; i < kPairs; i++) {
        EXPECT_EQ(std::max(places[i], places[i + kPairs]),
                  std::min(places[i], places[i + kPairs]) + 1)
            << i;
    }
}

TEST_F(RecordOrder, OnlyWhatTheWindowReachesCounts) {
    // The second shares with the first's start, too far back; the third with its end.
    const std::string first = Noise(5 * kWindow);
    Add(first);
    Add(first.substr(0, 4000));
    Add(Noise(4000));
    Add(first.substr(first.size() - 3000));
    EXPECT_EQ(Place(), (std::vector<size_t>{0, 2, 3, 1}));
}

TEST_F(RecordOrder, WhatMustComeFirstDoes) {
    // 3 would go to 0 at once, but waits for 2, which waits for 1.
    const std::string shared = Noise(4000);
    Add(shared);
    Add(Noise(4000));
    Add(Noise(4000), 1);
    Add(shared, 2);
    Add(shared.substr(0, 3000));
    EXPECT_EQ(Place(), (std::vector<size_t>{0, 1, 2, 3, 4}));
}

} // namespace
