#pragma once
// The frame sources a program can record from, by name: "sim" (the
// simulated camera, CSimulatedSource) or the id, serial number or IP address
// of a GenICam camera (CGenICamSource, when built with Aravis). The tool's
// record and cameras and the Python package open and list sources here.
//
// THERMOKIT_FAKE_CAMERA=1 in the environment adds Aravis' in-process fake
// camera ("Fake_1") to what is listed and opened.
#include <memory>
#include <string>
#include <vector>

#include "thermokit/acquisition/CFrameSource.h"

namespace thermokit {

// The simulated camera first, then every GenICam camera found now. genicam
// tells whether GenICam cameras were looked for (built with Aravis).
std::vector<CAMERA_INFO> ListFrameSources(bool& genicam);

// Opens camera ("sim" or a GenICam camera) with settings; the sensor of the
// simulated camera is simPoint x simLine. settings.dRate below 0 means not
// given: 100 frames per second for the simulated camera, a camera's own rate
// otherwise (0 is as fast as possible, for the simulated camera only).
// Null with the message; usage is set when the settings are at fault (a
// setting the camera cannot take, a depth other than 12, 14 or 16 for a
// camera), cleared when the camera is (not found, failed).
std::unique_ptr<CFrameSource> OpenFrameSource(const std::string& camera, SOURCE_SETTINGS settings,
                                              unsigned short simPoint, unsigned short simLine, std::string& error,
                                              bool& usage);

}  // namespace thermokit
