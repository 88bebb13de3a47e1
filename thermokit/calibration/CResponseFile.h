#pragma once
// A transmission curve: (wavelength, transmission) records with strictly
// increasing wavelengths, kept in a two-column text file whose first line is
// "RSP".
#include <string>
#include <vector>

#include "thermokit/platform/LastError.h"

namespace thermokit {

class CResponseFile : public LastError {
public:
    struct ResponseData {
        double m_dLambda;
        double m_dTransmission;
    };

    // Stores the name (null means empty) and, when it is not empty, reads the
    // file at once; a failed read leaves an empty table, is not reported and
    // leaves its reason in GetLastErrorText.
    explicit CResponseFile(const char* fileName = nullptr);
    virtual ~CResponseFile();

    // Appends; 0 (nothing changed) when lambda is not above the last wavelength.
    int Add(double lambda, double transmission);
    // Removal is deliberately not provided: always 1, nothing changes.
    int Remove(double lambda);

    // Transmission at lambda: a stored wavelength gives its value, between two
    // records the straight line through them. Outside the table: 0 (t untouched)
    // without extrapolate, else the line through the first two or the last two
    // records. Extrapolation with fewer than two records throws std::out_of_range.
    int GetTransmission(double lambda, double& transmission, int extrapolate) const;

    std::vector<ResponseData>& GetArray() { return m_aData; }
    const std::vector<ResponseData>& GetArray() const { return m_aData; }
    const std::string& GetFileName() const { return m_strFileName; }

    // A non-empty fileName replaces the stored one; then writes the file.
    int Save(const char* fileName);

protected:
    int ReadFile();
    int WriteFile();

private:
    std::string m_strFileName;
    std::vector<ResponseData> m_aData;
};

}  // namespace thermokit
