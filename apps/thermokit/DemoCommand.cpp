// thermokit demo: the whole chain on a simulated camera.
//
// A simulated detector (thermokit/simulation) films black bodies, a plate with
// a hot spot and a periodically heated sample. From those films alone the demo
// builds a two-point NUC, finds the bad pixels, measures a calibration curve,
// corrects and converts the scene to temperatures, demodulates the lock-in
// film and renders pictures. Only at the end are its results compared with the
// simulator's truth (gain and offset maps, injected defects, temperatures),
// and the figures go to report.md and report.json.
#include <algorithm>
#include <cstdarg>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Command.h"
#include "OutputFile.h"
#include "FilmWork.h"
#include "Picture.h"
#include "thermokit/acquisition/CLockin.h"
#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/calibration/CObjectParameters.h"
#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CNoise.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/nuc/CCorrection.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/CWnd.h"
#include "thermokit/platform/Utf8Path.h"
#include "thermokit/simulation/CRadiometricFit.h"
#include "thermokit/simulation/CSimDetector.h"
#include "thermokit/simulation/CSimFilm.h"
#include "thermokit/simulation/CSimScene.h"

namespace thermokit::cli {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr double kKelvin = 273.15;

struct DemoOptions {
    std::string out = "out/demo";
    std::string size;
    int frames = 0;
    bool quick = false;
    uint64_t seed = 1;
};

// Targets.
constexpr double kFpnRatio = 0.1;          // residual FPN at most a tenth of before...
constexpr double kHitRate = 0.99;          // bad pixels found
constexpr double kFalseAlarmRate = 0.001;  // of all pixels
constexpr double kMedianError = 0.2;       // K
constexpr double kP99Error = 0.5;          // K
constexpr double kErrorLow = 10.0, kErrorHigh = 100.0;  // degrees Celsius where temperature errors count
constexpr double kMinEmissivity = 0.7;     // the error targets hold for surfaces of this emissivity and above
constexpr double kReflected = 50.0;        // degrees Celsius of the surroundings of the materials scene
constexpr double kRuntime = 60.0;          // s, for the default size

struct Stage {
    std::string name;
    double seconds = 0.0;
    unsigned long frames = 0;
    double megapixels = 0.0;
};

struct SceneErrors;
struct MaterialErrors;

class Demo {
public:
    Demo(const DemoOptions& o, int point, int line) : m_o(o), m_point(point), m_line(line) {}
    int Run();

private:
    // Progress and timing.
    void Begin(const char* text);
    void End(unsigned long frames);
    // Film helpers.
    std::string Film(const std::string& name) const { return Utf8FromPath(m_dir / "films" / PathFromUtf8(name)); }
    int ReadAverage(const std::string& path, bool corrected, std::vector<double>& mean, unsigned long& frames);
    // The frames of a film beside those of its truth (a film of doubles):
    // measure(frame, truth values) on several frames at once, then combine
    // (when given) one frame at a time in frame order. False with a message.
    bool AgainstTruth(const std::string& path, const std::string& truthPath,
                      const std::function<void(FilmFrame&, const double*)>& measure,
                      const std::function<void(FilmFrame&)>& combine);
    bool Record(const std::string& name, const CSimScene& scene, unsigned long frames, const std::string& truth = "",
                const CSimFilm::FrameHook& hook = CSimFilm::FrameHook());
    bool SavePicture(const std::string& name, const std::vector<unsigned short>& levels, unsigned short maxLevel,
                     unsigned short min, unsigned short max, unsigned short palette, CLut24* lutIn = nullptr,
                     bool bar = false);
    bool SaveDoubles(const std::string& path, const std::vector<double>& v, const char* text);
    // Temperatures (degrees Celsius) over 10..100 degC on the rainbow palette, with a labelled bar.
    bool SaveTemperatures(const std::string& name, const std::vector<float>& celsius);

    bool MeasureCurve(double step, unsigned long frames, std::vector<double>& levels, std::vector<double>& kelvin,
                      unsigned long& total);
    bool MeasureScene(const std::string& truthPath, SceneErrors& out);
    bool ScenePictures(const SceneErrors& e);
    bool MeasureMaterials(const CSimScene::MaterialsParams& p, const std::string& truthPath, MaterialErrors& out);
    bool RecordLockin(const CSimScene& scene, int perPeriod, unsigned long frames, float frequency);
    bool Demodulate(std::vector<double>& module, std::vector<double>& phase);
    bool SaveSpread(const std::vector<double>& v, const char* name, unsigned short palette);
    bool SaveReportJson(double total);
    bool SaveReportMarkdown(double total);
    void TargetRows(std::ostream& md, double total) const;
    void ResultSections(std::ostream& md) const;

    int StageNuc();
    int StageBadPixels();
    int StageFpn();
    int StageCalibration();
    int StageScene();
    int StageEmissivity();
    int StageLockin();
    int WriteTruth();
    int WriteReports(double total);

    DemoOptions m_o;
    int m_point, m_line;
    long m_size = 0;
    fs::path m_dir;
    std::unique_ptr<CSimDetector> m_det;
    unsigned long m_nFrames = 16;
    std::vector<Stage> m_stages;
    Clock::time_point m_t0;
    std::string m_stageName;

    std::vector<float> m_alpha, m_beta, m_noise;
    std::vector<unsigned char> m_found;   // 1 where the demo found a bad pixel
    double m_temporalNoise = 0.0;
    std::unique_ptr<CCalibration> m_cal;
    json m_report;
    bool m_failed = false;
};

void Demo::Begin(const char* text) {
    m_stageName = text;
    std::printf("[%zu] %s ...\n", m_stages.size() + 1, text);
    std::fflush(stdout);
    m_t0 = Clock::now();
}

void Demo::End(unsigned long frames) {
    Stage s;
    s.name = m_stageName;
    s.seconds = std::chrono::duration<double>(Clock::now() - m_t0).count();
    s.frames = frames;
    s.megapixels = static_cast<double>(frames) * m_size / 1e6;
    m_stages.push_back(s);
    std::printf("    done in %.2f s (%lu frames, %.0f Mpixel/s)\n", s.seconds, frames,
                s.seconds > 0 ? s.megapixels / s.seconds : 0.0);
    std::fflush(stdout);
}

bool Demo::Record(const std::string& name, const CSimScene& scene, unsigned long frames, const std::string& truth,
                  const CSimFilm::FrameHook& hook) {
    m_det->Wait(2.0);  // the operator sets the next source up
    if (!CSimFilm::Record(Film(name), *m_det, scene, frames, truth, hook)) {
        FileError(Film(name), "cannot be written");
        return false;
    }
    return true;
}

// Mean of every frame of a film (after the correction chain when corrected).
// The report's first line names the file it was written to: the folder's
// temporary name while the demo builds it. Named after its final place.
bool NameFinalPlace(const std::string& path, const std::string& finalName) {
    std::string text;
    {
        std::ifstream in(PathFromUtf8(path), std::ios::binary);
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        if (!in.good() && !in.eof()) return false;
    }
    const std::string was = "Bad Pixel File : " + path + "\n";
    if (text.compare(0, was.size(), was) != 0) return true;
    text.replace(0, was.size(), "Bad Pixel File : " + finalName + "\n");
    std::ofstream out(PathFromUtf8(path), std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    return !out.fail();
}

int Demo::ReadAverage(const std::string& path, bool corrected, std::vector<double>& mean, unsigned long& frames) {
    CPtr film(path, 0, 0, 0);
    if (!film.IsValid()) {
        FileError(path, "not a readable film");
        return 0;
    }
    std::unique_ptr<CCorrection> corr;
    if (corrected) corr = std::make_unique<CCorrection>(Utf8FromPath(m_dir / "camera.nuc"), Utf8FromPath(m_dir / "camera.bpr"), std::string());
    CAverage avg(film.GetPoint(), film.GetLine(), film.GetBit(), 0);
    frames = film.GetFrameNumber();
    // Frames corrected on every core, added in frame order.
    FilmPipeline pipe(film);
    const auto correct = [&](FilmFrame& f) { return !corr || corr->Apply(f.frame.GetBuffer(), f.frame.GetMaxLevel()); };
    if (!pipe.Run(correct, [&](FilmFrame& f) { return avg.Accumulate(&f.frame, 1.0) == 1; })) {
        Error(pipe.GetLastError());
        return 0;
    }
    const double* m = avg.GetDoubleBuffer(0);
    if (!m) return 0;
    mean.assign(m, m + avg.GetSize());
    return 1;
}

bool Demo::AgainstTruth(const std::string& path, const std::string& truthPath,
                        const std::function<void(FilmFrame&, const double*)>& measure,
                        const std::function<void(FilmFrame&)>& combine) {
    CPtr film(path, 0, 0, 0);
    auto truths = PerSlot([&] { return std::make_unique<CPtrFloat>(truthPath, 0, 0, 0); });
    auto values = PerSlot([&] { return std::vector<double>(static_cast<size_t>(m_size)); });
    if (!film.IsValid() || !truths.front()->IsValid()) {
        FileError(path, "cannot be read back");
        return false;
    }
    FilmPipeline pipe(film);
    const auto process = [&](FilmFrame& f) {
        const size_t slot = static_cast<size_t>(f.slot);
        if (!truths[slot]->ReadFrame(f.index, values[slot].data(), static_cast<unsigned long>(m_size))) {
            f.error = FileErrorText(truthPath, "frame " + std::to_string(f.index) + " cannot be read");
            return false;
        }
        measure(f, values[slot].data());
        return true;
    };
    const auto write = [&](FilmFrame& f) {
        if (combine) combine(f);
        return true;
    };
    if (pipe.Run(process, write)) return true;
    Error(pipe.GetLastError());
    return false;
}

bool Demo::SaveDoubles(const std::string& path, const std::vector<double>& v, const char* text) {
    CFrame frame(static_cast<unsigned short>(m_point), static_cast<unsigned short>(m_line), m_det->GetConfig().bit, 0, 0);
    std::vector<double> copy(v);
    return frame.Save(path.c_str(), copy.data(), "", text) != 0;
}

bool Demo::SavePicture(const std::string& name, const std::vector<unsigned short>& levels, unsigned short maxLevel,
                       unsigned short min, unsigned short max, unsigned short paletteNumber, CLut24* lutIn, bool bar) {
    CLogPalette palette(paletteNumber, 0, nullptr);
    CLut24 own(maxLevel);
    CLut24* lut = lutIn ? lutIn : &own;
    if (!lutIn) lut->Update(nullptr, &palette, min, max);
    CBit24 bitmap(m_size, 1, 0);
    const std::string path = Utf8FromPath(m_dir / PathFromUtf8(name));
    bool ok = bitmap.Update(levels.data(), lut) != 0;
    if (ok && !bar) {
        ok = bitmap.SavePng(path.c_str(), m_point, m_line) != 0;
    } else if (ok) {
        // The image, then the palette bar on its right.
        const int barWidth = std::max(16, m_point / 24), margin = std::max(8, m_point / 40);
        CWnd wnd(m_point + 2 * margin + barWidth, m_line);
        CDC* dc = wnd.GetDC();
        CRect all(0, 0, m_point + 2 * margin + barWidth, m_line);
        dc->FillSolidRect(&all, Rgb(255, 255, 255));
        CRect dest(0, 0, m_point, m_line);
        bitmap.Display(dc, &dest, nullptr, m_point, m_line);
        // The bar goes through the same look-up table: lowest level at the bottom.
        const int barHeight = m_line - 8;
        std::vector<unsigned short> ramp(static_cast<size_t>(barWidth) * barHeight);
        for (int y = 0; y < barHeight; ++y) {
            const unsigned short v = static_cast<unsigned short>(
                min + static_cast<double>(max - min) * (barHeight - 1 - y) / std::max(1, barHeight - 1));
            std::fill(ramp.begin() + static_cast<long>(y) * barWidth, ramp.begin() + static_cast<long>(y + 1) * barWidth, v);
        }
        CBit24 barBitmap(static_cast<long>(ramp.size()), 1, 0);
        barBitmap.Update(ramp.data(), lut);
        CRect barRect(m_point + margin, 4, m_point + margin + barWidth, 4 + barHeight);
        barBitmap.Display(dc, &barRect, nullptr, barWidth, barHeight);
        wnd.ReleaseDC(dc);
        ok = wnd.SavePng(path.c_str()) != 0;
    }
    if (!ok) FileError(path, "cannot be written");
    return ok;
}

bool Demo::SaveTemperatures(const std::string& name, const std::vector<float>& celsius) {
    PictureOptions options;
    options.range = std::to_string(kErrorLow) + ":" + std::to_string(kErrorHigh);
    options.bar = true;
    PictureSetup setup;
    const std::string path = Utf8FromPath(m_dir / PathFromUtf8(name));
    if (PreparePicture(options, setup) != kDone) return false;
    Picture picture(setup, Picture::kValues, static_cast<unsigned short>(m_point), static_cast<unsigned short>(m_line),
                    0, nullptr, "degC");
    const std::vector<double> values(celsius.begin(), celsius.end());
    std::string error;
    if (!picture.Finish(error)) {
        Error(error);
        return false;
    }
    picture.Draw(nullptr, values.data());
    if (!picture.SavePng(path.c_str())) {
        FileError(path, "cannot be written");
        return false;
    }
    return true;
}

// Robust centre and spread of a map: median and 1.4826 x median absolute deviation.
void Robust(const std::vector<float>& v, const std::vector<unsigned char>* skip, double& median, double& sigma) {
    std::vector<float> a;
    a.reserve(v.size());
    for (size_t i = 0; i < v.size(); ++i)
        if ((!skip || !(*skip)[i]) && std::isfinite(v[i])) a.push_back(v[i]);
    if (a.empty()) {
        median = sigma = 0.0;
        return;
    }
    auto mid = a.begin() + a.size() / 2;
    std::nth_element(a.begin(), mid, a.end());
    median = *mid;
    for (auto& x : a) x = static_cast<float>(std::fabs(x - median));
    std::nth_element(a.begin(), mid, a.end());
    sigma = 1.4826 * *mid;
}

double SpatialStd(const std::vector<double>& v, const std::vector<unsigned char>* skip) {
    double s = 0, s2 = 0;
    long n = 0;
    for (size_t i = 0; i < v.size(); ++i) {
        if (skip && (*skip)[i]) continue;
        s += v[i];
        ++n;
    }
    if (n < 2) return 0.0;
    const double m = s / n;
    for (size_t i = 0; i < v.size(); ++i) {
        if (skip && (*skip)[i]) continue;
        s2 += (v[i] - m) * (v[i] - m);
    }
    return std::sqrt(s2 / (n - 1));
}

// ---- 1. Two-point NUC and temporal noise -----------------------------------
int Demo::StageNuc() {
    Begin("NUC: black bodies at 20 and 80 degC, two-point table; noise film at 25 degC");
    const unsigned long noiseFrames = std::max<unsigned long>(8, 2 * m_nFrames);
    if (!Record("bb_20C.film", CSimScene::Uniform(20.0), m_nFrames)) return 0;
    if (!Record("bb_80C.film", CSimScene::Uniform(80.0), m_nFrames)) return 0;
    if (!Record("noise_25C.film", CSimScene::Uniform(25.0), noiseFrames)) return 0;

    std::vector<double> low, high, mean;
    unsigned long f1 = 0, f2 = 0, f3 = 0;
    if (!ReadAverage(Film("bb_20C.film"), false, low, f1) || !ReadAverage(Film("bb_80C.film"), false, high, f2))
        return 0;
    std::vector<float> l(low.begin(), low.end()), h(high.begin(), high.end());
    CNuc nuc(static_cast<unsigned short>(m_point), static_cast<unsigned short>(m_line));
    nuc.Update(l.data(), h.data(), 0, 0);
    {
        CPtrOver header(Film("bb_20C.film"));
        nuc.SetCamera(header.GetCamera());
        nuc.SetCameraSerial(header.GetSerial());
        nuc.SetFilter(header.GetFilter(0));
        nuc.SetIntegration(header.GetIntegration(0));
    }
    const std::string nucPath = Utf8FromPath(m_dir / "camera.nuc");
    if (!nuc.Save(nucPath.c_str())) {
        FileError(nucPath, "cannot be written");
        return 0;
    }
    m_alpha.assign(nuc.GetAlpha(), nuc.GetAlpha() + m_size);
    m_beta.assign(nuc.GetBeta(), nuc.GetBeta() + m_size);

    // Temporal noise: CNoise against the film's own mean.
    CPtr film(Film("noise_25C.film"), 0, 0, 0);
    CAverage avg(film.GetPoint(), film.GetLine(), film.GetBit(), 0);
    f3 = film.GetFrameNumber();
    CNoise noise(film.GetPoint(), film.GetLine(), film.GetBit(), 0);
    const double* nmap = NoiseFilm(film, avg, noise) ? noise.GetBuffer() : nullptr;
    if (!nmap) {
        FileError(Film("noise_25C.film"), "no frame could be read");
        return 0;
    }
    m_noise.assign(nmap, nmap + m_size);
    noise.SaveNoise(Utf8FromPath(m_dir / "noise_map.film").c_str(), "DL", "temporal noise at 25 degC");
    double med = 0, sig = 0;
    Robust(m_noise, nullptr, med, sig);
    m_temporalNoise = med;
    End(f1 + f2 + 2 * f3);
    m_report["nuc"] = {{"file", "camera.nuc"}, {"cold_degC", 20.0}, {"hot_degC", 80.0},
                       {"frames_per_film", m_nFrames}, {"noise_frames", f3}, {"temporal_noise_dl", med}};
    return 1;
}

// ---- 2. Bad pixels ------------------------------------------------------------
// The thresholds, from the robust spread of the gains, offsets and noise.
struct BadPixelCriteria {
    double gainReference = 0.0;
    float gainPercent = 0.0f, offsetPercent = 0.0f, noisyThreshold = 0.0f, deadThreshold = 0.0f;
};

BadPixelCriteria ChooseCriteria(const std::vector<float>& alpha, const std::vector<float>& beta,
                                const std::vector<float>& noise, unsigned short maxLevel) {
    double gMed = 0, gSig = 0, oMed = 0, oSig = 0, nMed = 0, nSig = 0;
    Robust(alpha, nullptr, gMed, gSig);
    Robust(beta, nullptr, oMed, oSig);
    Robust(noise, nullptr, nMed, nSig);
    BadPixelCriteria c;
    c.gainReference = gMed;
    // Gain: 8 robust deviations around the median gain, at least 5 %.
    c.gainPercent = static_cast<float>(std::max(5.0, 100.0 * 8.0 * gSig / gMed));
    // Offset: 8 robust deviations (plus the median's distance from 0), as percent of the full scale.
    const double offsetLimit = std::fabs(oMed) + 8.0 * std::max(oSig, 1.0);
    c.offsetPercent = static_cast<float>(100.0 * offsetLimit / maxLevel);
    // Noise: three times the median flags noisy pixels, a quarter of it dead ones.
    c.noisyThreshold = static_cast<float>(3.0 * nMed);
    c.deadThreshold = static_cast<float>(0.25 * nMed);
    return c;
}

// The pixels found against the defects injected, by kind (1 dead, 2 hot, 3 noisy).
struct DefectScore {
    long injected = 0, hits = 0, falseAlarms = 0;
    long kindInjected[4] = {0, 0, 0, 0}, kindHits[4] = {0, 0, 0, 0};
};

DefectScore ScoreDefects(const std::vector<unsigned char>& truth, const std::vector<unsigned char>& found, long size) {
    DefectScore d;
    for (long i = 0; i < size; ++i) {
        const int kind = truth[i];
        if (kind != CSimDetector::kGood) {
            ++d.injected;
            ++d.kindInjected[kind];
            if (found[i]) ++d.hits, ++d.kindHits[kind];
        } else if (found[i]) {
            ++d.falseAlarms;
        }
    }
    return d;
}

int Demo::StageBadPixels() {
    Begin("Bad pixels: gain, offset and noise criteria, replacements, report");
    CPixel bp(static_cast<unsigned short>(m_point), static_cast<unsigned short>(m_line), 0);
    const unsigned short maxLevel = m_det->GetMaxLevel();
    const BadPixelCriteria c = ChooseCriteria(m_alpha, m_beta, m_noise, maxLevel);
    std::vector<float> noise(m_noise.begin(), m_noise.end());
    int ok = bp.UpdateGain(m_alpha.data(), m_size, c.gainPercent, static_cast<float>(c.gainReference));
    ok &= bp.UpdateOffset(m_beta.data(), m_size, c.offsetPercent, maxLevel);
    ok &= bp.UpdateNoise(noise.data(), m_size, c.deadThreshold, 0);
    ok &= bp.UpdateNoise(noise.data(), m_size, c.noisyThreshold, 1);
    if (!ok) std::printf("    warning: %s\n", bp.GetLastErrorMessage().c_str());
    bp.UpdateReplacement();
    const std::string bprPath = Utf8FromPath(m_dir / "camera.bpr");
    const std::string txtPath = Utf8FromPath(m_dir / "badpixels.txt");
    bp.UpdateDistribution(nullptr, 0);
    if (!bp.Save(bprPath.c_str()) || !bp.SaveAscii(txtPath.c_str(), 1, 1, 1) ||
        !NameFinalPlace(txtPath, Utf8FromPath(PathFromUtf8(m_o.out) / "badpixels.txt"))) {
        FileError(bprPath, "cannot be written");
        return 0;
    }
    m_found.assign(m_size, 0);
    for (long k = 0; k < bp.GetSize(); ++k) {
        const long i = bp.GetPixel1()[k];
        if (i >= 0 && i < m_size) m_found[i] = 1;
    }
    const DefectScore d = ScoreDefects(m_det->GetDefectMap(), m_found, m_size);
    const double hitRate = d.injected ? static_cast<double>(d.hits) / d.injected : 1.0;
    const double faRate = static_cast<double>(d.falseAlarms) / m_size;
    const bool met = hitRate >= kHitRate && faRate < kFalseAlarmRate;
    m_failed |= !met;
    End(0);
    m_report["bad_pixels"] = {
        {"file", "camera.bpr"}, {"report", "badpixels.txt"}, {"found", bp.GetSize()}, {"injected", d.injected},
        {"hits", d.hits}, {"misses", d.injected - d.hits}, {"false_alarms", d.falseAlarms}, {"hit_rate", hitRate},
        {"false_alarm_rate", faRate},
        {"by_kind",
         {{"dead", {{"injected", d.kindInjected[1]}, {"found", d.kindHits[1]}}},
          {"hot", {{"injected", d.kindInjected[2]}, {"found", d.kindHits[2]}}},
          {"noisy", {{"injected", d.kindInjected[3]}, {"found", d.kindHits[3]}}}}},
        {"criteria",
         {{"gain_percent", c.gainPercent}, {"gain_reference", c.gainReference}, {"offset_percent", c.offsetPercent},
          {"noise_dead_dl", c.deadThreshold}, {"noise_high_dl", c.noisyThreshold}}},
        {"target", {{"hit_rate_min", kHitRate}, {"false_alarm_rate_max", kFalseAlarmRate}}},
        {"target_met", met}};
    return 1;
}

// ---- 3. Fixed-pattern noise before and after ---------------------------------
int Demo::StageFpn() {
    Begin("Fixed-pattern noise: black body at 50 degC, raw and corrected");
    if (!Record("bb_50C.film", CSimScene::Uniform(50.0), m_nFrames)) return 0;
    std::vector<double> raw, corrected;
    unsigned long f1 = 0, f2 = 0;
    if (!ReadAverage(Film("bb_50C.film"), false, raw, f1) || !ReadAverage(Film("bb_50C.film"), true, corrected, f2))
        return 0;
    const double before = SpatialStd(raw, &m_found);
    const double after = SpatialStd(corrected, &m_found);
    const double afterAll = SpatialStd(corrected, nullptr);
    // The averaged image still holds temporal noise / sqrt(frames).
    const double level = m_temporalNoise;
    const bool met = after <= kFpnRatio * before || after <= level;
    m_failed |= !met;
    End(f1 + f2);
    m_report["fpn"] = {{"degC", 50.0},
                       {"frames_averaged", f1},
                       {"before_dl", before},
                       {"after_dl", after},
                       {"after_all_pixels_dl", afterAll},
                       {"temporal_noise_dl", level},
                       {"ratio", before > 0 ? after / before : 0.0},
                       {"target", "after <= before / " + Number(1.0 / kFpnRatio) + ", or after <= temporal noise"},
                       {"target_met", met}};
    return 1;
}

// ---- 4. Calibration curve and radiometric law --------------------------------
// The curve's units and the camera's settings, kept in its file.
void DescribeCurve(CCalibration& cal, const CSimDetector::Config& c) {
    cal.SetUnitX("DL");
    cal.SetUnitY("C");
    cal.SetUnitLabelX("Level");
    cal.SetUnitLabelY("Temperature");
    cal.SetIntegration(static_cast<float>(c.integrationMicros));
    cal.SetFrameRate(static_cast<unsigned short>(c.frameRate));
    cal.SetHousingTemp(static_cast<float>(c.cameraCelsius));
}

// Over the counted range, the largest differences of the fitted law from the
// law the films carry, and of the curve from the fitted law.
void CompareLaws(const CCalibration& cal, const CRadiometricFit::Result& fit, const _SCalibrationRBF& filmLaw,
                 double& lawDiff, double& curveDiff) {
    CCalibrationRBF mine(CRadiometricFit::ToRecord(fit)), theirs(filmLaw);
    for (double t = kErrorLow; t <= kErrorHigh + 1e-9; t += 1.0) {
        float level = 0, a = 0, b = 0, d = 0;
        cal.FindAbscisse(static_cast<float>(t), &level, 1);
        mine.Interpolate(level, &a, 1);
        theirs.Interpolate(level, &b, 1);
        cal.Interpolate(level, &d, 1);
        lawDiff = std::max(lawDiff, std::fabs(static_cast<double>(a) - b));
        curveDiff = std::max(curveDiff, std::fabs(static_cast<double>(a) - d));
    }
}

json LawJson(double R, double B, double F, double offset) {
    return json{{"R", R}, {"B", B}, {"F", F}, {"offset", offset}};
}

// Black bodies from 0 to 110 degC every step, corrected and averaged: their
// mean levels, added to m_cal. False with a message.
bool Demo::MeasureCurve(double step, unsigned long frames, std::vector<double>& levels, std::vector<double>& kelvin,
                        unsigned long& total) {
    for (double c = 0.0; c <= 110.0 + 1e-9; c += step) {
        char name[32];
        std::snprintf(name, sizeof name, "cal_%05.1fC.film", c);
        if (!Record(name, CSimScene::Uniform(c), frames)) return false;
        std::vector<double> mean;
        unsigned long n = 0;
        if (!ReadAverage(Film(name), true, mean, n)) return false;
        total += n;
        double s = 0;
        for (double v : mean) s += v;
        const double level = s / static_cast<double>(mean.size());
        levels.push_back(level);
        kelvin.push_back(c + kKelvin);
        m_cal->Add(static_cast<float>(level), static_cast<float>(c));
    }
    return true;
}

int Demo::StageCalibration() {
    const double step = m_o.quick ? 5.0 : 2.5;
    Begin("Calibration: black bodies from 0 to 110 degC, corrected, curve and law");
    m_cal = std::make_unique<CCalibration>(m_det->GetConfig().camera, 0);
    std::vector<double> levels, kelvin;
    unsigned long total = 0;
    if (!MeasureCurve(step, m_o.quick ? 1 : 2, levels, kelvin, total)) return 0;
    DescribeCurve(*m_cal, m_det->GetConfig());
    const std::string calPath = Utf8FromPath(m_dir / "calibration.cal");
    if (!m_cal->Save(calPath.c_str())) {
        FileError(calPath, "cannot be written");
        return 0;
    }
    // Work with the curve as read back from its file.
    int result = 1;
    m_cal = std::make_unique<CCalibration>(calPath.c_str(), &result);
    if (result != 0 || m_cal->GetSize() != levels.size()) {
        FileError(calPath, "cannot be read back");
        return 0;
    }
    // The law fitted to the measured points, against the law the films carry.
    const auto& c = m_det->GetConfig();
    const CRadiometricFit::Result fit = CRadiometricFit::Fit(levels, kelvin, 0.5 * (c.lambda1 + c.lambda2));
    _SCalibrationRBF filmLaw{};
    CPtrOver header(Film("bb_20C.film"));
    const int carried = header.GetRBFCalibParam(&filmLaw);
    double lawDiff = 0.0, curveDiff = 0.0;
    if (fit.ok && carried) CompareLaws(*m_cal, fit, filmLaw, lawDiff, curveDiff);
    End(total);
    json curve = json::array();
    for (size_t k = 0; k < levels.size(); ++k) curve.push_back({levels[k], kelvin[k] - kKelvin});
    m_report["calibration"] = {
        {"file", "calibration.cal"},
        {"points", levels.size()},
        {"step_degC", step},
        {"curve", curve},
        {"law_fitted", fit.ok ? LawJson(fit.R, fit.B, fit.F, fit.offset) : json()},
        {"law_fit_rms_dl", fit.rmsLevels},
        {"law_in_films", carried ? LawJson(filmLaw.m_fR, filmLaw.m_fB, filmLaw.m_fF, filmLaw.m_nOffset) : json()},
        {"law_difference_max_k", lawDiff},
        {"curve_vs_fitted_law_max_k", curveDiff}};
    return 1;
}

// |error| in millikelvin up to 50 K: exact order statistics at that resolution.
struct ErrorHistogram {
    static constexpr int kBins = 50000;
    std::vector<uint64_t> bins = std::vector<uint64_t>(kBins + 1, 0);
    uint64_t count = 0;
    void Add(double error) {
        const double a = std::isfinite(error) ? std::fabs(error) : 1e9;
        const long bin = static_cast<long>(a * 1000.0);
        ++bins[bin < kBins ? bin : kBins];
        ++count;
    }
    void Merge(const ErrorHistogram& other) {
        for (int b = 0; b <= kBins; ++b) bins[b] += other.bins[b];
        count += other.count;
    }
    double Quantile(double q) const {
        const uint64_t want = static_cast<uint64_t>(std::ceil(q * count));
        uint64_t acc = 0;
        for (int b = 0; b <= kBins; ++b) {
            acc += bins[b];
            if (acc >= want && acc > 0) return (b + 0.5) / 1000.0;
        }
        return 0.0;
    }
};

// ---- 5. Scene: correction, temperatures, pictures -----------------------------
// The scene's errors against its truth over the counted range, the worst with
// its place, and the first frame at each step.
struct SceneErrors {
    ErrorHistogram histo;
    double sum = 0.0, worst = 0.0;
    long frame = -1, index = -1;
    double truth = 0.0, measured = 0.0;
    std::vector<unsigned short> firstRaw, firstCorrected;
    std::vector<float> firstTemp;
    double seconds = 0.0;  // correction, conversion and counting
};

bool Demo::MeasureScene(const std::string& truthPath, SceneErrors& out) {
    CCorrection corr(Utf8FromPath(m_dir / "camera.nuc"), Utf8FromPath(m_dir / "camera.bpr"), std::string());
    const unsigned short maxLevel = m_det->GetMaxLevel();
    CLevelTable table(*m_cal, maxLevel, 1);
    // Errors counted frame by frame in buffers of the slot (counts add up the
    // same in any order); sums and the worst error combined in frame order.
    struct Errors {
        ErrorHistogram histo;
        std::vector<float> temp;
        double sum = 0.0, worst = 0.0, truth = 0.0, measured = 0.0;
        long index = -1;
    };
    auto slots = PerSlot([&] { auto e = std::make_unique<Errors>(); e->temp.resize(m_size); return e; });
    const double t0 = std::chrono::duration<double>(Clock::now() - m_t0).count();
    const auto measure = [&](FilmFrame& f, const double* t) {
        Errors& s = *slots[static_cast<size_t>(f.slot)];
        unsigned short* lv = f.frame.GetBuffer();
        if (f.index == 0) out.firstRaw.assign(lv, lv + m_size);
        corr.Apply(lv, maxLevel);
        if (f.index == 0) out.firstCorrected.assign(lv, lv + m_size);
        table.Apply(lv, m_size, s.temp.data());
        if (f.index == 0) out.firstTemp = s.temp;
        s.sum = s.worst = 0.0;
        for (long i = 0; i < m_size; ++i) {
            if (t[i] < kErrorLow || t[i] > kErrorHigh) continue;
            const double e = static_cast<double>(s.temp[i]) - t[i];
            const double a = std::isfinite(e) ? std::fabs(e) : 1e9;
            s.sum += e;
            if (a > s.worst) s.worst = a, s.index = i, s.truth = t[i], s.measured = static_cast<double>(s.temp[i]);
            s.histo.Add(e);
        }
    };
    const auto combine = [&](FilmFrame& f) {
        const Errors& s = *slots[static_cast<size_t>(f.slot)];
        out.sum += s.sum;
        if (s.worst > out.worst)
            out.worst = s.worst, out.frame = static_cast<long>(f.index), out.index = s.index, out.truth = s.truth,
            out.measured = s.measured;
    };
    if (!AgainstTruth(Film("scene.film"), truthPath, measure, combine)) return false;
    for (const auto& s : slots) out.histo.Merge(s->histo);
    out.seconds = std::chrono::duration<double>(Clock::now() - m_t0).count() - t0;
    return true;
}

// Pictures of the scene's first frame: raw, corrected, in temperatures, and
// with isotherms on the hot spot (60..70 degC in yellow, 70 degC and above in red).
bool Demo::ScenePictures(const SceneErrors& e) {
    const unsigned short maxLevel = m_det->GetMaxLevel();
    bool ok = true;
    unsigned short lo = 0, hi = maxLevel;
    MinMaxHisto(e.firstRaw.data(), m_size, &lo, &hi, maxLevel, 99.0f, -1.0f, nullptr);
    ok &= SavePicture("scene_raw.png", e.firstRaw, maxLevel, lo, std::max<unsigned short>(hi, lo + 1),
                      CLogPalette::GREY);
    MinMaxHisto(e.firstCorrected.data(), m_size, &lo, &hi, maxLevel, 99.0f, -1.0f, nullptr);
    ok &= SavePicture("scene_corrected.png", e.firstCorrected, maxLevel, lo, std::max<unsigned short>(hi, lo + 1),
                      CLogPalette::GREY);
    ok &= SaveTemperatures("scene_temperature.png", e.firstTemp);
    float l60 = 0, l70 = 0;
    m_cal->FindAbscisse(60.0f, &l60, 1);
    m_cal->FindAbscisse(70.0f, &l70, 1);
    CLogPalette grey(CLogPalette::GREY, 0, nullptr);
    CLut24 iso(maxLevel);
    MinMaxHisto(e.firstCorrected.data(), m_size, &lo, &hi, maxLevel, 99.0f, -1.0f, nullptr);
    iso.SetIsotherm(0, 1, static_cast<unsigned short>(l60), static_cast<unsigned short>(l70), Rgb(255, 255, 0));
    iso.SetIsotherm(1, 1, static_cast<unsigned short>(l70), maxLevel, Rgb(255, 0, 0));
    iso.Update(nullptr, &grey, lo, std::max<unsigned short>(hi, lo + 1));
    ok &= SavePicture("scene_isotherms.png", e.firstCorrected, maxLevel, lo, hi, CLogPalette::GREY, &iso);
    return ok;
}

int Demo::StageScene() {
    const unsigned long frames = std::max<unsigned long>(4, 2 * m_nFrames);
    Begin("Scene: plate with a moving hot spot, corrected, converted to temperatures");
    CSimScene::PlateParams p;
    p.moveX = 0.6 * m_point / 640.0;
    p.moveY = 0.3 * m_line / 512.0;
    const CSimScene scene = CSimScene::Plate(p);
    const std::string truthPath = Utf8FromPath(m_dir / "truth" / "scene_temperature.film");
    if (!Record("scene.film", scene, frames, truthPath)) return 0;
    SceneErrors e;
    if (!MeasureScene(truthPath, e)) return 0;
    const uint64_t counted = e.histo.count;
    const double median = e.histo.Quantile(0.5), p99 = e.histo.Quantile(0.99);
    const bool met = counted > 0 && median < kMedianError && p99 < kP99Error;
    m_failed |= !met;
    if (!ScenePictures(e)) return 0;
    End(2 * frames);
    m_report["temperature"] = {{"frames", frames},
                               {"pixels_counted", counted},
                               {"range_degC", {kErrorLow, kErrorHigh}},
                               {"median_abs_k", median},
                               {"p99_abs_k", p99},
                               {"worst_abs_k", e.worst},
                               {"mean_k", counted ? e.sum / counted : 0.0},
                               {"worst_at",
                                {{"frame", e.frame},
                                 {"x", e.index >= 0 ? e.index % m_point : -1},
                                 {"y", e.index >= 0 ? e.index / m_point : -1},
                                 {"true_degC", e.truth},
                                 {"measured_degC", e.measured},
                                 {"replaced_bad_pixel", e.index >= 0 && m_found[e.index] != 0}}},
                               {"target", {{"median_abs_k_max", kMedianError}, {"p99_abs_k_max", kP99Error}}},
                               {"target_met", met}};
    // Correction, conversion and error counting alone, frames per second.
    m_report["scene_processing_fps"] = e.seconds > 0 ? frames / e.seconds : 0.0;
    return 1;
}

// ---- 6. Emissivity ---------------------------------------------------------------
// Errors of each band of the materials plate, converted with the band's
// emissivity (good) and as a black body (naive), and the first frame of each.
struct MaterialErrors {
    ErrorHistogram good[3], naive[3];
    std::vector<float> firstRight, firstBlack;
};

bool Demo::MeasureMaterials(const CSimScene::MaterialsParams& p, const std::string& truthPath, MaterialErrors& out) {
    CPtrOver film(Film("materials.film"));
    if (!film.IsValid()) {
        FileError(Film("materials.film"), "cannot be read back");
        return false;
    }
    CCorrection corr(Utf8FromPath(m_dir / "camera.nuc"), Utf8FromPath(m_dir / "camera.bpr"), std::string());
    const unsigned short maxLevel = film.GetMaxLevel();
    // The parameters an operator gives for each band (the film's header holds the surroundings' temperature).
    std::vector<CLevelTable> right;
    for (const double e : p.emissivity) {
        CObjectParameters params;
        params.SetFromFilmHeader(film.GetEmissivity(), film.GetAmbiantTemperature());
        params.SetEmissivity(e);
        right.emplace_back(*m_cal, params, maxLevel, 1);
    }
    const CLevelTable blackBody(*m_cal, maxLevel, 1);
    // Errors counted frame by frame in the histograms of the slot, added up at the end.
    struct Errors {
        ErrorHistogram good[3], naive[3];
        std::vector<float> a, b;
    };
    auto slots = PerSlot([&] { auto e = std::make_unique<Errors>(); e->a.resize(m_size), e->b.resize(m_size); return e; });
    const auto measure = [&](FilmFrame& f, const double* t) {
        Errors& s = *slots[static_cast<size_t>(f.slot)];
        unsigned short* lv = f.frame.GetBuffer();
        corr.Apply(lv, maxLevel);
        blackBody.Apply(lv, m_size, s.b.data());
        for (int y = 0; y < m_line; ++y) {
            const int band = CSimScene::Band(m_line, y);
            const long row = static_cast<long>(y) * m_point;
            right[band].Apply(lv + row, m_point, s.a.data() + row);
            for (long i = row; i < row + m_point; ++i) {
                if (t[i] < kErrorLow || t[i] > kErrorHigh) continue;
                s.good[band].Add(static_cast<double>(s.a[i]) - t[i]);
                s.naive[band].Add(static_cast<double>(s.b[i]) - t[i]);
            }
        }
        if (f.index == 0) out.firstRight = s.a, out.firstBlack = s.b;
    };
    if (!AgainstTruth(Film("materials.film"), truthPath, measure, {})) return false;
    for (const auto& s : slots)
        for (int band = 0; band < 3; ++band) out.good[band].Merge(s->good[band]), out.naive[band].Merge(s->naive[band]);
    return true;
}

// The figures of each band; met: every band the targets apply to meets them.
json BandsJson(const CSimScene::MaterialsParams& p, const MaterialErrors& e, bool& met) {
    json bands = json::array();
    met = true;
    for (int band = 0; band < 3; ++band) {
        const bool checked = p.emissivity[band] >= kMinEmissivity;
        const double median = e.good[band].Quantile(0.5), p99 = e.good[band].Quantile(0.99);
        const bool ok = e.good[band].count > 0 && median < kMedianError && p99 < kP99Error;
        if (checked) met &= ok;
        bands.push_back({{"emissivity", p.emissivity[band]},
                         {"pixels_counted", e.good[band].count},
                         {"median_abs_k", median},
                         {"p99_abs_k", p99},
                         {"black_body_median_abs_k", e.naive[band].Quantile(0.5)},
                         {"black_body_p99_abs_k", e.naive[band].Quantile(0.99)},
                         {"target_checked", checked},
                         {"target_met", ok}});
    }
    return bands;
}

// A plate of three materials before warm surroundings, converted once with
// each band's emissivity and the surroundings' temperature, and once as if it
// were a black body.
int Demo::StageEmissivity() {
    const unsigned long frames = std::max<unsigned long>(4, 2 * m_nFrames);
    Begin("Emissivity: plate in bands of emissivity 0.95, 0.7 and 0.3 before surroundings at 50 degC");
    CSimScene::MaterialsParams p;
    CSimScene::Surface surface;
    surface.reflectedCelsius = kReflected;
    surface.atmosphereCelsius = kReflected;
    const CSimScene scene = CSimScene::Materials(p).SetSurface(surface);
    const std::string truthPath = Utf8FromPath(m_dir / "truth" / "materials_temperature.film");
    if (!Record("materials.film", scene, frames, truthPath)) return 0;
    MaterialErrors e;
    if (!MeasureMaterials(p, truthPath, e)) return 0;
    if (!SaveTemperatures("materials_temperature.png", e.firstRight) ||
        !SaveTemperatures("materials_black_body.png", e.firstBlack))
        return 0;
    bool met = true;
    const json bands = BandsJson(p, e, met);
    m_failed |= !met;
    End(frames);
    m_report["emissivity"] = {{"frames", frames},
                              {"reflected_degC", kReflected},
                              {"range_degC", {kErrorLow, kErrorHigh}},
                              {"bands", bands},
                              {"target", {{"emissivity_min", kMinEmissivity},
                                          {"median_abs_k_max", kMedianError},
                                          {"p99_abs_k_max", kP99Error}}},
                              {"target_met", met}};
    return 1;
}

// ---- 7. Lock-in -----------------------------------------------------------------
// The lock-in film, each frame with its place in the period, and the true
// amplitude and phase beside it.
bool Demo::RecordLockin(const CSimScene& scene, int perPeriod, unsigned long frames, float frequency) {
    auto hook = [&](CPtrOver* f, unsigned long k) {
        CPtrOver::PTR_LOCKIN_DATA d{};
        d.wValid = 1;
        d.dwPeriodIndex = static_cast<uint32_t>(k % perPeriod);
        d.dwPeriodFrames = static_cast<uint32_t>(perPeriod);
        d.bySignal = static_cast<uint8_t>(k % perPeriod < static_cast<unsigned long>(perPeriod / 2));
        std::memcpy(&d.dwFrequency, &frequency, sizeof frequency);
        d.dwPeriodCount = static_cast<uint32_t>(k / perPeriod);
        f->SetImageLockinData(&d);
        f->SetDemodeFrequency(frequency);
    };
    if (!Record("lockin.film", scene, frames, "", hook)) return false;
    std::vector<float> amp, ph;
    scene.LockinTruth(m_point, m_line, amp, ph);
    if (!SaveDoubles(Utf8FromPath(m_dir / "truth" / "lockin_amplitude.film"), std::vector<double>(amp.begin(), amp.end()),
                     "true oscillation amplitude, K") ||
        !SaveDoubles(Utf8FromPath(m_dir / "truth" / "lockin_phase.film"), std::vector<double>(ph.begin(), ph.end()),
                     "true phase lag, degrees")) {
        Error("folder " + Utf8FromPath(m_dir / "truth") + ": the lock-in truth cannot be written");
        return false;
    }
    return true;
}

// Module and phase of the corrected lock-in film, also saved as films.
bool Demo::Demodulate(std::vector<double>& module, std::vector<double>& phase) {
    CPtr film(Film("lockin.film"), 0, 0, 0);
    CCorrection corr(Utf8FromPath(m_dir / "camera.nuc"), Utf8FromPath(m_dir / "camera.bpr"), std::string());
    CLockin lockin(film.GetPoint(), film.GetLine(), film.GetBit(), 0);
    // Frames corrected on every core, added to the sums in frame order; the
    // reference angle comes from each frame's lock-in data.
    CPtr header(film);
    FilmPipeline pipe(film);
    const auto correct = [&](FilmFrame& f) { return corr.Apply(f.frame.GetBuffer(), f.frame.GetMaxLevel()) == 1; };
    const auto add = [&](FilmFrame& f) {
        CPtrOver::PTR_LOCKIN_DATA d{};
        std::memcpy(header.GetImageHeaderAddress(), f.header, sizeof f.header);
        header.GetImageLockinData(&d);
        const double angle = 6.283185307179586 * d.dwPeriodIndex / (d.dwPeriodFrames ? d.dwPeriodFrames : 1);
        return lockin.Accumulate(&f.frame, angle, nullptr) == 1;
    };
    if (!pipe.Run(correct, add)) {
        Error(pipe.GetLastError());
        return false;
    }
    const double* mod = lockin.GetModule(CLockin::FILTER_NONE, 1);
    const double* ph = lockin.GetPhase(CLockin::FILTER_NONE, 1);
    if (!mod || !ph) return false;
    module.assign(mod, mod + m_size);
    phase.assign(ph, ph + m_size);
    lockin.SaveModule(Utf8FromPath(m_dir / "lockin_module.film").c_str(), "DL", "lock-in module");
    lockin.SavePhase(Utf8FromPath(m_dir / "lockin_phase.film").c_str(), "deg", "lock-in phase");
    return true;
}

// The defect against a ring of sound material around it: relative module and
// phase differences, each with its contrast-to-noise ratio.
struct LockinContrast {
    double module = 0, phase = 0, moduleCnr = 0, phaseCnr = 0;
    long n[2] = {0, 0};  // pixels of the defect, of the ring
};

// The places come from the scene's geometry; the values from the film. Bad
// pixels found are left out.
LockinContrast DefectContrast(const CSimScene::LockinParams& p, int point, int line,
                              const std::vector<unsigned char>& found, const std::vector<double>& module,
                              const std::vector<double>& phase) {
    const double radius = p.defectRadius * point, blur = std::max(0.5, p.defectBlur * point);
    const double cx = p.defectX * point, cy = p.defectY * line;
    double sm[2] = {0, 0}, sp[2] = {0, 0}, sm2 = 0, sp2 = 0;
    LockinContrast c;
    long* n = c.n;
    for (int y = 0; y < line; ++y)
        for (int x = 0; x < point; ++x) {
            const double r = std::hypot(x - cx, y - cy);
            const long i = static_cast<long>(y) * point + x;
            int cls = -1;
            if (r < 0.5 * radius) cls = 0;
            else if (r > radius + 4 * blur && r < 2 * radius + 4 * blur) cls = 1;
            if (cls < 0 || found[i]) continue;
            sm[cls] += module[i];
            sp[cls] += phase[i];
            if (cls == 1) sm2 += module[i] * module[i], sp2 += phase[i] * phase[i];
            ++n[cls];
        }
    if (n[0] > 0 && n[1] > 1) {
        const double m0 = sm[0] / n[0], m1 = sm[1] / n[1], p0 = sp[0] / n[0], p1 = sp[1] / n[1];
        const double sdm = std::sqrt(std::max(0.0, sm2 / n[1] - m1 * m1));
        const double sdp = std::sqrt(std::max(0.0, sp2 / n[1] - p1 * p1));
        c.module = m1 != 0 ? (m0 - m1) / m1 : 0.0;
        c.phase = p0 - p1;
        c.moduleCnr = sdm > 0 ? std::fabs(m0 - m1) / sdm : 0.0;
        c.phaseCnr = sdp > 0 ? std::fabs(p0 - p1) / sdp : 0.0;
    }
    return c;
}

// A picture of values spread between their 1st and 99th percentiles, with its bar.
bool Demo::SaveSpread(const std::vector<double>& v, const char* name, unsigned short palette) {
    std::vector<double> s(v);
    std::sort(s.begin(), s.end());
    const double a = s[s.size() / 100], b = s[s.size() - 1 - s.size() / 100];
    std::vector<unsigned short> l(m_size);
    const unsigned short top = 16383;
    for (long i = 0; i < m_size; ++i) {
        const double x = b > a ? (v[i] - a) / (b - a) * top : 0.0;
        l[i] = !(x > 0) ? 0 : x >= top ? top : static_cast<unsigned short>(x);
    }
    return SavePicture(name, l, top, 0, top, palette, nullptr, true);
}

int Demo::StageLockin() {
    Begin("Lock-in: periodically heated sample with a buried defect");
    CSimScene::LockinParams p;
    const int perPeriod = p.framesPerPeriod;
    const unsigned long periods = m_o.quick ? 2 : 4;
    const unsigned long frames = periods * perPeriod;
    const float frequency = static_cast<float>(m_det->GetConfig().frameRate / perPeriod);
    if (!RecordLockin(CSimScene::Lockin(p), perPeriod, frames, frequency)) return 0;
    std::vector<double> module, phase;
    if (!Demodulate(module, phase)) return 0;
    const LockinContrast c = DefectContrast(p, m_point, m_line, m_found, module, phase);
    if (!SaveSpread(module, "lockin_module.png", CLogPalette::HOTMETAL) ||
        !SaveSpread(phase, "lockin_phase.png", CLogPalette::LOCKIN))
        return 0;
    End(frames);
    m_report["lockin"] = {{"frames", frames},
                          {"frames_per_period", perPeriod},
                          {"frequency_hz", frequency},
                          {"module_contrast", c.module},
                          {"module_cnr", c.moduleCnr},
                          {"phase_contrast_deg", c.phase},
                          {"phase_cnr", c.phaseCnr},
                          {"defect_pixels", c.n[0]},
                          {"reference_pixels", c.n[1]}};
    return 1;
}

// ---- Truth beside the films ------------------------------------------------------
int Demo::WriteTruth() {
    const fs::path t = m_dir / "truth";
    if (!m_det->SaveTruth(Utf8FromPath(t))) {
        Error("folder " + Utf8FromPath(t) + ": the truth files cannot be written");
        return 0;
    }
    return 1;
}

// Appends printf-formatted text to a report.
#if defined(_WIN32)  // the C99 printf of MinGW-w64, not Microsoft's
void Put(std::ostream& out, const char* format, ...) __attribute__((format(gnu_printf, 2, 3)));
#else
void Put(std::ostream& out, const char* format, ...) __attribute__((format(printf, 2, 3)));
#endif
void Put(std::ostream& out, const char* format, ...) {
    char buf[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    out << buf;
}

const char* Verdict(bool met) { return met ? "met" : "MISSED"; }

bool Demo::SaveReportJson(double total) {
    json stages = json::array();
    for (const auto& s : m_stages)
        stages.push_back({{"name", s.name},
                          {"seconds", s.seconds},
                          {"frames", s.frames},
                          {"megapixels_per_second", s.seconds > 0 ? s.megapixels / s.seconds : 0.0}});
    const bool defaultSize = m_point == 640 && m_line == 512 && !m_o.quick;
    const bool runtimeMet = total < kRuntime;
    if (defaultSize) m_failed |= !runtimeMet;
    m_report["size"] = {m_point, m_line};
    m_report["bit"] = m_det->GetConfig().bit;
    m_report["seed"] = m_o.seed;
    m_report["quick"] = m_o.quick;
    m_report["stages"] = stages;
    m_report["total_seconds"] = total;
    m_report["runtime"] = {{"seconds", total}, {"checked", defaultSize}, {"limit_s", kRuntime}, {"target_met", runtimeMet}};
    m_report["all_targets_met"] = !m_failed;
    std::ofstream j(m_dir / "report.json");
    j << m_report.dump(2) << '\n';
    if (j.good()) return true;
    FileError(Utf8FromPath(m_dir / "report.json"), "cannot be written");
    return false;
}

// The table of figures and targets; each target is written from the constant it is checked against.
void Demo::TargetRows(std::ostream& md, double total) const {
    const json& r = m_report;
    md << "## Targets\n\n| Figure | Value | Target | |\n|---|---|---|---|\n";
    Put(md, "| Residual FPN after correction | %.3f DL (before %.1f DL, temporal noise %.2f DL) | <= before/%g or <= temporal noise | %s |\n",
        r["fpn"]["after_dl"].get<double>(), r["fpn"]["before_dl"].get<double>(),
        r["fpn"]["temporal_noise_dl"].get<double>(), 1.0 / kFpnRatio, Verdict(r["fpn"]["target_met"].get<bool>()));
    const auto& b = r["bad_pixels"];
    Put(md, "| Bad pixels found | %ld of %ld injected (%ld missed), %ld false alarms (%.4f %% of pixels) | >= %g %% found, < %g %% false alarms | %s |\n",
        b["hits"].get<long>(), b["injected"].get<long>(), b["misses"].get<long>(), b["false_alarms"].get<long>(),
        100.0 * b["false_alarm_rate"].get<double>(), 100.0 * kHitRate, 100.0 * kFalseAlarmRate,
        Verdict(b["target_met"].get<bool>()));
    const auto& t = r["temperature"];
    Put(md, "| Scene temperature error, %g..%g degC | median %.3f K, 99th percentile %.3f K, worst %.2f K | median < %g K, p99 < %g K | %s |\n",
        kErrorLow, kErrorHigh, t["median_abs_k"].get<double>(), t["p99_abs_k"].get<double>(),
        t["worst_abs_k"].get<double>(), kMedianError, kP99Error, Verdict(t["target_met"].get<bool>()));
    for (const auto& band : r["emissivity"]["bands"]) {
        if (!band["target_checked"].get<bool>()) continue;
        Put(md, "| Temperature error, emissivity %.2f, %g..%g degC | median %.3f K, 99th percentile %.3f K | median < %g K, p99 < %g K | %s |\n",
            band["emissivity"].get<double>(), kErrorLow, kErrorHigh, band["median_abs_k"].get<double>(),
            band["p99_abs_k"].get<double>(), kMedianError, kP99Error, Verdict(band["target_met"].get<bool>()));
    }
    const auto& run = r["runtime"];
    Put(md, "| Run time | %.1f s | < %g s at 640 x 512 | %s |\n\n", total, kRuntime,
        run["checked"].get<bool>() ? Verdict(run["target_met"].get<bool>()) : "not checked at this size");
    const auto& w = t["worst_at"];
    if (w["frame"].get<long>() >= 0)
        Put(md, "Largest temperature error: frame %ld, pixel (%ld, %ld), true %.2f degC, measured %.2f degC%s.\n\n",
            w["frame"].get<long>(), w["x"].get<long>(), w["y"].get<long>(), w["true_degC"].get<double>(),
            w["measured_degC"].get<double>(),
            w["replaced_bad_pixel"].get<bool>() ? ", a bad pixel replaced by its neighbour" : "");
}

// Calibration, emissivity and lock-in in detail.
void Demo::ResultSections(std::ostream& md) const {
    const json& c = m_report["calibration"];
    md << "## Calibration\n\n";
    Put(md, "%zu black-body points, curve in calibration.cal. Radiometric law fitted to them (rms %.2f DL) against "
            "the law the films carry: largest difference %.3f K over %g..%g degC; the curve against the fitted law: "
            "%.3f K.\n\n",
        c["points"].get<size_t>(), c["law_fit_rms_dl"].get<double>(), c["law_difference_max_k"].get<double>(),
        kErrorLow, kErrorHigh, c["curve_vs_fitted_law_max_k"].get<double>());
    md << "| Constant | fitted | in the films |\n|---|---|---|\n";
    for (const char* k : {"R", "B", "F", "offset"})
        Put(md, "| %s | %.6g | %.6g |\n", k, c["law_fitted"].is_null() ? 0.0 : c["law_fitted"][k].get<double>(),
            c["law_in_films"].is_null() ? 0.0 : c["law_in_films"][k].get<double>());
    const json& em = m_report["emissivity"];
    md << "\n## Emissivity\n\n";
    Put(md, "A plate from 10 to 100 degC in three bands of emissivity before surroundings at %.0f degC, converted "
            "with each band's emissivity and the surroundings' temperature (the film's ambient temperature), and as "
            "if it were a black body. Absolute errors over %g..%g degC:\n\n",
        em["reflected_degC"].get<double>(), kErrorLow, kErrorHigh);
    md << "| Emissivity | right parameters: median | p99 | assumed black body: median | p99 |\n|---|---|---|---|---|\n";
    for (const auto& band : em["bands"])
        Put(md, "| %.2f | %.3f K | %.3f K | %.2f K | %.2f K |\n", band["emissivity"].get<double>(),
            band["median_abs_k"].get<double>(), band["p99_abs_k"].get<double>(),
            band["black_body_median_abs_k"].get<double>(), band["black_body_p99_abs_k"].get<double>());
    const json& l = m_report["lockin"];
    md << "\n## Lock-in\n\n";
    Put(md, "%d frames at %.3f Hz. Defect against sound material: module %+.1f %% (contrast-to-noise %.1f), phase "
            "%+.2f degrees (contrast-to-noise %.1f).\n\n",
        l["frames"].get<int>(), l["frequency_hz"].get<double>(), 100.0 * l["module_contrast"].get<double>(),
        l["module_cnr"].get<double>(), l["phase_contrast_deg"].get<double>(), l["phase_cnr"].get<double>());
}

bool Demo::SaveReportMarkdown(double total) {
    std::ofstream md(m_dir / "report.md");
    md << "# thermokit demo report\n\n";
    Put(md, "Simulated camera: %d x %d, %d-bit, seed %llu. Total run time %.1f s.\n\n", m_point, m_line,
        static_cast<int>(m_det->GetConfig().bit), static_cast<unsigned long long>(m_o.seed), total);
    TargetRows(md, total);
    ResultSections(md);
    md << "## Stages\n\n| Stage | Time (s) | Frames | Mpixel/s |\n|---|---|---|---|\n";
    for (const auto& s : m_stages)
        Put(md, "| %s | %.2f | %lu | %.0f |\n", s.name.c_str(), s.seconds, s.frames,
            s.seconds > 0 ? s.megapixels / s.seconds : 0.0);
    md << "\n## Files\n\n"
          "- films/: every simulated film (black bodies, noise, calibration points, scene, materials, lock-in)\n"
          "- camera.nuc, camera.bpr, badpixels.txt, calibration.cal, noise_map.film\n";
    Put(md, "- scene_raw.png, scene_corrected.png, scene_temperature.png (%g..%g degC on the bar), scene_isotherms.png "
            "(60..70 degC yellow, above 70 degC red)\n"
            "- materials_temperature.png (each band with its emissivity), materials_black_body.png (read as a black "
            "body), %g..%g degC\n",
        kErrorLow, kErrorHigh, kErrorLow, kErrorHigh);
    md << "- lockin_module.png, lockin_phase.png, lockin_module.film, lockin_phase.film\n"
          "- truth/: gain.film, offset.film, defects.csv, scene_temperature.film, materials_temperature.film, lockin_amplitude.film, lockin_phase.film\n";
    if (md.good()) return true;
    FileError(Utf8FromPath(m_dir / "report.md"), "cannot be written");
    return false;
}

int Demo::WriteReports(double total) { return SaveReportJson(total) && SaveReportMarkdown(total) ? 1 : 0; }

int Demo::Run() {
    const auto start = Clock::now();
    // Built under a temporary name, put in place whole (an interrupted or
    // failed run leaves no half-filled folder and keeps an earlier one).
    TemporaryFolder folder(m_o.out);
    m_dir = PathFromUtf8(folder.Temp());
    std::error_code ec;
    fs::create_directories(m_dir / "films", ec);
    fs::create_directories(m_dir / "truth", ec);
    if (!fs::is_directory(m_dir / "truth")) {
        Error("folder " + m_o.out + ": cannot be created (" + ec.message() + ")");
        return kFailed;
    }
    m_size = static_cast<long>(m_point) * m_line;
    if (m_o.frames > 0) m_nFrames = static_cast<unsigned long>(m_o.frames);
    else m_nFrames = m_o.quick ? 8 : 16;

    CSimDetector::Config cfg;
    cfg.point = static_cast<unsigned short>(m_point);
    cfg.line = static_cast<unsigned short>(m_line);
    cfg.seed = m_o.seed;
    // About one defect of each kind in 5,000 pixels, at least three.
    const int each = static_cast<int>(std::max<long>(3, m_size / 5000));
    cfg.deadCount = cfg.hotCount = cfg.noisyCount = each;
    m_det = std::make_unique<CSimDetector>(cfg);
    std::printf("Simulated camera %d x %d, %d-bit, %.0f Hz, %.0f us, %g-%g um, f/%g; %d dead, %d hot, %d noisy pixels\n",
                m_point, m_line, static_cast<int>(cfg.bit), cfg.frameRate, cfg.integrationMicros, cfg.lambda1,
                cfg.lambda2, cfg.fNumber, each, each, each);

    if (!WriteTruth() || !StageNuc() || !StageBadPixels() || !StageFpn() || !StageCalibration() || !StageScene() ||
        !StageEmissivity() || !StageLockin())
        return kFailed;
    const double total = std::chrono::duration<double>(Clock::now() - start).count();
    if (!WriteReports(total) || !folder.Commit()) return kFailed;
    m_dir = PathFromUtf8(m_o.out);

    const json& r = m_report;
    std::printf("\nResults in %s (report.md, report.json, pictures, films, truth/)\n", Utf8FromPath(m_dir).c_str());
    std::printf("  FPN %.2f DL -> %.3f DL (temporal noise %.2f DL)\n", r["fpn"]["before_dl"].get<double>(),
                r["fpn"]["after_dl"].get<double>(), r["fpn"]["temporal_noise_dl"].get<double>());
    std::printf("  bad pixels: %ld of %ld found, %ld false alarms\n", r["bad_pixels"]["hits"].get<long>(),
                r["bad_pixels"]["injected"].get<long>(), r["bad_pixels"]["false_alarms"].get<long>());
    std::printf("  temperature error: median %.3f K, p99 %.3f K, worst %.2f K\n",
                r["temperature"]["median_abs_k"].get<double>(), r["temperature"]["p99_abs_k"].get<double>(),
                r["temperature"]["worst_abs_k"].get<double>());
    for (const auto& band : r["emissivity"]["bands"])
        std::printf("  emissivity %.2f: median %.3f K, p99 %.3f K (as a black body: median %.2f K, p99 %.2f K)\n",
                    band["emissivity"].get<double>(), band["median_abs_k"].get<double>(),
                    band["p99_abs_k"].get<double>(), band["black_body_median_abs_k"].get<double>(),
                    band["black_body_p99_abs_k"].get<double>());
    std::printf("  lock-in defect: phase %+.2f deg (CNR %.1f), module %+.1f %%\n",
                r["lockin"]["phase_contrast_deg"].get<double>(), r["lockin"]["phase_cnr"].get<double>(),
                100.0 * r["lockin"]["module_contrast"].get<double>());
    std::printf("  total %.1f s: %s\n", total, m_failed ? "a target was MISSED" : "all targets met");
    return m_failed ? kFailed : kDone;
}

int RunDemo(const DemoOptions& o) {
    int point = 640, line = 512;
    if (o.quick) point = 320, line = 256;
    if (!o.size.empty()) {
        char x = 0;
        char tail = 0;
        if (std::sscanf(o.size.c_str(), "%d%c%d%c", &point, &x, &line, &tail) != 3 || (x != 'x' && x != 'X')) {
            Error("--size " + o.size + ": expected WxH, for example 640x512");
            return kUsage;
        }
    }
    if (point < 32 || line < 32 || point > 4096 || line > 4096) {
        Error("--size " + o.size + ": width and height must lie between 32 and 4096");
        return kUsage;
    }
    Demo demo(o, point, line);
    return demo.Run();
}

}  // namespace

void AddDemoCommand(CLI::App& app) {
    auto options = std::make_shared<DemoOptions>();
    auto* demo = app.add_subcommand("demo", "Run the whole chain on a simulated camera and report the figures");
    demo->add_option("-o,--output", options->out, "Folder for films, tables, pictures and reports (default out/demo)");
    demo->add_option("--size", options->size, "Detector size WxH (default 640x512)");
    demo->add_option("-n,--count", options->frames, "Frames of each averaged film (default 16; the scene film has twice as many)")
        ->check(CLI::Range(1, 100000));
    demo->add_flag("--quick", options->quick, "Smaller and shorter: 320x256, 8 frames, fewer calibration points");
    demo->add_option("--seed", options->seed, "Seed of the simulated camera (default 1)");
    demo->footer("Example: thermokit demo -o out/demo --size 640x512 --count 16");
    demo->callback([options] { SetAction([options] { return RunDemo(*options); }); });
}

}  // namespace thermokit::cli
