#include "thermokit/calibration/CCalibration.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <new>
#include <stdexcept>

#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/Text.h"

namespace thermokit {

THERMOKIT_IMPLEMENT_DYNAMIC(CCalibration, CObject)

namespace {

constexpr char kTag[4] = {'E', 'X', 'P', '\0'};
constexpr char kVersion[4] = {'5', '.', '7', '0'};
constexpr size_t kMaxMessage = 255;

// Copies text into a fixed field when it fits with its terminator; 0 otherwise.
int SetFitting(char* field, size_t size, const std::string& text) {
    if (text.size() + 1 > size) return 0;
    SetTextField(field, size, text.c_str(), size - 1);
    return 1;
}

void ShowFileError(const std::string& text) {
    Messages::ShowMessage(text.substr(0, kMaxMessage), "CCalibration", MB_ICONERROR);
}

}  // namespace

// ---------------------------------------------------------------- construction

void CCalibration::InitEmpty(const std::string& cameraName, int extensionTypes) {
    std::memset(&m_Header, 0, sizeof m_Header);
    std::memcpy(m_Header.m_szTag, kTag, sizeof kTag);
    std::memcpy(m_Header.m_szVersion, kVersion, sizeof kVersion);
    SetTextField(m_Header.m_szCamera, sizeof m_Header.m_szCamera, cameraName.c_str(), sizeof m_Header.m_szCamera);
    m_Header.m_byLensFormatSize = static_cast<uint8_t>(kLensFormatSize);
    m_Header.m_fDistance = 1.0f;
    m_Header.m_byExtensionTypes = static_cast<uint8_t>(extensionTypes);
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local)) {
        m_Header.m_wYear = static_cast<uint16_t>(local.tm_year + 1900);
        m_Header.m_byDay = static_cast<uint8_t>(local.tm_mday);
        m_Header.m_byMonth = static_cast<uint8_t>(local.tm_mon + 1);
    }
    std::memset(m_ExtClassHeader, 0, sizeof m_ExtClassHeader);
    std::memset(m_LensHeader, 0, sizeof m_LensHeader);
    m_aExtClass.clear();
    m_aLensFormat.clear();
    m_pCurveX.assign(kMinPoints, 0.0f);
    m_pCurveY.assign(kMinPoints, 0.0f);
    m_pCurveXCorrected.assign(kMinPoints, 0.0f);
    m_nCurrentConfig = -1;
    m_rcDetector = CRect();
    m_strFileName.clear();
    m_fIntegration = 0.0f;
    m_bValid = 1;
    m_fCameraTemperature = -999.0f;
}

CCalibration::CCalibration(std::string cameraName, int extensionTypes) { InitEmpty(cameraName, extensionTypes); }

CCalibration::CCalibration(const char* cameraName, int extensionTypes) {
    InitEmpty(cameraName ? cameraName : "", extensionTypes);
}

CCalibration::CCalibration(const char* fileName, int* result) {
    InitEmpty(std::string(), 0);
    const int ok = Open(fileName);
    if (result) *result = ok ? 0 : 1;  // inverted on purpose: 0 means opened
}

CCalibration::~CCalibration() = default;

// ---------------------------------------------------------------- virtual operations

int CCalibration::SetCameraTemperature(float t, int force) {
    const float previous = m_fCameraTemperature;
    m_fCameraTemperature = t;
    if (m_aExtClass.empty()) return 1;
    if (t == previous && !force) return 1;
    m_bValid = Regenerate(t);
    return m_bValid;
}

float CCalibration::GetCameraTemperature() const { return m_fCameraTemperature; }

const float* CCalibration::ActiveX() const {
    return m_nCurrentConfig >= 0 ? m_pCurveXCorrected.data() : m_pCurveX.data();
}

int CCalibration::InterpolateArrays(const float* abscissae, const float* ordinates, int n, float value,
                                    float* result, int extrapolate) {
    if (n < 2 || !abscissae || !ordinates || !result) return 0;
    int i = 0;
    for (; i < n; ++i) {
        if (abscissae[i] == value) {
            *result = ordinates[i];
            return 1;
        }
        if (abscissae[i] > value) break;
    }
    int a, b;
    if (i > 0 && i < n) {
        a = i - 1;
        b = i;
    } else if (!extrapolate) {
        return 0;
    } else if (i == 0) {
        a = 0;
        b = 1;
    } else {
        a = n - 2;
        b = n - 1;
    }
    if (abscissae[a] == abscissae[b]) {
        *result = ordinates[a];
    } else {
        const double xa = abscissae[a], xb = abscissae[b], ya = ordinates[a], yb = ordinates[b];
        *result = static_cast<float>((yb - ya) / (xb - xa) * (static_cast<double>(value) - xa) + ya);
    }
    return 1;
}

int CCalibration::Interpolate(float x, float* y, int extrapolate) const {
    return InterpolateArrays(ActiveX(), m_pCurveY.data(), m_Header.m_wPoint, x, y, extrapolate);
}

int CCalibration::FindAbscisse(float y, float* x, int extrapolate) const {
    return InterpolateArrays(m_pCurveY.data(), ActiveX(), m_Header.m_wPoint, y, x, extrapolate);
}

int CCalibration::LevelToSignal(float level, double* signal) const {
    if (!signal) return 0;
    *signal = level;
    return 1;
}

int CCalibration::SignalToValue(double signal, double* value, int extrapolate) const {
    float y = 0.0f;
    if (!value || !Interpolate(static_cast<float>(signal), &y, extrapolate)) return 0;
    *value = y;
    return 1;
}

int CCalibration::ValueToSignal(double value, double* signal, int extrapolate) const {
    float x = 0.0f;
    if (!signal || !FindAbscisse(static_cast<float>(value), &x, extrapolate)) return 0;
    *signal = x;
    return 1;
}

unsigned short CCalibration::GetSize() const { return m_Header.m_wPoint; }

void CCalibration::SetIntegration(unsigned short integration) {
    m_Header.m_wIntegration = integration;
    m_fIntegration = integration;
}

void CCalibration::SetIntegration(float integration) {
    m_fIntegration = integration;
    const float r = std::round(integration);
    m_Header.m_wIntegration = r <= 0.0f ? 0 : (r >= 65535.0f ? 65535 : static_cast<uint16_t>(r));
}

void CCalibration::SetHousingTemp(float t) { m_Header.m_fHousingTemp = t; }
float CCalibration::GetHousingTemp() const { return m_Header.m_fHousingTemp; }
float* CCalibration::GetCurveX() { return m_pCurveX.data(); }
float* CCalibration::GetCurveY() { return m_pCurveY.data(); }
int CCalibration::GetCalibModifyParam() { return m_aExtClass.empty() ? 0 : 2; }

int CCalibration::SetRectDetector(CRect rect) {
    m_rcDetector = rect;
    return 1;
}

// ---------------------------------------------------------------- points

void CCalibration::EnsureSlots(size_t slots) {
    if (m_pCurveX.size() < slots) m_pCurveX.resize(slots, 0.0f);
    if (m_pCurveY.size() < slots) m_pCurveY.resize(slots, 0.0f);
    if (m_pCurveXCorrected.size() < slots) m_pCurveXCorrected.resize(slots, 0.0f);
}

int CCalibration::Insert(unsigned short index, float x, float y) {
    const unsigned n = m_Header.m_wPoint;
    // Refused rather than writing past the curve: an index beyond the end, or a full 16-bit count.
    if (index > n || n >= 65535u) return 0;
    if (n >= static_cast<unsigned>(kMinPoints)) EnsureSlots(n + 1);
    for (unsigned k = n; k > index; --k) {
        m_pCurveX[k] = m_pCurveX[k - 1];
        m_pCurveY[k] = m_pCurveY[k - 1];
        m_pCurveXCorrected[k] = m_pCurveXCorrected[k - 1];
    }
    m_pCurveX[index] = x;
    m_pCurveY[index] = y;
    m_Header.m_wPoint = static_cast<uint16_t>(n + 1);
    return 1;
}

int CCalibration::Delete(unsigned short index) {
    // The count drops first, unconditionally: on an empty curve it wraps to
    // 65535 (kept; callers check IsEmpty). The arrays then grow to match so
    // that no later read goes past them.
    m_Header.m_wPoint = static_cast<uint16_t>(m_Header.m_wPoint - 1);
    const unsigned n = m_Header.m_wPoint;
    EnsureSlots(static_cast<size_t>(n) + 1);
    for (unsigned k = index; k < n; ++k) {
        m_pCurveX[k] = m_pCurveX[k + 1];
        m_pCurveY[k] = m_pCurveY[k + 1];
        m_pCurveXCorrected[k] = m_pCurveXCorrected[k + 1];
    }
    return 1;
}

int CCalibration::Sort() { return 1; }  // the curve stays in the caller's order

void CCalibration::Reset() {
    m_Header.m_wPoint = 0;
    m_aExtClass.clear();
    m_aLensFormat.clear();
    m_nCurrentConfig = -1;
}

int CCalibration::GetSlew(float x1, float x2, float* slope) const {
    if (x1 == x2 || !slope) return 0;
    float y1, y2;
    if (!Interpolate(x1, &y1, 1) || !Interpolate(x2, &y2, 1)) return 0;
    if (y1 == y2) return 0;  // a flat stretch is reported as a failure, deliberately
    *slope = (y2 - y1) / (x2 - x1);
    return 1;
}

int CCalibration::GetSlew(float x, float* slope) const {
    const int n = m_Header.m_wPoint;
    const float* X = ActiveX();
    const float* Y = m_pCurveY.data();
    if (n < 2 || !X || !Y || !slope) return 0;
    int seg = -1;
    if (x <= X[0]) {
        seg = 0;
    } else if (x >= X[n - 1]) {
        seg = n - 2;
    } else {
        for (int i = 0; i < n - 1; ++i) {
            if (X[i] == x || X[i + 1] > x) {
                seg = i;
                break;
            }
        }
    }
    if (seg < 0 || X[seg] == X[seg + 1]) return 0;
    *slope = (Y[seg + 1] - Y[seg]) / (X[seg + 1] - X[seg]);
    return 1;
}

// ---------------------------------------------------------------- context

int CCalibration::SetFilterName(const std::string& name) {
    return SetFitting(m_Header.m_szFilter, sizeof m_Header.m_szFilter, name);
}
std::string CCalibration::GetFilterName() const { return GetTextField(m_Header.m_szFilter, sizeof m_Header.m_szFilter); }

void CCalibration::SetLens(const std::string& lens) {
    SetTextField(m_Header.m_szLens, sizeof m_Header.m_szLens, lens.c_str(), sizeof m_Header.m_szLens);
}
std::string CCalibration::GetLens() const { return GetTextField(m_Header.m_szLens, sizeof m_Header.m_szLens); }

void CCalibration::SetCamera(const std::string& camera) {
    SetTextField(m_Header.m_szCamera, sizeof m_Header.m_szCamera, camera.c_str(), sizeof m_Header.m_szCamera);
}
std::string CCalibration::GetCamera() const { return GetTextField(m_Header.m_szCamera, sizeof m_Header.m_szCamera); }

void CCalibration::SetDate(int day, int month, int year) {
    m_Header.m_byDay = static_cast<uint8_t>(day);
    m_Header.m_byMonth = static_cast<uint8_t>(month);
    m_Header.m_wYear = static_cast<uint16_t>(year);
}

void CCalibration::GetDate(int* day, int* month, int* year) const {
    if (day) *day = m_Header.m_byDay;
    if (month) *month = m_Header.m_byMonth;
    if (year) *year = m_Header.m_wYear;
}

int CCalibration::SetUnitX(const std::string& u) { return SetFitting(m_Header.m_szUnitX, sizeof m_Header.m_szUnitX, u); }
std::string CCalibration::GetUnitX() const { return GetTextField(m_Header.m_szUnitX, sizeof m_Header.m_szUnitX); }
int CCalibration::SetUnitY(const std::string& u) { return SetFitting(m_Header.m_szUnitY, sizeof m_Header.m_szUnitY, u); }
std::string CCalibration::GetUnitY() const { return GetTextField(m_Header.m_szUnitY, sizeof m_Header.m_szUnitY); }
int CCalibration::SetUnitLabelX(const std::string& l) {
    return SetFitting(m_Header.m_szUnitLabelX, sizeof m_Header.m_szUnitLabelX, l);
}
std::string CCalibration::GetUnitLabelX() const {
    return GetTextField(m_Header.m_szUnitLabelX, sizeof m_Header.m_szUnitLabelX);
}
int CCalibration::SetUnitLabelY(const std::string& l) {
    return SetFitting(m_Header.m_szUnitLabelY, sizeof m_Header.m_szUnitLabelY, l);
}
std::string CCalibration::GetUnitLabelY() const {
    return GetTextField(m_Header.m_szUnitLabelY, sizeof m_Header.m_szUnitLabelY);
}

CCalibration::STRUCT_FORMAT CCalibration::CRectToFormat(const CRect& rect) {
    STRUCT_FORMAT f;
    f.x = static_cast<int16_t>(rect.left);
    f.y = static_cast<int16_t>(rect.top);
    f.width = static_cast<int16_t>(rect.right - rect.left);
    f.height = static_cast<int16_t>(rect.bottom - rect.top);
    return f;
}

CRect CCalibration::FormatToCRect(const STRUCT_FORMAT& f) {
    return CRect(f.x, f.y, f.x + f.width, f.y + f.height);
}

// ---------------------------------------------------------------- extended classes

int CCalibration::Insert(float key, float cameraTemperature, float x, int index) {
    if (!(m_Header.m_byExtensionTypes & kExtendedClasses)) return 0;
    auto it = std::find_if(m_aExtClass.begin(), m_aExtClass.end(), [&](const EXT_CLASS& c) { return c.m_fKey == key; });
    if (it == m_aExtClass.end()) {
        EXT_CLASS c;
        c.m_fKey = key;
        c.m_afCameraTemperature.assign(kMinPoints, 0.0f);
        c.m_afX.assign(kMinPoints, 0.0f);
        auto pos = std::find_if(m_aExtClass.begin(), m_aExtClass.end(), [&](const EXT_CLASS& e) { return e.m_fKey > key; });
        it = m_aExtClass.insert(pos, std::move(c));
    }
    EXT_CLASS& c = *it;
    const int count = c.m_nCount;
    if (index == -1) index = count;
    if (index < 0 || index > count) return 0;  // no sample slot there
    if (count >= kMinPoints || static_cast<size_t>(count) >= c.m_afX.size()) {
        c.m_afCameraTemperature.resize(static_cast<size_t>(count) + 1, 0.0f);
        c.m_afX.resize(static_cast<size_t>(count) + 1, 0.0f);
    }
    for (int k = count; k > index; --k) {
        c.m_afCameraTemperature[k] = c.m_afCameraTemperature[k - 1];
        c.m_afX[k] = c.m_afX[k - 1];
    }
    c.m_afCameraTemperature[index] = cameraTemperature;
    c.m_afX[index] = x;
    c.m_nCount = count + 1;
    return 1;
}

int CCalibration::GetExtendedClassElementCount(int cls) const {
    return m_aExtClass.at(static_cast<size_t>(cls)).m_nCount;
}

int CCalibration::GetCalibValue(int cls, int element, float& key, float& cameraTemperature, float& x) const {
    const EXT_CLASS& c = m_aExtClass.at(static_cast<size_t>(cls));
    if (element < 0 || element >= c.m_nCount) return 0;
    key = c.m_fKey;
    cameraTemperature = c.m_afCameraTemperature.at(static_cast<size_t>(element));
    x = c.m_afX.at(static_cast<size_t>(element));
    return 1;
}

int CCalibration::Regenerate(float t) {
    const float c = static_cast<float>(t - 273.15);  // degrees Celsius, single precision
    m_Header.m_wPoint = 0;
    for (const EXT_CLASS& cls : m_aExtClass) {
        const int k = cls.m_nCount;
        if (k <= 0) continue;
        const float* T = cls.m_afCameraTemperature.data();
        const float* X = cls.m_afX.data();
        float x;
        if (k == 1) {
            x = X[0];
        } else {
            int i = 0;
            bool exact = false;
            for (; i < k; ++i) {
                if (T[i] == c) { exact = true; break; }
                if (T[i] > c) break;
            }
            if (exact) {
                x = X[i];
            } else {
                int a, b;
                if (i > 0 && i < k) { a = i - 1; b = i; }
                else if (i == 0) { a = 0; b = 1; }
                else { a = k - 2; b = k - 1; }
                if (T[a] == T[b]) {
                    x = X[a];
                } else {
                    const double ta = T[a], tb = T[b], xa = X[a], xb = X[b];
                    x = static_cast<float>((xb - xa) / (tb - ta) * (static_cast<double>(c) - ta) + xa);
                }
            }
        }
        Add(x, cls.m_fKey);
    }
    return 1;
}

// ---------------------------------------------------------------- lens formats

int CCalibration::InsertLensFormat(int index, std::string lens, CRect format, float gain, float offset) {
    if (!(m_Header.m_byExtensionTypes & kLensFormats)) return 0;
    if (index == -1) index = static_cast<int>(m_aLensFormat.size());
    if (index < 0 || static_cast<size_t>(index) > m_aLensFormat.size())
        throw std::out_of_range("CCalibration: lens format index out of range");
    LENS_FORMAT rec;
    std::memset(&rec, 0, sizeof rec);
    SetTextField(rec.m_szLens, sizeof rec.m_szLens, lens.c_str(), sizeof rec.m_szLens);
    rec.m_Format = CRectToFormat(format);
    rec.m_fGain = gain;
    rec.m_fOffset = offset;
    m_aLensFormat.insert(m_aLensFormat.begin() + index, rec);
    if (m_nCurrentConfig >= index) ++m_nCurrentConfig;
    return 1;
}

int CCalibration::AddLensFormat(std::string lens, CRect format, float gain, float offset) {
    return InsertLensFormat(-1, std::move(lens), format, gain, offset);
}

int CCalibration::AddLensFormat(std::string lens, CRect format, CCalibration* reference,
                                REGRESSION_QUALITY_PARAMS* quality) {
    return InsertLensFormat(-1, std::move(lens), format, reference, quality);
}

int CCalibration::InsertLensFormat(int index, std::string lens, CRect format, CCalibration* reference,
                                   REGRESSION_QUALITY_PARAMS* quality) {
    if (!(m_Header.m_byExtensionTypes & kLensFormats)) return 0;
    float gain, offset;
    if (!ComputeConfigCoefficient(reference, gain, offset, quality)) return 0;
    return InsertLensFormat(index, std::move(lens), format, gain, offset);
}

int CCalibration::ComputeConfigCoefficient(CCalibration* reference, float& gain, float& offset,
                                           REGRESSION_QUALITY_PARAMS* quality) {
    if (!reference) return 0;
    // Pairs (Y of this curve, level the reference gives for that Y).
    const int n = m_Header.m_wPoint;
    std::vector<double> ys, xs;
    ys.reserve(static_cast<size_t>(n));
    xs.reserve(static_cast<size_t>(n));
    for (int k = 0; k < n; ++k) {
        float level;
        if (reference->FindAbscisse(m_pCurveY[k], &level, 1) && std::isfinite(level)) {
            ys.push_back(m_pCurveY[k]);
            xs.push_back(level);
        }
    }
    const size_t m = ys.size();
    if (m < 2) return 0;
    double my = 0.0, mx = 0.0;
    for (size_t k = 0; k < m; ++k) { my += ys[k]; mx += xs[k]; }
    my /= static_cast<double>(m);
    mx /= static_cast<double>(m);
    double syy = 0.0, syx = 0.0, sxx = 0.0;
    for (size_t k = 0; k < m; ++k) {
        syy += (ys[k] - my) * (ys[k] - my);
        syx += (ys[k] - my) * (xs[k] - mx);
        sxx += (xs[k] - mx) * (xs[k] - mx);
    }
    if (!(syy > 0.0)) return 0;  // all Y equal: no line
    const double g = syx / syy;
    const double o = mx - g * my;
    double sse = 0.0, worst = 0.0;
    for (size_t k = 0; k < m; ++k) {
        const double r = xs[k] - (g * ys[k] + o);
        sse += r * r;
        worst = std::max(worst, std::fabs(r));
    }
    gain = static_cast<float>(g);
    offset = static_cast<float>(o);
    if (quality) {
        quality->m_nPoints = static_cast<int>(m);
        quality->m_dR2 = sxx > 0.0 ? 1.0 - sse / sxx : 1.0;
        quality->m_dRms = std::sqrt(sse / static_cast<double>(m));
        quality->m_dMaxResidual = worst;
        quality->m_dMeanX = mx;
    }
    return 1;
}

int CCalibration::DeleteLensFormat(int index) {
    if (!(m_Header.m_byExtensionTypes & kLensFormats)) return 0;
    if (index < 0 || static_cast<size_t>(index) >= m_aLensFormat.size()) return 0;
    m_aLensFormat.erase(m_aLensFormat.begin() + index);
    if (m_nCurrentConfig == index) m_nCurrentConfig = -1;
    else if (m_nCurrentConfig > index) --m_nCurrentConfig;
    return 1;
}

int CCalibration::SearchLensFormat(std::string lens, CRect format) const {
    if (!(m_Header.m_byExtensionTypes & kLensFormats)) return -1;
    char name[10];
    SetTextField(name, sizeof name, lens.c_str(), sizeof name);
    const STRUCT_FORMAT f = CRectToFormat(format);
    for (size_t i = 0; i < m_aLensFormat.size(); ++i) {
        const LENS_FORMAT& r = m_aLensFormat[i];
        if (GetTextField(r.m_szLens, sizeof r.m_szLens) == GetTextField(name, sizeof name) && r.m_Format.x == f.x &&
            r.m_Format.y == f.y && r.m_Format.width == f.width && r.m_Format.height == f.height)
            return static_cast<int>(i);
    }
    return -1;
}

std::string CCalibration::GetLens(int index) const {
    const LENS_FORMAT& r = m_aLensFormat.at(static_cast<size_t>(index));
    return GetTextField(r.m_szLens, sizeof r.m_szLens);
}

CRect CCalibration::GetFormat(int index) const {
    return FormatToCRect(m_aLensFormat.at(static_cast<size_t>(index)).m_Format);
}

int CCalibration::GetConfigTransfo(int index, float& gain, float& offset) const {
    // Kept: index == count passes this test and then fails on the array.
    if (index < 0 || index > static_cast<int>(m_aLensFormat.size())) return 0;
    const LENS_FORMAT& r = m_aLensFormat.at(static_cast<size_t>(index));
    gain = r.m_fGain;
    offset = r.m_fOffset;
    return 1;
}

int CCalibration::GetConfigName(std::vector<std::string>& names) const {
    if (!(m_Header.m_byExtensionTypes & kLensFormats)) return 0;
    names.clear();
    for (const LENS_FORMAT& r : m_aLensFormat) {
        names.push_back(Format("Lens[%s]-format[%d-%d-%d-%d]", GetTextField(r.m_szLens, sizeof r.m_szLens).c_str(),
                               r.m_Format.x, r.m_Format.y, r.m_Format.width, r.m_Format.height));
    }
    return 1;
}

int CCalibration::SetCurrentConfig(int index) {
    // Kept: the test is on the extended-classes flag, not on the lens-format one.
    if (!(m_Header.m_byExtensionTypes & kExtendedClasses)) return 0;
    if (index == -1) {
        m_nCurrentConfig = -1;
        return 1;
    }
    const LENS_FORMAT& r = m_aLensFormat.at(static_cast<size_t>(index));
    const float gain = r.m_fGain;
    const float offset = r.m_fOffset;
    if (m_Header.m_wPoint == 0) SetCameraTemperature(static_cast<float>(m_Header.m_fHousingTemp + 273.15), 1);
    const int n = m_Header.m_wPoint;
    for (int k = 0; k < n; ++k) m_pCurveXCorrected[k] = gain * m_pCurveY[k] + offset;
    m_nCurrentConfig = index;
    return 1;
}

// ---------------------------------------------------------------- files

bool CCalibration::ReadBody(File& file, std::string& error) {
    const int64_t length = file.GetLength();
    auto remaining = [&]() -> uint64_t {
        const int64_t pos = file.GetPosition();
        return (length < 0 || pos < 0 || pos > length) ? 0 : static_cast<uint64_t>(length - pos);
    };
    auto read = [&](void* data, size_t size) {
        if (file.ReadRecord(data, size)) return true;
        error = Format("Unexpected end of file %s.", m_strFileName.c_str());
        SetReadError(file, "shorter than its header says");
        return false;
    };
    auto damaged = [&](const std::string& what) {
        error = Format("File %s is damaged: %s.", m_strFileName.c_str(), what.c_str());
        SetLastError(ErrorKind::Format, "damaged: " + what);
        return false;
    };

    const size_t slots = std::max<size_t>(m_Header.m_wPoint, kMinPoints);
    if (2 * slots * sizeof(float) > remaining()) return damaged("the curve is larger than the file");
    m_pCurveX.assign(slots, 0.0f);
    m_pCurveY.assign(slots, 0.0f);
    m_pCurveXCorrected.assign(slots, 0.0f);
    if (!read(m_pCurveX.data(), slots * sizeof(float)) || !read(m_pCurveY.data(), slots * sizeof(float)))
        return false;

    if (m_Header.m_byExtensionTypes & kExtendedClasses) {
        if (!read(m_ExtClassHeader, kBlockSize)) return false;
        const int32_t classes = load<int32_t>(m_ExtClassHeader, 0);
        // Each class gives the curve one point, and a curve holds at most
        // 65535: more classes are no calibration. The bound also keeps what
        // a file of empty classes (eight bytes each) costs in memory.
        if (classes < 0 || classes > 65535)
            return damaged(std::to_string(classes) + " extended classes, more than the 65535 points a curve holds");
        // Each class takes at least its key and its count.
        if (static_cast<uint64_t>(classes) * 8u > remaining())
            return damaged("the extended classes are larger than the file");
        m_aExtClass.reserve(static_cast<size_t>(classes));
        for (int32_t c = 0; c < classes; ++c) {
            uint8_t head[8];
            if (!read(head, sizeof head)) return false;
            EXT_CLASS cls;
            cls.m_fKey = load<float>(head, 0);
            const int32_t k = load<int32_t>(head, 4);
            if (k < 0 || static_cast<uint64_t>(k) * 8u > remaining())
                return damaged("an extended class is larger than the file");
            cls.m_nCount = k;
            // Exactly k slots: a file of many tiny classes must not make us allocate
            // fifty slots per eight bytes read. Insert grows the arrays when needed.
            cls.m_afCameraTemperature.assign(static_cast<size_t>(k), 0.0f);
            cls.m_afX.assign(static_cast<size_t>(k), 0.0f);
            if (!read(cls.m_afCameraTemperature.data(), static_cast<size_t>(k) * sizeof(float)) ||
                !read(cls.m_afX.data(), static_cast<size_t>(k) * sizeof(float)))
                return false;
            m_aExtClass.push_back(std::move(cls));
        }
    }
    if (m_Header.m_byExtensionTypes & kLensFormats) {
        if (!read(m_LensHeader, kBlockSize)) return false;
        const int32_t count = load<int32_t>(m_LensHeader, 0);
        if (count < 0 || static_cast<uint64_t>(count) * kLensFormatSize > remaining())
            return damaged("the lens formats are larger than the file");
        m_aLensFormat.resize(static_cast<size_t>(count));
        if (count > 0 && !read(m_aLensFormat.data(), static_cast<size_t>(count) * kLensFormatSize)) return false;
    }
    return true;
}

int CCalibration::Open(const char* fileName) {
    ClearLastError();
    m_strFileName = fileName ? fileName : "";
    if (m_strFileName.empty()) return SetLastError(ErrorKind::Argument, "no file name");
    // Zero the curve and drop the extensions of a previous file.
    m_Header.m_wPoint = 0;
    m_pCurveX.assign(kMinPoints, 0.0f);
    m_pCurveY.assign(kMinPoints, 0.0f);
    m_pCurveXCorrected.assign(kMinPoints, 0.0f);
    m_aExtClass.clear();
    m_aLensFormat.clear();
    m_nCurrentConfig = -1;
    std::memset(m_ExtClassHeader, 0, sizeof m_ExtClassHeader);
    std::memset(m_LensHeader, 0, sizeof m_LensHeader);

    File file;
    std::string error;
    CALIBRATION_HEADER header;
    if (!file.Open(m_strFileName, File::modeRead | File::shareDenyWrite)) {
        error = Format("Cannot open %s: %s.", m_strFileName.c_str(), file.GetLastErrorText().c_str());
        SetLastError("cannot be opened", file);
    } else if (!file.ReadRecord(&header, sizeof header)) {
        error = Format("Unexpected end of file %s.", m_strFileName.c_str());
        SetReadError(file, "not a calibration file (shorter than the 267-byte header)");
    } else {
        m_Header = header;
        m_fIntegration = m_Header.m_wIntegration;
        bool read = false;
        try {
            read = ReadBody(file, error);
        } catch (const std::bad_alloc&) {
            error = Format("Not enough memory to read %s.", m_strFileName.c_str());
            SetLastError(ErrorKind::Memory, "its curve and classes cannot be allocated");
        }
        if (!read) {
            m_Header.m_wPoint = 0;
            m_pCurveX.assign(kMinPoints, 0.0f);
            m_pCurveY.assign(kMinPoints, 0.0f);
            m_pCurveXCorrected.assign(kMinPoints, 0.0f);
            m_aExtClass.clear();
            m_aExtClass.shrink_to_fit();
            m_aLensFormat.clear();
        }
    }
    if (!error.empty()) {
        ShowFileError(error);
        m_bValid = 0;
        return 0;
    }
    m_bValid = std::memcmp(m_Header.m_szTag, kTag, sizeof kTag) == 0 ? 1 : 0;
    if (m_bValid) SetCameraTemperature(m_Header.m_fHousingTemp, 0);  // as stored: no 273.15 here, kept
    else SetLastError(ErrorKind::Format, "not a calibration file (tag \"EXP\" expected)");
    return m_bValid;
}

int CCalibration::Save(const char* fileName) {
    m_strFileName = fileName ? fileName : "";
    Sort();
    const size_t slots = std::max<size_t>(m_Header.m_wPoint, kMinPoints);
    std::vector<uint8_t> out;
    out.reserve(kHeaderSize + 2 * slots * sizeof(float));
    auto put = [&](const void* data, size_t size) {
        const auto* p = static_cast<const uint8_t*>(data);
        out.insert(out.end(), p, p + size);
    };
    put(&m_Header, sizeof m_Header);
    put(m_pCurveX.data(), slots * sizeof(float));
    put(m_pCurveY.data(), slots * sizeof(float));
    if (m_Header.m_byExtensionTypes & kExtendedClasses) {
        store<int32_t>(m_ExtClassHeader, 0, static_cast<int32_t>(m_aExtClass.size()));
        put(m_ExtClassHeader, kBlockSize);
        for (const EXT_CLASS& c : m_aExtClass) {
            put(&c.m_fKey, sizeof(float));
            put(&c.m_nCount, sizeof(int32_t));
            put(c.m_afCameraTemperature.data(), static_cast<size_t>(c.m_nCount) * sizeof(float));
            put(c.m_afX.data(), static_cast<size_t>(c.m_nCount) * sizeof(float));
        }
    }
    if (m_Header.m_byExtensionTypes & kLensFormats) {
        store<int32_t>(m_LensHeader, 0, static_cast<int32_t>(m_aLensFormat.size()));
        put(m_LensHeader, kBlockSize);
        put(m_aLensFormat.data(), m_aLensFormat.size() * kLensFormatSize);
    }
    File file;
    if (m_strFileName.empty()) return SetLastError(ErrorKind::Argument, "no file name");
    if (!file.Open(m_strFileName, File::modeCreate | File::modeWrite | File::shareExclusive))
        return SetLastError("cannot be created", file);
    if (!file.Write(out.data(), out.size())) return SetLastError("cannot be written", file);
    return 1;
}

}  // namespace thermokit
