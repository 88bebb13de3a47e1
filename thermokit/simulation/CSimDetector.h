#pragma once
// A simulated thermal camera: a staring photon detector behind an optic.
//
// Signal chain of pixel i for a scene at temperature T (kelvin):
//   electrons  e = E(T) + H(Tc)          E: CPlanck's band photon budget of the
//                                         scene through the optic; H: the optic's
//                                         own emission (1 - transmission) at the
//                                         camera temperature Tc
//   (a scene that is not a black body in clear air sends
//    tau (eps_i E(T) + (1 - eps_i) E(T_refl)) + (1 - tau) E(T_atm) instead of E(T):
//    see CSimScene's surface)
//   mean level m = pedestal + o_i + g_i x e / electronsPerLevel
//   noise      s = g_i / electronsPerLevel x sqrt(e + readNoise^2) x k_i
//   level      round(m + s x N(0,1)), clamped to [0, 2^bit - 1]
// g_i (mean 1) and o_i (mean 0, levels) are the per-pixel gain and offset
// spreads, k_i the noise factor (1, or larger for noisy pixels). Dead pixels
// give their pedestal and nothing else; hot pixels carry a large extra offset.
// The camera temperature drifts linearly with the simulated time, which runs
// from frame to frame at the frame rate (and across films).
//
// Everything random comes from the seed: the maps and defects at construction,
// and each frame's noise from a stream derived from (seed, frame number, block
// of lines), so that the same seed and the same sequence of calls give the
// same levels bit for bit, however many threads share the work.
#include <cstdint>
#include <string>
#include <vector>

#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/simulation/CRadiometricFit.h"

namespace thermokit {

class CFrame;
class CPtrOver;
class CSimScene;

class CSimDetector {
public:
    enum DefectKind : unsigned char { kGood = 0, kDead = 1, kHot = 2, kNoisy = 3 };

    struct Defect {
        long index;          // Point x line + column
        DefectKind kind;
    };

    struct Config {
        unsigned short point = 640, line = 512, bit = 14;
        double frameRate = 100.0;          // Hz
        double integrationMicros = 1000.0; // us
        double lambda1 = 3.7, lambda2 = 4.8;  // band, um
        double fNumber = 2.0;
        double pitchMicrons = 15.0;
        double opticsTransmission = 90.0;  // percent
        double quantumEfficiency = 70.0;   // percent
        double electronsPerLevel = 700.0;
        double pedestal = 1000.0;          // levels with no light
        double readNoise = 300.0;          // electrons
        double gainSpread = 0.03;          // standard deviation of g_i
        double offsetSpread = 40.0;        // standard deviation of o_i, levels
        double cameraCelsius = 25.0;       // camera temperature at time 0
        double driftPerSecond = 0.002;     // K/s
        // Defects: these places, then as many more at random places.
        std::vector<Defect> defects;
        int deadCount = 0, hotCount = 0, noisyCount = 0;
        double hotMin = 1500.0, hotMax = 4000.0;   // extra offset of hot pixels, levels
        double noisyMin = 6.0, noisyMax = 12.0;    // noise factor of noisy pixels
        uint64_t seed = 1;
        std::string camera = "thermokit SIM";
        std::string serial = "SIM-0001";
        unsigned threads = 2;              // workers for a frame (results do not depend on it)
    };

    explicit CSimDetector(const Config& config);

    // How many pixels of each kind of defect (dead, hot, noisy) a detector of
    // point x line pixels gets when asked for defects: one in 5,000, at least 3.
    static int DefaultDefectCount(unsigned short point, unsigned short line);

    const Config& GetConfig() const { return m_Config; }
    unsigned short GetMaxLevel() const { return m_wMaxLevel; }
    long GetSize() const { return static_cast<long>(m_Config.point) * m_Config.line; }

    // Truth: per-pixel gain g_i, offset o_i in levels (hot offsets included),
    // the defect of every pixel and the list of defects in index order.
    const std::vector<float>& GetGainMap() const { return m_afGain; }
    const std::vector<float>& GetOffsetMap() const { return m_afOffset; }
    const std::vector<unsigned char>& GetDefectMap() const { return m_abyDefect; }
    std::vector<Defect> GetDefects() const;
    // Writes the truth into folder (which must exist): gain.film and
    // offset.film (one-image films of doubles) and defects.csv
    // ("index,x,y,kind" lines, kind dead, hot or noisy). 1 when all were written.
    int SaveTruth(const std::string& folder) const;

    // Scene photo-electrons of one pixel at T (kelvin), and the optic's own
    // electrons at camera temperature Tc (kelvin): CPlanck band budgets.
    double SceneElectrons(double kelvin) const;
    double OpticsElectrons(double cameraKelvin) const;
    // Noise-free level of an average pixel (g 1, o 0) at T with the camera at Tc.
    double MeanLevel(double kelvin, double cameraKelvin) const;

    // The law fitted to MeanLevel over -10..140 degrees C at the starting
    // camera temperature: what the films carry as their radiometric constants.
    const CRadiometricFit::Result& GetLawFit() const { return m_Law; }
    _SCalibrationRBF GetLaw() const { return CRadiometricFit::ToRecord(m_Law); }

    // Simulated clock: seconds since the start, frames taken so far.
    double GetTime() const { return m_dTime; }
    uint64_t GetFrameCount() const { return m_nFrames; }
    double CameraKelvin(double time) const;
    // Moves the clock on without taking frames (a pause between films).
    void Wait(double seconds) { m_dTime += seconds; }

    // Takes one frame of the scene: levels into frame (point x line, the
    // detector's depth), its time stamp (seconds of the day, from a fixed
    // start at 09:00:00) set; frameInFilm is the scene's frame index. Advances
    // the clock by one frame period.
    void Capture(const CSimScene& scene, unsigned long frameInFilm, CFrame* frame);
    // Same into a level buffer of GetSize() values; the scene temperatures
    // used are left in kelvin when given (GetSize() values).
    void Capture(const CSimScene& scene, unsigned long frameInFilm, unsigned short* levels, float* kelvin = nullptr);

    // Capture in two steps, so that frames are taken side by side with the
    // same levels: Next takes the clock's next frame (its number and time)
    // and moves the clock on, in frame order; Take renders that frame on the
    // calling thread alone, changing nothing in the detector. kelvin receives
    // the scene temperatures (GetSize() values); emissivity is room for the
    // scene's emissivities.
    struct Shot {
        uint64_t number = 0;  // frames taken before it
        double time = 0.0;    // simulated seconds when it is taken
    };
    Shot Next();
    void Take(const CSimScene& scene, unsigned long frameInFilm, const Shot& shot, unsigned short* levels,
              float* kelvin, std::vector<float>& emissivity) const;

    // Fills a film header with the camera: name, serial, depth, band,
    // optics, integration, frame rate, camera temperature, recording date and
    // time (fixed simulated date, so films repeat), the radiometric law.
    void FillHeader(CPtrOver* film) const;
    // The image header fields of the frame about to be taken (or of the frame
    // taken at simulated time `time`): camera and detector temperatures,
    // integration time, camera time stamp.
    void FillImageHeader(CPtrOver* film) const { FillImageHeader(film, m_dTime); }
    void FillImageHeader(CPtrOver* film, double time) const;

    // Seconds of the day of simulated time t.
    static double TimeOfDay(double t) { return 9.0 * 3600.0 + t; }

private:
    void MakeMaps();
    // emissivity null: a black body in clear air.
    void Render(const float* kelvin, const float* emissivity, const CSimScene& scene, unsigned short* levels,
                uint64_t frameNumber, double cameraKelvin, unsigned threads) const;

    Config m_Config;
    unsigned short m_wMaxLevel = 0;
    std::vector<float> m_afGain, m_afOffset, m_afNoise;
    std::vector<unsigned char> m_abyDefect;
    // Scene electrons tabulated every kStep kelvin from kTableMin.
    std::vector<double> m_adTable;
    static constexpr double kTableMin = 150.0, kTableMax = 800.0, kStep = 0.05;
    CRadiometricFit::Result m_Law;
    double m_dTime = 0.0;
    uint64_t m_nFrames = 0;
    std::vector<float> m_afKelvin;
    std::vector<float> m_afEmissivity;
};

}  // namespace thermokit
