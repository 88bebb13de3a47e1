#pragma once
// What the viewer serves from one film: its frames (corrected on request),
// the level table of its calibration, the figures of a region and the
// fields of its headers. Every request thread reads frames through the same
// object; the film file is read under a lock, the rest works on copies.
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "FilmInput.h"
#include "thermokit/processing/FrameFigures.h"
#include "Conversion.h"
#include "thermokit/nuc/CCorrection.h"

namespace thermokit::cli {

// What `thermokit view` was given.
struct ViewOptions {
    std::vector<std::string> films;
    ConversionOptions conversion;  // calibration, object parameters, unit
    std::string nuc;
    std::string badPixels;
    std::string paletteFile;
    int port = 0;
    std::string listen = "127.0.0.1";
};

// One frame as the page receives it.
struct ViewFrame {
    std::vector<unsigned short> levels;  // point x line, corrected as asked
    double time = 0.0;                   // seconds since midnight (the image header's time)
    unsigned short autoMin = 0, autoMax = 0;  // display range with 1% of the pixels cut, as render draws
    unsigned short min = 0, max = 0;          // extremes
    unsigned flags = 0;                       // kNucApplied | kBadPixelsApplied
};

class ViewFilm {
public:
    enum : unsigned { kNucApplied = 1, kBadPixelsApplied = 2 };

    // Opens the film with the calibration and corrections of the options;
    // false with a message naming the file.
    bool Open(const std::string& path, const ViewOptions& o);

    // Frame n, corrected by the NUC table and/or the bad-pixel map when asked
    // and available. False when the frame cannot be read.
    bool Read(unsigned long n, bool nuc, bool badPixels, ViewFrame& out);

    // The fields of the file header and of image n's header, as `info` shows them.
    nlohmann::ordered_json Describe(int index) const;
    bool ImageHeader(unsigned long n, nlohmann::ordered_json& out);

    // Figures of frame n over a selection, with a histogram of its levels
    // (at most 64 bins between their extremes).
    bool Measure(unsigned long n, bool nuc, bool badPixels, const Selection& s, nlohmann::ordered_json& out);
    // One CSV line per frame for frames first..last (stats --csv), appended to text.
    bool MeasureCsv(unsigned long first, unsigned long last, bool nuc, bool badPixels, const Selection& s,
                    std::string& text);
    std::string CsvHead() const { return CsvHeader(Calibrated(), m_conv.unit); }

    // The smallest and largest automatic range over up to 100 frames spread over the film.
    bool FilmRange(bool nuc, bool badPixels, unsigned short& min, unsigned short& max);

    bool Calibrated() const { return m_conv.cal != nullptr; }
    // The value of a level in the film's unit (NaN where it does not convert).
    float Value(unsigned short level) const { return m_conv.Value(level); }
    unsigned long Frames() const { return m_film.frames; }
    unsigned short Point() const { return m_film.point; }
    unsigned short Line() const { return m_film.line; }
    unsigned short MaxLevel() const { return m_maxLevel; }
    const std::string& Name() const { return m_name; }

private:
    struct Correction {
        std::unique_ptr<CCorrection> chain;
        bool nuc = false, badPixels = false;
        std::string nucWhy, badPixelsWhy;  // why a correction is not available for this film
    };
    bool OpenCorrection(const ViewOptions& o);

    std::string m_path, m_name;
    nlohmann::ordered_json m_header;
    Film m_film;
    unsigned short m_maxLevel = 0;
    Conversion m_conv;
    Correction m_correction;
    std::mutex m_lock;  // the film's reader and the correction chain's switches
};

// The palettes the page can choose from: the built-in ones and those of the
// palette file, each with its entries as [red, green, blue]. False with a
// message when the palette file cannot be read.
bool PalettesJson(const std::string& paletteFile, nlohmann::ordered_json& out);

}  // namespace thermokit::cli
