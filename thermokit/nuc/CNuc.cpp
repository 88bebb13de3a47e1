#include "thermokit/nuc/CNuc.h"

#include <cmath>
#include <cstring>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/nuc/NucKernels.h"
#include "thermokit/platform/AlignedBuffer.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/KernelTable.h"
#include "thermokit/platform/Text.h"
#include "thermokit/platform/WaitCursor.h"

namespace thermokit {

namespace {

// Float to 32-bit integer as the processor's truncating conversion does it:
// NaN and values outside the 32-bit range give 0x80000000.
inline int32_t TruncToInt32(float v) {
    if (!(v > -2147483904.0f && v < 2147483648.0f)) return INT32_MIN;
    return static_cast<int32_t>(v);
}

bool ScalesOf(int format, float* gainScale, float* offsetScale) {
    switch (format) {
    case 0: *gainScale = 16384.0f; *offsetScale = 1.0f; return true;
    case 1: *gainScale = 32768.0f; *offsetScale = 2.0f; return true;
    default: return false;
    }
}

template <class T>
void MeanOf(const T* data, size_t n, float* mean) {
    double sum = 0.0;
    for (size_t i = 0; i < n; ++i) sum += static_cast<double>(data[i]);
    *mean = static_cast<float>(sum / static_cast<double>(n));
}

inline float ClampGain(float g, float gmin, float gmax) {
    if (g <= gmin) g = gmin;
    if (g >= gmax) g = gmax;
    return g;
}

template <class T>
void TwoPoint(const T* low, const T* high, float* gain, float* offset, size_t n, float gmin, float gmax) {
    float meanL = 0.0f, meanH = 0.0f;
    MeanOf(low, n, &meanL);
    MeanOf(high, n, &meanH);
    const float span = meanH - meanL;
    for (size_t i = 0; i < n; ++i) {
        const float l = static_cast<float>(low[i]);
        const float d = static_cast<float>(high[i]) - l;
        float g = d == 0.0f ? gmin : span / d;
        g = ClampGain(g, gmin, gmax);
        gain[i] = g;
        offset[i] = meanL - l * g;
    }
}

template <class T>
void OnePoint(const T* ref, float* gain, float* offset, size_t n, int keepGain, float gmin, float gmax) {
    float meanR = 0.0f;
    MeanOf(ref, n, &meanR);
    for (size_t i = 0; i < n; ++i) {
        float g = keepGain ? gain[i] : 1.0f;
        g = ClampGain(g, gmin, gmax);
        gain[i] = g;
        offset[i] = meanR - static_cast<float>(ref[i]) * g;
    }
}

std::shared_ptr<float> AllocTable(size_t count) {
    const size_t bytes = (count ? count : 1) * sizeof(float);
    float* p = static_cast<float*>(AlignedAlloc(bytes));
    if (!p) return nullptr;
    std::memset(p, 0, bytes);
    return std::shared_ptr<float>(p, [](float* q) { AlignedFree(q); });
}

}  // namespace

namespace kernels {
THERMOKIT_DEFINE_KERNELS(NucKernels, Nuc)
}  // namespace kernels

void CNuc::InitHeader() {
    std::memset(&m_Header, 0, sizeof(m_Header));
    std::memcpy(m_Header.szSignature, "COE", 3);
    std::memcpy(m_Header.szVersion, "5.60", 4);
    m_Header.byMarker = 0x1A;
}

bool CNuc::Allocate(size_t count) {
    m_spAlpha = AllocTable(count);
    m_spBeta = AllocTable(count);
    if (!m_spAlpha || !m_spBeta) {
        m_spAlpha.reset();
        m_spBeta.reset();
        m_pAlpha = m_pBeta = nullptr;
        m_nAllocated = 0;
        return false;
    }
    m_pAlpha = m_spAlpha.get();
    m_pBeta = m_spBeta.get();
    m_nAllocated = count;
    return true;
}

CNuc::CNuc(unsigned short point, unsigned short line) {
    InitHeader();
    m_Header.wPoint = point;
    m_Header.wLine = line;
    m_Header.dwSize = static_cast<uint32_t>(point) * static_cast<uint32_t>(line);
    m_bValid = Allocate(m_Header.dwSize) ? 1 : 0;
}

CNuc::CNuc(const char* fileName) {
    if (!fileName) {
        SetLastError(ErrorKind::Argument, "no file name");
        return;
    }
    File file;
    if (!file.Open(fileName, File::modeRead | File::shareDenyWrite)) {
        SetLastError("cannot be opened", file);
        return;
    }
    if (!file.ReadRecord(&m_Header, sizeof(m_Header))) {
        std::memset(&m_Header, 0, sizeof(m_Header));
        SetReadError(file, "not a NUC table (shorter than the 260-byte header)");
        return;
    }
    if (GetTextField(m_Header.szSignature, sizeof(m_Header.szSignature)) != "COE") {
        SetLastError(ErrorKind::Format, "not a NUC table (signature \"COE\" expected)");
        return;
    }
    const bool sized = m_Header.wPoint != 0 && m_Header.wLine != 0;
    if (m_Header.wPoint == 0) m_Header.wPoint = 128;
    if (m_Header.wLine == 0) m_Header.wLine = 128;
    // The pixel count is taken as read, not recomputed, but it must agree
    // with the header's size: callers size their frames from point x line and
    // Apply walks the tables' dwSize pixels, so a larger count would run past
    // the frame and a smaller one past the tables. A header that leaves point
    // or line at 0 (read as 128) states no size to compare with; its count may
    // then be smaller, never larger.
    const uint64_t pixels = static_cast<uint64_t>(m_Header.wPoint) * m_Header.wLine;
    const uint64_t count = m_Header.dwSize;
    if (sized ? count != pixels : count > pixels) {
        SetLastError(ErrorKind::Format, "damaged: its pixel count " + std::to_string(count) + " disagrees with its " +
                                            std::to_string(m_Header.wPoint) + " x " + std::to_string(m_Header.wLine) +
                                            " pixels");
        return;
    }
    // A count whose two tables the file cannot hold is refused before
    // anything is allocated.
    const int64_t length = file.GetLength();
    const uint64_t needed = sizeof(NUC_HEADER) + 8 * count;
    if (length < 0 || static_cast<uint64_t>(length) < needed) {
        SetLastError(ErrorKind::Format, "shorter than its tables (" + std::to_string(length) + " bytes, " +
                                            std::to_string(needed) + " expected)");
        return;
    }
    if (!Allocate(static_cast<size_t>(count))) {
        SetLastError(ErrorKind::Memory, "tables of " + std::to_string(count) + " pixels cannot be allocated");
        return;
    }
    const size_t bytes = static_cast<size_t>(count) * sizeof(float);
    if (!file.ReadRecord(m_pAlpha, bytes) || !file.ReadRecord(m_pBeta, bytes)) {
        m_spAlpha.reset();
        m_spBeta.reset();
        m_pAlpha = m_pBeta = nullptr;
        m_nAllocated = 0;
        SetReadError(file, "shorter than its tables");
        return;
    }
    m_bValid = 1;
}

CNuc::~CNuc() = default;

CNuc::CNuc(const CNuc& other) = default;

CNuc& CNuc::operator=(const CNuc& other) {
    if (this == &other) return *this;
    LastError::operator=(other);
    m_pAlpha = other.m_pAlpha;
    m_pBeta = other.m_pBeta;
    m_fGainMin = other.m_fGainMin;
    m_fGainMax = other.m_fGainMax;
    m_Header = other.m_Header;
    m_bValid = other.m_bValid;
    m_spAlpha = other.m_spAlpha;
    m_spBeta = other.m_spBeta;
    m_nAllocated = other.m_nAllocated;
    return *this;
}

void CNuc::SetCamera(const std::string& text) {
    SetTextField(m_Header.szCamera, sizeof(m_Header.szCamera), text.c_str(), 19);
}
void CNuc::SetCameraSerial(const std::string& text) {
    SetTextField(m_Header.szCameraSerial, sizeof(m_Header.szCameraSerial), text.c_str(), 10);
}
void CNuc::SetFilter(const std::string& text) {
    SetTextField(m_Header.szFilter, sizeof(m_Header.szFilter), text.c_str(), 19);
}
std::string CNuc::GetCamera() const { return GetTextField(m_Header.szCamera, sizeof(m_Header.szCamera)); }
std::string CNuc::GetCameraSerial() const {
    return GetTextField(m_Header.szCameraSerial, sizeof(m_Header.szCameraSerial));
}
std::string CNuc::GetFilter() const { return GetTextField(m_Header.szFilter, sizeof(m_Header.szFilter)); }

void CNuc::SetIntegration(float integration) { m_Header.fIntegration = integration; }
float CNuc::GetIntegration() const { return m_Header.fIntegration; }

void CNuc::SetWindowing(unsigned char flag, unsigned short x, unsigned short y) {
    m_Header.byWindowing = flag;
    m_Header.wWindowX = x;
    m_Header.wWindowY = y;
}

void CNuc::GetWindowing(unsigned char* flag, unsigned short* x, unsigned short* y, unsigned short* point,
                        unsigned short* line) const {
    if (flag) *flag = m_Header.byWindowing;
    if (x) *x = m_Header.wWindowX;
    if (y) *y = m_Header.wWindowY;
    if (point) *point = m_Header.wPoint;
    if (line) *line = m_Header.wLine;
}

void CNuc::GetWindowing(long* flag, unsigned long* x, unsigned long* y, unsigned long* point,
                        unsigned long* line) const {
    *flag = m_Header.byWindowing;
    *x = m_Header.wWindowX;
    *y = m_Header.wWindowY;
    *point = m_Header.wPoint;
    *line = m_Header.wLine;
}

void CNuc::SetGainLimit(float min, float max) {
    m_fGainMin = min;
    m_fGainMax = max;
}

void CNuc::GetGainLimit(float* min, float* max) const {
    if (min) *min = m_fGainMin;
    if (max) *max = m_fGainMax;
}

void CNuc::Reset() {
    WaitCursor wait;
    for (size_t i = 0; i < TableSize(); ++i) {
        m_pAlpha[i] = 1.0f;
        m_pBeta[i] = 0.0f;
    }
}

int CNuc::Update(unsigned short* first, unsigned short* second, int onePoint, int keepGain) {
    WaitCursor wait;
    return onePoint ? Update1Point(first, keepGain) : Update2Point(first, second);
}

int CNuc::Update(float* first, float* second, int onePoint, int keepGain) {
    WaitCursor wait;
    return onePoint ? Update1Point(first, keepGain) : Update2Point(first, second);
}

int CNuc::Update(const char* firstFilm, const char* secondFilm, int onePoint, int keepGain) {
    WaitCursor wait;
    const auto fits = [this](CPtr& film) {
        return film.IsValid() && film.GetSize() == GetSize() && film.GetPoint() == GetPoint() &&
               film.GetLine() == GetLine();
    };
    // Mean of every frame of a film, in levels (truncated), as the averager
    // gives it; the frames are read on every core, added in order. A film cut
    // short gives the mean of the frames it holds (its reader says which one
    // failed).
    const auto average = [](CPtr& film, CAverage& avg) {
        AccumulateFilm(film, avg);
        return avg.GetBuffer(0);
    };

    CPtr first(firstFilm ? firstFilm : "", 0, 0, 0);
    std::unique_ptr<CPtr> second;
    if (!onePoint) second = std::make_unique<CPtr>(secondFilm ? secondFilm : "", 0, 0, 0);
    if (!fits(first)) return 1;

    TakeFilmHeader(first);

    if (!onePoint && !fits(*second)) return 1;

    CAverage firstMean(first.GetPoint(), first.GetLine(), first.GetBit(), 0);
    unsigned short* low = average(first, firstMean);
    if (onePoint) {
        if (low) Update(low, nullptr, 1, keepGain);
        return 1;
    }
    CAverage secondMean(second->GetPoint(), second->GetLine(), second->GetBit(), 0);
    unsigned short* high = average(*second, secondMean);
    if (low && high) Update(low, high, 0, keepGain);
    return 1;
}

int CNuc::Update(CPtr& first, CPtr* second, int onePoint, int keepGain) {
    WaitCursor wait;
    const auto fits = [this](const CPtr* film) {
        return film && film->IsValid() && film->GetSize() == GetSize() && film->GetPoint() == GetPoint() &&
               film->GetLine() == GetLine();
    };
    if (!fits(&first) || (!onePoint && !fits(second))) return 0;
    // Every frame of each film, read once, the reading stopping at the first that fails.
    CAverage firstMean(first.GetPoint(), first.GetLine(), first.GetBit(), 0);
    if (!AccumulateFilm(first, firstMean)) return 0;
    std::unique_ptr<CAverage> secondMean;
    if (!onePoint) {
        secondMean = std::make_unique<CAverage>(second->GetPoint(), second->GetLine(), second->GetBit(), 0);
        if (!AccumulateFilm(*second, *secondMean)) return 0;
    }
    TakeFilmHeader(first);
    return Update(firstMean.GetBuffer(0), onePoint ? nullptr : secondMean->GetBuffer(0), onePoint, keepGain);
}

void CNuc::TakeFilmHeader(CPtr& first) {
    first.ReadFrame(0);
    SetCamera(first.GetCamera());
    SetCameraSerial(first.GetSerial());
    SetFilter(first.GetFilter(0));
    SetIntegration(first.GetIntegration(0));
    CRect window;
    first.GetSubWindowRect(&window);
    // Kept as it is: the flag is only ever raised here, and only when both
    // sides differ from the table's.
    if (window.Width() != m_Header.wPoint && window.Height() != m_Header.wLine) m_Header.byWindowing = 1;
    m_Header.wWindowX = static_cast<uint16_t>(window.left);
    m_Header.wWindowY = static_cast<uint16_t>(window.top);
}

int CNuc::Update2Point(const unsigned short* low, const unsigned short* high) {
    if (!low || !high || !m_pAlpha) return 0;
    TwoPoint(low, high, m_pAlpha, m_pBeta, TableSize(), m_fGainMin, m_fGainMax);
    return 1;
}

int CNuc::Update2Point(const float* low, const float* high) {
    if (!low || !high || !m_pAlpha) return 0;
    TwoPoint(low, high, m_pAlpha, m_pBeta, TableSize(), m_fGainMin, m_fGainMax);
    return 1;
}

int CNuc::Update1Point(const unsigned short* reference, int keepGain) {
    if (!reference || !m_pAlpha) return 0;
    OnePoint(reference, m_pAlpha, m_pBeta, TableSize(), keepGain, m_fGainMin, m_fGainMax);
    return 1;
}

int CNuc::Update1Point(const float* reference, int keepGain) {
    if (!reference || !m_pAlpha) return 0;
    OnePoint(reference, m_pAlpha, m_pBeta, TableSize(), keepGain, m_fGainMin, m_fGainMax);
    return 1;
}

int CNuc::Apply(unsigned short* in, unsigned short maxLevel, unsigned short* out) {
    if (!in || !m_pAlpha) return 0;
    const kernels::NucKernels& k = kernels::Nuc();
    if (!out || out == in) k.applyLevelsInPlace(in, m_pAlpha, m_pBeta, TableSize(), maxLevel);
    else k.applyLevels(in, out, m_pAlpha, m_pBeta, TableSize(), maxLevel);
    return 1;
}

int CNuc::Apply(float* image) {
    if (!image || !m_pAlpha) return 0;
    kernels::Nuc().applyFloats(image, m_pAlpha, m_pBeta, TableSize());
    return 1;
}

int CNuc::ApplyDeNuc(unsigned short* in, unsigned short maxLevel, unsigned short* out) {
    if (!in || !m_pAlpha) return 0;
    const kernels::NucKernels& k = kernels::Nuc();
    if (!out || out == in) k.undoLevelsInPlace(in, m_pAlpha, m_pBeta, TableSize(), maxLevel);
    else k.undoLevels(in, out, m_pAlpha, m_pBeta, TableSize(), maxLevel);
    return 1;
}

int CNuc::ApplyDeNuc(float* image) {
    if (!image || !m_pAlpha) return 0;
    kernels::Nuc().undoFloats(image, m_pAlpha, m_pBeta, TableSize());
    return 1;
}

int CNuc::CreateBufferNuc(unsigned char* buffer, int format) {
    float gainScale = 0.0f, offsetScale = 0.0f;
    if (!ScalesOf(format, &gainScale, &offsetScale)) return 0;
    const size_t n = TableSize();
    if (n == 0) return 1;
    if (!buffer) return 0;
    for (size_t i = 0; i < n; ++i) {
        const int32_t g = TruncToInt32(m_pAlpha[i] * gainScale);
        const int32_t o = TruncToInt32(m_pBeta[i] * offsetScale);
        store<uint16_t>(buffer, 4 * i, static_cast<uint16_t>(static_cast<uint32_t>(g) & 0xFFFFu));
        store<int16_t>(buffer, 4 * i + 2, static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(o) & 0xFFFFu)));
    }
    return 1;
}

int CNuc::FormatNuc(unsigned char* buffer, long length, int format) {
    float gainScale = 0.0f, offsetScale = 0.0f;
    if (!ScalesOf(format, &gainScale, &offsetScale)) return 0;
    const unsigned long count = static_cast<unsigned long>(length) / 4;
    const unsigned long pixels = static_cast<unsigned long>(m_Header.wPoint) * m_Header.wLine;
    if (count > pixels || count > TableSize()) return 0;
    if (count && !buffer) return 0;
    const float gainStep = 1.0f / gainScale;
    const float offsetStep = 1.0f / offsetScale;
    for (unsigned long i = 0; i < count; ++i) {
        m_pAlpha[i] = static_cast<float>(load<uint16_t>(buffer, 4 * i)) * gainStep;
        m_pBeta[i] = static_cast<float>(load<int16_t>(buffer, 4 * i + 2)) * offsetStep;
    }
    return 1;
}

int CNuc::Save(const char* fileName) {
    if (!fileName) return SetLastError(ErrorKind::Argument, "no file name");
    const size_t n = m_Header.dwSize;
    if (!m_bValid || n > TableSize()) return SetLastError(ErrorKind::Argument, "no tables to write");
    File file;
    if (!file.Open(fileName, File::modeCreate | File::modeWrite | File::shareDenyWrite))
        return SetLastError("cannot be created", file);
    // Every write is checked: a full disk must not pass for a saved table.
    if (!file.Write(&m_Header, sizeof(m_Header)) ||
        (n && (!file.Write(m_pAlpha, n * sizeof(float)) || !file.Write(m_pBeta, n * sizeof(float)))))
        return SetLastError("cannot be written", file);
    return 1;
}

}  // namespace thermokit
