#include "thermokit/display/CLut24.h"

#include <cmath>
#include <cstring>

namespace thermokit {

CLut24::CLut24(unsigned short maxLevel) : m_nMinLut(0), m_nMaxLut(maxLevel), m_nMaxLevel(maxLevel) {
    const size_t n = static_cast<size_t>(maxLevel) + 1;
    m_pBuffer = new uint32_t[n]();
    m_pWork = new uint32_t[n]();
}

CLut24::~CLut24() {
    delete[] m_pBuffer;
    delete[] m_pWork;
}

int CLut24::Delta(unsigned short& min, unsigned short& max) const {
    if (min >= m_nMaxLevel) min = m_nMaxLevel;
    if (max >= m_nMaxLevel) max = m_nMaxLevel;
    return static_cast<int>(max) - static_cast<int>(min);
}

int CLut24::ReadPalette(CPalette* palette, uint32_t* entries) {
    if (!palette) return 0;
    tagPALETTEENTRY raw[kMaxPaletteEntries];
    const int n = static_cast<int>(palette->GetPaletteEntries(0, kMaxPaletteEntries, raw));
    // Entries are copied byte for byte: the palettes store blue first, so the
    // value is a ready 32-bit pixel.
    std::memcpy(entries, raw, static_cast<size_t>(n) * 4);
    return n;
}

void CLut24::Update(CDC*, CPalette* palette, unsigned short min, unsigned short max) {
    if (!m_pBuffer) return;
    uint32_t pal[kMaxPaletteEntries];
    const int N = ReadPalette(palette, pal);
    if (N < 1) return;
    m_nMaxColor = N;
    Delta(min, max);
    const long lo = min, hi = max;

    for (long i = 0; i < lo; ++i) m_pBuffer[i] = pal[0];

    if (!m_bZero) {
        long span = hi - lo + 1;
        if (span < 1) span = 1;
        for (long i = lo; i <= hi; ++i) m_pBuffer[i] = pal[(i - lo) * N / span];
    } else {
        // The split point, never below min nor above max.
        long s = m_nZero;
        if (s <= lo) s = lo;
        if (s > hi) s = hi;
        if (s == lo) {
            // Empty lower part: the whole range goes to the upper half.
            const long span = hi - lo + 1;
            for (long i = lo; i <= hi; ++i) m_pBuffer[i] = pal[((i - lo) * N / span) / 2 + N / 2];
        } else {
            for (long i = lo; i <= s; ++i) m_pBuffer[i] = pal[((i - lo) * N / (s - lo + 1)) / 2];
            for (long i = s + 1; i <= hi; ++i) m_pBuffer[i] = pal[((i - s - 1) * N / (hi - s)) / 2 + N / 2];
        }
    }

    for (long i = hi + 1; i <= m_nMaxLevel; ++i) m_pBuffer[i] = pal[N - 1];
    ApplyIsotherm();
}

int CLut24::Update(CDC* dc, CPalette* palette, unsigned short min, unsigned short max, const long* histogram,
                   float alpha) {
    if (!m_pBuffer || !m_pWork || !palette || m_nMaxLevel == 0 || !histogram) return 0;
    if (std::isnan(alpha) || alpha < 0.0f || alpha > 1.0f) return 0;
    if (alpha == 0.0f || m_bZero || min == max) {
        Update(dc, palette, min, max);
        return 1;
    }
    Delta(min, max);
    if (min > max) return 0;
    uint32_t pal[kMaxPaletteEntries];
    const int N = ReadPalette(palette, pal);
    if (N < 1) return 0;
    m_nMaxColor = N;

    const size_t levels = static_cast<size_t>(m_nMaxLevel) + 1;
    for (size_t i = 0; i < levels; ++i) m_pWork[i] = static_cast<uint32_t>(histogram[i]);
    uint64_t total = 0;
    for (unsigned i = min; i <= max; ++i) total += m_pWork[i];
    if (total == 0) return 0;

    const uint64_t n = static_cast<uint64_t>(N);
    const uint64_t clip = (2 * total + 2) / n;
    uint64_t S = 0;
    for (unsigned i = min; i <= max; ++i) {
        if (m_pWork[i] > clip) m_pWork[i] = static_cast<uint32_t>(clip);
        S += m_pWork[i];
    }

    for (unsigned i = 0; i < min; ++i) m_pBuffer[i] = pal[0];
    const uint64_t a = static_cast<uint64_t>(static_cast<int>(alpha * 256.0f));
    // With min == max after clamping the linear term is 0 whatever the divisor.
    const uint64_t range = max > min ? static_cast<uint64_t>(max - min) : 1;
    uint64_t threshold = (S + 1) / n;
    uint64_t index = 0, cumulative = 0;
    for (unsigned i = min; i <= max; ++i) {
        cumulative += m_pWork[i];
        const uint64_t v = ((static_cast<uint64_t>(i - min) * S / range) * (256 - a) + cumulative * a) / 256;
        if (v >= threshold) {
            index = v * n / (S + 1);
            threshold = (index + 1) * (S + 1) / n;
        }
        m_pBuffer[i] = pal[index];
    }
    for (unsigned i = max; i <= m_nMaxLevel; ++i) m_pBuffer[i] = pal[N - 1];
    ApplyIsotherm();
    return 1;
}

void CLut24::ApplyIsotherm() {
    for (const Isotherm& iso : m_Isotherm) {
        if (!iso.enabled || iso.low > iso.high) continue;
        const unsigned high = iso.high > m_nMaxLevel ? m_nMaxLevel : iso.high;
        for (unsigned i = iso.low; i <= high; ++i) {
            uint8_t* entry = reinterpret_cast<uint8_t*>(m_pBuffer + i);
            entry[0] = GetBValue(iso.colour);
            entry[1] = GetGValue(iso.colour);
            entry[2] = GetRValue(iso.colour);
        }
    }
}

int CLut24::SetIsotherm(int index, int enabled, unsigned short low, unsigned short high, COLORREF colour) {
    if (index < 0 || index >= kIsotherms) return 0;
    Isotherm& iso = m_Isotherm[index];
    iso.enabled = enabled;
    iso.low = low > m_nMaxLevel ? 0 : low;
    iso.high = high > m_nMaxLevel ? m_nMaxLevel : high;
    iso.colour = colour;
    return 1;
}

int CLut24::GetIsotherm(int index, int* enabled, unsigned short* low, unsigned short* high, COLORREF* colour) const {
    const bool ok = index >= 0 && index < kIsotherms;
    const Isotherm iso = ok ? m_Isotherm[index] : Isotherm{};
    if (enabled) *enabled = iso.enabled;
    if (low) *low = iso.low;
    if (high) *high = iso.high;
    if (colour) *colour = iso.colour;
    return ok ? 1 : 0;
}

void CLut24::RemoveIsotherm(int index) {
    if (index >= 0 && index < kIsotherms) m_Isotherm[index] = Isotherm{};
}

int CLut24::SetZero(int enabled, unsigned short position) {
    if (position > m_nMaxLevel) return 0;
    m_bZero = enabled;
    m_nZero = position;
    return 1;
}

void CLut24::GetZero(int* enabled, unsigned short* position) const {
    if (enabled) *enabled = m_bZero;
    if (position) *position = m_nZero;
}

void CLut24::Copy(CLut24* src) {
    if (!src || src == this) return;
    const size_t n = static_cast<size_t>(src->m_nMaxLevel) + 1;
    if (src->m_nMaxLevel != m_nMaxLevel || !m_pBuffer) {
        delete[] m_pBuffer;
        delete[] m_pWork;
        m_pBuffer = new uint32_t[n]();
        m_pWork = new uint32_t[n]();
        m_nMaxLevel = src->m_nMaxLevel;
    }
    if (src->m_pBuffer) std::memcpy(m_pBuffer, src->m_pBuffer, n * sizeof(uint32_t));
    m_nMinLut = src->m_nMinLut;
    m_nMaxLut = src->m_nMaxLut;
    m_nMaxColor = src->m_nMaxColor;
    for (int k = 0; k < kIsotherms; ++k) m_Isotherm[k] = src->m_Isotherm[k];
    m_bZero = src->m_bZero;
    m_nZero = src->m_nZero;
}

}  // namespace thermokit
