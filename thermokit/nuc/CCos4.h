#pragma once
// CCos4: the cos^4 fall-off of an optic's irradiance towards the edge of a
// flat detector. For every pixel it keeps the factor 1 / cos^4 of the pixel's
// field angle (1.0 on the axis, larger towards the corners); multiplying an
// image by the factors restores the edge levels, dividing adds the fall-off
// back. It is a film of the detector's size, so its pixel size comes from its
// film header and its factor image can be saved as a film of doubles.
//
// A copy shares the factor image with its source (kept on purpose); the
// factor image is freed with the last object that uses it.
#include <memory>
#include <string>

#include "thermokit/film/CPtr.h"

namespace thermokit {

class CCos4 : public CPtr {
public:
    CCos4(unsigned short point, unsigned short line);
    CCos4(const CCos4& other);
    CCos4& operator=(const CCos4& other);
    ~CCos4() override;

    void SetDistance(float distance) { m_fDistance = distance; }
    float GetDistance() const { return m_fDistance; }
    void SetDiameter(float diameter) { m_fDiameter = diameter; }
    float GetDiameter() const { return m_fDiameter; }
    // Distance / diameter: the f-number of the optic.
    double GetRatio() const;
    // Field angle of the detector corner in degrees, reading the distance in
    // pixel units (the diagonal is counted in pixels here).
    float GetMaxAngle() const;
    int CheckAngleHypothesis() const;  // 1 when GetMaxAngle() < 10 degrees
    int CheckRatioHypothesis() const;  // 1 when distance / diameter > 1.5

    // Fills the factor image from the pixel size of the header (micrometres)
    // and the distance (millimetres); 0 for a distance of exactly 0. Saves
    // it when fileName is not empty and returns the save's result.
    int Calculate(const std::string& fileName);

    // value[i] x factor[i] or value[i] / factor[i], in place, in double. The
    // 16-bit forms keep the low 16 bits of the truncated result. Always 1.
    int ApplyMultiply(unsigned short* data, long n);
    int ApplyMultiply(float* data, long n);
    int ApplyMultiply(double* data, long n);
    int ApplyDivide(unsigned short* data, long n);
    int ApplyDivide(float* data, long n);
    int ApplyDivide(double* data, long n);

    float* GetCoef() { return m_pfCoef; }

protected:
    float m_fDistance = 0.0f;
    float m_fDiameter = 0.0f;
    float* m_pfCoef = nullptr;

private:
    // Never more values than the factor image holds.
    long Limit(long n) const;
    std::shared_ptr<float[]> m_spCoef;
};

}  // namespace thermokit
