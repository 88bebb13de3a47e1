#pragma once
// The figures of one frame over a selection of its pixels: minimum, maximum,
// mean and population standard deviation of the levels (values of a film of
// doubles) and, through a conversion, of the calibrated values; and the CSV
// lines they are written as. The tool's stats, the viewer's regions and the
// Python package measure with this one code, so that all give the same
// numbers and write the same lines.
//
// Selections are the whole image, a rectangle ("x,y,w,h") or a region file:
// text, one shape a line, the union of them all.
//   rect X Y W H          pixels X..X+W-1, Y..Y+H-1
//   ellipse X Y W H       the ellipse inscribed in that rectangle
//   polygon X1 Y1 X2 Y2 X3 Y3 ...   at least three corners
// Blank lines and lines starting with '#' are ignored. Anything else is an
// error naming the file and the line.
#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "thermokit/image/Statistics.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/processing/FilmConversion.h"

namespace thermokit {

class CPtr;

struct Figures {
    double min = NAN, max = NAN, mean = NAN, stdDev = NAN;
    long count = 0;
};

// Figures of the finite values among v (calibrations give NaN where a level
// cannot be converted: such values are left out).
template <class T>
Figures FiniteFigures(const std::vector<T>& v) {
    const FrameStatistics s = Measure(v.data(), static_cast<long>(v.size()));
    return Figures{s.min, s.max, s.mean, s.stdDev, s.count};
}

// The pixels measured: the whole image, a rectangle, or a region (whose
// extremes are then taken by MinMaxRgn, as for region files).
struct Selection {
    bool whole = true;
    std::vector<long> pixels;  // indexes y * point + x, line by line
    CRgn* region = nullptr;

    void Rect(const CRect& r, unsigned short point);
    void Region(CRgn& rgn, unsigned short point, unsigned short line);
};

struct FrameFigures {
    Figures levels;         // levels, or values of a film of doubles
    Figures values;         // calibrated values (count 0 without a conversion)
    long notConverted = 0;  // selected pixels whose level gives no value (NaN)
};

// Measures frames one after the other, keeping its buffers between them.
class FrameMeasure {
public:
    // buffer: point x line levels; doubles: the values of a film of doubles
    // (null for levels); conv: null for no calibrated values.
    FrameFigures Measure(const unsigned short* buffer, const double* doubles, unsigned short point,
                         unsigned short line, const Selection& s, const Conversion* conv);
    // The selected levels of the last frame measured (films of levels),
    // while the buffer measured is still there.
    const std::vector<unsigned short>& Levels() const;

private:
    // Calibrated figures of n levels from their counts: one value per level
    // used instead of one per pixel; exact sums (FloatMoments), so the same
    // figures as the values' own, pixel by pixel. The levels' figures too,
    // the same as MinMax's and StdDev's, when no level has bits above the
    // table's (true then).
    bool MeasureByLevel(const unsigned short* levels, long n, const Conversion& conv, FrameFigures& f);

    mutable const unsigned short* m_whole = nullptr;  // a whole frame not copied yet
    long m_wholeCount = 0;
    mutable std::vector<unsigned short> m_levels;
    std::vector<double> m_doubles;
    std::vector<float> m_values;
    std::vector<uint32_t> m_counts;  // the levels' histogram, all zero between frames
    std::vector<float> m_usedValues;  // the values of the levels used, and their counts
    std::vector<uint32_t> m_usedCounts;
};

// Measures frames first..last of a film (levels, or the values of a film of
// doubles), calling each with the frame's number, its time of day (seconds)
// and its figures. False with the message when a frame cannot be read.
bool MeasureFilm(CPtr& film, const std::string& path, unsigned long first, unsigned long last, const Selection& s,
                 const Conversion* conv,
                 const std::function<void(unsigned long n, double time, const FrameFigures& f)>& each,
                 std::string& error);

// The CSV header line and one line per frame (each with its newline).
std::string CsvHeader(bool calibrated, const std::string& unit);
std::string CsvRow(unsigned long n, double time, const FrameFigures& f, bool calibrated);

// "x,y,w,h" with w, h > 0; false when it is not that.
bool ParseRect(const std::string& text, CRect& rect);

// The selection of a rectangle ("x,y,w,h", given as option) or a region file
// in a point x line image; neither: the whole image. False with the message:
// usage is set when the rectangle's text is wrong (a usage error), cleared
// when the film or the file is at fault. region keeps the region the
// selection points to.
bool SelectPixels(const std::string& roi, const char* option, const std::string& regionFile, unsigned short point,
                  unsigned short line, const std::string& filmPath, Selection& selection, CRgn& region,
                  std::string& error, bool& usage);

}  // namespace thermokit
