#pragma once
// Levels to temperatures in the commands that measure or draw films
// (temperature, stats, export, render, animate, view): the options --calib
// FILE or --embedded, the object parameters (--emissivity, --reflected,
// --atmosphere, --transmission or --distance) and --kelvin. What they mean
// (the unit rule, the defaults from the film's header) is the library's
// FilmConversion.h, shared with the Python package.
#include <string>

#include "Command.h"
#include "FilmInput.h"
#include "thermokit/processing/FilmConversion.h"

namespace thermokit::cli {

// --calib, --embedded, the object parameters and --kelvin, with one meaning in every command.
inline void AddConversionOptions(CLI::App* sub, ConversionOptions& o) {
    auto* calib = Input(sub->add_option("--calib", o.calib, "Calibration file: temperatures (or the curve's values)"));
    auto* embedded = sub->add_flag("--embedded", o.embedded, "Temperatures by the film's own radiometric law");
    calib->excludes(embedded);
    sub->add_option("--emissivity", o.emissivity,
                    "Emissivity of the object, above 0 and at most 1 (default: the film's header, else 1)");
    sub->add_option("--reflected", o.reflected,
                    "Reflected (surroundings') temperature, degC (default: the film's ambient temperature, else 20)");
    sub->add_option("--atmosphere", o.atmosphere, "Temperature of the air on the path, degC (default: the reflected one)");
    auto* tau = sub->add_option("--transmission", o.transmission,
                                "Transmission of the air on the path, above 0 and at most 1 (default 1)");
    auto* distance = sub->add_option("--distance", o.distance,
                                     "Distance to the object, metres: the air's transmission by exp(-0.001 x d)");
    tau->excludes(distance);
    sub->add_flag("--kelvin", o.kelvin, "Temperatures printed and written in kelvin (K) instead of degC");
}

// The option values alone; false with a message (a usage error).
inline bool CheckConversionOptions(const ConversionOptions& o) {
    std::string error;
    if (thermokit::CheckConversionOptions(o, error)) return true;
    Error(error);
    return false;
}

// Loads the calibration of the options for the film, takes the object
// parameters from the film's header and the options, and builds the level
// table. False with a message (the film or calibration is at fault).
inline bool LoadConversion(const ConversionOptions& o, Film& film, const std::string& path, Conversion& c) {
    std::string error;
    if (thermokit::LoadConversion(o, *film.ptr, path, c, error)) return true;
    Error(error);
    return false;
}

}  // namespace thermokit::cli
