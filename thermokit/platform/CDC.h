#pragma once
// Device context over an in-memory canvas. There is no window system: a
// window's context draws on the window's 32-bit canvas (bytes blue, green,
// red, spare, as a true-colour screen holds them); a memory context draws on
// the bitmap selected into it.
//
// Palettes: the process keeps one emulated 256-slot system palette, as a
// palette device does. RealizePalette maps the entries of the selected
// palette to slots (reserved entries each get a slot of their own, in entry
// order; an entry without PC_RESERVED that equals an earlier slot shares it).
// Bitmaps compatible with the display or a memory context hold 8-bit slot
// numbers, so that drawing PALETTEINDEX(i) into a 1x1 such bitmap and reading
// its byte back gives the slot at which entry i landed. Slot colours show as
// peRed, peGreen, peBlue.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "thermokit/platform/CBitmap.h"
#include "thermokit/platform/CBrush.h"
#include "thermokit/platform/COLORREF.h"
#include "thermokit/platform/CPalette.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"

namespace thermokit {

enum DeviceCap : int {
    HORZRES = 8,
    VERTRES = 10,
    BITSPIXEL = 12,
    PLANES = 14,
    NUMCOLORS = 24,
    RASTERCAPS = 38,
    SIZEPALETTE = 104,
    NUMRESERVED = 106,
};
enum : int { RC_PALETTE = 0x0100, RC_STRETCHBLT = 0x0800 };
enum StretchMode : int { BLACKONWHITE = 1, WHITEONBLACK = 2, COLORONCOLOR = 3, HALFTONE = 4 };

class CDC {
public:
    CDC() = default;
    // A context drawing on surface (a window's canvas), not owned.
    explicit CDC(CBitmap* surface, bool windowDC = true) : m_surface(surface), m_windowDC(windowDC) {}
    virtual ~CDC() = default;
    CDC(const CDC&) = delete;
    CDC& operator=(const CDC&) = delete;

    // "DISPLAY" makes a context on the screen (which has no pixels of its own
    // here); any other driver returns 0.
    int CreateDC(const char* driver, const char* device, const char* output, const void* initData);
    // A memory context with no bitmap selected yet.
    int CreateCompatibleDC(CDC* dc);
    void DeleteDC();
    // Makes this a context drawing on surface (not owned), dropping clip region and palette.
    void Attach(CBitmap* surface, bool windowDC) {
        DeleteDC();
        m_surface = surface;
        m_windowDC = windowDC;
    }

    bool IsWindowDC() const { return m_windowDC; }
    CBitmap* GetSurface() { return m_surface; }

    // Selects a bitmap into a memory context; returns the previous one.
    CBitmap* SelectObject(CBitmap* bitmap);
    CPalette* SelectPalette(CPalette* palette, int forceBackground);
    // Maps the selected palette into the system palette; returns the number of entries mapped.
    unsigned RealizePalette();
    // Slot of entry i of the last realised palette (0 when out of range).
    int GetSystemSlot(int entry) const;
    // Colour of a system-palette slot, as the screen shows it.
    static COLORREF GetSystemPaletteColor(int slot);

    // BITSPIXEL is the display's colour depth (Display); RASTERCAPS has
    // RC_PALETTE at 8 bits and below.
    int GetDeviceCaps(int index) const;

    COLORREF SetPixel(int x, int y, COLORREF colour);
    COLORREF GetPixel(int x, int y) const;
    // Fills a rectangle (clipped to the surface and the clip region).
    void FillSolidRect(const CRect* rect, COLORREF colour);
    void FillSolidRect(int x, int y, int cx, int cy, COLORREF colour);
    // Fills the pixels of region with the brush's colour (clip region applies).
    int FillRgn(const CRgn* region, const CBrush* brush);

    // Later drawing reaches only pixels inside region (a copy is kept); null removes the clip.
    int SelectClipRgn(const CRgn* region);
    int SetStretchBltMode(int mode);
    int GetStretchBltMode() const { return m_stretchMode; }

    // Nearest-neighbour stretch of the srcRect part of a 32-bit source (row y
    // at src + y * stridePixels, which may be negative for bottom-up storage)
    // into dest. Destination pixel (x, y) takes source column
    // srcRect.left + (x - dest.left) * srcWidth / destWidth, likewise for rows.
    // Returns 0 (drawing nothing) when either rectangle is empty or srcRect
    // is not inside the srcWidth x srcHeight source.
    int StretchBlt(const CRect& dest, const uint32_t* src, int srcWidth, int srcHeight, ptrdiff_t stridePixels,
                   const CRect& srcRect);
    // The same for an 8-bit source of system-palette slots.
    int StretchIndexed(const CRect& dest, const uint8_t* src, int srcWidth, int srcHeight, ptrdiff_t stridePixels,
                       const CRect& srcRect);

private:
    bool Visible(int x, int y) const;
    void PrepareClip();
    template <class Pixel, class Convert>
    int Stretch(const CRect& dest, const Pixel* src, int srcWidth, int srcHeight, ptrdiff_t stridePixels,
                const CRect& srcRect, Convert convert);

    CBitmap* m_surface = nullptr;
    bool m_windowDC = false;
    bool m_memoryDC = false;
    bool m_displayDC = false;
    CPalette* m_palette = nullptr;
    uint8_t m_slots[256] = {};
    int m_realised = 0;
    int m_stretchMode = COLORONCOLOR;
    std::unique_ptr<CRgn> m_clip;
    std::unique_ptr<uint8_t[]> m_clipMask;  // surface-sized mask of m_clip
    int m_clipW = 0, m_clipH = 0;
};

}  // namespace thermokit
