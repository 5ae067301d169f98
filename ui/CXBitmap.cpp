#include "ui/CXBitmap.h"

#include "stream/CXStreamTools.h"

#include <algorithm>
#include <array>
#include <bit>

using absl::string_view;

// Layout of the file: Microsoft, "Bitmap Storage" (BITMAPFILEHEADER, BITMAPINFOHEADER and later).

namespace {

constexpr int32_t kMostSide = 16384;
constexpr int64_t kMostPixels = 64000000;
// Run-coded pictures up to this size may be as empty as they like; larger ones must bring at least
// a byte for what a run can cover.
constexpr int64_t kFreePixels = 1000000;
constexpr int64_t kPixelsOfByte = 255;
constexpr uint64_t kMostFile = 300000000;

constexpr size_t kFileHeader = 14;
constexpr uint32_t kCoreHeader = 12; // of the first version: 16-bit sizes, 3-byte palette
constexpr uint32_t kInfoHeader = 40;
constexpr uint32_t kMaskHeader = 52;  // has the colour masks
constexpr uint32_t kAlphaHeader = 56; // and the alpha mask
constexpr uint32_t kMostHeader = 1024;

enum Compression : uint32_t { kPlain = 0, kRuns8 = 1, kRuns4 = 2, kMasks = 3, kAlphaMasks = 6 };

using Colour = std::array<uint8_t, 4>;

// Little-endian numbers; what lies behind the end reads as 0.
uint32_t Number(string_view bytes, size_t offset, size_t count) {
    uint32_t value = 0;
    for (size_t index = count; index-- > 0;) {
        const size_t at = offset + index;
        value = value << 8 | (at < bytes.size() ? static_cast<uint8_t>(bytes[at]) : 0U);
    }
    return value;
}

uint8_t Channel(uint32_t pixel, uint32_t mask) {
    if (mask == 0) {
        return 0;
    }
    const int shift = std::countr_zero(mask);
    const uint64_t most = mask >> shift;
    return static_cast<uint8_t>((uint64_t{(pixel & mask) >> shift} * 255 + most / 2) / most);
}

} // namespace

struct CXBitmap::Header {
    int32_t width = 0, height = 0;
    bool topDown = false;
    uint32_t bits = 0;
    uint32_t compression = kPlain;
    size_t pixels = 0;               // where they begin in the file
    std::array<uint32_t, 4> masks{}; // red, green, blue, alpha
    std::array<Colour, 256> palette{};

    // Bytes of a row in the file: whole groups of four.
    size_t Stride() const { return (static_cast<size_t>(width) * bits + 31) / 32 * 4; }
    // The row of the picture that row `row` of the file is.
    size_t RowOf(int32_t row) const {
        return static_cast<size_t>(topDown ? row : height - 1 - row);
    }
};

bool CXBitmap::ReadHeader(string_view file, Header& header) {
    const uint32_t size = Number(file, kFileHeader, 4);
    if (file.substr(0, 2) != "BM" || (size != kCoreHeader && size < kInfoHeader) ||
        size > kMostHeader || file.size() < kFileHeader + size) {
        return false;
    }
    const bool isCore = size == kCoreHeader;
    int64_t height = 0;
    if (isCore) {
        header.width = static_cast<int32_t>(Number(file, 18, 2));
        height = Number(file, 20, 2);
        header.bits = Number(file, 24, 2);
    } else {
        header.width = static_cast<int32_t>(Number(file, 18, 4));
        height = static_cast<int32_t>(Number(file, 22, 4));
        header.bits = Number(file, 28, 2);
        header.compression = Number(file, 30, 4);
    }
    header.topDown = height < 0;
    height = header.topDown ? -height : height;
    if (header.width < 1 || height < 1 || header.width > kMostSide || height > kMostSide ||
        header.width * height > kMostPixels) {
        return false;
    }
    header.height = static_cast<int32_t>(height);

    const uint32_t bits = header.bits;
    const bool isIndexed = bits == 1 || bits == 4 || bits == 8;
    const bool hasMasks = header.compression == kMasks || header.compression == kAlphaMasks;
    const bool isKnown = header.compression == kPlain
                             ? isIndexed || bits == 16 || bits == 24 || bits == 32
                         : header.compression == kRuns8 ? bits == 8
                         : header.compression == kRuns4 ? bits == 4
                                                        : hasMasks && (bits == 16 || bits == 32);
    if (!isKnown) {
        return false;
    }
    size_t behind = kFileHeader + size;
    if (hasMasks) {
        const bool isInside = size >= kMaskHeader;
        const size_t count = size >= kAlphaHeader || header.compression == kAlphaMasks ? 4 : 3;
        for (size_t index = 0; index < count; ++index) {
            header.masks[index] = Number(file, kFileHeader + kInfoHeader + 4 * index, 4);
        }
        behind += isInside ? 0 : count * 4;
    } else if (bits == 16) {
        header.masks = {0x7C00, 0x3E0, 0x1F, 0};
    } else {
        header.masks = {0xFF0000, 0xFF00, 0xFF, 0};
    }
    if (isIndexed) {
        const uint32_t most = 1U << bits;
        const uint32_t told = isCore ? 0 : Number(file, 46, 4);
        const size_t entry = isCore ? 3 : 4;
        for (size_t index = 0; index < (told == 0 ? most : std::min(told, most)); ++index) {
            const auto channel = [&](size_t place) {
                return static_cast<uint8_t>(Number(file, behind + index * entry + place, 1));
            };
            header.palette[index] = {channel(2), channel(1), channel(0), 255};
        }
    }
    header.pixels = Number(file, 10, 4);
    return header.pixels <= file.size();
}

bool CXBitmap::ReadRows(string_view rows, const Header& header) {
    const size_t stride = header.Stride();
    const size_t width = static_cast<size_t>(header.width);
    if (rows.size() / stride < static_cast<size_t>(header.height)) {
        return false;
    }
    m_pixels.resize(width * static_cast<size_t>(header.height) * 4);
    const size_t bytes = header.bits / 8;
    bool hasAlpha = false;
    for (int32_t row = 0; row < header.height; ++row) {
        const string_view from = rows.substr(static_cast<size_t>(row) * stride, stride);
        uint8_t* to = m_pixels.data() + header.RowOf(row) * width * 4;
        for (size_t x = 0; x < width; ++x, to += 4) {
            if (header.bits <= 8) {
                const size_t bit = x * header.bits;
                const uint32_t shift = 8 - header.bits - bit % 8;
                const uint32_t index = static_cast<uint8_t>(from[bit / 8]) >> shift;
                const Colour& colour = header.palette[index & ((1U << header.bits) - 1)];
                std::copy(colour.begin(), colour.end(), to);
                continue;
            }
            const uint32_t pixel = Number(from, x * bytes, bytes);
            for (size_t channel = 0; channel < 3; ++channel) {
                to[channel] = Channel(pixel, header.masks[channel]);
            }
            to[3] = Channel(pixel, header.masks[3]);
            hasAlpha = hasAlpha || to[3] != 0;
        }
    }
    if (header.bits > 8 && !hasAlpha) {
        // No mask, or one that the writer left empty.
        for (size_t at = 3; at < m_pixels.size(); at += 4) {
            m_pixels[at] = 255;
        }
    }
    return true;
}

// Pairs of a count and a value; count 0 escapes: end of line, end of picture, a jump, or so many
// values as they stand. What no run covers has the first colour.
bool CXBitmap::ReadRuns(string_view runs, const Header& header) {
    const size_t width = static_cast<size_t>(header.width);
    const int64_t area = int64_t{header.width} * header.height;
    if (area > std::max(kFreePixels, static_cast<int64_t>(runs.size()) * kPixelsOfByte)) {
        return false;
    }
    m_pixels.resize(static_cast<size_t>(area) * 4);
    const auto put = [&](size_t x, int32_t row, uint32_t index) {
        if (x < width && row < header.height) {
            const Colour& colour = header.palette[index & 0xFF];
            std::copy(colour.begin(), colour.end(),
                      m_pixels.data() + (header.RowOf(row) * width + x) * 4);
        }
    };
    for (int32_t row = 0; row < header.height; ++row) {
        for (size_t x = 0; x < width; ++x) {
            put(x, row, 0);
        }
    }
    const bool isHalf = header.compression == kRuns4; // two values a byte
    const auto valueOf = [&](uint32_t byte, size_t place) {
        return !isHalf ? byte : place % 2 == 0 ? byte >> 4 : byte & 15;
    };
    size_t x = 0;
    int32_t row = 0;
    size_t at = 0;
    while (row < header.height) {
        if (runs.size() - at < 2) {
            return false;
        }
        const uint32_t count = Number(runs, at, 1);
        const uint32_t value = Number(runs, at + 1, 1);
        at += 2;
        if (count != 0) {
            for (size_t place = 0; place < count; ++place) {
                put(x++, row, valueOf(value, place));
            }
        } else if (value == 0) {
            x = 0;
            ++row;
        } else if (value == 1) {
            return true;
        } else if (value == 2) {
            if (runs.size() - at < 2) {
                return false;
            }
            x += Number(runs, at, 1);
            row += static_cast<int32_t>(Number(runs, at + 1, 1));
            at += 2;
        } else {
            const size_t bytes = isHalf ? (value + 1) / 2 : value;
            if (runs.size() - at < bytes) {
                return false;
            }
            for (size_t place = 0; place < value; ++place) {
                const uint32_t byte = Number(runs, at + (isHalf ? place / 2 : place), 1);
                put(x++, row, valueOf(byte, place));
            }
            // They come in pairs of bytes; the last filler may be missing.
            at = std::min(at + bytes + bytes % 2, runs.size());
        }
    }
    return true;
}

void CXBitmap::Clear() {
    m_width = m_height = 0;
    m_pixels.clear();
}

CXResult CXBitmap::Decode(const void* data, size_t size) {
    Clear();
    const string_view file(static_cast<const char*>(data), size);
    Header header;
    if (!ReadHeader(file, header)) {
        return kCXResultBadData;
    }
    const string_view pixels = file.substr(header.pixels);
    const bool isRuns = header.compression == kRuns8 || header.compression == kRuns4;
    if (!(isRuns ? ReadRuns(pixels, header) : ReadRows(pixels, header))) {
        Clear();
        return kCXResultBadData;
    }
    m_width = header.width;
    m_height = header.height;
    return kCXResultOK;
}

CXResult CXBitmap::Load(const CXString& path) {
    Clear();
    std::vector<uint8_t> file;
    const CXResult result = ReadWholeFile(path, file, kMostFile);
    return result == kCXResultOK ? Decode(file.data(), file.size()) : result;
}
