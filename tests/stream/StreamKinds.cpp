#include "tests/stream/StreamKinds.h"

#include "stream/CXStreamConcat.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamInflateAhead.h"
#include "stream/CXStreamMemoryCacheWrapper.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/CXStreamSubfile.h"
#include "stream/StreamProcessorZLib.h"
#include "tests/support/TempFolder.h"

#include <zlib.h>

Bytes Deflated(const Bytes& bytes, int level) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    Bytes out(size);
    compress2(out.data(), &size, bytes.data(), static_cast<uLong>(bytes.size()), level);
    out.resize(size);
    return out;
}

namespace {

std::string AsText(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}
Bytes FromText(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

class FileUnderTest : public StreamUnderTest {
public:
    FileUnderTest(const Bytes& bytes, uint32_t mode, uint64_t bufferSize = 0) {
        m_folder.WriteFile("file", AsText(bytes));
        m_file.Open(m_folder.Path("file"), mode);
        if (bufferSize != 0) {
            m_file.SetOption(kCXStreamOptionReadBuffer, bufferSize);
            m_file.SetOption(kCXStreamOptionWriteBuffer, bufferSize);
            m_file.SetOption(kCXStreamOptionOverlap, bufferSize * 2);
        }
    }
    CXStream& Get() override { return m_file; }
    Bytes Stored() override {
        // Another system's sharing rules may refuse a second opener.
        m_file.Close();
        return FromText(m_folder.ReadFile("file"));
    }

private:
    TempFolder m_folder;
    CXStreamFile m_file;
};

class StaticUnderTest : public StreamUnderTest {
public:
    StaticUnderTest(const Bytes& bytes, bool readOnly)
        : m_bytes(bytes), m_stream(m_bytes.data(), m_bytes.size(), readOnly) {}
    CXStream& Get() override { return m_stream; }
    Bytes Stored() override { return m_bytes; }

private:
    Bytes m_bytes;
    CXStreamStaticBuffer m_stream;
};

class DynamicUnderTest : public StreamUnderTest {
public:
    explicit DynamicUnderTest(const Bytes& bytes) {
        m_stream.Write(bytes.data(), bytes.size());
        m_stream.Seek(0, kCXSeekStart);
    }
    CXStream& Get() override { return m_stream; }
    Bytes Stored() override {
        const uint8_t* data = m_stream.GetData();
        return Bytes(data, data + m_stream.GetSize());
    }

private:
    CXStreamDynamicBuffer m_stream;
};

constexpr size_t kMargin = 777;

/// The bytes in the middle of a parent with others around them, which must stay as they are.
class SubfileUnderTest : public StreamUnderTest {
public:
    SubfileUnderTest(const Bytes& bytes, bool onFile) : m_size(bytes.size()) {
        Bytes whole = MakeBytes(kMargin, 71);
        whole.insert(whole.end(), bytes.begin(), bytes.end());
        const Bytes behind = MakeBytes(kMargin, 72);
        whole.insert(whole.end(), behind.begin(), behind.end());
        if (onFile) {
            m_parent = std::make_unique<FileUnderTest>(whole, kOpenRead | kOpenWrite);
        } else {
            m_parent = std::make_unique<DynamicUnderTest>(whole);
        }
        m_parent->Get().Seek(kMargin, kCXSeekStart);
        m_stream.Open(m_parent->Get(), kMargin, m_size);
    }
    CXStream& Get() override { return m_stream; }
    Bytes Stored() override {
        Bytes whole = m_parent->Stored();
        const Bytes before = MakeBytes(kMargin, 71);
        const Bytes behind = MakeBytes(kMargin, 72);
        if (whole.size() != m_size + 2 * kMargin ||
            !std::equal(before.begin(), before.end(), whole.begin()) ||
            !std::equal(behind.begin(), behind.end(), whole.end() - kMargin)) {
            return FromText("bytes around the window were changed");
        }
        return Bytes(whole.begin() + kMargin, whole.end() - kMargin);
    }

private:
    size_t m_size;
    std::unique_ptr<StreamUnderTest> m_parent;
    CXStreamSubfile m_stream;
};

std::unique_ptr<CXStream> OwnBuffer(const Bytes& bytes, size_t from, size_t to, size_t lead) {
    auto part = std::make_unique<CXStreamDynamicBuffer>();
    const Bytes front = MakeBytes(lead, 73);
    part->Write(front.data(), front.size());
    part->Write(bytes.data() + from, to - from);
    part->Seek(static_cast<int64_t>(lead), kCXSeekStart);
    return part;
}

class ConcatUnderTest : public StreamUnderTest {
public:
    explicit ConcatUnderTest(const Bytes& bytes) {
        const size_t size = bytes.size();
        const size_t cuts[] = {0, size / 7, size / 7, size / 2, size};
        for (size_t i = 0; i + 1 < std::size(cuts); ++i) {
            m_stream.Append(OwnBuffer(bytes, cuts[i], cuts[i + 1], i * 10));
        }
    }
    CXStream& Get() override { return m_stream; }

private:
    CXStreamConcat m_stream;
};

class InflateUnderTest : public StreamUnderTest {
public:
    InflateUnderTest(const Bytes& bytes, bool ahead)
        : m_deflated(Deflated(bytes)), m_source(m_deflated.data(), m_deflated.size()) {
        if (ahead) {
            m_stream = std::make_unique<CXStreamInflateAhead>(m_inflater, m_source);
        } else {
            m_stream = std::make_unique<CXStreamProcessorWrapper>(m_inflater, &m_source, nullptr);
        }
    }
    CXStream& Get() override { return *m_stream; }

private:
    Bytes m_deflated;
    CXStreamStaticBuffer m_source;
    StreamProcessorZLibDecompress m_inflater;
    std::unique_ptr<CXStream> m_stream;
};

/// A stream of unknown size that can't seek, which owns all it needs.
class ForwardOnly : public CXStream {
public:
    explicit ForwardOnly(const Bytes& bytes) : m_inner(bytes, false) {
        m_flags = kCXStreamReadable | kCXStreamIsOpen;
    }
    uint64_t BufferedRead(void* data, uint64_t count) override {
        const uint64_t got = m_inner.Get().Read(data, count);
        m_windowOffset += got;
        if (got < count) {
            MarkEnd();
        }
        return got;
    }
    void Close() override { m_flags &= ~kCXStreamIsOpen; }

private:
    InflateUnderTest m_inner;
};

class MemoryCacheUnderTest : public StreamUnderTest {
public:
    MemoryCacheUnderTest(const Bytes& bytes, bool sizeKnown)
        : m_stream(sizeKnown ? OwnBuffer(bytes, 0, bytes.size(), 0)
                             : std::make_unique<ForwardOnly>(bytes)) {}
    CXStream& Get() override { return m_stream; }

private:
    CXStreamMemoryCacheWrapper m_stream;
};

template <typename T, typename... Args>
std::function<std::unique_ptr<StreamUnderTest>(const Bytes&)> Maker(Args... args) {
    return [args...](const Bytes& bytes) { return std::make_unique<T>(bytes, args...); };
}

} // namespace

const std::vector<StreamKind>& AllStreamKinds() {
    constexpr uint32_t kWrite = kOpenWrite;
    static const std::vector<StreamKind> kinds = {
        {.name = "FileForReading",
         .make = Maker<FileUnderTest>(kOpenRead),
         .flags = 0x1BD,
         .pastEnd = PastEnd::Kept},
        {.name = "FileForWriting",
         .make = Maker<FileUnderTest>(kWrite),
         .flags = 0x1BF,
         .writes = true,
         .grows = true,
         .resizes = true,
         .pastEnd = PastEnd::Kept,
         .sizeMovesToEnd = true},
        {.name = "FileWithTinyBuffers",
         .make = Maker<FileUnderTest>(kWrite, static_cast<uint64_t>(7)),
         .flags = 0x1BF,
         .writes = true,
         .grows = true,
         .resizes = true,
         .pastEnd = PastEnd::Kept,
         .sizeMovesToEnd = true},
        {.name = "StaticReadOnly", .make = Maker<StaticUnderTest>(true), .flags = 0x19D},
        {.name = "StaticWritable",
         .make = Maker<StaticUnderTest>(false),
         .flags = 0x19F,
         .writes = true},
        {.name = "Dynamic",
         .make = Maker<DynamicUnderTest>(),
         .flags = 0x19F,
         .writes = true,
         .grows = true,
         .resizes = true,
         .pastEnd = PastEnd::Kept,
         .keepsCutBytes = true},
        {.name = "SubfileOfFile",
         .make = Maker<SubfileUnderTest>(true),
         .flags = 0x11F,
         .writes = true,
         .pastEnd = PastEnd::Kept,
         .closedIsAlreadyOpen = true},
        {.name = "SubfileOfMemory",
         .make = Maker<SubfileUnderTest>(false),
         .flags = 0x11F,
         .writes = true,
         .pastEnd = PastEnd::Kept,
         .closedIsAlreadyOpen = true},
        {.name = "Concat",
         .make = Maker<ConcatUnderTest>(),
         .flags = 0x155,
         .pastEnd = PastEnd::Refused},
        {.name = "Inflating",
         .make = Maker<InflateUnderTest>(false),
         .flags = 0x111,
         .seeks = false,
         .sizeKnown = false},
        {.name = "InflatingAhead",
         .make = Maker<InflateUnderTest>(true),
         .flags = 0x111,
         .seeks = false,
         .sizeKnown = false},
        {.name = "MemoryCache", .make = Maker<MemoryCacheUnderTest>(true), .flags = 0x19D},
        {.name = "MemoryCacheOfForwardOnly",
         .make = Maker<MemoryCacheUnderTest>(false),
         .flags = 0x199,
         .sizeKnown = false},
    };
    return kinds;
}
