#include "thermokit/film/CPtrFloat.h"

#include <cmath>
#include <string>

#include "thermokit/image/CFrame.h"

namespace thermokit {

namespace {

// A double becomes a level by clamping to [0, maxLevel] and truncating.
void DoublesToLevels(const double* in, long count, unsigned short* out, unsigned short maxLevel) {
    for (long i = 0; i < count; ++i) {
        const double v = in[i];
        if (!(v > 0.0)) out[i] = 0;
        else if (v >= maxLevel) out[i] = maxLevel;
        else out[i] = static_cast<unsigned short>(v);
    }
}

}  // namespace

CPtrFloat::CPtrFloat(const std::string& fileName, int unused1, int unused2, int b24) : CPtr(fileName, b24, 8u) {
    (void)unused1;
    (void)unused2;
    // The doubles of one image: a header that passed its checks can still ask
    // for more than memory holds (a sparse file of 65535 x 65535 doubles).
    if (m_bValid && !m_Data.Allocate(static_cast<size_t>(GetSize()))) {
        m_bValid = 0;
        SetLastError(ErrorKind::Memory,
                     "an image of " + std::to_string(GetSize()) + " doubles cannot be allocated");
    }
}

CPtrFloat::CPtrFloat(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24,
                     int unused)
    : CPtr(point, line, bit, rotation, b24, unused) {
    SetDoubleRecord();
    m_Data.Allocate(static_cast<size_t>(GetSize()));
}

CPtrFloat::~CPtrFloat() = default;

void CPtrFloat::SetDoubleRecord() {
    SetH<uint32_t>(PtrHeader::kRecordWords, GetImageHeaderSize() / 2 + 4 * static_cast<uint32_t>(GetSize()));
}

uint64_t CPtrFloat::OffsetImage(unsigned long n) const { return OffsetFor(n, 8); }
uint64_t CPtrFloat::OffsetTrame(unsigned long n) const { return OffsetImage(n) + GetImageHeaderSize(); }

int CPtrFloat::Read(unsigned long n, CFrame* f) {
    if (!f) f = m_pFrame;
    const long count = GetSize();
    if (!m_bValid || !f || !f->GetBuffer() || f->GetSize() != count || count <= 0 ||
        m_Data.size() != static_cast<size_t>(count)) {
        ReadFailed(n);
        return 0;
    }
    double t = 0.0;
    if (!ReadImage(n, m_Data.data(), static_cast<size_t>(count) * 8, &t)) return 0;
    f->SetTime(t);
    DoublesToLevels(m_Data.data(), count, f->GetBuffer(), GetMaxLevel());
    return 1;
}

int CPtrFloat::ReadFrame(unsigned long n, double* data, unsigned long count) {
    if (!m_bValid || !data || count != static_cast<unsigned long>(GetSize()) || count == 0) return 0;
    SetCurrentFrame(n);
    double t = 0.0;
    if (!ReadImage(n, data, static_cast<size_t>(count) * 8, &t)) return 0;
    m_pFrame->SetTime(t);
    return 1;
}

int CPtrFloat::Write(unsigned long n, CFrame* f) {
    if (!f) f = m_pFrame;
    const long count = GetSize();
    if (!m_bValid || !f || !f->GetBuffer() || f->GetSize() != count || count <= 0 ||
        m_Data.size() != static_cast<size_t>(count)) {
        SaveFailed(n);
        return 0;
    }
    const unsigned short* levels = f->GetBuffer();
    for (long i = 0; i < count; ++i) m_Data[static_cast<size_t>(i)] = levels[i];
    SetFrameTime(f->GetTime());
    return WriteImage(n, m_Data.data(), static_cast<size_t>(count) * 8);
}

int CPtrFloat::WriteDoubles(unsigned long n, const double* data, long count) {
    if (!m_bValid || !data || count != GetSize() || count <= 0) {
        SaveFailed(n);
        return 0;
    }
    SetFrameTime(m_pFrame->GetTime());
    return WriteImage(n, data, static_cast<size_t>(count) * 8);
}

int CPtrFloat::AddFrame(double* data, int count) {
    if (!data || count != GetSize()) return 0;
    const unsigned long n = GetFrameNumber();
    if (!WriteDoubles(n, data, count)) return 0;
    SetFrameNumber(n + 1);
    return WriteHeader();
}

int CPtrFloat::AddFrame(float* data, int count) {
    if (!data || count != GetSize() || m_Data.size() != static_cast<size_t>(count)) return 0;
    for (int i = 0; i < count; ++i) m_Data[static_cast<size_t>(i)] = data[i];
    return AddFrame(m_Data.data(), count);
}

int CPtrFloat::SaveFrame(const char* fileName, double* data, const char* text1, const char* text2, int setScale,
                         double min, double max) {
    const long count = GetSize();
    if (!fileName || !data || count <= 0) return 0;
    SetFileName(fileName);
    SetComment(text2);
    SetFrameNumber(0);
    SetCurrentFrame(0);
    if (setScale) {
        double lo = min, hi = max;
        if (min == -1.0 || max == -1.0) {
            double dataMin = 0.0, dataMax = 0.0;
            bool any = false;
            for (long i = 0; i < count; ++i) {
                const double v = data[i];
                if (std::isnan(v)) continue;
                if (!any) dataMin = dataMax = v, any = true;
                else if (v < dataMin) dataMin = v;
                else if (v > dataMax) dataMax = v;
            }
            if (min == -1.0) lo = dataMin;
            if (max == -1.0) hi = dataMax;
        }
        float scale[PtrHeader::kSpecialScaleCount];
        for (int k = 0; k < PtrHeader::kSpecialScaleCount; ++k)
            scale[k] = static_cast<float>(lo + (hi - lo) * k / (PtrHeader::kSpecialScaleCount - 1));
        SetSpecialScale(scale, PtrHeader::kSpecialScaleCount);
        SetSpecialUnit(1);
        SetSpecialUnitName(text1);
    }
    if (!StartNewFile()) return 0;
    return AddFrame(data, static_cast<int>(count));
}

int CPtrFloat::SaveFrame(const char* fileName, float* data, const char* text1, const char* text2, int setScale,
                         double min, double max) {
    const long count = GetSize();
    if (!fileName || !data || count <= 0) return 0;
    std::vector<double> values(static_cast<size_t>(count));
    for (long i = 0; i < count; ++i) values[static_cast<size_t>(i)] = data[i];
    return SaveFrame(fileName, values.data(), text1, text2, setScale, min, max);
}

}  // namespace thermokit
