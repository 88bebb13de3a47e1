// thermokit planck: black-body band radiance and the budget of one pixel.
#include <cstdio>
#include <string>

#include <nlohmann/json.hpp>

#include "Command.h"
#include "thermokit/calibration/CPlanck.h"

namespace thermokit::cli {
namespace {

struct PlanckOptions {
    double temperature = 0.0;  // degC
    bool kelvin = false;
    std::vector<double> band{3.0, 5.0};
    double transmission1 = 100.0;
    double transmission2 = 100.0;
    double factor = 1.0;
    double efficiency = 100.0;
    double integration = 1000.0;
    double fnumber = 2.0;
    double pitchX = 15.0;
    double pitchY = 0.0;
    bool json = false;
};

int RunPlanck(const PlanckOptions& o) {
    if (!(o.temperature > -273.15)) {
        char text[32];
        std::snprintf(text, sizeof text, "%g", o.temperature);
        Error(std::string("-t ") + text + ": expected degrees Celsius above absolute zero (-273.15)");
        return kUsage;
    }
    CPlanck p;
    p.m_dTemperature = o.temperature + 273.15;
    p.m_dLambda1 = o.band.at(0);
    p.m_dLambda2 = o.band.at(1);
    p.m_dTransmission1 = o.transmission1;
    p.m_dTransmission2 = o.transmission2;
    p.m_dFactor = o.factor;
    p.m_dQuantumEfficiency = o.efficiency;
    p.m_dIntegrationTime = o.integration;
    p.m_dFNumber = o.fnumber;
    p.m_dPixelPitchX = o.pitchX;
    p.m_dPixelPitchY = o.pitchY > 0.0 ? o.pitchY : o.pitchX;
    if (!p.Calculer()) {
        Error("planck: the band is refused (the temperature must be above 10 K, -263.15 degC, and the band limits "
              "positive with the upper limit above the lower one)");
        return kFailed;
    }
    if (o.json) {
        nlohmann::json j = {
            {o.kelvin ? "temperature_K" : "temperature_degC", o.kelvin ? p.m_dTemperature : o.temperature},
            {"lambda1_um", p.m_dLambda1},
            {"lambda2_um", p.m_dLambda2},             {"radiance_W_m2_sr", p.m_dRadianceEnergy},
            {"photon_radiance_s_m2_sr", p.m_dRadiancePhoton}, {"pixel_area_m2", p.m_dPixelArea},
            {"photon_flux_s", p.m_dPhotonFlux},       {"power_W", p.m_dPower},
            {"electrons", p.m_dElectrons}};
        std::printf("%s\n", j.dump(2).c_str());
        return kDone;
    }
    std::printf("Black body at %.3f %s, band %.4g-%.4g um\n", o.kelvin ? p.m_dTemperature : o.temperature,
                o.kelvin ? "K" : "degC", p.m_dLambda1, p.m_dLambda2);
    std::printf("  band radiance          %.6e W/(m2.sr)\n", p.m_dRadianceEnergy);
    std::printf("  band photon radiance   %.6e photons/(s.m2.sr)\n", p.m_dRadiancePhoton);
    std::printf("Pixel %.4g x %.4g um behind f/%.4g, transmissions %.4g%% x %.4g%%, factor %.4g\n", p.m_dPixelPitchX,
                p.m_dPixelPitchY, p.m_dFNumber, p.m_dTransmission1, p.m_dTransmission2, p.m_dFactor);
    std::printf("  pixel area             %.6e m2\n", p.m_dPixelArea);
    std::printf("  power on the pixel     %.6e W\n", p.m_dPower);
    std::printf("  photon flux            %.6e photons/s\n", p.m_dPhotonFlux);
    std::printf("  electrons              %.6e in %.4g us at %.4g%% quantum efficiency\n", p.m_dElectrons,
                p.m_dIntegrationTime, p.m_dQuantumEfficiency);
    return kDone;
}

}  // namespace

void AddPlanckCommand(CLI::App& app) {
    auto opts = std::make_shared<PlanckOptions>();
    auto* sub = app.add_subcommand("planck", "Band radiance, photon radiance and pixel budget of a black body");
    sub->add_option("-t,--temperature", opts->temperature, "Black-body temperature, degC")->required();
    sub->add_flag("--kelvin", opts->kelvin, "Print the temperature in kelvin (K) instead of degC");
    sub->add_option("-b,--band", opts->band, "Lower and upper band limits, micrometres")->expected(2)->capture_default_str();
    sub->add_option("--transmission1", opts->transmission1, "First transmission factor, percent")->capture_default_str();
    sub->add_option("--transmission2", opts->transmission2, "Second transmission factor, percent")->capture_default_str();
    sub->add_option("--factor", opts->factor, "Plain multiplying factor")->capture_default_str();
    sub->add_option("--qe", opts->efficiency, "Quantum efficiency, percent")->capture_default_str();
    sub->add_option("--integration", opts->integration, "Integration time, microseconds")->capture_default_str();
    sub->add_option("-f,--fnumber", opts->fnumber, "Aperture number of the optic")->capture_default_str();
    sub->add_option("--pitch", opts->pitchX, "Pixel pitch (width), micrometres")->capture_default_str();
    sub->add_option("--pitch-y", opts->pitchY, "Pixel height, micrometres (default: the pitch)");
    sub->add_flag("--json", opts->json, "Print the results as JSON");
    sub->footer("Example: thermokit planck -t 30 -b 3.7 4.1 -f 2 --pitch 15 --qe 70 --integration 1000");
    sub->callback([opts] { SetAction([opts] { return RunPlanck(*opts); }); });
}

}  // namespace thermokit::cli
