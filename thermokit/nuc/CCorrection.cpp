#include "thermokit/nuc/CCorrection.h"

#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"

namespace thermokit {

int CorrectImage(CFrame* frame, CNuc* nuc, CPixel* badPixels, CMapping* mapping) {
    if (!frame || !frame->GetBuffer()) return 0;
    unsigned short* buffer = frame->GetBuffer();
    const long size = frame->GetSize();
    RotateImage(buffer, frame->GetPoint(), frame->GetLine(), frame->GetRotation(), mapping);
    if (nuc && nuc->GetSize() <= size) nuc->Apply(buffer, frame->GetMaxLevel(), nullptr);
    if (badPixels && static_cast<long>(badPixels->GetPoint()) * badPixels->GetLine() <= size) badPixels->Apply(buffer);
    return 1;
}

CCorrection::CCorrection(const std::string& nucFile, const std::string& badPixelFile, const std::string& mappingFile)
    : m_pNuc(std::make_shared<CNuc>(nucFile.c_str())),
      m_pPixel(std::make_shared<CPixel>(badPixelFile.c_str())),
      m_pMapping(std::make_shared<CMapping>(mappingFile.c_str())) {
    m_bNuc = m_pNuc->IsValid();
    m_bPixel = m_pPixel->IsValid();
    m_bMapping = m_pMapping->IsValid();
}

CCorrection::CCorrection(unsigned short point, unsigned short line)
    : m_pNuc(std::make_shared<CNuc>(point, line)),
      m_pPixel(std::make_shared<CPixel>(point, line, 0)),
      m_pMapping(std::make_shared<CMapping>(point, line)) {}

CCorrection::~CCorrection() = default;
CCorrection::CCorrection(const CCorrection& other) = default;
CCorrection& CCorrection::operator=(const CCorrection& other) = default;

void CCorrection::SetUse(int nuc, int badPixels, int mapping) {
    m_bNuc = nuc ? 1 : 0;
    m_bPixel = badPixels ? 1 : 0;
    m_bMapping = mapping ? 1 : 0;
}

int CCorrection::Apply(unsigned short* image, unsigned short maxLevel) {
    if (!image) return 0;
    if (m_bNuc && m_pNuc) m_pNuc->Apply(image, maxLevel, nullptr);
    if (m_bPixel && m_pPixel) m_pPixel->Apply(image);
    if (m_bMapping && m_pMapping) m_pMapping->Apply(image);
    return 1;
}

int CCorrection::Apply(float* image) {
    if (!image) return 0;
    if (m_bNuc && m_pNuc) m_pNuc->Apply(image);
    if (m_bPixel && m_pPixel) m_pPixel->Apply(image);
    if (m_bMapping && m_pMapping) m_pMapping->Apply(image);
    return 1;
}

}  // namespace thermokit
