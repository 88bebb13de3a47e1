#include "thermokit/nuc/CNucFile.h"

#include <cstring>
#include <string>

#include "thermokit/environment/CRegistry.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/Text.h"

namespace thermokit {

namespace {

constexpr char kSignature[4] = {'N', 'U', 'C', '\0'};
constexpr uint32_t kHeaderSize = sizeof(CNucFile::NUC_FILE_HEADER);
constexpr uint32_t kDescSize = sizeof(CNucFile::NUC_TABLE_DESC);
constexpr uint32_t kTableSize = sizeof(CNucFile::NUC_TABLE);

// Copies a text with its terminating NUL into a fixed field, leaving the
// bytes after the NUL as they were. A text too long for the field is cut so
// that the field still ends with a NUL. A null text counts as empty.
template <size_t N>
void CopyWhole(char (&field)[N], const char* text) {
    const size_t len = text ? std::strlen(text) : 0;
    const size_t n = len < N ? len : N - 1;
    if (n) std::memcpy(field, text, n);
    field[n] = '\0';
}

// " %d" with the record's number counted from 1.
std::string Name(const char* base, int index) { return std::string(base) + Format(" %d", index + 1); }

}  // namespace

CNucFile::CNucFile(const char* fileName) {
    Init();
    Read(fileName);
}

CNucFile::CNucFile(int fromRegistry) {
    Init();
    if (fromRegistry) GetRegistry();
}

void CNucFile::Init() {
    std::memset(&m_Header, 0, sizeof m_Header);
    std::memcpy(m_Header.szSignature, "NUC", 3);
    std::memcpy(m_Header.szVersion, "5.60", 4);
    m_Header.dwHeaderSize = kHeaderSize;
    m_Header.byMarker = 0x1A;
    m_Header.wNbTables = kMaxTables;
    m_Header.wNbWindow = kMaxWindows;
    for (auto& t : m_Table) {
        std::memset(&t, 0, sizeof t);
        t.dwSize = kTableSize;
    }
    for (auto& d : m_Desc) {
        std::memset(&d, 0, sizeof d);
        d.dwSize = kDescSize;
    }
    m_bValid = 1;
}

int CNucFile::Read(const char* fileName) {
    ClearLastError();
    m_bValid = 0;
    File file;
    if (!fileName) return SetLastError(ErrorKind::Argument, "no file name");
    if (!file.Open(fileName, File::modeRead | File::shareDenyWrite)) return SetLastError("cannot be opened", file);
    NUC_FILE_HEADER header;
    if (!file.ReadRecord(&header, sizeof header))
        return SetReadError(file, "not a NUC catalogue (shorter than the 258-byte header)");
    if (std::memcmp(header.szSignature, kSignature, 4) != 0)
        return SetLastError(ErrorKind::Format, "not a NUC catalogue (signature \"NUC\" expected)");
    // The capacity is fixed: larger counts, or a file shorter than its
    // counts, are refused before anything is read into the records.
    const uint32_t windows = header.wNbWindow;
    const uint32_t tables = header.wNbTables;
    if (windows > kMaxWindows || tables > kMaxTables)
        return SetLastError(ErrorKind::Format, "damaged: " + std::to_string(windows) + " sub-windows and " +
                                                   std::to_string(tables) + " tables, more than the " +
                                                   std::to_string(kMaxWindows) + " and " +
                                                   std::to_string(kMaxTables) + " a catalogue holds");
    const int64_t needed = int64_t{kHeaderSize} + int64_t{windows} * kDescSize + int64_t{tables} * kTableSize;
    const int64_t length = file.GetLength();
    if (length < needed)
        return SetLastError(ErrorKind::Format, "shorter than its records (" + std::to_string(length) + " bytes, " +
                                                   std::to_string(needed) + " expected)");
    NUC_TABLE_DESC desc[kMaxWindows];
    NUC_TABLE table[kMaxTables];
    if ((windows && !file.ReadRecord(desc, windows * kDescSize)) ||
        (tables && !file.ReadRecord(table, tables * kTableSize)))
        return SetReadError(file, "shorter than its records");
    m_Header = header;
    std::memcpy(m_Desc, desc, windows * kDescSize);
    std::memcpy(m_Table, table, tables * kTableSize);
    m_bValid = 1;
    return 1;
}

int CNucFile::Save(const char* fileName, int toRegistry) {
    File file;
    if (!fileName) return SetLastError(ErrorKind::Argument, "no file name");
    if (!file.Open(fileName, File::modeCreate | File::modeWrite | File::shareDenyWrite))
        return SetLastError("cannot be created", file);
    // Counts are kept within the capacity by every setter and reader.
    const uint32_t windows = m_Header.wNbWindow <= kMaxWindows ? m_Header.wNbWindow : kMaxWindows;
    const uint32_t tables = m_Header.wNbTables <= kMaxTables ? m_Header.wNbTables : kMaxTables;
    const bool ok = file.Write(&m_Header, sizeof m_Header) && (!windows || file.Write(m_Desc, windows * kDescSize)) &&
                    (!tables || file.Write(m_Table, tables * kTableSize));
    if (!ok) return SetLastError("cannot be written", file);
    file.Close();
    if (toRegistry) SetRegistry();
    return 1;
}

int CNucFile::SetMaxWindowing(unsigned short count) {
    if (count > kMaxWindows) return 0;
    m_Header.wNbWindow = count;
    return 1;
}

int CNucFile::SetWindowing(unsigned short window, unsigned short nbTables, CRect* rect) {
    if (window >= m_Header.wNbWindow || window >= kMaxWindows) return 0;
    m_Desc[window].wNbTables = nbTables;
    if (rect) m_Desc[window].rcWindow = NUC_RECT{rect->left, rect->top, rect->right, rect->bottom};
    return 1;
}

int CNucFile::GetWindowing(unsigned short window, NUC_TABLE_DESC* desc) const {
    if (window >= m_Header.wNbWindow || window >= kMaxWindows) return 0;
    if (desc) std::memcpy(desc, &m_Desc[window], sizeof *desc);
    return 1;
}

int CNucFile::GetTableIndex(unsigned short window, unsigned short table) const {
    if (window >= m_Header.wNbWindow || window >= kMaxWindows) return -1;
    if (table >= m_Desc[window].wNbTables) return -1;
    int index = 0;
    for (int w = 0; w < window; ++w) index += m_Desc[w].wNbTables;
    index += table;
    return index >= kMaxTables ? -1 : index;
}

int CNucFile::GetTable(unsigned short window, unsigned short table, NUC_TABLE* out) const {
    const int index = GetTableIndex(window, table);
    if (index < 0) return 0;
    if (out) std::memcpy(out, &m_Table[index], sizeof *out);
    return 1;
}

int CNucFile::SetTable(unsigned short window, unsigned short table, const char* scene, unsigned short frequency,
                       unsigned short integration, unsigned short filter, const char* filterName,
                       int /*updated*/, const char* uiLabel, const char* dbLabel) {
    const int index = GetTableIndex(window, table);
    if (index < 0) return 0;
    NUC_TABLE& t = m_Table[index];
    CopyWhole(t.szScene, scene);
    t.wFrequency = frequency;
    t.wIntegration = integration;
    t.wFilter = filter;
    CopyWhole(t.szFilterName, filterName);
    // updated is not stored, and the lens is left alone: kept on purpose.
    CopyWhole(t.szUILabel, uiLabel);
    CopyWhole(t.szDBLabel, dbLabel);
    return 1;
}

int CNucFile::SetRegistry() {
    CRegistry reg(CRegistry::GlobalData, "NucFile", "");
    // Some 240 values: one transaction per store, so the mirror is quick and
    // never left half written.
    RegistryBatch userBatch(reg.m_hKeyUser);
    RegistryBatch machineBatch(reg.m_bAdmin ? reg.m_hKeyMachine : HKEY());
    int ok = 1;
    ok &= reg.SetWORDValue("Nb Tables", m_Header.wNbTables) ? 1 : 0;
    ok &= reg.SetWORDValue("Nb Window", m_Header.wNbWindow) ? 1 : 0;
    for (int n = 0; n < m_Header.wNbWindow && n < kMaxWindows; ++n) {
        const NUC_TABLE_DESC& d = m_Desc[n];
        ok &= reg.SetWORDValue(Name("Desc / Nb Tables", n).c_str(), d.wNbTables) ? 1 : 0;
        ok &= reg.SetINTValue(Name("Desc / left", n).c_str(), d.rcWindow.left) ? 1 : 0;
        ok &= reg.SetINTValue(Name("Desc / top", n).c_str(), d.rcWindow.top) ? 1 : 0;
        ok &= reg.SetINTValue(Name("Desc / right", n).c_str(), d.rcWindow.right) ? 1 : 0;
        ok &= reg.SetINTValue(Name("Desc / bottom", n).c_str(), d.rcWindow.bottom) ? 1 : 0;
    }
    for (int n = 0; n < m_Header.wNbTables && n < kMaxTables; ++n) {
        const NUC_TABLE& t = m_Table[n];
        ok &= reg.SetSTRINGValue(Name("Table / Scene", n).c_str(), GetTextField(t.szScene, sizeof t.szScene).c_str()) ? 1 : 0;
        ok &= reg.SetWORDValue(Name("Table / Frequency", n).c_str(), t.wFrequency) ? 1 : 0;
        ok &= reg.SetWORDValue(Name("Table / Integration", n).c_str(), t.wIntegration) ? 1 : 0;
        ok &= reg.SetWORDValue(Name("Table / Filter", n).c_str(), t.wFilter) ? 1 : 0;
        ok &= reg.SetSTRINGValue(Name("Table / Filter Name", n).c_str(),
                                 GetTextField(t.szFilterName, sizeof t.szFilterName).c_str()) ? 1 : 0;
        ok &= reg.SetBOOLValue(Name("Table / Updated", n).c_str(), t.bUpdated) ? 1 : 0;
        ok &= reg.SetSTRINGValue(Name("Table / UI Label", n).c_str(),
                                 GetTextField(t.szUILabel, sizeof t.szUILabel).c_str()) ? 1 : 0;
        ok &= reg.SetSTRINGValue(Name("Table / DB Label", n).c_str(),
                                 GetTextField(t.szDBLabel, sizeof t.szDBLabel).c_str()) ? 1 : 0;
        ok &= reg.SetSTRINGValue(Name("Table / Lens", n).c_str(), GetTextField(t.szLens, sizeof t.szLens).c_str()) ? 1 : 0;
    }
    ok &= machineBatch.Commit() ? 1 : 0;
    ok &= userBatch.Commit() ? 1 : 0;
    return ok;
}

int CNucFile::GetRegistry() {
    CRegistry reg(CRegistry::GlobalData, "NucFile", "");
    // A missing value keeps the field as it is; counts beyond the capacity
    // are refused and change nothing.
    const unsigned short tables = reg.GetWORDValue("Nb Tables", m_Header.wNbTables);
    const unsigned short windows = reg.GetWORDValue("Nb Window", m_Header.wNbWindow);
    if (tables > kMaxTables || windows > kMaxWindows) return 0;
    m_Header.wNbTables = tables;
    m_Header.wNbWindow = windows;
    for (int n = 0; n < windows; ++n) {
        NUC_TABLE_DESC& d = m_Desc[n];
        d.wNbTables = reg.GetWORDValue(Name("Desc / Nb Tables", n).c_str(), d.wNbTables);
        d.rcWindow.left = reg.GetINTValue(Name("Desc / left", n).c_str(), d.rcWindow.left);
        d.rcWindow.top = reg.GetINTValue(Name("Desc / top", n).c_str(), d.rcWindow.top);
        d.rcWindow.right = reg.GetINTValue(Name("Desc / right", n).c_str(), d.rcWindow.right);
        d.rcWindow.bottom = reg.GetINTValue(Name("Desc / bottom", n).c_str(), d.rcWindow.bottom);
    }
    for (int n = 0; n < tables; ++n) {
        NUC_TABLE& t = m_Table[n];
        auto text = [&](const char* base, auto& field) {
            const std::string current = GetTextField(field, sizeof field);
            CopyWhole(field, reg.GetSTRINGValue(Name(base, n).c_str(), current.c_str()).c_str());
        };
        text("Table / Scene", t.szScene);
        t.wFrequency = reg.GetWORDValue(Name("Table / Frequency", n).c_str(), t.wFrequency);
        t.wIntegration = reg.GetWORDValue(Name("Table / Integration", n).c_str(), t.wIntegration);
        t.wFilter = reg.GetWORDValue(Name("Table / Filter", n).c_str(), t.wFilter);
        text("Table / Filter Name", t.szFilterName);
        t.bUpdated = reg.GetBOOLValue(Name("Table / Updated", n).c_str(), t.bUpdated);
        text("Table / UI Label", t.szUILabel);
        text("Table / DB Label", t.szDBLabel);
        text("Table / Lens", t.szLens);
    }
    return 1;
}

}  // namespace thermokit
