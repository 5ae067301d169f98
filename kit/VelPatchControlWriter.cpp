#include "kit/VelPatchControlWriter.h"

#include "core/CXStringEdit.h"
#include "stream/CXStreamFile.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace {

constexpr int kFormatVersion = 1;
// The work of small operations is stated in sum at the last of them, so that most need not say a
// number: a step of the progress is one part in so many of the whole, and no shorter than what a
// run does in a moment.
constexpr int64_t kEffortSteps = 256;
constexpr int64_t kLeastEffort = 1 << 19;

constexpr absl::string_view kPlain("#-+./@()");

bool IsLetter(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_';
}

/// Whether the reader takes the text as it stands for itself: no other syntax, no number or list.
bool IsBare(absl::string_view text) {
    return !text.empty() && IsLetter(text[0]) &&
           std::all_of(text.begin(), text.end(), [](char byte) {
               return IsLetter(byte) || (byte >= '0' && byte <= '9') ||
                      kPlain.find(byte) != absl::string_view::npos;
           });
}

/// Writes the text form with nothing in it that the reader doesn't need: it is fetched whole before
/// anything else happens, and most of a small patch is its control file.
class ControlText {
public:
    void Put(const char* key, absl::string_view text) {
        m_text.Append(key);
        m_text.AppendByte(' ');
        if (IsBare(text)) {
            m_text.Append(text);
        } else {
            m_text.AppendByte('"');
            for (const char byte : text) {
                m_text.AppendByte(byte);
                if (byte == '"') {
                    m_text.AppendByte('"');
                }
            }
            m_text.AppendByte('"');
        }
        m_text.AppendByte('\n');
    }
    void PutUnlessEmpty(const char* key, const CXString& text) {
        if (!text.IsEmpty()) {
            Put(key, text.View());
        }
    }
    /// 32 hexadecimal digits are a text to the reader even if all of them are decimal ones.
    void PutChecksum(const char* key, const CXString& checksum) {
        if (!checksum.IsEmpty()) {
            m_text.AppendFormat("%s %s\n", key, checksum.GetData());
        }
    }
    void PutNumber(const char* key, int64_t number) { m_text.AppendFormat("%s %d\n", key, number); }
    void Open(absl::string_view key) {
        m_text.Append(key);
        m_text.Append(" {");
    }
    void Close() { m_text.Append("}\n"); }
    const CXStringEdit& GetText() const { return m_text; }

private:
    CXStringEdit m_text;
};

/// A short key for each entry: the list only asks that no two are the same.
CXString KeyOf(size_t index) {
    constexpr absl::string_view kDigits =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    CXStringEdit key;
    do {
        key.AppendByte(kDigits[index % kDigits.size()]);
        index /= kDigits.size();
    } while (index > 0);
    return key.ToString();
}

void WriteOperation(ControlText& text, const PatchOperation& operation) {
    text.Put("command", PatchCommandWord(operation.command));
    text.PutUnlessEmpty("source-filepath", operation.sourcePath);
    text.PutChecksum("source-checksum", operation.sourceChecksum);
    text.PutUnlessEmpty("destination-filepath", operation.destinationPath);
    text.PutUnlessEmpty("destination-permissions", operation.destinationPermissions);
    text.PutChecksum("destination-checksum", operation.destinationChecksum);
    if (operation.estimatedEffort != 0) {
        text.PutNumber("estimated-effort", operation.estimatedEffort);
    }
    if (operation.flags != 0) {
        text.PutNumber("flags", operation.flags);
    }
}

/// Moves efforts to later operations of the same kind. Two sums stay: that of the moves, of whose
/// size nothing else in a patch tells, and that of the others.
void GatherEfforts(std::vector<PatchOperation>& operations) {
    struct Kind {
        int64_t gathered = 0;
        PatchOperation* last = nullptr;
    };
    Kind kinds[2];
    const auto kindOf = [&kinds](const PatchOperation& operation) -> Kind& {
        return kinds[operation.command == COMMAND_MOVE_FILE ? 1 : 0];
    };
    int64_t total = 0;
    for (PatchOperation& operation : operations) {
        total += operation.estimatedEffort;
        if (operation.estimatedEffort != 0) {
            kindOf(operation).last = &operation;
        }
    }
    const int64_t least = std::max(total / kEffortSteps, kLeastEffort);
    for (PatchOperation& operation : operations) {
        Kind& kind = kindOf(operation);
        kind.gathered += operation.estimatedEffort;
        const bool isStated = kind.gathered >= least || &operation == kind.last;
        operation.estimatedEffort = isStated ? std::exchange(kind.gathered, 0) : 0;
    }
}

} // namespace

CXResult WriteControlFile(const CXString& path, std::vector<PatchOperation> operations,
                          int64_t dataSize, const CXString& dataChecksum) {
    GatherEfforts(operations);
    ControlText text;
    text.PutNumber("velpatch-version", kFormatVersion);
    text.PutNumber("datafilesize", dataSize);
    text.PutChecksum("datafilechecksum", dataChecksum);
    text.Open("patch-operations");
    for (size_t i = 0; i < operations.size(); i++) {
        text.Open(KeyOf(i).View());
        WriteOperation(text, operations[i]);
        text.Close();
    }
    text.Close();
    CXStreamFile file;
    file.Open(path, kOpenRead | kOpenWrite | kOpenCreate | kOpenTruncate);
    if (!file.IsOpen()) {
        return CXResultCertainFailure(file.GetLastError());
    }
    file.Write(text.GetText().GetData(), text.GetText().GetLength());
    file.Flush();
    file.Close();
    return file.GetLastError();
}
