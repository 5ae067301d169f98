#include "kit/VelPatchTargetModel.h"

#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"

namespace {

using Kind = VelPatchExpectedPath::Kind;
using Model = std::map<CXString, VelPatchExpectedPath>;

class ModelMaker {
public:
    void Apply(const PatchOperation& operation, size_t index) {
        switch (operation.command) {
        case COMMAND_CREATE_FILE:
        case COMMAND_EDIT_FILE:
            PutFile(operation, index, operation.destinationChecksum);
            break;
        case COMMAND_MOVE_FILE:
            PutFile(operation, index, ChecksumOfMove(operation));
            break;
        case COMMAND_DELETE_FILE:
        case COMMAND_DELETE_FOLDER:
            Delete(operation, index);
            break;
        case COMMAND_CREATE_FOLDER:
            Put(operation, index, Kind::Folder);
            break;
        case COMMAND_NONE:
            break;
        }
    }

    Model Take() { return std::move(m_model); }

private:
    VelPatchExpectedPath& Put(const PatchOperation& operation, size_t index, Kind kind) {
        const CXString key = GetTargetPathKey(operation.destinationPath);
        // What is made under a deleted folder brings it back.
        for (CXString parent = CXFileSystem::GetParent(key); !parent.IsEmpty();
             parent = CXFileSystem::GetParent(parent)) {
            const auto found = m_model.find(parent);
            if (found != m_model.end() && found->second.kind == Kind::Absent) {
                found->second.kind = Kind::Folder;
            }
        }
        VelPatchExpectedPath& expected = m_model[key];
        expected.path = operation.destinationPath;
        expected.kind = kind;
        expected.checksum.Clear();
        if (kind == Kind::Absent || !operation.destinationPermissions.IsEmpty()) {
            expected.permissions = operation.destinationPermissions;
        }
        expected.isTolerated = expected.isTolerated || operation.IsFailureIgnored();
        expected.operation = index;
        return expected;
    }

    void PutFile(const PatchOperation& operation, size_t index, const CXString& checksum) {
        VelPatchExpectedPath& expected = Put(operation, index, Kind::File);
        expected.checksum = checksum;
        expected.permissions = operation.destinationPermissions;
    }

    /// A move that states nothing copies its source, which another operation may have made.
    CXString ChecksumOfMove(const PatchOperation& operation) const {
        if (!operation.destinationChecksum.IsEmpty()) {
            return operation.destinationChecksum;
        }
        if (!operation.sourceChecksum.IsEmpty()) {
            return operation.sourceChecksum;
        }
        const auto source = m_model.find(GetTargetPathKey(operation.sourcePath));
        return source != m_model.end() ? source->second.checksum : CXString();
    }

    void Delete(const PatchOperation& operation, size_t index) {
        // All that the folder held goes with it.
        const CXString inside =
            CXString::Format("%s/", GetTargetPathKey(operation.destinationPath).GetData());
        auto entry = m_model.lower_bound(inside);
        while (entry != m_model.end() &&
               entry->first.View().substr(0, inside.GetLength()) == inside.View()) {
            entry->second.kind = Kind::Absent;
            ++entry;
        }
        Put(operation, index, Kind::Absent);
    }

    Model m_model;
};

} // namespace

CXString GetTargetPathKey(const CXString& path) {
    const CXString normal = CXFileSystem::NormalisePath(path);
    if (!CXFileSystem::HasWindowsPaths()) {
        return normal;
    }
    CXStringEdit folded;
    AppendCaseFolded(folded, CXFileSystem::FromForeignPath(normal));
    return folded.ToString();
}

Model ModelTargetAfter(const std::vector<PatchOperation>& operations) {
    ModelMaker maker;
    // Folders are made before anything is deleted, wherever they stand in the list.
    for (size_t i = 0; i < operations.size(); i++) {
        if (operations[i].command == COMMAND_CREATE_FOLDER) {
            maker.Apply(operations[i], i);
        }
    }
    for (size_t i = 0; i < operations.size(); i++) {
        if (operations[i].command != COMMAND_CREATE_FOLDER) {
            maker.Apply(operations[i], i);
        }
    }
    return maker.Take();
}
