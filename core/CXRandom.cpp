#include "core/CXRandom.h"

#include "core/CXLock.h"

namespace {

/// State words x, y, z, w; x is the one that start-up seeds.
struct Generator {
    CXCriticalSection section;
    uint32_t x = 2463534242U;
    uint32_t y = 362436069U;
    uint32_t z = 521288629U;
    uint32_t w = 88675123U;
};

/// Never destroyed, so that exit handlers may still make names.
Generator& TheGenerator() {
    static Generator* generator = new Generator;
    return *generator;
}

} // namespace

void SeedRandom(uint32_t word) {
    Generator& generator = TheGenerator();
    CXCriticalSectionGuard guard(generator.section);
    generator.x = word;
    generator.y = 362436069U;
    generator.z = 521288629U;
    generator.w = 88675123U;
}

uint32_t RandomU32() {
    Generator& generator = TheGenerator();
    CXCriticalSectionGuard guard(generator.section);
    const uint32_t t = generator.x ^ (generator.x << 11);
    generator.x = generator.y;
    generator.y = generator.z;
    generator.z = generator.w;
    generator.w = generator.w ^ (((generator.w >> 11) ^ t) >> 8) ^ t;
    return generator.w;
}

uint32_t RandomBelow(uint32_t bound) {
    return bound == 0 ? 0 : RandomU32() % bound;
}
