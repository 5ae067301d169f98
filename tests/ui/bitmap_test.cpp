#include "ui/CXBitmap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

std::string Little(uint64_t value, size_t count) {
    std::string bytes;
    for (size_t index = 0; index < count; ++index) {
        bytes.push_back(static_cast<char>(value >> (8 * index)));
    }
    return bytes;
}

struct Made {
    int32_t width, height;
    uint32_t bits, compression;
    std::string tables; // masks and palette
    std::string pixels;
    uint32_t colours = 0;
    uint32_t header = 40;
};

std::string File(const Made& from) {
    std::string info = Little(from.header, 4);
    if (from.header == 12) {
        info += Little(static_cast<uint32_t>(from.width), 2) +
                Little(static_cast<uint32_t>(from.height), 2) + Little(1, 2) + Little(from.bits, 2);
    } else {
        info += Little(static_cast<uint32_t>(from.width), 4) +
                Little(static_cast<uint32_t>(from.height), 4) + Little(1, 2) +
                Little(from.bits, 2) + Little(from.compression, 4) + std::string(12, '\0') +
                Little(from.colours, 4) + std::string(4, '\0');
    }
    const uint32_t offset = static_cast<uint32_t>(14 + info.size() + from.tables.size());
    return "BM" + Little(0, 8) + Little(offset, 4) + info + from.tables + from.pixels;
}

// Rows from the top, "rrggbbaa" of each pixel, "/" between rows.
std::string Show(const CXBitmap& bitmap) {
    std::string text;
    const std::vector<uint8_t>& pixels = bitmap.GetPixels();
    for (size_t at = 0; at < pixels.size(); ++at) {
        if (at != 0 && at % 4 == 0) {
            text += at / 4 % static_cast<size_t>(bitmap.GetWidth()) == 0 ? "/" : " ";
        }
        text += "0123456789abcdef"[pixels[at] >> 4];
        text += "0123456789abcdef"[pixels[at] & 15];
    }
    return text;
}

// Red, green and blue, stored as blue, green, red and a filler.
const std::string kPalette("\0\0\xFF\0\0\xFF\0\0\xFF\0\0\0", 12);
constexpr char kRed[] = "ff0000ff";

TEST(CXBitmap, EveryForm) {
    using namespace std::string_literals;
    const struct {
        const char* what;
        Made file;
        std::string picture;
    } cases[] = {
        {"1 bit, bottom-up, padded rows",
         {2, 2, 1, 0, kPalette.substr(0, 8), "\x40\0\0\0\x80\0\0\0"s, 2},
         "00ff00ff ff0000ff/ff0000ff 00ff00ff"},
        {"1 bit, top-down",
         {2, -2, 1, 0, kPalette.substr(0, 8), "\x40\0\0\0\x80\0\0\0"s, 2},
         "ff0000ff 00ff00ff/00ff00ff ff0000ff"},
        {"4 bits, odd width",
         {3, 1, 4, 0, kPalette, "\x01\x20\0\0"s, 3},
         "ff0000ff 00ff00ff 0000ffff"},
        {"8 bits, an index beyond the palette is black",
         {3, 1, 8, 0, kPalette, "\x02\x00\x09\0"s, 3},
         "0000ffff ff0000ff 00000000"},
        {"8 bits of the first version",
         {1, 1, 8, 0, std::string("\0\0\xFF", 3) + std::string(765, '\0'), "\0\0\0\0"s, 0, 12},
         kRed},
        {"16 bits", {2, 1, 16, 0, "", "\x00\x7C\x1F\x00"s}, "ff0000ff 0000ffff"},
        {"16 bits, 5-6-5",
         {2, 1, 16, 3, Little(0xF800, 4) + Little(0x7E0, 4) + Little(0x1F, 4), "\xE0\x07\x00\x80"s},
         "00ff00ff 840000ff"},
        {"24 bits", {1, 2, 24, 0, "", "\x03\x02\x01\0\x06\x05\x04\0"s}, "040506ff/010203ff"},
        {"32 bits; what stands for alpha isn't one",
         {1, 1, 32, 0, "", "\x03\x02\x01\x77"s},
         "010203ff"},
        {"32 bits with an alpha mask",
         {2, 1, 32, 6,
          Little(0xFF, 4) + Little(0xFF00, 4) + Little(0xFF0000, 4) + Little(0xFF000000, 4),
          "\x01\x02\x03\x80\x04\x05\x06\0"s},
         "01020380 04050600"},
        {"runs of 8 bits: run, line end, as they stand, jump, end",
         {4, 3, 8, 1, kPalette, "\x03\x01\0\0\0\x03\x02\x01\x02\0\0\0\0\x02\x01\0\x01\x02\0\x01"s,
          3},
         "ff0000ff 0000ffff ff0000ff ff0000ff/"
         "0000ffff 00ff00ff 0000ffff ff0000ff/"
         "00ff00ff 00ff00ff 00ff00ff ff0000ff"},
        {"runs of 4 bits; too long ones are cut",
         {3, 1, 4, 2, kPalette, "\x09\x12\0\0"s, 3},
         "00ff00ff 0000ffff 00ff00ff"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        const std::string file = File(test.file);
        CXBitmap bitmap;
        EXPECT_EQ(bitmap.Decode(file.data(), file.size()), kCXResultOK);
        EXPECT_EQ(Show(bitmap), test.picture);
        // Cut anywhere, it is damaged or, where only fillers are lost, whole; never read beyond.
        for (size_t size = 0; size < file.size(); ++size) {
            const std::vector<char> cut(file.begin(), file.begin() + static_cast<long>(size));
            CXBitmap part;
            if (part.Decode(cut.data(), cut.size()) != kCXResultOK) {
                EXPECT_TRUE(part.IsEmpty() && part.GetWidth() == 0);
            }
        }
    }
}

TEST(CXBitmap, RefusesWhatItCannotBe) {
    const std::string pixels(64, '\0');
    const struct {
        const char* what;
        Made file;
    } cases[] = {
        {"no width", {0, 1, 24, 0, "", pixels}},
        {"negative width", {-1, 1, 24, 0, "", pixels}},
        {"no height", {1, 0, 24, 0, "", pixels}},
        {"the lowest height", {1, INT32_MIN, 24, 0, "", pixels}},
        {"too large", {16384, 16384, 24, 0, "", pixels}},
        {"more rows than there are bytes", {1, 1000, 24, 0, "", pixels}},
        {"a large picture of no runs", {8000, 8000, 8, 1, kPalette, std::string("\0\1", 2), 3}},
        {"7 bits", {1, 1, 7, 0, "", pixels}},
        {"runs of 24 bits", {1, 1, 24, 1, "", pixels}},
        {"a photograph inside", {1, 1, 24, 4, "", pixels}},
        {"an unknown header", {1, 1, 24, 0, "", pixels, 0, 39}},
        {"a header longer than the file", {1, 1, 24, 0, "", pixels, 0, 1000}},
    };
    for (const auto& test : cases) {
        const std::string file = File(test.file);
        CXBitmap bitmap;
        EXPECT_EQ(bitmap.Decode(file.data(), file.size()), kCXResultBadData) << test.what;
    }
    std::string file = File({1, 1, 24, 0, "", pixels});
    file[10] = file[11] = '\xFF'; // the pixels begin behind the end
    EXPECT_EQ(CXBitmap().Decode(file.data(), file.size()), kCXResultBadData);
}

TEST(CXBitmap, ThePicturesThatAreShipped) {
    CXBitmap bitmap;
    ASSERT_EQ(bitmap.Load("data/velpatch-background.bmp"), kCXResultOK);
    EXPECT_EQ(bitmap.GetWidth(), 550);
    EXPECT_EQ(bitmap.GetHeight(), 260);
    ASSERT_EQ(bitmap.Load("data/patch.bmp"), kCXResultOK);
    EXPECT_EQ(bitmap.GetWidth(), 64);
    EXPECT_EQ(bitmap.GetHeight(), 234);
    EXPECT_EQ(bitmap.Load("data/none.bmp"), kCXResultNotFound);
    EXPECT_TRUE(bitmap.IsEmpty());
}

} // namespace
