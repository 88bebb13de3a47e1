// thermokit simulate: films of the simulated camera looking at a uniform
// black body, a heated plate with a hot spot, a periodically heated sample or
// a plate of three materials, each surface with its emissivity, reflected
// surroundings and the air between.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "Command.h"
#include "OutputFile.h"
#include "Progress.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/simulation/CSimDetector.h"
#include "thermokit/simulation/CSimFilm.h"
#include "thermokit/simulation/CSimScene.h"

namespace thermokit::cli {
namespace {

struct SimulateOptions {
    std::string output;
    std::string scene = "uniform";
    std::string size = "320x256";
    int bits = 14;
    long frames = 10;
    double temperature = 30.0;
    double left = NAN, right = NAN, spot = 50.0;
    double emissivity = 1.0, reflected = 20.0, transmission = 1.0, atmosphere = NAN;
    double move = 0.0;
    int period = 16;
    double amplitude = 0.6;
    double rate = 100.0;
    unsigned long seed = 1;
    bool defects = false;
    std::string truth;
};

bool ParseSize(const std::string& text, unsigned short& w, unsigned short& h) {
    const size_t x = text.find('x');
    if (x == std::string::npos) return false;
    char* end = nullptr;
    const long a = std::strtol(text.c_str(), &end, 10);
    if (end != text.c_str() + x) return false;
    const long b = std::strtol(text.c_str() + x + 1, &end, 10);
    if (*end || a < 2 || b < 2 || a > 4096 || b > 4096) return false;
    w = static_cast<unsigned short>(a);
    h = static_cast<unsigned short>(b);
    return true;
}

bool DetectorConfig(const SimulateOptions& o, CSimDetector::Config& cfg) {
    if (!ParseSize(o.size, cfg.point, cfg.line)) {
        Error("--size " + o.size + ": expected WxH, each from 2 to 4096");
        return false;
    }
    cfg.bit = static_cast<unsigned short>(o.bits);
    cfg.seed = o.seed;
    cfg.frameRate = o.rate;
    if (o.defects) {
        cfg.deadCount = cfg.hotCount = cfg.noisyCount = CSimDetector::DefaultDefectCount(cfg.point, cfg.line);
    }
    return true;
}

bool SceneSurface(const SimulateOptions& o, CSimScene::Surface& surface) {
    if (!(o.emissivity > 0.0 && o.emissivity <= 1.0) || !(o.transmission > 0.0 && o.transmission <= 1.0)) {
        Error("--emissivity and --transmission: expected values above 0 and at most 1");
        return false;
    }
    surface.emissivity = o.emissivity;
    surface.transmission = o.transmission;
    surface.reflectedCelsius = o.reflected;
    surface.atmosphereCelsius = std::isnan(o.atmosphere) ? o.reflected : o.atmosphere;
    for (const double t : {o.temperature, o.left, o.right, surface.reflectedCelsius, surface.atmosphereCelsius})
        if (!(t > -273.15) && !std::isnan(t)) {
            Error("-t, --left, --right, --reflected, --atmosphere: expected degrees Celsius above absolute zero (-273.15)");
            return false;
        }
    return true;
}

bool MakeScene(const SimulateOptions& o, CSimScene& scene) {
    if (o.scene == "plate") {
        CSimScene::PlateParams p;
        if (!std::isnan(o.left)) p.leftCelsius = o.left;
        if (!std::isnan(o.right)) p.rightCelsius = o.right;
        p.spotRise = o.spot;
        p.moveX = o.move;
        scene = CSimScene::Plate(p);
    } else if (o.scene == "lockin") {
        CSimScene::LockinParams p;
        p.baseCelsius = o.temperature;
        p.framesPerPeriod = o.period;
        p.amplitude = o.amplitude;
        scene = CSimScene::Lockin(p);
    } else if (o.scene == "materials") {
        CSimScene::MaterialsParams p;
        if (!std::isnan(o.left)) p.leftCelsius = o.left;
        if (!std::isnan(o.right)) p.rightCelsius = o.right;
        scene = CSimScene::Materials(p);
    } else if (o.scene != "uniform") {
        Error("--scene " + o.scene + ": expected uniform, plate, lockin or materials");
        return false;
    }
    return true;
}

int RunSimulate(const SimulateOptions& o) {
    CSimDetector::Config cfg;
    CSimScene::Surface surface;
    CSimScene scene = CSimScene::Uniform(o.temperature);
    if (!DetectorConfig(o, cfg) || !SceneSurface(o, surface) || !MakeScene(o, scene)) return kUsage;
    scene.SetSurface(surface);
    CSimDetector detector(cfg);
    OutputFile out(o.output);
    std::unique_ptr<OutputFile> truth;
    if (!o.truth.empty()) truth = std::make_unique<OutputFile>(o.truth);
    Progress progress("simulate", static_cast<unsigned long>(o.frames));
    const CSimFilm::FrameHook hook = [&progress](CPtrOver*, unsigned long frame) { progress.Step(frame); };
    if (!CSimFilm::Record(out.Temp(), detector, scene, static_cast<unsigned long>(o.frames),
                          truth ? truth->Temp() : std::string(), hook)) {
        FileError(o.output, "cannot be written");
        return kFailed;
    }
    progress.Step(static_cast<unsigned long>(o.frames));
    if (!out.Commit() || (truth && !truth->Commit())) return kFailed;
    progress.Done();
    Note("%s: %ld frame(s) of %u x %u, %u bits, %s\n", o.output.c_str(), o.frames, cfg.point, cfg.line, cfg.bit,
         scene.Describe().c_str());
    if (truth) Note("%s: the true temperatures (degC), a film of doubles\n", o.truth.c_str());
    return kDone;
}

}  // namespace

void AddSimulateCommand(CLI::App& app) {
    auto o = std::make_shared<SimulateOptions>();
    auto* sub = app.add_subcommand("simulate", "Write a film of the simulated camera");
    Output(sub->add_option("-o,--output", o->output, "Film to write"))->required();
    sub->add_option("--scene", o->scene,
                    "uniform, plate, lockin or materials (a plate in three bands of emissivity 0.95, 0.7, 0.3; "
                    "default uniform)");
    sub->add_option("--size", o->size, "Detector size WxH (default 320x256)");
    sub->add_option("--bits", o->bits, "Bit depth (default 14)")->check(CLI::Range(8, 16));
    sub->add_option("-n,--count", o->frames, "Number of frames (default 10)")->check(CLI::Range(1L, 1000000L));
    sub->add_option("-t,--temperature", o->temperature,
                    "uniform: black-body temperature; lockin: mean sample temperature (degC, default 30)");
    sub->add_option("--left", o->left, "plate, materials: left edge temperature, degC (default 15, materials 10)");
    sub->add_option("--right", o->right, "plate, materials: right edge temperature, degC (default 55, materials 100)");
    sub->add_option("--emissivity", o->emissivity,
                    "Emissivity of the scene's surface, above 0 and at most 1 (default 1; materials have theirs)");
    sub->add_option("--reflected", o->reflected, "Temperature of the surroundings the surface reflects, degC (default 20)");
    sub->add_option("--transmission", o->transmission, "Transmission of the air before the camera (default 1)");
    sub->add_option("--atmosphere", o->atmosphere, "Temperature of that air, degC (default: the reflected one)");
    sub->add_option("--spot", o->spot, "plate: rise at the hot spot's centre, K (default 50)");
    sub->add_option("--move", o->move, "plate: pixels the spot moves right each frame (default 0)");
    sub->add_option("--period", o->period, "lockin: frames per excitation period (default 16)")->check(CLI::Range(2, 100000));
    sub->add_option("--amplitude", o->amplitude, "lockin: oscillation amplitude, K (default 0.6)");
    sub->add_option("--rate", o->rate, "Frame rate, Hz (default 100)")->check(CLI::Range(0.01, 100000.0));
    sub->add_option("--seed", o->seed, "Seed of the camera's maps and noise (default 1)");
    sub->add_flag("--defects", o->defects, "Dead, hot and noisy pixels (about one of each kind in 5,000)");
    Output(sub->add_option("--truth", o->truth, "Also write the true temperatures as a film of doubles"));
    sub->footer("Example: thermokit simulate --scene plate --size 640x512 --count 50 --move 2 -o plate.film");
    sub->callback([o] { SetAction([o] { return RunSimulate(*o); }); });
}

}  // namespace thermokit::cli
