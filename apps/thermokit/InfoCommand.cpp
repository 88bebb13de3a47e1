// thermokit info: what a file of the toolkit is, told by its signature, and
// its header field by field: films (every field of the file header, and of one
// image header), films of doubles, NUC tables, bad-pixel maps, mappings,
// calibrations, NUC catalogues, spectral response files and palette files.
#include <cctype>
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

namespace thermokit::cli {
namespace {

struct InfoOptions {
    std::string file;
    bool json = false;
    long frame = -1;
};

void PrintText(const Json& j, const std::string& prefix) {
    for (auto it = j.begin(); it != j.end(); ++it) {
        const std::string name = prefix + it.key();
        if (it->is_object()) PrintText(*it, name + ".");
        else if (it->is_string()) std::printf("%s: %s\n", name.c_str(), it->get<std::string>().c_str());
        else std::printf("%s: %s\n", name.c_str(), it->dump().c_str());
    }
}

int FilmInfo(const InfoOptions& o, Json& out) {
    CPtrOver header(o.file);
    if (!header.IsValid()) {
        Error("file " + o.file + ": film signature \"RKK\", but its header is damaged or does not fit the file");
        return kFailed;
    }
    out["kind"] = CPtrOver::PixelBytes(header.GetHeaderAddress()) == 8 ? "film of doubles" : "film";
    out["file_size"] = header.GetFileSize();
    // A film cut short (a full disk, an interrupted copy) is shown, and said to be so.
    const uint64_t expected = static_cast<uint64_t>(header.GetHeaderSize()) +
                              static_cast<uint64_t>(header.GetFrameNumber()) * header.GetRecordWords() * 2u;
    out["complete"] = static_cast<uint64_t>(header.GetFileSize()) >= expected;
    if (!out["complete"].get<bool>())
        Error("file " + o.file + ": shorter than its " + std::to_string(header.GetFrameNumber()) + " frames (" +
              std::to_string(header.GetFileSize()) + " bytes, " + std::to_string(expected) +
              " expected); the film is truncated");
    out["header"] = FileHeader(header);
    if (o.frame >= 0) {
        const unsigned long n = static_cast<unsigned long>(o.frame);
        if (n >= header.GetFrameNumber()) {
            Error("file " + o.file + ": no frame " + std::to_string(n) + " (the film holds " +
                  std::to_string(header.GetFrameNumber()) + ")");
            return kFailed;
        }
        std::unique_ptr<CPtr> film;
        if (CPtrOver::PixelBytes(header.GetHeaderAddress()) == 8) film = std::make_unique<CPtrFloat>(o.file, 0, 0, 1);
        else film = std::make_unique<CPtr>(o.file, 0, 0, 1);
        if (!film->IsValid() || !film->ReadFrame(n)) {
            Error("file " + o.file + ": frame " + std::to_string(n) + " cannot be read");
            return kFailed;
        }
        out["frame"] = n;
        out["image_header"] = ImageHeader(*film, film->GetFrame()->GetTime());
    }
    return kDone;
}


std::string Text(const char* field, size_t size) { return std::string(field, strnlen(field, size)); }

int NucInfo(const InfoOptions& o, Json& out) {
    CNuc nuc(o.file.c_str());
    if (!nuc.IsValid()) {
        Error("file " + o.file + ": NUC table signature \"COE\", but the file is shorter than its two tables or damaged");
        return kFailed;
    }
    const NUC_HEADER& h = nuc.GetHeader();
    out["kind"] = "nuc table";
    Json j;
    j["signature"] = Text(h.szSignature, sizeof(h.szSignature));
    j["version"] = Text(h.szVersion, sizeof(h.szVersion));
    j["camera"] = nuc.GetCamera();
    j["camera_serial"] = nuc.GetCameraSerial();
    j["filter"] = nuc.GetFilter();
    j["integration"] = nuc.GetIntegration();
    j["windowing"] = +h.byWindowing;
    j["window_x"] = +h.wWindowX;
    j["window_y"] = +h.wWindowY;
    j["point"] = nuc.GetPoint();
    j["line"] = nuc.GetLine();
    j["pixel_count"] = nuc.GetSize();
    out["header"] = j;
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
        Error("file " + o.file + ": bad-pixel map signature \"PIX\", but " +
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
    out["header"] = j;
    return kDone;
}

int MappingInfo(const InfoOptions& o, Json& out) {
    CMapping map(o.file.c_str());
    if (!map.IsValid()) {
        Error("file " + o.file + ": " + map.GetLastErrorText());
        return kFailed;
    }
    const unsigned char* h = map.GetHeader();
    out["kind"] = "mapping";
    Json j;
    j["signature"] = Text(reinterpret_cast<const char*>(h), 4);
    j["version"] = Text(reinterpret_cast<const char*>(h) + 5, 5);
    j["point"] = map.GetPoint();
    j["line"] = map.GetLine();
    out["header"] = j;
    int reason = 0;
    const int ok = map.Check(&reason);
    out["permutation"] = ok ? "yes" : (reason == 1 ? "no: an entry beyond the image" : "no: a pixel named twice or never");
    return kDone;
}

int CalibrationInfo(const InfoOptions& o, Json& out) {
    CCalibration cal("", 0);
    if (!cal.Open(o.file.c_str())) {
        Error("file " + o.file + ": calibration tag \"EXP\", but the file is damaged or shorter than its parts");
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
    j["camera"] = cal.GetCamera();
    j["integration"] = +h.m_wIntegration;
    j["frame_rate"] = cal.GetFrameRate();
    j["aperture"] = cal.GetAperture();
    j["background"] = cal.GetBackground();
    j["housing"] = cal.GetHousingTemp();
    j["extension_flags"] = cal.GetExtensionTypes();
    j["date"] = date;
    j["lens"] = cal.GetLens();
    j["filter"] = cal.GetFilterName();
    j["distance"] = cal.GetDistance();
    j["unit_x"] = cal.GetUnitX();
    j["unit_y"] = cal.GetUnitY();
    j["unit_label_x"] = cal.GetUnitLabelX();
    j["unit_label_y"] = cal.GetUnitLabelY();
    j["format"] = {f.left, f.top, f.Width(), f.Height()};
    j["points"] = cal.GetSize();
    out["header"] = j;
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
        Error("file " + o.file + ": NUC catalogue signature \"NUC\", but its counts are too large or the file is "
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
    out["header"] = j;
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
        Error("file " + o.file + ": cannot be read as a palette file");
        return kFailed;
    }
    out["kind"] = "palette file";
    Json list = Json::array();
    const auto& names = *reader.GetCustomPalleteName();
    const auto& custom = *reader.GetCustomPalettes();
    for (size_t k = 0; k < names.size() && k < custom.size(); ++k)
        list.push_back({{"number", CLogPalette::FIRST_CUSTOM + static_cast<int>(k)},
                        {"name", names[k]},
                        {"entries", custom[k].nEntries},
                        {"control_points", custom[k].nPoints}});
    out["palettes"] = list;
    return kDone;
}

// A text file's first word, or its first section header, tells a response
// file ("RSP") and a palette file ("[name]") apart from anything else.
std::string TextKind(const std::string& path) {
    // Only the beginning is looked at: a large file without line ends is not read whole.
    std::ifstream file(path, std::ios::binary);
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

int RunInfo(const InfoOptions& o) {
    const std::string why = MissingOrEmpty(o.file);
    if (!why.empty()) {
        Error("file " + o.file + ": " + why);
        return kFailed;
    }
    unsigned char sig[8] = {};
    size_t got = 0;
    {
        File f;
        if (!f.Open(o.file, File::modeRead | File::shareDenyNone)) {
            Error("file " + o.file + ": cannot be opened");
            return kFailed;
        }
        got = f.Read(sig, sizeof(sig));
    }
    auto is = [&](const char* tag) { return got >= 4 && std::memcmp(sig, tag, 4) == 0; };
    if (o.frame >= 0 && !is("RKK\0")) {
        Error("--frame: file " + o.file + " is not a film");
        return kUsage;
    }
    Json out;
    out["file"] = o.file;
    int rc;
    if (is("RKK\0")) rc = FilmInfo(o, out);
    else if (is("COE\0")) rc = NucInfo(o, out);
    else if (is("PIX\0")) rc = PixelInfo(o, out);
    else if (is("MAP\0")) rc = MappingInfo(o, out);
    else if (is("EXP\0")) rc = CalibrationInfo(o, out);
    else if (is("NUC\0")) rc = CatalogueInfo(o, out);
    else {
        const std::string kind = TextKind(o.file);
        if (kind == "rsp") rc = ResponseInfo(o, out);
        else if (kind == "palette") rc = PaletteInfo(o, out);
        else {
            std::string hex;
            char b[4];
            for (size_t i = 0; i < got && i < 4; ++i) {
                std::snprintf(b, sizeof(b), "%02x", sig[i]);
                hex += (i ? " " : "") + std::string(b);
            }
            Error("file " + o.file + ": not a thermokit file (unknown signature " + hex + ")");
            return kFailed;
        }
    }
    if (rc != kDone) return rc;
    if (o.json) std::printf("%s\n", out.dump(2).c_str());
    else PrintText(out, "");
    return kDone;
}

RegisterCommand reg(300, [](CLI::App& app) {
    auto options = std::make_shared<InfoOptions>();
    auto* info = app.add_subcommand("info", "Tell what a file of the toolkit is and show its header field by field");
    info->add_option("file", options->file,
                     "Film, film of doubles, NUC table, bad-pixel map, mapping, calibration, NUC catalogue, response "
                     "or palette file")
        ->required();
    info->add_flag("--json", options->json, "Write JSON instead of name: value lines");
    info->add_option("--frame", options->frame, "Films: also show the image header of this frame")->check(CLI::NonNegativeNumber);
    info->footer("Example: thermokit info run.film --frame 10 --json");
    info->callback([options] { SetAction([options] { return RunInfo(*options); }); });
});

}  // namespace
}  // namespace thermokit::cli
