// Patches written operation by operation, for tests of what reads them.
#pragma once

#include "app/config/VelPatchConfiguration.h"
#include "core/CXMD5.h"
#include "kit/VelPatchControlWriter.h"
#include "net/CXURI.h"
#include "patch/PatchControl.h"
#include "tests/support/TempFolder.h"

#include <zlib.h>

#include <string>
#include <vector>

inline std::string HashOf(const std::string& bytes) {
    return CXMD5::OfBlock(bytes.data(), bytes.size()).GetData();
}

inline std::string BigEndian(uint64_t value, int bytes) {
    std::string text;
    for (int i = bytes - 1; i >= 0; i--) {
        text += static_cast<char>(value >> (8 * i));
    }
    return text;
}

inline std::string Deflated(const std::string& bytes) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::string out(size, '\0');
    compress2(reinterpret_cast<Bytef*>(out.data()), &size,
              reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()), 9);
    out.resize(size);
    return out;
}

/// The list of operations and the inflated data stream that goes with it.
class HandMadePatch {
public:
    HandMadePatch& Add(PatchCommand command, const std::string& path,
                       const std::string& source = {}, const std::string& checksum = {},
                       uint32_t flags = 0) {
        PatchOperation operation;
        operation.command = command;
        operation.destinationPath = path.c_str();
        operation.sourcePath = source.c_str();
        operation.destinationChecksum = checksum.c_str();
        operation.flags = flags;
        operation.estimatedEffort = 1000;
        operations.push_back(operation);
        return *this;
    }
    HandMadePatch& Create(const std::string& path, const std::string& contents,
                          const std::string& source = {}, uint32_t flags = 0) {
        records += BigEndian(contents.size(), 8) + contents + "\x20" + HashOf(contents);
        return Add(COMMAND_CREATE_FILE, path, source, HashOf(contents), flags);
    }
    HandMadePatch& Edit(const std::string& path, const std::string& source, const std::string& diff,
                        const std::string& result) {
        records += BigEndian(diff.size(), 8) + diff + "\x20" + HashOf(result);
        return Add(COMMAND_EDIT_FILE, path, source, HashOf(result));
    }

    PatchControl GetControl() const {
        PatchControl control;
        control.operations = operations;
        return control;
    }
    /// Writes "control.txt" and "data.bin".
    void Write(const TempFolder& folder) const {
        const std::string data = Deflated(records);
        folder.WriteFile("data.bin", data);
        WriteControlFile(folder.Path("control.txt"), operations, static_cast<int64_t>(data.size()),
                         HashOf(data).c_str());
    }

    std::vector<PatchOperation> operations;
    std::string records;
};
