// CFrame's display members: the frame's levels through a look-up table into
// its display bitmap (CBit for palette displays, CBit24 for true colour), then
// stretched into a window or device context.
#include <cmath>

#include "thermokit/display/CBit.h"
#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLut.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/CBrush.h"
#include "thermokit/platform/CDC.h"
#include "thermokit/platform/CPalette.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/CWnd.h"

namespace thermokit {

namespace {

// Fits src into dest (keepAspect: never enlarged, centred; dest changed in
// place) and paints the margins between the given and the fitted rectangle.
void FitAndFill(CDC* fillDC, CRect* dest, const CRect& src, int keepAspect, int fillBackground,
                unsigned long colour) {
    const CRect given = *dest;
    if (keepAspect) {
        const double dw = given.Width(), dh = given.Height();
        const double sw = src.Width(), sh = src.Height();
        double scale = dw / sw;
        if (dh / sh < scale) scale = dh / sh;
        if (scale > 1.0) scale = 1.0;
        const int fw = static_cast<int>(std::trunc(sw * scale));
        const int fh = static_cast<int>(std::trunc(sh * scale));
        dest->left = given.left + (given.Width() - fw) / 2;
        dest->top = given.top + (given.Height() - fh) / 2;
        dest->right = dest->left + fw;
        dest->bottom = dest->top + fh;
    }
    if (fillBackground && fillDC) {
        const COLORREF c = static_cast<COLORREF>(colour);
        const CRect left(given.left, given.top, dest->left, given.bottom);
        const CRect right(dest->right, given.top, given.right, given.bottom);
        const CRect top(given.left, given.top, given.right, dest->top);
        const CRect bottom(given.left, dest->bottom, given.right, given.bottom);
        fillDC->FillSolidRect(&left, c);
        fillDC->FillSolidRect(&right, c);
        fillDC->FillSolidRect(&top, c);
        fillDC->FillSolidRect(&bottom, c);
    }
}

CRect ClientRect(CWnd* wnd) {
    CRect r;
    if (wnd) wnd->GetClientRect(&r);
    return r;
}

// The part of a point x line frame a display shows: rect, or the whole frame.
CRect PartOrWhole(const CRect* rect, int point, int line) { return rect ? *rect : CRect(0, 0, point, line); }

// src of the frame (all of it when null) fitted into dest (the client area when null; a given dest is
// changed in place to the fitted rectangle), its margins painted. draw(to, from) is the palette or
// true-colour bitmap's Display into the window.
template <class Draw>
void DisplayFitted(CWnd* wnd, CRect* dest, const CRect* src, int point, int line, int keepAspect,
                   int fillBackground, unsigned long colour, Draw draw) {
    const CRect from = PartOrWhole(src, point, line);
    if (from.Width() == 0 || from.Height() == 0) return;
    CRect client = ClientRect(wnd);
    if (!dest) dest = &client;
    CDC* dc = wnd->GetDC();
    FitAndFill(dc, dest, from, keepAspect, fillBackground, colour);
    wnd->ReleaseDC(dc);
    draw(dest, &from);
}

}  // namespace

void CFrame::InitBit() {
    const long size = GetSize();
    if (m_b24) {
        // A bitmap left from a frame of another size is made again.
        if (m_pBit24 && m_pBit24->GetSize() != size) {
            delete m_pBit24;
            m_pBit24 = nullptr;
        }
        if (!m_pBit24) m_pBit24 = new CBit24(size, 0, 0);
    } else {
        if (m_pBit && m_pBit->GetSize() != size) {
            delete m_pBit;
            m_pBit = nullptr;
        }
        if (!m_pBit) m_pBit = new CBit(size);
    }
    m_pfnReleaseBitmaps = [](CFrame* frame) {
        delete frame->m_pBit;
        frame->m_pBit = nullptr;
        delete frame->m_pBit24;
        frame->m_pBit24 = nullptr;
    };
}

void CFrame::Update(CLut* lut) {
    if (!m_pBuffer) return;
    InitBit();
    if (!m_b24 && m_pBit) m_pBit->Update(m_pBuffer, lut);
}

void CFrame::Update(CLut24* lut) {
    if (!m_pBuffer) return;
    InitBit();
    if (m_b24 && m_pBit24) m_pBit24->Update(m_pBuffer, lut);
}

void CFrame::Display(CWnd* wnd, CPalette* palette, CLut* lut, CRgn* region, CBrush* brush) {
    CRect client = ClientRect(wnd);
    Display(wnd, &client, palette, lut, region, brush);
}

void CFrame::Display(CWnd* wnd, CRect* dest, CPalette* palette, CLut* lut, CRgn* region, CBrush* brush) {
    if (!m_pBuffer) return;
    Update(lut);
    if (!m_pBit || !wnd) return;
    const CRect src(0, 0, m_nPoint, m_nLine);
    const CRect to = dest ? *dest : ClientRect(wnd);
    m_pBit->Display(wnd, palette, &to, &src, m_nPoint, m_nLine, region, brush);
}

void CFrame::Display(CWnd* wnd, unsigned short x, unsigned short y, CRect* rect, CPalette* palette, CLut* lut,
                     CRgn* region, CBrush* brush) {
    if (!m_pBuffer) return;
    Update(lut);
    if (!m_pBit || !wnd) return;
    const CRect src = PartOrWhole(rect, m_nPoint, m_nLine);
    const CRect to(x, y, x + src.Width(), y + src.Height());
    m_pBit->Display(wnd, palette, &to, &src, m_nPoint, m_nLine, region, brush);
}

void CFrame::Display(CWnd* wnd, CRect* dest, CRect* src, CPalette* palette, CLut* lut, int keepAspect,
                     int fillBackground, unsigned long colour, CRgn* region, CBrush* brush) {
    if (!m_pBuffer) return;
    Update(lut);
    if (!m_pBit || !wnd) return;
    DisplayFitted(wnd, dest, src, m_nPoint, m_nLine, keepAspect, fillBackground, colour,
                  [&](const CRect* to, const CRect* from) {
                      m_pBit->Display(wnd, palette, to, from, m_nPoint, m_nLine, region, brush);
                  });
}

void CFrame::Display24(CWnd* wnd, CLut24* lut, CRgn* region, CBrush* brush) {
    CRect client = ClientRect(wnd);
    Display24(wnd, &client, lut, region, brush);
}

void CFrame::Display24(CWnd* wnd, CRect* dest, CLut24* lut, CRgn* region, CBrush* brush) {
    if (!m_pBuffer) return;
    Update(lut);
    if (!m_pBit24 || !wnd) return;
    const CRect src(0, 0, m_nPoint, m_nLine);
    const CRect to = dest ? *dest : ClientRect(wnd);
    m_pBit24->Display(wnd, &to, &src, m_nPoint, m_nLine, region, brush);
}

void CFrame::Display24(CWnd* wnd, unsigned short x, unsigned short y, CRect* rect, CLut24* lut, CRgn* region,
                       CBrush* brush) {
    if (!m_pBuffer) return;
    Update(lut);
    if (!m_pBit24 || !wnd) return;
    const CRect src = PartOrWhole(rect, m_nPoint, m_nLine);
    const CRect to(x, y, x + src.Width(), y + src.Height());
    m_pBit24->Display(wnd, &to, &src, m_nPoint, m_nLine, region, brush);
}

void CFrame::Display24(CWnd* wnd, CRect* dest, CRect* src, CLut24* lut, int keepAspect, int fillBackground,
                       unsigned long colour, CRgn* region, CBrush* brush) {
    if (!m_pBuffer) return;
    Update(lut);
    if (!m_pBit24 || !wnd) return;
    DisplayFitted(wnd, dest, src, m_nPoint, m_nLine, keepAspect, fillBackground, colour,
                  [&](const CRect* to, const CRect* from) {
                      m_pBit24->Display(wnd, to, from, m_nPoint, m_nLine, region, brush);
                  });
}

void CFrame::Display24(CDC* dc, CRect* dest, CRect* src, CLut24* lut, int keepAspect, int fillBackground,
                       unsigned long colour, CRgn* region, CBrush* brush) {
    if (!m_pBuffer) return;
    Update(lut);
    if (!m_pBit24 || !dc) return;
    const CRect from = PartOrWhole(src, m_nPoint, m_nLine);
    if (from.Width() == 0 || from.Height() == 0) return;
    CRect surface(0, 0, dc->GetSurface() ? dc->GetSurface()->GetWidth() : 0,
                  dc->GetSurface() ? dc->GetSurface()->GetHeight() : 0);
    if (!dest) dest = &surface;
    FitAndFill(dc, dest, from, keepAspect, fillBackground, colour);
    m_pBit24->Display(dc, dest, &from, m_nPoint, m_nLine, region, brush);
}

}  // namespace thermokit
