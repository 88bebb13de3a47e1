// thermokit info: what a file of the toolkit is, told by its signature, and
// its header field by field: films (every field of the file header, and of one
// image header), films of doubles, NUC tables, bad-pixel maps, mappings,
// calibrations, NUC catalogues, spectral response files and palette files.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <initializer_list>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "Command.h"
#include "FilmInput.h"
#include "FilmHeaderJson.h"
#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CResponseFile.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CNucFile.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/File.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/film/CPtrOver.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/platform/Utf8.h"
#include "thermokit/platform/Utf8Path.h"

namespace thermokit::cli {
namespace {

struct InfoOptions {
    std::vector<std::string> files;
    std::string file;  // the one being described
    bool json = false;
    bool verbose = false;
    long frame = -1;
    std::string frames;
};

void PrintText(const Json& j, const std::string& prefix) {
    for (auto it = j.begin(); it != j.end(); ++it) {
        const std::string name = prefix + it.key();
        if (it->is_object()) PrintText(*it, name + ".");
        else if (it->is_string()) std::printf("%s: %s\n", name.c_str(), EscapeControls(it->get<std::string>()).c_str());
        else std::printf("%s: %s\n", name.c_str(), it->dump().c_str());
    }
}

// The summary of a file that is not a film: its kind, its size in pixels
// (point and line as width and height) and the header fields named, then
// with -v the whole header.
void Describe(const InfoOptions& o, Json& out, const Json& header, std::initializer_list<const char*> summary) {
    for (const char* name : summary) {
        const std::string key = std::string(name) == "point" ? "width" : std::string(name) == "line" ? "height" : name;
        if (header.contains(name)) out[key] = header[name];
    }
    if (o.verbose) out["header"] = header;
}

// "YYYY-MM-DD HH:MM:SS.hh" of the film's start, from its file header.
std::string StartTime(const CPtrOver& film) {
    CPtrOver::PTR_DATE d{};
    CPtrOver::PTR_TIME t{};
    film.GetDate(&d);
    film.GetTime(&t);
    char text[48];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u.%02u", unsigned{d.year}, unsigned{d.month},
                  unsigned{d.day}, unsigned{t.hour}, unsigned{t.minute}, unsigned{t.second}, unsigned{t.hundredths});
    return text;
}

// What a film is at a glance: size, depth, frames (and how many the file
// holds whole), rate, duration, start, camera, whether it carries its law.
void FilmSummary(CPtrOver& film, Json& out) {
    const int64_t size = film.GetFileSize();
    const unsigned long frames = film.GetFrameNumber();
    const unsigned long whole = WholeFrames(film);
    const float rate = film.GetFrameRate();
    _SCalibrationRBF law{};
    out["kind"] = CPtrOver::PixelBytes(film.GetHeaderAddress()) == 8 ? "film of doubles" : "film";
    out["width"] = film.GetPoint();
    out["height"] = film.GetLine();
    out["bits"] = film.GetBit();
    out["frames"] = frames;
    out["readable_frames"] = whole;
    out["complete"] = whole == frames;
    out["frame_rate_hz"] = rate > 0.0f ? Json(Float32(rate)) : Json(nullptr);
    out["duration_s"] = rate > 0.0f ? Json(static_cast<double>(frames) / Float32(rate)) : Json(nullptr);
    out["start"] = StartTime(film);
    out["camera"] = Latin1ToUtf8(film.GetCamera());
    out["law"] = film.GetRBFCalibParam(&law) != 0;
    out["file_size"] = size;
    if (whole != frames)
        FileError(film.GetFileName(), "shorter than its " + std::to_string(frames) + " frames; " +
                                          std::to_string(whole) + " frame(s) are whole");
}

// The time of frames A:B: seconds from the first frame of the film and time of day.
int FrameTimes(const InfoOptions& o, CPtr& film, Json& out) {
    unsigned long first = 0, last = 0;
    if (!ParseFrames(o.frames, film.GetFrameNumber(), first, last, o.file)) return kFailed;
    double start = 0.0;
    if (!film.ReadTime(0, start)) return kFailed;
    Json list = Json::array();
    for (unsigned long n = first; n <= last; ++n) {
        double t = 0.0;
        if (!film.ReadTime(n, t)) {
            FileError(o.file, film.GetLastErrorText());
            return kFailed;
        }
        double elapsed = t - start;
        if (elapsed < -43200.0) elapsed += 86400.0;  // past midnight
        list.push_back({{"frame", n}, {"time_s", RoundToMicroseconds(elapsed)}, {"time_of_day_s", RoundToMicroseconds(t)}});
    }
    out["frame_times"] = list;
    return kDone;
}

int FilmInfo(const InfoOptions& o, Json& out) {
    CPtrOver header(o.file);
    if (!header.IsValid()) {
        FileError(o.file, header.GetLastErrorText().empty() ? "a film whose header is damaged or does not fit the file"
                                                            : header.GetLastErrorText());
        return kFailed;
    }
    FilmSummary(header, out);
    if (o.verbose) out["header"] = FileHeader(header);
    if (o.frame < 0 && o.frames.empty()) return kDone;
    std::unique_ptr<CPtr> film;
    if (CPtrOver::PixelBytes(header.GetHeaderAddress()) == 8) film = std::make_unique<CPtrFloat>(o.file, 0, 0, 1);
    else film = std::make_unique<CPtr>(o.file, 0, 0, 1);
    if (!film->IsValid()) {
        FileError(o.file, film->GetLastErrorText());
        return kFailed;
    }
    if (!o.frames.empty())
        if (const int rc = FrameTimes(o, *film, out); rc != kDone) return rc;
    if (o.frame >= 0) {
        const unsigned long n = static_cast<unsigned long>(o.frame);
        if (n >= film->GetFrameNumber()) {
            Error("--frame " + std::to_string(n) + ": the film holds frames 0 to " +
                  std::to_string(static_cast<long>(film->GetFrameNumber()) - 1));
            return kUsage;
        }
        if (!film->ReadFrame(n)) {
            FileError(o.file, film->GetLastErrorText());
            return kFailed;
        }
        out["frame"] = n;
        out["image_header"] = ImageHeader(*film, film->GetFrame()->GetTime());
    }
    return kDone;
}


// A fixed-width 8-bit text field of a header, as UTF-8.
std::string Text(const char* field, size_t size) { return Latin1ToUtf8(std::string_view(field, strnlen(field, size))); }

int NucInfo(const InfoOptions& o, Json& out) {
    CNuc nuc(o.file.c_str());
    if (!nuc.IsValid()) {
        FileError(o.file, "NUC table signature \"COE\", but the file is shorter than its two tables or damaged");
        return kFailed;
    }
    const NUC_HEADER& h = nuc.GetHeader();
    out["kind"] = "nuc table";
    Json j;
    j["signature"] = Text(h.szSignature, sizeof(h.szSignature));
    j["version"] = Text(h.szVersion, sizeof(h.szVersion));
    j["camera"] = Latin1ToUtf8(nuc.GetCamera());
    j["camera_serial"] = Latin1ToUtf8(nuc.GetCameraSerial());
    j["filter"] = Latin1ToUtf8(nuc.GetFilter());
    j["integration"] = nuc.GetIntegration();
    j["windowing"] = +h.byWindowing;
    j["window_x"] = +h.wWindowX;
    j["window_y"] = +h.wWindowY;
    j["point"] = nuc.GetPoint();
    j["line"] = nuc.GetLine();
    j["pixel_count"] = nuc.GetSize();
    Describe(o, out, j, {"point", "line", "camera"});
    // The tables' ranges tell at a glance whether the table is plausible.
    const long n = nuc.GetSize();
    if (n > 0) {
        float gmin = 0, gmax = 0, gmean = 0, omin = 0, omax = 0, omean = 0;
        MinMax(nuc.GetAlpha(), n, &gmin, &gmax, &gmean, 0);
        MinMax(nuc.GetBeta(), n, &omin, &omax, &omean, 0);
        out["gain"] = {{"min", gmin}, {"max", gmax}, {"mean", gmean}};
        out["offset"] = {{"min", omin}, {"max", omax}, {"mean", omean}};
    }
    return kDone;
}

int PixelInfo(const InfoOptions& o, Json& out) {
    CPixel map(o.file.c_str());
    if (!map.IsValid()) {
        FileError(o.file, "bad-pixel map signature \"PIX\", but " +
              (map.GetLastErrorMessage().empty() ? std::string("the file is damaged") : map.GetLastErrorMessage()));
        return kFailed;
    }
    const BPR_HEADER& h = map.GetHeader();
    out["kind"] = "bad-pixel map";
    Json j;
    j["signature"] = Text(h.szSignature, sizeof(h.szSignature));
    j["version"] = Text(h.szVersion, sizeof(h.szVersion));
    j["flip_stored"] = +h.byFlipStored;
    j["flip_line"] = +h.byFlipLine;
    j["flip_column"] = +h.byFlipColumn;
    j["gain_criteria_percent"] = map.GetGainCriteria();
    j["offset_criteria_percent"] = map.GetOffsetCriteria();
    j["noise_criteria_dl"] = map.GetNoiseCriteria();
    j["criteria_codes"] = +h.byCriteria;
    j["point"] = map.GetPoint();
    j["line"] = map.GetLine();
    j["count"] = map.GetSize();
    Describe(o, out, j, {"point", "line", "count"});
    return kDone;
}

int MappingInfo(const InfoOptions& o, Json& out) {
    CMapping map(o.file.c_str());
    if (!map.IsValid()) {
        FileError(o.file, map.GetLastErrorText());
        return kFailed;
    }
    const unsigned char* h = map.GetHeader();
    out["kind"] = "mapping";
    Json j;
    j["signature"] = Text(reinterpret_cast<const char*>(h), 4);
    j["version"] = Text(reinterpret_cast<const char*>(h) + 5, 5);
    j["point"] = map.GetPoint();
    j["line"] = map.GetLine();
    Describe(o, out, j, {"point", "line"});
    int reason = 0;
    const int ok = map.Check(&reason);
    out["permutation"] = ok ? "yes" : (reason == 1 ? "no: an entry beyond the image" : "no: a pixel named twice or never");
    return kDone;
}

int CalibrationInfo(const InfoOptions& o, Json& out) {
    CCalibration cal("", 0);
    if (!cal.Open(o.file.c_str())) {
        FileError(o.file, "calibration tag \"EXP\", but the file is damaged or shorter than its parts");
        return kFailed;
    }
    const CCalibration::CALIBRATION_HEADER& h = cal.GetHeader();
    out["kind"] = "calibration";
    Json j;
    int day = 0, month = 0, year = 0;
    cal.GetDate(&day, &month, &year);
    char date[32];
    std::snprintf(date, sizeof(date), "%04d-%02d-%02d", year, month, day);
    const CRect f = cal.GetFormat();
    j["tag"] = "EXP";
    j["version"] = Text(h.m_szVersion, sizeof(h.m_szVersion));
    j["camera"] = Latin1ToUtf8(cal.GetCamera());
    j["integration"] = +h.m_wIntegration;
    j["frame_rate"] = cal.GetFrameRate();
    j["aperture"] = cal.GetAperture();
    j["background"] = cal.GetBackground();
    j["housing"] = cal.GetHousingTemp();
    j["extension_flags"] = cal.GetExtensionTypes();
    j["date"] = date;
    j["lens"] = Latin1ToUtf8(cal.GetLens());
    j["filter"] = Latin1ToUtf8(cal.GetFilterName());
    j["distance"] = cal.GetDistance();
    j["unit_x"] = Latin1ToUtf8(cal.GetUnitX());
    j["unit_y"] = Latin1ToUtf8(cal.GetUnitY());
    j["unit_label_x"] = Latin1ToUtf8(cal.GetUnitLabelX());
    j["unit_label_y"] = Latin1ToUtf8(cal.GetUnitLabelY());
    j["format"] = {f.left, f.top, f.Width(), f.Height()};
    j["points"] = cal.GetSize();
    Describe(o, out, j, {"camera", "lens", "unit_x", "unit_y", "points"});
    if (cal.GetSize() > 0) {
        const unsigned last = cal.GetSize() - 1u;
        out["first_point"] = {cal.GetCurveX()[0], cal.GetCurveY()[0]};
        out["last_point"] = {cal.GetCurveX()[last], cal.GetCurveY()[last]};
    }
    out["extended_classes"] = cal.GetExtendedClassCount();
    out["lens_formats"] = cal.GetLensExtendedClassCount();
    return kDone;
}

int CatalogueInfo(const InfoOptions& o, Json& out) {
    CNucFile cat(o.file.c_str());
    if (!cat.IsValid()) {
        FileError(o.file, "NUC catalogue signature \"NUC\", but its counts are too large or the file is "
              "shorter than its records");
        return kFailed;
    }
    const CNucFile::NUC_FILE_HEADER& h = cat.GetHeader();
    out["kind"] = "nuc catalogue";
    Json j;
    j["signature"] = Text(h.szSignature, sizeof(h.szSignature));
    j["version"] = Text(h.szVersion, sizeof(h.szVersion));
    j["header_size"] = +h.dwHeaderSize;
    j["tables"] = +h.wNbTables;
    j["windows"] = +h.wNbWindow;
    Describe(o, out, j, {"tables", "windows"});
    Json windows = Json::array();
    for (unsigned short w = 0; w < +h.wNbWindow; ++w) {
        CNucFile::NUC_TABLE_DESC d{};
        if (!cat.GetWindowing(w, &d)) continue;
        Json wj = {{"tables", +d.wNbTables},
                   {"rect", {+d.rcWindow.left, +d.rcWindow.top, +d.rcWindow.right, +d.rcWindow.bottom}}};
        Json tables = Json::array();
        for (unsigned short t = 0; t < +d.wNbTables; ++t) {
            CNucFile::NUC_TABLE tb{};
            if (!cat.GetTable(w, t, &tb)) break;
            tables.push_back({{"scene", Text(tb.szScene, sizeof(tb.szScene))},
                              {"frequency", +tb.wFrequency},
                              {"integration", +tb.wIntegration},
                              {"filter", +tb.wFilter},
                              {"filter_name", Text(tb.szFilterName, sizeof(tb.szFilterName))},
                              {"updated", +tb.bUpdated},
                              {"ui_label", Text(tb.szUILabel, sizeof(tb.szUILabel))},
                              {"db_label", Text(tb.szDBLabel, sizeof(tb.szDBLabel))},
                              {"lens", Text(tb.szLens, sizeof(tb.szLens))}});
        }
        wj["table"] = tables;
        windows.push_back(wj);
    }
    out["window"] = windows;
    return kDone;
}

int ResponseInfo(const InfoOptions& o, Json& out) {
    CResponseFile r(o.file.c_str());
    const auto& data = r.GetArray();
    out["kind"] = "response file";
    out["header"] = {{"tag", "RSP"}};
    out["records"] = data.size();
    if (!data.empty()) {
        out["first"] = {data.front().m_dLambda, data.front().m_dTransmission};
        out["last"] = {data.back().m_dLambda, data.back().m_dTransmission};
    }
    return kDone;
}

int PaletteInfo(const InfoOptions& o, Json& out) {
    CLogPalette reader(CLogPalette::GREY, 0, nullptr);
    if (!reader.ReadIniFile(o.file.c_str())) {
        FileError(o.file, "cannot be read as a palette file");
        return kFailed;
    }
    out["kind"] = "palette file";
    Json list = Json::array();
    const auto& names = *reader.GetCustomPalleteName();
    const auto& custom = *reader.GetCustomPalettes();
    for (size_t k = 0; k < names.size() && k < custom.size(); ++k)
        list.push_back({{"number", CLogPalette::FIRST_CUSTOM + static_cast<int>(k)},
                        {"name", Latin1ToUtf8(names[k])},
                        {"entries", custom[k].nEntries},
                        {"control_points", custom[k].nPoints}});
    out["palettes"] = list;
    return kDone;
}

// A text file's first word, or its first section header, tells a response
// file ("RSP") and a palette file ("[name]") apart from anything else.
std::string TextKind(const std::string& path) {
    // Only the beginning is looked at: a large file without line ends is not read whole.
    std::ifstream file(PathFromUtf8(path), std::ios::binary);
    std::string head(65536, '\0');
    file.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<size_t>(file.gcount()));
    std::istringstream in(head);
    std::string line;
    for (int n = 0; n < 200 && std::getline(in, line); ++n) {
        if (line.size() > 4096) return std::string();
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t i = line.find_first_not_of(" \t");
        if (i == std::string::npos) continue;
        if (n == 0 && line.compare(i, 3, "RSP") == 0 &&
            (line.size() == i + 3 || std::isspace(static_cast<unsigned char>(line[i + 3]))))
            return "rsp";
        if (line[i] == ';' || line[i] == '#') continue;
        if (line[i] == '[' && line.find(']', i) != std::string::npos) return "palette";
        return std::string();
    }
    return std::string();
}

// The first bytes of a file: its signature; why it cannot be opened in *why.
std::string Signature(const std::string& path, std::string& hex, std::string& why) {
    unsigned char sig[4] = {};
    size_t got = 0;
    File f;
    if (f.Open(path, File::modeRead | File::shareDenyNone)) got = f.Read(sig, sizeof(sig));
    else why = "cannot be opened (" + f.GetLastErrorText() + ")";
    char b[4];
    for (size_t i = 0; i < got; ++i) {
        std::snprintf(b, sizeof(b), "%02x", sig[i]);
        hex += (i ? " " : "") + std::string(b);
    }
    return std::string(reinterpret_cast<const char*>(sig), got);
}

// One file described into out, by the describer of its signature.
int DescribeFile(const InfoOptions& o, Json& out) {
    const std::string why = MissingOrEmpty(o.file);
    if (!why.empty()) {
        FileError(o.file, why);
        return kFailed;
    }
    std::string hex, cannot;
    const std::string sig = Signature(o.file, hex, cannot);
    if (!cannot.empty()) {
        FileError(o.file, cannot);
        return kFailed;
    }
    static const std::pair<std::string, int (*)(const InfoOptions&, Json&)> kDescribers[] = {
        {std::string("RKK\0", 4), FilmInfo},    {std::string("COE\0", 4), NucInfo},
        {std::string("PIX\0", 4), PixelInfo},   {std::string("MAP\0", 4), MappingInfo},
        {std::string("EXP\0", 4), CalibrationInfo}, {std::string("NUC\0", 4), CatalogueInfo},
    };
    out["file"] = NameToUtf8(o.file);
    const bool film = sig == kDescribers[0].first;
    if ((o.frame >= 0 || !o.frames.empty()) && !film) {
        FileError(o.file, std::string(o.frame >= 0 ? "--frame" : "--frames") + " applies to films; this is not one");
        return kUsage;
    }
    for (const auto& [tag, describe] : kDescribers)
        if (sig == tag) return describe(o, out);
    const std::string kind = TextKind(o.file);
    if (kind == "rsp") return ResponseInfo(o, out);
    if (kind == "palette") return PaletteInfo(o, out);
    FileError(o.file, "not a thermokit file (unknown signature " + hex + ")");
    return kFailed;
}

// Every file in turn (one failing does not stop the others); JSON: one
// object for one file, an array for several.
int RunInfo(InfoOptions o) {
    int status = kDone;
    Json all = Json::array();
    for (size_t k = 0; k < o.files.size(); ++k) {
        o.file = o.files[k];
        Json out;
        const int rc = DescribeFile(o, out);
        if (rc != kDone) {
            status = std::max(status, rc);
            continue;
        }
        TidyFloats(out);
        if (o.json) all.push_back(std::move(out));
        else {
            if (k > 0) std::printf("\n");
            PrintText(out, "");
        }
    }
    if (o.json && !all.empty()) std::printf("%s\n", (o.files.size() == 1 ? all[0] : all).dump(2).c_str());
    return status;
}

}  // namespace

void AddInfoCommand(CLI::App& app) {
    auto options = std::make_shared<InfoOptions>();
    auto* info = app.add_subcommand("info", "Tell what files of the toolkit are: a summary, or every header field with -v");
    Input(info->add_option("files", options->files,
                           "Films, films of doubles, NUC tables, bad-pixel maps, mappings, calibrations, NUC "
                           "catalogues, response or palette files"))
        ->required();
    info->add_flag("--json", options->json, "Write JSON (an array for several files) instead of name: value lines");
    info->add_flag("-v,--verbose", options->verbose, "Every field of the header, not only the summary");
    info->add_option("--frame", options->frame, "Films: also show the image header of this frame")->check(NonNegative());
    info->add_option("--frames", options->frames, "Films: list the times of frames A:B (\":\" for every frame)")->check(FrameRange());
    info->footer("Example: thermokit info run.film\n         thermokit info -v run.film --frame 10 --json\n"
                 "         thermokit info *.film --frames 0:9");
    info->callback([options] { SetAction([options] { return RunInfo(*options); }); });
}

}  // namespace thermokit::cli
