#include "thermokit/platform/CRgn.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace thermokit {

namespace {

using Band = CRgn::Band;
using Data = CRgn::Data;

constexpr int64_t kMin32 = std::numeric_limits<int32_t>::min();
constexpr int64_t kMax32 = std::numeric_limits<int32_t>::max();

int32_t Clamp32(int64_t v) { return static_cast<int32_t>(std::clamp(v, kMin32, kMax32)); }

// Lines and columns a shape may occupy: the clip, or else the plane around
// the origin, 2^20 pixels each way (16 times the largest image side): an
// ellipse or polygon costs its height in lines, and no caller needs more.
constexpr int64_t kPlane = int64_t{1} << 20;

struct Window {
    int64_t left = -kPlane, top = -kPlane, right = kPlane, bottom = kPlane;
    explicit Window(const CRect* clip) {
        if (clip) {
            CRect c = *clip;
            c.NormalizeRect();
            left = c.left;
            top = c.top;
            right = c.right;
            bottom = c.bottom;
        }
    }
};

// Builds a region band by band, top to bottom: a line whose runs equal those
// of the band just above it extends that band.
class Builder {
public:
    // Runs of line y (pairs [x0, x1), sorted, apart), cut to [left, right).
    void AddLine(int64_t y, const std::vector<int64_t>& runs, int64_t left, int64_t right) {
        m_line.clear();
        for (size_t k = 0; k + 1 < runs.size(); k += 2) {
            const int64_t x0 = std::max(runs[k], left), x1 = std::min(runs[k + 1], right);
            if (x0 >= x1) continue;
            if (!m_line.empty() && m_line.back() == x0) m_line.back() = Clamp32(x1);
            else {
                m_line.push_back(Clamp32(x0));
                m_line.push_back(Clamp32(x1));
            }
        }
        AddBand(y, y + 1, m_line.data(), m_line.size());
    }

    void AddBand(int64_t top, int64_t bottom, const int32_t* xs, size_t count) {
        if (count == 0 || top >= bottom) return;
        if (!m_data->bands.empty()) {
            Band& last = m_data->bands.back();
            if (last.bottom == top && last.count == count &&
                std::equal(xs, xs + count, m_data->xs.begin() + last.first)) {
                last.bottom = Clamp32(bottom);
                return;
            }
        }
        m_data->bands.push_back(
            Band{Clamp32(top), Clamp32(bottom), static_cast<uint32_t>(m_data->xs.size()), static_cast<uint32_t>(count)});
        m_data->xs.insert(m_data->xs.end(), xs, xs + count);
    }

    std::shared_ptr<const Data> Take() { return std::move(m_data); }

private:
    std::shared_ptr<Data> m_data = std::make_shared<Data>();
    std::vector<int32_t> m_line;
};

// The runs of a op b, both sorted lists of run edges. Walking the edges of
// both in order, each edge toggles its operand; an edge is kept where the
// result changes.
void CombineRuns(const int32_t* a, size_t na, const int32_t* b, size_t nb, int op, std::vector<int32_t>& out) {
    out.clear();
    size_t i = 0, j = 0;
    bool inA = false, inB = false, inside = false;
    while (i < na || j < nb) {
        const int64_t x = std::min(i < na ? int64_t{a[i]} : INT64_MAX, j < nb ? int64_t{b[j]} : INT64_MAX);
        while (i < na && a[i] == x) inA = !inA, ++i;
        while (j < nb && b[j] == x) inB = !inB, ++j;
        bool now;
        switch (op) {
            case RGN_AND: now = inA && inB; break;
            case RGN_XOR: now = inA != inB; break;
            case RGN_DIFF: now = inA && !inB; break;
            default: now = inA || inB; break;
        }
        if (now != inside) {
            out.push_back(static_cast<int32_t>(x));
            inside = now;
        }
    }
}

std::shared_ptr<const Data> Combine(const Data& a, const Data& b, int op) {
    Builder out;
    std::vector<int32_t> runs;
    size_t ia = 0, ib = 0;
    const size_t na = a.bands.size(), nb = b.bands.size();
    int64_t y = INT64_MIN;
    for (;;) {
        while (ia < na && a.bands[ia].bottom <= y) ++ia;
        while (ib < nb && b.bands[ib].bottom <= y) ++ib;
        if (ia == na && ib == nb) break;
        // Skip the lines neither operand has.
        const int64_t nextA = ia < na ? a.bands[ia].top : INT64_MAX, nextB = ib < nb ? b.bands[ib].top : INT64_MAX;
        const int64_t start = std::max(y, std::min(nextA, nextB));
        const bool inA = ia < na && a.bands[ia].top <= start;
        const bool inB = ib < nb && b.bands[ib].top <= start;
        int64_t end = INT64_MAX;
        if (ia < na) end = std::min<int64_t>(end, inA ? a.bands[ia].bottom : a.bands[ia].top);
        if (ib < nb) end = std::min<int64_t>(end, inB ? b.bands[ib].bottom : b.bands[ib].top);
        const int32_t* xa = inA ? a.xs.data() + a.bands[ia].first : nullptr;
        const int32_t* xb = inB ? b.xs.data() + b.bands[ib].first : nullptr;
        CombineRuns(xa, inA ? a.bands[ia].count : 0, xb, inB ? b.bands[ib].count : 0, op, runs);
        out.AddBand(start, end, runs.data(), runs.size());
        y = end;
    }
    return out.Take();
}

// The ellipse inscribed in [left, right) x [top, bottom): a pixel is inside
// when ux^2 + uy^2 <= 1, u being its centre's offset from the ellipse's
// centre over the half-axes. Each line's run is found from the square root
// and then settled by that same test, so that it holds exactly the pixels
// the test accepts.
std::shared_ptr<const Data> Ellipse(const CRect& r, const Window& w) {
    Builder out;
    const double rx = (static_cast<double>(r.right) - r.left) * 0.5;
    const double ry = (static_cast<double>(r.bottom) - r.top) * 0.5;
    if (!(rx > 0.0) || !(ry > 0.0)) return out.Take();
    const double cx = r.left + rx, cy = r.top + ry;
    const int64_t y0 = std::max<int64_t>(r.top, w.top), y1 = std::min<int64_t>(r.bottom, w.bottom);
    std::vector<int64_t> run(2);
    for (int64_t y = y0; y < y1; ++y) {
        const double uy = ((static_cast<double>(y) + 0.5) - cy) / ry;
        const auto inside = [&](int64_t x) {
            const double ux = ((static_cast<double>(x) + 0.5) - cx) / rx;
            return ux * ux + uy * uy <= 1.0;
        };
        const double t = 1.0 - uy * uy;
        if (t < 0.0) continue;
        const double half = rx * std::sqrt(t);
        int64_t lo = static_cast<int64_t>(std::ceil(cx - half - 0.5));
        int64_t hi = static_cast<int64_t>(std::floor(cx + half - 0.5));
        // The estimate is off by a pixel at most where rounding decides.
        for (int k = 0; k < 2 && inside(lo - 1); ++k) --lo;
        for (int k = 0; k < 2 && lo <= hi && !inside(lo); ++k) ++lo;
        for (int k = 0; k < 2 && inside(hi + 1); ++k) ++hi;
        for (int k = 0; k < 2 && hi >= lo && !inside(hi); ++k) --hi;
        if (lo > hi || !inside(lo)) continue;
        run[0] = lo;
        run[1] = hi + 1;
        out.AddLine(y, run, w.left, w.right);
    }
    return out.Take();
}

// A polygon, line by line: the edges crossing a line's centre height are
// kept in an active list (edges sorted by their first line), their crossing
// abscissae sorted, and a pixel is inside when the crossings to the right of
// its centre are odd in number (alternate) or do not cancel out (winding).
// Crossings and comparisons are the same double expressions for every line.
std::shared_ptr<const Data> Polygon(const std::vector<CPoint>& pts, int fillMode, const Window& w) {
    struct Edge {
        double xi, yi, xj, yj;
        int64_t first, last;  // lines [first, last) whose centre the edge crosses
        int dir;
    };
    std::vector<Edge> edges;
    const size_t n = pts.size();
    int64_t top = INT64_MAX, bottom = INT64_MIN;
    for (size_t i = 0, j = n - 1; i < n; j = i++) {
        if (pts[i].y == pts[j].y) continue;
        Edge e{static_cast<double>(pts[i].x), static_cast<double>(pts[i].y), static_cast<double>(pts[j].x),
               static_cast<double>(pts[j].y), std::min(pts[i].y, pts[j].y), std::max(pts[i].y, pts[j].y),
               pts[i].y > pts[j].y ? 1 : -1};
        top = std::min(top, e.first);
        bottom = std::max(bottom, e.last);
        edges.push_back(e);
    }
    Builder out;
    if (edges.empty()) return out.Take();
    std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.first < b.first; });
    const int64_t y0 = std::max(top, w.top), y1 = std::min(bottom, w.bottom);
    std::vector<const Edge*> active;
    std::vector<std::pair<double, int>> cross;
    std::vector<int64_t> runs;
    size_t next = 0;
    // The first pixel whose centre is at or right of c.
    const auto firstAtOrRight = [](double c) {
        int64_t x = static_cast<int64_t>(std::floor(c)) - 1;
        while (static_cast<double>(x) + 0.5 < c) ++x;
        return x;
    };
    for (int64_t y = y0; y < y1; ++y) {
        while (next < edges.size() && edges[next].first <= y) active.push_back(&edges[next++]);
        active.erase(std::remove_if(active.begin(), active.end(), [y](const Edge* e) { return e->last <= y; }),
                     active.end());
        const double py = static_cast<double>(y) + 0.5;
        cross.clear();
        for (const Edge* e : active) {
            const double xc = e->xj + (py - e->yj) * (e->xi - e->xj) / (e->yi - e->yj);
            cross.emplace_back(xc, e->dir);
        }
        std::sort(cross.begin(), cross.end());
        // A centre in [c[k-1], c[k]) has the crossings k.. to its right.
        runs.clear();
        int winding = 0;
        for (const auto& c : cross) winding += c.second;
        for (size_t k = 0; k + 1 < cross.size(); ++k) {
            winding -= cross[k].second;
            const size_t right = cross.size() - (k + 1);
            const bool inside = fillMode == WINDING ? winding != 0 : (right & 1) != 0;
            if (!inside) continue;
            const int64_t x0 = firstAtOrRight(cross[k].first), x1 = firstAtOrRight(cross[k + 1].first);
            if (x0 >= x1) continue;
            if (!runs.empty() && runs.back() >= x0) runs.back() = std::max(runs.back(), x1);
            else {
                runs.push_back(x0);
                runs.push_back(x1);
            }
        }
        out.AddLine(y, runs, w.left, w.right);
    }
    return out.Take();
}

}  // namespace

bool CRgn::CreateRectRgn(int32_t left, int32_t top, int32_t right, int32_t bottom, const CRect* clip) {
    CRect r(left, top, right, bottom);
    r.NormalizeRect();
    // A rectangle costs one band however large: only a clip cuts it.
    Window w(clip);
    if (!clip) w.left = w.top = kMin32, w.right = w.bottom = kMax32;
    Builder out;
    const int64_t y0 = std::max<int64_t>(r.top, w.top), y1 = std::min<int64_t>(r.bottom, w.bottom);
    const int64_t x0 = std::max<int64_t>(r.left, w.left), x1 = std::min<int64_t>(r.right, w.right);
    if (y0 < y1 && x0 < x1) {
        const int32_t xs[2] = {static_cast<int32_t>(x0), static_cast<int32_t>(x1)};
        out.AddBand(y0, y1, xs, 2);
    }
    m_data = out.Take();
    return true;
}

bool CRgn::CreateRectRgnIndirect(const CRect* rect) {
    if (!rect) return false;
    return CreateRectRgn(rect->left, rect->top, rect->right, rect->bottom);
}

bool CRgn::CreateEllipticRgn(int32_t left, int32_t top, int32_t right, int32_t bottom, const CRect* clip) {
    CRect r(left, top, right, bottom);
    r.NormalizeRect();
    m_data = Ellipse(r, Window(clip));
    return true;
}

bool CRgn::CreateEllipticRgnIndirect(const CRect* rect) {
    if (!rect) return false;
    return CreateEllipticRgn(rect->left, rect->top, rect->right, rect->bottom);
}

bool CRgn::CreatePolygonRgn(const CPoint* points, int count, int fillMode, const CRect* clip) {
    if (!points || count < 3) return false;
    const std::vector<CPoint> pts(points, points + count);
    m_data = Polygon(pts, fillMode == WINDING ? WINDING : ALTERNATE, Window(clip));
    return true;
}

int CRgn::CombineRgn(const CRgn* a, const CRgn* b, int mode) {
    if (!a || !a->m_data) return RGN_ERROR;
    if (mode == RGN_COPY) {
        m_data = a->m_data;
    } else {
        if (mode < RGN_AND || mode > RGN_DIFF || !b || !b->m_data) return RGN_ERROR;
        m_data = Combine(*a->m_data, *b->m_data, mode);
    }
    CRect box;
    return GetRgnBox(&box);
}

bool CRgn::PtInRegion(int32_t x, int32_t y) const {
    if (!m_data) return false;
    const auto& bands = m_data->bands;
    const auto band = std::upper_bound(bands.begin(), bands.end(), y,
                                       [](int32_t v, const Band& b) { return v < b.bottom; });
    if (band == bands.end() || band->top > y) return false;
    const int32_t* xs = m_data->xs.data() + band->first;
    // Inside when an odd number of run edges lie at or left of x.
    const size_t edges = static_cast<size_t>(std::upper_bound(xs, xs + band->count, x) - xs);
    return (edges & 1) != 0;
}

int CRgn::GetRgnBox(CRect* rect) const {
    if (!rect) return RGN_ERROR;
    if (!m_data) {
        rect->SetRectEmpty();
        return RGN_ERROR;
    }
    const auto& bands = m_data->bands;
    if (bands.empty()) {
        rect->SetRectEmpty();
        return NULLREGION;
    }
    int32_t l = std::numeric_limits<int32_t>::max(), r = std::numeric_limits<int32_t>::min();
    for (const Band& b : bands) {
        l = std::min(l, m_data->xs[b.first]);
        r = std::max(r, m_data->xs[b.first + b.count - 1]);
    }
    *rect = CRect(l, bands.front().top, r, bands.back().bottom);
    return bands.size() == 1 && bands.front().count == 2 ? SIMPLEREGION : COMPLEXREGION;
}

void CRgn::OffsetRgn(int32_t dx, int32_t dy) {
    if (!m_data || (dx == 0 && dy == 0)) return;
    auto moved = std::make_shared<Data>(*m_data);
    for (Band& b : moved->bands) {
        b.top = Clamp32(int64_t{b.top} + dy);
        b.bottom = Clamp32(int64_t{b.bottom} + dy);
    }
    for (int32_t& x : moved->xs) x = Clamp32(int64_t{x} + dx);
    // Runs or bands pressed together at an end of the range vanish.
    Builder out;
    std::vector<int64_t> runs;
    for (const Band& b : moved->bands) {
        runs.assign(moved->xs.begin() + b.first, moved->xs.begin() + b.first + b.count);
        std::vector<int32_t> kept;
        for (size_t k = 0; k + 1 < runs.size(); k += 2) {
            if (runs[k] >= runs[k + 1]) continue;
            if (!kept.empty() && kept.back() == runs[k]) kept.back() = static_cast<int32_t>(runs[k + 1]);
            else {
                kept.push_back(static_cast<int32_t>(runs[k]));
                kept.push_back(static_cast<int32_t>(runs[k + 1]));
            }
        }
        out.AddBand(b.top, b.bottom, kept.data(), kept.size());
    }
    m_data = out.Take();
}

void CRgn::FillMask(int32_t width, int32_t height, uint8_t* mask) const {
    if (!mask || width <= 0 || height <= 0) return;
    std::fill(mask, mask + static_cast<size_t>(width) * static_cast<size_t>(height), uint8_t{0});
    if (!m_data) return;
    for (const Band& b : m_data->bands) {
        const int32_t y0 = std::max(b.top, 0), y1 = std::min(b.bottom, height);
        if (y0 >= y1) continue;
        uint8_t* first = mask + static_cast<size_t>(y0) * static_cast<size_t>(width);
        const int32_t* xs = m_data->xs.data() + b.first;
        for (uint32_t k = 0; k + 1 < b.count; k += 2) {
            const int32_t x0 = std::max(xs[k], 0), x1 = std::min(xs[k + 1], width);
            if (x0 < x1) std::memset(first + x0, 1, static_cast<size_t>(x1 - x0));
        }
        // The band's other lines are copies of its first.
        for (int32_t y = y0 + 1; y < y1; ++y)
            std::memcpy(mask + static_cast<size_t>(y) * static_cast<size_t>(width), first, static_cast<size_t>(width));
    }
}

}  // namespace thermokit
