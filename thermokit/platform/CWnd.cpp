#include "thermokit/platform/CWnd.h"

#include <cstring>

#include "thermokit/platform/PngWriter.h"

namespace thermokit {

CWnd::CWnd(int width, int height) {
    m_canvas.CreateBitmap(width, height, 1, 32, nullptr);
    m_dc.Attach(&m_canvas, true);
}

void CWnd::GetClientRect(CRect* rect) const {
    if (rect) rect->SetRect(0, 0, m_canvas.GetWidth(), m_canvas.GetHeight());
}

CDC* CWnd::GetDC() {
    m_dc.Attach(&m_canvas, true);
    return &m_dc;
}

int CWnd::ReleaseDC(CDC* dc) {
    if (dc != &m_dc) return 0;
    m_dc.SelectClipRgn(nullptr);
    m_dc.SelectPalette(nullptr, 0);
    return 1;
}

COLORREF CWnd::GetCanvasPixel(int x, int y) const {
    if (x < 0 || y < 0 || x >= m_canvas.GetWidth() || y >= m_canvas.GetHeight()) return 0xFFFFFFFFu;
    uint32_t p;
    std::memcpy(&p, m_canvas.GetBits() + (static_cast<size_t>(y) * static_cast<size_t>(m_canvas.GetWidth()) + x) * 4, 4);
    return BgraToColor(p);
}

int CWnd::SavePng(const char* path) const {
    if (!m_canvas.IsCreated()) return 0;
    return PngWriter::WriteBgra(path, m_canvas.GetBits(), m_canvas.GetWidth(), m_canvas.GetHeight(),
                                static_cast<ptrdiff_t>(m_canvas.GetStride()));
}

}  // namespace thermokit
