#pragma once
// CNuc: one non-uniformity correction for a detector of a given size, a
// per-pixel gain table (alpha) and a per-pixel offset table (beta), so that a
// corrected level is alpha x raw + beta. Computed from one or two uniform
// reference images, applied to level or float images, undone, packed into the
// camera's 16-bit form and kept in a NUC file behind a 260-byte header.
//
// Assignment is shallow on purpose: after a = b both objects use the same two
// tables. The tables are held with shared ownership, so whichever object goes
// last frees them and no table is freed twice.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "thermokit/platform/LastError.h"

namespace thermokit {

class CPtr;

#pragma pack(push, 1)
// The NUC file header, kept in memory byte for byte as it is written.
struct NUC_HEADER {
    char szSignature[5];       // "COE" and two NULs
    char szVersion[5];         // "5.60" and a NUL
    uint8_t byMarker;          // 0x1A
    uint8_t byReserved[181];   // zero
    char szCamera[20];         // camera model, at most 19 characters
    char szCameraSerial[11];   // serial number, at most 10 characters
    char szFilter[20];         // filter name, at most 19 characters
    float fIntegration;        // integration time
    uint8_t byWindowing;       // 0 full detector, 1 sub-window
    uint16_t wWindowX;         // column of the sub-window's first pixel
    uint16_t wWindowY;         // line of the sub-window's first pixel
    uint16_t wPoint;           // pixels per line
    uint16_t wLine;            // lines
    uint32_t dwSize;           // pixels, wPoint x wLine when built here
};
#pragma pack(pop)

static_assert(sizeof(NUC_HEADER) == 260);
static_assert(offsetof(NUC_HEADER, szSignature) == 0);
static_assert(offsetof(NUC_HEADER, szVersion) == 5);
static_assert(offsetof(NUC_HEADER, byMarker) == 10);
static_assert(offsetof(NUC_HEADER, byReserved) == 11);
static_assert(offsetof(NUC_HEADER, szCamera) == 192);
static_assert(offsetof(NUC_HEADER, szCameraSerial) == 212);
static_assert(offsetof(NUC_HEADER, szFilter) == 223);
static_assert(offsetof(NUC_HEADER, fIntegration) == 243);
static_assert(offsetof(NUC_HEADER, byWindowing) == 247);
static_assert(offsetof(NUC_HEADER, wWindowX) == 248);
static_assert(offsetof(NUC_HEADER, wWindowY) == 250);
static_assert(offsetof(NUC_HEADER, wPoint) == 252);
static_assert(offsetof(NUC_HEADER, wLine) == 254);
static_assert(offsetof(NUC_HEADER, dwSize) == 256);

class CNuc : public LastError {
public:
    // A valid table of point x line pixels; tables allocated (zero), not reset.
    CNuc(unsigned short point, unsigned short line);
    // Reads a NUC file; invalid when it cannot be opened, has another
    // signature, a pixel count other than its point x line (smaller is
    // accepted when point or line is 0, read as 128) or fewer table bytes
    // than its pixel count needs.
    explicit CNuc(const char* fileName);
    ~CNuc();

    // Shallow: the copy shares both tables with its source.
    CNuc(const CNuc& other);
    CNuc& operator=(const CNuc& other);

    long GetSize() const { return static_cast<long>(m_Header.dwSize); }
    unsigned short GetPoint() const { return m_Header.wPoint; }
    unsigned short GetLine() const { return m_Header.wLine; }
    float* GetAlpha() { return m_pAlpha; }
    float* GetBeta() { return m_pBeta; }
    const NUC_HEADER& GetHeader() const { return m_Header; }
    int IsValid() const { return m_bValid; }
    int IsCompatible() const { return 1; }

    void SetCamera(const std::string& text);
    void SetCameraSerial(const std::string& text);
    void SetFilter(const std::string& text);
    std::string GetCamera() const;
    std::string GetCameraSerial() const;
    std::string GetFilter() const;
    void SetIntegration(float integration);
    float GetIntegration() const;
    void SetWindowing(unsigned char flag, unsigned short x, unsigned short y);
    // point and line are written only where given.
    void GetWindowing(unsigned char* flag, unsigned short* x, unsigned short* y, unsigned short* point,
                      unsigned short* line) const;
    // All five pointers are written.
    void GetWindowing(long* flag, unsigned long* x, unsigned long* y, unsigned long* point,
                      unsigned long* line) const;
    void SetGainLimit(float min, float max);
    void GetGainLimit(float* min, float* max) const;

    // Gain 1.0 and offset 0.0 everywhere.
    void Reset();
    // Two-point update from first and second (onePoint 0), else one-point
    // update from first keeping the present gain when keepGain is non-zero.
    // Both buffers hold GetSize() pixels.
    int Update(unsigned short* first, unsigned short* second, int onePoint, int keepGain);
    int Update(float* first, float* second, int onePoint, int keepGain);
    // The same from films, each averaged over all its frames. A film whose
    // pixel, point or line count differs from the table's leaves the tables
    // as they are (when the first film fits, its camera, serial number,
    // filter 0, integration time 0 and sub-window are still taken). Returns 1.
    int Update(const char* firstFilm, const char* secondFilm, int onePoint, int keepGain);
    // The same from films already open (second null for a one-point update),
    // read once each. Returns 0, the tables as they were, when a film does
    // not fit the table or one of its frames cannot be read (the reading
    // stops there); 1 when updated.
    int Update(CPtr& firstFilm, CPtr* secondFilm, int onePoint, int keepGain);

    // Corrects a frame of levels: (in AND maxLevel) x gain + offset, clamped
    // to [0, maxLevel] and truncated. out null means in place.
    int Apply(unsigned short* in, unsigned short maxLevel, unsigned short* out);
    // gain x image + offset in place, no mask, no clamp.
    int Apply(float* image);
    // Undoes the correction (gain 0 gives 0).
    int ApplyDeNuc(unsigned short* in, unsigned short maxLevel, unsigned short* out);
    int ApplyDeNuc(float* image);

    // Packed camera form: per pixel an unsigned 16-bit gain word and a signed
    // 16-bit offset word. Format 0: gain x 16384, offset x 1; format 1: gain
    // x 32768, offset x 2. Words wrap (no saturation).
    int CreateBufferNuc(unsigned char* buffer, int format);
    int FormatNuc(unsigned char* buffer, long length, int format);

    int Save(const char* fileName);

protected:
    int Update2Point(const unsigned short* low, const unsigned short* high);
    int Update2Point(const float* low, const float* high);
    int Update1Point(const unsigned short* reference, int keepGain);
    int Update1Point(const float* reference, int keepGain);

private:
    // The camera, serial number, filter 0, integration time 0 and sub-window of a film used for an update.
    void TakeFilmHeader(CPtr& film);
    void InitHeader();
    bool Allocate(size_t count);
    size_t TableSize() const { return m_nAllocated; }

    float* m_pAlpha = nullptr;
    float* m_pBeta = nullptr;
    float m_fGainMin = 0.1f;
    float m_fGainMax = 10.0f;
    NUC_HEADER m_Header{};
    int m_bValid = 0;

    // Owners of the two tables (shared by shallow copies) and their length.
    std::shared_ptr<float> m_spAlpha;
    std::shared_ptr<float> m_spBeta;
    size_t m_nAllocated = 0;
};

}  // namespace thermokit
