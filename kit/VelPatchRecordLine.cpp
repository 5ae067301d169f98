#include "kit/VelPatchRecordLine.h"

#include "kit/VelPatchParallel.h"
#include "kit/VelPatchResultText.h"

#include <algorithm>
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

/// Bytes that are in memory for an operation.
uint64_t WeightOf(const VelPatchPlannedOperation& planned) {
    uint64_t weight = planned.newSize;
    for (const VelPatchSource& source : planned.sources) {
        weight = std::max(weight, planned.newSize + source.size);
    }
    return weight;
}

} // namespace

VelPatchRecordLine::VelPatchRecordLine(std::vector<VelPatchPlannedOperation>& operations,
                                       VelPatchDataWriter& data)
    : m_data(data) {
    for (VelPatchPlannedOperation& planned : operations) {
        if (planned.HasRecord()) {
            Slot& slot = m_slots.emplace_back();
            slot.planned = &planned;
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
    problem = m_problem;
    return m_result;
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
    m_weight += slot.weight;
    m_weights.insert(slot.weight);
    guard.unlock();
    VelPatchRecord record = MakeRecord(*slot.planned, slot.weight >= kLargeWeight ? m_workers : 1);
    guard.lock();
    slot.record = std::move(record);
    slot.isMade = true;
    m_done += slot.planned->newSize + 1;
    return true;
}

bool VelPatchRecordLine::AppendNext(CXConditionGuard& guard) {
    if (m_isAppending || m_toAppend == m_slots.size()) {
        return false;
    }
    Slot& slot = m_slots[m_toAppend];
    if (!slot.isMade && !slot.isStreamed) {
        return false;
    }
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
            m_weight -= slot.weight;
            m_weights.erase(m_weights.find(slot.weight));
        }
        m_toAppend++;
        m_at = 0;
    }
    return true;
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
