#include "thermokit/calibration/CEmissivity.h"

namespace thermokit {

CEmissivity::CEmissivity(double e) : m_dEmissivity(1.0) { SetEmissivity(e); }

void CEmissivity::SetEmissivity(double e) {
    if (e >= 0.0 && e <= 1.0) m_dEmissivity = e;
}

}  // namespace thermokit
