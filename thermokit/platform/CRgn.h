#pragma once
// A region of the pixel plane: a rectangle, an ellipse, a polygon, or any
// combination of regions (or, and, xor, difference). A pixel (x, y) belongs to
// a region when its centre (x + 0.5, y + 0.5) lies inside the shape, so that a
// rectangle region holds exactly the pixels of CRect::PtInRect (right and bottom
// edges excluded).
//
// A region is kept as the pixels it holds: horizontal bands of lines, each
// band a sorted list of runs of pixels, as the display system keeps its own
// regions. Shapes are turned into runs when they are created, and combining
// two regions walks their bands once, so no operation recurses and the work
// of a combination grows with the runs of its operands, never with how the
// regions were built. The cost of creating an ellipse or a polygon grows with
// its height; a caller that only needs part of the plane (an image) passes
// that part as clip, and the shape is built inside it alone, however far its
// coordinates reach. Without a clip, ellipses and polygons are kept within
// 2^20 pixels of the origin each way (images have at most 65535 a side).
//
// Copies share the runs (they never change once built).
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

    // Creation replaces whatever the region held. Each returns true on
    // success. With clip, only the part of the shape inside clip is kept.
    bool CreateRectRgn(int32_t left, int32_t top, int32_t right, int32_t bottom, const CRect* clip = nullptr);
    bool CreateRectRgnIndirect(const CRect* rect);
    bool CreateEllipticRgn(int32_t left, int32_t top, int32_t right, int32_t bottom, const CRect* clip = nullptr);
    bool CreateEllipticRgnIndirect(const CRect* rect);
    // At least three points.
    bool CreatePolygonRgn(const CPoint* points, int count, int fillMode, const CRect* clip = nullptr);
    // Sets this region to a op b (b is ignored for RGN_COPY). Returns the region type.
    int CombineRgn(const CRgn* a, const CRgn* b, int mode);
    int CopyRgn(const CRgn* src) { return CombineRgn(src, nullptr, RGN_COPY); }
    void SetRectRgn(int32_t left, int32_t top, int32_t right, int32_t bottom) { CreateRectRgn(left, top, right, bottom); }
    void DeleteObject() { m_data.reset(); }

    bool IsCreated() const { return static_cast<bool>(m_data); }
    bool PtInRegion(int32_t x, int32_t y) const;
    bool PtInRegion(CPoint p) const { return PtInRegion(p.x, p.y); }
    // Bounding box of the pixels in the region; returns the region type
    // (SIMPLEREGION when the pixels form one rectangle).
    int GetRgnBox(CRect* rect) const;
    // Moves the region; coordinates that would leave the 32-bit range stop at its ends.
    void OffsetRgn(int32_t dx, int32_t dy);

    // Writes 1 into mask[y * width + x] for every pixel of [0,width) x [0,height)
    // inside the region, 0 elsewhere. Cheaper than PtInRegion per pixel.
    void FillMask(int32_t width, int32_t height, uint8_t* mask) const;

    // Lines [top, bottom) that hold the same runs of pixels: the runs are
    // xs[first], xs[first + 1], ... taken in pairs [x0, x1), sorted, apart.
    struct Band {
        int32_t top;
        int32_t bottom;
        uint32_t first;
        uint32_t count;  // values in xs: twice the runs
    };
    struct Data {
        std::vector<Band> bands;  // top to bottom, apart, none empty
        std::vector<int32_t> xs;
    };

private:
    std::shared_ptr<const Data> m_data;
};

}  // namespace thermokit
