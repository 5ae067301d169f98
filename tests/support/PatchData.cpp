#include "tests/support/PatchData.h"

#include "core/CXMD5.h"

#include <zlib.h>

#include <algorithm>
#include <utility>

namespace {

std::string Quoted(const std::string& text) {
    std::string out = "\"";
    for (const char byte : text) {
        out += byte == '"' ? std::string("\"\"") : std::string(1, byte);
    }
    return out + "\"";
}

} // namespace

std::string MD5Of(const std::string& bytes) {
    return CXMD5::OfBlock(bytes.data(), bytes.size()).GetData();
}

std::string BigEndian(uint64_t value, int bytes) {
    std::string out;
    for (int i = bytes - 1; i >= 0; --i) {
        out += static_cast<char>(value >> (8 * i));
    }
    return out;
}

std::string StreamString(const std::string& text) {
    return (text.size() < 255 ? BigEndian(text.size(), 1) : "\xFF" + BigEndian(text.size(), 4)) +
           text;
}

std::string Deflated(const std::string& bytes) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::string out(size, '\0');
    compress(reinterpret_cast<Bytef*>(out.data()), &size,
             reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()));
    out.resize(size);
    return out;
}

TestOperation CreateFileOp(const std::string& path, const std::string& contents) {
    return {"create-file", "", path, contents, MD5Of(contents)};
}

TestOperation ReplaceFileOp(const std::string& path, const std::string& contents, uint32_t flags,
                            const std::string& sourceChecksum) {
    TestOperation operation = CreateFileOp(path, contents);
    operation.source = path;
    operation.flags = flags;
    operation.sourceChecksum = sourceChecksum;
    return operation;
}

std::string SimpleDiff(const std::string& oldContents, const std::string& newContents) {
    const size_t shorter = std::min(oldContents.size(), newContents.size());
    size_t front = 0;
    while (front < shorter && oldContents[front] == newContents[front]) {
        ++front;
    }
    size_t back = 0;
    while (back < shorter - front && oldContents[oldContents.size() - 1 - back] ==
                                         newContents[newContents.size() - 1 - back]) {
        ++back;
    }
    const size_t oldMiddle = oldContents.size() - front - back;
    const size_t newMiddle = newContents.size() - front - back;
    return "\x01" + BigEndian(front, 4) + std::string(1, '\0') + BigEndian(oldMiddle, 4) +
           BigEndian(newMiddle, 4) + newContents.substr(front, newMiddle) + "\x01" +
           BigEndian(back, 4);
}

TestOperation EditOp(const std::string& source, const std::string& destination,
                     const std::string& oldContents, const std::string& newContents) {
    const std::string checksum = MD5Of(newContents);
    return {
        "edit-file",        source,  destination, SimpleDiff(oldContents, newContents), checksum,
        MD5Of(oldContents), checksum};
}

TestOperation MoveOp(const std::string& source, const std::string& destination,
                     const std::string& contents) {
    return {"move-file", source, destination, "", "", MD5Of(contents), MD5Of(contents)};
}

TestOperation DeleteFileOp(const std::string& path) {
    return {"delete-file", "", path};
}

TestOperation CreateFolderOp(const std::string& path) {
    return {"create-folder", "", path};
}

TestOperation DeleteFolderOp(const std::string& path) {
    return {"delete-folder", "", path};
}

std::string RecordsOf(const std::vector<TestOperation>& operations) {
    std::string out;
    for (const TestOperation& operation : operations) {
        if (operation.command == "create-file" || operation.command == "edit-file") {
            out += BigEndian(operation.record.size(), 8) + operation.record +
                   StreamString(operation.recordChecksum);
        }
    }
    return out;
}

std::string ControlTextOf(const std::vector<TestOperation>& operations,
                          const std::string& extraKeys) {
    std::string out = "velpatch-version 1\n" + extraKeys + "patch-operations\n{\n";
    for (size_t i = 0; i < operations.size(); ++i) {
        const TestOperation& operation = operations[i];
        out += "op" + std::to_string(i) + "\n{\ncommand " + Quoted(operation.command) + "\n";
        const std::pair<const char*, std::string> texts[] = {
            {"source-filepath", operation.source},
            {"source-checksum", operation.sourceChecksum},
            {"destination-filepath", operation.destination},
            {"destination-checksum", operation.destinationChecksum},
            {"destination-permissions", operation.permissions},
        };
        for (const auto& [key, value] : texts) {
            if (!value.empty()) {
                out += std::string(key) + " " + Quoted(value) + "\n";
            }
        }
        out += "estimated-effort " + std::to_string(operation.effort) + "\nflags " +
               std::to_string(operation.flags) + "\n}\n";
    }
    return out + "}\n";
}
