#include "thermokit/image/CMapping.h"

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/WaitCursor.h"

namespace thermokit {

namespace {
constexpr char kSignature[] = "MAP";
constexpr size_t kVersionOffset = 5;
constexpr char kVersion[] = "5.60";
constexpr size_t kEofOffset = 10;
constexpr unsigned char kEofMark = 0x1A;

std::shared_ptr<int32_t[]> AllocateTable(long size) {
    return std::shared_ptr<int32_t[]>(new (std::nothrow) int32_t[static_cast<size_t>(size > 0 ? size : 0)]);
}

// out[i] = in[map[i]], 0 where the entry names no pixel. The work buffer never overlaps an image, and
// saying so lets the compiler schedule the loop as freely as it does into freshly allocated memory.
template <class T>
void Gather(const T* __restrict in, T* __restrict out, const int32_t* __restrict map, long size) {
    const uint32_t usize = static_cast<uint32_t>(size);
    for (long i = 0; i < size; ++i) {
        const uint32_t s = static_cast<uint32_t>(map[i]);
        out[i] = s < usize ? in[s] : T(0);
    }
}

// out[map[i]] = in[i] where the entry names a pixel (a later entry wins).
template <class T>
void Scatter(const T* __restrict in, T* __restrict out, const int32_t* __restrict map, long size) {
    const uint32_t usize = static_cast<uint32_t>(size);
    for (long i = 0; i < size; ++i) {
        const uint32_t s = static_cast<uint32_t>(map[i]);
        if (s < usize) out[s] = in[i];
    }
}
}  // namespace

void CMapping::MakeHeader(unsigned short point, unsigned short line) {
    std::memset(m_Header, 0, sizeof m_Header);
    std::memcpy(m_Header, kSignature, sizeof kSignature);
    std::memcpy(m_Header + kVersionOffset, kVersion, sizeof kVersion);
    m_Header[kEofOffset] = kEofMark;
    store<uint16_t>(m_Header, kPointOffset, point);
    store<uint16_t>(m_Header, kLineOffset, line);
}

CMapping::CMapping(unsigned short point, unsigned short line) {
    MakeHeader(point, line);
    m_pOwner = AllocateTable(GetSize());
    m_pnMap = m_pOwner.get();
    if (m_pnMap) {
        Reset();
        m_bValid = 1;
    }
}

CMapping::CMapping(const char* fileName) {
    if (!fileName) {
        SetLastError(ErrorKind::Argument, "no file name");
        return;
    }
    File file;
    if (!file.Open(fileName, File::modeRead | File::shareDenyWrite)) {
        SetLastError("cannot be opened", file);
        return;
    }
    // The header is kept exactly as read; a short header is not a mapping.
    if (file.Read(m_Header, kHeaderSize) != kHeaderSize) {
        SetReadError(file, "not a mapping (shorter than the 256-byte header)");
        return;
    }
    const int64_t entries = static_cast<int64_t>(GetPoint()) * GetLine();
    if (entries < 1) {
        SetLastError(ErrorKind::Format, "not a mapping (its point or line count is 0)");
        return;
    }
    const int64_t length = file.GetLength();
    const int64_t needed = static_cast<int64_t>(kHeaderSize) + 4 * entries;
    if (length < needed) {
        SetLastError(ErrorKind::Format, "shorter than its table (" + std::to_string(length) + " bytes, " +
                                            std::to_string(needed) + " expected)");
        return;
    }
    const long size = GetSize();  // -1 when long cannot count the entries
    auto table = size > 0 ? AllocateTable(size) : nullptr;
    if (!table) {
        SetLastError(ErrorKind::Memory, "a table of " + std::to_string(entries) + " entries cannot be allocated");
        return;
    }
    if (!file.ReadRecord(table.get(), static_cast<size_t>(size) * sizeof(int32_t))) {
        SetReadError(file, "shorter than its table");
        return;
    }
    m_pOwner = std::move(table);
    m_pnMap = m_pOwner.get();
    m_bValid = 1;
}

unsigned short CMapping::GetPoint() const { return load<uint16_t>(m_Header, kPointOffset); }
unsigned short CMapping::GetLine() const { return load<uint16_t>(m_Header, kLineOffset); }

int CMapping::Save(const char* fileName) {
    if (!fileName) return SetLastError(ErrorKind::Argument, "no file name");
    if (!m_pnMap) return SetLastError(ErrorKind::Argument, "no table to write");
    File file;
    if (!file.Open(fileName, File::modeCreate | File::modeWrite | File::shareDenyWrite))
        return SetLastError("cannot be created", file);
    const long size = GetSize();
    if (!file.Write(m_Header, kHeaderSize) ||
        (size > 0 && !file.Write(m_pnMap, static_cast<size_t>(size) * sizeof(int32_t))))
        return SetLastError("cannot be written", file);
    return 1;
}

void CMapping::Reset() {
    if (!m_pnMap) return;
    WaitCursor wait;
    const long size = GetSize();
    for (long i = 0; i < size; ++i) m_pnMap[i] = static_cast<int32_t>(i);
}

int CMapping::IsOutOfRange() {
    WaitCursor wait;
    const long size = GetSize();
    if (size < 1 || !m_pnMap) return 0;
    // Signed comparison: a negative entry is not caught here.
    for (long i = 0; i < size; ++i) {
        if (static_cast<long>(m_pnMap[i]) >= size) return 1;
    }
    return 0;
}

int CMapping::IsBijective() {
    WaitCursor wait;
    const long size = GetSize();
    if (!m_pnMap) return 0;
    std::vector<uint32_t> mark(static_cast<size_t>(size > 0 ? size : 0), 0xFFFFFFFFu);
    for (long i = 0; i < size; ++i) {
        const int32_t s = m_pnMap[i];
        // A negative entry (which IsOutOfRange lets through) names no pixel.
        if (s >= 0 && s < size) mark[static_cast<size_t>(s)] = 0;
    }
    for (long i = 0; i < size; ++i) {
        if (mark[static_cast<size_t>(i)] != 0) return 0;
    }
    return 1;
}

int CMapping::Check(int* reason) {
    if (reason) *reason = 0;
    if (IsOutOfRange()) {
        if (reason) *reason = 1;
        return 0;
    }
    if (IsBijective()) return 1;
    if (reason) *reason = 2;
    return 0;
}

unsigned char* CMapping::Scratch::Take(size_t bytes, std::unique_ptr<unsigned char[]>& spare) {
    if (m_bBusy.exchange(true, std::memory_order_acquire)) {
        spare.reset(new unsigned char[bytes]);
        return spare.get();
    }
    if (m_nBytes < bytes) {
        m_pData.reset();
        m_nBytes = 0;
        try {
            m_pData.reset(new unsigned char[bytes]);
        } catch (...) {
            m_bBusy.store(false, std::memory_order_release);
            throw;
        }
        m_nBytes = bytes;
    }
    return m_pData.get();
}

void CMapping::Scratch::Release(const unsigned char* taken) {
    if (taken == m_pData.get()) m_bBusy.store(false, std::memory_order_release);
}

template <class T>
int CMapping::ReorderT(T* image, bool inverse) {
    if (!image || !m_pnMap) return 0;
    const long size = GetSize();
    if (size < 1) return 1;
    const size_t bytes = static_cast<size_t>(size) * sizeof(T);
    std::unique_ptr<unsigned char[]> spare;
    unsigned char* space = nullptr;
    try {
        space = m_Scratch.Take(bytes, spare);
    } catch (const std::bad_alloc&) {
        return SetLastError(ErrorKind::Memory, "no memory for an image of " + std::to_string(size) + " pixels");
    }
    // Cleared first: UnApply leaves destinations no entry names at 0 (all-zero
    // bytes are 0 for every pixel type). Apply writes every destination, but
    // measured, its gather runs about a quarter faster into a freshly cleared
    // buffer, far more than the clearing costs.
    std::memset(space, 0, bytes);
    T* out = reinterpret_cast<T*>(space);
    if (inverse)
        Scatter(image, out, m_pnMap, size);
    else
        Gather(image, out, m_pnMap, size);
    std::memcpy(image, out, bytes);
    m_Scratch.Release(space);
    return 1;
}

int CMapping::Apply(unsigned char* image) { return ReorderT(image, false); }
int CMapping::Apply(unsigned short* image) { return ReorderT(image, false); }
int CMapping::Apply(float* image) { return ReorderT(image, false); }
int CMapping::UnApply(unsigned char* image) { return ReorderT(image, true); }
int CMapping::UnApply(unsigned short* image) { return ReorderT(image, true); }
int CMapping::UnApply(float* image) { return ReorderT(image, true); }

int CMapping::SetEntry(long index, int32_t source) {
    if (!m_pnMap || index < 0 || index >= GetSize()) return 0;
    m_pnMap[index] = source;
    return 1;
}

int32_t CMapping::GetEntry(long index) const {
    if (!m_pnMap || index < 0 || index >= GetSize()) return -1;
    return m_pnMap[index];
}

}  // namespace thermokit
