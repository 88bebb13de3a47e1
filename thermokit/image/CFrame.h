#pragma once
// CFrame: the library's one image. Point pixels per line, Line lines of
// unsigned 16-bit digital levels, row after row with no gap: pixel (x, y) is
// m_pBuffer[Point * y + x]. It carries a bit depth, a rotation code applied to
// data given to SetFrame, a time stamp and, made on first need, a display
// bitmap.
//
// Member bodies that belong to higher layers live with them: Save in
// film/CFrameSave.cpp, InitBit/Update/Display/Display24 in
// display/CFrameDisplay.cpp, CleanDoubleBuffer in nuc/CFrameClean.cpp.
#include <cstdint>

#include "thermokit/platform/CRect.h"

namespace thermokit {

class CBit;
class CBit24;
class CLut;
class CLut24;
class CPixel;
class CRgn;
class CBrush;
class CPalette;
class CWnd;
class CDC;

class CFrame {
public:
    // Owned buffer of point x line values, all 0.
    CFrame(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24);
    // Wraps the caller's buffer, which the frame never frees or reallocates.
    CFrame(unsigned short* buffer, unsigned short point, unsigned short line, unsigned short bit,
           unsigned short rotation, int b24);
    // Sub-image of src: rect is clipped in place to src; an empty clip means the whole source.
    CFrame(CFrame* src, CRect* rect);
    // Same geometry as src, cleared (or filled with fill), then the listed pixels copied from src.
    CFrame(CFrame* src, int* indices, int count, unsigned short fill);
    ~CFrame();

    CFrame(const CFrame&) = delete;
    CFrame& operator=(const CFrame&) = delete;

    int SetExternalBuffer(unsigned short* buffer);
    void Reset();
    void SetFrame(unsigned short* data);
    void Copy(CFrame* src);

    unsigned short* GetBuffer() { return m_pBuffer; }
    const unsigned short* GetBuffer() const { return m_pBuffer; }
    unsigned short GetPoint() const { return m_nPoint; }
    unsigned short GetLine() const { return m_nLine; }
    unsigned short GetBit() const { return m_nBit; }
    long GetSize() const { return static_cast<long>(m_nPoint) * static_cast<long>(m_nLine); }
    void SetBit(unsigned short bit) { m_nBit = bit; }
    unsigned short GetMaxLevel() const;
    unsigned short GetRotation() const { return m_nRotation; }
    double GetTime() const { return m_dTime; }
    void SetTime(double time) { m_dTime = time; }
    int IsCompatible() const { return 1; }
    int Is24() const { return m_b24; }
    int IsExternalBuffer() const { return m_bExternalBuffer; }

    unsigned short GetPixel(unsigned short x, unsigned short y) const;
    void SetPixel(unsigned short x, unsigned short y, unsigned short value);

    void GetMinMax(unsigned short* pMin, unsigned short* pMax, unsigned short* pMean);
    void Mask();
    void RemoveRgn(CRgn* region);
    static int CleanDoubleBuffer(double* in, int count, double* out, double fraction, int iterations, double factor,
                                 CPixel* badPixels);
    // Bad-pixel replacement used by CleanDoubleBuffer on its work copy: the
    // function replaces the bad pixels of a count-value double image and
    // returns 1, or returns 0 (image untouched) when the map's line x point
    // differs from count. The bad-pixel layer installs CPixel's replacement
    // here; without one, statistics are taken on the input as when the sizes
    // differ. Returns the previous function.
    using BadPixelReplacement = int (*)(CPixel* badPixels, double* image, int count);
    static BadPixelReplacement SetBadPixelReplacement(BadPixelReplacement replacement);

    int Stretch(CFrame* src, CRect* srcRect);
    int ProcessRotation(CFrame* src, int angle);

    // Display through a look-up table (bodies with the display classes).
    void Update(CLut* lut);
    void Update(CLut24* lut);
    void Display(CWnd* wnd, CPalette* palette, CLut* lut, CRgn* region, CBrush* brush);
    void Display(CWnd* wnd, CRect* dest, CPalette* palette, CLut* lut, CRgn* region, CBrush* brush);
    void Display(CWnd* wnd, unsigned short x, unsigned short y, CRect* dest, CPalette* palette, CLut* lut,
                 CRgn* region, CBrush* brush);
    void Display(CWnd* wnd, CRect* dest, CRect* src, CPalette* palette, CLut* lut, int keepAspect,
                 int fillBackground, unsigned long colour, CRgn* region, CBrush* brush);
    void Display24(CWnd* wnd, CLut24* lut, CRgn* region, CBrush* brush);
    void Display24(CWnd* wnd, CRect* dest, CLut24* lut, CRgn* region, CBrush* brush);
    void Display24(CWnd* wnd, unsigned short x, unsigned short y, CRect* dest, CLut24* lut, CRgn* region,
                   CBrush* brush);
    void Display24(CWnd* wnd, CRect* dest, CRect* src, CLut24* lut, int keepAspect, int fillBackground,
                   unsigned long colour, CRgn* region, CBrush* brush);
    void Display24(CDC* dc, CRect* dest, CRect* src, CLut24* lut, int keepAspect, int fillBackground,
                   unsigned long colour, CRgn* region, CBrush* brush);
    CBit* GetBit8() { return m_pBit; }
    CBit24* GetBit24() { return m_pBit24; }

    // Writes the frame as a one-image film (body with the film classes). With
    // floatData the film holds those doubles instead of the levels.
    int Save(const char* fileName, double* floatData, const char* text1, const char* text2);

protected:
    // Common body of the constructors.
    void Init(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24,
              int external, unsigned short* buffer);
    // Point * y + x in 32 bits (unsigned, so that the largest frames do not
    // overflow a signed product).
    long GetIndex(unsigned short x, unsigned short y) const {
        return static_cast<long>(static_cast<uint32_t>(m_nPoint) * y + x);
    }
    void InitBit();

    int m_b24 = 0;
    double m_dTime = 0.0;
    CBit* m_pBit = nullptr;
    CBit24* m_pBit24 = nullptr;
    unsigned short* m_pBuffer = nullptr;
    unsigned short m_nPoint = 0;
    unsigned short m_nLine = 0;
    unsigned short m_nBit = 0;
    unsigned short m_nRotation = 0;
    int m_bExternalBuffer = 0;

    // Deletes both display bitmaps. The display layer sets it when it makes
    // one (InitBit), so that this layer never needs their complete types;
    // the destructor and Copy call it when set.
    void (*m_pfnReleaseBitmaps)(CFrame*) = nullptr;
    static BadPixelReplacement s_pfnBadPixelReplacement;
    void ReleaseBitmaps() {
        if (m_pfnReleaseBitmaps) m_pfnReleaseBitmaps(this);
    }
};

}  // namespace thermokit
