#include <gtest/gtest.h>

#include <string>

#include "thermokit/calibration/CFilterDefinition.h"

using namespace thermokit;

namespace {

// Why the definition cannot be written ("written" when it can).
std::string Refusal(CFilterDefinition& f, std::string& name) { return f.FormatFilter(name) ? "written" : f.GetError(); }
// Why the text cannot be read ("read" when it can).
std::string Parsed(CFilterDefinition& f, const char* text) { return f.ParseFilter(text) ? "read" : f.GetError(); }

}  // namespace

TEST(FilterDefinition, WideBandRoundTrip) {
    CFilterDefinition f;
    f.SetFilterType(CFilterDefinition::FT_WI);
    f.SetDefinitionType(CFilterDefinition::FD_CUT);
    f.SetCutOn(3.7f);
    f.SetCutOff(4.1f);
    f.SetTransmission(85.0f);
    std::string name;
    ASSERT_EQ(f.FormatFilter(name), 1);
    EXPECT_EQ(name, "WI_3.70-4.10_085%");
    CFilterDefinition back(name.c_str());
    EXPECT_EQ(back.GetFilterType(), CFilterDefinition::FT_WI);
    EXPECT_EQ(back.GetDefinitionType(), CFilterDefinition::FD_CUT);
    EXPECT_FLOAT_EQ(back.GetCutOn(), 3.7f);
    EXPECT_FLOAT_EQ(back.GetCutOff(), 4.1f);
    EXPECT_FLOAT_EQ(back.GetTransmission(), 85.0f);
    EXPECT_FLOAT_EQ(back.GetMiddleWavelength(), 3.9f);
    EXPECT_FLOAT_EQ(back.GetWidth(), 0.4f);
    // Centre and width: the first value is not below the second.
    CFilterDefinition c;
    ASSERT_EQ(c.ParseFilter("NA_4.00-0.20_050%"), 1);
    EXPECT_EQ(c.GetDefinitionType(), CFilterDefinition::FD_CENTRAL);
    EXPECT_FLOAT_EQ(c.GetCutOn(), 3.9f);
    EXPECT_FLOAT_EQ(c.GetCutOff(), 4.1f);
    ASSERT_EQ(c.FormatFilter(name), 1);
    EXPECT_EQ(name, "NA_4.00-0.20_050%");
}

TEST(FilterDefinition, NamesOfEachType) {
    CFilterDefinition f;
    std::string name;
    f.SetDefinitionType(CFilterDefinition::FD_CUT);
    f.SetTransmission(100.0f);
    f.SetFilterType(CFilterDefinition::FT_LP);
    f.SetCutOff(10.5f);
    ASSERT_EQ(f.FormatFilter(name), 1);
    EXPECT_EQ(name, "LP_10.5_100%");  // wavelengths cut to four characters
    f.SetFilterType(CFilterDefinition::FT_HP);
    f.SetCutOn(2.0f);
    ASSERT_EQ(f.FormatFilter(name), 1);
    EXPECT_EQ(name, "HP_2.00_100%");
    f.SetFilterType(CFilterDefinition::FT_NE);
    f.SetTransmission(7.4f);
    ASSERT_EQ(f.FormatFilter(name), 1);
    EXPECT_EQ(name, "NE_007%");

    CFilterDefinition lp;
    ASSERT_EQ(lp.ParseFilter("lp_4.10_080%"), 1);  // code compared without case
    EXPECT_EQ(lp.GetFilterType(), CFilterDefinition::FT_LP);
    EXPECT_FLOAT_EQ(lp.GetCutOff(), 4.1f);
    EXPECT_FLOAT_EQ(lp.GetTransmission(), 80.0f);
    CFilterDefinition hp("HP_2.00_100%");
    EXPECT_FLOAT_EQ(hp.GetCutOn(), 2.0f);
    CFilterDefinition ne("NE_050%");
    EXPECT_EQ(ne.GetFilterType(), CFilterDefinition::FT_NE);
    EXPECT_FLOAT_EQ(ne.GetTransmission(), 50.0f);
}

TEST(FilterDefinition, EveryRefusalHasItsMessage) {
    std::string name = "unchanged";
    CFilterDefinition f;
    EXPECT_EQ(Refusal(f, name), "Definition m_Type not defined.");
    f.SetDefinitionType(CFilterDefinition::FD_CUT);
    f.SetFilterType(CFilterDefinition::FT_WI);
    EXPECT_EQ(Refusal(f, name), "Cut On not defined or incorrect.");
    f.SetCutOn(4.0f);
    EXPECT_EQ(Refusal(f, name), "Cut Off not defined or incorrect.");
    f.SetCutOff(4.0f);  // equal: refused whatever the message says
    EXPECT_EQ(Refusal(f, name), "Cut On must be less or equal to Cut Off.");
    f.SetCutOff(5.0f);
    EXPECT_EQ(Refusal(f, name), "Filter transmission not defined or incorrect.");
    f.SetTransmission(100.5f);
    EXPECT_EQ(f.FormatFilter(name), 0);
    f.SetTransmission(100.0f);
    EXPECT_EQ(f.FormatFilter(name), 1);
    EXPECT_EQ(name, "WI_4.00-5.00_100%");
    f.SetFilterType(CFilterDefinition::FT_NONE);
    EXPECT_EQ(Refusal(f, name), "m_Type not defined");

    CFilterDefinition c;
    c.SetDefinitionType(CFilterDefinition::FD_CENTRAL);
    c.SetFilterType(CFilterDefinition::FT_HP);
    EXPECT_EQ(Refusal(c, name), "Cannot process central wavelength definition for that type of filter.");
    c.SetFilterType(CFilterDefinition::FT_NA);
    EXPECT_EQ(Refusal(c, name), "Central wavelength not defined or incorrect.");
    c.SetMiddleWavelength(0.1f);
    EXPECT_EQ(Refusal(c, name), "Filter width not defined or incorrect.");
    c.SetWidth(0.2f);
    EXPECT_EQ(Refusal(c, name), "Central wavelength must be higher than width.");
    c.SetTransmission(0.0f);
    c.SetMiddleWavelength(4.0f);
    EXPECT_EQ(Refusal(c, name), "Filter transmission not defined or incorrect.");

    CFilterDefinition p;
    EXPECT_EQ(Parsed(p, "WI_3.70-4.10_085%X"), "Incorrect filter definition.");  // 18 characters
    EXPECT_EQ(p.GetFilterType(), CFilterDefinition::FT_NONE);
    EXPECT_EQ(Parsed(p, "XX_3.70_085%"), "Unable to parse filter type");
    EXPECT_EQ(Parsed(p, "L"), "Unable to parse filter type");
    EXPECT_EQ(Parsed(p, "LP_4.10_abc%"), "Unable to parse transmission");
    EXPECT_EQ(Parsed(p, "WI_3.70"), "Unable to parse transmission");
    EXPECT_EQ(name, "WI_4.00-5.00_100%");
}
