#pragma once
// CFrameSource: where recorded frames come from. A source hands out frames of
// unsigned 16-bit levels one at a time, each with its time stamps and the
// camera's frame counter; it counts the frames the transport lost on the
// way, and it fills the film header fields it knows (camera, serial number,
// frame rate, integration time, temperature).
//
// Two sources exist: CSimulatedSource, the synthetic moving pattern that
// needs no hardware, and CGenICamSource, a GigE Vision or USB3 Vision camera
// through Aravis (built when Aravis is found; THERMOKIT_HAVE_ARAVIS is then
// defined for the library and its users).
//
// Use: open the source (each kind has its own Open), Start, Next until
// enough frames came, Stop. A frame handed out by Next points into the
// source's own buffer, which stays valid and untouched until the next call
// of Next or Stop: a recorder copies it once, straight into the film.
//
// Lost frames: every frame the camera numbered between the first and the
// last one received and that did not come out of Next complete is lost. It
// either never arrived (a gap in the camera's frame counter: the network
// dropped it, or no buffer was free to receive it) or arrived incomplete
// (part of its pixels missing; it is dropped, never recorded).
#include <cstdint>
#include <limits>
#include <string>

#include "thermokit/platform/CRect.h"

namespace thermokit {

class CPtrOver;

// What a camera tells about itself.
struct CAMERA_INFO {
    std::string strId;         // what opens it again
    std::string strVendor;
    std::string strModel;
    std::string strSerial;
    std::string strFirmware;   // firmware version (the device version when the camera has none)
    std::string strInterface;  // "GigEVision", "USB3Vision", "Fake" (Aravis' own fake camera), "simulation"
    std::string strAddress;    // IP address of a GigE Vision camera; empty when there is none
};

// How a source is asked to run. A zero or empty member keeps the camera's
// own setting.
struct SOURCE_SETTINGS {
    double dRate = 0.0;      // frames per second
    double dExposure = 0.0;  // exposure (integration) time, microseconds
    CRect roi;               // window on the sensor (left, top, right, bottom excluded); empty: as it is
    int nBits = 0;           // 12, 14 or 16: pixel format Mono12, Mono14 or Mono16 (unpacked); 0: as offered
    int nBuffers = 0;        // buffers in the receiving pool; 0: about a second of frames, 8 to 256
};

// One frame handed out by Next.
struct SOURCE_FRAME {
    const unsigned short* pPixels = nullptr;  // nLine lines of nPoint levels, lines nPitch levels apart
    unsigned short nPoint = 0;
    unsigned short nLine = 0;
    uint32_t nPitch = 0;
    uint64_t nFrameId = 0;     // the camera's frame counter
    uint64_t nCameraTime = 0;  // the camera's time stamp in nanoseconds; 0 when it has none
    double dTime = 0.0;        // time of day the frame was taken or received, seconds since local midnight
    double dElapsed = 0.0;     // seconds since the first frame of this run, on the source's clock
    float fTemperature = std::numeric_limits<float>::quiet_NaN();  // device temperature, degrees Celsius
};

// What a source counted since Start.
struct SOURCE_STATISTICS {
    uint64_t nDelivered = 0;   // complete frames handed out by Next
    uint64_t nIncomplete = 0;  // frames that arrived incomplete and were dropped
    uint64_t nMissing = 0;     // frames that never arrived (gaps in the camera's frame counter)
    uint64_t nUnderruns = 0;   // of those, the ones dropped because no buffer of the pool was free
    uint64_t Lost() const { return nIncomplete + nMissing; }
};

class CFrameSource {
public:
    // Last error codes.
    enum {
        SOURCE_OK = 0,
        SOURCE_NOT_FOUND = 1,  // no camera answers to the id
        SOURCE_REFUSED = 2,    // the camera cannot take a setting asked for (format, window, rate, exposure)
        SOURCE_FAILED = 3,     // the camera or its transport failed
        SOURCE_LOST = 4,       // the camera stopped sending frames or disconnected while running
    };

    CFrameSource() = default;
    virtual ~CFrameSource() = default;
    CFrameSource(const CFrameSource&) = delete;
    CFrameSource& operator=(const CFrameSource&) = delete;

    // Starts delivering frames; 1, or 0 (GetLastErrorMessage tells why).
    virtual int Start() = 0;
    // Waits at most timeoutMs for the next complete frame: 1 and the frame;
    // 0 when none came in that time; -1 when the source has failed (lost
    // camera: GetLastError is SOURCE_LOST).
    virtual int Next(SOURCE_FRAME& frame, unsigned long timeoutMs) = 0;
    // Stops delivering; the last frame handed out is no longer valid.
    virtual void Stop() = 0;
    // Writes what the source knows into a new film's header: camera name and
    // serial number, frame rate, integration time (index 0), the device
    // temperature as housing temperature 0, and a comment.
    virtual void FillHeader(CPtrOver& film) const;

    const CAMERA_INFO& GetInfo() const { return m_Info; }
    unsigned short GetPoint() const { return m_nPoint; }
    unsigned short GetLine() const { return m_nLine; }
    unsigned short GetBit() const { return m_nBit; }
    // The window on the sensor the frames come from.
    CRect GetWindow() const { return m_Window; }
    // Frames per second and exposure in microseconds as the camera reports
    // them; 0 when unknown.
    double GetFrameRate() const { return m_dRate; }
    double GetExposure() const { return m_dExposure; }
    // The pixel format's name ("Mono14"); empty for a source without one.
    const std::string& GetPixelFormat() const { return m_strPixelFormat; }
    virtual SOURCE_STATISTICS GetStatistics() const { return m_Stats; }

    int GetLastError() const { return m_nError; }
    const std::string& GetLastErrorMessage() const { return m_strError; }

    // Frames the camera numbered between two frames received one after the
    // other. GigE Vision counters are 16 bits wide and skip 0 (65535 is
    // followed by 1); wider counters are not expected to wrap, and a
    // counter that goes back (a camera that restarted) counts nothing.
    static uint64_t MissingBetween(uint64_t previous, uint64_t current);

protected:
    int SetError(int code, const std::string& text);  // returns 0
    void ClearError() { SetError(SOURCE_OK, std::string()); }
    // Counts a frame received with its frame counter: gaps since the one
    // before it, and an incomplete frame when it is not complete. An
    // incomplete frame numbered 0 (its leader was lost) fills one place of
    // the next gap instead of moving the counter.
    void CountFrame(uint64_t frameId, bool complete);
    void ResetCounts();
    // Time of day in local time, seconds since midnight to the microsecond,
    // of a moment given in microseconds since 1970 (UTC).
    static double TimeOfDay(int64_t unixMicroseconds);

    CAMERA_INFO m_Info;
    unsigned short m_nPoint = 0;
    unsigned short m_nLine = 0;
    unsigned short m_nBit = 0;
    CRect m_Window;
    double m_dRate = 0.0;
    double m_dExposure = 0.0;
    float m_fTemperature = std::numeric_limits<float>::quiet_NaN();  // when the film began
    std::string m_strPixelFormat;
    SOURCE_STATISTICS m_Stats;

private:
    bool m_bCounted = false;  // a frame counter has been seen since ResetCounts
    uint64_t m_nLastId = 0;
    uint64_t m_nUnnumbered = 0;  // incomplete frames without a number since the last numbered one
    int m_nError = SOURCE_OK;
    std::string m_strError;
};

}  // namespace thermokit
