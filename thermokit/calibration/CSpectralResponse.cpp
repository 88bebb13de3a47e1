#include "thermokit/calibration/CSpectralResponse.h"

#include "thermokit/calibration/CResponseFile.h"

namespace thermokit {

CSpectralResponse::CSpectralResponse(double lambdaMin, double lambdaMax, int count)
    : m_dLambdaMin(lambdaMin), m_dLambdaMax(lambdaMax), m_dStep(0.0), m_nCount(count > 0 ? count : 0) {
    if (m_nCount == 0) return;  // no grid: nothing allocated, every lookup answers -1
    m_dStep = (lambdaMax - lambdaMin) / count;
    m_pLambda.reset(new double[static_cast<size_t>(m_nCount)]);
    m_pResponse.reset(new double[static_cast<size_t>(m_nCount)]);
    for (int i = 0; i < m_nCount; ++i) {
        m_pLambda[i] = i * m_dStep + lambdaMin;
        m_pResponse[i] = 1.0;
    }
}

CSpectralResponse::~CSpectralResponse() = default;

int CSpectralResponse::AddResponse(CResponseFile* file) {
    if (!file) return 1;
    for (int i = 0; i < m_nCount; ++i) {
        double t;
        if (file->GetTransmission(m_pLambda[i], t, 0)) m_pResponse[i] *= t;
    }
    return 1;
}

int CSpectralResponse::AddResponse(double* lambdas, double* transmissions, int count) {
    CResponseFile file(nullptr);
    if (count > 0 && (!lambdas || !transmissions)) return 0;
    for (int i = 0; i < count; ++i) {
        if (!file.Add(lambdas[i], transmissions[i])) return 0;
    }
    return AddResponse(&file);
}

int CSpectralResponse::GetLamdbaIndex(double lambda) const {
    if (lambda < m_dLambdaMin || lambda > m_dLambdaMax) return -1;
    for (int i = 0; i < m_nCount; ++i) {
        if (m_pLambda[i] > lambda) return i - 1;
    }
    return -1;
}

int CSpectralResponse::Save(const char* fileName) const {
    CResponseFile file(nullptr);
    for (int i = 0; i < m_nCount; ++i) {
        if (!file.Add(m_pLambda[i], m_pResponse[i])) return 0;
    }
    return file.Save(fileName);
}

}  // namespace thermokit
