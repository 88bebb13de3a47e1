#pragma once
// CMapping: a pixel permutation table for one detector size. Entry i is the
// linear index (Point * y + x) of the source pixel whose value goes to
// destination pixel i.
//
// Mapping file (little-endian, packed): a 256-byte header, then the table.
//   0   4  "MAP" and a NUL
//   4   1  0
//   5   5  "5.60" and its NUL
//   10  1  0x1A
//   11  241 zero
//   252 2  point (u16)
//   254 2  line (u16)
//   256 4 x point x line  the table, signed 32-bit each, destination 0 first
//
// Copies and assignments share the table with their source (member-wise
// copy); the table lives as long as any mapping holding it.
//
// Apply and UnApply work in a buffer the mapping keeps between calls, so
// that they allocate nothing once it is large enough.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>

#include "thermokit/platform/LastError.h"

namespace thermokit {

class CMapping : public LastError {
public:
    static constexpr size_t kHeaderSize = 256;
    static constexpr size_t kPointOffset = 252;
    static constexpr size_t kLineOffset = 254;

    // Identity table of point x line entries; valid.
    CMapping(unsigned short point, unsigned short line);
    // Loads a mapping file. Not valid, and without a table, when the file
    // cannot be opened, its header is short, a size field is 0 or the file
    // holds fewer bytes than the table needs.
    explicit CMapping(const char* fileName);
    CMapping(const CMapping& other) = default;
    CMapping& operator=(const CMapping& other) = default;
    ~CMapping() = default;

    // Writes the header and the table; 1, or 0 when the file cannot be
    // created or written or there is no table.
    int Save(const char* fileName);
    // Entry i = i for every i.
    void Reset();
    // 1 for a usable permutation. reason: 0, or 1 when an entry is at least
    // the size, or 2 when the table is not a permutation.
    int Check(int* reason);

    // Re-orders an image of GetSize() values in place: new[i] = old[map[i]].
    // A destination whose entry lies outside [0, GetSize()) becomes 0.
    int Apply(unsigned char* image);
    int Apply(unsigned short* image);
    int Apply(float* image);
    // The inverse: new[map[i]] = old[i]; destinations no entry names become 0.
    int UnApply(unsigned char* image);
    int UnApply(unsigned short* image);
    int UnApply(float* image);

    // Points times lines; -1 where long has 32 bits (Windows) and the product does not fit.
    long GetSize() const {
        const int64_t n = static_cast<int64_t>(GetPoint()) * GetLine();
        return n <= std::numeric_limits<long>::max() ? static_cast<long>(n) : -1;
    }
    unsigned short GetPoint() const;
    unsigned short GetLine() const;
    int IsValid() const { return m_bValid; }

    // Sets entry index to source; 0 when there is no table or index is out of
    // range, else 1. Shared copies see the change.
    int SetEntry(long index, int32_t source);
    // Entry index, or -1 when there is no table or index is out of range.
    int32_t GetEntry(long index) const;
    // The table (null when there is none).
    const int32_t* GetMap() const { return m_pnMap; }
    const unsigned char* GetHeader() const { return m_Header; }

protected:
    int IsOutOfRange();
    int IsBijective();

    unsigned char m_Header[kHeaderSize] = {};
    int m_bValid = 0;
    int32_t* m_pnMap = nullptr;

private:
    // Apply (inverse false) or UnApply (inverse true) for any pixel type.
    template <class T>
    int ReorderT(T* image, bool inverse);
    void MakeHeader(unsigned short point, unsigned short line);

    // The work buffer of Apply and UnApply, grown on demand and kept. It is
    // not shared: a copy starts without one, an assignment keeps its own. A
    // call that finds it in use (the same mapping applied on two threads at
    // once) works in a buffer of its own.
    class Scratch {
    public:
        Scratch() = default;
        Scratch(const Scratch&) {}
        Scratch& operator=(const Scratch&) { return *this; }
        // At least bytes bytes, suitably aligned for any pixel type, until
        // Release(); spare holds them when the kept buffer is in use.
        unsigned char* Take(size_t bytes, std::unique_ptr<unsigned char[]>& spare);
        void Release(const unsigned char* taken);

    private:
        std::unique_ptr<unsigned char[]> m_pData;
        size_t m_nBytes = 0;
        std::atomic<bool> m_bBusy{false};
    };

    std::shared_ptr<int32_t[]> m_pOwner;  // owns m_pnMap, shared by copies
    Scratch m_Scratch;
};

}  // namespace thermokit
