#pragma once
// The 8-bit look-up table of palette (256-colour) displays: for every level
// 0..maxLevel a colour index 0..nColors-1, optionally passed through an index
// table (the system-palette slot of each palette colour).
#include <cstdint>

#include "thermokit/platform/CDC.h"
#include "thermokit/platform/CPalette.h"

namespace thermokit {

// Index-table method: selects palette into a memory context holding a 1x1
// compatible bitmap, realises it, draws PALETTEINDEX(i) at (0, 0) for every
// entry and reads the bitmap's byte back. Writes one byte per entry into out
// (room for 256) and returns the entry count (0 without palette). dc may be
// null: a context on the "DISPLAY" device is used.
int ReadPaletteIndices(CDC* dc, CPalette* palette, uint8_t* out);

class CLut {
public:
    // nColors is kept in a byte: 256 colours are stored as 0 and used as 256.
    CLut(unsigned short maxLevel, unsigned char nColors);
    virtual ~CLut();
    CLut(const CLut&) = delete;
    CLut& operator=(const CLut&) = delete;

    void Update(unsigned short min, unsigned short max);
    // As Update(min, max), each value passed through index (nColors entries).
    void Update(const uint8_t* index, unsigned short min, unsigned short max);
    // nColors = the palette's entry count; rebuilds the colour buffer by the
    // index-table method, then Update(colour buffer, min, max).
    void Update(CDC* dc, CPalette* palette, unsigned short min, unsigned short max);
    void Reset() { Update(m_nMinLut, m_nMaxLut); }
    void Reset(const uint8_t* index) { Update(index, m_nMinLut, m_nMaxLut); }
    void Reset(CDC* dc, CPalette* palette) { Update(dc, palette, m_nMinLut, m_nMaxLut); }

    uint8_t* GetBuffer() { return m_pBuffer; }
    const uint8_t* GetBuffer() const { return m_pBuffer; }
    uint8_t* GetColorBuffer() { return m_pColorBuffer; }
    unsigned short GetMaxLevel() const { return m_nMaxLevel; }
    unsigned char GetMaxColor() const { return m_nMaxColor; }
    unsigned short GetMinLut() const { return m_nMinLut; }
    unsigned short GetMaxLut() const { return m_nMaxLut; }

protected:
    // A min above maxLevel falls back to the default range; max is clamped to
    // maxLevel. Returns |max - min|.
    int Delta(unsigned short& min, unsigned short& max) const;
    int Colors() const { return m_nMaxColor ? m_nMaxColor : 256; }

    uint8_t* m_pBuffer = nullptr;
    uint8_t* m_pColorBuffer = nullptr;
    unsigned short m_nMinLut = 0;
    unsigned short m_nMaxLut = 0;
    unsigned short m_nMaxLevel = 0;
    unsigned char m_nMaxColor = 0;
};

}  // namespace thermokit
