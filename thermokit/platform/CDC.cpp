#include "thermokit/platform/CDC.h"

#include <algorithm>
#include <cstring>
#include <cctype>
#include <mutex>
#include <string>
#include <vector>

#include "thermokit/platform/Display.h"

namespace thermokit {
namespace {

// The emulated system palette: 256 slots shared by the whole process.
struct SystemPalette {
    std::mutex mutex;
    tagPALETTEENTRY slots[256] = {};
    int used = 0;
};
SystemPalette& System() {
    static SystemPalette palette;
    return palette;
}

inline uint32_t PaletteEntryToBgra(const tagPALETTEENTRY& e) {
    return static_cast<uint32_t>(e.peBlue) | (static_cast<uint32_t>(e.peGreen) << 8) |
           (static_cast<uint32_t>(e.peRed) << 16);
}

}  // namespace

int CDC::CreateDC(const char* driver, const char*, const char*, const void*) {
    if (!driver) return 0;
    std::string name(driver);
    for (auto& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (name != "DISPLAY") return 0;
    DeleteDC();
    m_displayDC = true;
    return 1;
}

int CDC::CreateCompatibleDC(CDC*) {
    DeleteDC();
    m_memoryDC = true;
    return 1;
}

void CDC::DeleteDC() {
    m_surface = nullptr;
    m_windowDC = m_memoryDC = m_displayDC = false;
    m_palette = nullptr;
    m_realised = 0;
    m_clip.reset();
    m_clipMask.reset();
}

CBitmap* CDC::SelectObject(CBitmap* bitmap) {
    CBitmap* previous = m_surface;
    if (m_memoryDC) m_surface = bitmap;
    return previous;
}

CPalette* CDC::SelectPalette(CPalette* palette, int) {
    CPalette* previous = m_palette;
    m_palette = palette;
    return previous;
}

unsigned CDC::RealizePalette() {
    m_realised = 0;
    if (!m_palette) return 0;
    tagPALETTEENTRY entries[256];
    const int n = static_cast<int>(m_palette->GetPaletteEntries(0, 256, entries));
    SystemPalette& sys = System();
    std::lock_guard<std::mutex> lock(sys.mutex);
    sys.used = 0;
    for (int i = 0; i < n; ++i) {
        int slot = -1;
        if (!(entries[i].peFlags & PC_RESERVED)) {
            for (int s = 0; s < sys.used; ++s) {
                const tagPALETTEENTRY& e = sys.slots[s];
                if (e.peRed == entries[i].peRed && e.peGreen == entries[i].peGreen && e.peBlue == entries[i].peBlue) {
                    slot = s;
                    break;
                }
            }
        }
        if (slot < 0) {
            slot = sys.used++;
            sys.slots[slot] = entries[i];
        }
        m_slots[i] = static_cast<uint8_t>(slot);
    }
    m_realised = n;
    return static_cast<unsigned>(n);
}

int CDC::GetSystemSlot(int entry) const { return (entry >= 0 && entry < m_realised) ? m_slots[entry] : 0; }

COLORREF CDC::GetSystemPaletteColor(int slot) {
    if (slot < 0 || slot > 255) return 0;
    SystemPalette& sys = System();
    std::lock_guard<std::mutex> lock(sys.mutex);
    const tagPALETTEENTRY& e = sys.slots[slot];
    return Rgb(e.peRed, e.peGreen, e.peBlue);
}

int CDC::GetDeviceCaps(int index) const {
    const int bits = Display::GetBitsPerPixel();
    switch (index) {
        case BITSPIXEL: return bits;
        case PLANES: return 1;
        case HORZRES: return m_surface ? m_surface->GetWidth() : 0;
        case VERTRES: return m_surface ? m_surface->GetHeight() : 0;
        case RASTERCAPS: return RC_STRETCHBLT | (bits <= 8 ? RC_PALETTE : 0);
        case SIZEPALETTE: return bits <= 8 ? 256 : 0;
        case NUMRESERVED: return 0;
        case NUMCOLORS: return bits <= 8 ? 256 : -1;
        default: return 0;
    }
}

void CDC::PrepareClip() {
    if (!m_clip || !m_surface) return;
    const int w = m_surface->GetWidth(), h = m_surface->GetHeight();
    if (m_clipMask && m_clipW == w && m_clipH == h) return;
    m_clipMask.reset(new uint8_t[static_cast<size_t>(w) * static_cast<size_t>(h)]);
    m_clip->FillMask(w, h, m_clipMask.get());
    m_clipW = w;
    m_clipH = h;
}

bool CDC::Visible(int x, int y) const {
    if (!m_surface || x < 0 || y < 0 || x >= m_surface->GetWidth() || y >= m_surface->GetHeight()) return false;
    if (m_clip && m_clipMask) return m_clipMask[static_cast<size_t>(y) * static_cast<size_t>(m_clipW) + x] != 0;
    return !m_clip;
}

int CDC::SelectClipRgn(const CRgn* region) {
    m_clipMask.reset();
    if (!region || !region->IsCreated()) {
        m_clip.reset();
        return SIMPLEREGION;
    }
    m_clip = std::make_unique<CRgn>(*region);
    CRect box;
    return m_clip->GetRgnBox(&box);
}

int CDC::SetStretchBltMode(int mode) {
    const int previous = m_stretchMode;
    if (mode >= BLACKONWHITE && mode <= HALFTONE) m_stretchMode = mode;
    return previous;
}

COLORREF CDC::SetPixel(int x, int y, COLORREF colour) {
    PrepareClip();
    if (!Visible(x, y)) return 0xFFFFFFFFu;
    const size_t at = static_cast<size_t>(y) * static_cast<size_t>(m_surface->GetWidth()) + static_cast<size_t>(x);
    if (m_surface->GetBitsPixel() == 8) {
        int slot = 0;
        if (IsPaletteIndex(colour)) {
            slot = GetSystemSlot(static_cast<int>(colour & 0xFFFF));
        } else {
            // Nearest slot of the system palette.
            SystemPalette& sys = System();
            std::lock_guard<std::mutex> lock(sys.mutex);
            long best = -1;
            for (int s = 0; s < std::max(sys.used, 1); ++s) {
                const tagPALETTEENTRY& e = sys.slots[s];
                const long dr = e.peRed - GetRValue(colour), dg = e.peGreen - GetGValue(colour),
                           db = e.peBlue - GetBValue(colour);
                const long d = dr * dr + dg * dg + db * db;
                if (best < 0 || d < best) {
                    best = d;
                    slot = s;
                }
            }
        }
        m_surface->GetBits()[at] = static_cast<uint8_t>(slot);
        return GetSystemPaletteColor(slot);
    }
    uint32_t pixel;
    if (IsPaletteIndex(colour)) {
        tagPALETTEENTRY e{};
        if (m_palette) m_palette->GetPaletteEntries(colour & 0xFFFF, 1, &e);
        pixel = PaletteEntryToBgra(e);
    } else {
        pixel = ColorToBgra(colour);
    }
    std::memcpy(m_surface->GetBits() + at * 4, &pixel, 4);
    return BgraToColor(pixel);
}

COLORREF CDC::GetPixel(int x, int y) const {
    if (!m_surface || x < 0 || y < 0 || x >= m_surface->GetWidth() || y >= m_surface->GetHeight()) return 0xFFFFFFFFu;
    const size_t at = static_cast<size_t>(y) * static_cast<size_t>(m_surface->GetWidth()) + static_cast<size_t>(x);
    if (m_surface->GetBitsPixel() == 8) return GetSystemPaletteColor(m_surface->GetBits()[at]);
    uint32_t pixel;
    std::memcpy(&pixel, m_surface->GetBits() + at * 4, 4);
    return BgraToColor(pixel);
}

void CDC::FillSolidRect(const CRect* rect, COLORREF colour) {
    if (!rect || !m_surface || m_surface->GetBitsPixel() != 32) return;
    PrepareClip();
    const int x0 = std::max(rect->left, 0), x1 = std::min(rect->right, m_surface->GetWidth());
    const int y0 = std::max(rect->top, 0), y1 = std::min(rect->bottom, m_surface->GetHeight());
    const uint32_t pixel = ColorToBgra(colour);
    uint32_t* bits = reinterpret_cast<uint32_t*>(m_surface->GetBits());
    const size_t w = static_cast<size_t>(m_surface->GetWidth());
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            if (!m_clip || m_clipMask[static_cast<size_t>(y) * w + x]) bits[static_cast<size_t>(y) * w + x] = pixel;
}

void CDC::FillSolidRect(int x, int y, int cx, int cy, COLORREF colour) {
    const CRect r(x, y, x + cx, y + cy);
    FillSolidRect(&r, colour);
}

int CDC::FillRgn(const CRgn* region, const CBrush* brush) {
    if (!region || !brush || !region->IsCreated() || !m_surface || m_surface->GetBitsPixel() != 32) return 0;
    PrepareClip();
    const int w = m_surface->GetWidth(), h = m_surface->GetHeight();
    std::vector<uint8_t> mask(static_cast<size_t>(w) * static_cast<size_t>(h));
    region->FillMask(w, h, mask.data());
    const uint32_t pixel = ColorToBgra(brush->GetColor());
    uint32_t* bits = reinterpret_cast<uint32_t*>(m_surface->GetBits());
    for (size_t i = 0; i < mask.size(); ++i)
        if (mask[i] && (!m_clip || m_clipMask[i])) bits[i] = pixel;
    return 1;
}

template <class Pixel, class Convert>
int CDC::Stretch(const CRect& dest, const Pixel* src, int srcWidth, int srcHeight, ptrdiff_t stridePixels,
                 const CRect& srcRect, Convert convert) {
    if (!src || !m_surface || m_surface->GetBitsPixel() != 32) return 0;
    if (dest.IsRectEmpty() || srcRect.IsRectEmpty()) return 0;
    if (srcRect.left < 0 || srcRect.top < 0 || srcRect.right > srcWidth || srcRect.bottom > srcHeight) return 0;
    PrepareClip();
    const int64_t dw = static_cast<int64_t>(dest.right) - dest.left, dh = static_cast<int64_t>(dest.bottom) - dest.top;
    const int64_t sw = srcRect.Width(), sh = srcRect.Height();
    const int x0 = std::max(dest.left, 0), x1 = std::min(dest.right, m_surface->GetWidth());
    const int y0 = std::max(dest.top, 0), y1 = std::min(dest.bottom, m_surface->GetHeight());
    if (x0 >= x1 || y0 >= y1) return 1;
    std::vector<int> xmap(static_cast<size_t>(x1 - x0));
    for (int x = x0; x < x1; ++x)
        xmap[static_cast<size_t>(x - x0)] = static_cast<int>(srcRect.left + (static_cast<int64_t>(x) - dest.left) * sw / dw);
    uint32_t* bits = reinterpret_cast<uint32_t*>(m_surface->GetBits());
    const size_t w = static_cast<size_t>(m_surface->GetWidth());
    for (int y = y0; y < y1; ++y) {
        const int64_t sy = srcRect.top + (static_cast<int64_t>(y) - dest.top) * sh / dh;
        const Pixel* row = src + static_cast<ptrdiff_t>(sy) * stridePixels;
        uint32_t* out = bits + static_cast<size_t>(y) * w;
        if (m_clip) {
            const uint8_t* mask = m_clipMask.get() + static_cast<size_t>(y) * w;
            for (int x = x0; x < x1; ++x)
                if (mask[x]) out[x] = convert(row[xmap[static_cast<size_t>(x - x0)]]);
        } else {
            for (int x = x0; x < x1; ++x) out[x] = convert(row[xmap[static_cast<size_t>(x - x0)]]);
        }
    }
    return 1;
}

int CDC::StretchBlt(const CRect& dest, const uint32_t* src, int srcWidth, int srcHeight, ptrdiff_t stridePixels,
                    const CRect& srcRect) {
    return Stretch(dest, src, srcWidth, srcHeight, stridePixels, srcRect, [](uint32_t p) { return p; });
}

int CDC::StretchIndexed(const CRect& dest, const uint8_t* src, int srcWidth, int srcHeight, ptrdiff_t stridePixels,
                        const CRect& srcRect) {
    uint32_t colours[256];
    {
        SystemPalette& sys = System();
        std::lock_guard<std::mutex> lock(sys.mutex);
        for (int s = 0; s < 256; ++s) colours[s] = PaletteEntryToBgra(sys.slots[s]);
    }
    return Stretch(dest, src, srcWidth, srcHeight, stridePixels, srcRect,
                   [&colours](uint8_t v) { return colours[v]; });
}

}  // namespace thermokit
