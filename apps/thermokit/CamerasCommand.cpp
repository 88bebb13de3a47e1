// thermokit cameras: the cameras that can be recorded now: the simulated one
// and every GenICam camera Aravis finds (GigE Vision, USB3 Vision).
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Command.h"
#include "thermokit/acquisition/FrameSources.h"

namespace thermokit::cli {
namespace {

struct CamerasOptions {
    bool json = false;
};

int RunCameras(const CamerasOptions& o) {
    bool genicam = false;
    const std::vector<CAMERA_INFO> cameras = ListFrameSources(genicam);
    if (o.json) {
        nlohmann::ordered_json j;
        j["genicam"] = genicam;
        j["cameras"] = nlohmann::ordered_json::array();
        for (const CAMERA_INFO& c : cameras)
            j["cameras"].push_back({{"id", c.strId},
                                    {"vendor", c.strVendor},
                                    {"model", c.strModel},
                                    {"serial", c.strSerial},
                                    {"interface", c.strInterface},
                                    {"address", c.strAddress}});
        std::cout << j.dump(2) << "\n";
        return kDone;
    }
    std::printf("%-24s %-11s %-15s %-12s %-20s %s\n", "ID", "INTERFACE", "ADDRESS", "VENDOR", "MODEL", "SERIAL");
    for (const CAMERA_INFO& c : cameras)
        std::printf("%-24s %-11s %-15s %-12s %-20s %s\n", c.strId.c_str(), c.strInterface.c_str(),
                    c.strAddress.empty() ? "-" : c.strAddress.c_str(), c.strVendor.c_str(), c.strModel.c_str(),
                    c.strSerial.empty() ? "-" : c.strSerial.c_str());
    if (!genicam) std::printf("(built without Aravis: GenICam cameras are not looked for)\n");
    return kDone;
}

}  // namespace

void AddCamerasCommand(CLI::App& app) {
    auto options = std::make_shared<CamerasOptions>();
    auto* cameras = app.add_subcommand("cameras", "List the cameras that can be recorded (GigE Vision, USB3 Vision, sim)");
    cameras->add_flag("--json", options->json, "Write the list as JSON");
    cameras->footer(
        "Example: thermokit cameras --json\n"
        "Aravis' in-process fake camera (Fake_1) is listed too when THERMOKIT_FAKE_CAMERA=1.");
    cameras->callback([options] { SetAction([options] { return RunCameras(*options); }); });
}

}  // namespace thermokit::cli
