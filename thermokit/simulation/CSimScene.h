#pragma once
// What the simulated camera looks at: a temperature for every pixel at a
// given frame and time, in kelvin. Four kinds:
//  - a uniform black body (the reference source of NUC and calibration);
//  - a plate with a temperature gradient and a Gaussian hot spot, which may
//    move a fixed number of pixels each frame;
//  - a periodically heated sample for lock-in work: every pixel oscillates
//    around the sample's temperature at the excitation frequency, and a
//    buried defect (a blurred disk) changes the amplitude and the phase
//    of the oscillation above it;
//  - a plate of three materials: a temperature gradient from left to right
//    across three horizontal bands of different emissivity (top to bottom).
// Scenes are pure functions of (frame, time): the same call gives the same map.
//
// Every scene has a surface: its emissivity (the material bands set their
// own), the temperature of the surroundings it reflects, and the air between
// it and the camera (transmission and temperature). The camera receives
//   tau * (eps * L(T) + (1 - eps) * L(T_refl)) + (1 - tau) * L(T_atm)
// of band radiance L; a black body in clear air (eps = tau = 1) sends L(T).
#include <string>
#include <vector>

namespace thermokit {

class CSimScene {
public:
    enum Kind { kUniform = 0, kPlate = 1, kLockin = 2, kMaterials = 3 };

    struct Surface {
        double emissivity = 1.0;          // of the whole scene (the material bands set their own)
        double reflectedCelsius = 20.0;   // surroundings mirrored by the surface
        double transmission = 1.0;        // of the air between camera and scene
        double atmosphereCelsius = 20.0;  // of that air
    };

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

    struct MaterialsParams {
        double leftCelsius = 10.0, rightCelsius = 100.0;  // gradient from the left edge to the right one
        double emissivity[3] = {0.95, 0.7, 0.3};            // bands, top to bottom, each a third of the lines
    };

    static CSimScene Uniform(double celsius);
    static CSimScene Materials(const MaterialsParams& params);
    static CSimScene Plate(const PlateParams& params);
    static CSimScene Lockin(const LockinParams& params);

    Kind GetKind() const { return m_Kind; }
    double GetUniformCelsius() const { return m_dUniform; }
    const PlateParams& GetPlate() const { return m_Plate; }
    const LockinParams& GetLockin() const { return m_Lockin; }
    const MaterialsParams& GetMaterials() const { return m_Materials; }
    // The surface of any kind of scene; SetSurface returns the scene.
    CSimScene& SetSurface(const Surface& surface);
    const Surface& GetSurface() const { return m_Surface; }
    // eps = 1 everywhere and tau = 1: the camera sees the temperatures themselves.
    bool IsBlackBody() const;
    // Emissivity of every pixel, point x line values.
    void Emissivity(int point, int line, float* emissivity) const;
    // The material band (0, 1, 2) of line y of the materials scene.
    static int Band(int line, int y) { return line > 0 ? static_cast<int>(3L * y / line) : 0; }

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
    MaterialsParams m_Materials;
    Surface m_Surface;
};

}  // namespace thermokit
