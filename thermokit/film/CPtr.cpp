#include "thermokit/film/CPtr.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/image/PixelKernels.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"

namespace thermokit {

// A read-only descriptor kept between reads. Begin() does what opening the
// file for reading with the sharing asked for does (find the file by name,
// announce the locks, refuse on a conflict); End() does what closing does
// (drop the locks).
struct CPtr::ReadCache {
    // The film stays open between reads; its sharing locks ("read", "deny
    // write") are held only during each read, as an open-read-close would.
    // On Windows a file that is open cannot be replaced or removed, so there
    // the film is opened for each read and closed after it.
    File file;

    bool Begin(const std::string& name, unsigned share) {
#if defined(_WIN32)
        return file.Open(name, File::modeRead | share);
#else
        if (file.IsOpen() && !file.IsSameFileAs(name)) file.Close();
        if (!file.IsOpen()) {
            // Opened without sharing locks; they are taken below for each read.
            if (!file.Open(name, File::modeRead | File::shareDenyNone)) return false;
        }
        return file.AcquireSharing(File::modeRead | share);
#endif
    }
#if defined(_WIN32)
    void End() { file.Close(); }
#else
    void End() { file.ReleaseSharing(); }
#endif
};

// ---------------------------------------------------------------- lifetime

CPtr::CPtr(const std::string& fileName, int unused1, int unused2, int b24) : CPtr(fileName, b24, 2u) {
    (void)unused1;
    (void)unused2;
}

CPtr::CPtr(const std::string& fileName, int b24, unsigned bytesPerPixel) : CPtrOver(fileName) {
    if (m_bValid && PixelBytes(m_Header) != bytesPerPixel) {
        m_bValid = 0;
        SetLastError(ErrorKind::Format, bytesPerPixel == 2 ? "a film of doubles, not of 16-bit levels"
                                                           : "a film of 16-bit levels, not of doubles");
    }
    if (m_bValid) {
        InitImage();
        try {
            m_pFrame = new CFrame(GetPoint(), GetLine(), GetBit(), 0, b24);
        } catch (const std::bad_alloc&) {
            m_bValid = 0;
            SetLastError(ErrorKind::Memory,
                         "an image of " + std::to_string(GetSize()) + " pixels cannot be allocated");
        }
    }
    if (!m_pFrame) m_pFrame = new CFrame(static_cast<unsigned short>(0), static_cast<unsigned short>(0), 16, 0, b24);
}

CPtr::CPtr(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24,
           int unused) {
    (void)unused;
    InitHeader(point, line, bit);
    InitImage();
    m_bValid = 1;
    m_pFrame = new CFrame(point, line, bit, rotation, b24);
}

CPtr::CPtr(const CPtr& other) : CPtrOver(other) {
    const CFrame* src = other.m_pFrame;
    m_pFrame = new CFrame(src->GetPoint(), src->GetLine(), src->GetBit(), src->GetRotation(), src->Is24());
    if (src->GetSize() > 0)
        std::memcpy(m_pFrame->GetBuffer(), src->GetBuffer(), static_cast<size_t>(src->GetSize()) * 2);
    m_pFrame->SetTime(src->GetTime());
}

CPtr& CPtr::operator=(const CPtr& other) {
    if (this != &other) {
        CPtrOver::operator=(other);
        ReleaseCache();
        const CFrame* src = other.m_pFrame;
        auto* frame = new CFrame(src->GetPoint(), src->GetLine(), src->GetBit(), src->GetRotation(), src->Is24());
        if (src->GetSize() > 0)
            std::memcpy(frame->GetBuffer(), src->GetBuffer(), static_cast<size_t>(src->GetSize()) * 2);
        frame->SetTime(src->GetTime());
        delete m_pFrame;
        m_pFrame = frame;
    }
    return *this;
}

CPtr::~CPtr() { delete m_pFrame; }

void CPtr::SetFileName(const std::string& fileName) {
    if (fileName != m_strFileName) ReleaseCache();
    CPtrOver::SetFileName(fileName);
}

void CPtr::ReleaseCache() { m_pCache.reset(); }

unsigned CPtr::ReadSharing() const { return File::shareDenyWrite; }

int CPtr::ReadHeader() {
    alignas(8) unsigned char old[PtrHeader::kSize];
    std::memcpy(old, m_Header, sizeof(old));
    if (!CPtrOver::ReadHeader()) return 0;
    if (PixelBytes(m_Header) != GetPixelBytes()) {
        std::memcpy(m_Header, old, sizeof(old));
        return 0;
    }
    return 1;
}

unsigned long CPtr::GetImageSize() const {
    return static_cast<unsigned long>(GetImageHeaderSize()) +
           static_cast<unsigned long>(GetSize()) * GetPixelBytes();
}

// ---------------------------------------------------------------- offsets

uint64_t CPtr::OffsetFor(unsigned long n, unsigned bytesPerPixel) const {
    // The record size is a 32-bit sum; only its product with n is 64-bit.
    const uint32_t record = GetImageHeaderSize() + static_cast<uint32_t>(GetSize()) * bytesPerPixel;
    return static_cast<uint64_t>(GetHeaderSize()) + static_cast<uint64_t>(n) * record;
}
uint64_t CPtr::OffsetImage(unsigned long n) const { return OffsetFor(n, 2); }
uint64_t CPtr::OffsetTrame(unsigned long n) const { return OffsetImage(n) + GetImageHeaderSize(); }

// ---------------------------------------------------------------- messages

void CPtr::ReadFailed(unsigned long n, int err) {
    Messages::ShowMessage(Format("Cannot read frame #%ld in file %s.", static_cast<long>(n), m_strFileName.c_str()),
                          "thermokit", MB_ICONERROR);
    const std::string what = "frame " + std::to_string(n) + " cannot be read";
    if (err > 0) SetLastError(what, err);
    else if (err == 0) SetLastError(ErrorKind::Format, what + " (the file ends before it)");
    else SetLastError(ErrorKind::Argument, what + " (no film open, or no frame of the film's size to read into)");
}
void CPtr::SaveFailed(unsigned long n, int err) {
    Messages::ShowMessage(Format("Cannot save frame #%ld in file %s.", static_cast<long>(n), m_strFileName.c_str()),
                          "thermokit", MB_ICONERROR);
    const std::string what = "frame " + std::to_string(n) + " cannot be written";
    if (err > 0) SetLastError(what, err);
    else SetLastError(ErrorKind::Argument, what + " (no film, or no frame of the film's size to write)");
}

// ---------------------------------------------------------------- reading

double CPtr::ImageTime(const unsigned char* image, int irigbPlay) {
    double t = 0.0;
    if (irigbPlay && (image[PtrImage::kIRIGBMask] & 1)) {
        // IRIG-B time bytes: hour, minute, second; then the microseconds.
        MergeTime(&t, image[PtrImage::kIRIGBTime], image[PtrImage::kIRIGBTime + 1],
                  image[PtrImage::kIRIGBTime + 2],
                  static_cast<unsigned long>(load<uint32_t>(image, PtrImage::kIRIGBMicro)));
    } else {
        const unsigned char* tm = image + PtrImage::kTime;  // minute, hour, hundredths, second
        MergeTime(&t, tm[1], tm[0], tm[3], tm[2], image[PtrImage::kThousandth],
                  load<uint16_t>(image, PtrImage::kMicro));
    }
    return t;
}

int CPtr::ReadImage(unsigned long n, void* pixels, size_t bytes, double* time) {
    if (!m_pCache) m_pCache = std::make_unique<ReadCache>();
    ReadCache& cache = *m_pCache;
    if (!cache.Begin(m_strFileName, ReadSharing())) return SetLastError("cannot be opened", cache.file);
    const uint32_t ihs = GetImageHeaderSize();
    const uint64_t at = OffsetImage(n);
    const uint64_t pixelsAt = OffsetTrame(n);
    bool ok;
    if (ihs == PtrImage::kSize && pixelsAt == at + ihs) {
        // Image header and pixels are neighbours: one transfer.
        const File::Span spans[2] = {{m_Image, PtrImage::kSize}, {pixels, bytes}};
        ok = cache.file.ReadSpansAt(at, spans, 2);
    } else {
        const File::Span head[1] = {{m_Image, PtrImage::kSize}};
        const File::Span body[1] = {{pixels, bytes}};
        ok = (ihs == 0 || cache.file.ReadSpansAt(at, head, 1)) && cache.file.ReadSpansAt(pixelsAt, body, 1);
    }
    const int err = ok ? 0 : cache.file.GetLastError();
    cache.End();
    if (!ok) {
        ReadFailed(n, err);
        return 0;
    }
    if (time) *time = ImageTime(m_Image, IsIRIGBPlay());
    return 1;
}

int CPtr::Read(unsigned long n, CFrame* f) {
    if (!f) f = m_pFrame;
    if (!m_bValid || !f || !f->GetBuffer() || f->GetSize() != GetSize() || GetSize() <= 0) {
        ReadFailed(n);
        return 0;
    }
    double t = 0.0;
    if (!ReadImage(n, f->GetBuffer(), static_cast<size_t>(GetSize()) * 2, &t)) return 0;
    f->SetTime(t);
    // Clear the bits above the depth (only when some pixel has one: a
    // well-formed film has none, and looking is cheaper than writing).
    const unsigned short maxLevel = GetMaxLevel();
    if (maxLevel != 0xFFFF && (kernels::Pixel().orU16(f->GetBuffer(), GetSize()) & ~maxLevel))
        thermokit::Mask(f->GetBuffer(), GetSize(), maxLevel);
    return 1;
}

int CPtr::ReadFrame(unsigned long n, CFrame* f) {
    SetCurrentFrame(n);
    return Read(n, f);
}
int CPtr::ReadFirstFrame(CFrame* f) { return ReadFrame(0, f); }
int CPtr::ReadLastFrame(CFrame* f) {
    if (GetFrameNumber() == 0) return 0;
    return ReadFrame(GetFrameNumber() - 1, f);
}
int CPtr::ReadCurrentFrame(CFrame* f) { return Read(GetCurrentFrame(), f); }
int CPtr::ReadNextFrame(CFrame* f) {
    const unsigned long current = GetCurrentFrame();
    if (current + 1 >= GetFrameNumber()) return 0;
    return ReadFrame(current + 1, f);
}
int CPtr::ReadPreviousFrame(CFrame* f) {
    const unsigned long current = GetCurrentFrame();
    if (current == 0) return 0;
    return ReadFrame(current - 1, f);
}

int CPtr::ReadFrame(unsigned long n, double* data, unsigned long count) {
    if (!data || count != static_cast<unsigned long>(GetSize())) return 0;
    if (!ReadFrame(n, static_cast<CFrame*>(nullptr))) return 0;
    const unsigned short* levels = m_pFrame->GetBuffer();
    for (unsigned long i = 0; i < count; ++i) data[i] = levels[i];
    return 1;
}

int CPtr::ReadTime(unsigned long n, double& t) {
    if (!m_bValid) {
        ReadFailed(n);
        return 0;
    }
    if (!m_pCache) m_pCache = std::make_unique<ReadCache>();
    ReadCache& cache = *m_pCache;
    if (!cache.Begin(m_strFileName, ReadSharing())) return SetLastError("cannot be opened", cache.file);
    alignas(8) unsigned char image[PtrImage::kSize];
    std::memcpy(image, m_Image, sizeof(image));
    bool ok = true;
    if (GetImageHeaderSize() != 0) {
        const File::Span spans[1] = {{image, sizeof(image)}};
        ok = cache.file.ReadSpansAt(OffsetImage(n), spans, 1);
    }
    const int err = ok ? 0 : cache.file.GetLastError();
    cache.End();
    if (!ok) {
        ReadFailed(n, err);
        return 0;
    }
    t = ImageTime(image, IsIRIGBPlay());
    return 1;
}

// ---------------------------------------------------------------- writing

int CPtr::WriteImage(unsigned long n, const void* pixels, size_t bytes) {
    ReleaseCache();  // the next read looks the file up again
    File file;
    if (!file.Open(m_strFileName, File::modeWrite | File::shareDenyWrite | File::modeCreate | File::modeNoTruncate)) {
        SaveFailed(n, file.GetLastError() ? file.GetLastError() : EIO);
        return 0;
    }
    const uint32_t ihs = GetImageHeaderSize();
    const uint64_t at = OffsetImage(n);
    const uint64_t pixelsAt = OffsetTrame(n);
    bool ok;
    if (ihs == PtrImage::kSize && pixelsAt == at + ihs) {
        const File::Span spans[2] = {{m_Image, PtrImage::kSize}, {const_cast<void*>(pixels), bytes}};
        ok = file.WriteSpansAt(at, spans, 2);
    } else {
        const File::Span body[1] = {{const_cast<void*>(pixels), bytes}};
        ok = file.WriteSpansAt(pixelsAt, body, 1);
        if (ok && ihs != 0) {
            // A larger image header than ours: our part, then zeros (reserved).
            std::vector<unsigned char> head(ihs, 0);
            std::memcpy(head.data(), m_Image, PtrImage::kSize);
            const File::Span spans[1] = {{head.data(), head.size()}};
            ok = file.WriteSpansAt(at, spans, 1);
        }
    }
    if (!ok) {
        SaveFailed(n, file.GetLastError() ? file.GetLastError() : ENOSPC);
        return 0;
    }
    return 1;
}

int CPtr::Write(unsigned long n, CFrame* f) {
    if (!f) f = m_pFrame;
    if (!m_bValid || !f || !f->GetBuffer() || f->GetSize() != GetSize() || GetSize() <= 0) {
        SaveFailed(n);
        return 0;
    }
    SetFrameTime(f->GetTime());
    return WriteImage(n, f->GetBuffer(), static_cast<size_t>(GetSize()) * 2);
}

int CPtr::WriteFrame(unsigned long n, CFrame* f) { return Write(n, f); }
int CPtr::WriteCurrentFrame(CFrame* f) { return Write(GetCurrentFrame(), f); }

int CPtr::AddFrame(CFrame* f) {
    const unsigned long n = GetFrameNumber();
    if (!Write(n, f)) return 0;
    SetFrameNumber(n + 1);
    return WriteHeader();
}

int CPtr::AddFrame(CRect* rect) {
    if (rect) {
        SetImageWindow(1);
        SetI<int16_t>(PtrImage::kWindowRect + 0, static_cast<int16_t>(rect->left));
        SetI<int16_t>(PtrImage::kWindowRect + 2, static_cast<int16_t>(rect->top));
        SetI<int16_t>(PtrImage::kWindowRect + 4, static_cast<int16_t>(rect->right - rect->left));
        SetI<int16_t>(PtrImage::kWindowRect + 6, static_cast<int16_t>(rect->bottom - rect->top));
    } else {
        SetImageWindow(0);
    }
    return AddFrame(static_cast<CFrame*>(nullptr));
}

namespace {
template <class T>
void ToLevels(const T* data, long count, unsigned short* out, unsigned short maxLevel) {
    for (long i = 0; i < count; ++i) {
        const double v = static_cast<double>(data[i]);
        if (!(v > 0.0)) out[i] = 0;
        else if (v >= maxLevel) out[i] = maxLevel;
        else out[i] = static_cast<unsigned short>(v);
    }
}
}  // namespace

int CPtr::AddFrame(float* data, int count) {
    if (!data || count != GetSize() || !m_pFrame->GetBuffer() || m_pFrame->GetSize() != GetSize()) return 0;
    ToLevels(data, count, m_pFrame->GetBuffer(), GetMaxLevel());
    return AddFrame(static_cast<CFrame*>(nullptr));
}

int CPtr::AddFrame(double* data, int count) {
    if (!data || count != GetSize() || !m_pFrame->GetBuffer() || m_pFrame->GetSize() != GetSize()) return 0;
    ToLevels(data, count, m_pFrame->GetBuffer(), GetMaxLevel());
    return AddFrame(static_cast<CFrame*>(nullptr));
}

int CPtr::StartNewFile() {
    ReleaseCache();
    File file;
    if (!file.Open(m_strFileName, File::modeWrite | File::shareDenyWrite | File::modeCreate)) {
        SaveFailed(0, file.GetLastError() ? file.GetLastError() : EIO);
        return 0;
    }
    return 1;
}

int CPtr::SaveFrame(const char* fileName, CFrame* f, const char* text) {
    if (!fileName) return 0;
    SetFileName(fileName);
    SetComment(text);
    SetFrameNumber(0);
    SetCurrentFrame(0);
    if (!StartNewFile()) return 0;
    return AddFrame(f);
}

namespace {
template <class T>
int SaveAsDoubles(CPtr& film, const char* fileName, const T* data, const char* text1, const char* text2,
                  int setScale, double min, double max) {
    if (!fileName || !data || film.GetSize() <= 0) return 0;
    const long count = film.GetSize();
    std::vector<double> values(static_cast<size_t>(count));
    for (long i = 0; i < count; ++i) values[static_cast<size_t>(i)] = static_cast<double>(data[i]);
    CPtrFloat out(film.GetPoint(), film.GetLine(), film.GetBit(), 0, 1, 0);
    CPtrOver::CopyHeaderPtr(&out, &film, 1, 1);
    CPtrOver::CopyImageHeader(&out, &film);
    out.GetFrame()->SetTime(film.GetFrame()->GetTime());
    return out.SaveFrame(fileName, values.data(), text1, text2, setScale, min, max);
}
}  // namespace

int CPtr::SaveFrame(const char* fileName, float* data, const char* text1, const char* text2, int setScale,
                    double min, double max) {
    return SaveAsDoubles(*this, fileName, data, text1, text2, setScale, min, max);
}
int CPtr::SaveFrame(const char* fileName, double* data, const char* text1, const char* text2, int setScale,
                    double min, double max) {
    return SaveAsDoubles(*this, fileName, data, text1, text2, setScale, min, max);
}

// ---------------------------------------------------------------- statistics

int CPtr::DL2Float(unsigned short dl, double* value) {
    float* scale = nullptr;
    int count = 0;
    if (!value || !GetSpecialScale(scale, count)) return 0;
    // Single precision throughout, as the scale is kept.
    const float v = scale[0] + (scale[16] - scale[0]) * dl / GetMaxLevel();
    *value = v;
    return 1;
}

int CPtr::MinMax(CRgn* region) {
    unsigned short* buffer = m_pFrame->GetBuffer();
    const long size = m_pFrame->GetSize();
    if (!buffer || size <= 0) return 0;
    const unsigned short point = m_pFrame->GetPoint(), line = m_pFrame->GetLine();
    if (region) {
        // Only a region holding at least one pixel gives bounds.
        bool any = false;
        for (int y = 0; y < line && !any; ++y)
            for (int x = 0; x < point; ++x)
                if (region->PtInRegion(x, y)) {
                    any = true;
                    break;
                }
        if (!any) return 0;
    }
    unsigned short min = 0, max = 0, mean = 0;
    if (region) MinMaxRgn(buffer, point, line, region, &min, &max, &mean);
    else thermokit::MinMax(buffer, size, &min, &max, &mean, 0);
    SetMinLUT(min);
    SetMaxLUT(max);
    return 1;
}

int CPtr::MinMaxHisto(float percent, CRgn* region) {
    unsigned short* buffer = m_pFrame->GetBuffer();
    const long size = m_pFrame->GetSize();
    if (!buffer || size <= 0) return 0;
    unsigned short min = 0, max = 0;
    int ok;
    if (region) {
        std::vector<int> inside;
        const unsigned short point = m_pFrame->GetPoint(), line = m_pFrame->GetLine();
        for (int y = 0; y < line; ++y)
            for (int x = 0; x < point; ++x)
                if (region->PtInRegion(x, y)) inside.push_back(point * y + x);
        if (inside.empty()) return 0;
        ok = thermokit::MinMaxHisto(buffer, static_cast<long>(inside.size()), &min, &max, GetMaxLevel(), percent,
                                    -1.0f, inside.data());
    } else {
        ok = thermokit::MinMaxHisto(buffer, size, &min, &max, GetMaxLevel(), percent, -1.0f, nullptr);
    }
    if (!ok) return 0;
    SetMinLUT(min);
    SetMaxLUT(max);
    return 1;
}

void CPtr::SetImageDemodeFrequency(float frequency) {
    SetI<float>(PtrImage::kLockin + offsetof(PTR_LOCKIN_DATA, dwFrequency), frequency);
}
float CPtr::GetImageDemodeFrequency() const {
    return I<float>(PtrImage::kLockin + offsetof(PTR_LOCKIN_DATA, dwFrequency));
}

}  // namespace thermokit
