#include "thermokit/calibration/CFilterDefinition.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "thermokit/platform/Messages.h"

namespace thermokit {

namespace {

// A wavelength printed with "%3.2f" and cut to 4 characters (10.50 gives "10.5").
std::string FormatWavelength(float v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%3.2f", static_cast<double>(v));
    return std::string(buf).substr(0, 4);
}

// A transmission printed with "%03.0f" and cut to 3 characters (85 gives "085").
std::string FormatTransmission(float v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%03.0f", static_cast<double>(v));
    return std::string(buf).substr(0, 3);
}

// atof of characters first..last (inclusive) of the name, whatever of them exists.
double Field(const std::string& name, size_t first, size_t last) {
    if (first >= name.size()) return 0.0;
    return std::atof(name.substr(first, last - first + 1).c_str());
}

}  // namespace

CFilterDefinition::CFilterDefinition(const char* name) {
    if (name && *name) ParseFilter(name);
}

CFilterDefinition::~CFilterDefinition() = default;

int CFilterDefinition::FormatFilter(std::string& name) {
    float first = 0.0f;
    float second = 0.0f;
    const int type = m_Type;
    if (m_DefType == FD_CUT) {
        if (type != FT_LP && type != FT_NE && !(m_fCutOn > 0.0f)) return Fail("Cut On not defined or incorrect.");
        if (type != FT_HP && type != FT_NE && !(m_fCutOff > 0.0f)) return Fail("Cut Off not defined or incorrect.");
        // Equal values are refused too, whatever the message says.
        if ((type == FT_WI || type == FT_NA) && !(m_fCutOff > m_fCutOn))
            return Fail("Cut On must be less or equal to Cut Off.");
        first = m_fCutOn;
        second = m_fCutOff;
    } else if (m_DefType == FD_CENTRAL) {
        if (type == FT_LP || type == FT_HP || type == FT_NE)
            return Fail("Cannot process central wavelength definition for that type of filter.");
        if (!(m_fMiddleWavelength > 0.0f)) return Fail("Central wavelength not defined or incorrect.");
        if (!(m_fWidth > 0.0f)) return Fail("Filter width not defined or incorrect.");
        if (m_fMiddleWavelength < m_fWidth) return Fail("Central wavelength must be higher than width.");
        first = m_fMiddleWavelength;
        second = m_fWidth;
    } else {
        return Fail("Definition m_Type not defined.");
    }

    const char* code = nullptr;
    std::string band;
    switch (type) {
        case FT_LP: code = "LP"; band = FormatWavelength(second); break;
        case FT_HP: code = "HP"; band = FormatWavelength(first); break;
        case FT_WI:
        case FT_NA:
            code = type == FT_WI ? "WI" : "NA";
            band = FormatWavelength(first);
            band.push_back('-');
            band.append(FormatWavelength(second));
            break;
        case FT_NE: code = "NE"; break;
        default: return Fail("m_Type not defined");
    }
    if (!(m_fTransmission > 0.0f && m_fTransmission <= 100.0f))
        return Fail("Filter transmission not defined or incorrect.");
    char buf[96];
    const std::string wavelengths = band.empty() ? std::string() : Format("_%s", band.c_str());
    std::snprintf(buf, sizeof buf, "%s%s_%s%%", code, wavelengths.c_str(), FormatTransmission(m_fTransmission).c_str());
    name = buf;
    return 1;
}

int CFilterDefinition::ParseFilter(std::string name) {
    if (name.size() > 17) return Fail("Incorrect filter definition.");
    std::string code;
    for (size_t i = 0; i < 2 && i < name.size(); ++i)
        code += static_cast<char>(std::toupper(static_cast<unsigned char>(name[i])));
    double transmission = 0.0;
    if (code == "LP" || code == "HP") {
        const double wavelength = Field(name, 3, 6);
        transmission = Field(name, 8, 10);
        if (code == "LP") {
            m_Type = FT_LP;
            m_fCutOff = static_cast<float>(wavelength);
        } else {
            m_Type = FT_HP;
            m_fCutOn = static_cast<float>(wavelength);
        }
        m_DefType = FD_CUT;
    } else if (code == "WI" || code == "NA") {
        m_Type = code == "WI" ? FT_WI : FT_NA;
        const double a = Field(name, 3, 6);
        const double b = Field(name, 8, 11);
        transmission = Field(name, 13, 15);
        if (transmission == 0.0) return Fail("Unable to parse transmission");
        if (a < b) {
            m_DefType = FD_CUT;
            m_fCutOn = static_cast<float>(a);
            m_fCutOff = static_cast<float>(b);
            m_fWidth = static_cast<float>(b - a);
            m_fMiddleWavelength = static_cast<float>(a + (b - a) * 0.5);
        } else {
            m_DefType = FD_CENTRAL;
            m_fMiddleWavelength = static_cast<float>(a);
            m_fWidth = static_cast<float>(b);
            m_fCutOn = static_cast<float>(a - b * 0.5);
            m_fCutOff = static_cast<float>(a + b * 0.5);
        }
    } else if (code == "NE") {
        m_Type = FT_NE;
        m_DefType = FD_CUT;
        transmission = Field(name, 3, 5);
    } else {
        return Fail("Unable to parse filter type");
    }
    if (transmission == 0.0) return Fail("Unable to parse transmission");
    m_fTransmission = static_cast<float>(transmission);
    return 1;
}

}  // namespace thermokit
