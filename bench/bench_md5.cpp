// Our MD5 against OpenSSL's on one stream: the best of alternating rounds within one run.

#include "core/CXMD5.h"

#include <openssl/evp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr int kRounds = 15;
constexpr size_t kBytesPerRound = size_t{64} << 20;

using Digest = unsigned char[16];

double Seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void Ours(const std::vector<char>& piece, Digest& digest) {
    CXMD5 md5;
    for (size_t done = 0; done < kBytesPerRound; done += piece.size()) {
        md5.Update(piece.data(), piece.size());
    }
    md5.Finish(digest);
}

void Theirs(const std::vector<char>& piece, Digest& digest) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_md5(), nullptr);
    for (size_t done = 0; done < kBytesPerRound; done += piece.size()) {
        EVP_DigestUpdate(context, piece.data(), piece.size());
    }
    EVP_DigestFinal_ex(context, digest, nullptr);
    EVP_MD_CTX_free(context);
}

// Seconds of one round.
double Time(void (*run)(const std::vector<char>&, Digest&), const std::vector<char>& piece,
            Digest& digest) {
    const double start = Seconds();
    run(piece, digest);
    return Seconds() - start;
}

} // namespace

int main() {
    std::printf("%-12s %12s %12s %8s\n", "piece", "ours MB/s", "OpenSSL MB/s", "ratio");
    for (const size_t size : {size_t{64}, size_t{4096}, size_t{16384}, size_t{1} << 20}) {
        std::vector<char> piece(size);
        for (size_t index = 0; index < size; ++index) {
            piece[index] = static_cast<char>(index * 131 + index / 7);
        }
        double ours = 1e9;
        double theirs = 1e9;
        Digest a;
        Digest b;
        for (int round = 0; round < kRounds; ++round) {
            ours = std::min(ours, Time(Ours, piece, a));
            theirs = std::min(theirs, Time(Theirs, piece, b));
        }
        if (std::memcmp(a, b, sizeof(a)) != 0) {
            std::printf("the digests differ\n");
            return 1;
        }
        constexpr double kMegabytes = static_cast<double>(kBytesPerRound) / 1e6;
        std::printf("%-12zu %12.0f %12.0f %8.3f\n", size, kMegabytes / ours, kMegabytes / theirs,
                    ours / theirs);
    }
    return 0;
}
