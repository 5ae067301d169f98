#include "kit/VelPatchVolumeSet.h"

#include "core/CXFileSystem.h"
#include "kit/VelPatchResultText.h"
#include "patch/PatchVolumes.h"
#include "stream/CXStreamConcat.h"
#include "stream/CXStreamFile.h"

#include <algorithm>

namespace {

/// Bytes in front of the payload in a set without identifier: four words, the identifier's length
/// byte and the payload's size.
constexpr uint64_t kHeaderSize = 4 * 4 + 1 + 8;

constexpr uint64_t kReadBuffer = 65536;

bool StartsAsVolume(const CXString& path) {
    CXStreamFile file;
    uint32_t magic = 0;
    file.Open(path, kOpenRead);
    return file.IsOpen() && file.ReadU32(magic) && magic == kPatchVolumeMagic;
}

/// Opens a volume and leaves it at its payload; null with the reason in `problem`.
std::unique_ptr<CXStreamFile> OpenVolume(const CXString& path, uint32_t index, uint32_t count,
                                         PatchVolumeHeader& header, CXString& problem) {
    auto file = std::make_unique<CXStreamFile>();
    file->SetOption(kCXStreamOptionReadBuffer, kReadBuffer);
    file->Open(path, kOpenRead);
    if (!file->IsOpen()) {
        problem = CXString::Format("the volume '%s' can't be read: %s", path.GetData(),
                                   ResultText(file->GetLastError()));
        return nullptr;
    }
    const CXResult read = ReadVolumeHeader(*file, CXString(), header);
    if (read != kCXResultOK) {
        problem = CXString::Format(read == kCXResultUnusable
                                       ? "'%s' is a volume of a version that isn't known"
                                       : "'%s' is no volume of this kind of set",
                                   path.GetData());
    } else if (header.index != index) {
        problem = CXString::Format("'%s' says that it is volume %d of its set", path.GetData(),
                                   static_cast<int64_t>(header.index) + 1);
    } else if (index != 0 && header.count != count) {
        problem = CXString::Format("'%s' belongs to a set of %d volumes, the first one to one of "
                                   "%d",
                                   path.GetData(), header.count, count);
    } else if (header.count > kMostVolumes) {
        problem = CXString::Format("'%s' belongs to a set of %d volumes; at most %d are read",
                                   path.GetData(), header.count, kMostVolumes);
    } else if (header.payloadSize != file->GetRemaining()) {
        problem = CXString::Format("'%s' should hold %d bytes behind its header and holds %d",
                                   path.GetData(), header.payloadSize, file->GetRemaining());
    } else {
        return file;
    }
    return nullptr;
}

CXString TemporaryName(const CXString& path) {
    return CXString::Format("%s.tmp", path.GetData());
}

/// Writes volumes under temporary names, and takes them back unless they are published.
class VolumeWriter {
public:
    VolumeWriter(CXStream& data, uint64_t volumeSize, std::vector<CXString>& paths)
        : m_data(data), m_size(data.GetSize()), m_room(volumeSize - kHeaderSize), m_paths(paths) {}
    ~VolumeWriter() {
        for (size_t i = m_published; i < m_written; i++) {
            CXFileSystem::DeleteFile(TemporaryName(m_paths[i]));
        }
    }
    VolumeWriter(const VolumeWriter&) = delete;
    VolumeWriter& operator=(const VolumeWriter&) = delete;

    CXResult Write(const VelPatchVolumeProgress& progress, CXString& problem) {
        for (size_t i = 0; i < m_paths.size(); i++) {
            const CXResult result = WriteOne(static_cast<uint32_t>(i), progress);
            if (result != kCXResultOK) {
                problem = result == kCXResultCancelled
                              ? CXString("stopped")
                              : CXString::Format("'%s' can't be written: %s", m_paths[i].GetData(),
                                                 ResultText(result));
                return result;
            }
        }
        for (; m_published < m_paths.size(); m_published++) {
            const CXString& path = m_paths[m_published];
            const CXResult result = CXFileSystem::ReplaceWithBackup(path, TemporaryName(path));
            if (result != kCXResultOK) {
                problem = CXString::Format("'%s' can't be put in place: %s", path.GetData(),
                                           ResultText(result));
                return result;
            }
        }
        return kCXResultOK;
    }

private:
    CXResult WriteOne(uint32_t index, const VelPatchVolumeProgress& progress) {
        CXStreamFile file;
        file.Open(TemporaryName(m_paths[index]),
                  kOpenRead | kOpenWrite | kOpenCreate | kOpenTruncate);
        if (!file.IsOpen()) {
            return CXResultCertainFailure(file.GetLastError());
        }
        m_written++;
        const uint64_t start = m_data.GetPosition();
        const PatchVolumeHeader header = {index, static_cast<uint32_t>(m_paths.size()),
                                          std::min(m_size - start, m_room)};
        WriteVolumeHeader(file, CXString(), header);
        CXStreamCopyOptions options;
        options.progress = [&](const CXStreamProgressCallbackData& now) {
            return progress(static_cast<double>(start + now.bytesDone) /
                            static_cast<double>(std::max<uint64_t>(m_size, 1)));
        };
        const CXResult copied = CXStream::Copy(file, m_data, header.payloadSize, &options);
        file.Flush();
        file.Close();
        return copied != kCXResultOK ? copied : file.GetLastError();
    }

    CXStream& m_data;
    const uint64_t m_size;
    const uint64_t m_room; ///< payload bytes of a full volume
    const std::vector<CXString>& m_paths;
    size_t m_written = 0;
    size_t m_published = 0;
};

} // namespace

bool IsVolumeSet(const CXString& path) {
    return CXFileSystem::IsDirectory(path) || StartsAsVolume(path);
}

const CXString& VelPatchDataFile::FindPlace(uint64_t offset, uint64_t& offsetInPiece) const {
    const Piece* found = pieces.data();
    for (const Piece& piece : pieces) {
        if (piece.start <= offset) {
            found = &piece;
        }
    }
    offsetInPiece = offset - found->start + found->header;
    return found->path;
}

VelPatchDataFile OpenDataFile(const CXString& path, CXString& problem) {
    VelPatchDataFile data;
    if (!IsVolumeSet(path)) {
        auto file = std::make_unique<CXStreamFile>();
        file->SetOption(kCXStreamOptionReadBuffer, kReadBuffer);
        file->Open(path, kOpenRead);
        if (!file->IsOpen()) {
            problem = CXString::Format("'%s' can't be read: %s", path.GetData(),
                                       ResultText(file->GetLastError()));
            return data;
        }
        data.pieces.push_back({path, 0, 0});
        data.stream = std::move(file);
        return data;
    }
    const CXString folder = CXFileSystem::IsDirectory(path) ? path : CXFileSystem::GetParent(path);
    auto whole = std::make_unique<CXStreamConcat>();
    PatchVolumeHeader header;
    header.count = 1;
    uint64_t start = 0;
    for (uint32_t index = 0, count = 1; index < count; index++, count = header.count) {
        const CXString name = CXFileSystem::Join(folder, GetVolumeName(index));
        std::unique_ptr<CXStreamFile> volume = OpenVolume(name, index, count, header, problem);
        if (!volume) {
            return data;
        }
        data.pieces.push_back({name, start, volume->GetPosition()});
        start += header.payloadSize;
        whole->Append(std::move(volume));
    }
    data.stream = std::move(whole);
    return data;
}

CXResult SplitDataFile(const CXString& dataPath, const CXString& folder, uint64_t volumeSize,
                       const VelPatchVolumeProgress& progress, std::vector<CXString>& volumes,
                       CXString& problem) {
    CXStreamFile data;
    data.SetOption(kCXStreamOptionReadBuffer, kReadBuffer);
    data.Open(dataPath, kOpenRead);
    if (!data.IsOpen() || CXFileSystem::IsDirectory(dataPath)) {
        problem = CXString::Format("'%s' can't be read", dataPath.GetData());
        return kCXResultNotFound;
    }
    if (StartsAsVolume(dataPath)) {
        problem = CXString::Format("'%s' is a volume already", dataPath.GetData());
        return kCXResultInvalidArgument;
    }
    if (volumeSize <= kHeaderSize) {
        problem = CXString::Format("a volume takes at least %d bytes", kHeaderSize + 1);
        return kCXResultInvalidArgument;
    }
    const uint64_t room = volumeSize - kHeaderSize;
    const uint64_t count = std::max<uint64_t>(1, (data.GetSize() + room - 1) / room);
    if (count > kMostVolumes) {
        problem = CXString::Format("that would make %d volumes; at most %d are written", count,
                                   kMostVolumes);
        return kCXResultInvalidArgument;
    }
    const CXString next = CXFileSystem::Join(folder, GetVolumeName(static_cast<uint32_t>(count)));
    if (CXFileSystem::Exists(next)) {
        problem = CXString::Format("'%s' is in the way: this set ends before it", next.GetData());
        return kCXResultAlreadyExists;
    }
    const bool wasThere = CXFileSystem::Exists(folder);
    const CXResult made = CXFileSystem::CreateDirectories(folder);
    if (made != kCXResultOK) {
        problem = CXString::Format("the folder '%s' can't be made: %s", folder.GetData(),
                                   ResultText(made));
        return made;
    }
    volumes.clear();
    for (uint32_t index = 0; index < count; index++) {
        volumes.push_back(CXFileSystem::Join(folder, GetVolumeName(index)));
    }
    const CXResult result = VolumeWriter(data, volumeSize, volumes).Write(progress, problem);
    if (result != kCXResultOK && !wasThere) {
        CXFileSystem::DeleteDirectory(folder);
    }
    return result;
}
