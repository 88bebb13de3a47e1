#include "thermokit/display/CBit.h"

#include "thermokit/display/CLut.h"

namespace thermokit {

CBit::CBit(long size) {
    if (size > 0) {
        m_pBuffer = new uint8_t[static_cast<size_t>(size)]();
        m_nSize = size;
    }
    m_nPoint = static_cast<int>(size > 0 && size <= 0x7FFFFFFF ? size : 0);
    m_nLine = m_nPoint ? 1 : 0;
}

CBit::~CBit() { delete[] m_pBuffer; }

int CBit::Update(const unsigned short* levels, CLut* lut, const unsigned char* mask, long first, long count,
                 long step, uint8_t maskIndex) {
    if (!m_pBuffer || !levels || !lut || !lut->GetBuffer() || step < 1 || first < 0 || first >= m_nSize) return 0;
    const long available = (m_nSize - first + step - 1) / step;
    if (count < 0 || count > available) count = available;
    const uint8_t* table = lut->GetBuffer();
    const uint16_t levelMask = lut->GetMaxLevel();
    for (long k = 0, p = first; k < count; ++k, p += step)
        m_pBuffer[p] = (mask && !mask[p]) ? maskIndex : table[levels[p] & levelMask];
    return 1;
}

bool CBit::Fits(int point, int line) const {
    return m_pBuffer && point > 0 && line > 0 && static_cast<long>(point) * line <= m_nSize;
}

int CBit::Display(CDC* dc, CPalette* palette, const CRect* dest, const CRect* src, int point, int line,
                  const CRgn* region, const CBrush* brush) {
    if (!dc || !Fits(point, line)) return 0;
    SetGeometry(point, line);
    const CRect whole(0, 0, point, line);
    const CRect from = src ? *src : whole;
    const CRect to = dest ? *dest : whole;
    if (from.IsRectEmpty() || to.IsRectEmpty()) return 0;
    CPalette* old = nullptr;
    if (palette) {
        old = dc->SelectPalette(palette, 0);
        dc->RealizePalette();
    }
    const bool clip = region && region->IsCreated();
    if (clip) dc->SelectClipRgn(region);
    const int ok = dc->StretchIndexed(to, m_pBuffer, point, line, point, from);
    if (clip) {
        dc->SelectClipRgn(nullptr);
        if (brush) {
            CRgn outside, box;
            box.CreateRectRgnIndirect(&to);
            outside.CombineRgn(&box, region, RGN_DIFF);
            dc->FillRgn(&outside, brush);
        }
    }
    if (palette) dc->SelectPalette(old, 0);
    return ok;
}

int CBit::Display(CWnd* wnd, CPalette* palette, const CRect* dest, const CRect* src, int point, int line,
                  const CRgn* region, const CBrush* brush) {
    if (!wnd) return 0;
    CDC* dc = wnd->GetDC();
    const int ok = Display(dc, palette, dest, src, point, line, region, brush);
    wnd->ReleaseDC(dc);
    return ok;
}

int CBit::Display(CWnd* wnd, CPalette* palette, int point, int line, const CRgn* region, const CBrush* brush) {
    if (!wnd) return 0;
    CRect client;
    wnd->GetClientRect(&client);
    return Display(wnd, palette, &client, nullptr, point, line, region, brush);
}

int CBit::DisplayNoStretch(CDC* dc, CPalette* palette, const CRect* rect) {
    if (!dc || !rect || !Fits(m_nPoint, m_nLine)) return 0;
    const int w = rect->Width() < m_nPoint ? rect->Width() : m_nPoint;
    const int h = rect->Height() < m_nLine ? rect->Height() : m_nLine;
    if (w < 1 || h < 1) return 0;
    const CRect src(0, 0, w, h);
    const CRect dest(rect->left, rect->top, rect->left + w, rect->top + h);
    return Display(dc, palette, &dest, &src, m_nPoint, m_nLine);
}

}  // namespace thermokit
