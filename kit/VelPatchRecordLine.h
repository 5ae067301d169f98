// Makes the records of a patch side by side and writes them in an order in which they come out
// small.
#pragma once

#include "core/CXMD5.h"
#include "core/CXResult.h"
#include "core/CXString.h"
#include "kit/VelPatchDataWriter.h"
#include "kit/VelPatchRecordMaker.h"
#include "runtime/CXCondition.h"
#include "stream/CXStreamFile.h"

#include <cstdint>
#include <functional>
#include <set>
#include <unordered_map>
#include <vector>

/// The part of the making of a patch that takes the time. Its threads take whatever can be done
/// next: compress a piece of the data file, put finished records in order, append the one whose
/// turn it is, or make the record of a later operation. Records are put in order in gatherings of
/// some 2 MiB, each by itself. How far making runs ahead is bounded by bytes, so that memory
/// doesn't grow with the number of files. Neither the records nor their order depend on the number
/// of threads.
class VelPatchRecordLine {
public:
    /// Told every few dozen milliseconds how many bytes of new files are behind us; false stops.
    using Tick = std::function<bool(uint64_t done)>;

    /// Both outlive the object. The operations are completed as MakeRecord tells, and at the end
    /// of a good run stand in the order of their records: moves of old files, then creates and
    /// edits, then moves of what these have made; what follows the first operation of another kind
    /// stays where it is.
    VelPatchRecordLine(std::vector<VelPatchPlannedOperation>& operations, VelPatchDataWriter& data);

    /// Appends the records of all operations and compresses them but for the last piece; the file
    /// stays open. When that has failed `problem` says why, but for a failure of the data file.
    CXResult Run(unsigned workers, const Tick& tick, CXString& problem);

private:
    /// An operation that has a record.
    struct Slot {
        VelPatchPlannedOperation* planned = nullptr;
        bool isStreamed = false; ///< goes from its file into the data file, piece by piece
        bool isFixed = false;    ///< its operation stays where it is in the list
        bool isMade = false;
        uint64_t weight = 0; ///< bytes that it takes in memory, while it is on the way
        VelPatchRecord record;
    };

    void Work();
    bool RunOneJob(CXConditionGuard& guard);
    bool CompressPiece(CXConditionGuard& guard);
    void AddWeight(uint64_t weight);
    void DropWeight(uint64_t weight);
    bool MakeNext(CXConditionGuard& guard);
    bool AppendNext(CXConditionGuard& guard);
    bool Gather(CXConditionGuard& guard);
    size_t FindGatheringEnd() const;
    std::vector<size_t> PlaceGathered(size_t end) const;
    size_t FindMaker(size_t slot) const;
    void ReorderOperations();
    CXResult AppendSlice(Slot& slot, bool& isWhole);
    CXResult ReadSlice(const VelPatchPlannedOperation& planned, size_t count);
    bool IsOver() const;

    std::vector<VelPatchPlannedOperation>& m_operations;
    size_t m_movable = 0; ///< operations at the start of the list whose order is free
    std::unordered_map<CXString, size_t, CXStringHasher> m_slotOf; ///< by destination path
    VelPatchDataWriter& m_data;
    unsigned m_workers = 1;

    CXCondition m_changed;     ///< its lock guards these:
    std::vector<Slot> m_slots; ///< in the order of the list
    size_t m_toMake = 0;
    std::vector<size_t> m_order;       ///< slots as they are appended; grows with each gathering
    size_t m_toAppend = 0;             ///< of m_order
    std::multiset<uint64_t> m_weights; ///< of the records on the way
    uint64_t m_weight = 0;             ///< their sum
    uint64_t m_done = 0;
    uint64_t m_jobs = 0;        ///< done so far
    bool m_isAppending = false; ///< or gathering
    bool m_isStopped = false;
    CXResult m_result = kCXResultOK;
    CXString m_problem;

    // Of the record that is being appended; one thread has them at a time, without the lock.
    uint64_t m_at = 0;   ///< bytes of it that are appended
    CXStreamFile m_file; ///< these for one that is streamed
    CXMD5 m_digest;
    std::vector<uint8_t> m_slice;
    CXString m_appendProblem;
};
