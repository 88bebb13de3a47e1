// thermokit about: what the library holds and how this build runs.
#include <cstdio>
#include <string>

#include "Command.h"
#include "thermokit/platform/Dispatch.h"
#include "thermokit/platform/Parallel.h"
#include "thermokit/platform/Version.h"

namespace thermokit::cli {
namespace {

int RunAbout() {
    std::printf("thermokit %s\n", GetVersion());
    std::printf("A toolkit for thermal-infrared camera software:\n");
    std::printf("  image/        frames of 16-bit digital levels, pixel-array functions, geometric mapping\n");
    std::printf("  film/         film files (header, frame access, direct-to-disk writer)\n");
    std::printf("  nuc/          non-uniformity correction tables, bad-pixel maps, correction chain\n");
    std::printf("  calibration/  Planck radiance, spectral response, calibration curves\n");
    std::printf("  display/      palettes, look-up tables, display bitmaps, PNG output\n");
    std::printf("  acquisition/  lock-in demodulation, shared-memory mailbox\n");
    std::printf("  environment/  settings store and camera configuration\n");
    std::printf("Kernel variant: %s (%s; THERMOKIT_ISA chooses among:", GetIsa(), GetIsaChoice());
    for (const std::string& name : GetIsaList()) std::printf(" %s", name.c_str());
    std::printf(")\n");
    std::printf("Threads for whole films: %d (THERMOKIT_THREADS sets the count)\n", GetThreadCount());
    return kDone;
}

}  // namespace

void AddAboutCommand(CLI::App& app) {
    auto* sub = app.add_subcommand("about", "Describe what the library holds and how this build runs");
    sub->footer("Example: thermokit about");
    sub->callback([] { SetAction(RunAbout); });
}

}  // namespace thermokit::cli
