#pragma once
// The simulator's own random numbers: xoshiro256** seeded through
// splitmix64, and normal deviates by the Box-Muller transform written out
// here. The standard library's distributions are not used on purpose: their
// output may change between library versions, and a simulated film must come
// out byte for byte the same from the same seed everywhere.
#include <cstdint>

namespace thermokit {

class CSimRandom {
public:
    explicit CSimRandom(uint64_t seed = 0) { Seed(seed); }

    // The four state words from splitmix64(seed); never all zero.
    void Seed(uint64_t seed);
    // A seed for an independent stream, mixed from a seed and up to three indices.
    static uint64_t Derive(uint64_t seed, uint64_t a, uint64_t b = 0, uint64_t c = 0);
    static uint64_t SplitMix64(uint64_t& state);

    uint64_t Next();
    // Uniform in [0, 1), 53 bits.
    double Uniform() { return static_cast<double>(Next() >> 11) * 0x1.0p-53; }
    // Uniform integer in [0, n) (n > 0), from Uniform().
    uint64_t Below(uint64_t n);
    // Standard normal deviate (mean 0, standard deviation 1).
    double Normal();

private:
    uint64_t m_s[4] = {0, 0, 0, 0};
    double m_dSpare = 0.0;
    bool m_bSpare = false;
};

}  // namespace thermokit
