// Finds, for a file, those of a set of files that share most of its contents.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

/// Marks of a file's contents: hashes of the places where a rolling hash over the last 32 bytes
/// comes out round. The same contents give the same marks wherever they stand. A small file keeps
/// every mark, a large one the rounder ones alone, some 500 at most.
class VelPatchSketch {
public:
    /// Takes the next bytes of the file.
    void Add(std::span<const uint8_t> bytes);
    /// To be called behind the last byte.
    void Finish();
    /// Reads a file and sketches it.
    static CXResult OfFile(const CXString& path, VelPatchSketch& sketch);

    uint64_t GetFileSize() const { return m_size; }
    /// A mark stands for about 2 to the power of this many bytes.
    int GetSpacing() const { return m_spacing; }
    const std::vector<uint32_t>& GetMarks() const { return m_marks; }

private:
    void Thin();

    uint64_t m_size = 0;
    uint64_t m_rolling = 0;
    int m_spacing = 5;
    std::vector<uint32_t> m_marks; ///< those of larger spacing have more zero bits at the low end
};

/// The files to choose from. Adding is for one thread; with nothing being added any number of
/// threads may ask. Memory: about 12 bytes per mark.
class VelPatchSimilarity {
public:
    struct Candidate {
        uint32_t file;
        uint64_t shared; ///< bytes in common, about
    };
    /// Adds a file under a number of the caller's.
    void Add(uint32_t file, const VelPatchSketch& sketch);
    /// The `most` files that promise most, best first: those that share much, of these the smaller.
    std::vector<Candidate> Find(const VelPatchSketch& sketch, size_t most) const;

private:
    struct Entry {
        uint32_t mark;
        uint32_t file; ///< index into m_files
        uint32_t next; ///< entry + 1, or 0
    };
    struct File {
        uint32_t number;
        uint64_t size;
        int spacing;
    };
    void Rehash();

    std::vector<File> m_files;
    std::vector<Entry> m_entries;
    std::vector<uint32_t> m_heads; ///< entry + 1, or 0; a power of two of them
};
