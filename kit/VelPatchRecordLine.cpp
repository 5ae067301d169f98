#include "kit/VelPatchRecordLine.h"

#include "kit/VelPatchParallel.h"
#include "kit/VelPatchRecordOrder.h"
#include "kit/VelPatchResultText.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>

namespace {

// What the records on the way may weigh together, the heaviest of them not counted.
constexpr uint64_t kMostBeside = 13 << 20;
// The work on a record of this weight is shared out among threads by itself.
constexpr uint64_t kLargeWeight = 2 << 20;
// A created file of this size is not read into memory.
constexpr uint64_t kStreamedSize = 4 << 20;
constexpr size_t kSlice = 1 << 18;
// Records that are put in order together: bytes that suffice, and how many at most.
constexpr uint64_t kGatheredBytes = 2 << 20;
constexpr size_t kMostGathered = 2048;

/// Bytes that are in memory for an operation.
uint64_t WeightOf(const VelPatchPlannedOperation& planned) {
    uint64_t weight = planned.newSize;
    for (const VelPatchSource& source : planned.sources) {
        weight = std::max(weight, planned.newSize + source.size);
    }
    return weight;
}

/// True if the source of an edit or move is a file that an operation before makes.
bool HasMadeSource(const VelPatchPlannedOperation& planned) {
    const VelPatchSource* const source = planned.GetSource();
    return source != nullptr && source->isMade;
}

} // namespace

VelPatchRecordLine::VelPatchRecordLine(std::vector<VelPatchPlannedOperation>& operations,
                                       VelPatchDataWriter& data)
    : m_operations(operations), m_data(data) {
    while (m_movable < operations.size() &&
           (operations[m_movable].HasRecord() ||
            operations[m_movable].operation.command == COMMAND_MOVE_FILE)) {
        m_movable++;
    }
    for (size_t i = 0; i < operations.size(); i++) {
        VelPatchPlannedOperation& planned = operations[i];
        if (planned.HasRecord()) {
            m_slotOf.emplace(planned.operation.destinationPath, m_slots.size());
            Slot& slot = m_slots.emplace_back();
            slot.planned = &planned;
            slot.isFixed = i >= m_movable;
            slot.isStreamed = planned.operation.command == COMMAND_CREATE_FILE &&
                              planned.newSize >= kStreamedSize;
            slot.weight = slot.isStreamed ? 0 : WeightOf(planned);
        }
    }
}

CXResult VelPatchRecordLine::Run(unsigned workers, const Tick& tick, CXString& problem) {
    m_workers = std::max(1U, workers);
    const auto work = [this](size_t) { Work(); };
    RunParallel(m_workers, m_workers, work, [&](size_t) {
        CXConditionGuard guard(m_changed.GetLock());
        const uint64_t done = m_done;
        guard.unlock();
        const bool goesOn = tick(done);
        guard.lock();
        m_isStopped = m_isStopped || !goesOn;
        m_changed.WakeAll();
        return goesOn;
    });
    if (m_result == kCXResultOK && m_isStopped) {
        m_result = kCXResultCancelled;
        m_problem = "stopped";
    }
    if (m_result == kCXResultOK) {
        ReorderOperations();
    }
    problem = m_problem;
    return m_result;
}

void VelPatchRecordLine::ReorderOperations() {
    std::vector<VelPatchPlannedOperation> ordered;
    std::vector<VelPatchPlannedOperation> ofMade;
    ordered.reserve(m_operations.size());
    for (size_t i = 0; i < m_movable; i++) {
        if (m_operations[i].operation.command == COMMAND_MOVE_FILE) {
            (HasMadeSource(m_operations[i]) ? ofMade : ordered).push_back(m_operations[i]);
        }
    }
    for (const size_t index : m_order) {
        if (!m_slots[index].isFixed) {
            ordered.push_back(std::move(*m_slots[index].planned));
        }
    }
    std::move(ofMade.begin(), ofMade.end(), std::back_inserter(ordered));
    std::move(m_operations.begin() + static_cast<std::ptrdiff_t>(m_movable), m_operations.end(),
              std::back_inserter(ordered));
    m_operations = std::move(ordered);
    m_slots.clear(); // they point to where the operations were
}

bool VelPatchRecordLine::IsOver() const {
    return m_result != kCXResultOK || m_isStopped || m_toAppend == m_slots.size();
}

void VelPatchRecordLine::Work() {
    CXConditionGuard guard(m_changed.GetLock());
    while (!IsOver()) {
        const uint64_t jobs = m_jobs;
        if (RunOneJob(guard)) {
            m_jobs++;
            m_changed.WakeAll();
        } else if (jobs == m_jobs && !IsOver()) { // nothing has come while we looked
            m_changed.Wait(guard);
        }
    }
    while (m_result == kCXResultOK && !m_isStopped && CompressPiece(guard)) {
    }
}

bool VelPatchRecordLine::CompressPiece(CXConditionGuard& guard) {
    guard.unlock();
    const bool hasCompressed = m_data.CompressPiece();
    guard.lock();
    return hasCompressed;
}

bool VelPatchRecordLine::RunOneJob(CXConditionGuard& guard) {
    // What is nearest to its end goes first: it gives memory back.
    return CompressPiece(guard) || AppendNext(guard) || MakeNext(guard);
}

void VelPatchRecordLine::AddWeight(uint64_t weight) {
    m_weights.insert(weight);
    m_weight += weight;
}

void VelPatchRecordLine::DropWeight(uint64_t weight) {
    m_weights.erase(m_weights.find(weight));
    m_weight -= weight;
}

bool VelPatchRecordLine::MakeNext(CXConditionGuard& guard) {
    while (m_toMake < m_slots.size() && m_slots[m_toMake].isStreamed) {
        m_toMake++;
    }
    if (m_toMake == m_slots.size()) {
        return false;
    }
    Slot& slot = m_slots[m_toMake];
    const uint64_t heaviest =
        m_weights.empty() ? slot.weight : std::max(slot.weight, *m_weights.rbegin());
    if (m_weight + slot.weight - heaviest > kMostBeside) {
        return false;
    }
    m_toMake++;
    AddWeight(slot.weight);
    guard.unlock();
    VelPatchRecord record = MakeRecord(*slot.planned, slot.weight >= kLargeWeight ? m_workers : 1);
    guard.lock();
    slot.record = std::move(record);
    slot.isMade = true;
    DropWeight(slot.weight);
    slot.weight = slot.record.bytes.capacity(); // the files are out of memory again
    AddWeight(slot.weight);
    m_done += slot.planned->newSize + 1;
    return true;
}

bool VelPatchRecordLine::AppendNext(CXConditionGuard& guard) {
    if (m_isAppending || m_toAppend == m_slots.size()) {
        return false;
    }
    if (m_toAppend == m_order.size()) {
        return Gather(guard);
    }
    Slot& slot = m_slots[m_order[m_toAppend]];
    m_isAppending = true;
    guard.unlock();
    const uint64_t before = m_at;
    bool isWhole = false;
    const CXResult result = AppendSlice(slot, isWhole);
    guard.lock();
    m_isAppending = false;
    m_done += slot.isStreamed ? m_at - before + (isWhole ? 1 : 0) : 0;
    if (result != kCXResultOK) {
        m_result = result;
        m_problem = m_appendProblem;
    } else if (isWhole) {
        slot.record = VelPatchRecord();
        if (!slot.isStreamed) {
            DropWeight(slot.weight);
        }
        m_toAppend++;
        m_at = 0;
    }
    return true;
}

/// Once enough records are made, or all that can stand together, they get their places.
bool VelPatchRecordLine::Gather(CXConditionGuard& guard) {
    const size_t end = FindGatheringEnd();
    if (end == m_order.size()) {
        return false;
    }
    m_isAppending = true;
    guard.unlock();
    const std::vector<size_t> places = PlaceGathered(end);
    guard.lock();
    m_isAppending = false;
    m_order.insert(m_order.end(), places.begin(), places.end());
    return true;
}

/// The slot behind those that may get their places now: all before have them. What has failed ends
/// a gathering, so that the first failure of the list is the one that is told.
size_t VelPatchRecordLine::FindGatheringEnd() const {
    const size_t start = m_order.size();
    uint64_t bytes = 0;
    size_t end = start;
    for (; end < m_slots.size() && end - start < kMostGathered && bytes < kGatheredBytes; end++) {
        const Slot& slot = m_slots[end];
        if (!slot.isMade && !slot.isStreamed) {
            return start;
        }
        if (slot.isStreamed || slot.isFixed || slot.record.result != kCXResultOK) {
            return std::max(end, start + 1); // stands alone
        }
        bytes += slot.record.bytes.size();
    }
    return end;
}

std::vector<size_t> VelPatchRecordLine::PlaceGathered(size_t end) const {
    const size_t start = m_order.size();
    std::vector<VelPatchRecordToPlace> records;
    for (size_t i = start; i < end; i++) {
        VelPatchRecordToPlace record = {m_slots[i].record.bytes};
        const size_t maker = FindMaker(i);
        if (maker != VelPatchRecordToPlace::kNone && maker >= start) {
            record.after = maker - start;
        }
        records.push_back(record);
    }
    std::vector<size_t> places = PlaceRecords(records);
    for (size_t& place : places) {
        place += start;
    }
    return places;
}

/// The slot, earlier in the list, that makes what this one edits, or kNone.
size_t VelPatchRecordLine::FindMaker(size_t slot) const {
    const VelPatchPlannedOperation& planned = *m_slots[slot].planned;
    const auto maker =
        HasMadeSource(planned) ? m_slotOf.find(planned.operation.sourcePath) : m_slotOf.end();
    return maker != m_slotOf.end() && maker->second < slot ? maker->second
                                                           : VelPatchRecordToPlace::kNone;
}

CXResult VelPatchRecordLine::AppendSlice(Slot& slot, bool& isWhole) {
    VelPatchRecord& record = slot.record;
    PatchOperation& operation = slot.planned->operation;
    if (record.result != kCXResultOK) {
        m_appendProblem = record.problem;
        return record.result;
    }
    const uint64_t size = slot.isStreamed ? slot.planned->newSize : record.bytes.size();
    if (m_at == 0) {
        m_data.AppendU64(size);
    }
    const auto count = static_cast<size_t>(std::min<uint64_t>(size - m_at, kSlice));
    if (slot.isStreamed) {
        const CXResult result = ReadSlice(*slot.planned, count);
        if (result != kCXResultOK) {
            return result;
        }
        m_data.Append(m_slice);
    } else {
        m_data.Append(std::span<const uint8_t>(record.bytes).subspan(m_at, count));
    }
    m_at += count;
    isWhole = m_at == size;
    if (isWhole) {
        if (slot.isStreamed) {
            operation.destinationChecksum = m_digest.FinishHex();
            m_file.Close();
        }
        m_data.AppendString(operation.destinationChecksum);
    }
    return m_data.GetLastError(); // closing the file tells it by its name
}

CXResult VelPatchRecordLine::ReadSlice(const VelPatchPlannedOperation& planned, size_t count) {
    if (m_at == 0) {
        m_file.Open(planned.newFile, kOpenRead);
        m_digest = CXMD5();
    }
    m_slice.resize(count);
    if (!m_file.IsOpen() || m_file.Read(m_slice.data(), count) != count) {
        m_appendProblem =
            CXString::Format("'%s' can't be read to its end: %s", planned.newFile.GetData(),
                             ResultText(m_file.GetLastError()));
        return CXResultCertainFailure(m_file.GetLastError());
    }
    m_digest.Update(m_slice.data(), count);
    return kCXResultOK;
}
