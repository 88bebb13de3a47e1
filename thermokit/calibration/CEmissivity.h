#pragma once
// An emissivity, always within [0, 1].

namespace thermokit {

class CEmissivity {
public:
    // Starts at 1.0, then takes e when it is within [0, 1]: an out-of-range argument leaves 1.0.
    CEmissivity(double e = 1.0);  // NOLINT: converting on purpose
    CEmissivity(const CEmissivity&) = default;
    CEmissivity& operator=(const CEmissivity&) = default;

    // Stores e only when 0 <= e <= 1; otherwise the previous value stays.
    void SetEmissivity(double e);
    double GetEmissivity() const { return m_dEmissivity; }

private:
    double m_dEmissivity = 1.0;
};

}  // namespace thermokit
