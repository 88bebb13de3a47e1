// Writes the seed inputs of the fuzz targets with the library's own writers:
//   fuzz_seeds tests/fuzz/corpus
// The seeds are checked in; run this again only when a format changes.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CResponseFile.h"
#include "thermokit/environment/CRegistry.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CNucFile.h"
#include "thermokit/nuc/CPixel.h"

using namespace thermokit;
namespace fs = std::filesystem;

namespace {

fs::path g_root;
int g_failures = 0;

std::string Seed(const char* target, const char* name) {
    fs::create_directories(g_root / target);
    return (g_root / target / name).string();
}

void Check(int ok, const std::string& what) {
    if (ok) return;
    std::fprintf(stderr, "fuzz_seeds: %s was not written\n", what.c_str());
    ++g_failures;
}

void Text(const char* target, const char* name, const char* text) {
    std::ofstream(Seed(target, name), std::ios::binary) << text;
}

_SCalibrationRBF Law() {
    _SCalibrationRBF p {};
    p.m_byType = 1;
    p.m_fScale = 0.5f;
    p.m_nOffset = -200;
    p.m_fR = 2.0e8f;
    p.m_fB = 3400.0f;
    p.m_fF = 1.0f;
    return p;
}

void Films() {
    CPtr film(8, 4, 14, 0, 1, 0);
    const _SCalibrationRBF law = Law();
    film.SetRBFCalibParam(&law);
    film.SetComment("seed film");
    const CRect window(2, 1, 10, 5);
    film.SetSubWindowRect(&window);
    for (int k = 0; k < 2; ++k) {
        for (long i = 0; i < film.GetSize(); ++i) film.GetFrame()->GetBuffer()[i] = static_cast<unsigned short>(k * 500 + i);
        film.GetFrame()->SetTime(3600.0 + k * 0.04);
        film.SetFileName(Seed("film_levels", "two-frames.film"));
        Check(film.AddFrame(), "a film of levels");
    }
    CPtrFloat doubles(4, 2, 14, 0, 1, 0);
    doubles.SetFileName(Seed("film_doubles", "two-frames.film"));
    double values[8] = {-1.5, 0.0, 1.0, 2.5, 1e300, 16383.0, 16384.0, 7.0};
    Check(doubles.AddFrame(values, 8) && doubles.AddFrame(values, 8), "a film of doubles");
}

void NucFiles() {
    CNuc nuc(8, 4);
    nuc.Reset();
    for (long i = 0; i < nuc.GetSize(); ++i) nuc.GetAlpha()[i] = 0.9f + 0.01f * static_cast<float>(i), nuc.GetBeta()[i] = -3.5f;
    nuc.SetCamera("seed");
    Check(nuc.Save(Seed("nuc", "table.nuc").c_str()), "a NUC table");
    CPixel map(8, 4, 0);
    map.Add(9, 0, CPixel::kGain);
    map.Add(31, 0, CPixel::kOffsetNoise);
    map.Add(0, 0, CPixel::kNoise);
    map.UpdateReplacement();
    Check(map.Save(Seed("badpixels", "three.bpr").c_str()), "a bad-pixel map");
    CNucFile catalogue(0);
    catalogue.SetMaxWindowing(2);
    CRect window(0, 0, 320, 256);
    catalogue.SetWindowing(0, 2, &window);
    catalogue.SetWindowing(1, 1, &window);
    catalogue.SetTable(0, 1, "hot", 50, 100, 1, "F1", 1, "ui", "db");
    Check(catalogue.Save(Seed("nuc_catalogue", "catalogue.nuc").c_str(), 0), "a NUC catalogue");
    CMapping mapping(8, 4);
    for (long i = 0; i < mapping.GetSize(); ++i) mapping.SetEntry(i, static_cast<int32_t>(mapping.GetSize() - 1 - i));
    Check(mapping.Save(Seed("mapping", "mirror.map").c_str()), "a mapping");
}

void Calibrations() {
    CCalibration curve("seed", CCalibration::kExtendedClasses | CCalibration::kLensFormats);
    for (float x : {1000.0f, 2000.0f, 3000.0f}) curve.Add(x, (x - 1000.0f) / 40.0f);
    Check(curve.Save(Seed("calibration", "three-points.cal").c_str()), "a calibration curve");
    CCalibration classes("seed", CCalibration::kExtendedClasses | CCalibration::kLensFormats);
    for (float key : {20.0f, 40.0f, 60.0f})
        for (float t : {10.0f, 30.0f}) classes.Add(key, t, key * 50.0f + t * 3.0f);
    classes.AddLensFormat("L25", CRect(0, 0, 320, 256), 1.02f, -4.0f);
    Check(classes.Save(Seed("calibration", "classes-and-lens.cal").c_str()), "a calibration with extensions");
    Check(classes.Save(Seed("calibration_ext", "classes-and-lens.cal").c_str()), "an extended calibration");

    uint8_t block[_SCalibrationRBF::kFilmBlockSize];
    Law().ToFilmBlock(block);
    std::ofstream(Seed("calibration_law", "law.bin"), std::ios::binary).write(reinterpret_cast<const char*>(block), sizeof block);
    CCnucFile::_CNUC_CALIBRATION rec;
    std::memset(&rec, 0, sizeof rec);
    std::memcpy(rec.m_szSignature, "CNUCCAL", 8);
    rec.m_dwVersion = 1;
    rec.m_dwFlags = CCnucFile::kRecordValid | CCnucFile::kLevelDriftValid | CCnucFile::kGainDriftValid |
                    CCnucFile::kIntegrationValid | CCnucFile::kTemperatureRangeValid;
    rec.m_fRefCameraTemp = 300.0f;
    rec.m_fCameraTempMin = 280.0f;
    rec.m_fCameraTempMax = 330.0f;
    rec.m_wLevelDriftDegree = 1;
    rec.m_adLevelDrift[1] = 25.0;
    rec.m_wGainDriftDegree = 1;
    rec.m_adGainDrift[0] = 1.0;
    rec.m_adGainDrift[1] = 0.01;
    rec.m_fRefIntegration = 100.0f;
    rec.m_fDarkLevel = 1000.0f;
    std::ofstream comp(Seed("calibration_comp", "law-and-record.bin"), std::ios::binary);
    comp.write(reinterpret_cast<const char*>(block), sizeof block);
    comp.write(reinterpret_cast<const char*>(&rec), sizeof rec);

    CResponseFile response(nullptr);
    for (int k = 0; k < 8; ++k) response.Add(3.0 + 0.5 * k, 0.1 * k);
    Check(response.Save(Seed("response", "filter.rsp").c_str()), "a spectral response");
}

void Texts() {
    Text("palette", "two.pal",
         "; custom palettes\n[Ember]\n(0,0,0)\n(128,0,0)\n(255,200,0)\n(255,255,255)\nEntries=256\n"
         "[Ice]\n(0, 0, 64)\n(200, 255, 255)\nEntries=16\n");
    Text("region", "shapes.txt",
         "# every kind of line\nrect 2 2 10 8\nellipse 20 10 16 12\npolygon 40 5 60 20 45 40 30 25\n");
}

void Settings() {
    const std::string path = Seed("settings", "store.db");
    std::remove(path.c_str());
    const RegistryKey key = RegistryKey::OpenRootAt(path, true, true).OpenSubKey("Software\\Orbel\\Common Setup\\Setup", true);
    CRegistry reg(key);
    Check(reg.SetINTValue("Point", 640) && reg.SetDOUBLEValue("Integration", 0.5, 3) &&
              reg.SetSTRINGValue("Camera", "seed") && reg.SetDWORDValue("Flags", 7),
          "a settings store");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds CORPUS_FOLDER\n");
        return 2;
    }
    g_root = argv[1];
    // Writing films reads the camera configuration: from stores of our own.
    const std::string stores = (fs::temp_directory_path() / "thermokit-seeds-").string();
    ::setenv("THERMOKIT_USER_STORE", (stores + "user.db").c_str(), 1);
    ::setenv("THERMOKIT_MACHINE_STORE", (stores + "machine.db").c_str(), 1);
    Films();
    NucFiles();
    Calibrations();
    Texts();
    Settings();
    std::remove((stores + "user.db").c_str());
    std::remove((stores + "machine.db").c_str());
    return g_failures ? 1 : 0;
}
