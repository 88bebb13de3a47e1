#pragma once
// A spectral response sampled on a regular wavelength grid: count samples
// from lambdaMin in steps of (lambdaMax - lambdaMin) / count, each response
// starting at 1.0 and multiplied by the transmission curves applied to it.
//
// Copies share the sample arrays with their source (copying is cheap and a
// change through one copy is seen by all); the arrays are freed once, by the
// last copy that holds them.
#include <memory>

namespace thermokit {

class CResponseFile;

class CSpectralResponse {
public:
    CSpectralResponse(double lambdaMin, double lambdaMax, int count);
    CSpectralResponse(const CSpectralResponse&) = default;
    CSpectralResponse& operator=(const CSpectralResponse&) = default;
    virtual ~CSpectralResponse();

    // Multiplies every sample the file covers (no extrapolation) by its transmission. Always 1.
    int AddResponse(CResponseFile* file);
    // Same with a table given as arrays; 0 (response untouched) when the
    // wavelengths are not strictly increasing.
    int AddResponse(double* lambdas, double* transmissions, int count);

    // Index of the grid cell that holds lambda; -1 outside [min, max] and in
    // the last cell [lambda(count-1), max] (kept as is).
    int GetLamdbaIndex(double lambda) const;

    // Writes the samples as a response file.
    int Save(const char* fileName) const;

    double* GetLambda() const { return m_pLambda.get(); }
    double* GetResponse() const { return m_pResponse.get(); }
    double GetLambdaMin() const { return m_dLambdaMin; }
    double GetLambdaMax() const { return m_dLambdaMax; }
    double GetStep() const { return m_dStep; }
    int GetCount() const { return m_nCount; }

private:
    std::shared_ptr<double[]> m_pLambda;
    std::shared_ptr<double[]> m_pResponse;
    double m_dLambdaMin;
    double m_dLambdaMax;
    double m_dStep;
    int m_nCount;
};

}  // namespace thermokit
