#pragma once
// A window without a window system: a client rectangle (0, 0, width, height)
// and a 32-bit canvas (bytes blue, green, red, spare) that its device context
// draws on. SavePng writes what a true-colour screen would show.
#include "thermokit/platform/CBitmap.h"
#include "thermokit/platform/CDC.h"
#include "thermokit/platform/CRect.h"

namespace thermokit {

class CWnd {
public:
    // A window of width x height client pixels (an empty canvas when either is below 1 or too large).
    CWnd(int width, int height);
    virtual ~CWnd() = default;
    CWnd(const CWnd&) = delete;
    CWnd& operator=(const CWnd&) = delete;

    void GetClientRect(CRect* rect) const;
    // The window's context; each call gives a fresh context without clip
    // region or palette, valid until ReleaseDC or the window's end.
    CDC* GetDC();
    int ReleaseDC(CDC* dc);

    CBitmap* GetCanvas() { return &m_canvas; }
    const CBitmap* GetCanvas() const { return &m_canvas; }
    // Canvas pixel (x, y) as a colour reference; 0xFFFFFFFF outside.
    COLORREF GetCanvasPixel(int x, int y) const;
    // Writes the canvas as an 8-bit RGB PNG; returns 1 on success.
    int SavePng(const char* path) const;

private:
    CBitmap m_canvas;
    CDC m_dc;
};

}  // namespace thermokit
