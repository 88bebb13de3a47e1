#include "thermokit/nuc/CPixel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"

namespace thermokit {

namespace {

// The 48 neighbours of the replacement search, (column, line) offsets, in
// the order they are tried: nearest ring first, and inside each ring the
// pattern the cameras' own tables use. +1 line is the next line in memory.
constexpr int kNeighbours[48][2] = {
    {-1, 0},  {0, 1},   {1, 0},   {0, -1},                                          //
    {-1, -1}, {-1, 1},  {1, 1},   {1, -1},                                          //
    {-2, 0},  {0, 2},   {2, 0},   {0, -2},                                          //
    {-2, -1}, {-2, 1},  {-1, 2},  {1, 2},   {2, 1},   {2, -1},  {1, -2},  {-1, -2},  //
    {-2, -2}, {-2, 2},  {2, 2},   {2, -2},                                          //
    {-3, 0},  {0, 3},   {3, 0},   {0, -3},                                          //
    {-3, -1}, {-3, 1},  {-1, 3},  {1, 3},   {3, 1},   {3, -1},  {1, -3},  {-1, -3},  //
    {-3, -2}, {-3, 2},  {-2, 3},  {2, 3},   {3, 2},   {3, -2},  {2, -3},  {-2, -3},  //
    {-3, -3}, {-3, 3},  {3, 3},   {3, -3},
};

const char* ErrorText(int code) {
    switch (code) {
    case -1: return "No error";
    case 0: return "Too many bad pixels (maximum = 16384)";
    case 1: return "Invalid Bad pixel buffer size (must > 0)";
    case 2: return "Invalid buffer";
    case 3: return "Invalid Index";
    default: return "";
    }
}

// The replacement search over an "is this pixel bad" test.
template <class IsListed>
int FindReplacement(long pixel, long point, long line, IsListed isListed, long* replacement) {
    if (point > 0 && line > 0) {
        const long x = pixel % point;
        const long y = pixel / point;
        for (const auto& d : kNeighbours) {
            const long nx = x + d[0];
            const long ny = y + d[1];
            if (nx < 0 || nx >= point || ny < 0 || ny >= line) continue;
            const long candidate = ny * point + nx;
            if (!isListed(candidate)) {
                if (replacement) *replacement = candidate;
                return 1;
            }
        }
    }
    if (replacement) *replacement = pixel;
    return 0;
}

}  // namespace

void CPixel::InitHeader(unsigned short point, unsigned short line) {
    std::memset(&m_Header, 0, sizeof(m_Header));
    std::memcpy(m_Header.szSignature, "PIX", 3);
    std::memcpy(m_Header.szVersion, "5.60", 4);
    m_Header.byMarker = 0x1A;
    m_Header.wPoint = point;
    m_Header.wLine = line;
}

void CPixel::Allocate() {
    m_pBad.reset(new int32_t[kMaxBad]());
    m_pReplacement.reset(new int32_t[kMaxBad]());
    m_pCriteria.reset(new unsigned char[kMaxBad]());
}

void CPixel::SetError(int code) {
    m_nError = code;
    m_strError = ErrorText(code);
    if (code == -1) ClearLastError();
    else SetLastError(ErrorKind::Argument, m_strError);
}

CPixel::CPixel(unsigned short point, unsigned short line, int /*unused*/) {
    InitHeader(point, line);
    m_Header.byCriteria = 1;
    Allocate();
    m_bValid = 1;
    SetError(-1);
    UpdateDistribution(nullptr, 0);
}

CPixel::CPixel(const char* fileName) {
    InitHeader(0, 0);
    Allocate();
    SetError(-1);
    File file;
    if (!fileName) {
        SetLastError(ErrorKind::Argument, "no file name");
    } else if (!file.Open(fileName, File::modeRead | File::shareDenyWrite)) {
        SetLastError("cannot be opened", file);
    } else {
        BPR_HEADER header;
        if (!file.ReadRecord(&header, sizeof(header))) {
            SetError(2);
            SetReadError(file, "not a bad-pixel map (shorter than the 258-byte header)");
        } else {
            m_Header = header;
            if (m_Header.wPoint == 0) m_Header.wPoint = 128;
            if (m_Header.wLine == 0) m_Header.wLine = 128;
            if (!m_Header.byFlipStored) {
                m_Header.byFlipLine = 0;
                m_Header.byFlipColumn = 0;
            }
            const size_t count = m_Header.wCount;
            const bool codes = m_Header.byCriteria == 1;
            const uint64_t need = sizeof(BPR_HEADER) + count * 8 + (codes ? count : 0);
            const int64_t length = file.GetLength();
            m_Header.wCount = 0;
            if (count > static_cast<size_t>(kMaxBad)) {
                SetError(0);
                SetLastError(ErrorKind::Format, "damaged: " + std::to_string(count) + " entries, more than the " +
                                                    std::to_string(kMaxBad) + " a map holds");
            } else if (length < 0 || static_cast<uint64_t>(length) < need) {
                SetError(2);
                SetLastError(ErrorKind::Format, "shorter than its " + std::to_string(count) + " entries (" +
                                                    std::to_string(length) + " bytes, " + std::to_string(need) +
                                                    " expected)");
            } else if (!file.ReadRecord(m_pBad.get(), count * 4) ||
                       !file.ReadRecord(m_pReplacement.get(), count * 4) ||
                       (codes && !file.ReadRecord(m_pCriteria.get(), count))) {
                SetError(2);
                SetReadError(file, "shorter than its entries");
            } else {
                size_t k = 0;
                while (k < count && OnDetector(m_pBad[k]) && OnDetector(m_pReplacement[k])) ++k;
                if (k == count) {
                    m_Header.wCount = static_cast<uint16_t>(count);
                    m_bValid = 1;
                } else {
                    SetError(3);
                    SetLastError(ErrorKind::Format,
                                 "damaged: entry " + std::to_string(k) + " names a pixel outside the " +
                                     std::to_string(m_Header.wPoint) + " x " + std::to_string(m_Header.wLine) +
                                     " detector");
                }
            }
            if (!m_bValid) {
                std::fill_n(m_pBad.get(), kMaxBad, 0);
                std::fill_n(m_pReplacement.get(), kMaxBad, 0);
                std::fill_n(m_pCriteria.get(), kMaxBad, 0);
            }
        }
    }
    UpdateDistribution(nullptr, 0);
}

void CPixel::CopyFrom(const CPixel& other) {
    m_Header = other.m_Header;
    m_bValid = other.m_bValid;
    if (!m_pBad) Allocate();
    std::copy_n(other.m_pBad.get(), kMaxBad, m_pBad.get());
    std::copy_n(other.m_pReplacement.get(), kMaxBad, m_pReplacement.get());
    std::copy_n(other.m_pCriteria.get(), kMaxBad, m_pCriteria.get());
    SetError(-1);
    UpdateDistribution(nullptr, 0);
}

CPixel::CPixel(const CPixel* other) {
    if (other) {
        CopyFrom(*other);
    } else {
        InitHeader(0, 0);
        Allocate();
        SetError(-1);
        UpdateDistribution(nullptr, 0);
    }
}

CPixel::CPixel(const CPixel& other) { CopyFrom(other); }

CPixel& CPixel::operator=(const CPixel& other) {
    if (this != &other) CopyFrom(other);
    return *this;
}

CPixel::~CPixel() = default;

bool CPixel::OnDetector(long index) const {
    const long size = static_cast<long>(m_Header.wPoint) * m_Header.wLine;
    return index >= 0 && index < size;
}

int CPixel::Test(unsigned short position, unsigned char mask) const {
    if (!m_Header.byCriteria || position >= kMaxBad) return 0;
    return m_pCriteria[position] & mask;
}

int CPixel::IsOffsetGainNoise(unsigned short position) const {
    if (!m_Header.byCriteria) return 1;
    if (position >= kMaxBad) return 0;
    return m_pCriteria[position] == kGainOffsetNoise ? 1 : 0;
}

long CPixel::IsBad(long pixel) const {
    for (long k = 0; k < m_Header.wCount; ++k)
        if (m_pBad[k] == pixel) return k;
    return -1;
}

long CPixel::IsReplacement(long pixel) const {
    for (long k = 0; k < m_Header.wCount; ++k)
        if (m_pReplacement[k] == pixel) return k;
    return -1;
}

COLORREF CPixel::Color(unsigned short position) const {
    if (!m_Header.byCriteria || position >= kMaxBad) return 0xFFFFFF;
    switch (m_pCriteria[position]) {
    case kGain: return 0x00FF00;
    case kOffset: return 0x0000FF;
    case kNoise: return 0xFF0000;
    case kGainOffset: return 0x00FFFF;
    case kGainNoise: return 0xFFFF00;
    case kOffsetNoise: return 0xFF00FF;
    default: return 0xFFFFFF;
    }
}

long CPixel::Index(unsigned short column, unsigned short line) const {
    return static_cast<long>(line) * m_Header.wPoint + column;
}

void CPixel::Coordinates(long index, unsigned short* column, unsigned short* line) const {
    const long point = m_Header.wPoint;
    const long x = point ? index % point : 0;
    const long y = point ? index / point : 0;
    if (column) *column = static_cast<unsigned short>(x);
    if (line) *line = static_cast<unsigned short>(y);
}

CPoint CPixel::Coordinates(long index) const {
    unsigned short x = 0, y = 0;
    Coordinates(index, &x, &y);
    return CPoint(x, y);
}

int CPixel::Add(long bad, long replacement, unsigned char code) {
    return Insert(m_Header.wCount, bad, replacement, code);
}

int CPixel::Insert(unsigned short position, long bad, long replacement, unsigned char code) {
    const unsigned short count = m_Header.wCount;
    if (count >= kMaxBad) { SetError(0); return 0; }
    if (position > count) { SetError(3); return 0; }
    if (!m_pBad || !m_pReplacement || !m_pCriteria) { SetError(2); return 0; }
    // Any index is accepted here, as the list always has; Apply is what
    // keeps an index off the detector from touching memory outside the image.
    // Kept as the cameras' software has it: the entries from position on move
    // up, then the new entry goes to the end, and the codes stay where they
    // are. Appending (position == count) is the only use that is correct.
    for (unsigned short k = count; k > position; --k) {
        m_pBad[k] = m_pBad[k - 1];
        m_pReplacement[k] = m_pReplacement[k - 1];
    }
    m_pBad[count] = static_cast<int32_t>(bad);
    m_pReplacement[count] = static_cast<int32_t>(replacement);
    m_pCriteria[count] = code;
    m_Header.wCount = static_cast<uint16_t>(count + 1);
    return 1;
}

int CPixel::Delete(unsigned short position) {
    const unsigned short count = m_Header.wCount;
    if (count == 0) { SetError(1); return 0; }
    if (!m_pBad || !m_pReplacement || !m_pCriteria) { SetError(2); return 0; }
    const unsigned short last = static_cast<unsigned short>(count - 1);
    for (unsigned short k = position; k < last; ++k) {
        m_pBad[k] = m_pBad[k + 1];
        m_pReplacement[k] = m_pReplacement[k + 1];
        if (m_Header.byCriteria) m_pCriteria[k] = m_pCriteria[k + 1];
    }
    m_Header.wCount = last;
    return 1;
}

int CPixel::Modify(unsigned short position, unsigned char code) {
    if (position >= m_Header.wCount) { SetError(3); return 0; }
    m_pCriteria[position] |= code;
    return 1;
}

int CPixel::SetBits(unsigned short position, int on, unsigned char bits) {
    if (!m_Header.byCriteria || position >= m_Header.wCount) return 0;
    if (on) m_pCriteria[position] |= bits;
    else m_pCriteria[position] &= static_cast<unsigned char>(~bits);
    return 1;
}

int CPixel::SetGain(unsigned short position, int on) { return SetBits(position, on, kGain); }
int CPixel::SetOffset(unsigned short position, int on) { return SetBits(position, on, kOffset); }
int CPixel::SetNoise(unsigned short position, int on) { return SetBits(position, on, kNoise); }

void CPixel::Reset() {
    if (m_pBad) std::fill_n(m_pBad.get(), kMaxBad, 0);
    if (m_pReplacement) std::fill_n(m_pReplacement.get(), kMaxBad, 0);
    if (m_pCriteria) std::fill_n(m_pCriteria.get(), kMaxBad, 0);
    m_Header.wCount = 0;
    m_rcWindow = CRect();
    m_bOutside = 0;
    m_nNoise = m_nGain = m_nOffset = m_nOffsetGain = m_nOffsetNoise = m_nGainNoise = m_nOffsetGainNoise = 0;
    m_nTotal = 0;
}

template <class Pred>
int CPixel::Detect(long n, unsigned char code, Pred isBad) {
    // Where each listed pixel first appears, so that a pixel failing a
    // second criterion gets the code OR-ed into its entry.
    std::unordered_map<long, long> listed;
    listed.reserve(static_cast<size_t>(m_Header.wCount) * 2 + 16);
    for (long k = m_Header.wCount - 1; k >= 0; --k) listed[m_pBad[k]] = k;
    for (long i = 0; i < n; ++i) {
        if (!isBad(i)) continue;
        const auto it = listed.find(i);
        if (it != listed.end()) {
            m_pCriteria[it->second] |= code;
        } else {
            if (!Add(i, 0, code)) return 0;
            listed.emplace(i, m_Header.wCount - 1);
        }
    }
    return 1;
}

int CPixel::UpdateGain(float* gain, long n, float percent, float reference) {
    m_Header.fGainCriteria = percent;
    if (!gain) { SetError(2); return 0; }
    const float low = static_cast<float>((100 - percent) * 0.01 * reference);
    const float high = static_cast<float>((percent + 100) * 0.01 * reference);
    return Detect(n, kGain, [&](long i) { return gain[i] < low || gain[i] > high; });
}

int CPixel::UpdateOffset(float* offset, long n, float percent, unsigned short level) {
    m_Header.fOffsetCriteria = percent;
    if (!offset) { SetError(2); return 0; }
    const float t = level * percent;
    const float low = static_cast<float>(-0.01 * t);
    const float high = static_cast<float>(0.01 * t);
    return Detect(n, kOffset, [&](long i) { return offset[i] < low || offset[i] > high; });
}

int CPixel::UpdateNoise(float* noise, long n, float threshold, int high) {
    m_Header.fNoiseCriteria = threshold;
    if (!noise) { SetError(2); return 0; }
    if (high) return Detect(n, kNoise, [&](long i) { return noise[i] >= threshold; });
    return Detect(n, kNoise, [&](long i) { return noise[i] <= threshold; });
}

int CPixel::Find(long pixel, long* replacement) const {
    return FindReplacement(pixel, m_Header.wPoint, m_Header.wLine, [this](long p) { return IsBad(p) >= 0; },
                           replacement);
}

int CPixel::UpdateReplacement() {
    if (!m_pBad || !m_pReplacement) { SetError(2); return 0; }
    const long count = m_Header.wCount;
    std::vector<int32_t> sorted(m_pBad.get(), m_pBad.get() + count);
    std::sort(sorted.begin(), sorted.end());
    const auto listed = [&sorted](long p) {
        return p >= INT32_MIN && p <= INT32_MAX && std::binary_search(sorted.begin(), sorted.end(), static_cast<int32_t>(p));
    };
    for (long k = 0; k < count; ++k) {
        long replacement = 0;
        FindReplacement(m_pBad[k], m_Header.wPoint, m_Header.wLine, listed, &replacement);
        m_pReplacement[k] = static_cast<int32_t>(replacement);
    }
    return 1;
}

template <class T>
int CPixel::ApplyT(T* image) {
    if (!image || !m_pBad || !m_pReplacement) { SetError(2); return 0; }
    const uint32_t size = static_cast<uint32_t>(m_Header.wPoint) * m_Header.wLine;
    const int32_t* bad = m_pBad.get();
    const int32_t* repl = m_pReplacement.get();
    const long count = m_Header.wCount;
    // Entries edited through GetPixel1/GetPixel2 to point off the detector
    // copy a scratch value onto itself instead of touching the image; done
    // without a branch, so the check costs next to nothing.
    T scratch[1] = {T(0)};
    for (long k = 0; k < count; ++k) {
        const uint32_t b = static_cast<uint32_t>(bad[k]);
        const uint32_t r = static_cast<uint32_t>(repl[k]);
        const bool inside = (b < size) & (r < size);
        T* dst = inside ? image + b : scratch;
        const T* src = inside ? image + r : scratch;
        *dst = *src;
    }
    return 1;
}

int CPixel::Apply(unsigned short* image) { return ApplyT(image); }
int CPixel::Apply(float* image) { return ApplyT(image); }
int CPixel::Apply(double* image) { return ApplyT(image); }

void CPixel::Flip(int lines, int columns) {
    const long point = m_Header.wPoint;
    const long line = m_Header.wLine;
    const long count = m_Header.wCount;
    if (point <= 0 || line <= 0) return;
    auto mirror = [&](int32_t& index, bool cols) {
        const long x = index % point;
        const long y = index / point;
        index = static_cast<int32_t>(cols ? y * point + (point - x - 1) : (line - y - 1) * point + x);
    };
    if (columns) {
        for (long k = 0; k < count; ++k) {
            mirror(m_pBad[k], true);
            mirror(m_pReplacement[k], true);
        }
        m_Header.byFlipColumn = m_Header.byFlipColumn ? 0 : 1;
    }
    if (lines) {
        for (long k = 0; k < count; ++k) {
            mirror(m_pBad[k], false);
            mirror(m_pReplacement[k], false);
        }
        m_Header.byFlipLine = m_Header.byFlipLine ? 0 : 1;
    }
}

void CPixel::SetFlip(int lines, int columns) {
    m_Header.byFlipStored = 1;
    m_Header.byFlipLine = static_cast<uint8_t>(lines);
    m_Header.byFlipColumn = static_cast<uint8_t>(columns);
}

int CPixel::GetFlip(int& lines, int& columns) const {
    if (!m_Header.byFlipStored) return 0;
    lines = m_Header.byFlipLine;
    columns = m_Header.byFlipColumn;
    return 1;
}

void CPixel::UpdateDistribution(CRect* rect, int outside) {
    m_rcWindow = rect ? *rect : CRect(0, 0, m_Header.wPoint, m_Header.wLine);
    m_bOutside = outside;
    m_nNoise = m_nGain = m_nOffset = m_nOffsetGain = m_nOffsetNoise = m_nGainNoise = m_nOffsetGainNoise = 0;
    m_nTotal = 0;
    const long count = m_Header.wCount;
    if (!m_Header.byCriteria) {
        m_nOffsetGainNoise = count;
        return;
    }
    for (long k = 0; k < count; ++k) {
        const bool in = m_rcWindow.PtInRect(Coordinates(m_pBad[k]));
        if (in == (outside != 0)) continue;
        ++m_nTotal;
        switch (m_pCriteria[k]) {
        case kGain: ++m_nGain; break;
        case kOffset: ++m_nOffset; break;
        case kNoise: ++m_nNoise; break;
        case kGainOffset: ++m_nOffsetGain; break;
        case kGainNoise: ++m_nGainNoise; break;
        case kOffsetNoise: ++m_nOffsetNoise; break;
        case kGainOffsetNoise: ++m_nOffsetGainNoise; break;
        default: break;
        }
    }
}

long CPixel::GetWindowSize() const {
    const long area = static_cast<long>(m_rcWindow.Width()) * m_rcWindow.Height();
    if (!m_bOutside) return area;
    return static_cast<long>(m_Header.wPoint) * m_Header.wLine - area;
}

int CPixel::CreateBufferBpr(unsigned char* buffer) {
    if (!buffer || !m_pBad || !m_pReplacement) { SetError(2); return 0; }
    const uint32_t count = m_Header.wCount;
    store<uint32_t>(buffer, 0, m_Header.wPoint);
    store<uint32_t>(buffer, 4, m_Header.wLine);
    store<uint32_t>(buffer, 8, count);
    for (uint32_t k = 0; k < count; ++k) {
        store<uint32_t>(buffer, 12 + 4 * k, static_cast<uint32_t>(m_pBad[k]));
        store<uint32_t>(buffer, 12 + 4 * (count + k), static_cast<uint32_t>(m_pReplacement[k]));
    }
    return 1;
}

int CPixel::FormatBPR(unsigned char* buffer) {
    if (!buffer || !m_pBad || !m_pReplacement) { SetError(2); return 0; }
    const size_t count = load<uint16_t>(buffer, 4);
    // A buffer with more entries than the list can still take is refused
    // whole, before anything is added.
    if (count > static_cast<size_t>(kMaxBad - m_Header.wCount)) { SetError(0); return 0; }
    const size_t replBase = 6 + 4 * count;
    for (size_t k = 0; k < count; ++k) {
        Add(static_cast<int32_t>(load<uint32_t>(buffer, 6 + 4 * k)),
            static_cast<int32_t>(load<uint32_t>(buffer, replBase + 4 * k)), kGainOffsetNoise);
    }
    return 1;
}

int CPixel::Save(const char* fileName) {
    if (!m_pBad || !m_pReplacement || !m_pCriteria) { SetError(2); return 0; }
    if (!fileName) return SetLastError(ErrorKind::Argument, "no file name");
    File file;
    if (!file.Open(fileName, File::modeCreate | File::modeWrite | File::shareDenyWrite))
        return SetLastError("cannot be created", file);
    const size_t count = m_Header.wCount;
    // Every write is checked: a full disk must not pass for a saved map.
    if (!file.Write(&m_Header, sizeof(m_Header)) || !file.Write(m_pBad.get(), count * 4) ||
        !file.Write(m_pReplacement.get(), count * 4) || (m_Header.byCriteria && !file.Write(m_pCriteria.get(), count)))
        return SetLastError("cannot be written", file);
    return 1;
}

int CPixel::SaveCriteria(std::FILE* file, const char* name, long count) const {
    const double percent = m_nTotal > 0 ? static_cast<double>(count) * 100.0 / static_cast<double>(m_nTotal) : 0.0;
    return std::fprintf(file, "%-22s: %4d\t%.2f\n", name, static_cast<int>(count), percent) >= 0;
}

int CPixel::SaveAscii(const char* fileName, int gain, int offset, int noise) {
    if (!m_pBad || !m_pReplacement || !m_pCriteria) { SetError(2); return 0; }
    if (!fileName) return SetLastError(ErrorKind::Argument, "no file name");
    std::FILE* f = File::OpenStream(fileName, "wb");  // bytes as written, "\n" on every system
    if (!f) return SetLastError("cannot be created", errno);
    const char* rule = "----------------------------------\n";
    std::fprintf(f, "Bad Pixel File : %s\n", fileName);
    std::fprintf(f, "Detector Format:\n");
    std::fprintf(f, "----------------\n");
    std::fprintf(f, "Horz : %d\n", static_cast<int>(m_Header.wPoint));
    std::fprintf(f, "Vert : %d\n", static_cast<int>(m_Header.wLine));
    std::fprintf(f, "Window Coordinates:\n");
    std::fprintf(f, "-------------------\n");
    std::fprintf(f, "Left   : %d\n", static_cast<int>(m_rcWindow.left));
    std::fprintf(f, "Top    : %d\n", static_cast<int>(m_rcWindow.top));
    std::fprintf(f, "Right  : %d\n", static_cast<int>(m_rcWindow.right));
    std::fprintf(f, "Bottom : %d\n", static_cast<int>(m_rcWindow.bottom));
    std::fprintf(f, "Width  : %d\n", static_cast<int>(m_rcWindow.Width()));
    std::fprintf(f, "Height : %d\n", static_cast<int>(m_rcWindow.Height()));
    std::fprintf(f, "Pixels are %s this window\n", m_bOutside ? "OUTSIDE" : "INSIDE");
    std::fprintf(f, "Detection Criterias:\n");
    std::fprintf(f, "--------------------\n");
    if (m_Header.fNoiseCriteria != 0.0f) std::fprintf(f, "Noise  : %.1f DL\n", static_cast<double>(m_Header.fNoiseCriteria));
    else std::fprintf(f, "Noise  : n/a\n");
    if (m_Header.fGainCriteria != 0.0f) std::fprintf(f, "Gain   : +/-%.0f %%\n", static_cast<double>(m_Header.fGainCriteria));
    else std::fprintf(f, "Gain   : n/a\n");
    if (m_Header.fOffsetCriteria != 0.0f)
        std::fprintf(f, "Offset : +/-%.0f %%\n", static_cast<double>(m_Header.fOffsetCriteria));
    else std::fprintf(f, "Offset : n/a\n");
    std::fprintf(f, "Criteria Statistics        #\t %%\n");
    std::fprintf(f, "%s", rule);
    SaveCriteria(f, "Gain", m_nGain);
    SaveCriteria(f, "Offset", m_nOffset);
    SaveCriteria(f, "Noise", m_nNoise);
    SaveCriteria(f, "Gain & Offset", m_nOffsetGain);
    SaveCriteria(f, "Offset & Noise", m_nOffsetNoise);
    SaveCriteria(f, "Gain & Noise", m_nGainNoise);
    SaveCriteria(f, "Gain & Offset & Noise", m_nOffsetGainNoise);
    std::fprintf(f, "%s", rule);
    SaveCriteria(f, "Total", m_nTotal);
    std::fprintf(f, "Gain : %s\n", gain ? "selected" : "unselected");
    std::fprintf(f, "Offset : %s\n", offset ? "selected" : "unselected");
    std::fprintf(f, "Noise : %s\n", noise ? "selected" : "unselected");
    std::fprintf(f, "BPR#\t  Bad(X,Y)\tRepl.(X,Y)\tCrit.\n");
    std::fprintf(f, "%s", rule);
    unsigned char selected = 0;
    if (gain) selected |= kGain;
    if (offset) selected |= kOffset;
    if (noise) selected |= kNoise;
    const long count = m_Header.wCount;
    for (long k = 0; k < count; ++k) {
        const CPoint b = Coordinates(m_pBad[k]);
        if (m_rcWindow.PtInRect(b) == (m_bOutside != 0)) continue;
        const unsigned char code = m_Header.byCriteria ? m_pCriteria[k] : static_cast<unsigned char>(kGainOffsetNoise);
        if (m_Header.byCriteria && !(code & selected)) continue;
        std::string crit;
        if (code & kGain) crit += 'G';
        if (code & kOffset) crit += 'O';
        if (code & kNoise) crit += 'N';
        const CPoint r = Coordinates(m_pReplacement[k]);
        std::fprintf(f, "%4d\t%4d\t%4d\t%4d\t%4d\t%s\n", static_cast<int>(k + 1), static_cast<int>(b.x + 1),
                     static_cast<int>(b.y + 1), static_cast<int>(r.x + 1), static_cast<int>(r.y + 1), crit.c_str());
    }
    const bool ok = std::ferror(f) == 0;
    if (std::fclose(f) == 0 && ok) return 1;
    return SetLastError("cannot be written", errno ? errno : EIO);
}

}  // namespace thermokit
