// Streams against what the system offers: small reads and writes against stdio, inflating against
// zlib itself, the digest of a file against OpenSSL's. Ratios are taken within one run.
//
// bench_streams [folder] [MiB]: files go to the folder (default: the temporary folder).

#include "core/CXFileSystem.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamInflateAhead.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/CXStreamSubfile.h"
#include "stream/CXStreamTools.h"
#include "stream/StreamProcessorZLib.h"

#include <openssl/evp.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace {

/// Processor time of all threads in seconds, the system's part included: steadier than the wall
/// clock on a machine that does other things as well.
double Now() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Best of some runs, in seconds: the least disturbed one.
template <typename Work> double Best(Work work) {
    double best = 1e9;
    for (int run = 0; run < 7; ++run) {
        const double start = Now();
        work();
        best = std::min(best, Now() - start);
    }
    return best;
}

void Report(const char* what, double bytes, double ours, double theirs, const char* other) {
    std::printf("%-44s %8.0f MB/s   %-14s %8.0f MB/s   time ratio %.2f\n", what, bytes / ours / 1e6,
                other, bytes / theirs / 1e6, ours / theirs);
}

/// Bytes like those of programs: runs, repeated phrases, noise.
std::vector<uint8_t> MakeData(size_t size) {
    std::vector<uint8_t> data(size);
    uint32_t state = 12345;
    for (size_t i = 0; i < size;) {
        state = state * 1664525U + 1013904223U;
        const size_t run = std::min<size_t>(size - i, 4 + (state >> 27));
        if ((state >> 8) % 3 == 0 || i < 70000) {
            for (size_t k = 0; k < run; ++k) {
                state = state * 1664525U + 1013904223U;
                data[i + k] = static_cast<uint8_t>((state >> 24) & 0x7F);
            }
        } else {
            const size_t back = 1 + (state >> 9) % 60000;
            for (size_t k = 0; k < run; ++k) {
                data[i + k] = data[i + k - std::min(back, i + k)];
            }
        }
        i += run;
    }
    return data;
}

volatile uint64_t s_sink;

void BenchSmall(const CXString& path, size_t size) {
    const uint64_t count = size / 4;
    const double ourWrite = Best([&] {
        CXStreamFile file;
        file.Open(path, kOpenWrite | kOpenCreate | kOpenTruncate);
        for (uint64_t i = 0; i < count; ++i) {
            file.WriteU32(static_cast<uint32_t>(i));
        }
    });
    const double theirWrite = Best([&] {
        std::FILE* file = std::fopen(path.GetData(), "wb");
        for (uint64_t i = 0; i < count; ++i) {
            const uint32_t value = __builtin_bswap32(static_cast<uint32_t>(i));
            std::fwrite(&value, 4, 1, file);
        }
        std::fclose(file);
    });
    Report("file, WriteU32", static_cast<double>(size), ourWrite, theirWrite, "fwrite");
    const double ourRead = Best([&] {
        CXStreamFile file;
        file.Open(path, kOpenRead);
        uint64_t sum = 0;
        uint32_t value = 0;
        for (uint64_t i = 0; i < count; ++i) {
            file.ReadU32(value);
            sum += value;
        }
        s_sink = sum;
    });
    const double theirRead = Best([&] {
        std::FILE* file = std::fopen(path.GetData(), "rb");
        uint64_t sum = 0;
        uint32_t value = 0;
        for (uint64_t i = 0; i < count && std::fread(&value, 4, 1, file) == 1; ++i) {
            sum += __builtin_bswap32(value);
        }
        std::fclose(file);
        s_sink = sum;
    });
    Report("file, ReadU32", static_cast<double>(size), ourRead, theirRead, "fread");
    const double ourBytes = Best([&] {
        CXStreamFile file;
        file.Open(path, kOpenRead);
        uint64_t sum = 0;
        uint8_t value = 0;
        while (file.ReadU8(value)) {
            sum += value;
        }
        s_sink = sum;
    });
    const double theirBytes = Best([&] {
        std::FILE* file = std::fopen(path.GetData(), "rb");
        uint64_t sum = 0;
        for (int value = 0; (value = std::fgetc(file)) != EOF;) {
            sum += static_cast<uint64_t>(value);
        }
        std::fclose(file);
        s_sink = sum;
    });
    Report("file, ReadU8", static_cast<double>(size), ourBytes, theirBytes, "fgetc");
}

void BenchCopy(const CXString& from, const CXString& to, size_t size) {
    const double ours = Best([&] {
        CXStreamFile source;
        source.Open(from, kOpenRead);
        CXStreamFile destination;
        destination.Open(to, kOpenWrite | kOpenCreate | kOpenTruncate);
        CXStream::Copy(destination, source, size);
    });
    const double theirs = Best([&] {
        std::FILE* source = std::fopen(from.GetData(), "rb");
        std::FILE* destination = std::fopen(to.GetData(), "wb");
        char piece[16384];
        for (size_t got = 0; (got = std::fread(piece, 1, sizeof(piece), source)) != 0;) {
            std::fwrite(piece, 1, got, destination);
        }
        std::fclose(source);
        std::fclose(destination);
    });
    Report("Copy of a file, 16 KiB pieces", static_cast<double>(size), ours, theirs, "stdio");
}

void BenchInflate(const std::vector<uint8_t>& data, const CXString& path) {
    uLongf packedSize = compressBound(static_cast<uLong>(data.size()));
    std::vector<uint8_t> packed(packedSize);
    compress2(packed.data(), &packedSize, data.data(), static_cast<uLong>(data.size()), 6);
    packed.resize(packedSize);
    {
        CXStreamFile file;
        file.Open(path, kOpenWrite | kOpenCreate | kOpenTruncate);
        file.Write(packed.data(), packed.size());
    }
    std::vector<uint8_t> out(16384);
    const double plain = Best([&] {
        z_stream zlib = {};
        inflateInit(&zlib);
        zlib.next_in = packed.data();
        zlib.avail_in = static_cast<uInt>(packed.size());
        int code = Z_OK;
        while (code == Z_OK) {
            zlib.next_out = out.data();
            zlib.avail_out = static_cast<uInt>(out.size());
            code = inflate(&zlib, Z_NO_FLUSH);
        }
        inflateEnd(&zlib);
    });
    // The same with input and output areas of 4,096 bytes, the processors' own.
    const double areas = Best([&] {
        z_stream zlib = {};
        inflateInit(&zlib);
        int code = Z_OK;
        for (size_t at = 0; code == Z_OK;) {
            if (zlib.avail_in == 0) {
                const size_t part = std::min<size_t>(4096, packed.size() - at);
                zlib.next_in = packed.data() + at;
                zlib.avail_in = static_cast<uInt>(part);
                at += part;
            }
            zlib.next_out = out.data();
            zlib.avail_out = 4096;
            code = inflate(&zlib, Z_NO_FLUSH);
        }
        inflateEnd(&zlib);
    });
    const double bytes = static_cast<double>(data.size());
    Report("zlib itself by areas of 4,096 bytes", bytes, areas, plain, "inflate");
    for (const uint64_t piece : {64U, 1000U, 4096U, 16384U}) {
        const double ours = Best([&] {
            CXStreamFile file;
            file.Open(path, kOpenRead);
            StreamProcessorZLibDecompress inflater;
            CXStreamProcessorWrapper stream(inflater, &file, nullptr);
            while (stream.Read(out.data(), piece) == piece) {
            }
        });
        char what[64];
        std::snprintf(what, sizeof(what), "inflating a file, reads of %u bytes",
                      static_cast<unsigned>(piece));
        Report(what, bytes, ours, plain, "inflate");
    }
    const double window = Best([&] {
        CXStreamFile file;
        file.Open(path, kOpenRead);
        StreamProcessorZLibDecompress inflater;
        CXStreamInflateAhead stream(inflater, file);
        CXStreamSubfile record;
        record.Open(stream, 0, data.size());
        CXStreamStaticBuffer nowhere(out.data(), 0, false, out.size());
        for (uint64_t left = data.size(); left > 0;) {
            const uint64_t wanted = std::min<uint64_t>(left, out.size());
            nowhere.Seek(0, kCXSeekStart);
            CXStream::Copy(nowhere, record, wanted);
            left -= wanted;
        }
    });
    Report("inflating ahead through a window, Copy", bytes, window, plain, "inflate");
}

void BenchDigest(const CXString& path, size_t size) {
    const double ours = Best([&] {
        CXStreamFile file;
        file.Open(path, kOpenRead);
        s_sink = MD5OfStream(file, file.GetSize()).GetLength();
    });
    const double theirs = Best([&] {
        std::FILE* file = std::fopen(path.GetData(), "rb");
        std::setvbuf(file, nullptr, _IONBF, 0);
        EVP_MD_CTX* context = EVP_MD_CTX_new();
        EVP_DigestInit_ex(context, EVP_md5(), nullptr);
        unsigned char piece[32768];
        for (size_t got = 0; (got = std::fread(piece, 1, sizeof(piece), file)) != 0;) {
            EVP_DigestUpdate(context, piece, got);
        }
        unsigned char digest[16];
        EVP_DigestFinal_ex(context, digest, nullptr);
        EVP_MD_CTX_free(context);
        std::fclose(file);
    });
    Report("MD5OfStream of a file", static_cast<double>(size), ours, theirs, "OpenSSL");
}

} // namespace

int main(int argc, char** argv) {
    const CXString folder = argc > 1 ? CXString(argv[1]) : CXFileSystem::GetTempPath();
    const size_t size = (argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 64) << 20;
    const CXString path = CXFileSystem::Join(folder, "velpatch-bench-streams");
    const CXString copy = CXFileSystem::Join(folder, "velpatch-bench-streams-copy");
    const std::vector<uint8_t> data = MakeData(size);
    BenchSmall(path, size);
    {
        CXStreamFile file;
        file.Open(path, kOpenWrite | kOpenCreate | kOpenTruncate);
        file.Write(data.data(), data.size());
    }
    BenchCopy(path, copy, size);
    BenchDigest(path, size);
    BenchInflate(data, copy);
    CXFileSystem::DeleteFile(path);
    CXFileSystem::DeleteFile(copy);
    return 0;
}
