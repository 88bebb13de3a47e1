#pragma once
// CGenICamSource: a GenICam camera, GigE Vision or USB3 Vision, through
// Aravis. Built only when Aravis is found (THERMOKIT_HAVE_ARAVIS).
//
// Open finds the camera by the id Aravis lists (ListCameras), its serial
// number or its IP address, and sets it up through the standard feature
// names: PixelFormat (Mono12, Mono14 or Mono16, unpacked), Width, Height,
// OffsetX and OffsetY, the exposure time (ExposureTime, or ExposureTimeAbs
// on older cameras) and AcquisitionFrameRate. A setting the camera cannot
// take is refused with what it can take (the pixel formats it offers, its
// sensor size, its bounds), never silently bent. The camera's vendor, model,
// serial number, firmware version (DeviceFirmwareVersion, else
// DeviceVersion) and DeviceTemperature, when it has one, go into the film
// header (FillHeader).
//
// Start queues a pool of buffers and starts the acquisition; Aravis'
// receiving thread fills the buffers, and Next hands out the next complete
// one as it is: the frame's pixels are that buffer, which goes back to the
// pool at the next Next or Stop. Incomplete buffers go back at once and are
// counted; so are the frames missing from the camera's frame counter.
//
// A camera counts as lost when Aravis reports the control connection lost
// (no answer to its heartbeat, a few seconds), or when no frame at all came
// for GetSilenceLimit() seconds: Next then returns -1 with SOURCE_LOST.
//
// Aravis keeps one list of devices for the whole process: ListCameras and
// Open update it, so they are called from one thread at a time.
//
// A GigE Vision camera on this machine's loopback (Aravis' fake camera
// started with -i 127.0.0.1) is opened through its address, so that its
// stream comes over the loopback interface and not over the interface the
// discovery answer happened to arrive on.
#include <memory>
#include <string>
#include <vector>

#include "thermokit/acquisition/CFrameSource.h"

namespace thermokit {

class CGenICamSource : public CFrameSource {
public:
    CGenICamSource();
    ~CGenICamSource() override;

    // The cameras Aravis finds now on every interface (GigE Vision discovery
    // waits about a second).
    static std::vector<CAMERA_INFO> ListCameras();
    // Adds Aravis' in-process fake camera (id "Fake_1", 2048 x 2048 sensor,
    // Mono8 and Mono16) to what ListCameras and Open see, or removes it.
    static void EnableFakeCamera(bool on);

    // Opens and sets up the camera. 1; or 0 with GetLastError
    // SOURCE_NOT_FOUND (nothing answers to id), SOURCE_REFUSED (a setting the
    // camera cannot take; the camera stays open with its other settings) or
    // SOURCE_FAILED.
    int Open(const char* id, const SOURCE_SETTINGS& settings);
    // Stops and lets the camera go.
    void Close();
    int IsOpen() const;

    int Start() override;
    int Next(SOURCE_FRAME& frame, unsigned long timeoutMs) override;
    void Stop() override;
    // The common fields, and a comment naming the camera, its firmware, id
    // and interface, pixel format, window and exposure.
    void FillHeader(CPtrOver& film) const override;
    SOURCE_STATISTICS GetStatistics() const override;

    // The pixel formats the camera offers, by their GenICam names.
    const std::vector<std::string>& GetPixelFormats() const { return m_PixelFormats; }
    int GetBufferCount() const { return m_nBuffers; }
    size_t GetPayload() const { return m_nPayload; }
    // Seconds without any frame after which a running camera counts as
    // lost: 5, or 20 frame periods when that is longer.
    double GetSilenceLimit() const;

private:
    struct Aravis;  // the Aravis objects, kept out of this header

    int Refuse(const std::string& text);
    void ReleaseHeld();
    void ReadTemperature();

    std::unique_ptr<Aravis> m_pArv;
    std::vector<std::string> m_PixelFormats;
    int m_nBuffers = 0;
    size_t m_nPayload = 0;
};

}  // namespace thermokit
