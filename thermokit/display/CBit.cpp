#include "thermokit/display/CBit.h"

#include "thermokit/display/BitmapShared.h"
#include "thermokit/display/CLut.h"

namespace thermokit {

CBit::CBit(long size) {
    if (size > 0) {
        m_pBuffer = new uint8_t[static_cast<size_t>(size)]();
        m_nSize = size;
    }
    bitmap_detail::InitialGeometry(size, m_nPoint, m_nLine);
}

CBit::~CBit() { delete[] m_pBuffer; }

int CBit::Update(const unsigned short* levels, CLut* lut, const unsigned char* mask, long first, long count,
                 long step, uint8_t maskIndex) {
    if (!m_pBuffer || !levels || !lut || !lut->GetBuffer() || step < 1 || first < 0 || first >= m_nSize) return 0;
    count = bitmap_detail::ClampCount(m_nSize, first, count, step);
    const uint8_t* table = lut->GetBuffer();
    const uint16_t levelMask = lut->GetMaxLevel();
    for (long k = 0, p = first; k < count; ++k, p += step)
        m_pBuffer[p] = (mask && !mask[p]) ? maskIndex : table[levels[p] & levelMask];
    return 1;
}

bool CBit::Fits(int point, int line) const {
    return bitmap_detail::Fits(m_pBuffer, m_nSize, point, line);
}

int CBit::Display(CDC* dc, CPalette* palette, const CRect* dest, const CRect* src, int point, int line,
                  const CRgn* region, const CBrush* brush) {
    if (!dc || !Fits(point, line)) return 0;
    SetGeometry(point, line);
    CRect to, from;
    if (!bitmap_detail::StretchRects(dest, src, point, line, to, from)) return 0;
    CPalette* old = nullptr;
    if (palette) {
        old = dc->SelectPalette(palette, 0);
        dc->RealizePalette();
    }
    const int ok = bitmap_detail::BlitClipped(
        dc, to, region, brush, [&] { return dc->StretchIndexed(to, m_pBuffer, point, line, point, from); });
    if (palette) dc->SelectPalette(old, 0);
    return ok;
}

int CBit::Display(CWnd* wnd, CPalette* palette, const CRect* dest, const CRect* src, int point, int line,
                  const CRgn* region, const CBrush* brush) {
    return bitmap_detail::DrawOnWindow(
        wnd, [&](CDC* dc) { return Display(dc, palette, dest, src, point, line, region, brush); });
}

int CBit::Display(CWnd* wnd, CPalette* palette, int point, int line, const CRgn* region, const CBrush* brush) {
    if (!wnd) return 0;
    CRect client;
    wnd->GetClientRect(&client);
    return Display(wnd, palette, &client, nullptr, point, line, region, brush);
}

int CBit::DisplayNoStretch(CDC* dc, CPalette* palette, const CRect* rect) {
    if (!dc || !rect || !Fits(m_nPoint, m_nLine)) return 0;
    CRect src, dest;
    if (!bitmap_detail::NoStretchRects(*rect, m_nPoint, m_nLine, src, dest)) return 0;
    return Display(dc, palette, &dest, &src, m_nPoint, m_nLine);
}

}  // namespace thermokit
