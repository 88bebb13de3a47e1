// thermokit animate: frames of a film as an animated GIF (giflib), drawn as
// render draws them, with one range for every frame, at the film's frame
// rate or a rate of its own.
#include <gif_lib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Conversion.h"
#include "FilmInput.h"
#include "OutputFile.h"
#include "Picture.h"
#include "thermokit/film/FilmPipeline.h"
#include "Progress.h"
#include "System.h"

namespace thermokit::cli {
namespace {

struct AnimateOptions {
    std::string file;
    std::string frames;
    unsigned long step = 1;
    double fps = 0.0;
    PictureOptions picture;
    ConversionOptions conversion;
    std::string output;
};

// The GIF colour map of a picture's colours (at most 256): equal colours share
// an entry. A palette of 256 colours with isotherms and the bar's two needs
// more; then the closest neighbouring palette colours are merged, pair after
// pair, until the rest fits. index[k] is the GIF entry of picture colour k.
void GifColours(std::vector<uint32_t> colours, size_t paletteSize, std::vector<uint32_t>& map,
                std::vector<uint8_t>& index) {
    auto distinct = [&] {
        map.clear();
        index.assign(colours.size(), 0);
        for (size_t k = 0; k < colours.size(); ++k) {
            size_t e = 0;
            while (e < map.size() && map[e] != colours[k]) ++e;
            if (e == map.size()) map.push_back(colours[k]);
            index[k] = static_cast<uint8_t>(e < 256 ? e : 255);
        }
        return map.size();
    };
    auto channel = [](uint32_t c, int shift) { return static_cast<long>((c >> shift) & 0xFF); };
    while (distinct() > 256) {
        size_t best = 0;
        long bestDistance = -1;
        for (size_t k = 0; k + 1 < paletteSize; ++k) {
            if (colours[k] == colours[k + 1]) continue;
            long d = 0;
            for (const int shift : {0, 8, 16}) d += (channel(colours[k], shift) - channel(colours[k + 1], shift)) *
                                                    (channel(colours[k], shift) - channel(colours[k + 1], shift));
            if (bestDistance < 0 || d < bestDistance) bestDistance = d, best = k;
        }
        colours[best + 1] = colours[best];
    }
}

// Hundredths of a second that GIF frame k is shown, so that the frames keep time in total.
int Delay(unsigned long k, double seconds) {
    const long a = std::lround(100.0 * seconds * static_cast<double>(k));
    const long b = std::lround(100.0 * seconds * static_cast<double>(k + 1));
    return static_cast<int>(std::max(1L, std::min(65535L, b - a)));
}

class GifFile {
public:
    ~GifFile() { Close(); }
    // A new file with the permissions the user's mask leaves (as every other output).
    bool Open(const std::string& path) {
        const int fd = CreateOutputDescriptor(path);
        if (fd < 0) {
            m_error = std::strerror(errno);
            return false;
        }
        int error = 0;
        m_gif = EGifOpenFileHandle(fd, &error);  // from here the GIF file owns fd
        if (!m_gif) {
            ::close(fd);  // it fails only before taking the descriptor over (no memory)
            m_error = GifErrorString(error);
        }
        return m_gif != nullptr;
    }
    // Screen, colour map and endless looping.
    bool Start(int width, int height, const std::vector<uint32_t>& colours) {
        std::vector<GifColorType> entries(static_cast<size_t>(1) << GifBitSize(static_cast<int>(colours.size())));
        for (size_t k = 0; k < colours.size(); ++k)
            entries[k] = {static_cast<GifByteType>(colours[k] >> 16), static_cast<GifByteType>(colours[k] >> 8),
                          static_cast<GifByteType>(colours[k])};
        ColorMapObject* map = GifMakeMapObject(static_cast<int>(entries.size()), entries.data());
        if (!map) return Failed();
        EGifSetGifVersion(m_gif, true);
        const bool ok = EGifPutScreenDesc(m_gif, width, height, 8, 0, map) == GIF_OK;
        GifFreeMapObject(map);
        static const GifByteType loop[3] = {1, 0, 0};  // repeat for ever
        if (!ok || EGifPutExtensionLeader(m_gif, APPLICATION_EXT_FUNC_CODE) != GIF_OK ||
            EGifPutExtensionBlock(m_gif, 11, "NETSCAPE2.0") != GIF_OK ||
            EGifPutExtensionBlock(m_gif, 3, loop) != GIF_OK || EGifPutExtensionTrailer(m_gif) != GIF_OK)
            return Failed();
        m_width = width;
        m_height = height;
        return true;
    }
    bool Frame(std::vector<GifByteType>& pixels, int delay) {
        GraphicsControlBlock gcb{};
        gcb.DisposalMode = DISPOSE_DO_NOT;
        gcb.DelayTime = delay;
        gcb.TransparentColor = NO_TRANSPARENT_COLOR;
        GifByteType extension[4];
        EGifGCBToExtension(&gcb, extension);
        if (EGifPutExtension(m_gif, GRAPHICS_EXT_FUNC_CODE, 4, extension) != GIF_OK ||
            EGifPutImageDesc(m_gif, 0, 0, m_width, m_height, false, nullptr) != GIF_OK ||
            EGifPutLine(m_gif, pixels.data(), m_width * m_height) != GIF_OK)
            return Failed();
        return true;
    }
    bool Close() {
        if (!m_gif) return m_error.empty();
        int error = 0;
        const bool ok = EGifCloseFile(m_gif, &error) == GIF_OK;
        m_gif = nullptr;
        if (!ok && m_error.empty()) m_error = GifErrorString(error);
        return ok && m_error.empty();
    }
    const std::string& ErrorText() const { return m_error; }

private:
    bool Failed() {
        if (m_error.empty()) m_error = GifErrorString(m_gif->Error);
        return false;
    }
    GifFileType* m_gif = nullptr;
    int m_width = 0, m_height = 0;
    std::string m_error;
};

int RunAnimate(const AnimateOptions& o) {
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    PictureSetup setup;
    if (const int code = PreparePicture(o.picture, setup); code != kDone) return code;
    Film film;
    if (!OpenFilm(o.file, film)) return kFailed;
    unsigned long first = 0, last = 0;
    if (!ParseFrames(o.frames, film.frames, first, last, o.file)) return kFailed;
    const double rate = film.ptr->GetFrameRate();
    if (o.fps <= 0.0 && !(rate > 0.0)) {
        FileError(o.file, "the film's header holds no frame rate; give --fps");
        return kFailed;
    }
    // Real time: each GIF frame lasts the film time it stands for, unless --fps says otherwise.
    const double seconds = o.fps > 0.0 ? 1.0 / o.fps : static_cast<double>(o.step) / rate;
    Conversion conv;
    if (o.conversion.Requested() && !LoadConversion(o.conversion, film, o.file, conv)) return kFailed;
    OutputFile out(o.output);
    GifFile gif;
    if (!gif.Open(out.Temp())) {
        FileError(o.output, "cannot be written (" + gif.ErrorText() + ")");
        return kFailed;
    }
    const std::vector<unsigned long> frames = SteppedFrames(first, last, o.step);
    std::unique_ptr<Picture> picture;
    if (!StartFilmPicture(setup, film, o.file, o.conversion.Requested() ? &conv : nullptr, frames, picture))
        return kFailed;
    std::vector<uint32_t> map;
    std::vector<uint8_t> index;
    GifColours(picture->Colours(), setup.palette.size(), map, index);
    if (!gif.Start(picture->Width(), picture->Height(), map)) {
        FileError(o.output, "cannot be written (" + gif.ErrorText() + ")");
        return kFailed;
    }
    Progress progress("animate", frames.size());
    // Frames drawn and put in the GIF's colours on several threads, added in frame order.
    auto pixels = PerSlot([&] { return std::vector<GifByteType>(picture->Canvas().size()); });
    const auto colour = [&](const DrawnFrame& d) {
        std::vector<GifByteType>& p = pixels[static_cast<size_t>(d.slot)];
        for (size_t i = 0; i < p.size(); ++i) p[i] = index[(*d.canvas)[i]];
        return true;
    };
    const auto add = [&](const DrawnFrame& d) {
        if (gif.Frame(pixels[static_cast<size_t>(d.slot)], Delay(d.item, seconds))) return true;
        *d.error = FileErrorText(o.output, "cannot be written (" + gif.ErrorText() + ")");
        return false;
    };
    if (!DrawFilmFrames(*picture, film, o.file, frames, colour, add, progress)) return kFailed;
    if (!gif.Close()) {
        FileError(o.output, "cannot be written (" + gif.ErrorText() + ")");
        return kFailed;
    }
    if (!out.Commit()) return kFailed;
    progress.Done();
    Note("%s: %zu frame(s) of %s, %d x %d, %.4g frames a second, palette %s, %s\n", o.output.c_str(), frames.size(),
         o.file.c_str(), picture->Width(), picture->Height(), 1.0 / seconds, setup.paletteName.c_str(),
         picture->DescribeRange().c_str());
    return kDone;
}

}  // namespace

void AddAnimateCommand(CLI::App& app) {
    auto o = std::make_shared<AnimateOptions>();
    auto* sub = app.add_subcommand("animate", "Write frames of a film as an animated GIF, one range for all of them");
    Input(sub->add_option("film", o->file, "Film file"))->required();
    Output(sub->add_option("-o,--output", o->output, "GIF file to write (a folder: FILM.gif in it)"), [] { return std::string(".gif"); })
        ->required();
    sub->add_option("--frames", o->frames, "Frames A:B, both included (default every frame)")->check(FrameRange());
    sub->add_option("--step", o->step, "Every STEP-th frame of the range (default 1)")->check(CLI::Range(1UL, 1000000000UL));
    sub->add_option("--fps", o->fps, "Frames a second of the GIF (default: the film's rate, divided by the step)")
        ->check(CLI::Range(0.01, 100.0));
    AddPictureOptions(sub, o->picture);
    AddConversionOptions(sub, o->conversion);
    sub->footer("Example: thermokit animate run.film --embedded --range 20:60 --bar --step 2 -o run.gif");
    sub->callback([o] { SetAction([o] { return RunAnimate(*o); }); });
}

}  // namespace thermokit::cli
