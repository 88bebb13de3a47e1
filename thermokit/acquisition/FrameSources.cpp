#include "thermokit/acquisition/FrameSources.h"

#include <cstdlib>

#include "thermokit/acquisition/CSimulatedSource.h"
#ifdef THERMOKIT_HAVE_ARAVIS
#include "thermokit/acquisition/CGenICamSource.h"
#endif

namespace thermokit {

namespace {

#ifdef THERMOKIT_HAVE_ARAVIS
void FakeCameraFromEnvironment() {
    if (const char* fake = std::getenv("THERMOKIT_FAKE_CAMERA"); fake && std::string(fake) == "1")
        CGenICamSource::EnableFakeCamera(true);
}
#endif

}  // namespace

std::vector<CAMERA_INFO> ListFrameSources(bool& genicam) {
    std::vector<CAMERA_INFO> cameras{CSimulatedSource().GetInfo()};
#ifdef THERMOKIT_HAVE_ARAVIS
    genicam = true;
    FakeCameraFromEnvironment();
    for (CAMERA_INFO& c : CGenICamSource::ListCameras()) cameras.push_back(std::move(c));
#else
    genicam = false;
#endif
    return cameras;
}

std::unique_ptr<CFrameSource> OpenFrameSource(const std::string& camera, SOURCE_SETTINGS settings,
                                              unsigned short simPoint, unsigned short simLine, std::string& error,
                                              bool& usage) {
    usage = true;
    if (camera == "sim") {
        if (settings.dRate < 0.0) settings.dRate = 100.0;
        auto sim = std::make_unique<CSimulatedSource>();
        if (!sim->Open(simPoint, simLine, settings)) {
            error = "--camera sim: " + sim->GetLastErrorMessage();
            return nullptr;
        }
        return sim;
    }
    if (settings.nBits != 0 && settings.nBits != 12 && settings.nBits != 14 && settings.nBits != 16) {
        error = "--bits " + std::to_string(settings.nBits) + ": a camera records Mono12, Mono14 or Mono16 (12, 14 or 16)";
        return nullptr;
    }
    if (settings.dRate == 0.0) {
        error = "--rate 0 (as fast as possible) is for the simulated camera; give a camera its frame rate in Hz";
        return nullptr;
    }
    if (settings.dRate < 0.0) settings.dRate = 0.0;
#ifdef THERMOKIT_HAVE_ARAVIS
    FakeCameraFromEnvironment();
    auto genicam = std::make_unique<CGenICamSource>();
    if (!genicam->Open(camera.c_str(), settings)) {
        error = genicam->GetLastErrorMessage();
        usage = genicam->GetLastError() == CFrameSource::SOURCE_REFUSED;
        return nullptr;
    }
    return genicam;
#else
    error = "camera " + camera + ": this thermokit was built without Aravis; only --camera sim records";
    usage = false;
    return nullptr;
#endif
}

}  // namespace thermokit
