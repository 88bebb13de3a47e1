// The simulated camera: repeatability from the seed, the physics of its
// levels, its maps and defects, its films and the radiometric fit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "support/Bytes.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/simulation/CRadiometricFit.h"
#include "thermokit/simulation/CSimDetector.h"
#include "thermokit/simulation/CSimFilm.h"
#include "thermokit/simulation/CSimRandom.h"
#include "thermokit/simulation/CSimScene.h"

namespace thermokit {
namespace {

constexpr double kKelvin = 273.15;

std::string Temp(const std::string& name) { return test::TempPath("sim_" + name); }
using test::ReadAll;

CSimDetector::Config Small(uint64_t seed = 7) {
    CSimDetector::Config c;
    c.point = 96;
    c.line = 80;
    c.seed = seed;
    c.deadCount = c.hotCount = c.noisyCount = 5;
    return c;
}

double Mean(const std::vector<unsigned short>& v) {
    double s = 0;
    for (auto x : v) s += x;
    return s / static_cast<double>(v.size());
}

TEST(SimRandom, StreamsRepeatAndDiffer) {
    CSimRandom a(42), b(42), c(43);
    bool differs = false;
    for (int i = 0; i < 100; ++i) {
        const uint64_t x = a.Next();
        EXPECT_EQ(x, b.Next());
        differs |= x != c.Next();
    }
    EXPECT_TRUE(differs);
    EXPECT_NE(CSimRandom::Derive(1, 2, 3), CSimRandom::Derive(1, 3, 2));
    EXPECT_NE(CSimRandom::Derive(1, 0), CSimRandom::Derive(2, 0));

    // Normal deviates: mean 0, standard deviation 1; uniform integers stay below their bound.
    CSimRandom r(5);
    double s = 0, s2 = 0;
    const int n = 200000;
    for (int i = 0; i < n; ++i) {
        const double z = r.Normal();
        s += z;
        s2 += z * z;
    }
    EXPECT_NEAR(s / n, 0.0, 0.01);
    EXPECT_NEAR(std::sqrt(s2 / n), 1.0, 0.01);
    for (int i = 0; i < 10000; ++i) EXPECT_LT(r.Below(7), 7u);
    EXPECT_EQ(r.Below(1), 0u);
}

TEST(SimDetector, SameSeedSameFramesWhateverTheThreads) {
    CSimDetector::Config c1 = Small(11), c2 = Small(11), c3 = Small(12);
    c1.point = c2.point = c3.point = 320;
    c1.line = c2.line = c3.line = 256;  // large enough to be shared between threads
    c1.threads = 1;
    c2.threads = 2;
    CSimDetector a(c1), b(c2), c(c3);
    const auto scene = CSimScene::Uniform(30.0);
    std::vector<unsigned short> la(a.GetSize()), lb(b.GetSize()), lc(c.GetSize());
    for (int k = 0; k < 3; ++k) {
        a.Capture(scene, k, la.data());
        b.Capture(scene, k, lb.data());
        c.Capture(scene, k, lc.data());
        EXPECT_EQ(la, lb) << "frame " << k;
        EXPECT_NE(la, lc);
    }
    EXPECT_EQ(a.GetGainMap(), b.GetGainMap());
    EXPECT_NE(a.GetGainMap(), c.GetGainMap());
    // Two successive frames differ by their temporal noise only.
    std::vector<unsigned short> next(a.GetSize());
    a.Capture(scene, 3, next.data());
    EXPECT_NE(next, la);
    EXPECT_NEAR(Mean(next), Mean(la), 0.5);
}

TEST(SimDetector, FilmsRepeatByteForByte) {
    const std::string f1 = Temp("a.film"), f2 = Temp("b.film"), t1 = Temp("a_truth.film"), t2 = Temp("b_truth.film");
    CSimScene::PlateParams p;
    p.moveX = 1.5;
    const auto scene = CSimScene::Plate(p);
    {
        CSimDetector a(Small(3)), b(Small(3));
        ASSERT_EQ(CSimFilm::Record(f1, a, scene, 4, t1), 1);
        ASSERT_EQ(CSimFilm::Record(f2, b, scene, 4, t2), 1);
    }
    const auto b1 = ReadAll(f1), b2 = ReadAll(f2);
    ASSERT_FALSE(b1.empty());
    EXPECT_EQ(b1, b2);
    EXPECT_EQ(ReadAll(t1), ReadAll(t2));
    // Recording again over an existing, longer film leaves no stale images.
    {
        CSimDetector a(Small(3));
        ASSERT_EQ(CSimFilm::Record(f1, a, scene, 2), 1);
    }
    CPtr film(f1, 0, 0, 0);
    ASSERT_TRUE(film.IsValid());
    EXPECT_EQ(film.GetFrameNumber(), 2u);
    EXPECT_EQ(static_cast<int64_t>(ReadAll(f1).size()), static_cast<int64_t>(film.OffsetImage(2)));
    for (const std::string& f : {f1, f2, t1, t2}) std::filesystem::remove(f);
}

TEST(SimDetector, FilmHeaderDescribesTheCamera) {
    const std::string path = Temp("h.film"), truth = Temp("h_truth.film");
    CSimDetector det(Small());
    CSimScene::PlateParams p;
    p.moveX = 2.0;
    const auto scene = CSimScene::Plate(p);
    ASSERT_EQ(CSimFilm::Record(path, det, scene, 3, truth), 1);
    CPtr film(path, 0, 0, 0);
    ASSERT_TRUE(film.IsValid());
    const auto& c = det.GetConfig();
    EXPECT_EQ(film.GetCamera(), c.camera);
    EXPECT_EQ(film.GetSerial(), c.serial);
    EXPECT_EQ(film.GetPoint(), c.point);
    EXPECT_EQ(film.GetLine(), c.line);
    EXPECT_EQ(film.GetBit(), c.bit);
    EXPECT_FLOAT_EQ(film.GetIntegration(0), static_cast<float>(c.integrationMicros * 1e-6));
    EXPECT_NEAR(film.GetFrameRate(), c.frameRate, 1e-3);
    EXPECT_FLOAT_EQ(film.GetCutOn(), static_cast<float>(c.lambda1));
    EXPECT_FLOAT_EQ(film.GetAperture(), static_cast<float>(c.fNumber));
    _SCalibrationRBF law{};
    ASSERT_EQ(film.GetRBFCalibParam(&law), 1);
    const _SCalibrationRBF expected = det.GetLaw();
    // Every member travels (the record's unused constants are zero); packed
    // fields are copied before they are compared.
    EXPECT_EQ(CCalibrationRBF(expected).IsCalibrationFactorEqual(&law), 1);
    const float r = law.m_fR, er = expected.m_fR;
    const int32_t off = law.m_nOffset, eoff = expected.m_nOffset;
    EXPECT_EQ(r, er);
    EXPECT_EQ(off, eoff);
    EXPECT_LT(off, 0);  // the level of a black scene, taken off
    // Image times one frame period apart; the truth film holds each frame's own scene.
    double t0 = 0, t2 = 0;
    ASSERT_TRUE(film.ReadTime(0, t0));
    ASSERT_TRUE(film.ReadTime(2, t2));
    EXPECT_NEAR(t2 - t0, 2.0 / c.frameRate, 2e-6);
    CPtrFloat tf(truth, 0, 0, 0);
    ASSERT_TRUE(tf.IsValid());
    ASSERT_EQ(tf.GetFrameNumber(), 3u);
    std::vector<float> kelvin(det.GetSize());
    scene.Temperature(c.point, c.line, 2, 0.0, kelvin.data());
    ASSERT_TRUE(tf.ReadFrame(2));
    for (long i = 0; i < det.GetSize(); i += 97)
        EXPECT_NEAR(tf.GetDoubleBuffer()[i], kelvin[i] - kKelvin, 1e-3) << i;
    std::filesystem::remove(path);
    std::filesystem::remove(truth);
}

TEST(SimDetector, FilmThatCannotBeWrittenIsReported) {
    CSimDetector det(Small());
    const std::string path = ::testing::TempDir() + "no_such_folder_sim/x/y.film";
    CSimFilm film(path, det);
    EXPECT_EQ(film.IsOpen(), 0);
    EXPECT_EQ(film.Add(det, CSimScene::Uniform(20.0), 0), 0);
    EXPECT_EQ(CSimFilm::Record(path, det, CSimScene::Uniform(20.0), 2), 0);
}

TEST(SimDetector, LevelsRiseWithTemperatureAndCameraDrift) {
    CSimDetector::Config cfg = Small();
    cfg.deadCount = cfg.hotCount = cfg.noisyCount = 0;
    CSimDetector det(cfg);
    const double camera = cfg.cameraCelsius + kKelvin;
    double previous = 0;
    for (int c = -20; c <= 150; c += 5) {
        const double m = det.MeanLevel(c + kKelvin, camera);
        EXPECT_GT(m, previous) << c;
        previous = m;
    }
    EXPECT_LT(det.MeanLevel(110 + kKelvin, camera), 0.9 * det.GetMaxLevel());
    EXPECT_GT(det.MeanLevel(-20 + kKelvin, camera), cfg.pedestal);
    // Far too hot: every pixel clamps at the maximal level, none wraps.
    std::vector<unsigned short> hot(det.GetSize());
    det.Capture(CSimScene::Uniform(400.0), 0, hot.data());
    for (auto v : hot) ASSERT_EQ(v, det.GetMaxLevel());
    // Captured frames follow the model's mean within the spread of the maps.
    std::vector<unsigned short> lv(det.GetSize());
    double last = 0;
    for (double c : {0.0, 30.0, 60.0, 100.0}) {
        det.Capture(CSimScene::Uniform(c), 0, lv.data());
        const double m = Mean(lv);
        EXPECT_GT(m, last);
        EXPECT_NEAR(m, det.MeanLevel(c + kKelvin, det.CameraKelvin(det.GetTime())), 0.01 * m + 5.0);
        last = m;
    }
    // A warmer camera: the optics glow more and every level rises.
    cfg.driftPerSecond = 0.5;
    CSimDetector drift(cfg);
    std::vector<unsigned short> early(drift.GetSize()), late(drift.GetSize());
    drift.Capture(CSimScene::Uniform(20.0), 0, early.data());
    drift.Wait(60.0);  // 30 K warmer
    drift.Capture(CSimScene::Uniform(20.0), 1, late.data());
    EXPECT_GT(Mean(late), Mean(early) + 20.0);
    EXPECT_NEAR(drift.CameraKelvin(60.0 + 0.01) - drift.CameraKelvin(0.0), 30.005, 1e-9);
}

TEST(SimDetector, MapsAndDefectsAsConfigured) {
    CSimDetector::Config cfg;
    cfg.point = 256;
    cfg.line = 200;
    cfg.gainSpread = 0.05;
    cfg.offsetSpread = 25.0;
    cfg.deadCount = 20;
    cfg.hotCount = 15;
    cfg.noisyCount = 10;
    cfg.defects = {{0, CSimDetector::kHot}, {256 * 200 - 1, CSimDetector::kDead}, {5 * 256 + 7, CSimDetector::kNoisy}};
    CSimDetector det(cfg);
    const auto& gain = det.GetGainMap();
    const auto& offset = det.GetOffsetMap();
    const auto& defect = det.GetDefectMap();
    double g = 0, g2 = 0, o = 0, o2 = 0;
    long n = 0;
    int count[4] = {0, 0, 0, 0};
    for (size_t i = 0; i < gain.size(); ++i) {
        ++count[defect[i]];
        if (defect[i] != CSimDetector::kGood) continue;
        g += gain[i];
        g2 += gain[i] * gain[i];
        o += offset[i];
        o2 += offset[i] * offset[i];
        ++n;
    }
    const double gm = g / n, om = o / n;
    EXPECT_NEAR(gm, 1.0, 0.002);
    EXPECT_NEAR(std::sqrt(g2 / n - gm * gm), 0.05, 0.002);
    EXPECT_NEAR(om, 0.0, 0.5);
    EXPECT_NEAR(std::sqrt(o2 / n - om * om), 25.0, 1.0);
    EXPECT_EQ(count[CSimDetector::kDead], 21);
    EXPECT_EQ(count[CSimDetector::kHot], 16);
    EXPECT_EQ(count[CSimDetector::kNoisy], 11);
    EXPECT_EQ(defect[0], CSimDetector::kHot);
    EXPECT_EQ(defect.back(), CSimDetector::kDead);
    EXPECT_EQ(det.GetDefects().size(), 48u);
    EXPECT_GE(offset[0], cfg.hotMin - 5 * cfg.offsetSpread);
    EXPECT_EQ(gain.back(), 0.0f);

    // Dead pixels never move; noisy pixels scatter several times more than their neighbours.
    const auto scene = CSimScene::Uniform(40.0);
    const long noisy = 5 * 256 + 7, normal = 5 * 256 + 9;
    std::vector<unsigned short> lv(det.GetSize());
    double sn = 0, sn2 = 0, sg = 0, sg2 = 0;
    unsigned short dead = 0;
    const int frames = 64;
    for (int k = 0; k < frames; ++k) {
        det.Capture(scene, k, lv.data());
        if (k == 0) dead = lv.back();
        EXPECT_EQ(lv.back(), dead);
        sn += lv[noisy];
        sn2 += static_cast<double>(lv[noisy]) * lv[noisy];
        sg += lv[normal];
        sg2 += static_cast<double>(lv[normal]) * lv[normal];
    }
    const double sdNoisy = std::sqrt(sn2 / frames - (sn / frames) * (sn / frames));
    const double sdNormal = std::sqrt(sg2 / frames - (sg / frames) * (sg / frames));
    EXPECT_GT(sdNoisy, 3.0 * sdNormal);
    // The normal pixel's scatter is the model's shot and read noise.
    const double e = det.SceneElectrons(40.0 + kKelvin) + det.OpticsElectrons(det.CameraKelvin(0.0));
    const double model = gain[normal] / cfg.electronsPerLevel * std::sqrt(e + cfg.readNoise * cfg.readNoise);
    EXPECT_NEAR(sdNormal, model, 0.35 * model + 0.3);
}

TEST(SimDetector, TruthFilesHoldTheMaps) {
    CSimDetector::Config cfg = Small();
    cfg.defects = {{3 * 96 + 4, CSimDetector::kHot}};
    CSimDetector det(cfg);
    const std::string folder = Temp("truth");
    std::filesystem::create_directories(folder);
    ASSERT_EQ(det.SaveTruth(folder), 1);
    CPtrFloat gain(folder + "/gain.film", 0, 0, 0), offset(folder + "/offset.film", 0, 0, 0);
    ASSERT_TRUE(gain.IsValid());
    ASSERT_TRUE(offset.IsValid());
    ASSERT_TRUE(gain.ReadFrame(0));
    ASSERT_TRUE(offset.ReadFrame(0));
    for (long i = 0; i < det.GetSize(); ++i) {
        ASSERT_EQ(gain.GetDoubleBuffer()[i], det.GetGainMap()[i]);
        ASSERT_EQ(offset.GetDoubleBuffer()[i], det.GetOffsetMap()[i]);
    }
    const std::vector<std::string> lines = test::ReadLines(folder + "/defects.csv");
    ASSERT_EQ(lines.size(), det.GetDefects().size() + 1);
    EXPECT_EQ(lines[0], "index,x,y,kind");
    EXPECT_NE(std::find(lines.begin(), lines.end(), std::to_string(3 * 96 + 4) + ",4,3,hot"), lines.end());
    EXPECT_EQ(det.SaveTruth(folder + "/missing/deeper"), 0);
    std::filesystem::remove_all(folder);
}

TEST(RadiometricFit, RecoversAKnownLawAndRefusesTooLittle) {
    CRadiometricFit::Result law;
    law.R = 6.0e7;
    law.B = 3300.0;
    law.F = 5.0;
    law.offset = -1100.0;
    std::vector<double> levels, kelvin;
    for (int c = 0; c <= 110; c += 5) {
        kelvin.push_back(c + kKelvin);
        levels.push_back(CRadiometricFit::Level(law, c + kKelvin));
    }
    const auto fit = CRadiometricFit::Fit(levels, kelvin, 4.25);
    ASSERT_EQ(fit.ok, 1);
    EXPECT_LT(fit.rmsLevels, 0.05);
    // Through the calibration class, levels come back as their temperatures.
    CCalibrationRBF rbf(CRadiometricFit::ToRecord(fit));
    for (size_t k = 0; k < levels.size(); ++k) {
        float t = 0;
        ASSERT_EQ(rbf.Interpolate(static_cast<float>(std::lround(levels[k])), &t, 1), 1);
        EXPECT_NEAR(t, kelvin[k] - kKelvin, 0.05) << k;
    }
    EXPECT_EQ(CRadiometricFit::Fit({1, 2, 3}, {280, 290, 300}, 4.0).ok, 0);
    EXPECT_EQ(CRadiometricFit::Fit({1, 2, 3, 4}, {280, 290, 300}, 4.0).ok, 0);
    EXPECT_EQ(CRadiometricFit::Fit({1, 2, 3, 4}, {300, 300, 300, 300}, 4.0).ok, 0);
    EXPECT_EQ(CRadiometricFit::Fit({1, 2, 3, 4}, {280, 0, 300, 310}, 4.0).ok, 0);
    EXPECT_EQ(CRadiometricFit::Fit({1, 2, 3, 4}, {280, 290, 300, 310}, 0.0).ok, 0);
}

TEST(SimDetector, CarriedLawConvertsTheModelsLevels) {
    CSimDetector det(Small());
    ASSERT_EQ(det.GetLawFit().ok, 1);
    CCalibrationRBF rbf(det.GetLaw());
    const double camera = det.GetConfig().cameraCelsius + kKelvin;
    for (int c = 0; c <= 120; c += 10) {
        float t = 0;
        const double level = det.MeanLevel(c + kKelvin, camera);
        ASSERT_EQ(rbf.Interpolate(static_cast<float>(std::lround(level)), &t, 1), 1);
        EXPECT_NEAR(t, c, 0.1) << c;
    }
}

TEST(SimScene, PlateSpotMovesAndLockinRepeatsEachPeriod) {
    const int w = 120, h = 90;
    std::vector<float> a(w * h), b(w * h);
    CSimScene::Uniform(21.5).Temperature(w, h, 0, 0.0, a.data());
    for (float t : a) EXPECT_FLOAT_EQ(t, static_cast<float>(21.5 + kKelvin));

    CSimScene::PlateParams p;
    p.moveX = 2.0;
    p.moveY = -1.0;
    const auto plate = CSimScene::Plate(p);
    double x0, y0, x5, y5;
    plate.SpotCentre(w, h, 0, x0, y0);
    plate.SpotCentre(w, h, 5, x5, y5);
    EXPECT_DOUBLE_EQ(x5 - x0, 10.0);
    EXPECT_DOUBLE_EQ(y5 - y0, -5.0);
    plate.Temperature(w, h, 5, 0.0, a.data());
    const int cx = static_cast<int>(std::lround(x5)), cy = static_cast<int>(std::lround(y5));
    const float peak = a[cy * w + cx];
    EXPECT_GT(peak, a[cy * w + cx + 10]);
    EXPECT_GT(peak, a[(cy + 10) * w + cx]);
    EXPECT_GT(peak - kKelvin, p.leftCelsius + 0.9 * p.spotRise);
    EXPECT_LT(a[0], a[w - 1]);  // left to right gradient

    CSimScene::LockinParams lp;
    const auto lock = CSimScene::Lockin(lp);
    lock.Temperature(w, h, 3, 0.0, a.data());
    lock.Temperature(w, h, 3 + lp.framesPerPeriod, 0.0, b.data());
    EXPECT_EQ(a, b);
    lock.Temperature(w, h, 3 + lp.framesPerPeriod / 2, 0.0, b.data());
    EXPECT_NE(a, b);
    const int dx = static_cast<int>(lp.defectX * w), dy = static_cast<int>(lp.defectY * h);
    EXPECT_GT(lock.DefectWeight(w, h, dx, dy), 0.95);
    EXPECT_LT(lock.DefectWeight(w, h, 0, 0), 0.01);
    std::vector<float> amp, ph;
    lock.LockinTruth(w, h, amp, ph);
    EXPECT_NEAR(ph[dy * w + dx], lp.phaseDegrees + lp.defectPhaseDegrees, 1.5);
    EXPECT_NEAR(ph[0], lp.phaseDegrees, 0.1);
}

}  // namespace
}  // namespace thermokit
