#include "thermokit/platform/CPalette.h"

#include <cstring>

namespace thermokit {

int CPalette::CreatePalette(const tagLOGPALETTE* logPalette) {
    if (!logPalette || logPalette->palNumEntries == 0) return 0;
    const unsigned count = logPalette->palNumEntries > kMaxPaletteEntries ? kMaxPaletteEntries
                                                                          : logPalette->palNumEntries;
    std::memset(&m_palette, 0, sizeof(m_palette));
    m_palette.palVersion = logPalette->palVersion;
    m_palette.palNumEntries = static_cast<uint16_t>(count);
    std::memcpy(m_palette.palPalEntry, logPalette->palPalEntry, count * sizeof(tagPALETTEENTRY));
    m_created = true;
    return 1;
}

void CPalette::DeleteObject() {
    std::memset(&m_palette, 0, sizeof(m_palette));
    m_created = false;
}

unsigned CPalette::GetPaletteEntries(unsigned start, unsigned count, tagPALETTEENTRY* entries) const {
    const unsigned n = static_cast<unsigned>(GetEntryCount());
    if (!entries || start >= n) return 0;
    if (count > n - start) count = n - start;
    std::memcpy(entries, m_palette.palPalEntry + start, count * sizeof(tagPALETTEENTRY));
    return count;
}

unsigned CPalette::SetPaletteEntries(unsigned start, unsigned count, const tagPALETTEENTRY* entries) {
    const unsigned n = static_cast<unsigned>(GetEntryCount());
    if (!entries || start >= n) return 0;
    if (count > n - start) count = n - start;
    std::memcpy(m_palette.palPalEntry + start, entries, count * sizeof(tagPALETTEENTRY));
    return count;
}

int CPalette::GetNearestPaletteIndex(uint32_t colour) const {
    const int n = GetEntryCount();
    int best = -1;
    long bestDistance = 0;
    const int r = static_cast<int>(colour & 0xFF), g = static_cast<int>((colour >> 8) & 0xFF),
              b = static_cast<int>((colour >> 16) & 0xFF);
    for (int i = 0; i < n; ++i) {
        const tagPALETTEENTRY& e = m_palette.palPalEntry[i];
        const long dr = e.peRed - r, dg = e.peGreen - g, db = e.peBlue - b;
        const long d = dr * dr + dg * dg + db * db;
        if (best < 0 || d < bestDistance) {
            best = i;
            bestDistance = d;
        }
    }
    return best;
}

}  // namespace thermokit
