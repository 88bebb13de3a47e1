#pragma once
// The compensated-calibration record of a CNUC file (the file itself is not
// handled here). It describes how a camera's levels drift with the camera's
// own temperature, so that a calibration made at one camera temperature can
// be used at another (CCalibrationComp), and how the levels scale with the
// integration time. The film header keeps a copy of the whole record.
//
// With dT = camera temperature - m_fRefCameraTemp (kelvin):
//   level drift  D(dT) = sum over i <= m_wLevelDriftDegree of m_adLevelDrift[i] * dT^i   (levels)
//   gain drift   G(dT) = sum over i <= m_wGainDriftDegree  of m_adGainDrift[i]  * dT^i   (1 at dT = 0
//                        when m_adGainDrift[0] = 1)
//   level at the reference = (level - D(dT)) / G(dT)
// A level measured at integration time t (microseconds) corresponds, at the
// reference integration time, to m_fDarkLevel + (level - m_fDarkLevel) * m_fRefIntegration / t.
#include <cstddef>
#include <cstdint>

namespace thermokit {

class CCnucFile {
public:
    static constexpr int kMaxDegree = 7;

    // Validity flags (m_dwFlags).
    static constexpr uint32_t kRecordValid = 0x01;        // the record holds a compensation
    static constexpr uint32_t kLevelDriftValid = 0x02;    // m_adLevelDrift is used
    static constexpr uint32_t kGainDriftValid = 0x04;     // m_adGainDrift is used
    static constexpr uint32_t kIntegrationValid = 0x08;   // m_fRefIntegration / m_fDarkLevel are used
    static constexpr uint32_t kTemperatureRangeValid = 0x10;  // refuse camera temperatures outside the range

#pragma pack(push, 1)
    struct _CNUC_CALIBRATION {
        char m_szSignature[8];        //   0 "CNUCCAL" and a zero byte
        uint32_t m_dwVersion;         //   8 record version, 1
        uint32_t m_dwFlags;           //  12 validity flags above
        float m_fRefCameraTemp;       //  16 camera temperature of the calibration, K
        float m_fCameraTempMin;       //  20 lowest camera temperature the drift was measured at, K
        float m_fCameraTempMax;       //  24 highest, K
        float m_fRefIntegration;      //  28 integration time of the calibration, us
        float m_fDarkLevel;           //  32 level of a zero signal at the reference integration time
        uint16_t m_wLevelDriftDegree; //  36 0 .. kMaxDegree
        uint16_t m_wGainDriftDegree;  //  38 0 .. kMaxDegree
        double m_adLevelDrift[8];     //  40 level-drift polynomial, constant term first
        double m_adGainDrift[8];      // 104 gain-drift polynomial, constant term first
        int16_t m_nWindowX;           // 168 detector window the record was measured on
        int16_t m_nWindowY;           // 170
        int16_t m_nWindowWidth;       // 172 0 = any window
        int16_t m_nWindowHeight;      // 174
        char m_szCamera[20];          // 176 camera name, zero-terminated
        uint32_t m_dwSerial;          // 196 camera serial number
        uint16_t m_wYear;             // 200 date of the measurement
        uint8_t m_byDay;              // 202
        uint8_t m_byMonth;            // 203
        uint8_t m_abyReserved[244];   // 204 zero
    };
#pragma pack(pop)
};

static_assert(sizeof(CCnucFile::_CNUC_CALIBRATION) == 448);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_dwVersion) == 8);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_dwFlags) == 12);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_fRefCameraTemp) == 16);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_fCameraTempMin) == 20);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_fCameraTempMax) == 24);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_fRefIntegration) == 28);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_fDarkLevel) == 32);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_wLevelDriftDegree) == 36);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_wGainDriftDegree) == 38);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_adLevelDrift) == 40);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_adGainDrift) == 104);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_nWindowX) == 168);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_szCamera) == 176);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_dwSerial) == 196);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_wYear) == 200);
static_assert(offsetof(CCnucFile::_CNUC_CALIBRATION, m_abyReserved) == 204);

}  // namespace thermokit
