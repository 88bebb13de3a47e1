#pragma once
// Logical palettes. A tagLOGPALETTE is the header and the entries of a
// palette as the window system takes them; the one here has room for 256
// entries and one spare (1,032 bytes). CPalette holds a copy of the entries it
// was created from.
#include <cstddef>
#include <cstdint>

namespace thermokit {

#pragma pack(push, 1)
struct tagPALETTEENTRY {
    uint8_t peRed;
    uint8_t peGreen;
    uint8_t peBlue;
    uint8_t peFlags;
};
struct tagLOGPALETTE {
    uint16_t palVersion;
    uint16_t palNumEntries;
    tagPALETTEENTRY palPalEntry[257];
};
#pragma pack(pop)
using PALETTEENTRY = tagPALETTEENTRY;
using LOGPALETTE = tagLOGPALETTE;

static_assert(sizeof(tagPALETTEENTRY) == 4);
static_assert(offsetof(tagPALETTEENTRY, peRed) == 0 && offsetof(tagPALETTEENTRY, peGreen) == 1 &&
              offsetof(tagPALETTEENTRY, peBlue) == 2 && offsetof(tagPALETTEENTRY, peFlags) == 3);
static_assert(sizeof(tagLOGPALETTE) == 1032);
static_assert(offsetof(tagLOGPALETTE, palVersion) == 0 && offsetof(tagLOGPALETTE, palNumEntries) == 2 &&
              offsetof(tagLOGPALETTE, palPalEntry) == 4);

// Palette entry flags.
enum : uint8_t { PC_RESERVED = 0x01, PC_EXPLICIT = 0x02, PC_NOCOLLAPSE = 0x04 };

// Most entries a palette can hold.
constexpr int kMaxPaletteEntries = 256;

class CPalette {
public:
    CPalette() = default;
    virtual ~CPalette() = default;
    CPalette(const CPalette&) = default;
    CPalette& operator=(const CPalette&) = default;

    // Copies the header and palNumEntries entries (at most 256); 0 when
    // logPalette is null or holds no entry.
    int CreatePalette(const tagLOGPALETTE* logPalette);
    void DeleteObject();
    bool IsCreated() const { return m_created; }

    // Number of entries (0 when not created).
    int GetEntryCount() const { return m_created ? m_palette.palNumEntries : 0; }
    // Copies up to count entries from start; returns how many were copied.
    unsigned GetPaletteEntries(unsigned start, unsigned count, tagPALETTEENTRY* entries) const;
    unsigned SetPaletteEntries(unsigned start, unsigned count, const tagPALETTEENTRY* entries);
    // Index of the entry nearest in colour to colour (0x00BBGGRR, matched
    // against peRed/peGreen/peBlue); -1 when empty.
    int GetNearestPaletteIndex(uint32_t colour) const;

private:
    tagLOGPALETTE m_palette{};
    bool m_created = false;
};

}  // namespace thermokit
