// A picture in memory, and the reader for Windows bitmap files (BMP).
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Straight (not premultiplied) RGBA, one byte a channel, rows from the top without gaps. A value;
/// not shared between threads.
class CXBitmap {
public:
    int32_t GetWidth() const { return m_width; }
    int32_t GetHeight() const { return m_height; }
    bool IsEmpty() const { return m_pixels.empty(); }
    /// Width * height * 4 bytes: red, green, blue, alpha.
    const std::vector<uint8_t>& GetPixels() const { return m_pixels; }

    /// Reads a BMP file: 1, 4 and 8 bits with a palette (the latter two also run-length coded), 16
    /// and 32 bits with or without masks, 24 bits; bottom-up and top-down. Alpha is opaque unless
    /// the file has an alpha mask. Damaged or unknown files give kCXResultBadData and an empty
    /// picture; one whose pixel data ends early is damaged, and none is larger than 16,384 pixels
    /// a side or 64 million in all.
    CXResult Decode(const void* data, size_t size);
    /// The same from a file of at most 300 MB; a file that can't be read gives its result.
    CXResult Load(const CXString& path);

private:
    struct Header;

    static bool ReadHeader(absl::string_view file, Header& header);
    bool ReadRows(absl::string_view rows, const Header& header);
    bool ReadRuns(absl::string_view runs, const Header& header);
    void Clear();

    int32_t m_width = 0, m_height = 0;
    std::vector<uint8_t> m_pixels;
};
