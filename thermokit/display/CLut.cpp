#include "thermokit/display/CLut.h"

#include <cstdlib>
#include <cstring>

#include "thermokit/platform/CBitmap.h"

namespace thermokit {

int ReadPaletteIndices(CDC* dc, CPalette* palette, uint8_t* out) {
    if (!palette || !out) return 0;
    const int count = palette->GetEntryCount();
    if (count < 1) return 0;
    CDC display;
    if (!dc) {
        display.CreateDC("DISPLAY", nullptr, nullptr, nullptr);
        dc = &display;
    }
    CDC memory;
    memory.CreateCompatibleDC(dc);
    CBitmap pixel;
    pixel.CreateCompatibleBitmap(&memory, 1, 1);
    CBitmap* oldBitmap = memory.SelectObject(&pixel);
    CPalette* oldPalette = memory.SelectPalette(palette, 0);
    memory.RealizePalette();
    for (int i = 0; i < count; ++i) {
        memory.SetPixel(0, 0, PALETTEINDEX(static_cast<uint16_t>(i)));
        uint8_t byte = 0;
        pixel.GetBitmapBits(1, &byte);
        out[i] = byte;
    }
    memory.SelectPalette(oldPalette, 0);
    memory.SelectObject(oldBitmap);
    return count;
}

CLut::CLut(unsigned short maxLevel, unsigned char nColors)
    : m_nMinLut(0), m_nMaxLut(maxLevel), m_nMaxLevel(maxLevel), m_nMaxColor(nColors) {
    m_pBuffer = new uint8_t[static_cast<size_t>(maxLevel) + 1]();
    m_pColorBuffer = new uint8_t[256]();
}

CLut::~CLut() {
    delete[] m_pBuffer;
    delete[] m_pColorBuffer;
}

int CLut::Delta(unsigned short& min, unsigned short& max) const {
    if (min > m_nMaxLevel) {
        min = m_nMinLut;
        max = m_nMaxLut;
    }
    if (max > m_nMaxLevel) max = m_nMaxLevel;
    return std::abs(static_cast<int>(max) - static_cast<int>(min));
}

void CLut::Update(unsigned short min, unsigned short max) {
    if (!m_pBuffer) return;
    const long delta = Delta(min, max);
    const long top = Colors() - 1;
    for (long i = 0; i < min; ++i) m_pBuffer[i] = 0;
    if (delta > 0)
        for (long i = min; i < max; ++i) m_pBuffer[i] = static_cast<uint8_t>((i - min) * top / delta);
    for (long i = max; i <= m_nMaxLevel; ++i) m_pBuffer[i] = static_cast<uint8_t>(top);
}

void CLut::Update(const uint8_t* index, unsigned short min, unsigned short max) {
    if (!m_pBuffer || !index) return;
    const long delta = Delta(min, max);
    const long top = Colors() - 1;
    for (long i = 0; i < min; ++i) m_pBuffer[i] = index[0];
    if (delta > 0)
        for (long i = min; i < max; ++i) m_pBuffer[i] = index[(i - min) * top / delta];
    for (long i = max; i <= m_nMaxLevel; ++i) m_pBuffer[i] = index[top];
}

void CLut::Update(CDC* dc, CPalette* palette, unsigned short min, unsigned short max) {
    if (!palette) return;
    const int count = palette->GetEntryCount();
    if (count < 1) return;
    m_nMaxColor = static_cast<unsigned char>(count);
    std::memset(m_pColorBuffer, 0, 256);
    ReadPaletteIndices(dc, palette, m_pColorBuffer);
    Update(m_pColorBuffer, min, max);
}

}  // namespace thermokit
