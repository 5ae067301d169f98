// The program's random numbers (xorshift128, Marsaglia 2003), for names, never for secrets.
#pragma once

#include <cstdint>

/// Seeds the generator's free word; done once at start-up (time in ms xor process id).
void SeedRandom(uint32_t word);
/// Next 32 bits. Any thread.
uint32_t RandomU32();
/// RandomU32() modulo `bound` (above 0).
uint32_t RandomBelow(uint32_t bound);
