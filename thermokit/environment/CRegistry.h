#pragma once
// The typed settings store over the product's key tree.
//
// A CRegistry opens one key twice: under the machine root and under the
// current user's root. Reads look at the user's copy first, then the
// machine's, then return the caller's default. Writes go to the user's copy
// and, for administrators, to the machine's copy too.
//
// Constructors and their paths:
//   CRegistry(RegKey, sub1, sub2)  the well-known key of the table below, with
//                                  each non-empty sub-key appended (a sub-key
//                                  may itself hold several components
//                                  separated by backslashes).
//   CRegistry(HKEY)                wraps an open key; it becomes the only key
//                                  (held as the user key: reads and writes go
//                                  to it alone).
//   CRegistry(driver, device, board, channel, system, newApi)
//                                  the settings of one channel of an
//                                  acquisition board:
//                                  system != 0: "System\CurrentControlSet\Services"
//                                               \ driver \ device \ "Board <board>"
//                                               \ "Channel <channel>",
//                                               under the machine root only;
//                                  system == 0: "Software\Orbel\Marlon" \ driver
//                                               \ device \ "Board <board>"
//                                               \ "Channel <channel>",
//                                               under both roots.
//                                  An empty or null text and a negative number
//                                  leave their component out. newApi == 0
//                                  selects the legacy form.
//   CRegistry(product, index)      "Software\Orbel\Setup\Quorin" \ product
//                                  \ "<index>" (left out when negative), under
//                                  both roots, always in the legacy form: the
//                                  installers of those products write values
//                                  that way.
//
// Value encodings (normal form):
//   INT     text "%d" (string type, terminator included), read back with
//           "%d" from a 49-byte buffer: "12abc" reads 12, "abc" the default.
//   DOUBLE  text "%.*lf" with the requested decimals, read with "%lf", 49 bytes.
//   DWORD   double-word type.
//   BOOL    double-word holding the value as given.
//   WORD    double-word holding the value zero-extended; read back as the
//           low 16 bits of the double-word.
//   STRING  string type; read with a 255-byte buffer (terminator included):
//           a longer text does not fit, and the read falls through to the
//           next root as any failed read does.
// A read "fails" when the value is missing, has another type or does not fit
// the buffer; then the machine's copy is tried, then the default is used.
//
// Legacy form (m_bNewApi == 0): a value is a sub-key of the value's name whose
// default value holds the data as text; double-words (and BOOL and WORD) are
// "%lu" text, and text that does not parse counts as a failed read (error
// 234). A value of 1,000 bytes or more (terminator included) is not written,
// and the call reports success.
#include <cstdint>
#include <string>

#include "thermokit/environment/RegistryStore.h"
#include "thermokit/platform/LastError.h"

namespace thermokit {

class CRegistry : public LastError {
public:
    // The well-known keys (roots: M machine, U user).
    enum RegKey {
        GlobalData = 0,       // Software\Orbel\Global Data                   M U
        CommonSetup = 1,      // Software\Orbel\Common Setup                  M U
        ApplicationData = 2,  // Software\Orbel\Application Data              M U
        Services = 3,         // Software\CurrentControlSet\Services          M U (kept under "Software" on purpose)
        Boards = 4,           // Software\Orbel\Common Setup\Boards           M U
        Cameras = 5,          // Software\Orbel\Common Setup\Cameras          M U
        Detectors = 6,        // Software\Orbel\Common Setup\Detectors        M U
        Lenses = 7,           // Software\Orbel\Common Setup\Lenses           M U
        Setup = 8,            // Software\Orbel\Common Setup\Setup            M U
        VirtualCamera = 9,    // Software\Orbel\Application Data\Virtual Camera M U
        Install = 10,         // Software\Orbel\Install                       M
        WindowPos = 11,       // Software\Orbel\WindowPos                     U
        NetFramework = 12,    // Software\Microsoft\.NETFramework             M, read-only
    };
    static constexpr int kKeyCount = 13;

    // Path of a well-known key ("" for any other value) and its roots.
    static const char* GetKeyPath(int key);
    static bool HasMachineRoot(int key);
    static bool HasUserRoot(int key);

    CRegistry(RegKey key, const char* subKey1 = nullptr, const char* subKey2 = nullptr);
    explicit CRegistry(HKEY key);
    CRegistry(const char* driver, const char* device, int board, int channel, int system, int newApi);
    CRegistry(const char* product, int index);
    virtual ~CRegistry();

    CRegistry(const CRegistry&) = default;
    CRegistry& operator=(const CRegistry&) = default;

    // Descends both open keys into the sub-key of that name, creating it when
    // missing (where the key is writable). 1 when a key is still open.
    int GetChild(const char* name);

    int GetBOOLValue(const char* name, int defaultValue);
    int GetINTValue(const char* name, int defaultValue);
    unsigned short GetWORDValue(const char* name, unsigned short defaultValue);
    uint32_t GetDWORDValue(const char* name, uint32_t defaultValue);
    double GetDOUBLEValue(const char* name, double defaultValue);
    std::string GetSTRINGValue(const char* name, const char* defaultValue);
    // Copies at most length - 1 characters of the value (or of the default)
    // and a terminating NUL into buffer.
    void GetSTRINGValue(const char* name, const char* defaultValue, char* buffer, int length);

    int SetBOOLValue(const char* name, int value);
    int SetINTValue(const char* name, int value);
    int SetWORDValue(const char* name, unsigned short value);
    int SetDWORDValue(const char* name, uint32_t value);
    int SetSTRINGValue(const char* name, const char* value);
    int SetDOUBLEValue(const char* name, double value, int decimals);

    // Act on both keys; nonzero when either succeeded. DeleteKey removes the
    // sub-key with everything below it.
    int DeleteValue(const char* name);
    int DeleteKey(const char* name);

    // The key read first: the user's when open, else the machine's.
    HKEY GetHKey() const { return m_hKeyUser ? m_hKeyUser : m_hKeyMachine; }

    // Administrator test: effective user root, THERMOKIT_ADMIN=0|1 decides.
    static int IsUserAdmin();

    int m_bNewApi = 1;
    int m_bAdmin = 0;
    HKEY m_hKeyMachine;
    HKEY m_hKeyUser;

private:
    void OpenPath(const std::string& path, bool machine, bool user, bool machineReadOnly);
    // Reads the raw bytes of a text or double-word value, user then machine.
    bool ReadText(const char* name, size_t bufferSize, std::string* text);
    bool ReadDword(const char* name, uint32_t* value);
    // The write rule: user key first, then the machine key for administrators.
    template <class F>
    int WriteBoth(F write);
    long WriteText(const HKEY& key, const char* name, const std::string& text);
    long WriteDword(const HKEY& key, const char* name, uint32_t value);
};

// The well-known keys, also by their short name.
using RegKey = CRegistry::RegKey;

// Copies every value and sub-key below source into destination (values of
// the same name are overwritten, other values of destination are kept), in
// one transaction of the destination store. 1 on success.
int CopyRegistryTree(HKEY source, HKEY destination);

}  // namespace thermokit
