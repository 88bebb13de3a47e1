#pragma once
// A named colour palette of up to 256 entries: eleven built-in palettes and
// any number of custom ones read from a palette file, held as a logical
// palette and able to draw itself as a colour bar.
//
// Entries are stored blue first (byte 0 blue, byte 1 green, byte 2 red,
// byte 3 the flag 1), so that a true-colour LUT copies them unchanged into
// 32-bit pixels. A palette device that reads the same structure as red,
// green, blue shows red and blue exchanged; that is accepted.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "thermokit/platform/CDC.h"
#include "thermokit/platform/CPalette.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CWnd.h"
#include "thermokit/platform/LastError.h"

namespace thermokit {

class CLut24;
class CBit24;

class CLogPalette : public CPalette, public LastError {
public:
    // Palette numbers of the built-in palettes; 11 and above select custom palettes.
    enum : unsigned short {
        THRESHOLD = 0,
        GREY = 1,
        RAINBOW = 2,
        STEEL = 3,
        LOCKIN = 4,
        GREY16 = 5,
        RAINBOW16 = 6,
        LOCKIN16 = 7,
        HOTMETAL = 8,
        CYCLE = 9,
        ROYGBIV_PALETTE = 10,
        FIRST_CUSTOM = 11,
    };
    static constexpr int kMaxControlPoints = 20;

    // One custom palette of the palette file.
    struct CUSTOM_PALETTE {
        uint16_t nEntries = 0;  // 2..256; 0 when the section has no entry-count line
        uint16_t nPoints = 0;   // at most 20
        int blue[kMaxControlPoints] = {};
        int green[kMaxControlPoints] = {};
        int red[kMaxControlPoints] = {};
    };

    // Reads the custom palettes of iniFile (may be null), builds the entries
    // of palette number `palette`, reverses them when swapped, creates the
    // palette and its index table and the bar's LUT, bitmap and ramp. A custom
    // number that is not loaded, or whose entry count is 0, leaves the palette
    // empty (not created, no bar).
    CLogPalette(unsigned short palette, int swapped, const char* iniFile = nullptr);
    ~CLogPalette() override;
    CLogPalette(const CLogPalette&) = delete;
    CLogPalette& operator=(const CLogPalette&) = delete;

    unsigned short GetPalette() const { return m_nPalette; }
    int IsSwapped() const { return m_bSwapped; }
    const uint8_t* GetIndex() const { return m_pIndex; }
    tagLOGPALETTE* GetPLogPalette() { return m_pLogPalette; }
    const std::vector<std::string>* GetCustomPalleteName() const { return m_pCustomNames; }
    const std::vector<CUSTOM_PALETTE>* GetCustomPalettes() const { return m_pCustom; }
    // Name of this palette (custom palettes: their section name).
    std::string GetPaletteName() const;
    // Name of built-in palette `palette`; "Unknown palette" for any other number.
    static std::string GetPaletteName(int palette);

    // Reads the custom palettes of a palette file (replacing those loaded);
    // returns 1 when the file could be read. See docs/formats.md.
    int ReadIniFile(const char* iniFile);

    // Generators: each fills logPalette.
    void Treshold(tagLOGPALETTE* logPalette);
    void Grey(tagLOGPALETTE* logPalette);
    void Rainbow(tagLOGPALETTE* logPalette);
    void Steel(tagLOGPALETTE* logPalette);
    void Lockin(tagLOGPALETTE* logPalette);
    void GreyThreshold(tagLOGPALETTE* logPalette);
    void TresholdRaimbow(tagLOGPALETTE* logPalette);
    void TresholdLockin(tagLOGPALETTE* logPalette);
    void Hotmetal(tagLOGPALETTE* logPalette);
    void Cycle(tagLOGPALETTE* logPalette);
    void ROYGBIV(tagLOGPALETTE* logPalette);
    // n entries from p control points (red, green, blue values). The last
    // control point itself is never written. Fewer than 2 points: every entry
    // takes the single point's colour, or black without any point.
    void Interpolate(tagLOGPALETTE* logPalette, int n, int p, const int* red, const int* green, const int* blue);

    // The colour bar: orientation 0 draws it vertically (level 255 at the
    // top), otherwise as a 256 x 2 image; `unused` is ignored. min, max and
    // zero (all below 65535, max > min) place the zero split; force recomputes
    // the bar's LUT even after the first drawing.
    void Display(CDC* dc, const CRect* rect, int orientation, int unused, unsigned short min, unsigned short max,
                 unsigned short zero, int force);
    void Display(CWnd* wnd, const CRect* rect, int orientation, int unused, unsigned short min, unsigned short max,
                 unsigned short zero, int force);
    // Into the window's client rectangle, always recomputing.
    void Display(CWnd* wnd, int orientation, int unused, unsigned short min, unsigned short max, unsigned short zero);

    // Bar entry i (0..255) = source entry min + trunc(i * (max - min) / 255).
    int UpdateInternalLut(unsigned short min, unsigned short max, CLut24* source);

    CLut24* GetLut() { return m_pLut; }
    CBit24* GetBit() { return m_pBit; }
    const unsigned short* GetRamp() const { return m_pRamp; }
    int IsDrawn() const { return m_bDrawn; }

protected:
    static void Set(tagPALETTEENTRY* entry, uint8_t byte0, uint8_t byte1, uint8_t byte2, uint8_t flags);
    void FixedTable(tagLOGPALETTE* logPalette, const uint32_t* words);
    void InitIndex();
    void Reverse();

    struct IniReader;

    tagLOGPALETTE* m_pLogPalette = nullptr;
    unsigned short m_nPalette = 0;
    int m_bSwapped = 0;
    uint8_t m_nFlags = 1;
    uint8_t* m_pIndex = nullptr;
    CLut24* m_pLut = nullptr;
    CBit24* m_pBit = nullptr;
    unsigned short* m_pRamp = nullptr;
    int m_bDrawn = 0;
    std::string m_strIniFile;
    IniReader* m_pIniReader = nullptr;
    std::vector<std::string>* m_pCustomNames = nullptr;
    std::vector<CUSTOM_PALETTE>* m_pCustom = nullptr;
};

}  // namespace thermokit
