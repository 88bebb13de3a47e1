#pragma once
// CPixel: the bad pixels of a detector, each with the pixel that replaces it
// and the criteria it failed (gain, offset, noise). Detects bad pixels from
// gain, offset and noise images, chooses replacements by a fixed
// neighbourhood search, replaces them in images, mirrors the list when the
// image is flipped, counts them per criterion inside or outside a rectangle,
// and keeps the list as a bad-pixel file, a packed camera buffer or a text
// report.
//
// Pixels are indices in row-major order: index = line x point + column.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "thermokit/platform/COLORREF.h"
#include "thermokit/platform/CPoint.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/LastError.h"

namespace thermokit {

#pragma pack(push, 1)
// The bad-pixel file header, kept in memory as it is written.
struct BPR_HEADER {
    char szSignature[5];       // "PIX" and two NULs
    char szVersion[5];         // "5.60" and a NUL
    uint8_t byMarker;          // 0x1A
    uint8_t byReserved1[220];  // zero
    uint8_t byFlipStored;      // 1 when the two flip flags are meaningful
    uint8_t byFlipLine;        // lines mirrored
    uint8_t byFlipColumn;      // columns mirrored
    float fGainCriteria;       // percent, as last used
    float fOffsetCriteria;     // percent, as last used
    float fNoiseCriteria;      // DL, as last used
    uint8_t byCriteria;        // 1 when per-entry criteria codes are kept
    uint8_t byReserved2[5];    // zero
    uint16_t wPoint;           // pixels per line
    uint16_t wLine;            // lines
    uint16_t wCount;           // entries
};
#pragma pack(pop)

static_assert(sizeof(BPR_HEADER) == 258);
static_assert(offsetof(BPR_HEADER, szSignature) == 0);
static_assert(offsetof(BPR_HEADER, szVersion) == 5);
static_assert(offsetof(BPR_HEADER, byMarker) == 10);
static_assert(offsetof(BPR_HEADER, byFlipStored) == 231);
static_assert(offsetof(BPR_HEADER, byFlipLine) == 232);
static_assert(offsetof(BPR_HEADER, byFlipColumn) == 233);
static_assert(offsetof(BPR_HEADER, fGainCriteria) == 234);
static_assert(offsetof(BPR_HEADER, fOffsetCriteria) == 238);
static_assert(offsetof(BPR_HEADER, fNoiseCriteria) == 242);
static_assert(offsetof(BPR_HEADER, byCriteria) == 246);
static_assert(offsetof(BPR_HEADER, wPoint) == 252);
static_assert(offsetof(BPR_HEADER, wLine) == 254);
static_assert(offsetof(BPR_HEADER, wCount) == 256);

class CPixel : public LastError {
public:
    // Capacity of the list.
    static constexpr int kMaxBad = 16384;

    // Criteria codes, OR-ed together when a pixel fails several criteria.
    enum Criteria : unsigned char {
        kGain = 0x03,
        kOffset = 0x0C,
        kNoise = 0x10,
        kGainOffset = 0x0F,
        kGainNoise = 0x13,
        kOffsetNoise = 0x1C,
        kGainOffsetNoise = 0x1F,
    };

    // Empty list for a point x line detector, criteria kept, valid. The
    // third argument is accepted for callers that pass one and not used.
    CPixel(unsigned short point, unsigned short line, int unused);
    // Reads a bad-pixel file. A file that cannot be opened leaves an empty,
    // invalid list; a file with more entries than the capacity, an index
    // outside the detector or fewer bytes than its lists need is refused the
    // same way, with the error code set.
    explicit CPixel(const char* fileName);
    explicit CPixel(const CPixel* other);
    CPixel(const CPixel& other);
    CPixel& operator=(const CPixel& other);
    ~CPixel();

    // Queries.
    long GetSize() const { return m_Header.wCount; }
    unsigned short GetPoint() const { return m_Header.wPoint; }
    unsigned short GetLine() const { return m_Header.wLine; }
    int32_t* GetPixel1() { return m_pBad.get(); }
    int32_t* GetPixel2() { return m_pReplacement.get(); }
    unsigned char* GetCriteria() { return m_pCriteria.get(); }
    const BPR_HEADER& GetHeader() const { return m_Header; }
    int IsEmpty() const { return m_Header.wCount == 0; }
    int IsFull() const { return m_Header.wCount >= kMaxBad; }
    int IsDistributed() const { return m_Header.byCriteria; }
    int IsValid() const { return m_bValid; }
    int IsCompatible() const { return 1; }
    float GetGainCriteria() const { return m_Header.fGainCriteria; }
    float GetOffsetCriteria() const { return m_Header.fOffsetCriteria; }
    float GetNoiseCriteria() const { return m_Header.fNoiseCriteria; }

    // Distribution counters of the last UpdateDistribution.
    long GetTotal() const { return m_nTotal; }
    long GetNoise() const { return m_nNoise; }
    long GetGain() const { return m_nGain; }
    long GetOffset() const { return m_nOffset; }
    long GetOffsetGain() const { return m_nOffsetGain; }
    long GetOffsetNoise() const { return m_nOffsetNoise; }
    long GetGainNoise() const { return m_nGainNoise; }
    long GetOffsetGainNoise() const { return m_nOffsetGainNoise; }
    const CRect& GetWindow() const { return m_rcWindow; }
    int IsOutside() const { return m_bOutside; }

    // The error code of the last failed operation (-1: none) and its fixed
    // text; GetLastErrorText (LastError) tells more, for a file the reason.
    int GetLastError() const { return m_nError; }
    std::string GetLastErrorMessage() const { return m_strError; }

    // Per-position tests: the entry's code AND the criterion's bits; 0 when
    // criteria are not kept, except IsOffsetGainNoise (code == 0x1F), which
    // is then 1.
    int IsNoise(unsigned short position) const { return Test(position, kNoise); }
    int IsGain(unsigned short position) const { return Test(position, kGain); }
    int IsOffset(unsigned short position) const { return Test(position, kOffset); }
    int IsOffsetGain(unsigned short position) const { return Test(position, kGainOffset); }
    int IsOffsetNoise(unsigned short position) const { return Test(position, kOffsetNoise); }
    int IsGainNoise(unsigned short position) const { return Test(position, kGainNoise); }
    int IsOffsetGainNoise(unsigned short position) const;
    // First list position holding the pixel, or -1.
    long IsBad(long pixel) const;
    long IsReplacement(long pixel) const;
    // Colour (0x00BBGGRR) of an entry's code; white for unknown codes and
    // for every entry when criteria are not kept.
    COLORREF Color(unsigned short position) const;

    long Index(unsigned short column, unsigned short line) const;
    void Coordinates(long index, unsigned short* column, unsigned short* line) const;
    void Coordinates(long index, unsigned short& column, unsigned short& line) const {
        Coordinates(index, &column, &line);
    }
    CPoint Coordinates(long index) const;

    // List edits.
    int Add(long bad, long replacement, unsigned char code);
    int Insert(unsigned short position, long bad, long replacement, unsigned char code);
    int Delete(unsigned short position);
    int Modify(unsigned short position, unsigned char code);
    int SetGain(unsigned short position, int on);
    int SetOffset(unsigned short position, int on);
    int SetNoise(unsigned short position, int on);
    void Reset();

    // Detection.
    int UpdateGain(float* gain, long n, float percent, float reference);
    int UpdateOffset(float* offset, long n, float percent, unsigned short level);
    int UpdateNoise(float* noise, long n, float threshold, int high);
    // Replacement.
    int UpdateReplacement();
    int Find(long pixel, long* replacement) const;

    // image[bad] = image[replacement] for every entry in list order. The
    // image holds point x line values; an entry with an index outside that
    // range (lists are edited freely) is skipped.
    int Apply(unsigned short* image);
    int Apply(float* image);
    int Apply(double* image);

    void Flip(int lines, int columns);
    void SetFlip(int lines, int columns);
    int GetFlip(int& lines, int& columns) const;

    void UpdateDistribution(CRect* rect, int outside);
    long GetWindowSize() const;

    // Packed camera buffers.
    int CreateBufferBpr(unsigned char* buffer);
    int FormatBPR(unsigned char* buffer);

    int Save(const char* fileName);
    // Text report. gain, offset, noise say which criteria are selected; the
    // entry lines list the entries counted by the last UpdateDistribution
    // that carry at least one selected criterion (every counted entry when
    // criteria are not kept).
    int SaveAscii(const char* fileName, int gain, int offset, int noise);

protected:
    int SaveCriteria(std::FILE* file, const char* name, long count) const;

private:
    void InitHeader(unsigned short point, unsigned short line);
    void Allocate();
    void CopyFrom(const CPixel& other);
    void SetError(int code);
    int Test(unsigned short position, unsigned char mask) const;
    int SetBits(unsigned short position, int on, unsigned char bits);
    bool OnDetector(long index) const;
    template <class T> int ApplyT(T* image);
    template <class Pred> int Detect(long n, unsigned char code, Pred isBad);

    BPR_HEADER m_Header{};
    std::unique_ptr<int32_t[]> m_pBad;
    std::unique_ptr<int32_t[]> m_pReplacement;
    std::unique_ptr<unsigned char[]> m_pCriteria;
    int m_bValid = 0;
    CRect m_rcWindow;
    int m_bOutside = 0;
    int m_nError = -1;
    std::string m_strError;

    long m_nNoise = 0;
    long m_nGain = 0;
    long m_nOffset = 0;
    long m_nOffsetGain = 0;
    long m_nOffsetNoise = 0;
    long m_nGainNoise = 0;
    long m_nOffsetGainNoise = 0;
    long m_nTotal = 0;
};

}  // namespace thermokit
