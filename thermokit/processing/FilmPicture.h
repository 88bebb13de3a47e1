#pragma once
// Frames of a film drawn through a palette: what the tool's render, export
// --format png and animate, the demo and the Python package's batch runs
// share. A picture shows levels (a film of levels), temperatures (levels
// through a conversion, FilmConversion.h) or the values of a film of doubles,
// in their own unit, over ONE display range for a whole sequence: given
// (range "LO:HI"), or taken once over all the frames drawn (range "auto", the
// default) with a cut percent of the pixels cut, half at each end. Isotherms
// ("LO:HI[:COLOUR]", at most three) paint the values from LO to HI inclusive
// in their colour, a later one over an earlier one. With a bar, a colour bar
// beside the image shows the palette over the range, isotherms included,
// with its scale in numbers and its unit.
//
// A picture is a canvas of colour indexes into one colour map: the palette's
// entries, then the isotherm colours, then the background and text colours.
// A PNG writes the colours; an animated GIF keeps the map (BitmapFont.h draws
// the labels).
//
// Failures are told as one line, naming the option ("--range X: ...") or the
// file at fault; nothing is shown through Messages.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace thermokit {

class CLogPalette;
class CPtr;
struct Conversion;

// "LO:HI" as two numbers with LO below HI (or equal to it when allowed); false when it is not that.
bool ParseRange(const std::string& text, double& lo, double& hi, bool allowEqual = false);
// Names compared without regard to case.
bool SameName(const std::string& a, const std::string& b);
// Palette number from a number or a name (any case; built-in names first, then
// the custom palettes of the file read into reader); -1 when unknown.
int ResolvePalette(const std::string& text, const CLogPalette& reader);
// Loads the custom palettes of the file (if any); false with the message when it cannot be read.
bool LoadCustomPalettes(const std::string& file, CLogPalette& reader, std::string& error);
// A colour by name or as RRGGBB (with or without '#'), as bytes blue, green, red, 0; false when it is neither.
bool ParseColour(const std::string& text, uint32_t& bgra);

// The picture options as given (the tool's --palette, --palette-file, --range, --cut, --isotherm, --bar).
struct PictureOptions {
    std::string palette = "2";
    std::string paletteFile;
    std::string range;  // "LO:HI", "auto" or empty (auto)
    double cut = -1.0;  // percent; below 0: not given (1)
    std::vector<std::string> isotherms;
    bool bar = false;
};

struct Isotherm {
    double lo = 0.0, hi = 0.0;  // in the unit of the values drawn
    uint32_t colour = 0;        // bytes blue, green, red, 0
};

// The options checked: the palette's colours, the range, the isotherms.
struct PictureSetup {
    std::vector<uint32_t> palette;  // bytes blue, green, red, 0 (as palette entries are stored)
    std::string paletteName;
    bool autoRange = true;
    double lo = 0.0, hi = 0.0;  // as given (degC for temperatures)
    double cut = 1.0;
    std::vector<Isotherm> isotherms;
    bool bar = false;
};

// Checks the options into s: 1 when usable; 0 with the message, and
// *fileFailed set when a palette file is at fault (not the options).
int PreparePicture(const PictureOptions& o, PictureSetup& s, std::string& error, bool* fileFailed = nullptr);

// One picture of a sequence: the colour map, the display range and the
// canvas (image, then the bar to its right).
class Picture {
public:
    // Levels; levels converted (temperatures, or a curve's values); the values of a film of doubles.
    enum Source { kLevels, kConverted, kValues };

    // conv is the film's conversion (kConverted); unit names the values.
    Picture(const PictureSetup& setup, Source source, unsigned short point, unsigned short line,
            unsigned short maxLevel, const Conversion* conv, std::string unit);

    // Auto range: every frame drawn passes here first (levels, or the values of a film of doubles).
    void AddToRange(const unsigned short* levels, const double* values);
    // Auto range of levels over many frames at once: each frame's pixels
    // counted by level into counts (maximal level + 1 entries, any order),
    // then the counts added here. A picture of a film of doubles takes its
    // values through AddToRange, in frame order.
    bool CountsLevels() const { return m_source != kValues; }
    void CountLevels(const unsigned short* levels, std::vector<long>& counts) const;
    void AddCounts(const std::vector<long>& counts);
    // Takes the range (given, or from what AddToRange saw) and lays the canvas
    // out. False with the message when no value can make a range.
    bool Finish(std::string& error);

    double Lo() const { return m_lo; }
    double Hi() const { return m_hi; }
    int Width() const { return m_width; }
    int Height() const { return m_height; }
    const std::vector<uint16_t>& Canvas() const { return m_canvas; }
    const std::vector<uint32_t>& Colours() const { return m_colours; }
    const std::string& Unit() const { return m_unit; }

    // The range as the commands tell it: "levels 1750..5168", "temperatures 10..100 degC".
    std::string DescribeRange() const;
    // Draws one frame into the canvas (levels, or the values of a film of
    // doubles); into a copy of the canvas, for frames drawn side by side.
    void Draw(const unsigned short* levels, const double* values) { Draw(levels, values, m_canvas); }
    void Draw(const unsigned short* levels, const double* values, std::vector<uint16_t>& canvas) const;
    // A canvas in its colours (bytes blue, green, red, 0).
    void Colour(const std::vector<uint16_t>& canvas, std::vector<uint32_t>& bgra) const;
    int SavePng(const char* path) const { return SavePng(path, m_canvas); }
    int SavePng(const char* path, const std::vector<uint16_t>& canvas) const;

private:
    uint16_t IndexOfLevel(unsigned short level) const;
    uint16_t IndexOf(double v) const;
    void Layout();

    PictureSetup m_s;
    Source m_source;
    int m_point, m_line;
    unsigned short m_maxLevel;
    const Conversion* m_conv;
    std::string m_unit;
    std::vector<long> m_histo;
    long m_total = 0;
    std::vector<double> m_values;
    long m_stride = 1, m_offset = 0;
    double m_lo = 0.0, m_hi = 1.0;
    std::vector<uint32_t> m_colours;
    uint16_t m_background = 0, m_text = 0;
    std::vector<uint16_t> m_levelIndex;
    int m_width = 0, m_height = 0;
    std::vector<uint16_t> m_canvas;
};

// The frames first, first + step, ... up to last.
std::vector<unsigned long> SteppedFrames(unsigned long first, unsigned long last, unsigned long step);

// The picture of a film's frames: its source and unit, and its range, read
// from every frame when automatic. conv is the film's conversion, or null to
// draw levels (or the values of a film of doubles). False with the message.
bool StartFilmPicture(const PictureSetup& setup, CPtr& film, const std::string& path, const Conversion* conv,
                      const std::vector<unsigned long>& frames, std::unique_ptr<Picture>& picture, std::string& error);
// Reads frame n and draws it; false with the message.
bool DrawFilmFrame(Picture& picture, CPtr& film, const std::string& path, unsigned long n, std::string& error);

// One frame of a sequence drawn: its number, its place in the list, the
// pipeline slot it occupies (for buffers of the slot) and its canvas; a
// stage that fails returns false with the whole message in error.
struct DrawnFrame {
    unsigned long n = 0, item = 0;
    int slot = 0;
    const std::vector<uint16_t>* canvas = nullptr;
    std::string* error = nullptr;
};
using DrawnStage = std::function<bool(const DrawnFrame&)>;

// Draws the frames listed on several threads, each into a canvas of its
// slot (the picture finished by StartFilmPicture): process runs on several
// drawn frames at once, write on one at a time in the list's order (either
// may be empty). False with the first failure's message.
bool DrawFilmFrames(const Picture& picture, CPtr& film, const std::string& path,
                    const std::vector<unsigned long>& frames, const DrawnStage& process, const DrawnStage& write,
                    std::string& error);

}  // namespace thermokit
