#include "kit/VelPatchInspector.h"

#include "core/CXMD5.h"
#include "kit/VelPatchInflateStream.h"
#include "patch/BinaryDiff.h"
#include "patch/PreflightRules.h"
#include "stream/CXStreamTools.h"

#include <algorithm>

namespace {

constexpr size_t kPieceSize = 65536;
/// Longest checksum text that is read; sound ones have 32 characters.
constexpr uint32_t kLongestChecksum = 65536;
/// Bytes of a diff command's fields behind its first byte.
constexpr uint64_t kReplaceFields = 8;
constexpr uint64_t kCopyFields = 4;

bool HasRecord(const PatchOperation& operation) {
    return operation.command == COMMAND_CREATE_FILE || operation.command == COMMAND_EDIT_FILE;
}

/// Leaves a file behind that is as large as the effort says.
bool MakesFile(const PatchOperation& operation) {
    return HasRecord(operation) || operation.command == COMMAND_MOVE_FILE;
}

bool IsChecksum(const CXString& text) {
    const absl::string_view view = text;
    return view.size() == 32 &&
           view.find_first_not_of("0123456789abcdef") == absl::string_view::npos;
}

} // namespace

VelPatchInspector::VelPatchInspector(const PatchControl& control)
    : m_control(control), m_costs(control.operations.size()), m_piece(kPieceSize) {
    for (size_t i = 0; i < m_costs.size(); i++) {
        const PatchOperation& operation = control.operations[i];
        if (MakesFile(operation) && operation.estimatedEffort > 0) {
            m_costs[i].newBytes = static_cast<uint64_t>(operation.estimatedEffort);
        }
        if (operation.command == COMMAND_MOVE_FILE) {
            m_costs[i].copiedBytes = m_costs[i].newBytes;
        }
    }
    m_dataSize = control.dataSize > 0 ? static_cast<uint64_t>(control.dataSize) : 0;
    SumUp();
}

CXResult VelPatchInspector::ReadData(CXStream& data) {
    m_faults.clear();
    m_isStopped = false;
    m_dataSize = data.GetRemaining();
    VelPatchInflateStream stream(data);
    bool isSound = true;
    for (size_t i = 0; i < m_costs.size() && isSound; i++) {
        if (HasRecord(m_control.operations[i])) {
            isSound = ReadRecord(stream, i);
        }
    }
    if (isSound) {
        ReadEnd(stream);
    }
    if (m_isStopped) {
        return kCXResultCancelled;
    }
    const uint64_t fileEnd = stream.GetInputOffset();
    const uint64_t behind = stream.Drain();
    VelPatchDataFault whole;
    whole.inflatedOffset = stream.GetPosition();
    if (behind > 0 && stream.GetState() == VelPatchInflateStream::State::Ended) {
        whole.fileOffset = fileEnd;
        whole.text = CXString::Format("%d bytes lie behind the end of the compressed data", behind);
        m_faults.push_back(whole);
    }
    if (m_control.dataSize > 0 && static_cast<uint64_t>(m_control.dataSize) != m_dataSize) {
        whole.fileOffset = std::min(static_cast<uint64_t>(m_control.dataSize), m_dataSize);
        whole.text = CXString::Format("the data file has %d bytes, and the control file says %d",
                                      m_dataSize, m_control.dataSize);
        m_faults.push_back(whole);
    }
    const CXString found = stream.FinishChecksum();
    if (!m_control.dataChecksum.IsEmpty() && m_control.dataChecksum != found) {
        whole.fileOffset = 0;
        whole.inflatedOffset = 0;
        whole.text =
            CXString::Format("the data file's checksum is %s, and the control file says %s",
                             found.GetData(), m_control.dataChecksum.GetData());
        m_faults.push_back(whole);
    }
    SumUp();
    return m_faults.empty() ? kCXResultOK : kCXResultBadData;
}

bool VelPatchInspector::ReadRecord(VelPatchInflateStream& stream, size_t index) {
    const PatchOperation& operation = m_control.operations[index];
    VelPatchOperationCost& cost = m_costs[index];
    cost = VelPatchOperationCost();
    const uint64_t fileStart = stream.GetInputOffset();
    uint64_t size = 0;
    if (!stream.ReadU64(size)) {
        AddReadFault(stream, index, "the size of the record");
        return false;
    }
    const VelPatchDataFault dataStart = {CXString(), stream.GetInputOffset(), stream.GetPosition(),
                                         index};
    const bool isDiff = operation.command == COMMAND_EDIT_FILE;
    CXString found;
    CXString stated;
    if (!(isDiff ? ReadDiff(stream, index, size) : ReadPayload(stream, index, size, found)) ||
        !ReadChecksum(stream, index, stated)) {
        return false;
    }
    if (!isDiff && !stated.IsEmpty() && stated != found) {
        m_faults.push_back(dataStart);
        m_faults.back().text =
            CXString::Format("the file's contents, %d bytes from here, have the checksum %s, and "
                             "the record says %s",
                             size, found.GetData(), stated.GetData());
        return false;
    }
    cost.storedBytes = stream.GetInputOffset() - fileStart;
    cost.checksum = stated;
    cost.isRead = true;
    return true;
}

bool VelPatchInspector::ReadPayload(VelPatchInflateStream& stream, size_t index, uint64_t size,
                                    CXString& found) {
    CXMD5 digest;
    if (!ReadThrough(stream, size, &digest)) {
        AddReadFault(stream, index, "the content of the file");
        return false;
    }
    found = digest.FinishHex();
    m_costs[index].newBytes = size;
    m_costs[index].literalBytes = size;
    return true;
}

bool VelPatchInspector::ReadDiff(VelPatchInflateStream& stream, size_t index, uint64_t size) {
    VelPatchOperationCost& cost = m_costs[index];
    for (uint64_t left = size; left > 0;) {
        uint8_t command = 0;
        if (!stream.ReadU8(command)) {
            AddReadFault(stream, index, "a command of the diff");
            return false;
        }
        left--;
        const bool isReplace = command == kBinaryDiffReplace;
        if (!isReplace && command != kBinaryDiffCopy) {
            AddFault(stream, index,
                     CXString::Format("the diff has an unknown command: %d", command));
            m_faults.back().inflatedOffset--;
            return false;
        }
        const uint64_t fields = isReplace ? kReplaceFields : kCopyFields;
        if (left < fields) {
            AddFault(stream, index, "the record ends inside a command of its diff");
            return false;
        }
        uint32_t skip = 0;
        uint32_t length = 0;
        if ((isReplace && !stream.ReadU32(skip)) || !stream.ReadU32(length)) {
            AddReadFault(stream, index, "the rest of a command of the diff");
            return false;
        }
        left -= fields;
        cost.newBytes += length;
        (isReplace ? cost.literalBytes : cost.copiedBytes) += length;
        cost.oldBytes += isReplace ? skip : length;
        if (!isReplace) {
            continue;
        }
        if (length > left) {
            AddFault(stream, index,
                     CXString::Format("a command of the diff carries %d bytes, and its record has "
                                      "%d left",
                                      length, left));
            return false;
        }
        if (!ReadThrough(stream, length, nullptr)) {
            AddReadFault(stream, index, "what the diff carries");
            return false;
        }
        left -= length;
    }
    return true;
}

bool VelPatchInspector::ReadChecksum(VelPatchInflateStream& stream, size_t index,
                                     CXString& stated) {
    const VelPatchDataFault start = {CXString(), stream.GetInputOffset(), stream.GetPosition(),
                                     index};
    if (!ReadStreamString(stream, stated, kLongestChecksum)) {
        AddReadFault(stream, index, "the checksum of the file");
        return false;
    }
    const CXString& wanted = m_control.operations[index].destinationChecksum;
    CXString text;
    if (!stated.IsEmpty() && !IsChecksum(stated)) {
        text = "what stands where the checksum should be is none";
    } else if (!stated.IsEmpty() && !wanted.IsEmpty() && stated != wanted) {
        text = CXString::Format("the record makes a file with the checksum %s, and the control "
                                "file wants %s",
                                stated.GetData(), wanted.GetData());
    }
    if (text.IsEmpty()) {
        return true;
    }
    m_faults.push_back(start);
    m_faults.back().text = text;
    return false;
}

void VelPatchInspector::ReadEnd(VelPatchInflateStream& stream) {
    uint8_t byte = 0;
    if (stream.Read(&byte, 1) != 0) {
        AddFault(stream, VelPatchDataFault::kNoOperation,
                 "the data go on behind the last record of the list");
        m_faults.back().inflatedOffset--;
    } else if (stream.GetState() == VelPatchInflateStream::State::Damaged) {
        AddFault(stream, VelPatchDataFault::kNoOperation,
                 "all records can be read, but the compressed data fail their own checksum here: a "
                 "byte before is wrong, most likely one that a diff carries");
    } else if (stream.GetState() != VelPatchInflateStream::State::Ended) {
        AddReadFault(stream, VelPatchDataFault::kNoOperation, "the end of the compressed data");
    }
}

bool VelPatchInspector::ReadThrough(VelPatchInflateStream& stream, uint64_t count, CXMD5* digest) {
    for (uint64_t left = count; left > 0;) {
        const uint64_t wanted = std::min<uint64_t>(left, kPieceSize);
        if (m_progress && !m_progress(static_cast<double>(stream.GetInputOffset()) /
                                      static_cast<double>(std::max<uint64_t>(m_dataSize, 1)))) {
            m_isStopped = true;
            return false;
        }
        const uint64_t got = stream.Read(m_piece.data(), wanted);
        if (digest != nullptr) {
            digest->Update(m_piece.data(), static_cast<size_t>(got));
        }
        if (got != wanted) {
            return false;
        }
        left -= got;
    }
    return true;
}

void VelPatchInspector::AddFault(const VelPatchInflateStream& stream, size_t index,
                                 const CXString& text) {
    m_faults.push_back({text, stream.GetInputOffset(), stream.GetPosition(), index});
}

void VelPatchInspector::AddReadFault(const VelPatchInflateStream& stream, size_t index,
                                     const char* what) {
    const char* why = "can't be used";
    switch (stream.GetState()) {
    case VelPatchInflateStream::State::Reading:
        break;
    case VelPatchInflateStream::State::Ended:
        why = "is missing: the data end here";
        break;
    case VelPatchInflateStream::State::CutShort:
        why = "is missing: the file ends here";
        break;
    case VelPatchInflateStream::State::Damaged:
        why = "can't be read: the compressed data are damaged";
        break;
    case VelPatchInflateStream::State::Unreadable:
        why = "can't be read: the file fails";
        break;
    }
    AddFault(stream, index, CXString::Format("%s %s", what, why));
}

void VelPatchInspector::SumUp() {
    m_sums = Sums();
    for (size_t i = 0; i < m_costs.size(); i++) {
        const PatchOperation& operation = m_control.operations[i];
        m_sums.operations[operation.command]++;
        m_sums.newBytes += m_costs[i].newBytes;
        m_sums.copiedBytes += m_costs[i].copiedBytes;
        m_sums.literalBytes += m_costs[i].literalBytes;
    }
    m_sums.dataBytes = m_dataSize;
    m_sums.askedFreeBytes = GetNeededFreeBytes(m_control.operations);
    m_sums.temporaryBytes = m_sums.newBytes + m_dataSize;
    m_sums.finalBytesAtMost = m_sums.newBytes;
}

bool LacksRecordChecksums(const PatchControl& control) {
    return std::any_of(control.operations.begin(), control.operations.end(),
                       [](const PatchOperation& operation) {
                           return (operation.command == COMMAND_CREATE_FILE ||
                                   operation.command == COMMAND_EDIT_FILE) &&
                                  operation.destinationChecksum.IsEmpty();
                       });
}

CXResult TakeRecordChecksums(PatchControl& control, CXStream& data,
                             const std::function<bool(double)>& progress) {
    if (!LacksRecordChecksums(control)) {
        return kCXResultOK;
    }
    VelPatchInspector inspector(control);
    inspector.SetProgress(progress);
    const CXResult result = inspector.ReadData(data);
    for (size_t i = 0; i < control.operations.size() && result == kCXResultOK; i++) {
        if (inspector.GetCosts()[i].isRead) {
            control.operations[i].destinationChecksum = inspector.GetCosts()[i].checksum;
        }
    }
    return result;
}
