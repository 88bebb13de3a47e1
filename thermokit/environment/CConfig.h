#pragma once
// The camera configuration record: camera, lens, image size, bit depth,
// rotation, detector, spectral band and serial numbers, kept under the
// well-known key "Common Setup\Setup" of the settings store.
#include <cstdint>
#include <string>

namespace thermokit {

class CConfig {
public:
    // Sets the defaults; with load != 0 then reads the store (GetRegistry).
    explicit CConfig(int load = 0);
    virtual ~CConfig() = default;

    // Reads every field, its current value as the default. Returns 1.
    int GetRegistry();
    // Writes "Camera", "Lens", "Point", "Line", "Rotation", "Detector", "Band",
    // "Serial", "LensSerial" in that order ("Bit" is read but never written:
    // kept on purpose). 1 when every write succeeded.
    int SetRegistry();

    const std::string& GetCamera() const { return m_strCamera; }
    void SetCamera(const std::string& camera) { m_strCamera = camera; }
    const std::string& GetLens() const { return m_strLens; }
    void SetLens(const std::string& lens) { m_strLens = lens; }
    unsigned short GetPoint() const { return m_nPoint; }
    void SetPoint(unsigned short point) { m_nPoint = point; }
    unsigned short GetLine() const { return m_nLine; }
    void SetLine(unsigned short line) { m_nLine = line; }
    unsigned short GetBit() const { return m_nBit; }
    void SetBit(unsigned short bit) { m_nBit = bit; }
    unsigned short GetRotation() const { return m_nRotation; }
    void SetRotation(unsigned short rotation) { m_nRotation = rotation; }
    int32_t GetDetector() const { return m_nDetector; }
    void SetDetector(int32_t detector) { m_nDetector = detector; }
    int GetBand() const { return m_nBand; }
    void SetBand(int band) { m_nBand = band; }
    const std::string& GetSerial() const { return m_strSerial; }
    void SetSerial(const std::string& serial) { m_strSerial = serial; }
    const std::string& GetLensSerial() const { return m_strLensSerial; }
    void SetLensSerial(const std::string& serial) { m_strLensSerial = serial; }

    // Pixels per line times lines.
    uint32_t GetSize() const;
    // 2^bit - 1 for this configuration's depth (GetMaxLevel(m_nBit) of the pixel functions).
    unsigned short GetMaxLevel() const;
    // True when the rotation is 180 degrees.
    int GetInversion() const;
    // True when the rotation is exactly 360 (the code for "use the mapping").
    int GetMap() const;
    // The camera name, lower-cased, contains "sw", "mw" or "lw" (plain
    // substring tests: several can be true at once).
    int IsSW() const;
    int IsMW() const;
    int IsLW() const;
    // 0 "SW", 1 "MW", 2 "LW", 3 "UC", anything else "Unknown"; -1 (all bits
    // set) names this configuration's own band.
    std::string GetBandName(int band = -1) const;

    std::string m_strCamera;
    std::string m_strLens;
    unsigned short m_nPoint;
    unsigned short m_nLine;
    unsigned short m_nBit;
    unsigned short m_nRotation;
    int32_t m_nDetector;
    int m_nBand;
    std::string m_strSerial;
    std::string m_strLensSerial;

private:
    int HasInName(const char* part) const;
};

}  // namespace thermokit
