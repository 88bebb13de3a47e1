#include "ViewFilm.h"

#include <algorithm>
#include <cstring>

#include "FilmHeaderJson.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"

namespace thermokit::cli {

namespace {

std::string SizeText(long point, long line) { return std::to_string(point) + " x " + std::to_string(line); }

std::string BaseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

bool ViewFilm::Open(const std::string& path, const ViewOptions& o) {
    m_path = path;
    m_name = BaseName(path);
    if (!OpenFilm(path, m_film)) return false;
    if (m_film.doubles) {
        FileError(path, "a film of doubles holds values, not levels; the viewer shows films of levels");
        return false;
    }
    if (m_film.frames == 0) {
        FileError(path, "the film holds no frame");
        return false;
    }
    m_maxLevel = m_film.ptr->GetMaxLevel();
    if (o.conversion.Requested() && !LoadConversion(o.conversion, m_film, path, m_conv)) return false;
    // Taken now: the film object's header changes its current frame as frames are read.
    m_header = FileHeader(*m_film.ptr);
    return OpenCorrection(o);
}

bool ViewFilm::OpenCorrection(const ViewOptions& o) {
    m_correction.nucWhy = "no NUC table given (--nuc)";
    m_correction.badPixelsWhy = "no bad-pixel map given (--badpixels)";
    if (o.nuc.empty() && o.badPixels.empty()) return true;
    for (const std::string* given : {&o.nuc, &o.badPixels}) {
        const std::string why = given->empty() ? std::string() : MissingOrEmpty(*given);
        if (!why.empty()) {
            FileError(*given, why);
            return false;
        }
    }
    Correction& c = m_correction;
    c.chain = std::make_unique<CCorrection>(o.nuc, o.badPixels, "");
    const long point = m_film.point, line = m_film.line;
    if (!o.nuc.empty()) {
        CNuc* nuc = c.chain->GetNuc();
        if (!nuc->IsValid()) {
            FileError(o.nuc, "not a readable NUC table");
            return false;
        }
        c.nuc = nuc->GetPoint() == point && nuc->GetLine() == line && nuc->GetSize() == point * line;
        c.nucWhy = c.nuc ? std::string() : "the table is for " + SizeText(nuc->GetPoint(), nuc->GetLine()) + " pixels, the film has " +
                       SizeText(point, line);
    }
    if (!o.badPixels.empty()) {
        CPixel* map = c.chain->GetBadPixels();
        if (!map->IsValid()) {
            FileError(o.badPixels, "not a readable bad-pixel map (" + map->GetLastErrorMessage() + ")");
            return false;
        }
        c.badPixels = map->GetPoint() == point && map->GetLine() == line;
        c.badPixelsWhy = c.badPixels ? std::string() : "the map is for " + SizeText(map->GetPoint(), map->GetLine()) + " pixels, the film has " +
                             SizeText(point, line);
    }
    return true;
}

bool ViewFilm::Read(unsigned long n, bool nuc, bool badPixels, ViewFrame& out) {
    const long size = static_cast<long>(m_film.point) * m_film.line;
    nuc = nuc && m_correction.nuc;
    badPixels = badPixels && m_correction.badPixels;
    {
        std::lock_guard<std::mutex> hold(m_lock);
        if (n >= m_film.frames || !m_film.ptr->ReadFrame(n)) return false;
        const CFrame* frame = m_film.ptr->GetFrame();
        out.levels.assign(frame->GetBuffer(), frame->GetBuffer() + size);
        out.time = frame->GetTime();
        if (nuc || badPixels) {
            m_correction.chain->SetUse(nuc, badPixels, 0);
            m_correction.chain->Apply(out.levels.data(), m_maxLevel);
        }
    }
    out.flags = (nuc ? kNucApplied : 0u) | (badPixels ? kBadPixelsApplied : 0u);
    MinMax(out.levels.data(), size, &out.min, &out.max, nullptr, 0);
    if (!MinMaxHisto(out.levels.data(), size, &out.autoMin, &out.autoMax, m_maxLevel, 99.0f, -1.0f, nullptr)) {
        out.autoMin = out.min;
        out.autoMax = out.max;
    }
    return true;
}

nlohmann::ordered_json ViewFilm::Describe(int index) const {
    nlohmann::ordered_json j;
    j["index"] = index;
    j["name"] = m_name;
    j["point"] = m_film.point;
    j["line"] = m_film.line;
    j["bit"] = m_film.ptr->GetBit();
    j["max_level"] = m_maxLevel;
    j["frames"] = m_film.frames;
    j["frame_rate_hz"] = m_film.ptr->GetFrameRate();
    j["calibrated"] = Calibrated();
    j["unit"] = m_conv.unit;
    j["nuc"] = {{"available", m_correction.nuc}, {"why", m_correction.nucWhy}};
    j["badpixels"] = {{"available", m_correction.badPixels}, {"why", m_correction.badPixelsWhy}};
    j["header"] = m_header;
    return j;
}

bool ViewFilm::ImageHeader(unsigned long n, nlohmann::ordered_json& out) {
    std::lock_guard<std::mutex> hold(m_lock);
    if (n >= m_film.frames || !m_film.ptr->ReadFrame(n)) return false;
    out = cli::ImageHeader(*m_film.ptr, m_film.ptr->GetFrame()->GetTime());
    return true;
}

bool ViewFilm::Measure(unsigned long n, bool nuc, bool badPixels, const Selection& s, nlohmann::ordered_json& out) {
    ViewFrame frame;
    if (!Read(n, nuc, badPixels, frame)) return false;
    FrameMeasure measure;
    const FrameFigures f = measure.Measure(frame.levels.data(), nullptr, m_film.point, m_film.line, s,
                                           Calibrated() ? &m_conv : nullptr);
    auto figures = [](const Figures& g) {
        return nlohmann::ordered_json{{"pixels", g.count}, {"min", g.min}, {"max", g.max}, {"mean", g.mean},
                                      {"stddev", g.stdDev}};
    };
    out = nlohmann::ordered_json::object();
    out["frame"] = n;
    out["time_s"] = frame.time;
    out["flags"] = frame.flags;
    out["levels"] = figures(f.levels);
    out["values"] = Calibrated() ? figures(f.values) : nlohmann::ordered_json();
    out["not_converted"] = f.notConverted;
    out["unit"] = m_conv.unit;
    // The histogram of the region's levels, gathered into at most 64 bins.
    const std::vector<unsigned short>& levels = measure.Levels();
    unsigned short low = 0, high = 0;
    long* histo = nullptr;
    nlohmann::ordered_json counts = nlohmann::ordered_json::array();
    long width = 1;
    if (CalculateHisto(levels.data(), static_cast<long>(levels.size()), nullptr, m_maxLevel, low, high, histo) &&
        histo) {
        const long span = static_cast<long>(high) - low + 1;
        width = (span + 63) / 64;
        for (long b = 0; b * width < span; ++b) {
            long sum = 0;
            for (long k = b * width; k < std::min(span, (b + 1) * width); ++k) sum += histo[low + k];
            counts.push_back(sum);
        }
    }
    delete[] histo;
    out["histogram"] = {{"low", low}, {"width", width}, {"counts", counts}};
    return true;
}

bool ViewFilm::MeasureCsv(unsigned long first, unsigned long last, bool nuc, bool badPixels, const Selection& s,
                          std::string& text) {
    FrameMeasure measure;
    ViewFrame frame;
    for (unsigned long n = first; n <= last; ++n) {
        if (!Read(n, nuc, badPixels, frame)) return false;
        const FrameFigures f = measure.Measure(frame.levels.data(), nullptr, m_film.point, m_film.line, s,
                                               Calibrated() ? &m_conv : nullptr);
        text += CsvRow(n, frame.time, f, Calibrated());
    }
    return true;
}

bool ViewFilm::FilmRange(bool nuc, bool badPixels, unsigned short& min, unsigned short& max) {
    const unsigned long frames = m_film.frames;
    const unsigned long samples = std::min<unsigned long>(frames, 100);
    ViewFrame frame;
    for (unsigned long k = 0; k < samples; ++k) {
        const unsigned long n = samples > 1 ? k * (frames - 1) / (samples - 1) : 0;
        if (!Read(n, nuc, badPixels, frame)) return false;
        if (k == 0 || frame.autoMin < min) min = frame.autoMin;
        if (k == 0 || frame.autoMax > max) max = frame.autoMax;
    }
    return true;
}

bool PalettesJson(const std::string& paletteFile, nlohmann::ordered_json& out) {
    CLogPalette reader(CLogPalette::GREY, 0, nullptr);
    if (!paletteFile.empty()) {
        const std::string why = MissingOrEmpty(paletteFile);
        if (!why.empty() || !reader.ReadIniFile(paletteFile.c_str())) {
            FileError(paletteFile, why.empty() ? std::string("cannot be read as a palette file") : why);
            return false;
        }
        if (reader.GetCustomPalleteName()->empty()) {
            FileError(paletteFile, "no palette in it (a palette file has a [name] section per palette)");
            return false;
        }
    }
    const int custom = static_cast<int>(reader.GetCustomPalleteName()->size());
    out = nlohmann::ordered_json::array();
    for (int number = 0; number < CLogPalette::FIRST_CUSTOM + custom; ++number) {
        CLogPalette palette(static_cast<unsigned short>(number), 0,
                            number >= CLogPalette::FIRST_CUSTOM ? paletteFile.c_str() : nullptr);
        if (!palette.IsCreated()) continue;  // a custom palette without entries
        tagPALETTEENTRY raw[kMaxPaletteEntries];
        const unsigned n = palette.GetPaletteEntries(0, kMaxPaletteEntries, raw);
        nlohmann::ordered_json entries = nlohmann::ordered_json::array();
        for (unsigned k = 0; k < n; ++k) {
            // Entries are stored blue first: bytes 0, 1, 2 are blue, green, red.
            uint8_t b[4];
            std::memcpy(b, &raw[k], 4);
            entries.push_back({b[2], b[1], b[0]});
        }
        out.push_back({{"number", number}, {"name", palette.GetPaletteName()}, {"entries", entries}});
    }
    return true;
}

}  // namespace thermokit::cli
