#include "core/CXMD5.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

CXString Md5(const std::string& text) {
    return CXMD5::OfBlock(text.data(), text.size());
}

TEST(MD5, KnownDigests) {
    const struct {
        std::string text;
        const char* digest;
    } rows[] = {
        // The suite of RFC 1321.
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        // Lengths about the place of the length field (from md5sum).
        {std::string(55, 'x'), "04364420e25c512fd958a70738aa8f72"},
        {std::string(56, 'x'), "668a72d5ba17f08e62dabcafad6db14b"},
        {std::string(64, 'x'), "c1bb4f81d892b2d57947682aeb252456"},
        {std::string(1000000, 'x'), "ec78dbd963d2fc01e51176ed4dec299e"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Md5(row.text), row.digest) << row.text.size() << " bytes";
    }
    EXPECT_EQ(CXMD5::OfBlock(nullptr, 0), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(MD5, PiecesOfAnySizeGiveTheSameDigest) {
    std::minstd_rand random(7);
    std::string text(5000, 0);
    for (char& byte : text) {
        byte = static_cast<char>(random());
    }
    for (size_t length = 0; length < 200; ++length) {
        const CXString whole = Md5(text.substr(0, length));
        CXMD5 pieces;
        for (size_t at = 0; at < length;) {
            const size_t count = std::min<size_t>(random() % 70, length - at);
            pieces.Update(text.data() + at, count); // unaligned, sometimes nothing
            at += count;
        }
        EXPECT_EQ(pieces.FinishHex(), whole) << length;
    }
    CXMD5 halves;
    halves.Update(text.data(), 63);
    halves.Update(text.data() + 63, text.size() - 63);
    EXPECT_EQ(halves.FinishHex(), Md5(text));
}

} // namespace
