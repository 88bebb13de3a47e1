#include "thermokit/simulation/CSimRandom.h"

#include <cmath>
#include <initializer_list>

namespace thermokit {

namespace {
inline uint64_t Rotl(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }
}  // namespace

uint64_t CSimRandom::SplitMix64(uint64_t& state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

uint64_t CSimRandom::Derive(uint64_t seed, uint64_t a, uint64_t b, uint64_t c) {
    uint64_t s = seed;
    uint64_t h = SplitMix64(s);
    for (uint64_t v : {a, b, c}) {
        s = h ^ (v * 0xD1B54A32D192ED03ull);
        h = SplitMix64(s);
    }
    return h;
}

void CSimRandom::Seed(uint64_t seed) {
    uint64_t s = seed;
    for (auto& w : m_s) w = SplitMix64(s);
    if ((m_s[0] | m_s[1] | m_s[2] | m_s[3]) == 0) m_s[0] = 1;
    m_bSpare = false;
}

uint64_t CSimRandom::Next() {
    const uint64_t result = Rotl(m_s[1] * 5, 7) * 9;
    const uint64_t t = m_s[1] << 17;
    m_s[2] ^= m_s[0];
    m_s[3] ^= m_s[1];
    m_s[1] ^= m_s[2];
    m_s[0] ^= m_s[3];
    m_s[2] ^= t;
    m_s[3] = Rotl(m_s[3], 45);
    return result;
}

uint64_t CSimRandom::Below(uint64_t n) {
    const uint64_t k = static_cast<uint64_t>(Uniform() * static_cast<double>(n));
    return k < n ? k : n - 1;
}

double CSimRandom::Normal() {
    if (m_bSpare) {
        m_bSpare = false;
        return m_dSpare;
    }
    // 1 - Uniform() lies in (0, 1], so the logarithm is finite.
    const double u1 = 1.0 - Uniform();
    const double u2 = Uniform();
    const double r = std::sqrt(-2.0 * std::log(u1));
    const double a = 6.283185307179586 * u2;
    m_dSpare = r * std::sin(a);
    m_bSpare = true;
    return r * std::cos(a);
}

}  // namespace thermokit
