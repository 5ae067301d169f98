// The registry edits of a configuration: what a run writes, and how an uninstall takes it back, as
// lists of operations. No call of the system is made here.
#pragma once

#include "core/CXString.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

class DNValue;

/// The hives, by the numbers that the system knows them by.
enum class VelPatchRegistryRoot : uint32_t {
    None = 0,
    ClassesRoot = 0x80000000,
    CurrentUser = 0x80000001,
    LocalMachine = 0x80000002,
    Users = 0x80000003,
    CurrentConfig = 0x80000005,
};

/// The name of a hive in the configuration ("HKLM"); empty for none.
const char* RegistryRootName(VelPatchRegistryRoot root);

/// One entry of `registry-edits` as it is written, nothing expanded.
struct VelPatchRegistryEdit {
    CXString root;
    CXString path;
    CXString name;
    CXString type;
    CXString value;

    VelPatchRegistryRoot GetRoot() const; ///< None if empty or unknown
    /// The value's name is a number that must be found: the edit adds to a list in its key.
    bool IsNumbered() const;
};

enum class VelPatchRegistryAction : uint8_t { SetString, SetNumber, DeleteValue, DeleteKey };

/// One change to the registry. A failed one doesn't stop those that follow.
struct VelPatchRegistryOperation {
    VelPatchRegistryAction action = VelPatchRegistryAction::SetString;
    VelPatchRegistryRoot root = VelPatchRegistryRoot::None;
    CXString path;      ///< of the key, "\" as separator; keys are made as needed
    CXString name;      ///< of the value; empty in a setting: the key's default value
    CXString data;      ///< of a string, or of the numbered value that is meant
    int32_t number = 0; ///< of a number
    /// `name` is empty and found in the key by FindRegistryValueName, with `data`; a setting may
    /// take a free number. None found: the operation is left out.
    bool isNumbered = false;
};

/// Values by upper-case name, for ExpandVariables.
using VelPatchRegistryVariables = std::map<CXString, CXString>;

/// The variables of a target (program path) with the size of all its files in bytes.
VelPatchRegistryVariables MakeRegistryVariables(const CXString& target, const CXString& anchorFile,
                                                const CXString& installationId,
                                                uint64_t installedBytes);
/// "%s-%s" of the installation id and a digest of the target's spelling: the name under which a
/// target's uninstall entry stands. Two spellings of one folder give two names.
CXString RegistryKeyOfTarget(const CXString& installationId, const CXString& target);

/// The entries of the list, in order.
std::vector<VelPatchRegistryEdit> ReadRegistryEdits(const DNValue& list);

/// What a run does, in order. An uninstall visits the entries backwards and turns each into a
/// deletion; it never reaches the first one. Entries that can't be used are left out.
std::vector<VelPatchRegistryOperation>
ListRegistryOperations(const std::vector<VelPatchRegistryEdit>& edits,
                       const VelPatchRegistryVariables& variables, bool uninstall);

/// A text value of a key.
struct VelPatchRegistryValue {
    CXString name;
    CXString data;
};
/// The name of the value with these data among a key's text values; else, if one may be
/// allocated, the first free number from 1 up; empty for none.
CXString FindRegistryValueName(const std::vector<VelPatchRegistryValue>& values,
                               const CXString& data, bool allocate);

/// Something in the list that does less, or more, than was meant.
struct VelPatchRegistryFault {
    size_t entry = 0;     ///< index in the list
    const char* key = ""; ///< "root", "path", ...; empty: the entry as a whole
    bool isError = true;  ///< false: it works, but perhaps not as meant
    CXString text;        ///< in plain words
};
std::vector<VelPatchRegistryFault>
CheckRegistryEdits(const std::vector<VelPatchRegistryEdit>& edits);
