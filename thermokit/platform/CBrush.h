#pragma once
// A solid brush: one colour.
#include "thermokit/platform/COLORREF.h"

namespace thermokit {

class CBrush {
public:
    CBrush() = default;
    explicit CBrush(COLORREF colour) { CreateSolidBrush(colour); }
    int CreateSolidBrush(COLORREF colour) {
        m_colour = colour;
        m_created = true;
        return 1;
    }
    void DeleteObject() { m_created = false; }
    bool IsCreated() const { return m_created; }
    COLORREF GetColor() const { return m_colour; }

private:
    COLORREF m_colour = 0;
    bool m_created = false;
};

}  // namespace thermokit
