#pragma once
// 8-bit display bitmap of palette displays: levels go through a CLut into
// one index a pixel; drawing realises the palette and shows each index as the
// colour of that system-palette slot.
#include <cstdint>

#include "thermokit/platform/CBrush.h"
#include "thermokit/platform/CDC.h"
#include "thermokit/platform/CPalette.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/CWnd.h"

namespace thermokit {

class CLut;

class CBit {
public:
    explicit CBit(long size);
    virtual ~CBit();
    CBit(const CBit&) = delete;
    CBit& operator=(const CBit&) = delete;

    // As CBit24::Update, with index maskIndex where mask is 0.
    int Update(const unsigned short* levels, CLut* lut, const unsigned char* mask = nullptr, long first = 0,
               long count = -1, long step = 1, uint8_t maskIndex = 0);

    // As CBit24::Display; palette (may be null) is selected and realised first.
    int Display(CDC* dc, CPalette* palette, const CRect* dest, const CRect* src, int point, int line,
                const CRgn* region = nullptr, const CBrush* brush = nullptr);
    int Display(CWnd* wnd, CPalette* palette, const CRect* dest, const CRect* src, int point, int line,
                const CRgn* region = nullptr, const CBrush* brush = nullptr);
    int Display(CWnd* wnd, CPalette* palette, int point, int line, const CRgn* region = nullptr,
                const CBrush* brush = nullptr);
    int DisplayNoStretch(CDC* dc, CPalette* palette, const CRect* rect);

    void SetGeometry(int point, int line) {
        m_nPoint = point;
        m_nLine = line;
    }
    uint8_t* GetBuffer() { return m_pBuffer; }
    long GetSize() const { return m_nSize; }

private:
    bool Fits(int point, int line) const;

    uint8_t* m_pBuffer = nullptr;
    long m_nSize = 0;
    int m_nPoint = 0;
    int m_nLine = 0;
};

}  // namespace thermokit
