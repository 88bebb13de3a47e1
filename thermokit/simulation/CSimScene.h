#pragma once
// What the simulated camera looks at: a temperature for every pixel at a
// given frame and time, in kelvin. Three kinds:
//  - a uniform black body (the reference source of NUC and calibration);
//  - a plate with a temperature gradient and a Gaussian hot spot, which may
//    move a fixed number of pixels each frame;
//  - a periodically heated sample for lock-in work: every pixel oscillates
//    around the sample's temperature at the excitation frequency, and a
//    buried defect (a blurred disk) changes the amplitude and the phase
//    of the oscillation above it.
// Scenes are pure functions of (frame, time): the same call gives the same map.
#include <string>
#include <vector>

namespace thermokit {

class CSimScene {
public:
    enum Kind { kUniform = 0, kPlate = 1, kLockin = 2 };

    struct PlateParams {
        double leftCelsius = 15.0;      // left edge, middle line
        double rightCelsius = 55.0;     // right edge, middle line
        double verticalSpan = 6.0;      // K from the top line to the bottom line
        double spotRise = 50.0;         // K at the spot's centre
        double spotX = 0.35, spotY = 0.45;  // centre at frame 0, fractions of width and height
        double spotSigma = 0.05;        // Gaussian radius, fraction of the width
        double moveX = 0.0, moveY = 0.0;    // pixels per frame
    };

    struct LockinParams {
        double baseCelsius = 30.0;      // mean sample temperature
        double amplitude = 0.6;         // K of the oscillation away from the defect
        double amplitudeSlope = 0.2;    // relative change of the amplitude from left to right
        int framesPerPeriod = 16;       // excitation period, in frames (synchronised with the camera)
        double phaseDegrees = 30.0;     // lag of the surface behind the excitation
        double defectX = 0.6, defectY = 0.5;  // defect centre, fractions of width and height
        double defectRadius = 0.1;      // fraction of the width
        double defectBlur = 0.02;       // fraction of the width (the defect is buried)
        double defectAmplitude = 0.35;  // relative amplitude change above the defect
        double defectPhaseDegrees = -25.0;  // phase change above the defect
    };

    static CSimScene Uniform(double celsius);
    static CSimScene Plate(const PlateParams& params);
    static CSimScene Lockin(const LockinParams& params);

    Kind GetKind() const { return m_Kind; }
    double GetUniformCelsius() const { return m_dUniform; }
    const PlateParams& GetPlate() const { return m_Plate; }
    const LockinParams& GetLockin() const { return m_Lockin; }

    // A line for film comments: the kind and its main figures.
    std::string Describe() const;

    // point x line temperatures in kelvin, row after row.
    void Temperature(int point, int line, unsigned long frame, double time, float* kelvin) const;
    // Hot spot centre of a frame, in pixels (plate scenes).
    void SpotCentre(int point, int line, unsigned long frame, double& x, double& y) const;
    // Weight of the lock-in defect at a pixel, 0 far away to 1 over its centre.
    double DefectWeight(int point, int line, int x, int y) const;
    // Lock-in truth: amplitude (K) and phase lag (degrees) of every pixel.
    void LockinTruth(int point, int line, std::vector<float>& amplitude, std::vector<float>& phase) const;

private:
    Kind m_Kind = kUniform;
    double m_dUniform = 20.0;
    PlateParams m_Plate;
    LockinParams m_Lockin;
};

}  // namespace thermokit
