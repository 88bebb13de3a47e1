#pragma once
// True-colour display bitmap: levels go through a CLut24 into 32-bit pixels
// (bytes blue, green, red, flags, the LUT entries unchanged), which are then
// stretched into a rectangle of a window or device context.
#include <cstdint>

#include "thermokit/platform/CBrush.h"
#include "thermokit/platform/CDC.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/CWnd.h"

namespace thermokit {

class CLut24;

class CBit24 {
public:
    // The text shown when the display has fewer than 24 bits a pixel.
    static const char* const kTrueColorMessage;

    // size pixels. Unless quiet, shows kTrueColorMessage when the display
    // reports fewer than 24 bits a pixel (the bitmap works all the same).
    // bottomUp: the buffer holds the bottom image row first.
    CBit24(long size, int quiet, int bottomUp);
    virtual ~CBit24();
    CBit24(const CBit24&) = delete;
    CBit24& operator=(const CBit24&) = delete;

    // Pixels first, first + step, ... (count of them; a negative count means
    // up to the end of the bitmap) take lut[level & maxLevel]; where mask is
    // given and its byte is 0 the pixel takes maskColour instead. Returns 0
    // without buffer, levels or LUT, or when step is below 1.
    int Update(const unsigned short* levels, CLut24* lut, const unsigned char* mask = nullptr, long first = 0,
               long count = -1, long step = 1, COLORREF maskColour = 0);

    // Stretches the src part of the point x line image into dest (nearest
    // neighbour). With a region only its pixels are drawn, and with a brush as
    // well the rest of dest is filled with the brush. Null src: the whole
    // image; null dest: (0, 0, point, line). Returns 0 when nothing can be drawn.
    int Display(CDC* dc, const CRect* dest, const CRect* src, int point, int line, const CRgn* region = nullptr,
                const CBrush* brush = nullptr);
    int Display(CWnd* wnd, const CRect* dest, const CRect* src, int point, int line, const CRgn* region = nullptr,
                const CBrush* brush = nullptr);
    // The whole image into the window's client rectangle.
    int Display(CWnd* wnd, int point, int line, const CRgn* region = nullptr, const CBrush* brush = nullptr);
    // The image 1:1 at the top-left of rect, cut to rect (geometry of the last Display or SetGeometry).
    int DisplayNoStretch(CDC* dc, const CRect* rect);

    void SetGeometry(int point, int line) {
        m_nPoint = point;
        m_nLine = line;
    }
    uint32_t* GetBuffer() { return m_pBuffer; }
    const uint32_t* GetBuffer() const { return m_pBuffer; }
    long GetSize() const { return m_nSize; }
    int IsBottomUp() const { return m_bBottomUp; }

    // Writes the point x line image as an RGB PNG, as a true-colour screen shows it.
    int SavePng(const char* path, int point, int line) const;

private:
    bool Fits(int point, int line) const;

    uint32_t* m_pBuffer = nullptr;
    long m_nSize = 0;
    int m_bBottomUp = 0;
    int m_nPoint = 0;
    int m_nLine = 0;
};

// Levels to pixels through a table: out[i] = lut[in[i] & mask], the table
// holding mask + 1 entries.
void MapLevelsToPixels(const uint16_t* in, uint32_t* out, long count, const uint32_t* lut, uint16_t mask);

}  // namespace thermokit
