#include "thermokit/processing/FilmCorrection.h"

#include <cstring>
#include <filesystem>
#include <system_error>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/nuc/CCorrection.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/File.h"

namespace thermokit {

namespace {

std::string SizeText(long point, long line) { return std::to_string(point) + " x " + std::to_string(line); }

// The pixel count a table states agrees with its point x line (only a NUC
// table states one of its own).
bool CountAgrees(const CNuc& nuc, long point, long line) { return nuc.GetSize() == point * line; }
template <class Table>
bool CountAgrees(const Table&, long, long) {
    return true;
}

// One table of the chain, read from path: readable and made for a film of
// point x line; false with the message (kind: "table", "map", "mapping").
template <class Table>
bool TableFits(const Table& table, const std::string& path, const char* kind, long point, long line,
               std::string& error) {
    if (!table.IsValid()) {
        error = "file " + path + ": " + table.GetLastErrorText();
        return false;
    }
    if (table.GetPoint() != point || table.GetLine() != line || !CountAgrees(table, point, line)) {
        error = "file " + path + ": the " + kind + " is for " + SizeText(table.GetPoint(), table.GetLine()) +
                " pixels, the film has " + SizeText(point, line);
        return false;
    }
    return true;
}

// The tables of the chain against a film of point x line; false with the message.
bool CheckTables(CCorrection& chain, const CorrectionFiles& f, long point, long line, std::string& error) {
    if (!f.nuc.empty() && !TableFits(*chain.GetNuc(), f.nuc, "table", point, line, error)) return false;
    if (!f.badPixels.empty() && !TableFits(*chain.GetBadPixels(), f.badPixels, "map", point, line, error))
        return false;
    if (!f.mapping.empty()) {
        CMapping* mapping = chain.GetMapping();
        if (!TableFits(*mapping, f.mapping, "mapping", point, line, error)) return false;
        int reason = 0;
        if (!mapping->Check(&reason)) {
            error = "file " + f.mapping + (reason == 1 ? ": an entry lies outside the image" : ": not a permutation");
            return false;
        }
    }
    return true;
}

}  // namespace

int CorrectFilm(const std::string& inPath, const CorrectionFiles& files, const std::string& writePath,
                const std::string& outPath, CorrectionResult& result, std::string& error, bool& usage,
                const std::function<void(unsigned long, unsigned long)>& progress) {
    usage = false;
    if (!files.Any()) {
        error = "give at least one correction: --nuc, --badpixels or --mapping";
        usage = true;
        return 0;
    }
    if (!File::Exists(inPath)) {
        error = "file " + inPath + ": cannot be opened";
        return 0;
    }
    for (const std::string* given : {&files.nuc, &files.badPixels, &files.mapping}) {
        if (!given->empty() && !File::Exists(*given)) {
            error = "file " + *given + ": cannot be opened";
            return 0;
        }
    }
    std::error_code ec;
    if (File::Exists(outPath) && std::filesystem::equivalent(inPath, outPath, ec)) {
        error = "file " + outPath + ": the output would overwrite the input film";
        usage = true;
        return 0;
    }
    CPtr in(inPath, 0, 0, 0);
    if (!in.IsValid()) {
        error = "file " + inPath + ": not a film of 16-bit images";
        return 0;
    }
    if (const std::string why = FilmIncomplete(in); !why.empty()) {
        error = "file " + inPath + ": " + why;
        return 0;
    }
    const long point = in.GetPoint(), line = in.GetLine();
    CCorrection chain(files.nuc, files.badPixels, files.mapping);
    if (!CheckTables(chain, files, point, line, error)) return 0;

    // The output starts as a copy of the input's header with no image.
    CPtr out(in);
    out.SetFileName(writePath);
    out.SetFrameNumber(0);
    out.SetCurrentFrame(0);
    const unsigned long frames = in.GetFrameNumber();
    const unsigned short maxLevel = in.GetMaxLevel();
    if (frames == 0 && !out.WriteHeader()) {
        error = "file " + outPath + ": cannot be created";
        return 0;
    }
    // Frames corrected on several threads, added with their image headers in frame order.
    FilmPipeline pipe(in);
    const auto correct = [&](FilmFrame& f) { return chain.Apply(f.frame.GetBuffer(), maxLevel) == 1; };
    const auto add = [&](FilmFrame& f) {
        std::memcpy(out.GetImageHeaderAddress(), f.header, sizeof f.header);
        if (!out.AddFrame(&f.frame)) {
            f.error = "file " + outPath + ": cannot write frame " + std::to_string(f.index);
            return false;
        }
        if (progress) progress(f.index + 1, frames);
        return true;
    };
    if (!pipe.Run(correct, add)) {
        error = pipe.GetLastError();
        return 0;
    }
    result.frames = frames;
    result.point = static_cast<unsigned short>(point);
    result.line = static_cast<unsigned short>(line);
    result.nuc = chain.IsNucUsed() != 0;
    result.badPixels = chain.IsBadPixelsUsed() != 0;
    result.mapping = chain.IsMappingUsed() != 0;
    return 1;
}

}  // namespace thermokit
