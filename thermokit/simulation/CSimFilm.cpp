#include "thermokit/simulation/CSimFilm.h"

#include <filesystem>
#include <vector>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtr2.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/Utf8Path.h"
#include "thermokit/platform/Parallel.h"
#include "thermokit/simulation/CSimDetector.h"
#include "thermokit/simulation/CSimScene.h"

namespace thermokit {

namespace {
constexpr double kKelvin = 273.15;

// A new file: whatever was there is removed first, so that a longer old film
// leaves no images behind the new ones.
bool Fresh(const std::string& path) {
    std::error_code ec;
    std::filesystem::remove(PathFromUtf8(path), ec);
    return !std::filesystem::exists(PathFromUtf8(path), ec);
}
}  // namespace

int AppendFilmFrame(CPtr& film, CFrame* frame) { return film.AddFrame(frame); }

CSimFilm::CSimFilm(const std::string& path, const CSimDetector& detector) {
    const auto& c = detector.GetConfig();
    // Recorded through the bank ring, as a camera's films are.
    auto film = std::make_unique<CPtr2>(c.point, c.line, c.bit, 0, 0, 0);
    detector.FillHeader(film.get());
    m_bOpen = Fresh(path) && film->Create(path.c_str()) ? 1 : 0;
    m_pFilm = std::move(film);
}

CSimFilm::~CSimFilm() { Close(); }

int CSimFilm::Close() {
    if (!m_bOpen) return 0;
    m_bOpen = 0;
    return static_cast<CPtr2*>(m_pFilm.get())->Close();
}

unsigned long CSimFilm::GetFrameCount() const { return m_pFilm->GetFrameNumber(); }

int CSimFilm::Add(CSimDetector& detector, const CSimScene& scene, unsigned long frameInFilm, float* kelvin) {
    if (!m_bOpen) return 0;
    CFrame* frame = m_pFilm->GetFrame();
    detector.FillImageHeader(m_pFilm.get());
    frame->SetTime(CSimDetector::TimeOfDay(detector.GetTime()));
    detector.Capture(scene, frameInFilm, frame->GetBuffer(), kelvin);
    return AppendFilmFrame(*m_pFilm, frame);
}

int CSimFilm::Record(const std::string& path, CSimDetector& detector, const CSimScene& scene, unsigned long frames,
                     const std::string& truthPath, const FrameHook& hook) {
    CSimFilm film(path, detector);
    if (!film.IsOpen()) return 0;
    const auto& c = detector.GetConfig();
    std::unique_ptr<CPtrFloat> truth;
    if (!truthPath.empty()) {
        truth = std::make_unique<CPtrFloat>(c.point, c.line, c.bit, 0, 0, 0);
        detector.FillHeader(truth.get());
        truth->SetComment("true scene temperature, degrees Celsius");
        truth->SetSpecialUnitName("degC");
        truth->SetFileName(truthPath);
        if (!Fresh(truthPath) || !truth->WriteHeader()) return 0;
    }
    film.GetFilm()->SetComment(scene.Describe().c_str());
    // The operator's settings: the surface's emissivity (1 for the material
    // bands, which have no single one) and the surroundings' temperature.
    const CSimScene::Surface& surface = scene.GetSurface();
    film.GetFilm()->SetEmissivity(
        static_cast<float>(scene.GetKind() == CSimScene::kMaterials ? 1.0 : surface.emissivity));
    film.GetFilm()->SetAmbiantTemperature(static_cast<float>(surface.reflectedCelsius + kKelvin));
    // Frames taken on every core: the clock is read in frame order, each
    // frame rendered on its own, and the frames (and their truth) added in
    // frame order, so that the films are the same bytes for any number of threads.
    struct Slot {
        std::unique_ptr<CFrame> frame;
        std::vector<float> kelvin, emissivity;
        std::vector<double> celsius;
        CSimDetector::Shot shot;
    };
    std::vector<Slot> slots(static_cast<size_t>(FramePipeline::Slots()));
    const size_t size = static_cast<size_t>(detector.GetSize());
    const auto next = [&](unsigned long, int slot) {
        Slot& s = slots[static_cast<size_t>(slot)];
        if (!s.frame) {
            s.frame = std::make_unique<CFrame>(c.point, c.line, c.bit, 0, 0);
            s.kelvin.resize(size);
            if (truth) s.celsius.resize(size);
        }
        s.shot = detector.Next();
        return true;
    };
    const auto take = [&](unsigned long k, int slot) {
        Slot& s = slots[static_cast<size_t>(slot)];
        detector.Take(scene, k, s.shot, s.frame->GetBuffer(), s.kelvin.data(), s.emissivity);
        s.frame->SetTime(CSimDetector::TimeOfDay(s.shot.time));
        for (size_t i = 0; i < s.celsius.size(); ++i) s.celsius[i] = s.kelvin[i] - kKelvin;
        return true;
    };
    const auto add = [&](unsigned long k, int slot) {
        Slot& s = slots[static_cast<size_t>(slot)];
        if (hook) hook(film.GetFilm(), k);
        detector.FillImageHeader(film.GetFilm(), s.shot.time);
        if (!AppendFilmFrame(*film.GetFilm(), s.frame.get())) return false;
        return !truth || truth->AddFrame(s.celsius.data(), static_cast<int>(size)) != 0;
    };
    if (FramePipeline::Run(frames, static_cast<int>(slots.size()), next, take, add) != frames) return 0;
    return film.Close();
}

}  // namespace thermokit
