// CFrame::Save: a frame written as a one-image film.
#include "thermokit/film/CPtr.h"
#include "thermokit/image/CFrame.h"

namespace thermokit {

int CFrame::Save(const char* fileName, double* floatData, const char* text1, const char* text2) {
    const unsigned short depth = floatData ? static_cast<unsigned short>(16) : m_nBit;
    CPtr film(m_nPoint, m_nLine, depth, m_nRotation, 1, 1);
    film.FillHeaderInfoSetup();
    film.GetFrame()->SetTime(m_dTime);
    if (!floatData) return film.SaveFrame(fileName, this, text2 ? text2 : text1);
    return film.SaveFrame(fileName, floatData, text1, text2, 1, -1.0, -1.0);
}

}  // namespace thermokit
