#include "kit/VelPatchTargetModel.h"

#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"

namespace {

using Kind = VelPatchExpectedPath::Kind;
using Model = std::map<CXString, VelPatchExpectedPath>;

bool MakesFile(const PatchOperation& operation) {
    return operation.command == COMMAND_CREATE_FILE || operation.command == COMMAND_EDIT_FILE ||
           operation.command == COMMAND_MOVE_FILE;
}

class ModelMaker {
public:
    explicit ModelMaker(const std::vector<PatchOperation>& operations)
        : m_operations(operations), m_checksums(operations.size()),
          m_isLate(operations.size(), true) {}

    /// What lies in its place while the run is under way: folders, and files at free paths.
    void RunOperations() {
        for (size_t i = 0; i < m_operations.size(); i++) {
            const PatchOperation& operation = m_operations[i];
            if (operation.command == COMMAND_CREATE_FOLDER) {
                Put(i, Kind::Folder);
                m_isLate[i] = false;
            } else if (MakesFile(operation)) {
                m_checksums[i] = ChecksumOf(operation);
                const bool needsFreePath =
                    operation.command == COMMAND_CREATE_FILE
                        ? !operation.MayReplace() || operation.sourceChecksum.IsEmpty()
                        : operation.destinationPath != operation.sourcePath;
                if (needsFreePath &&
                    m_model.count(GetTargetPathKey(operation.destinationPath)) == 0) {
                    PutFile(i);
                    m_isLate[i] = false;
                }
            }
        }
    }

    /// The renames and deletions at the end, in the order of the list.
    void Finalise() {
        for (size_t i = 0; i < m_operations.size(); i++) {
            const PatchOperation& operation = m_operations[i];
            if (operation.command == COMMAND_DELETE_FILE ||
                operation.command == COMMAND_DELETE_FOLDER) {
                Delete(i);
            } else if (MakesFile(operation) && m_isLate[i]) {
                PutFile(i);
            }
        }
    }

    Model Take() { return std::move(m_model); }

private:
    VelPatchExpectedPath& Put(size_t index, Kind kind) {
        const PatchOperation& operation = m_operations[index];
        VelPatchExpectedPath& expected = m_model[GetTargetPathKey(operation.destinationPath)];
        expected.path = operation.destinationPath;
        expected.kind = kind;
        expected.checksum.Clear();
        expected.permissions = operation.destinationPermissions;
        expected.isTolerated = expected.isTolerated || operation.IsFailureIgnored();
        expected.operation = index;
        return expected;
    }

    void PutFile(size_t index) { Put(index, Kind::File).checksum = m_checksums[index]; }

    /// A move that states nothing copies its source, which an operation before may have made.
    CXString ChecksumOf(const PatchOperation& operation) const {
        if (operation.command != COMMAND_MOVE_FILE || !operation.destinationChecksum.IsEmpty()) {
            return operation.destinationChecksum;
        }
        if (!operation.sourceChecksum.IsEmpty()) {
            return operation.sourceChecksum;
        }
        const auto source = m_model.find(GetTargetPathKey(operation.sourcePath));
        return source != m_model.end() ? source->second.checksum : CXString();
    }

    void Delete(size_t index) {
        // All that the folder holds goes with it.
        const CXString inside = CXString::Format(
            "%s/", GetTargetPathKey(m_operations[index].destinationPath).GetData());
        for (auto entry = m_model.lower_bound(inside);
             entry != m_model.end() &&
             entry->first.View().substr(0, inside.GetLength()) == inside.View();
             ++entry) {
            entry->second.kind = Kind::Absent;
        }
        Put(index, Kind::Absent);
    }

    const std::vector<PatchOperation>& m_operations;
    std::vector<CXString> m_checksums; ///< of the files that they make
    std::vector<bool> m_isLate;        ///< its file is put in place at the end
    Model m_model;
};

} // namespace

CXString GetTargetPathKey(const CXString& path) {
    CXString normal = CXFileSystem::NormalisePath(path);
    if (!CXFileSystem::HasWindowsPaths()) {
        return normal;
    }
    CXStringEdit folded;
    AppendCaseFolded(folded, CXFileSystem::FromForeignPath(normal));
    return folded.ToString();
}

Model ModelTargetAfter(const std::vector<PatchOperation>& operations) {
    ModelMaker maker(operations);
    maker.RunOperations();
    maker.Finalise();
    return maker.Take();
}
