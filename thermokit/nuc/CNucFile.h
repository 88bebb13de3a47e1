#pragma once
// The catalogue of a camera's NUC tables: up to 24 table descriptions grouped
// under up to 4 detector sub-windows. It holds no gain or offset values, only
// what each table is (scene, frequency, integration, filter, labels, lens).
//
// File layout (little-endian, packed): the 258-byte header, then wNbWindow
// sub-window records of 70 bytes, then wNbTables table records of 522 bytes.
// In memory the tables come first, then the sub-windows.
//
// Tables are numbered 0 to 23 across the sub-windows: those of sub-window 0
// first, then those of sub-window 1, and so on.
#include <cstddef>
#include <cstdint>

#include "thermokit/platform/CRect.h"
#include "thermokit/platform/LastError.h"

namespace thermokit {

class CNucFile : public LastError {
public:
    static constexpr int kMaxTables = 24;
    static constexpr int kMaxWindows = 4;

#pragma pack(push, 1)
    // A rectangle of four signed 32-bit edges, as stored in the file. Packed
    // (alignment 1), so it can sit at any offset of a record; converts to and
    // compares with CRect.
    struct NUC_RECT {
        int32_t left;
        int32_t top;
        int32_t right;
        int32_t bottom;
        operator CRect() const { return CRect(left, top, right, bottom); }
        bool operator==(const CRect& r) const {
            return left == r.left && top == r.top && right == r.right && bottom == r.bottom;
        }
    };

    struct NUC_FILE_HEADER {
        char szSignature[5];    // "NUC" and two NULs
        char szVersion[5];      // "5.60" and a NUL
        uint32_t dwHeaderSize;  // 258
        uint8_t byMarker;       // 0x1A
        uint16_t wNbTables;     // table records in the file
        uint16_t wNbWindow;     // sub-window records in the file
        uint8_t reserved[239];
    };

    // One sub-window.
    struct NUC_TABLE_DESC {
        uint32_t dwSize;     // 70
        uint16_t wNbTables;  // tables of this sub-window
        NUC_RECT rcWindow;   // the sub-window on the detector
        uint8_t reserved[48];
    };

    // One table.
    struct NUC_TABLE {
        uint32_t dwSize;  // 522
        char szScene[25];
        uint16_t wFrequency;
        uint16_t wIntegration;
        uint16_t wFilter;
        char szFilterName[20];
        int32_t bUpdated;
        char szUILabel[100];
        char szDBLabel[100];
        char szLens[263];
    };
#pragma pack(pop)

    explicit CNucFile(const char* fileName);
    explicit CNucFile(int fromRegistry = 0);
    ~CNucFile() = default;
    CNucFile(const CNucFile&) = default;
    CNucFile& operator=(const CNucFile&) = default;

    // Header set to signature, version, 258, marker, 24 tables, 4 sub-windows;
    // every record zeroed with its size; valid.
    void Init();
    // 1 on success. 0 (and the object invalid, its contents unchanged) when
    // the file cannot be opened, its signature is not "NUC", its counts exceed
    // 24 tables or 4 sub-windows, or it is shorter than its counts say.
    int Read(const char* fileName);
    // Writes the file (and mirrors into the store when toRegistry != 0).
    // 0 when the file cannot be created or written.
    int Save(const char* fileName, int toRegistry);
    int IsValid() const { return m_bValid ? 1 : 0; }

    int SetMaxWindowing(unsigned short count);
    unsigned short GetMaxWindowing() const { return m_Header.wNbWindow; }
    int SetWindowing(unsigned short window, unsigned short nbTables, CRect* rect);
    int GetWindowing(unsigned short window, NUC_TABLE_DESC* desc) const;
    int GetTable(unsigned short window, unsigned short table, NUC_TABLE* out) const;
    // Stores the texts and numbers of a table. The updated flag is accepted
    // and not stored: bUpdated and szLens come only from a file or the store.
    int SetTable(unsigned short window, unsigned short table, const char* scene, unsigned short frequency,
                 unsigned short integration, unsigned short filter, const char* filterName, int updated,
                 const char* uiLabel, const char* dbLabel);

    // Mirror under the well-known key "Global Data", section "NucFile".
    int SetRegistry();
    int GetRegistry();

    const NUC_FILE_HEADER& GetHeader() const { return m_Header; }

protected:
    // Global table number of (window, table), or -1.
    int GetTableIndex(unsigned short window, unsigned short table) const;

    NUC_FILE_HEADER m_Header;
    NUC_TABLE m_Table[kMaxTables];
    NUC_TABLE_DESC m_Desc[kMaxWindows];
    int32_t m_bValid;
};

static_assert(sizeof(CNucFile::NUC_FILE_HEADER) == 258);
static_assert(offsetof(CNucFile::NUC_FILE_HEADER, szVersion) == 5);
static_assert(offsetof(CNucFile::NUC_FILE_HEADER, dwHeaderSize) == 10);
static_assert(offsetof(CNucFile::NUC_FILE_HEADER, byMarker) == 14);
static_assert(offsetof(CNucFile::NUC_FILE_HEADER, wNbTables) == 15);
static_assert(offsetof(CNucFile::NUC_FILE_HEADER, wNbWindow) == 17);
static_assert(offsetof(CNucFile::NUC_FILE_HEADER, reserved) == 19);

static_assert(sizeof(CNucFile::NUC_RECT) == 16);
static_assert(alignof(CNucFile::NUC_RECT) == 1);
static_assert(sizeof(CNucFile::NUC_TABLE_DESC) == 70);
static_assert(offsetof(CNucFile::NUC_TABLE_DESC, wNbTables) == 4);
static_assert(offsetof(CNucFile::NUC_TABLE_DESC, rcWindow) == 6);
static_assert(offsetof(CNucFile::NUC_TABLE_DESC, reserved) == 22);

static_assert(sizeof(CNucFile::NUC_TABLE) == 522);
static_assert(offsetof(CNucFile::NUC_TABLE, szScene) == 4);
static_assert(offsetof(CNucFile::NUC_TABLE, wFrequency) == 29);
static_assert(offsetof(CNucFile::NUC_TABLE, wIntegration) == 31);
static_assert(offsetof(CNucFile::NUC_TABLE, wFilter) == 33);
static_assert(offsetof(CNucFile::NUC_TABLE, szFilterName) == 35);
static_assert(offsetof(CNucFile::NUC_TABLE, bUpdated) == 55);
static_assert(offsetof(CNucFile::NUC_TABLE, szUILabel) == 59);
static_assert(offsetof(CNucFile::NUC_TABLE, szDBLabel) == 159);
static_assert(offsetof(CNucFile::NUC_TABLE, szLens) == 259);

}  // namespace thermokit
