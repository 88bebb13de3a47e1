#include "thermokit/acquisition/CSimulatedSource.h"

#include <algorithm>
#include <string>
#include <thread>

#include "thermokit/film/CPtrOver.h"
#include "thermokit/platform/Levels.h"

namespace thermokit {

CSimulatedSource::CSimulatedSource() {
    m_Info.strId = "sim";
    m_Info.strVendor = "thermokit";
    m_Info.strModel = "simulated camera";
    m_Info.strInterface = "simulation";
}

int CSimulatedSource::Open(unsigned short point, unsigned short line, const SOURCE_SETTINGS& settings) {
    Stop();
    m_bOpen = false;
    ClearError();
    if (point == 0 || line == 0) return SetError(SOURCE_REFUSED, "the simulated sensor has no pixel");
    if (settings.nBits < 0 || settings.nBits > 16)
        return SetError(SOURCE_REFUSED, "the simulated camera makes 1 to 16 bits, not " + std::to_string(settings.nBits));
    if (!(settings.dRate >= 0.0) || !(settings.dExposure >= 0.0))
        return SetError(SOURCE_REFUSED, "the simulated camera takes no negative rate or exposure");
    CRect window(0, 0, point, line);
    if (!settings.roi.IsRectNull()) {
        const CRect& r = settings.roi;
        if (r.IsRectEmpty() || r.left < 0 || r.top < 0 || r.right > point || r.bottom > line)
            return SetError(SOURCE_REFUSED, "the window " + std::to_string(r.left) + "," + std::to_string(r.top) + "," +
                                                std::to_string(r.Width()) + "," + std::to_string(r.Height()) +
                                                " lies outside the simulated sensor (" + std::to_string(point) + " x " +
                                                std::to_string(line) + ")");
        window = r;
    }
    m_Window = window;
    m_nPoint = static_cast<unsigned short>(window.Width());
    m_nLine = static_cast<unsigned short>(window.Height());
    m_nBit = static_cast<unsigned short>(settings.nBits == 0 ? 14 : settings.nBits);
    m_dRate = settings.dRate;
    m_dExposure = settings.dExposure;
    const long maxLevel = GetMaxLevel(m_nBit);
    m_Strip.assign(static_cast<size_t>(m_nPoint) + kPeriod, 0);
    for (size_t i = 0; i < m_Strip.size(); ++i) {
        const long j = static_cast<long>(i % kPeriod);
        m_Strip[i] = static_cast<unsigned short>(maxLevel * std::min(j, kPeriod - j) / (kPeriod / 2));
    }
    m_Buffer.assign(static_cast<size_t>(m_nPoint) * m_nLine, 0);
    m_bOpen = true;
    return 1;
}

int CSimulatedSource::Start() {
    if (!m_bOpen) return SetError(SOURCE_FAILED, "the simulated camera is not open");
    ResetCounts();
    m_nNext = 0;
    m_dFirstTime = TimeOfDay(std::chrono::duration_cast<std::chrono::microseconds>(
                                 std::chrono::system_clock::now().time_since_epoch())
                                 .count());
    m_tStart = Clock::now();
    m_bRunning = true;
    return 1;
}

int CSimulatedSource::Next(SOURCE_FRAME& frame, unsigned long timeoutMs) {
    if (!m_bRunning) {
        SetError(SOURCE_FAILED, "the simulated camera is not started");
        return -1;
    }
    const uint64_t k = m_nNext;
    double elapsed = 0.0;
    if (m_dRate > 0.0) {
        elapsed = static_cast<double>(k) / m_dRate;
        const Clock::time_point due =
            m_tStart + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(elapsed));
        const Clock::time_point limit = Clock::now() + std::chrono::milliseconds(timeoutMs);
        if (due > limit) {
            std::this_thread::sleep_until(limit);
            return 0;
        }
        std::this_thread::sleep_until(due);
    } else {
        elapsed = std::chrono::duration<double>(Clock::now() - m_tStart).count();
    }
    // Each line is one copy out of the strip, shifted by where the line
    // lies on the sensor and by the frame number.
    for (long y = 0; y < m_nLine; ++y) {
        const size_t shift = static_cast<size_t>((m_Window.left + m_Window.top + y + 2 * static_cast<long>(k % kPeriod)) % kPeriod);
        std::copy_n(m_Strip.data() + shift, m_nPoint, m_Buffer.data() + static_cast<size_t>(y) * m_nPoint);
    }
    frame.pPixels = m_Buffer.data();
    frame.nPoint = m_nPoint;
    frame.nLine = m_nLine;
    frame.nPitch = m_nPoint;
    frame.nFrameId = k;
    frame.nCameraTime = 0;
    // On schedule at a set rate: the time the camera took it.
    frame.dTime = m_dRate > 0.0 ? m_dFirstTime + (1.0 / m_dRate) * static_cast<double>(k) : m_dFirstTime + elapsed;
    frame.dElapsed = elapsed;
    frame.fTemperature = m_fTemperature;
    CountFrame(k, true);
    ++m_nNext;
    return 1;
}

void CSimulatedSource::Stop() { m_bRunning = false; }

void CSimulatedSource::FillHeader(CPtrOver& film) const {
    if (m_dRate > 0.0) film.SetFrameRate(static_cast<float>(m_dRate));
    if (m_dExposure > 0.0) film.SetIntegration(static_cast<float>(m_dExposure * 1e-6), 0);
    film.SetComment("synthetic moving pattern");
}

}  // namespace thermokit
