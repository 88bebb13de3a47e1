#pragma once

// Pieces shared by the 8-bit (CBit) and 32-bit (CBit24) display bitmaps. Internal to display/.

#include "thermokit/platform/CBrush.h"
#include "thermokit/platform/CDC.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/CWnd.h"

namespace thermokit::bitmap_detail {

// Geometry a fresh bitmap of `size` pixels starts with: one line of `size` points (none when the size
// is not a positive int).
inline void InitialGeometry(long size, int& point, int& line) {
    point = static_cast<int>(size > 0 && size <= 0x7FFFFFFF ? size : 0);
    line = point ? 1 : 0;
}

inline bool Fits(const void* buffer, long size, int point, int line) {
    return buffer && point > 0 && line > 0 && static_cast<long>(point) * line <= size;
}

// Pixels first, first+step, ... an update may touch in a buffer of `size`: `count`, or all of them when
// count is negative or more than there are. The caller has checked step >= 1 and 0 <= first < size.
inline long ClampCount(long size, long first, long count, long step) {
    const long available = (size - first + step - 1) / step;
    return (count < 0 || count > available) ? available : count;
}

// Source and destination of a stretched draw, each the whole point x line image where not given.
// False when either is empty.
inline bool StretchRects(const CRect* dest, const CRect* src, int point, int line, CRect& to, CRect& from) {
    const CRect whole(0, 0, point, line);
    from = src ? *src : whole;
    to = dest ? *dest : whole;
    return !from.IsRectEmpty() && !to.IsRectEmpty();
}

// Runs blit() clipped to region (when it is created); then the part of `to` outside the region is
// painted with brush (when given). Returns what blit() returned.
template <class Blit>
int BlitClipped(CDC* dc, const CRect& to, const CRgn* region, const CBrush* brush, Blit blit) {
    const bool clip = region && region->IsCreated();
    if (clip) dc->SelectClipRgn(region);
    const int ok = blit();
    if (clip) {
        dc->SelectClipRgn(nullptr);
        if (brush) {
            CRgn outside, box;
            box.CreateRectRgnIndirect(&to);
            outside.CombineRgn(&box, region, RGN_DIFF);
            dc->FillRgn(&outside, brush);
        }
    }
    return ok;
}

// A 1:1 draw of a point x line image at the top-left of rect, cut to rect. False when nothing is left.
inline bool NoStretchRects(const CRect& rect, int point, int line, CRect& src, CRect& dest) {
    const int w = rect.Width() < point ? rect.Width() : point;
    const int h = rect.Height() < line ? rect.Height() : line;
    if (w < 1 || h < 1) return false;
    src = CRect(0, 0, w, h);
    dest = CRect(rect.left, rect.top, rect.left + w, rect.top + h);
    return true;
}

// Draws through the window's device context, released afterwards.
template <class Draw>
int DrawOnWindow(CWnd* wnd, Draw draw) {
    if (!wnd) return 0;
    CDC* dc = wnd->GetDC();
    const int ok = draw(dc);
    wnd->ReleaseDC(dc);
    return ok;
}

}  // namespace thermokit::bitmap_detail
