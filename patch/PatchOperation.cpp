#include "patch/PatchOperation.h"

#include "dn/DNValue.h"
#include "dn/DNValueRef.h"

namespace {

struct CommandWord {
    PatchCommand command;
    const char* word;
};

constexpr CommandWord kCommandWords[] = {
    {COMMAND_CREATE_FILE, "create-file"},     {COMMAND_DELETE_FILE, "delete-file"},
    {COMMAND_EDIT_FILE, "edit-file"},         {COMMAND_MOVE_FILE, "move-file"},
    {COMMAND_CREATE_FOLDER, "create-folder"}, {COMMAND_DELETE_FOLDER, "delete-folder"},
};

} // namespace

PatchCommand PatchCommandFromWord(absl::string_view word) {
    for (const CommandWord& entry : kCommandWords) {
        if (word == entry.word) {
            return entry.command;
        }
    }
    return COMMAND_NONE;
}

const char* PatchCommandWord(PatchCommand command) {
    for (const CommandWord& entry : kCommandWords) {
        if (command == entry.command) {
            return entry.word;
        }
    }
    return "";
}

bool ReadOperations(DNValue& tree, std::vector<PatchOperation>& list) {
    list.clear();
    const DNValueRef entries = tree.Get("patch-operations");
    const size_t count = entries->GetChildCount();
    for (size_t index = 0; index < count; ++index) {
        const DNValueRef entry = entries->ChildAt(index);
        const PatchCommand command = PatchCommandFromWord(entry->Get("command")->GetString());
        if (command == COMMAND_NONE) {
            continue; // an older program may meet a newer list and go on
        }
        PatchOperation& operation = list.emplace_back();
        operation.sourcePath = entry->Get("source-filepath")->GetString();
        operation.sourceChecksum = entry->Get("source-checksum")->GetString();
        operation.destinationPath = entry->Get("destination-filepath")->GetString();
        operation.destinationPermissions = entry->Get("destination-permissions")->GetString();
        operation.destinationChecksum = entry->Get("destination-checksum")->GetString();
        operation.command = command;
        operation.estimatedEffort = entry->Get("estimated-effort")->GetInt64();
        operation.flags = static_cast<uint32_t>(entry->Get("flags")->GetInt64());
    }
    return true;
}
