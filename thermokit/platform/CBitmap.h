#pragma once
// An in-memory bitmap: 32 bits a pixel (bytes blue, green, red, spare) or
// 8 bits a pixel (slots of the emulated system palette). Rows are stored top
// row first with no padding.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace thermokit {

class CDC;

class CBitmap {
public:
    CBitmap() = default;
    virtual ~CBitmap() = default;

    // Largest bitmap accepted, in pixels (keeps hostile sizes from allocating blindly).
    static constexpr int64_t kMaxPixels = int64_t{1} << 28;

    // bitsPerPixel 8 or 32, planes 1; bits (may be null: cleared) holds
    // width x height pixels. Returns 0 for any other format or a size out of range.
    int CreateBitmap(int width, int height, unsigned planes, unsigned bitsPerPixel, const void* bits);
    // A bitmap of the kind dc draws: 32-bit for a window's context, 8-bit
    // palette slots for the display and memory contexts (see CDC).
    int CreateCompatibleBitmap(CDC* dc, int width, int height);
    void DeleteObject();

    bool IsCreated() const { return m_bitsPixel != 0; }
    int GetWidth() const { return m_width; }
    int GetHeight() const { return m_height; }
    int GetBitsPixel() const { return m_bitsPixel; }
    int GetBytesPixel() const { return m_bitsPixel / 8; }
    size_t GetStride() const { return static_cast<size_t>(m_width) * static_cast<size_t>(GetBytesPixel()); }
    uint8_t* GetBits() { return m_data.data(); }
    const uint8_t* GetBits() const { return m_data.data(); }
    size_t GetByteCount() const { return m_data.size(); }
    // Copies up to count bytes of the pixels into out; returns the bytes copied.
    long GetBitmapBits(long count, void* out) const;

private:
    int m_width = 0;
    int m_height = 0;
    int m_bitsPixel = 0;
    std::vector<uint8_t> m_data;
};

}  // namespace thermokit
