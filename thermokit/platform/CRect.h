#pragma once
// Rectangle with public edges. Right and bottom are exclusive: a rectangle
// (0, 0, 2, 2) holds the four points (0,0), (1,0), (0,1) and (1,1).
#include <algorithm>
#include <cstdint>

#include "thermokit/platform/CPoint.h"

namespace thermokit {

struct CRect {
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;

    constexpr CRect() = default;
    constexpr CRect(int32_t l, int32_t t, int32_t r, int32_t b) : left(l), top(t), right(r), bottom(b) {}
    constexpr CRect(CPoint topLeft, CSize size)
        : left(topLeft.x), top(topLeft.y), right(topLeft.x + size.cx), bottom(topLeft.y + size.cy) {}
    constexpr CRect(CPoint topLeft, CPoint bottomRight)
        : left(topLeft.x), top(topLeft.y), right(bottomRight.x), bottom(bottomRight.y) {}

    constexpr bool operator==(const CRect&) const = default;

    constexpr int32_t Width() const { return right - left; }
    constexpr int32_t Height() const { return bottom - top; }
    constexpr CSize Size() const { return CSize(Width(), Height()); }
    constexpr CPoint TopLeft() const { return CPoint(left, top); }
    constexpr CPoint BottomRight() const { return CPoint(right, bottom); }
    constexpr CPoint CenterPoint() const { return CPoint((left + right) / 2, (top + bottom) / 2); }

    // Empty when the width or the height is not positive.
    constexpr bool IsRectEmpty() const { return right <= left || bottom <= top; }
    constexpr bool IsRectNull() const { return left == 0 && top == 0 && right == 0 && bottom == 0; }

    constexpr void SetRect(int32_t l, int32_t t, int32_t r, int32_t b) { left = l; top = t; right = r; bottom = b; }
    constexpr void SetRectEmpty() { SetRect(0, 0, 0, 0); }
    constexpr void CopyRect(const CRect* src) { *this = *src; }
    constexpr bool EqualRect(const CRect* other) const { return *this == *other; }

    constexpr bool PtInRect(CPoint p) const { return p.x >= left && p.x < right && p.y >= top && p.y < bottom; }

    constexpr void NormalizeRect() {
        if (left > right) std::swap(left, right);
        if (top > bottom) std::swap(top, bottom);
    }
    constexpr void OffsetRect(int32_t dx, int32_t dy) { left += dx; right += dx; top += dy; bottom += dy; }
    constexpr void InflateRect(int32_t dx, int32_t dy) { left -= dx; right += dx; top -= dy; bottom += dy; }
    constexpr void DeflateRect(int32_t dx, int32_t dy) { InflateRect(-dx, -dy); }

    // Intersection of a and b stored in this rectangle. When they do not
    // overlap the result is the empty rectangle (0, 0, 0, 0) and false.
    constexpr bool IntersectRect(const CRect* a, const CRect* b) {
        CRect r(std::max(a->left, b->left), std::max(a->top, b->top), std::min(a->right, b->right),
                std::min(a->bottom, b->bottom));
        if (r.IsRectEmpty()) {
            SetRectEmpty();
            return false;
        }
        *this = r;
        return true;
    }
    // Smallest rectangle holding both; an empty operand is ignored.
    constexpr bool UnionRect(const CRect* a, const CRect* b) {
        if (a->IsRectEmpty()) { *this = *b; }
        else if (b->IsRectEmpty()) { *this = *a; }
        else {
            *this = CRect(std::min(a->left, b->left), std::min(a->top, b->top), std::max(a->right, b->right),
                          std::max(a->bottom, b->bottom));
        }
        return !IsRectEmpty();
    }
};

}  // namespace thermokit
