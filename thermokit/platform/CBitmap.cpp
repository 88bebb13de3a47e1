#include "thermokit/platform/CBitmap.h"

#include <cstring>

#include "thermokit/platform/CDC.h"

namespace thermokit {

int CBitmap::CreateBitmap(int width, int height, unsigned planes, unsigned bitsPerPixel, const void* bits) {
    if (planes != 1 || (bitsPerPixel != 8 && bitsPerPixel != 32)) return 0;
    if (width < 1 || height < 1) return 0;
    if (static_cast<int64_t>(width) * height > kMaxPixels) return 0;
    m_width = width;
    m_height = height;
    m_bitsPixel = static_cast<int>(bitsPerPixel);
    m_data.assign(static_cast<size_t>(width) * static_cast<size_t>(height) * (bitsPerPixel / 8), 0);
    if (bits) std::memcpy(m_data.data(), bits, m_data.size());
    return 1;
}

int CBitmap::CreateCompatibleBitmap(CDC* dc, int width, int height) {
    const unsigned bits = (dc && dc->IsWindowDC()) ? 32u : 8u;
    return CreateBitmap(width, height, 1, bits, nullptr);
}

void CBitmap::DeleteObject() {
    m_width = m_height = m_bitsPixel = 0;
    m_data.clear();
    m_data.shrink_to_fit();
}

long CBitmap::GetBitmapBits(long count, void* out) const {
    if (!out || count <= 0) return 0;
    const size_t n = static_cast<size_t>(count) < m_data.size() ? static_cast<size_t>(count) : m_data.size();
    std::memcpy(out, m_data.data(), n);
    return static_cast<long>(n);
}

}  // namespace thermokit
