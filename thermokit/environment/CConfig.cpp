#include "thermokit/environment/CConfig.h"

#include <algorithm>
#include <cctype>

#include "thermokit/environment/CRegistry.h"
// The one rule for the highest level of a depth, shared with the frames (a
// free function without dependencies of its own).
#include "thermokit/platform/Levels.h"

namespace thermokit {

CConfig::CConfig(int load)
    : m_strCamera("Kelm"),
      m_strLens("50 mm"),
      m_nPoint(320),
      m_nLine(240),
      m_nBit(14),
      m_nRotation(0),
      m_nDetector(0x2C00002),
      m_nBand(1) {
    if (load) GetRegistry();
}

int CConfig::GetRegistry() {
    CRegistry reg(CRegistry::Setup);
    m_strCamera = reg.GetSTRINGValue("Camera", m_strCamera.c_str());
    m_strLens = reg.GetSTRINGValue("Lens", m_strLens.c_str());
    m_nPoint = reg.GetWORDValue("Point", m_nPoint);
    m_nLine = reg.GetWORDValue("Line", m_nLine);
    m_nBit = reg.GetWORDValue("Bit", m_nBit);
    m_nRotation = reg.GetWORDValue("Rotation", m_nRotation);
    m_nDetector = reg.GetINTValue("Detector", m_nDetector);
    m_nBand = reg.GetINTValue("Band", m_nBand);
    m_strSerial = reg.GetSTRINGValue("Serial", m_strSerial.c_str());
    m_strLensSerial = reg.GetSTRINGValue("LensSerial", m_strLensSerial.c_str());
    return 1;
}

int CConfig::SetRegistry() {
    CRegistry reg(CRegistry::Setup);
    // The record is saved whole or not at all, in one transaction per store.
    RegistryBatch userBatch(reg.m_hKeyUser);
    RegistryBatch machineBatch(reg.m_bAdmin ? reg.m_hKeyMachine : HKEY());
    int ok = 1;
    ok &= reg.SetSTRINGValue("Camera", m_strCamera.c_str()) ? 1 : 0;
    ok &= reg.SetSTRINGValue("Lens", m_strLens.c_str()) ? 1 : 0;
    ok &= reg.SetWORDValue("Point", m_nPoint) ? 1 : 0;
    ok &= reg.SetWORDValue("Line", m_nLine) ? 1 : 0;
    // "Bit" is not written: kept on purpose, the depth comes from the installer.
    ok &= reg.SetWORDValue("Rotation", m_nRotation) ? 1 : 0;
    ok &= reg.SetINTValue("Detector", m_nDetector) ? 1 : 0;
    ok &= reg.SetINTValue("Band", m_nBand) ? 1 : 0;
    ok &= reg.SetSTRINGValue("Serial", m_strSerial.c_str()) ? 1 : 0;
    ok &= reg.SetSTRINGValue("LensSerial", m_strLensSerial.c_str()) ? 1 : 0;
    ok &= machineBatch.Commit() ? 1 : 0;
    ok &= userBatch.Commit() ? 1 : 0;
    return ok;
}

uint32_t CConfig::GetSize() const { return static_cast<uint32_t>(m_nPoint) * static_cast<uint32_t>(m_nLine); }

unsigned short CConfig::GetMaxLevel() const { return thermokit::GetMaxLevel(m_nBit); }

int CConfig::GetInversion() const { return m_nRotation == 180 ? 1 : 0; }

int CConfig::GetMap() const { return m_nRotation == 360 ? 1 : 0; }

int CConfig::HasInName(const char* part) const {
    std::string lower = m_strCamera;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower.find(part) != std::string::npos ? 1 : 0;
}

int CConfig::IsSW() const { return HasInName("sw"); }
int CConfig::IsMW() const { return HasInName("mw"); }
int CConfig::IsLW() const { return HasInName("lw"); }

std::string CConfig::GetBandName(int band) const {
    if (band == -1) band = m_nBand;
    switch (band) {
        case 0: return "SW";
        case 1: return "MW";
        case 2: return "LW";
        case 3: return "UC";
        default: return "Unknown";
    }
}

}  // namespace thermokit
