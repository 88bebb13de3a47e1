#pragma once
// A region of the pixel plane: a rectangle, an ellipse, a polygon, or any
// combination of regions (or, and, xor, difference). A pixel (x, y) belongs to
// a region when its centre (x + 0.5, y + 0.5) lies inside the shape, so that a
// rectangle region holds exactly the pixels of CRect::PtInRect (right and bottom
// edges excluded).
#include <cstdint>
#include <memory>
#include <vector>

#include "thermokit/platform/CRect.h"

namespace thermokit {

enum RegionCombine : int { RGN_AND = 1, RGN_OR = 2, RGN_XOR = 3, RGN_DIFF = 4, RGN_COPY = 5 };
enum RegionType : int { RGN_ERROR = 0, NULLREGION = 1, SIMPLEREGION = 2, COMPLEXREGION = 3 };
enum PolyFillMode : int { ALTERNATE = 1, WINDING = 2 };

class CRgn {
public:
    CRgn() = default;
    CRgn(const CRgn&) = default;
    CRgn& operator=(const CRgn&) = default;

    // Creation replaces whatever the region held. Each returns true on success.
    bool CreateRectRgn(int32_t left, int32_t top, int32_t right, int32_t bottom);
    bool CreateRectRgnIndirect(const CRect* rect);
    bool CreateEllipticRgn(int32_t left, int32_t top, int32_t right, int32_t bottom);
    bool CreateEllipticRgnIndirect(const CRect* rect);
    bool CreatePolygonRgn(const CPoint* points, int count, int fillMode);
    // Sets this region to a op b (b is ignored for RGN_COPY). Returns the region type.
    int CombineRgn(const CRgn* a, const CRgn* b, int mode);
    int CopyRgn(const CRgn* src) { return CombineRgn(src, nullptr, RGN_COPY); }
    void SetRectRgn(int32_t left, int32_t top, int32_t right, int32_t bottom) { CreateRectRgn(left, top, right, bottom); }
    void DeleteObject() { m_node.reset(); }

    bool IsCreated() const { return static_cast<bool>(m_node); }
    bool PtInRegion(int32_t x, int32_t y) const;
    bool PtInRegion(CPoint p) const { return PtInRegion(p.x, p.y); }
    // Bounding box of the pixels in the region; returns the region type.
    int GetRgnBox(CRect* rect) const;
    void OffsetRgn(int32_t dx, int32_t dy);

    // Writes 1 into mask[y * width + x] for every pixel of [0,width) x [0,height)
    // inside the region, 0 elsewhere. Cheaper than PtInRegion per pixel.
    void FillMask(int32_t width, int32_t height, uint8_t* mask) const;

    struct Node;

private:
    std::shared_ptr<const Node> m_node;
};

}  // namespace thermokit
