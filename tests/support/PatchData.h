// Patches written operation by operation: the control file's text and the data that go with it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// One operation of a patch under test, with its data record if it has one.
struct TestOperation {
    std::string command;
    std::string source;
    std::string destination;
    std::string record = {};         ///< payload or diff
    std::string recordChecksum = {}; ///< as stated in the record
    std::string sourceChecksum = {};
    std::string destinationChecksum = {};
    std::string permissions = {};
    uint32_t flags = 0;
    int64_t effort = 100;

    /// A copy with another value in one member.
    template <typename T, typename Value>
    TestOperation With(T TestOperation::*member, const Value& value) const {
        TestOperation changed = *this;
        changed.*member = static_cast<T>(value);
        return changed;
    }
};

std::string MD5Of(const std::string& bytes);
std::string BigEndian(uint64_t value, int bytes);
std::string StreamString(const std::string& text);
std::string Deflated(const std::string& bytes);

TestOperation CreateFileOp(const std::string& path, const std::string& contents);
/// A create-file operation whose source is its destination, with these flags.
TestOperation ReplaceFileOp(const std::string& path, const std::string& contents, uint32_t flags,
                            const std::string& sourceChecksum = {});
/// A diff that keeps the common front and back of both contents.
std::string SimpleDiff(const std::string& oldContents, const std::string& newContents);
TestOperation EditOp(const std::string& source, const std::string& destination,
                     const std::string& oldContents, const std::string& newContents);
TestOperation MoveOp(const std::string& source, const std::string& destination,
                     const std::string& contents);
TestOperation DeleteFileOp(const std::string& path);
TestOperation CreateFolderOp(const std::string& path);
TestOperation DeleteFolderOp(const std::string& path);

/// The inflated data stream of a list, and the control file's text.
std::string RecordsOf(const std::vector<TestOperation>& operations);
std::string ControlTextOf(const std::vector<TestOperation>& operations,
                          const std::string& extraKeys = {});
