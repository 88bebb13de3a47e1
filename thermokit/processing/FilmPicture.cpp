#include "thermokit/processing/FilmPicture.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "thermokit/display/CLogPalette.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/platform/PngWriter.h"
#include "thermokit/processing/BitmapFont.h"
#include "thermokit/processing/FilmConversion.h"

namespace thermokit {

// "LO:HI" as two numbers with LO below HI (or equal to it when allowed); false when it is not that.
bool ParseRange(const std::string& text, double& lo, double& hi, bool allowEqual) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) return false;
    char* end = nullptr;
    const std::string a = text.substr(0, colon), b = text.substr(colon + 1);
    lo = std::strtod(a.c_str(), &end);
    if (a.empty() || *end || !std::isfinite(lo)) return false;
    hi = std::strtod(b.c_str(), &end);
    if (b.empty() || *end || !std::isfinite(hi)) return false;
    return lo < hi || (allowEqual && lo == hi);
}

bool SameName(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

// Palette number from a number or a name (any case; built-in names first, then
// the custom palettes of the file read into reader); -1 when unknown.
int ResolvePalette(const std::string& text, const CLogPalette& reader) {
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        const long n = std::strtol(text.c_str(), nullptr, 10);
        return (text.size() <= 5 && n <= 65535) ? static_cast<int>(n) : -1;
    }
    for (int i = 0; i < CLogPalette::FIRST_CUSTOM; ++i)
        if (SameName(text, CLogPalette::GetPaletteName(i))) return i;
    const auto& names = *reader.GetCustomPalleteName();
    for (size_t k = 0; k < names.size(); ++k)
        if (SameName(text, names[k])) return CLogPalette::FIRST_CUSTOM + static_cast<int>(k);
    return -1;
}

// Loads the custom palettes of the file (if any); false with a message when it cannot be read.
bool LoadCustomPalettes(const std::string& file, CLogPalette& reader, std::string& error) {
    if (file.empty()) return true;
    if (!reader.ReadIniFile(file.c_str())) {
        error = "file " + file + ": cannot be read";
        return false;
    }
    return true;
}

// A colour by name or as RRGGBB (with or without '#'); false when it is neither.
bool ParseColour(const std::string& text, uint32_t& bgra) {
    static const struct {
        const char* name;
        uint32_t rgb;
    } names[] = {{"red", 0xFF0000},   {"green", 0x00FF00},  {"blue", 0x0000FF},  {"yellow", 0xFFFF00},
                 {"cyan", 0x00FFFF},  {"magenta", 0xFF00FF}, {"white", 0xFFFFFF}, {"black", 0x000000},
                 {"orange", 0xFF8000}, {"grey", 0x808080},   {"gray", 0x808080}};
    for (const auto& n : names)
        if (SameName(text, n.name)) {
            bgra = n.rgb;  // 0x00RRGGBB is stored blue, green, red in memory
            return true;
        }
    const std::string hex = !text.empty() && text[0] == '#' ? text.substr(1) : text;
    if (hex.size() != 6 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return false;
    bgra = static_cast<uint32_t>(std::strtoul(hex.c_str(), nullptr, 16));
    return true;
}

int PreparePicture(const PictureOptions& o, PictureSetup& s, std::string& error, bool* fileFailed) {
    if (fileFailed) *fileFailed = false;
    if (o.range.empty() || o.range == "auto") {
        s.autoRange = true;
    } else if (!ParseRange(o.range, s.lo, s.hi)) {
        error = "--range " + o.range + ": expected LO:HI with LO below HI, or auto";
        return 0;
    } else {
        s.autoRange = false;
        if (o.cut >= 0.0) {
            error = "--cut applies to an automatic range; --range " + o.range + " gives it";
            return 0;
        }
    }
    s.cut = o.cut >= 0.0 ? o.cut : 1.0;
    if (o.isotherms.size() > 3) {
        error = "--isotherm: at most three isotherms";
        return 0;
    }
    static const uint32_t defaults[3] = {0xFF0000, 0xFFFF00, 0x00FFFF};  // red, yellow, cyan
    for (size_t i = 0; i < o.isotherms.size(); ++i) {
        const std::string& t = o.isotherms[i];
        Isotherm iso;
        iso.colour = defaults[i];
        const size_t first = t.find(':');
        const size_t second = first == std::string::npos ? std::string::npos : t.find(':', first + 1);
        if (!ParseRange(second == std::string::npos ? t : t.substr(0, second), iso.lo, iso.hi, true)) {
            error = "--isotherm " + t + ": expected LO:HI[:COLOUR] with LO not above HI";
            return 0;
        }
        if (second != std::string::npos && !ParseColour(t.substr(second + 1), iso.colour)) {
            error = "--isotherm " + t + ": colour \"" + t.substr(second + 1) +
                  "\" unknown (red, green, blue, yellow, cyan, magenta, orange, grey, white, black or RRGGBB)";
            return 0;
        }
        s.isotherms.push_back(iso);
    }
    s.bar = o.bar;
    CLogPalette reader(CLogPalette::GREY, 0, nullptr);
    if (!LoadCustomPalettes(o.paletteFile, reader, error)) {
        if (fileFailed) *fileFailed = true;
        return 0;
    }
    const int number = ResolvePalette(o.palette, reader);
    if (number < 0 || (number >= CLogPalette::FIRST_CUSTOM &&
                       number - CLogPalette::FIRST_CUSTOM >= static_cast<int>(reader.GetCustomPalleteName()->size()))) {
        error = "unknown palette \"" + o.palette + "\" (thermokit palette list" +
              (o.paletteFile.empty() ? std::string() : " --file " + o.paletteFile) + " shows them)";
        return 0;
    }
    CLogPalette palette(static_cast<unsigned short>(number), 0, o.paletteFile.empty() ? nullptr : o.paletteFile.c_str());
    if (!palette.IsCreated() || palette.GetEntryCount() < 1) {
        error = "palette " + std::to_string(number) + " (" + palette.GetPaletteName() + "): no entries to draw with";
        if (fileFailed) *fileFailed = true;
        return 0;
    }
    s.paletteName = palette.GetPaletteName();
    const tagLOGPALETTE* lp = palette.GetPLogPalette();
    for (int i = 0; i < palette.GetEntryCount(); ++i) {
        uint32_t word = 0;
        std::memcpy(&word, &lp->palPalEntry[i], 4);
        s.palette.push_back(word & 0x00FFFFFFu);  // the flag byte is not a colour
    }
    return 1;
}

Picture::Picture(const PictureSetup& setup, Source source, unsigned short point, unsigned short line,
        unsigned short maxLevel, const Conversion* conv, std::string unit)
    : m_s(setup), m_source(source), m_point(point), m_line(line), m_maxLevel(maxLevel), m_conv(conv),
      m_unit(std::move(unit)) {
    if (source == kLevels) m_histo.assign(static_cast<size_t>(maxLevel) + 1, 0);
    if (source == kConverted) {
        m_histo.assign(static_cast<size_t>(maxLevel) + 1, 0);
        // Temperatures of the command line are degrees Celsius; the values may be kelvin.
        m_s.lo = conv->FromCelsius(m_s.lo);
        m_s.hi = conv->FromCelsius(m_s.hi);
        for (auto& iso : m_s.isotherms) iso.lo = conv->FromCelsius(iso.lo), iso.hi = conv->FromCelsius(iso.hi);
    }
}

void Picture::AddToRange(const unsigned short* levels, const double* values) {
    const long size = static_cast<long>(m_point) * m_line;
    if (m_source == kValues) {
        // At most about four million values, evenly spread over the frames, make the range.
        m_values.reserve(m_values.size() + static_cast<size_t>(size / m_stride + 1));
        for (long i = m_offset; i < size; i += m_stride)
            if (std::isfinite(values[i])) m_values.push_back(values[i]);
        m_offset = (m_offset + 1) % m_stride;
        if (m_values.size() > (8u << 20)) {
            std::vector<double> half;
            for (size_t k = 0; k < m_values.size(); k += 2) half.push_back(m_values[k]);
            m_values.swap(half);
            m_stride *= 2;
        }
        return;
    }
    for (long i = 0; i < size; ++i) ++m_histo[levels[i] & m_maxLevel];
    m_total += size;
}

void Picture::CountLevels(const unsigned short* levels, std::vector<long>& counts) const {
    const long size = static_cast<long>(m_point) * m_line;
    counts.resize(m_histo.size());
    for (long i = 0; i < size; ++i) ++counts[levels[i] & m_maxLevel];
}

void Picture::AddCounts(const std::vector<long>& counts) {
    for (size_t l = 0; l < m_histo.size() && l < counts.size(); ++l) {
        m_histo[l] += counts[l];
        m_total += counts[l];
    }
}

bool Picture::Finish(std::string& error) {
    if (m_source == kLevels) {
        unsigned short mn = 0, mx = m_maxLevel;
        if (!m_s.autoRange) {
            auto toLevel = [&](double x) -> unsigned short {
                if (!(x > 0.0)) return 0;
                return x >= m_maxLevel ? m_maxLevel : static_cast<unsigned short>(x);
            };
            mn = toLevel(m_s.lo);
            mx = toLevel(m_s.hi);
        } else {
            // The histogram cut of a single frame (MinMaxHisto), over every frame drawn.
            bool any = false;
            for (size_t l = 0; l < m_histo.size(); ++l)
                if (m_histo[l]) {
                    if (!any) mn = static_cast<unsigned short>(l);
                    mx = static_cast<unsigned short>(l);
                    any = true;
                }
            const float pct = static_cast<float>(m_s.cut * 0.5);
            if (!any || !ApplyThresholdMinMaxHisto(m_histo.data(), m_maxLevel, m_total, pct, pct, mn, mx)) {
                error = "--cut " + ShortNumber(m_s.cut) + ": no display range left";
                return false;
            }
        }
        if (mx <= mn) mx = static_cast<unsigned short>(mn < m_maxLevel ? mn + 1 : mn);
        m_lo = mn;
        m_hi = mx;
    } else if (!m_s.autoRange) {
        m_lo = m_s.lo;
        m_hi = m_s.hi;
    } else {
        std::vector<std::pair<double, long>> counts;  // value and pixels
        if (m_source == kConverted) {
            for (size_t l = 0; l < m_histo.size(); ++l) {
                if (!m_histo[l]) continue;
                const double v = m_conv->Value(static_cast<unsigned short>(l));
                if (std::isfinite(v)) counts.emplace_back(v, m_histo[l]);
            }
        } else {
            for (double v : m_values) counts.emplace_back(v, 1);
        }
        if (counts.empty()) {
            error = std::string("no pixel of the frames drawn has a ") +
                    (m_source == kConverted ? "temperature" : "finite value") + "; give --range LO:HI";
            return false;
        }
        std::sort(counts.begin(), counts.end());
        long total = 0;
        for (const auto& c : counts) total += c.second;
        const double cut = total * m_s.cut / 200.0;
        double seen = 0.0;
        m_lo = counts.back().first;
        for (const auto& c : counts)
            if ((seen += c.second) > cut) {
                m_lo = c.first;
                break;
            }
        seen = 0.0;
        m_hi = counts.front().first;
        for (auto c = counts.rbegin(); c != counts.rend(); ++c)
            if ((seen += c->second) > cut) {
                m_hi = c->first;
                break;
            }
        if (!(m_hi > m_lo)) {
            const double mid = 0.5 * (m_lo + m_hi);
            m_lo = mid - 0.5;
            m_hi = mid + 0.5;
        }
    }
    // The colour map.
    m_colours = m_s.palette;
    for (const auto& iso : m_s.isotherms) m_colours.push_back(iso.colour);
    m_background = static_cast<uint16_t>(m_colours.size());
    m_colours.push_back(0xFFFFFF);
    m_text = static_cast<uint16_t>(m_colours.size());
    m_colours.push_back(0x000000);
    // One colour index per level, for films of levels.
    if (m_source != kValues) {
        m_levelIndex.resize(static_cast<size_t>(m_maxLevel) + 1);
        for (size_t l = 0; l < m_levelIndex.size(); ++l)
            m_levelIndex[l] = m_source == kLevels ? IndexOfLevel(static_cast<unsigned short>(l))
                                                  : IndexOf(m_conv->Value(static_cast<unsigned short>(l)));
    }
    Layout();
    return true;
}

std::string Picture::DescribeRange() const {
    char text[96];
    if (m_source == kLevels)
        std::snprintf(text, sizeof text, "levels %.0f..%.0f", m_lo, m_hi);
    else
        std::snprintf(text, sizeof text, "%s %.6g..%.6g%s%s",
                      m_source == kConverted ? "temperatures" : "values", m_lo, m_hi,
                      m_unit.empty() ? "" : " ", m_unit.c_str());
    return text;
}

void Picture::Draw(const unsigned short* levels, const double* values, std::vector<uint16_t>& canvas) const {
    for (int y = 0; y < m_line; ++y) {
        uint16_t* row = canvas.data() + static_cast<size_t>(y) * m_width;
        const size_t base = static_cast<size_t>(y) * m_point;
        if (m_source == kValues) {
            for (int x = 0; x < m_point; ++x) row[x] = IndexOf(values[base + x]);
        } else {
            const uint16_t* table = m_levelIndex.data();
            for (int x = 0; x < m_point; ++x) row[x] = table[levels[base + x] & m_maxLevel];
        }
    }
}

void Picture::Colour(const std::vector<uint16_t>& canvas, std::vector<uint32_t>& bgra) const {
    bgra.resize(canvas.size());
    for (size_t i = 0; i < canvas.size(); ++i) bgra[i] = m_colours[canvas[i]];
}

int Picture::SavePng(const char* path, const std::vector<uint16_t>& canvas) const {
    std::vector<uint32_t> bgra;
    Colour(canvas, bgra);
    return PngWriter::WriteBgra(path, reinterpret_cast<const uint8_t*>(bgra.data()), m_width, m_height,
                                static_cast<ptrdiff_t>(m_width) * 4);
}

// A level's entry, as a true-colour look-up table lays the palette over [min, max].
uint16_t Picture::IndexOfLevel(unsigned short level) const {
    for (size_t i = m_s.isotherms.size(); i-- > 0;)
        if (level >= m_s.isotherms[i].lo && level <= m_s.isotherms[i].hi)
            return static_cast<uint16_t>(m_s.palette.size() + i);
    const long n = static_cast<long>(m_s.palette.size());
    const long mn = static_cast<long>(m_lo), mx = static_cast<long>(m_hi);
    if (level < mn) return 0;
    if (level > mx) return static_cast<uint16_t>(n - 1);
    return static_cast<uint16_t>((level - mn) * n / (mx - mn + 1));
}

// A value's entry: the palette spread evenly over [lo, hi]; values without
// a number (not converted) take the lowest colour, never an isotherm's.
uint16_t Picture::IndexOf(double v) const {
    if (!std::isfinite(v)) return 0;
    for (size_t i = m_s.isotherms.size(); i-- > 0;)
        if (v >= m_s.isotherms[i].lo && v <= m_s.isotherms[i].hi) return static_cast<uint16_t>(m_s.palette.size() + i);
    const double n = static_cast<double>(m_s.palette.size());
    const double k = std::floor((v - m_lo) / (m_hi - m_lo) * n);
    if (!(k > 0.0)) return 0;
    return static_cast<uint16_t>(k >= n ? n - 1 : k);
}

// Canvas size, background, bar and labels; the image part is drawn by Draw.
void Picture::Layout() {
    if (!m_s.bar) {
        m_width = m_point;
        m_height = m_line;
        m_canvas.assign(static_cast<size_t>(m_width) * m_height, 0);
        return;
    }
    const int s = m_line >= 400 ? 2 : 1;  // font scale
    const int pad = 6 * s, barWidth = 12 * s, tick = 4 * s, textHeight = BitmapFont::kHeight * s;
    m_height = std::max<int>(m_line, 120 * s);
    const int top = pad + textHeight + pad, bottom = m_height - pad - textHeight / 2;  // bar rows top..bottom-1
    const int barHeight = bottom - top;
    // Scale: round steps (1, 2 or 5 times a power of ten), at most one label per text line and a half.
    const int most = std::max(2, barHeight / (textHeight + textHeight / 2 + 2));
    const double span = m_hi - m_lo;
    double step = std::pow(10.0, std::floor(std::log10(span / most)));
    for (const double m : {1.0, 2.0, 5.0, 10.0})
        if (span / (step * m) <= most) {
            step *= m;
            break;
        }
    if (m_source == kLevels) step = std::max(1.0, std::round(step));
    const int decimals = step >= 1.0 ? 0 : static_cast<int>(std::ceil(-std::log10(step) - 1e-9));
    std::vector<std::pair<double, std::string>> labels;
    char text[48];
    for (double v = std::ceil(m_lo / step - 1e-9) * step; v <= m_hi + step * 1e-9; v += step) {
        std::snprintf(text, sizeof text, "%.*f", decimals, std::fabs(v) < step * 1e-9 ? 0.0 : v);
        labels.emplace_back(v, text);
    }
    if (labels.size() < 2) {
        labels.clear();
        for (const double v : {m_lo, m_hi}) {
            std::snprintf(text, sizeof text, "%.6g", v);
            labels.emplace_back(v, text);
        }
    }
    int labelWidth = BitmapFont::TextWidth(m_unit, s);
    for (const auto& l : labels) labelWidth = std::max(labelWidth, BitmapFont::TextWidth(l.second, s));
    const int barX = m_point + pad;
    m_width = barX + barWidth + tick + 2 * s + labelWidth + pad;
    m_canvas.assign(static_cast<size_t>(m_width) * m_height, m_background);
    auto rowOf = [&](double v) { return top + static_cast<int>(std::lround((m_hi - v) / span * (barHeight - 1))); };
    for (int y = top; y < bottom; ++y) {
        const double v = m_hi - span * (y - top) / std::max(1, barHeight - 1);
        const uint16_t index = m_source == kLevels ? IndexOfLevel(static_cast<unsigned short>(std::lround(v)))
                                                   : IndexOf(v);
        std::fill_n(m_canvas.begin() + static_cast<long>(y) * m_width + barX, barWidth, index);
    }
    for (const auto& l : labels) {
        const int y = rowOf(l.first);
        for (int t = 0; t < s; ++t)
            std::fill_n(m_canvas.begin() + static_cast<long>(std::min(y + t, m_height - 1)) * m_width + barX + barWidth,
                        tick, m_text);
        BitmapFont::Draw(m_canvas, m_width, m_height, barX + barWidth + tick + 2 * s, y - textHeight / 2, l.second,
                         m_text, s);
    }
    BitmapFont::Draw(m_canvas, m_width, m_height, barX, pad, m_unit, m_text, s);
}

std::vector<unsigned long> SteppedFrames(unsigned long first, unsigned long last, unsigned long step) {
    std::vector<unsigned long> frames;
    for (unsigned long n = first; n <= last; n += step) {
        frames.push_back(n);
        if (last - n < step) break;
    }
    return frames;
}

namespace {

const double* DoubleBuffer(CPtr& film) {
    return film.GetPixelBytes() == 8 ? static_cast<CPtrFloat&>(film).GetDoubleBuffer() : nullptr;
}

}  // namespace

bool StartFilmPicture(const PictureSetup& setup, CPtr& film, const std::string& path, const Conversion* conv,
                      const std::vector<unsigned long>& frames, std::unique_ptr<Picture>& picture, std::string& error) {
    const bool doubles = film.GetPixelBytes() == 8;
    const Picture::Source source = conv ? Picture::kConverted : (doubles ? Picture::kValues : Picture::kLevels);
    const std::string unit = conv ? conv->unit : (doubles ? film.GetSpecialUnitName() : std::string("DL"));
    picture = std::make_unique<Picture>(setup, source, film.GetPoint(), film.GetLine(), film.GetMaxLevel(), conv, unit);
    if (setup.autoRange) {
        // Levels counted frame by frame on several threads into counts of the
        // slot (counts add up the same in any order); values taken in frame order.
        FilmPipeline pipe(film, frames);
        pipe.NameFilm(path);
        auto counts = PerSlot([] { return std::vector<long>(); });
        const auto count = [&](FilmFrame& f) {
            picture->CountLevels(f.frame.GetBuffer(), counts[static_cast<size_t>(f.slot)]);
            return true;
        };
        const auto take = [&](FilmFrame& f) {
            picture->AddToRange(nullptr, f.values.data());
            return true;
        };
        const bool levels = picture->CountsLevels();
        if (!pipe.Run(levels ? FilmPipeline::Stage(count) : FilmPipeline::Stage(),
                      levels ? FilmPipeline::Stage() : FilmPipeline::Stage(take))) {
            error = pipe.GetLastError();
            return false;
        }
        for (const auto& c : counts) picture->AddCounts(c);
    }
    return picture->Finish(error);
}

bool DrawFilmFrame(Picture& picture, CPtr& film, const std::string& path, unsigned long n, std::string& error) {
    if (!ReadFilmFrame(film, path, n, error)) return false;
    picture.Draw(film.GetFrame()->GetBuffer(), DoubleBuffer(film));
    return true;
}

bool DrawFilmFrames(const Picture& picture, CPtr& film, const std::string& path,
                    const std::vector<unsigned long>& frames, const DrawnStage& process, const DrawnStage& write,
                    std::string& error) {
    auto canvases = PerSlot([&] { return picture.Canvas(); });
    const auto drawn = [&](FilmFrame& f) {
        return DrawnFrame{f.index, f.item, f.slot, &canvases[static_cast<size_t>(f.slot)], &f.error};
    };
    const auto draw = [&](FilmFrame& f) {
        picture.Draw(f.frame.GetBuffer(), f.values.empty() ? nullptr : f.values.data(),
                     canvases[static_cast<size_t>(f.slot)]);
        return !process || process(drawn(f));
    };
    FilmPipeline pipe(film, frames);
    pipe.NameFilm(path);
    if (pipe.Run(draw, write ? FilmPipeline::Stage([&](FilmFrame& f) { return write(drawn(f)); })
                             : FilmPipeline::Stage()))
        return true;
    error = pipe.GetLastError();
    return false;
}

}  // namespace thermokit
