#include "thermokit/nuc/CCos4.h"

#include <cmath>

namespace thermokit {

namespace {

// Truncated toward zero, then the low 16 bits (as a 32-bit integer
// conversion gives); what no 32-bit integer holds becomes 0.
inline unsigned short ToLevel(double v) {
    const double t = std::trunc(v);
    if (!(t > -2147483649.0 && t < 2147483648.0)) return 0;
    return static_cast<unsigned short>(static_cast<uint32_t>(static_cast<int32_t>(t)));
}

// Four values a pass, then the rest one by one (the same results as one loop).
template <class T, class Op>
void ApplyFloating(T* data, const float* coef, long n, Op op) {
    long i = 0;
    for (; i + 4 <= n; i += 4) {
        data[i] = static_cast<T>(op(static_cast<double>(data[i]), static_cast<double>(coef[i])));
        data[i + 1] = static_cast<T>(op(static_cast<double>(data[i + 1]), static_cast<double>(coef[i + 1])));
        data[i + 2] = static_cast<T>(op(static_cast<double>(data[i + 2]), static_cast<double>(coef[i + 2])));
        data[i + 3] = static_cast<T>(op(static_cast<double>(data[i + 3]), static_cast<double>(coef[i + 3])));
    }
    for (; i < n; ++i) data[i] = static_cast<T>(op(static_cast<double>(data[i]), static_cast<double>(coef[i])));
}

constexpr auto kMul = [](double a, double b) { return a * b; };
constexpr auto kDiv = [](double a, double b) { return a / b; };

}  // namespace

CCos4::CCos4(unsigned short point, unsigned short line) : CPtr(point, line, 16, 0, 1, 1) {
    const size_t n = static_cast<size_t>(point) * line;
    m_spCoef = std::shared_ptr<float[]>(new float[n ? n : 1]);
    m_pfCoef = m_spCoef.get();
}

CCos4::CCos4(const CCos4& other)
    : CPtr(other),
      m_fDistance(other.m_fDistance),
      m_fDiameter(other.m_fDiameter),
      m_pfCoef(other.m_pfCoef),
      m_spCoef(other.m_spCoef) {}

CCos4& CCos4::operator=(const CCos4& other) {
    if (this != &other) {
        CPtr::operator=(other);
        m_fDistance = other.m_fDistance;
        m_fDiameter = other.m_fDiameter;
        m_spCoef = other.m_spCoef;
        m_pfCoef = other.m_pfCoef;
    }
    return *this;
}

CCos4::~CCos4() = default;

double CCos4::GetRatio() const { return static_cast<double>(m_fDistance) / m_fDiameter; }

float CCos4::GetMaxAngle() const {
    const int point = GetPoint(), line = GetLine();
    const double diagonal = std::sqrt(static_cast<double>(line * line + point * point));
    return static_cast<float>(std::atan(diagonal / (2 * m_fDistance)) * 57.29577951307855);
}

int CCos4::CheckAngleHypothesis() const { return GetMaxAngle() < 10.0 ? 1 : 0; }
int CCos4::CheckRatioHypothesis() const { return GetRatio() > 1.5 ? 1 : 0; }

int CCos4::Calculate(const std::string& fileName) {
    if (m_fDistance == 0.0f) return 0;
    const float p = GetPixelSize();
    const unsigned short point = GetPoint(), line = GetLine();
    // Half-extents in millimetres, with the quarter-pixel offset of the rule.
    const float x0 = static_cast<float>((point * p * 0.001 - p * 0.0005) * 0.5);
    const float y0 = static_cast<float>((line * p * 0.001 - p * 0.0005) * 0.5);
    const float sx = static_cast<float>(p * 0.001);
    const float sy = sx;
    const float d = m_fDistance;
    const float d2 = d * d;
    for (unsigned j = 0; j < line; ++j) {
        const float dy = y0 - j * sy;
        const float dy2 = dy * dy;
        float* row = m_pfCoef + static_cast<size_t>(point) * j;
        for (unsigned i = 0; i < point; ++i) {
            const float dx = x0 - i * sx;
            const float r = dx * dx + dy2 + d2;
            row[i] = (r * r) / (d2 * d2);
        }
    }
    if (fileName.empty()) return 1;
    return SaveFrame(fileName.c_str(), m_pfCoef, "", "Generated with Cos4 Utility", 0, -1.0, -1.0);
}

long CCos4::Limit(long n) const {
    const long size = GetSize();
    return n < size ? n : size;
}

int CCos4::ApplyMultiply(unsigned short* data, long n) {
    if (!data) return 1;
    n = Limit(n);
    for (long i = 0; i < n; ++i) data[i] = ToLevel(data[i] * static_cast<double>(m_pfCoef[i]));
    return 1;
}
int CCos4::ApplyDivide(unsigned short* data, long n) {
    if (!data) return 1;
    n = Limit(n);
    for (long i = 0; i < n; ++i) data[i] = ToLevel(data[i] / static_cast<double>(m_pfCoef[i]));
    return 1;
}
int CCos4::ApplyMultiply(float* data, long n) {
    if (data) ApplyFloating(data, m_pfCoef, Limit(n), kMul);
    return 1;
}
int CCos4::ApplyMultiply(double* data, long n) {
    if (data) ApplyFloating(data, m_pfCoef, Limit(n), kMul);
    return 1;
}
int CCos4::ApplyDivide(float* data, long n) {
    if (data) ApplyFloating(data, m_pfCoef, Limit(n), kDiv);
    return 1;
}
int CCos4::ApplyDivide(double* data, long n) {
    if (data) ApplyFloating(data, m_pfCoef, Limit(n), kDiv);
    return 1;
}

}  // namespace thermokit
