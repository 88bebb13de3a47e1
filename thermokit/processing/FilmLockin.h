#pragma once
// Lock-in demodulation of a whole film into module and phase images, saved as
// films of doubles and as PNG pictures: the tool's lockin and the Python
// package's batch runs write their results with this one code.
//
// The module picture spreads the module's finite extremes over the rainbow
// palette; the phase picture spans the whole circle, -180 to 180 degrees,
// over the lock-in palette, so that colours compare between films.
// Failures are told as one line ("file NAME: what is wrong"); nothing is
// shown through Messages.
#include <string>

namespace thermokit {

// "lowpass", "median" or "none" as a CLockin filter; false when it is none of them.
bool ParseLockinFilter(const std::string& text, unsigned short& filter);

// Where the four results go: the module and phase films, then their pictures.
struct LockinOutputs {
    std::string moduleFilm, phaseFilm, modulePng, phasePng;

    // PREFIX_module.film, PREFIX_phase.film, PREFIX_module.png, PREFIX_phase.png
    static LockinOutputs OfPrefix(const std::string& prefix);
};

struct LockinResult {
    unsigned long frames = 0;
    unsigned short point = 0, line = 0;
    double rate = 0.0;  // frames per second used
    double moduleLo = 0.0, moduleHi = 0.0, phaseLo = 0.0, phaseHi = 0.0;  // finite extremes
};

// Demodulates the film at path at frequency (Hz) with frameRate frames per
// second (0: the film's own) and filter, and writes the results into the
// files of write (created or emptied; the caller renames them into place),
// naming those of names in messages. 1; or 0 with the message, usage set
// when the film gives no frame rate and none was given.
int DemodulateFilm(const std::string& path, double frequency, double frameRate, unsigned short filter,
                   const LockinOutputs& write, const LockinOutputs& names, LockinResult& result, std::string& error,
                   bool& usage);

}  // namespace thermokit
