#include "thermokit/display/CBit24.h"


#include "thermokit/display/BitmapShared.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/image/PixelKernels.h"
#include "thermokit/platform/Display.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/PngWriter.h"

namespace thermokit {

const char* const CBit24::kTrueColorMessage =
    "This software requires true color 24/32 bits mode in your display. Please select 24/32 bits or 16 Millions or "
    "True color in the settings of your display system.";

void MapLevelsToPixels(const uint16_t* in, uint32_t* out, long count, const uint32_t* lut, uint16_t mask) {
    // A bitmap is drawn later, not read back now: beyond a megabyte its
    // stores skip the cache.
    if (count > 0) kernels::Pixel().lookup32(lut, mask, in, count, out, count >= (1L << 18));
}

CBit24::CBit24(long size, int quiet, int bottomUp) : m_bBottomUp(bottomUp) {
    if (!quiet && Display::GetBitsPerPixel() < 24) Messages::ShowMessage(kTrueColorMessage, "thermokit", MB_ICONWARNING);
    if (size > 0) {
        m_pBuffer = new uint32_t[static_cast<size_t>(size)]();
        m_nSize = size;
    }
    bitmap_detail::InitialGeometry(size, m_nPoint, m_nLine);
}

CBit24::~CBit24() { delete[] m_pBuffer; }

int CBit24::Update(const unsigned short* levels, CLut24* lut, const unsigned char* mask, long first, long count,
                   long step, COLORREF maskColour) {
    if (!m_pBuffer || !levels || !lut || !lut->GetBuffer() || step < 1 || first < 0 || first >= m_nSize) return 0;
    count = bitmap_detail::ClampCount(m_nSize, first, count, step);
    const uint32_t* table = lut->GetBuffer();
    const uint16_t levelMask = lut->GetMaxLevel();
    if (!mask && step == 1) {
        MapLevelsToPixels(levels + first, m_pBuffer + first, count, table, levelMask);
        return 1;
    }
    const uint32_t maskPixel = ColorToBgra(maskColour);
    for (long k = 0, p = first; k < count; ++k, p += step)
        m_pBuffer[p] = (mask && !mask[p]) ? maskPixel : table[levels[p] & levelMask];
    return 1;
}

bool CBit24::Fits(int point, int line) const {
    return bitmap_detail::Fits(m_pBuffer, m_nSize, point, line);
}

int CBit24::Display(CDC* dc, const CRect* dest, const CRect* src, int point, int line, const CRgn* region,
                    const CBrush* brush) {
    if (!dc || !Fits(point, line)) return 0;
    SetGeometry(point, line);
    CRect to, from;
    if (!bitmap_detail::StretchRects(dest, src, point, line, to, from)) return 0;
    const uint32_t* first = m_bBottomUp ? m_pBuffer + static_cast<long>(line - 1) * point : m_pBuffer;
    const ptrdiff_t stride = m_bBottomUp ? -static_cast<ptrdiff_t>(point) : point;
    return bitmap_detail::BlitClipped(dc, to, region, brush,
                                      [&] { return dc->StretchBlt(to, first, point, line, stride, from); });
}

int CBit24::Display(CWnd* wnd, const CRect* dest, const CRect* src, int point, int line, const CRgn* region,
                    const CBrush* brush) {
    return bitmap_detail::DrawOnWindow(wnd,
                                       [&](CDC* dc) { return Display(dc, dest, src, point, line, region, brush); });
}

int CBit24::Display(CWnd* wnd, int point, int line, const CRgn* region, const CBrush* brush) {
    if (!wnd) return 0;
    CRect client;
    wnd->GetClientRect(&client);
    return Display(wnd, &client, nullptr, point, line, region, brush);
}

int CBit24::DisplayNoStretch(CDC* dc, const CRect* rect) {
    if (!dc || !rect || !Fits(m_nPoint, m_nLine)) return 0;
    CRect src, dest;
    if (!bitmap_detail::NoStretchRects(*rect, m_nPoint, m_nLine, src, dest)) return 0;
    return Display(dc, &dest, &src, m_nPoint, m_nLine);
}

int CBit24::SavePng(const char* path, int point, int line) const {
    if (!Fits(point, line)) return 0;
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(m_pBuffer);
    const ptrdiff_t stride = static_cast<ptrdiff_t>(point) * 4;
    if (m_bBottomUp) return PngWriter::WriteBgra(path, bytes + (line - 1) * stride, point, line, -stride);
    return PngWriter::WriteBgra(path, bytes, point, line, stride);
}

}  // namespace thermokit
