#include "thermokit/display/CLogPalette.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <utility>

#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLut.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Utf8Path.h"
#include "thermokit/platform/File.h"

namespace thermokit {

namespace {

const char* const kNames[] = {"Threshold",  "Grey",      "Rainbow",   "Steel", "Lockin", "Grey 16",
                              "Rainbow 16", "Lockin 16", "Hot Metal", "Cycle", "ROYGBIV"};
constexpr int kBuiltIns = 11;

// Fixed 16-entry tables, as 0xRRGGBB words, entry 0 first.
const uint32_t kThreshold[16] = {0x000000, 0x5000A0, 0x0000FF, 0x00A0FF, 0x00FFFF, 0x008000, 0x00A000, 0x00FF00,
                                 0x505000, 0x808000, 0xA00000, 0xFF0000, 0xFF00FF, 0xFFA000, 0xFFFF00, 0xFFFFFF};
const uint32_t kRainbow16[16] = {0x0000FF, 0x0042FF, 0x008CFF, 0x00CEFF, 0x00FFEF, 0x00FFAD, 0x00FF63, 0x00FF21,
                                 0x21FF00, 0x63FF00, 0xA5FF00, 0xEFFF00, 0xFFC600, 0xFF8C00, 0xFF4200, 0xFF0000};
const uint32_t kLockin16[16] = {0x80FCF7, 0x00BFF7, 0x0080F0, 0x0040E0, 0x0000BF, 0x000080, 0x000040, 0x000000,
                                0x000000, 0x400000, 0x800F00, 0xBF2100, 0xBF4000, 0xF78000, 0xF7BF00, 0xF7FC40};

// Control values in a palette file are kept in this range so that the
// interpolation cannot overflow; only their low byte shows anyway.
constexpr long kControlLimit = 1 << 20;
// Longest line of a palette file that is looked at.
constexpr size_t kMaxLine = 4096;
// Largest palette file read.
constexpr long long kMaxFileBytes = 16ll << 20;
// Custom palettes beyond this would have numbers above 65535.
constexpr size_t kMaxCustom = 65535 - CLogPalette::FIRST_CUSTOM;

std::string Trim(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
    return s.substr(b, e - b);
}

// Reads one integer at p, skipping blanks; clamped to +-kControlLimit.
bool ReadInt(const char*& p, long& value) {
    while (*p == ' ' || *p == '\t') ++p;
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(p, &end, 10);
    if (end == p) return false;
    value = v > kControlLimit ? kControlLimit : (v < -kControlLimit ? -kControlLimit : static_cast<long>(v));
    p = end;
    while (*p == ' ' || *p == '\t') ++p;
    return true;
}

// "(r,g,b)" with optional blanks.
bool ParseControl(const std::string& line, long rgb[3]) {
    if (line.size() < 2 || line.front() != '(' || line.back() != ')') return false;
    const std::string inner = line.substr(1, line.size() - 2);
    const char* p = inner.c_str();
    for (int k = 0; k < 3; ++k) {
        if (!ReadInt(p, rgb[k])) return false;
        if (k < 2) {
            if (*p != ',') return false;
            ++p;
        }
    }
    return *p == '\0';
}

}  // namespace

// The sections of a palette file, in file order.
struct CLogPalette::IniReader {
    struct Section {
        std::string name;
        std::vector<std::string> lines;  // at most kMaxControlPoints control lines, then the last line
        std::string last;
        size_t count = 0;
    };
    std::vector<Section> sections;

    // False with why (and the system's error number err, 0 for none) when
    // the file cannot be read or is no text file of a sensible size (a
    // palette file holds a few kilobytes).
    bool Read(const char* path, std::string& why, int& err) {
        sections.clear();
        err = 0;
        const File::Status st = File::StatusOf(path);
        if (st.err != 0) {
            why = "cannot be opened";
            err = st.err;
            return false;
        }
        if (!st.regular || st.size > kMaxFileBytes) {
            why = "not a palette file (a text file of at most 16 MiB expected)";
            return false;
        }
        std::ifstream in(PathFromUtf8(path), std::ios::binary);
        if (!in) {
            why = "cannot be opened";
            err = errno ? errno : EIO;
            return false;
        }
        std::string raw;
        Section* current = nullptr;
        while (std::getline(in, raw)) {
            if (raw.size() > kMaxLine) raw.resize(kMaxLine);
            const std::string line = Trim(raw);
            if (line.empty() || line[0] == ';' || line[0] == '#') continue;
            if (line.front() == '[') {
                const size_t close = line.find(']');
                if (close == std::string::npos) {
                    // Malformed header: its lines are dropped up to the next header.
                    current = nullptr;
                    continue;
                }
                if (sections.size() >= kMaxCustom) {
                    current = nullptr;
                    continue;
                }
                sections.push_back(Section{Trim(line.substr(1, close - 1)), {}, {}, 0});
                current = &sections.back();
                continue;
            }
            if (!current) continue;  // text before the first section
            if (current->count > 0) {
                // The previous last line turned out not to be the last one.
                long rgb[3];
                if (ParseControl(current->last, rgb) && current->lines.size() < kMaxControlPoints)
                    current->lines.push_back(current->last);
            }
            current->last = line;
            ++current->count;
        }
        if (in.bad()) {
            why = "cannot be read";
            err = errno ? errno : EIO;
            return false;
        }
        return true;
    }
};

std::string CLogPalette::GetPaletteName(int palette) {
    if (palette >= 0 && palette < kBuiltIns) return kNames[palette];
    return "Unknown palette";
}

std::string CLogPalette::GetPaletteName() const {
    if (m_nPalette < FIRST_CUSTOM) return GetPaletteName(static_cast<int>(m_nPalette));
    const size_t index = static_cast<size_t>(m_nPalette - FIRST_CUSTOM);
    if (m_pCustomNames && index < m_pCustomNames->size()) return (*m_pCustomNames)[index];
    return "Unknown palette";
}

CLogPalette::CLogPalette(unsigned short palette, int swapped, const char* iniFile)
    : m_nPalette(palette), m_bSwapped(swapped) {
    m_pLogPalette = new tagLOGPALETTE{};
    m_pLogPalette->palVersion = 0x300;
    m_pIndex = new uint8_t[257]();
    m_pIniReader = new IniReader;
    m_pCustomNames = new std::vector<std::string>;
    m_pCustom = new std::vector<CUSTOM_PALETTE>;
    ReadIniFile(iniFile);

    switch (palette) {
        case THRESHOLD: Treshold(m_pLogPalette); break;
        case GREY: Grey(m_pLogPalette); break;
        case RAINBOW: Rainbow(m_pLogPalette); break;
        case STEEL: Steel(m_pLogPalette); break;
        case LOCKIN: Lockin(m_pLogPalette); break;
        case GREY16: GreyThreshold(m_pLogPalette); break;
        case RAINBOW16: TresholdRaimbow(m_pLogPalette); break;
        case LOCKIN16: TresholdLockin(m_pLogPalette); break;
        case HOTMETAL: Hotmetal(m_pLogPalette); break;
        case CYCLE: Cycle(m_pLogPalette); break;
        case ROYGBIV_PALETTE: ROYGBIV(m_pLogPalette); break;
        default: {
            const size_t index = static_cast<size_t>(palette - FIRST_CUSTOM);
            if (index >= m_pCustom->size()) return;
            const CUSTOM_PALETTE& custom = (*m_pCustom)[index];
            if (custom.nEntries == 0) return;
            Interpolate(m_pLogPalette, custom.nEntries, custom.nPoints, custom.red, custom.green, custom.blue);
            break;
        }
    }
    if (m_bSwapped) Reverse();
    CreatePalette(m_pLogPalette);
    InitIndex();
    m_pLut = new CLut24(255);
    m_pBit = new CBit24(512, 0, 0);
    m_pRamp = new unsigned short[512];
    for (int k = 0; k < 512; ++k) m_pRamp[k] = static_cast<unsigned short>(255 - k / 2);
}

CLogPalette::~CLogPalette() {
    delete m_pLogPalette;
    delete[] m_pIndex;
    delete m_pLut;
    delete m_pBit;
    delete[] m_pRamp;
    delete m_pIniReader;
    delete m_pCustomNames;
    delete m_pCustom;
}

int CLogPalette::ReadIniFile(const char* iniFile) {
    m_pCustomNames->clear();
    m_pCustom->clear();
    m_strIniFile = iniFile ? iniFile : "";
    ClearLastError();
    if (!iniFile || !*iniFile) return 0;
    std::string why;
    int err = 0;
    if (!m_pIniReader->Read(iniFile, why, err)) return err ? SetLastError(why, err) : SetLastError(ErrorKind::Format, why);
    for (const IniReader::Section& section : m_pIniReader->sections) {
        CUSTOM_PALETTE custom;
        const size_t eq = section.last.find('=');
        long rgb[3];
        std::vector<std::string> controls = section.lines;
        if (section.count > 0 && eq != std::string::npos && !ParseControl(section.last, rgb)) {
            const std::string value = Trim(section.last.substr(eq + 1));
            errno = 0;
            const long long n = std::strtoll(value.c_str(), nullptr, 10);
            custom.nEntries = static_cast<uint16_t>(n > kMaxPaletteEntries ? kMaxPaletteEntries : (n < 2 ? 2 : n));
        } else if (section.count > 0 && ParseControl(section.last, rgb) && controls.size() < kMaxControlPoints) {
            // No entry-count line: the palette stays empty (entry count 0).
            controls.push_back(section.last);
        }
        for (const std::string& line : controls) {
            ParseControl(line, rgb);
            custom.red[custom.nPoints] = static_cast<int>(rgb[0]);
            custom.green[custom.nPoints] = static_cast<int>(rgb[1]);
            custom.blue[custom.nPoints] = static_cast<int>(rgb[2]);
            ++custom.nPoints;
        }
        m_pCustomNames->push_back(section.name);
        m_pCustom->push_back(custom);
    }
    return 1;
}

void CLogPalette::Set(tagPALETTEENTRY* entry, uint8_t byte0, uint8_t byte1, uint8_t byte2, uint8_t flags) {
    entry->peRed = byte0;
    entry->peGreen = byte1;
    entry->peBlue = byte2;
    entry->peFlags = flags;
}

void CLogPalette::Interpolate(tagLOGPALETTE* logPalette, int n, int p, const int* red, const int* green,
                              const int* blue) {
    if (!logPalette) return;
    if (n < 0) n = 0;
    if (n > kMaxPaletteEntries) n = kMaxPaletteEntries;
    logPalette->palNumEntries = static_cast<uint16_t>(n);
    if (p < 2) {
        for (int k = 0; k < n; ++k) {
            if (p == 1)
                Set(&logPalette->palPalEntry[k], static_cast<uint8_t>(blue[0]), static_cast<uint8_t>(green[0]),
                    static_cast<uint8_t>(red[0]), m_nFlags);
            else
                Set(&logPalette->palPalEntry[k], 0, 0, 0, m_nFlags);
        }
        return;
    }
    const float step = static_cast<float>(static_cast<double>(n) / (p - 1));
    int k = 0;
    for (int i = 0; i < p - 1; ++i) {
        const int seg = static_cast<int>(std::trunc(static_cast<double>(i + 1) * step)) -
                        static_cast<int>(std::trunc(static_cast<double>(i) * step));
        for (int j = 0; j < seg && k < n; ++j, ++k) {
            const int r = red[i] + (red[i + 1] - red[i]) * j / seg;
            const int g = green[i] + (green[i + 1] - green[i]) * j / seg;
            const int b = blue[i] + (blue[i + 1] - blue[i]) * j / seg;
            Set(&logPalette->palPalEntry[k], static_cast<uint8_t>(b & 0xFF), static_cast<uint8_t>(g & 0xFF),
                static_cast<uint8_t>(r & 0xFF), m_nFlags);
        }
    }
}

void CLogPalette::FixedTable(tagLOGPALETTE* logPalette, const uint32_t* words) {
    logPalette->palNumEntries = 16;
    for (int k = 0; k < 16; ++k)
        Set(&logPalette->palPalEntry[k], static_cast<uint8_t>(words[k] & 0xFF),
            static_cast<uint8_t>((words[k] >> 8) & 0xFF), static_cast<uint8_t>((words[k] >> 16) & 0xFF), m_nFlags);
}

void CLogPalette::Treshold(tagLOGPALETTE* logPalette) { FixedTable(logPalette, kThreshold); }
void CLogPalette::TresholdRaimbow(tagLOGPALETTE* logPalette) { FixedTable(logPalette, kRainbow16); }
void CLogPalette::TresholdLockin(tagLOGPALETTE* logPalette) { FixedTable(logPalette, kLockin16); }

void CLogPalette::Grey(tagLOGPALETTE* logPalette) {
    const int r[] = {0, 255}, g[] = {0, 255}, b[] = {0, 255};
    Interpolate(logPalette, 256, 2, r, g, b);
}

void CLogPalette::GreyThreshold(tagLOGPALETTE* logPalette) {
    const int r[] = {0, 255}, g[] = {0, 255}, b[] = {0, 255};
    Interpolate(logPalette, 16, 2, r, g, b);
}

void CLogPalette::Hotmetal(tagLOGPALETTE* logPalette) {
    const int r[] = {0, 255, 255}, g[] = {0, 0, 255}, b[] = {0, 0, 128};
    Interpolate(logPalette, 256, 3, r, g, b);
}

void CLogPalette::Rainbow(tagLOGPALETTE* logPalette) {
    const int r[] = {0, 0, 0, 0, 255, 255, 255};
    const int g[] = {0, 0, 255, 255, 255, 0, 0};
    const int b[] = {0, 255, 255, 0, 0, 0, 255};
    Interpolate(logPalette, 256, 7, r, g, b);
}

void CLogPalette::Steel(tagLOGPALETTE* logPalette) {
    const int r[] = {0, 255, 0, 0, 0, 255, 255, 255};
    const int g[] = {0, 0, 0, 255, 255, 0, 255, 255};
    const int b[] = {0, 255, 255, 255, 0, 0, 0, 255};
    Interpolate(logPalette, 256, 8, r, g, b);
}

void CLogPalette::Lockin(tagLOGPALETTE* logPalette) {
    const int r[] = {0, 0, 0, 0, 255, 255, 255};
    const int g[] = {255, 255, 0, 0, 0, 255, 255};
    const int b[] = {0, 255, 255, 0, 0, 0, 255};
    Interpolate(logPalette, 256, 7, r, g, b);
}

void CLogPalette::Cycle(tagLOGPALETTE* logPalette) {
    const int r[] = {255, 0, 0, 255, 255};
    const int g[] = {255, 0, 0, 0, 255};
    const int b[] = {255, 255, 0, 0, 255};
    Interpolate(logPalette, 256, 5, r, g, b);
}

void CLogPalette::ROYGBIV(tagLOGPALETTE* logPalette) {
    const int r[] = {0, 72, 80, 0, 8, 255, 255, 255, 255};
    const int g[] = {0, 61, 0, 16, 240, 255, 140, 32, 255};
    const int b[] = {0, 139, 135, 255, 8, 32, 0, 0, 255};
    Interpolate(logPalette, 256, 9, r, g, b);
}

void CLogPalette::Reverse() {
    const int count = m_pLogPalette->palNumEntries;
    for (int i = 0; i < count / 2; ++i) std::swap(m_pLogPalette->palPalEntry[i], m_pLogPalette->palPalEntry[count - 1 - i]);
}

void CLogPalette::InitIndex() {
    std::memset(m_pIndex, 0, 257);
    ReadPaletteIndices(nullptr, this, m_pIndex);
}

void CLogPalette::Display(CDC* dc, const CRect* rect, int orientation, int, unsigned short min, unsigned short max,
                          unsigned short zero, int force) {
    if (!m_pLut || !m_pBit) return;
    if (!m_bDrawn || force) {
        if (zero < 65535 && min < 65535 && max < 65535 && max > min) {
            long z = (static_cast<long>(zero) - static_cast<long>(min)) * 256 /
                     (static_cast<long>(max) - static_cast<long>(min) + 1);
            if (z < 0) z = 0;
            // A split beyond the bar's 256 levels is refused by the LUT.
            m_pLut->SetZero(1, static_cast<unsigned short>(z > 65535 ? 65535 : z));
        } else {
            m_pLut->RemoveZero();
        }
        m_pLut->Update(dc, this, 0, 255);
    }
    m_pBit->Update(m_pRamp, m_pLut);
    const int point = orientation == 0 ? 2 : 256;
    const int line = orientation == 0 ? 256 : 2;
    if (dc && rect) m_pBit->Display(dc, rect, nullptr, point, line);
    m_bDrawn = 1;
}

void CLogPalette::Display(CWnd* wnd, const CRect* rect, int orientation, int unused, unsigned short min,
                          unsigned short max, unsigned short zero, int force) {
    if (!wnd) return;
    CDC* dc = wnd->GetDC();
    Display(dc, rect, orientation, unused, min, max, zero, force);
    wnd->ReleaseDC(dc);
}

void CLogPalette::Display(CWnd* wnd, int orientation, int unused, unsigned short min, unsigned short max,
                          unsigned short zero) {
    if (!wnd) return;
    CRect client;
    wnd->GetClientRect(&client);
    Display(wnd, &client, orientation, unused, min, max, zero, 1);
}

int CLogPalette::UpdateInternalLut(unsigned short min, unsigned short max, CLut24* source) {
    if (!m_pLut || min > max || !source || !source->GetBuffer()) return 0;
    if (min > source->GetMaxLevel() || max > source->GetMaxLevel()) return 0;
    uint32_t* bar = m_pLut->GetBuffer();
    const uint32_t* src = source->GetBuffer();
    for (int i = 0; i < 256; ++i) bar[i] = src[min + i * (max - min) / 255];
    m_bDrawn = 1;
    return 1;
}

}  // namespace thermokit
