#pragma once
// The whole-image correction chains.
//
// CorrectImage corrects one frame: its rotation code first (RotateImage, with
// the mapping for code 360), then the NUC table with the frame's maximal
// level, then the bad-pixel replacement.
//
// CCorrection holds a NUC table, a bad-pixel map and a geometric mapping with
// one switch each, and applies them in the other order: NUC, bad pixels,
// mapping last. Both orders are wanted as they are.
#include <memory>
#include <string>

namespace thermokit {

class CFrame;
class CNuc;
class CPixel;
class CMapping;

// Returns 1, or 0 without a frame or buffer. A NUC table or a bad-pixel map
// made for more pixels than the frame holds is skipped rather than let write
// past the frame's buffer.
int CorrectImage(CFrame* frame, CNuc* nuc, CPixel* badPixels, CMapping* mapping);

class CCorrection {
public:
    // Loads the three files; each stage is switched on when its object is
    // valid, so a file that cannot be read simply switches its stage off.
    CCorrection(const std::string& nucFile, const std::string& badPixelFile, const std::string& mappingFile);
    // An empty NUC table, an empty bad-pixel map and an identity mapping of
    // that size, all three switched off.
    CCorrection(unsigned short point, unsigned short line);
    ~CCorrection();
    // Member-wise: the copy shares the three objects with its source; the
    // last holder deletes them.
    CCorrection(const CCorrection& other);
    CCorrection& operator=(const CCorrection& other);

    // NUC (in place), bad pixels, then mapping, each when switched on. The
    // image holds as many pixels as the objects were made for. Returns 1.
    int Apply(unsigned short* image, unsigned short maxLevel);
    int Apply(float* image);

    CNuc* GetNuc() { return m_pNuc.get(); }
    CPixel* GetBadPixels() { return m_pPixel.get(); }
    CMapping* GetMapping() { return m_pMapping.get(); }
    int IsNucUsed() const { return m_bNuc; }
    int IsBadPixelsUsed() const { return m_bPixel; }
    int IsMappingUsed() const { return m_bMapping; }
    // Switches the three stages on (non-zero) or off.
    void SetUse(int nuc, int badPixels, int mapping);

private:
    std::shared_ptr<CNuc> m_pNuc;
    std::shared_ptr<CPixel> m_pPixel;
    std::shared_ptr<CMapping> m_pMapping;
    int m_bNuc = 0;
    int m_bPixel = 0;
    int m_bMapping = 0;
};

}  // namespace thermokit
