// Reads a patch through and tells what it does, or the first byte that is wrong.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "patch/PatchControl.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

class CXStream;
class VelPatchInflateStream;

/// What one operation costs, in bytes.
struct VelPatchOperationCost {
    uint64_t newBytes = 0;     ///< of the finished file; from the stated effort if not read
    uint64_t copiedBytes = 0;  ///< of those, taken from the old file
    uint64_t literalBytes = 0; ///< of those, carried in the data file
    uint64_t oldBytes = 0;     ///< of the old file that the diff runs over: it can't be shorter
    uint64_t storedBytes = 0;  ///< of the compressed data file
    CXString checksum;         ///< of the finished file, as the record states it
    bool isRead = false;       ///< all above come from the operation's record
};

/// Something wrong with a data file.
struct VelPatchDataFault {
    static constexpr size_t kNoOperation = static_cast<size_t>(-1);

    CXString text;
    uint64_t fileOffset = 0;     ///< byte of the data file; of a set of volumes, of their payloads
    uint64_t inflatedOffset = 0; ///< byte of the inflated stream
    size_t operation = kNoOperation; ///< index in the list
};

class VelPatchInspector {
public:
    struct Sums {
        uint64_t operations[6] = {}; ///< by PatchCommand
        uint64_t newBytes = 0;
        uint64_t copiedBytes = 0;
        uint64_t literalBytes = 0;
        uint64_t dataBytes = 0;        ///< of the data file as stored; 0 if neither stated nor read
        int64_t askedFreeBytes = 0;    ///< what the player's program asks for before it begins
        uint64_t temporaryBytes = 0;   ///< most that lies beside the old files at one time
        uint64_t finalBytesAtMost = 0; ///< growth of the game; what is replaced or deleted goes off
    };

    /// The control file must outlive this.
    explicit VelPatchInspector(const PatchControl& control);
    /// `progress` gets the fraction of the data file that is read; false stops.
    void SetProgress(std::function<bool(double)> progress) { m_progress = std::move(progress); }

    /// Reads every record of the data file, from the stream's position to its end, and holds it
    /// against the list, its own checksum and what the control file says. kCXResultBadData if
    /// anything is wrong: see GetFaults. kCXResultCancelled if stopped.
    CXResult ReadData(CXStream& data);

    /// One for each operation of the list.
    const std::vector<VelPatchOperationCost>& GetCosts() const { return m_costs; }
    const Sums& GetSums() const { return m_sums; }
    /// The first one is the first byte that is wrong; what follows is about the file as a whole.
    const std::vector<VelPatchDataFault>& GetFaults() const { return m_faults; }

private:
    bool ReadRecord(VelPatchInflateStream& stream, size_t index);
    bool ReadPayload(VelPatchInflateStream& stream, size_t index, uint64_t size, CXString& found);
    bool ReadDiff(VelPatchInflateStream& stream, size_t index, uint64_t size);
    bool ReadChecksum(VelPatchInflateStream& stream, size_t index, CXString& stated);
    void ReadEnd(VelPatchInflateStream& stream);
    /// Reads and drops bytes; the digest may be null.
    bool ReadThrough(VelPatchInflateStream& stream, uint64_t count, class CXMD5* digest);
    void AddFault(const VelPatchInflateStream& stream, size_t index, const CXString& text);
    /// The stream ended or failed where `what` should be.
    void AddReadFault(const VelPatchInflateStream& stream, size_t index, const char* what);
    void SumUp();

    const PatchControl& m_control;
    std::function<bool(double)> m_progress;
    std::vector<VelPatchOperationCost> m_costs;
    std::vector<VelPatchDataFault> m_faults;
    Sums m_sums;
    std::vector<uint8_t> m_piece;
    uint64_t m_dataSize = 0;
    bool m_isStopped = false;
};

/// Control files leave out the checksums of finished files that no run looks at; the records of the
/// data file have them all. Fills in the missing ones of creates and edits; reads nothing if none
/// is missing. On failure (as ReadData) the list stays as it is.
CXResult TakeRecordChecksums(PatchControl& control, CXStream& data,
                             const std::function<bool(double)>& progress);
/// Whether any is missing.
bool LacksRecordChecksums(const PatchControl& control);
