#pragma once
// CSimulatedSource: a camera that needs no hardware, for the demo, the tests
// and trying the recorder. Its image is a triangle wave of period 64 pixels
// along x + y that moves 2 pixels a frame: on the whole sensor, pixel (x, y)
// of frame k is wave[(x + y + 2k) mod 64], with
// wave[j] = maxLevel x min(j, 64 - j) / 32 (integer division), so pixel
// (x, y) of frame k + 1 equals pixel (x + 2, y) of frame k. A window shows
// the part of that image it covers.
//
// At a set rate, frame k is produced at start + k / rate and stamped with
// that time of day; Next waits for it. At rate 0 a frame is produced as soon
// as it is asked for and stamped when it is made. The simulator waits for
// its reader and so never loses a frame; its frame counter is k.
#include <chrono>
#include <vector>

#include "thermokit/acquisition/CFrameSource.h"

namespace thermokit {

class CSimulatedSource : public CFrameSource {
public:
    CSimulatedSource();

    // A sensor of point x line. Settings: nBits 1 to 16 (0: 14), dRate >= 0
    // (0: as fast as the frames are taken), dExposure only noted in the
    // header, roi inside the sensor (empty: the whole sensor). 0 for a
    // setting out of range (SOURCE_REFUSED, the message names it).
    int Open(unsigned short point, unsigned short line, const SOURCE_SETTINGS& settings);

    int Start() override;
    int Next(SOURCE_FRAME& frame, unsigned long timeoutMs) override;
    void Stop() override;
    // Frame rate and integration time, and "synthetic moving pattern" as comment.
    void FillHeader(CPtrOver& film) const override;

private:
    using Clock = std::chrono::steady_clock;
    static constexpr long kPeriod = 64;

    std::vector<unsigned short> m_Strip;   // the wave over the window's width plus one period
    std::vector<unsigned short> m_Buffer;  // the frame handed out
    bool m_bOpen = false;
    bool m_bRunning = false;
    uint64_t m_nNext = 0;                  // number of the next frame
    Clock::time_point m_tStart;
    double m_dFirstTime = 0.0;             // time of day of frame 0
};

}  // namespace thermokit
