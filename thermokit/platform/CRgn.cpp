#include "thermokit/platform/CRgn.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace thermokit {

struct CRgn::Node {
    enum Kind { Rect, Ellipse, Polygon, Combine } kind = Rect;
    CRect rect;                        // rectangle, ellipse bounding box
    std::vector<CPoint> points;        // polygon vertices
    int fillMode = ALTERNATE;
    int op = RGN_OR;
    std::shared_ptr<const Node> a, b;  // combination operands
    int32_t dx = 0, dy = 0;            // offset applied to the whole node

    bool Contains(double px, double py) const {
        px -= dx;
        py -= dy;
        switch (kind) {
            case Rect:
                return px >= rect.left && px < rect.right && py >= rect.top && py < rect.bottom;
            case Ellipse: {
                const double rx = (rect.right - rect.left) * 0.5;
                const double ry = (rect.bottom - rect.top) * 0.5;
                if (rx <= 0.0 || ry <= 0.0) return false;
                const double ux = (px - (rect.left + rx)) / rx;
                const double uy = (py - (rect.top + ry)) / ry;
                return ux * ux + uy * uy <= 1.0;
            }
            case Polygon: {
                // Crossing number (alternate) or winding number (winding).
                int winding = 0;
                int crossings = 0;
                const size_t n = points.size();
                for (size_t i = 0, j = n - 1; i < n; j = i++) {
                    const double xi = points[i].x, yi = points[i].y, xj = points[j].x, yj = points[j].y;
                    if ((yi > py) != (yj > py)) {
                        const double xc = xj + (py - yj) * (xi - xj) / (yi - yj);
                        if (px < xc) {
                            ++crossings;
                            winding += (yi > yj) ? 1 : -1;
                        }
                    }
                }
                return fillMode == WINDING ? winding != 0 : (crossings & 1) != 0;
            }
            case Combine: {
                const bool ia = a && a->Contains(px, py);
                const bool ib = b && b->Contains(px, py);
                switch (op) {
                    case RGN_AND: return ia && ib;
                    case RGN_OR: return ia || ib;
                    case RGN_XOR: return ia != ib;
                    case RGN_DIFF: return ia && !ib;
                    default: return ia;
                }
            }
        }
        return false;
    }

    // A box that holds every pixel the node may contain (possibly larger).
    CRect Bound() const {
        CRect r;
        switch (kind) {
            case Rect:
            case Ellipse:
                r = rect;
                r.NormalizeRect();
                break;
            case Polygon: {
                if (points.empty()) return CRect();
                int32_t l = std::numeric_limits<int32_t>::max(), t = l, rr = std::numeric_limits<int32_t>::min(), bb = rr;
                for (const CPoint& p : points) {
                    l = std::min(l, p.x); t = std::min(t, p.y);
                    rr = std::max(rr, p.x); bb = std::max(bb, p.y);
                }
                r = CRect(l, t, rr + 1, bb + 1);
                break;
            }
            case Combine: {
                const CRect ra = a ? a->Bound() : CRect();
                const CRect rb = b ? b->Bound() : CRect();
                if (op == RGN_AND) r.IntersectRect(&ra, &rb);
                else if (op == RGN_DIFF || op == RGN_COPY) r = ra;
                else r.UnionRect(&ra, &rb);
                break;
            }
        }
        r.OffsetRect(dx, dy);
        return r;
    }
};

bool CRgn::CreateRectRgn(int32_t left, int32_t top, int32_t right, int32_t bottom) {
    auto n = std::make_shared<Node>();
    n->kind = Node::Rect;
    n->rect = CRect(left, top, right, bottom);
    n->rect.NormalizeRect();
    m_node = std::move(n);
    return true;
}

bool CRgn::CreateRectRgnIndirect(const CRect* rect) {
    if (!rect) return false;
    return CreateRectRgn(rect->left, rect->top, rect->right, rect->bottom);
}

bool CRgn::CreateEllipticRgn(int32_t left, int32_t top, int32_t right, int32_t bottom) {
    auto n = std::make_shared<Node>();
    n->kind = Node::Ellipse;
    n->rect = CRect(left, top, right, bottom);
    n->rect.NormalizeRect();
    m_node = std::move(n);
    return true;
}

bool CRgn::CreateEllipticRgnIndirect(const CRect* rect) {
    if (!rect) return false;
    return CreateEllipticRgn(rect->left, rect->top, rect->right, rect->bottom);
}

bool CRgn::CreatePolygonRgn(const CPoint* points, int count, int fillMode) {
    if (!points || count < 3) return false;
    auto n = std::make_shared<Node>();
    n->kind = Node::Polygon;
    n->points.assign(points, points + count);
    n->fillMode = fillMode == WINDING ? WINDING : ALTERNATE;
    m_node = std::move(n);
    return true;
}

int CRgn::CombineRgn(const CRgn* a, const CRgn* b, int mode) {
    if (!a || !a->m_node) return RGN_ERROR;
    if (mode == RGN_COPY) {
        m_node = a->m_node;
    } else {
        if (mode < RGN_AND || mode > RGN_DIFF || !b || !b->m_node) return RGN_ERROR;
        auto n = std::make_shared<Node>();
        n->kind = Node::Combine;
        n->op = mode;
        n->a = a->m_node;
        n->b = b->m_node;
        m_node = std::move(n);
    }
    CRect box;
    return GetRgnBox(&box);
}

bool CRgn::PtInRegion(int32_t x, int32_t y) const {
    return m_node && m_node->Contains(x + 0.5, y + 0.5);
}

int CRgn::GetRgnBox(CRect* rect) const {
    if (!rect) return RGN_ERROR;
    if (!m_node) {
        rect->SetRectEmpty();
        return RGN_ERROR;
    }
    const CRect bound = m_node->Bound();
    int32_t l = std::numeric_limits<int32_t>::max(), t = l, r = std::numeric_limits<int32_t>::min(), b = r;
    bool any = false;
    for (int32_t y = bound.top; y < bound.bottom; ++y) {
        for (int32_t x = bound.left; x < bound.right; ++x) {
            if (m_node->Contains(x + 0.5, y + 0.5)) {
                any = true;
                l = std::min(l, x); r = std::max(r, x + 1);
                t = std::min(t, y); b = std::max(b, y + 1);
            }
        }
    }
    if (!any) {
        rect->SetRectEmpty();
        return NULLREGION;
    }
    *rect = CRect(l, t, r, b);
    return m_node->kind == Node::Rect ? SIMPLEREGION : COMPLEXREGION;
}

void CRgn::OffsetRgn(int32_t dx, int32_t dy) {
    if (!m_node) return;
    auto n = std::make_shared<Node>(*m_node);
    n->dx += dx;
    n->dy += dy;
    m_node = std::move(n);
}

void CRgn::FillMask(int32_t width, int32_t height, uint8_t* mask) const {
    if (!mask || width <= 0 || height <= 0) return;
    std::fill(mask, mask + static_cast<size_t>(width) * static_cast<size_t>(height), uint8_t{0});
    if (!m_node) return;
    CRect full(0, 0, width, height);
    CRect bound = m_node->Bound();
    CRect box;
    if (!box.IntersectRect(&full, &bound)) return;
    for (int32_t y = box.top; y < box.bottom; ++y) {
        uint8_t* row = mask + static_cast<size_t>(y) * static_cast<size_t>(width);
        for (int32_t x = box.left; x < box.right; ++x) row[x] = m_node->Contains(x + 0.5, y + 0.5) ? 1 : 0;
    }
}

}  // namespace thermokit
