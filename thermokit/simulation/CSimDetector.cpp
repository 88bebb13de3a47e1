#include "thermokit/simulation/CSimDetector.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <thread>

#include "thermokit/calibration/CPlanck.h"
#include "thermokit/film/CPtrOver.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/Utf8Path.h"
#include "thermokit/simulation/CSimRandom.h"
#include "thermokit/simulation/CSimScene.h"

namespace thermokit {

namespace {
constexpr double kKelvin = 273.15;
constexpr int kBlockLines = 16;          // lines sharing one noise stream
constexpr uint64_t kMapStream = 0x4D41505Full;  // "MAPS"
constexpr double kDetectorKelvin = 77.0;        // the cooled detector's temperature

CPlanck Budget(const CSimDetector::Config& c, double kelvin, double transmissionPercent) {
    CPlanck p;
    p.m_dTemperature = kelvin;
    p.m_dLambda1 = c.lambda1;
    p.m_dLambda2 = c.lambda2;
    p.m_dTransmission1 = transmissionPercent;
    p.m_dTransmission2 = 100.0;
    p.m_dFactor = 1.0;
    p.m_dQuantumEfficiency = c.quantumEfficiency;
    p.m_dIntegrationTime = c.integrationMicros;
    p.m_dFNumber = c.fNumber;
    p.m_dPixelPitchX = c.pitchMicrons;
    p.m_dPixelPitchY = c.pitchMicrons;
    if (!p.Calculer()) p.m_dElectrons = 0.0;
    return p;
}
}  // namespace

int CSimDetector::DefaultDefectCount(unsigned short point, unsigned short line) {
    const long size = static_cast<long>(point) * line;
    return static_cast<int>(size / 5000 > 3 ? size / 5000 : 3);
}

CSimDetector::CSimDetector(const Config& config) : m_Config(config) {
    if (m_Config.bit < 1 || m_Config.bit > 16) m_Config.bit = 14;
    if (!(m_Config.frameRate > 0.0)) m_Config.frameRate = 100.0;
    if (!(m_Config.electronsPerLevel > 0.0)) m_Config.electronsPerLevel = 1.0;
    if (m_Config.threads < 1) m_Config.threads = 1;
    m_wMaxLevel = static_cast<unsigned short>((1u << m_Config.bit) - 1u);

    const size_t count = static_cast<size_t>((kTableMax - kTableMin) / kStep) + 2;
    m_adTable.resize(count);
    for (size_t k = 0; k < count; ++k)
        m_adTable[k] = Budget(m_Config, kTableMin + k * kStep, m_Config.opticsTransmission).m_dElectrons;

    MakeMaps();

    std::vector<double> levels, kelvin;
    const double camera = m_Config.cameraCelsius + kKelvin;
    for (int c = -10; c <= 140; c += 2) {
        kelvin.push_back(c + kKelvin);
        levels.push_back(MeanLevel(c + kKelvin, camera));
    }
    m_Law = CRadiometricFit::Fit(levels, kelvin, 0.5 * (m_Config.lambda1 + m_Config.lambda2));
}

void CSimDetector::MakeMaps() {
    const size_t n = static_cast<size_t>(GetSize());
    m_afGain.resize(n);
    m_afOffset.resize(n);
    m_afNoise.assign(n, 1.0f);
    m_abyDefect.assign(n, kGood);
    CSimRandom rng(CSimRandom::Derive(m_Config.seed, kMapStream));
    for (size_t i = 0; i < n; ++i) {
        m_afGain[i] = static_cast<float>(1.0 + m_Config.gainSpread * rng.Normal());
        m_afOffset[i] = static_cast<float>(m_Config.offsetSpread * rng.Normal());
    }

    const long point = m_Config.point, line = m_Config.line;
    auto place = [&](long index, DefectKind kind) {
        if (index < 0 || index >= static_cast<long>(n) || kind == kGood) return;
        m_abyDefect[index] = kind;
        switch (kind) {
        case kDead: m_afGain[index] = 0.0f; break;
        case kHot:
            m_afOffset[index] += static_cast<float>(m_Config.hotMin + (m_Config.hotMax - m_Config.hotMin) * rng.Uniform());
            break;
        case kNoisy:
            m_afNoise[index] =
                static_cast<float>(m_Config.noisyMin + (m_Config.noisyMax - m_Config.noisyMin) * rng.Uniform());
            break;
        default: break;
        }
    };
    for (const Defect& d : m_Config.defects) place(d.index, d.kind);

    // Random places keep a good pixel all around each defect, so that every
    // defect has good neighbours to be replaced by.
    auto isolated = [&](long index) {
        const long x = index % point, y = index / point;
        for (long dy = -1; dy <= 1; ++dy)
            for (long dx = -1; dx <= 1; ++dx) {
                const long xx = x + dx, yy = y + dy;
                if (xx < 0 || yy < 0 || xx >= point || yy >= line) continue;
                if (m_abyDefect[yy * point + xx] != kGood) return false;
            }
        return true;
    };
    const struct {
        int count;
        DefectKind kind;
    } wanted[] = {{m_Config.deadCount, kDead}, {m_Config.hotCount, kHot}, {m_Config.noisyCount, kNoisy}};
    for (const auto& w : wanted) {
        int placed = 0;
        for (long tries = 0; placed < w.count && tries < 100L * (w.count + 1); ++tries) {
            const long index = static_cast<long>(rng.Below(n));
            if (!isolated(index)) continue;
            place(index, w.kind);
            ++placed;
        }
    }
}

std::vector<CSimDetector::Defect> CSimDetector::GetDefects() const {
    std::vector<Defect> out;
    for (size_t i = 0; i < m_abyDefect.size(); ++i)
        if (m_abyDefect[i] != kGood) out.push_back({static_cast<long>(i), static_cast<DefectKind>(m_abyDefect[i])});
    return out;
}

int CSimDetector::SaveTruth(const std::string& folder) const {
    CFrame frame(m_Config.point, m_Config.line, m_Config.bit, 0, 0);
    std::vector<double> gain(m_afGain.begin(), m_afGain.end()), offset(m_afOffset.begin(), m_afOffset.end());
    const std::string base = folder.empty() || folder.back() == '/' ? folder : folder + "/";
    int ok = frame.Save((base + "gain.film").c_str(), gain.data(), "", "per-pixel gain (0 for dead pixels)");
    ok &= frame.Save((base + "offset.film").c_str(), offset.data(), "DL", "per-pixel offset, levels (hot pixels included)");
    std::ofstream csv(PathFromUtf8(base + "defects.csv"), std::ios::binary);
    csv << "index,x,y,kind\n";
    static const char* const kinds[] = {"good", "dead", "hot", "noisy"};
    for (const Defect& d : GetDefects())
        csv << d.index << ',' << d.index % m_Config.point << ',' << d.index / m_Config.point << ',' << kinds[d.kind]
            << '\n';
    csv.flush();
    return ok && csv.good() ? 1 : 0;
}

double CSimDetector::SceneElectrons(double kelvin) const {
    double u = (kelvin - kTableMin) / kStep;
    if (!(u > 0.0)) return m_adTable.front();
    const size_t last = m_adTable.size() - 1;
    if (u >= static_cast<double>(last)) return m_adTable.back();
    const size_t k = static_cast<size_t>(u);
    u -= static_cast<double>(k);
    return m_adTable[k] + (m_adTable[k + 1] - m_adTable[k]) * u;
}

double CSimDetector::OpticsElectrons(double cameraKelvin) const {
    return Budget(m_Config, cameraKelvin, 100.0 - m_Config.opticsTransmission).m_dElectrons;
}

double CSimDetector::MeanLevel(double kelvin, double cameraKelvin) const {
    return m_Config.pedestal + (SceneElectrons(kelvin) + OpticsElectrons(cameraKelvin)) / m_Config.electronsPerLevel;
}

double CSimDetector::CameraKelvin(double time) const {
    return m_Config.cameraCelsius + kKelvin + m_Config.driftPerSecond * time;
}

void CSimDetector::Render(const float* kelvin, const float* emissivity, const CSimScene& scene,
                          unsigned short* levels, uint64_t frameNumber, double cameraKelvin,
                          unsigned threads) const {
    const CSimScene::Surface& surface = scene.GetSurface();
    const double tau = surface.transmission;
    const double reflected = tau * SceneElectrons(surface.reflectedCelsius + kKelvin);
    const double air = (1.0 - tau) * SceneElectrons(surface.atmosphereCelsius + kKelvin);
    const int point = m_Config.point, line = m_Config.line;
    const int blocks = (line + kBlockLines - 1) / kBlockLines;
    const double optics = OpticsElectrons(cameraKelvin);
    const double read2 = m_Config.readNoise * m_Config.readNoise;
    const double inv = 1.0 / m_Config.electronsPerLevel;
    const double top = m_wMaxLevel;
    auto level = [top](double v) -> unsigned short {
        v = std::floor(v + 0.5);
        if (!(v > 0.0)) return 0;
        return v >= top ? static_cast<unsigned short>(top) : static_cast<unsigned short>(v);
    };
    auto work = [&](int firstBlock, int lastBlock) {
        for (int b = firstBlock; b < lastBlock; ++b) {
            CSimRandom rng(CSimRandom::Derive(m_Config.seed, frameNumber, static_cast<uint64_t>(b) + 1));
            const size_t from = static_cast<size_t>(b) * kBlockLines * point;
            const size_t to = std::min(static_cast<size_t>(line), static_cast<size_t>(b + 1) * kBlockLines) * point;
            for (size_t i = from; i < to; ++i) {
                const double z = rng.Normal();
                const double base = m_Config.pedestal + m_afOffset[i];
                if (m_abyDefect[i] == kDead) {
                    levels[i] = level(base);
                    continue;
                }
                double e = SceneElectrons(kelvin[i]);
                if (emissivity) e = tau * emissivity[i] * e + (1.0 - emissivity[i]) * reflected + air;
                e += optics;
                const double g = m_afGain[i] * inv;
                const double sigma = g * std::sqrt(e + read2) * m_afNoise[i];
                levels[i] = level(base + g * e + sigma * z);
            }
        }
    };
    threads = std::min<unsigned>(threads, static_cast<unsigned>(blocks));
    if (threads <= 1 || GetSize() < 65536) {
        work(0, blocks);
        return;
    }
    std::vector<std::thread> pool;
    for (unsigned t = 1; t < threads; ++t)
        pool.emplace_back(work, static_cast<int>(blocks * t / threads), static_cast<int>(blocks * (t + 1) / threads));
    work(0, static_cast<int>(blocks / threads));
    for (auto& th : pool) th.join();
}

CSimDetector::Shot CSimDetector::Next() {
    const Shot shot{m_nFrames, m_dTime};
    ++m_nFrames;
    m_dTime += 1.0 / m_Config.frameRate;
    return shot;
}

void CSimDetector::Take(const CSimScene& scene, unsigned long frameInFilm, const Shot& shot, unsigned short* levels,
                        float* kelvin, std::vector<float>& emissivity) const {
    scene.Temperature(m_Config.point, m_Config.line, frameInFilm, shot.time, kelvin);
    const float* e = nullptr;
    if (!scene.IsBlackBody()) {
        emissivity.resize(static_cast<size_t>(GetSize()));
        scene.Emissivity(m_Config.point, m_Config.line, emissivity.data());
        e = emissivity.data();
    }
    Render(kelvin, e, scene, levels, shot.number, CameraKelvin(shot.time), 1);
}

void CSimDetector::Capture(const CSimScene& scene, unsigned long frameInFilm, unsigned short* levels, float* kelvin) {
    const size_t n = static_cast<size_t>(GetSize());
    float* map = kelvin;
    if (!map) {
        m_afKelvin.resize(n);
        map = m_afKelvin.data();
    }
    scene.Temperature(m_Config.point, m_Config.line, frameInFilm, m_dTime, map);
    const float* emissivity = nullptr;
    if (!scene.IsBlackBody()) {
        m_afEmissivity.resize(n);
        scene.Emissivity(m_Config.point, m_Config.line, m_afEmissivity.data());
        emissivity = m_afEmissivity.data();
    }
    const Shot shot = Next();
    Render(map, emissivity, scene, levels, shot.number, CameraKelvin(shot.time), m_Config.threads);
}

void CSimDetector::Capture(const CSimScene& scene, unsigned long frameInFilm, CFrame* frame) {
    if (!frame || frame->GetSize() != GetSize() || !frame->GetBuffer()) return;
    frame->SetTime(TimeOfDay(m_dTime));
    Capture(scene, frameInFilm, frame->GetBuffer(), nullptr);
}

void CSimDetector::FillHeader(CPtrOver* film) const {
    if (!film) return;
    std::tm start{};
    start.tm_year = 2026 - 1900;
    start.tm_mon = 0;
    start.tm_mday = 15;
    const long seconds = static_cast<long>(TimeOfDay(m_dTime));
    start.tm_hour = static_cast<int>(seconds / 3600);
    start.tm_min = static_cast<int>(seconds / 60 % 60);
    start.tm_sec = static_cast<int>(seconds % 60);
    film->SetRecordingClock(&start);
    film->SetTime(TimeOfDay(m_dTime));
    film->SetCamera(m_Config.camera.c_str());
    film->SetSerial(m_Config.serial.c_str());
    char band[20];
    std::snprintf(band, sizeof band, "%.2g-%.2gum", m_Config.lambda1, m_Config.lambda2);
    film->SetFilter(band);
    film->SetCutOn(static_cast<float>(m_Config.lambda1));
    film->SetCutOff(static_cast<float>(m_Config.lambda2));
    film->SetPixelSize(static_cast<float>(m_Config.pitchMicrons));
    film->SetPixelPitch(static_cast<float>(m_Config.pitchMicrons));
    film->SetAperture(static_cast<float>(m_Config.fNumber));
    film->SetIntegration(static_cast<float>(m_Config.integrationMicros * 1e-6), 0);
    film->SetFrameRate(static_cast<float>(m_Config.frameRate));
    film->SetHousingTemperature(static_cast<float>(CameraKelvin(m_dTime) - kKelvin), 0);
    film->SetFileTools("thermokit simulated camera");
    const _SCalibrationRBF law = GetLaw();
    if (m_Law.ok) film->SetRBFCalibParam(&law);
    FillImageHeader(film);
}

void CSimDetector::FillImageHeader(CPtrOver* film, double time) const {
    if (!film) return;
    film->SetImageDetectorTemp(static_cast<float>(kDetectorKelvin));
    film->SetImageSensorTemp(static_cast<float>(CameraKelvin(time) - kKelvin), 0);
    film->SetImageIntegration(static_cast<float>(m_Config.integrationMicros * 1e-6));
    film->SetImageCameraTimeStamp(static_cast<uint64_t>(std::llround(time * 1e6)));
}

}  // namespace thermokit
