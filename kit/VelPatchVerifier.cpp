#include "kit/VelPatchVerifier.h"

#include "core/CXFileSystem.h"
#include "kit/VelPatchParallel.h"
#include "kit/VelPatchResultText.h"
#include "kit/VelPatchTargetModel.h"
#include "patch/FileChecksum.h"
#include "patch/PatchPaths.h"
#include "patch/PreflightRules.h"

#include <algorithm>
#include <atomic>
#include <map>

namespace {

using Kind = VelPatchExpectedPath::Kind;

/// Why the player's program would refuse the target, in the studio's words.
CXString Explain(const PreflightFinding& finding) {
    switch (finding.fault) {
    case PreflightFault::None:
        return CXString();
    case PreflightFault::LeadsOutside:
        return CXString::Format("a link leads out of the target at '%s'", finding.path.GetData());
    case PreflightFault::PlainFileUnexpected:
        return "a file is where a folder must be";
    case PreflightFault::FolderUnexpected:
        return "a folder is where a file must be";
    case PreflightFault::SourceUnreadable:
        return CXFileSystem::Exists(finding.path)
                   ? CXString::Format("the source '%s' can't be read", finding.path.GetData())
                   : CXString::Format("the source '%s' is missing", finding.path.GetData());
    case PreflightFault::SourceDiffers:
        return CXString::Format("the source '%s' has the checksum %s, wanted is %s",
                                finding.path.GetData(), finding.found.GetData(),
                                finding.expected.GetData());
    case PreflightFault::Occupied:
        return "something is here already";
    case PreflightFault::OccupiedDiffers:
        return "another file is here already";
    }
    return CXString();
}

/// Walks the list as a run does and tells what only shows then. Looks whether files exist, no more.
class RunModel {
public:
    explicit RunModel(const CXString& target) : m_target(target) {}

    /// Empty if the operation finds what it needs.
    CXString Apply(const PatchOperation& operation) {
        const CXString key = GetTargetPathKey(operation.destinationPath);
        if (operation.command == COMMAND_DELETE_FOLDER) {
            if (Exists(operation.destinationPath) || IsAnyMadeIn(key)) {
                m_deletedFolders.push_back(key);
            }
            return CXString();
        }
        if (operation.command == COMMAND_CREATE_FOLDER) {
            m_made.emplace(key, CXString());
            return CXString();
        }
        if (operation.command == COMMAND_DELETE_FILE || operation.command == COMMAND_NONE) {
            return CXString();
        }
        const bool isThere = Exists(operation.destinationPath);
        const auto made = m_made.find(key);
        CXString problem = operation.command == COMMAND_CREATE_FILE
                               ? CheckCreate(operation, isThere, made != m_made.end())
                               : CheckChange(operation, isThere, made);
        if (!isThere && made == m_made.end()) {
            m_made[key] = operation.destinationChecksum;
        } else if (problem.IsEmpty() && IsReplacing(operation) && IsInDeletedFolder(key)) {
            problem = "an operation before deletes the folder that it lies in";
        }
        return problem;
    }

private:
    using Made = std::map<CXString, CXString>;

    bool Exists(const CXString& path) const {
        return CXFileSystem::Exists(CXFileSystem::Join(m_target, path));
    }

    static bool IsInPlace(const PatchOperation& operation) {
        return operation.destinationPath == operation.sourcePath;
    }

    /// With something at the destination: new contents are put in place at the end of the run.
    static bool IsReplacing(const PatchOperation& operation) {
        return operation.MayReplace() ||
               (operation.command != COMMAND_CREATE_FILE && IsInPlace(operation));
    }

    bool IsAnyMadeIn(const CXString& folder) const {
        return std::any_of(m_made.begin(), m_made.end(), [&folder](const auto& entry) {
            return CXFileSystem::IsWithin(folder, entry.first);
        });
    }

    bool IsInDeletedFolder(const CXString& key) const {
        return std::any_of(m_deletedFolders.begin(), m_deletedFolders.end(),
                           [&key](const CXString& folder) {
                               return CXFileSystem::IsWithin(folder, CXFileSystem::GetParent(key));
                           });
    }

    static CXString CheckCreate(const PatchOperation& operation, bool isThere, bool isMade) {
        if (operation.MayReplace() || !(isThere || isMade)) {
            return CXString();
        }
        return isThere ? "a file is here already, and the operation may not replace it"
                       : "an operation before makes this file too";
    }

    CXString CheckChange(const PatchOperation& operation, bool isThere,
                         Made::const_iterator made) const {
        if (operation.sourcePath.IsEmpty()) {
            return "the operation names no source";
        }
        const bool isMade = !isThere && made != m_made.end();
        if ((isThere || isMade) && !IsReplacing(operation)) {
            // The checks have seen to what is there.
            const bool isDone = isThere || (!operation.destinationChecksum.IsEmpty() &&
                                            made->second == operation.destinationChecksum);
            return isDone
                       ? CXString()
                       : CXString("an operation before makes this file too, with other contents");
        }
        if (!Exists(operation.sourcePath) &&
            m_made.count(GetTargetPathKey(operation.sourcePath)) == 0) {
            return CXString::Format("the source '%s' is missing, and no operation before makes it",
                                    operation.sourcePath.GetData());
        }
        return CXString();
    }

    const CXString& m_target;
    Made m_made; ///< what the run makes at free paths: key and checksum, if stated
    std::vector<CXString> m_deletedFolders; ///< keys, so far
};

CXString CheckFile(const VelPatchExpectedPath& expected, const CXString& path) {
    CXFileAttributes attributes;
    const CXResult looked = CXFileSystem::GetAttributes(path, true, attributes);
    if (looked == kCXResultNotFound) {
        return "is missing";
    }
    if (looked != kCXResultOK) {
        return CXString::Format("can't be looked at: %s", ResultText(looked));
    }
    const bool wantsFolder = expected.kind == Kind::Folder;
    if (attributes.isDirectory != wantsFolder) {
        return wantsFolder ? "is a file and should be a folder"
                           : "is a folder and should be a file";
    }
    CXString found;
    if (!wantsFolder && !expected.checksum.IsEmpty()) {
        const CXResult read = MD5OfFile(path, found);
        if (read != kCXResultOK) {
            return CXString::Format("can't be read: %s", ResultText(read));
        }
        if (found != expected.checksum) {
            return CXString::Format("has the checksum %s, wanted is %s", found.GetData(),
                                    expected.checksum.GetData());
        }
    }
    uint32_t mode = 0;
    if (attributes.mode != 0 && CXFileSystem::ParsePosixPermissions(expected.permissions, mode) &&
        attributes.mode != mode) {
        return CXString::Format("has the permissions %04o, wanted are %04o", attributes.mode, mode);
    }
    return CXString();
}

} // namespace

VelPatchVerifier::VelPatchVerifier(const PatchControl& control, const CXString& targetFolder)
    : m_control(control), m_target(targetFolder), m_workers(GetProcessorCount()) {}

bool VelPatchVerifier::IsAnyWrong() const {
    for (const VelPatchMismatch& mismatch : m_mismatches) {
        if (!mismatch.isTolerated) {
            return true;
        }
    }
    return false;
}

bool VelPatchVerifier::CheckBefore() {
    const std::vector<PatchOperation>& operations = m_control.operations;
    std::vector<int64_t> weights;
    std::vector<CXString> problems;
    RunModel model(m_target);
    for (const PatchOperation& operation : operations) {
        weights.push_back(GetCheckWeight(operation));
        problems.push_back(model.Apply(operation));
    }
    return Run(weights, [&](size_t index) {
        CXString why = Explain(CheckOperationInTarget(m_target, operations[index]));
        // The checks of the player's program ask for everything, whatever flags an operation has.
        const bool isTolerated = why.IsEmpty() && operations[index].IsFailureIgnored();
        return VelPatchMismatch{operations[index].destinationPath,
                                why.IsEmpty() ? problems[index] : why, isTolerated};
    });
}

bool VelPatchVerifier::CheckAfter() {
    std::vector<VelPatchExpectedPath> paths;
    for (const auto& [key, expected] : ModelTargetAfter(m_control.operations)) {
        paths.push_back(expected);
    }
    VelPatchExpectedPath leftOver;
    leftOver.path = kPatchTemporaryFolder;
    leftOver.isTolerated = true; // a backup that couldn't be deleted is no failure of a run
    leftOver.operation = m_control.operations.size();
    paths.push_back(leftOver);
    std::stable_sort(paths.begin(), paths.end(),
                     [](const auto& a, const auto& b) { return a.operation < b.operation; });
    std::vector<int64_t> weights;
    for (const VelPatchExpectedPath& expected : paths) {
        weights.push_back(expected.kind == Kind::File
                              ? GetCheckWeight(m_control.operations[expected.operation])
                              : 1);
    }
    return Run(weights, [&](size_t index) {
        const VelPatchExpectedPath& expected = paths[index];
        const CXString path = CXFileSystem::Join(m_target, expected.path);
        CXString why;
        if (expected.kind != Kind::Absent) {
            why = CheckFile(expected, path);
        } else if (CXFileSystem::Exists(path)) {
            why = "is still there";
        }
        return VelPatchMismatch{expected.path, why, expected.isTolerated};
    });
}

bool VelPatchVerifier::Run(const std::vector<int64_t>& weights,
                           const std::function<VelPatchMismatch(size_t)>& check) {
    m_mismatches.clear();
    m_checked = 0;
    std::vector<VelPatchMismatch> findings(weights.size());
    double total = 0;
    for (const int64_t weight : weights) {
        total += static_cast<double>(weight);
    }
    std::atomic<int64_t> done{0};
    const bool isWhole = RunParallel(
        weights.size(), m_workers,
        [&](size_t index) {
            findings[index] = check(index);
            done.fetch_add(weights[index], std::memory_order_relaxed);
        },
        [&](size_t) {
            return !m_progress || m_progress(static_cast<double>(done.load()) / total);
        });
    for (const VelPatchMismatch& finding : findings) {
        if (!finding.why.IsEmpty()) {
            m_mismatches.push_back(finding);
        }
    }
    m_checked = weights.size();
    return isWhole;
}
