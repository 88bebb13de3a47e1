#include "thermokit/acquisition/CFrameSource.h"

#include <cmath>
#include <ctime>

#include "thermokit/film/CPtrOver.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit {

uint64_t CFrameSource::MissingBetween(uint64_t previous, uint64_t current) {
    if (current > previous) return current - previous - 1;
    constexpr uint64_t kLast16 = 0xFFFF;
    // A 16-bit counter that went round: previous + 1 .. 65535, then 1 .. current - 1.
    if (current < previous && previous <= kLast16 && current >= 1) return (kLast16 - previous) + (current - 1);
    return 0;
}

void CFrameSource::CountFrame(uint64_t frameId, bool complete) {
    if (!complete) ++m_Stats.nIncomplete;
    else ++m_Stats.nDelivered;
    // A frame whose leader never arrived comes with the number 0, which no
    // GigE Vision frame carries: it says nothing about the counter, and the
    // gap it leaves is its own, already counted as incomplete.
    if (!complete && frameId == 0) {
        ++m_nUnnumbered;
        return;
    }
    if (m_bCounted) {
        const uint64_t gap = MissingBetween(m_nLastId, frameId);
        m_Stats.nMissing += gap > m_nUnnumbered ? gap - m_nUnnumbered : 0;
    }
    m_nUnnumbered = 0;
    m_bCounted = true;
    m_nLastId = frameId;
}

void CFrameSource::ResetCounts() {
    m_Stats = SOURCE_STATISTICS();
    m_bCounted = false;
    m_nLastId = 0;
    m_nUnnumbered = 0;
}

double CFrameSource::TimeOfDay(int64_t unixMicroseconds) {
    const std::time_t t = static_cast<std::time_t>(unixMicroseconds / 1000000);
    std::tm local{};
    localtime_r(&t, &local);
    double time = 0.0;
    MergeTime(&time, static_cast<unsigned long>(local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec),
              static_cast<unsigned long>(unixMicroseconds % 1000000));
    return time;
}

int CFrameSource::SetError(int code, const std::string& text) {
    m_nError = code;
    m_strError = text;
    return 0;
}

void CFrameSource::FillHeader(CPtrOver& film) const {
    if (!m_Info.strModel.empty()) film.SetCamera(m_Info.strModel.c_str());
    if (!m_Info.strSerial.empty()) film.SetSerial(m_Info.strSerial.c_str());
    if (m_dRate > 0.0) film.SetFrameRate(static_cast<float>(m_dRate));
    // Index 0 also goes into the image header, so every image carries it.
    if (m_dExposure > 0.0) film.SetIntegration(static_cast<float>(m_dExposure * 1e-6), 0);
    if (!std::isnan(m_fTemperature)) film.SetHousingTemperature(m_fTemperature, 0);
}

}  // namespace thermokit
