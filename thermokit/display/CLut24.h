#pragma once
// True-colour look-up table: for every level 0..maxLevel one 32-bit pixel
// (bytes blue, green, red, flags) taken from a palette, with an optional zero
// split of the palette, three isotherm overlays and a histogram-equalising update.
#include <cstdint>

#include "thermokit/platform/CDC.h"
#include "thermokit/platform/COLORREF.h"
#include "thermokit/platform/CPalette.h"

namespace thermokit {

class CLut24 {
public:
    static constexpr int kIsotherms = 3;

    explicit CLut24(unsigned short maxLevel);
    virtual ~CLut24();
    CLut24(const CLut24&) = delete;
    CLut24& operator=(const CLut24&) = delete;

    // Maps [min, max] onto the palette's entries (dc is not needed and may be null).
    void Update(CDC* dc, CPalette* palette, unsigned short min, unsigned short max);
    // Histogram equalisation blended with the linear ramp by alpha (0..1).
    // Returns 0 (table unchanged) when the arguments are unusable.
    int Update(CDC* dc, CPalette* palette, unsigned short min, unsigned short max, const long* histogram, float alpha);
    void Reset(CDC* dc, CPalette* palette) { Update(dc, palette, m_nMinLut, m_nMaxLut); }

    int SetIsotherm(int index, int enabled, unsigned short low, unsigned short high, COLORREF colour);
    int GetIsotherm(int index, int* enabled, unsigned short* low, unsigned short* high, COLORREF* colour) const;
    void RemoveIsotherm(int index);
    int SetZero(int enabled, unsigned short position);
    void GetZero(int* enabled, unsigned short* position) const;
    void RemoveZero() {
        m_bZero = 0;
        m_nZero = 0;
    }
    // Takes src's entries (reallocating when the maxLevels differ), isotherms and zero split.
    void Copy(CLut24* src);

    uint32_t* GetBuffer() { return m_pBuffer; }
    const uint32_t* GetBuffer() const { return m_pBuffer; }
    unsigned short GetMaxLevel() const { return m_nMaxLevel; }
    // Entry count of the palette of the last update (256 before any).
    int GetMaxColor() const { return m_nMaxColor; }
    unsigned short GetMinLut() const { return m_nMinLut; }
    unsigned short GetMaxLut() const { return m_nMaxLut; }

protected:
    struct Isotherm {
        int enabled = 0;
        unsigned short low = 0;
        unsigned short high = 0;
        COLORREF colour = 0;
    };

    // Clamps min and max to maxLevel; returns max - min (negative when min > max).
    int Delta(unsigned short& min, unsigned short& max) const;
    void ApplyIsotherm();
    // Reads the palette's entries as 32-bit values; returns the count (0: unusable).
    int ReadPalette(CPalette* palette, uint32_t* entries);

    uint32_t* m_pBuffer = nullptr;
    uint32_t* m_pWork = nullptr;
    unsigned short m_nMinLut = 0;
    unsigned short m_nMaxLut = 0;
    unsigned short m_nMaxLevel = 0;
    int m_nMaxColor = 256;
    Isotherm m_Isotherm[kIsotherms];
    int m_bZero = 0;
    unsigned short m_nZero = 0;
};

}  // namespace thermokit
