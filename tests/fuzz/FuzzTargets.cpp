#include "FuzzTargets.h"

#if defined(_WIN32)
#include <process.h>
#else
#include <unistd.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CCalibrationComp.h"
#include "thermokit/calibration/CCalibrationEx.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/calibration/CResponseFile.h"
#include "thermokit/calibration/CSpectralResponse.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/environment/CRegistry.h"
#include "thermokit/environment/RegistryStore.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CNucFile.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/RegionFile.h"
#include "thermokit/platform/Utf8Path.h"
#include "support/Environment.h"

namespace thermokit::fuzz {

namespace {

// The file every reader is given: one per process, in memory when the
// system offers a memory folder. The settings stores the library may open
// are kept beside it, never the user's; all go when the process ends.
const std::string& InputPath() {
    static const std::string path = [] {
#if defined(_WIN32)
        const std::string dir = Utf8FromPath(std::filesystem::temp_directory_path());
        const int pid = ::_getpid();
#else
        const char* tmp = std::getenv("TMPDIR");
        const std::string dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : tmp && *tmp ? tmp : "/tmp";
        const int pid = static_cast<int>(::getpid());
#endif
        static const std::string base = dir + "/thermokit-fuzz-" + std::to_string(pid);
        ::setenv("THERMOKIT_USER_STORE", (base + "-user.db").c_str(), 1);
        ::setenv("THERMOKIT_MACHINE_STORE", (base + "-machine.db").c_str(), 1);
        std::atexit([] {
            for (const char* end : {"", "-copy", "-copy-journal"}) File::Remove(base + end);
            for (const char* end : {"-user.db", "-machine.db"}) RegistryStore::Remove(base + end);
        });
        // The library's message boxes say nothing here.
        Messages::SetSink([](const Message&) {});
        return base;
    }();
    return path;
}

const std::string& Input(const uint8_t* data, size_t size) {
    const std::string& path = InputPath();
    File file;
    if (!file.Open(path, File::modeCreate | File::modeWrite | File::shareDenyNone) || !file.Write(data, size)) std::abort();
    return path;
}

// A few levels and values around and inside a curve, for conversions.
constexpr float kProbes[] = {-1e30f, -273.15f, -1.0f, 0.0f, 0.5f, 1.0f, 25.0f, 100.0f, 1000.0f, 16383.0f, 1e30f};

void Convert(CCalibration& cal) {
    for (const float v : kProbes) {
        float out = 0.0f, slope = 0.0f;
        cal.Interpolate(v, &out, 1);
        cal.Interpolate(v, &out, 0);
        cal.FindAbscisse(v, &out, 1);
        cal.GetSlew(v, &slope);
        cal.GetSlew(v, v + 1.0f, &slope);
    }
    // A table of levels, as the temperature commands build it (of 10 bits:
    // every level costs a conversion, and a curve may hold 65535 points).
    const CLevelTable table(cal, 0x03FF);
    std::vector<unsigned short> levels(256);
    for (size_t i = 0; i < levels.size(); ++i) levels[i] = static_cast<unsigned short>(i * 16);
    std::vector<float> out(levels.size());
    table.Apply(levels.data(), static_cast<long>(levels.size()), out.data());
}

template <class Film>
void ReadFrames(Film& film) {
    if (!film.IsValid()) return;
    const unsigned long frames = std::min<unsigned long>(film.GetFrameNumber(), 8);
    for (unsigned long n = 0; n < frames; ++n) {
        if (!film.ReadFrame(n)) break;
        CFrame* f = film.GetFrame();
        unsigned short mn = 0, mx = 0, mean = 0;
        double sd = 0, m = 0, t = 0;
        MinMax(f->GetBuffer(), f->GetSize(), &mn, &mx, &mean, 0);
        StdDev(f->GetBuffer(), f->GetSize(), &sd, &m);
        film.ReadTime(n, t);
    }
    film.ReadLastFrame();
    film.ReadNextFrame();
    // What a viewer shows of the header.
    for (int k = -1; k < 9; ++k) film.GetFilter(k), film.GetIntegration(k), film.GetHousingTemperature(k);
    film.GetComment();
    film.GetSerial();
    CRect window;
    film.GetSubWindowRect(&window);
    float* scale = nullptr;
    int count = 0;
    double value = 0;
    film.GetSpecialScale(scale, count);
    film.DL2Float(1000, &value);
    std::string calibration;
    film.GetFileCalibration(&calibration);
    _SCalibrationRBF law {};
    if (film.GetRBFCalibParam(&law)) {
        CCalibrationRBF cal(law);
        Convert(cal);
    }
}

void FilmLevels(const uint8_t* data, size_t size) {
    CPtr film(Input(data, size), 0, 0, 1);
    ReadFrames(film);
}

void FilmDoubles(const uint8_t* data, size_t size) {
    CPtrFloat film(Input(data, size), 0, 0, 1);
    ReadFrames(film);
    if (!film.IsValid() || film.GetFrameNumber() == 0) return;
    std::vector<double> values(static_cast<size_t>(film.GetSize()));
    if (film.ReadFrame(0, values.data(), static_cast<unsigned long>(values.size()))) {
        double mn = 0, mx = 0, mean = 0;
        MinMax(values.data(), static_cast<long>(values.size()), &mn, &mx, &mean, 0);
    }
}

void Nuc(const uint8_t* data, size_t size) {
    CNuc nuc(Input(data, size).c_str());
    if (!nuc.IsValid()) return;
    // A frame of the size the header states, corrected and undone. A header
    // that leaves point or line at 0 (read as 128) may state up to 128 x
    // 65535 pixels while its tables hold a few: beyond 2^18 pixels the frame
    // is cut to the tables, which is all that Apply touches.
    size_t pixels = static_cast<size_t>(nuc.GetPoint()) * nuc.GetLine();
    if (pixels > (size_t{1} << 18)) pixels = static_cast<size_t>(nuc.GetSize());
    std::vector<unsigned short> in(pixels), out(pixels);
    for (size_t i = 0; i < pixels; ++i) in[i] = static_cast<unsigned short>(i * 7919u);
    nuc.Apply(in.data(), 0x3FFF, out.data());
    nuc.ApplyDeNuc(out.data(), 0x3FFF, nullptr);
    std::vector<float> image(pixels, 100.0f);
    nuc.Apply(image.data());
    nuc.ApplyDeNuc(image.data());
    std::vector<unsigned char> packed(4 * static_cast<size_t>(nuc.GetSize()));
    for (int format : {0, 1}) {
        nuc.CreateBufferNuc(packed.data(), format);
        nuc.FormatNuc(packed.data(), static_cast<long>(packed.size()), format);
    }
    float gain = 0, offset = 0;
    if (nuc.GetSize() > 0) MinMax(nuc.GetAlpha(), nuc.GetSize(), &gain, &offset, &offset, 0);
}

void BadPixels(const uint8_t* data, size_t size) {
    CPixel map(Input(data, size).c_str());
    if (!map.IsValid()) return;
    // A map states its detector's size in its header and holds only its
    // entries: frames of a detector beyond 2^18 pixels (up to 65535 x 65535)
    // are what a caller of such a camera holds, not what a fuzzer can make
    // thousands of times a second.
    const size_t pixels = static_cast<size_t>(map.GetPoint()) * map.GetLine();
    if (pixels <= (size_t{1} << 18)) {
        std::vector<unsigned short> levels(pixels, 5);
        std::vector<float> floats(pixels, 5.0f);
        std::vector<double> doubles(pixels, 5.0);
        map.Apply(levels.data());
        map.Apply(floats.data());
        map.Apply(doubles.data());
    }
    CRect window(1, 1, map.GetPoint() / 2, map.GetLine() / 2);
    map.UpdateDistribution(&window, 0);
    map.UpdateDistribution(&window, 1);
    for (long k = 0; k < map.GetSize(); ++k) {
        long replacement = 0;
        map.Find(map.GetPixel1()[k], &replacement);
        map.Color(static_cast<unsigned short>(k));
    }
    map.Flip(1, 1);
    std::vector<unsigned char> buffer(12 + 8 * static_cast<size_t>(map.GetSize()));
    map.CreateBufferBpr(buffer.data());
    map.UpdateReplacement();
}

void Calibration(const uint8_t* data, size_t size) {
    CCalibration cal("", 0);
    if (!cal.Open(Input(data, size).c_str())) return;
    Convert(cal);
    for (const float t : {250.0f, 300.0f, 350.0f}) {
        cal.SetCameraTemperature(t, 1);
        Convert(cal);
    }
    std::vector<std::string> names;
    cal.GetConfigName(names);
    for (int k = 0; k < cal.GetLensExtendedClassCount(); ++k) {
        float gain = 0, offset = 0;
        cal.GetConfigTransfo(k, gain, offset);
        if (cal.SetCurrentConfig(k)) Convert(cal);
    }
    for (int c = 0; c < cal.GetExtendedClassCount(); ++c) {
        float key = 0, temperature = 0, x = 0;
        for (int e = 0; e < cal.GetExtendedClassElementCount(c); ++e) cal.GetCalibValue(c, e, key, temperature, x);
    }
}

// A film's radiometric law: the 44-byte block a film header carries.
void CalibrationLaw(const uint8_t* data, size_t size) {
    uint8_t block[_SCalibrationRBF::kFilmBlockSize] = {};
    std::memcpy(block, data, std::min(size, sizeof block));
    _SCalibrationRBF law {};
    law.FromFilmBlock(block);
    CCalibrationRBF cal(law);
    Convert(cal);
    for (const float t : {250.0f, 300.0f}) {
        cal.SetCameraTemperature(t, 1);
        Convert(cal);
    }
}

// A compensated law: the film's law block, then its 448-byte compensation record.
void CalibrationComp(const uint8_t* data, size_t size) {
    uint8_t block[_SCalibrationRBF::kFilmBlockSize] = {};
    CCnucFile::_CNUC_CALIBRATION record;
    std::memset(&record, 0, sizeof record);
    std::memcpy(block, data, std::min(size, sizeof block));
    if (size > sizeof block) std::memcpy(&record, data + sizeof block, std::min(size - sizeof block, sizeof record));
    _SCalibrationRBF law {};
    law.FromFilmBlock(block);
    CCalibrationComp cal(law);
    cal.SetCalibrationFactor(&record);
    for (const float t : {-999.0f, 250.0f, 300.0f, 330.0f}) {
        cal.SetCameraTemperature(t, 1);
        Convert(cal);
        double drift = 0, gain = 0;
        int usable = 0;
        cal.GetDrift(&drift, &gain, &usable);
        float level = 0;
        cal.ConvTempDlToIt(30.0f, 100.0f, &level, 1);
    }
    cal.SetRectDetector(CRect(0, 0, 320, 256));
    cal.GetCurveX();
    cal.GetCurveY();
}

void CalibrationExtended(const uint8_t* data, size_t size) {
    int result = 0;
    CCalibrationEx cal(Input(data, size).c_str(), &result);
    if (!cal.IsValid()) return;
    Convert(cal);
    for (const float t : {-40.0f, 20.0f, 60.0f}) {
        cal.SetHousingTemperature(t);
        Convert(cal);
    }
}

void Mapping(const uint8_t* data, size_t size) {
    CMapping map(Input(data, size).c_str());
    if (!map.IsValid()) return;
    int reason = 0;
    map.Check(&reason);
    const size_t pixels = static_cast<size_t>(map.GetSize());
    std::vector<unsigned char> bytes(pixels, 1);
    std::vector<unsigned short> levels(pixels, 2);
    std::vector<float> floats(pixels, 3.0f);
    map.Apply(bytes.data());
    map.Apply(levels.data());
    map.Apply(floats.data());
    map.UnApply(bytes.data());
    map.UnApply(levels.data());
    map.UnApply(floats.data());
}

void Palette(const uint8_t* data, size_t size) {
    const std::string& path = Input(data, size);
    CLogPalette all(0, 0, path.c_str());
    const size_t custom = all.GetCustomPalettes()->size();
    // The first custom palettes and the last, each drawn as the bar draws them.
    for (size_t k = 0; k < custom; k = k < 3 ? k + 1 : std::max(k + 1, custom - 1)) {
        CLogPalette palette(static_cast<unsigned short>(CLogPalette::FIRST_CUSTOM + k), static_cast<int>(k & 1),
                            path.c_str());
        palette.GetPaletteName();
        const tagLOGPALETTE* entries = palette.GetPLogPalette();
        unsigned sum = 0;
        for (int i = 0; i < entries->palNumEntries; ++i) sum += entries->palPalEntry[i].peRed;
        (void)sum;
    }
}

void Response(const uint8_t* data, size_t size) {
    CResponseFile file(Input(data, size).c_str());
    double t = 0;
    for (const double lambda : {-1.0, 0.0, 3.0, 7.5, 12.0, 1e9}) {
        file.GetTransmission(lambda, t, 0);
        if (file.GetArray().size() >= 2) file.GetTransmission(lambda, t, 1);
    }
    CSpectralResponse response(2.0, 14.0, 64);
    response.AddResponse(&file);
}

void NucCatalogue(const uint8_t* data, size_t size) {
    CNucFile catalogue(Input(data, size).c_str());
    if (!catalogue.IsValid()) return;
    for (unsigned short w = 0; w < CNucFile::kMaxWindows + 1; ++w) {
        CNucFile::NUC_TABLE_DESC desc;
        catalogue.GetWindowing(w, &desc);
        for (unsigned short t = 0; t < CNucFile::kMaxTables + 1; ++t) {
            CNucFile::NUC_TABLE table;
            catalogue.GetTable(w, t, &table);
        }
    }
}

void Region(const uint8_t* data, size_t size) {
    CRgn region;
    std::string why;
    const CRect image(0, 0, 64, 48);
    if (!ReadRegionFile(Input(data, size), image, region, why)) return;
    std::vector<uint8_t> mask(64 * 48);
    region.FillMask(64, 48, mask.data());
    CRect box;
    region.GetRgnBox(&box);
    // What the statistics and the display do with a region.
    CRgn frame, inside, outside;
    frame.CreateRectRgnIndirect(&image);
    inside.CombineRgn(&region, &frame, RGN_AND);
    outside.CombineRgn(&frame, &region, RGN_DIFF);
    outside.OffsetRgn(3, -2);
    for (int y = -1; y <= 48; y += 7)
        for (int x = -1; x <= 64; x += 5)
            if (region.PtInRegion(x, y) != (x >= 0 && y >= 0 && x < 64 && y < 48 && mask[y * 64 + x])) std::abort();
    std::vector<unsigned short> levels(64 * 48, 9);
    unsigned short mn = 0, mx = 0;
    MinMaxRgn(levels.data(), 64, 48, &region, &mn, &mx, nullptr);
}

#if !defined(_WIN32)
// The settings store: the file is a user's store; the settings classes read it.
void Settings(const uint8_t* data, size_t size) {
    const std::string copy = InputPath() + "-copy";
    const std::string& path = Input(data, size);
    if (std::rename(path.c_str(), copy.c_str()) != 0) return;
    std::string why;
    const RegistryKey root = RegistryKey::OpenRootAt(copy, false, false, &why);
    if (!root) return;
    RegistryTree tree;
    root.ReadTree(&tree);
    std::vector<std::string> names;
    root.EnumSubKeys(&names);
    CRegistry reg(root.OpenSubKey("Software\\Orbel\\Common Setup\\Setup", false));
    reg.GetINTValue("Point", 320);
    reg.GetDOUBLEValue("Integration", 1.0);
    reg.GetSTRINGValue("Camera", "none");
    reg.GetDWORDValue("Flags", 0);
}
#endif

}  // namespace

const Target kTargets[] = {
    {"film_levels", FilmLevels},
    {"film_doubles", FilmDoubles},
    {"nuc", Nuc},
    {"badpixels", BadPixels},
    {"calibration", Calibration},
    {"calibration_law", CalibrationLaw},
    {"calibration_comp", CalibrationComp},
    {"calibration_ext", CalibrationExtended},
    {"mapping", Mapping},
    {"palette", Palette},
    {"response", Response},
    {"nuc_catalogue", NucCatalogue},
    {"region", Region},
#if !defined(_WIN32)
    // The settings of Windows are the system registry, not a file to feed.
    {"settings", Settings},
#endif
    {nullptr, nullptr},
};

Entry FindTarget(const char* name) {
    for (const Target* t = kTargets; t->name; ++t)
        if (std::strcmp(t->name, name) == 0) return t->entry;
    return nullptr;
}

}  // namespace thermokit::fuzz
