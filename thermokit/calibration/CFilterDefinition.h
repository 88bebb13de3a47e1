#pragma once
// The optical band filter in front of the detector, and its short name:
// code, wavelength part, "_", transmission, "%" (e.g. "WI_3.70-4.10_085%").
#include <string>

namespace thermokit {

class CFilterDefinition {
public:
    enum FilterType { FT_NONE = -1, FT_LP = 0, FT_HP = 1, FT_WI = 2, FT_NA = 3, FT_NE = 4 };
    enum FilterDefType { FD_NONE = -1, FD_CUT = 0, FD_CENTRAL = 1 };

    // Starts undefined; a non-empty name is parsed (see ParseFilter).
    explicit CFilterDefinition(const char* name = nullptr);
    CFilterDefinition(const CFilterDefinition&) = default;
    CFilterDefinition& operator=(const CFilterDefinition&) = default;
    virtual ~CFilterDefinition();

    int SetFilterType(FilterType type) { m_Type = type; return 1; }
    FilterType GetFilterType() const { return m_Type; }
    int SetDefinitionType(FilterDefType type) { m_DefType = type; return 1; }
    FilterDefType GetDefinitionType() const { return m_DefType; }
    int SetCutOn(float v) { m_fCutOn = v; return 1; }
    float GetCutOn() const { return m_fCutOn; }
    int SetCutOff(float v) { m_fCutOff = v; return 1; }
    float GetCutOff() const { return m_fCutOff; }
    int SetMiddleWavelength(float v) { m_fMiddleWavelength = v; return 1; }
    float GetMiddleWavelength() const { return m_fMiddleWavelength; }
    int SetWidth(float v) { m_fWidth = v; return 1; }
    float GetWidth() const { return m_fWidth; }
    int SetTransmission(float v) { m_fTransmission = v; return 1; }
    float GetTransmission() const { return m_fTransmission; }

    // Builds the name; 0 with the reason in GetError() when the definition is incomplete.
    int FormatFilter(std::string& name);
    // Reads a name back (both band forms are filled); 0 with the reason in GetError().
    int ParseFilter(std::string name);
    std::string GetError() const { return m_strError; }

private:
    int Fail(const char* text) { m_strError = text; return 0; }

    float m_fCutOn = 0.0f;
    float m_fCutOff = 0.0f;
    float m_fMiddleWavelength = 0.0f;
    float m_fWidth = 0.0f;
    float m_fTransmission = 0.0f;
    FilterDefType m_DefType = FD_NONE;
    FilterType m_Type = FT_NONE;
    std::string m_strError;
};

}  // namespace thermokit
