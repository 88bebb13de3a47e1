// thermokit edit: a new film from frames of another, cropped, turned and
// mirrored, with the descriptive header kept and the structure updated.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "FilmInput.h"
#include "FilmWork.h"
#include "OutputFile.h"
#include "thermokit/image/CFrame.h"

namespace thermokit::cli {
namespace {

struct EditOptions {
    std::string file;
    std::string output;
    std::string crop;
    int rotate = 0;
    std::string flip;
    std::string frames;
    bool salvage = false;
};

// The edited image of src (point x line levels): the crop rectangle, then the
// quarter turns (90 clockwise: source line r becomes column h - 1 - r; 270
// counter-clockwise; 180 both axes), then the mirror (h: columns, v: lines).
void Transform(const unsigned short* src, unsigned short point, const CRect& crop, int rotate, char flip,
               unsigned short* out, unsigned short& outPoint, unsigned short& outLine) {
    const int w = crop.Width(), h = crop.Height();
    const bool quarter = rotate == 90 || rotate == 270;
    outPoint = static_cast<unsigned short>(quarter ? h : w);
    outLine = static_cast<unsigned short>(quarter ? w : h);
    for (int y = 0; y < h; ++y) {
        const unsigned short* row = src + static_cast<long>(crop.top + y) * point + crop.left;
        for (int x = 0; x < w; ++x) {
            int nx = x, ny = y;
            if (rotate == 90) nx = h - 1 - y, ny = x;
            else if (rotate == 270) nx = y, ny = w - 1 - x;
            else if (rotate == 180) nx = w - 1 - x, ny = h - 1 - y;
            if (flip == 'h') nx = outPoint - 1 - nx;
            else if (flip == 'v') ny = outLine - 1 - ny;
            out[static_cast<long>(ny) * outPoint + nx] = row[x];
        }
    }
}

bool CheckEditOptions(const EditOptions& o, CRect& crop) {
    if (o.rotate != 0 && o.rotate != 90 && o.rotate != 180 && o.rotate != 270) {
        Error("--rotate " + std::to_string(o.rotate) + ": expected 90, 180 or 270");
        return false;
    }
    if (!o.flip.empty() && o.flip != "h" && o.flip != "v") {
        Error("--flip " + o.flip + ": expected h (mirror the columns) or v (mirror the lines)");
        return false;
    }
    if (!o.crop.empty() && !ParseRect(o.crop, crop)) {
        Error("--crop " + o.crop + ": expected x,y,w,h with a width and a height above 0");
        return false;
    }
    return true;
}

// The source film, the frames taken from it and the shape of the new film.
struct EditWork {
    Film film;
    unsigned long first = 0, last = 0;
    CRect crop;
    bool cropped = false;
    unsigned short point = 0, line = 0;
};

bool OpenEdit(const EditOptions& o, EditWork& w) {
    Film& film = w.film;
    if (!(o.salvage ? OpenFilmToSalvage(o.file, film) : OpenFilm(o.file, film))) return false;
    if (film.doubles) {
        FileError(o.file, "a film of doubles cannot be edited (films of 16-bit levels only)");
        return false;
    }
    if (!ParseFrames(o.frames, film.frames, w.first, w.last, o.file)) return false;
    if (o.crop.empty()) w.crop.SetRect(0, 0, film.point, film.line);
    else if (!RectInFilm(w.crop, film, o.file, "--crop")) return false;
    w.cropped = !o.crop.empty() && (w.crop.Width() != film.point || w.crop.Height() != film.line);
    const bool quarter = o.rotate == 90 || o.rotate == 270;
    w.point = static_cast<unsigned short>(quarter ? w.crop.Height() : w.crop.Width());
    w.line = static_cast<unsigned short>(quarter ? w.crop.Width() : w.crop.Height());
    return true;
}

// The new film's header: the source's, with its recording date and time.
void StartEditedFilm(const EditWork& w, const std::string& temp, CPtr& dst) {
    CPtr& src = *w.film.ptr;
    CPtrOver::CopyHeaderPtr(&dst, &src, 1, 1);
    CPtrOver::PTR_DATE date;
    CPtrOver::PTR_TIME time;
    src.GetDate(&date);
    src.GetTime(&time);
    dst.SetDate(&date);
    dst.SetTime(&time);
    dst.SetThousandth(src.GetThousandth());
    if (w.cropped) dst.SetWindow(1);
    dst.SetFileName(temp);
}

// The sub-window of a cropped frame: where the new image lies on the detector.
void PlaceWindow(const EditWork& w, CPtr& dst) {
    if (!w.cropped) return;
    CRect was;
    dst.GetSubWindowRect(&was);  // the source frame's, as read
    const int left = (dst.GetImageWindow() ? was.left : 0) + w.crop.left;
    const int top = (dst.GetImageWindow() ? was.top : 0) + w.crop.top;
    CRect sub(left, top, left + w.crop.Width(), top + w.crop.Height());
    dst.SetSubWindowRect(&sub);
}

int RunEdit(const EditOptions& o) {
    EditWork w;
    if (!CheckEditOptions(o, w.crop)) return kUsage;
    if (!OpenEdit(o, w)) return kFailed;
    CPtr& src = *w.film.ptr;
    OutputFile out(o.output);
    CPtr dst(w.point, w.line, src.GetBit(), 0, 1, 0);
    StartEditedFilm(w, out.Temp(), dst);
    // Frames turned on every core into frames of their slot, added in frame order.
    const auto edited = PerSlot([&] { return std::make_unique<CFrame>(w.point, w.line, src.GetBit(), 0, 0); });
    const auto transform = [&](FilmFrame& f) {
        CFrame& e = *edited[static_cast<size_t>(f.slot)];
        unsigned short p = 0, l = 0;
        Transform(f.frame.GetBuffer(), w.film.point, w.crop, o.rotate, o.flip.empty() ? 0 : o.flip[0], e.GetBuffer(),
                  p, l);
        e.SetTime(f.frame.GetTime());
        return true;
    };
    FilmPipeline pipe(src, w.first, w.last - w.first + 1);
    if (!RunFrames(pipe, "edit", transform, [&](FilmFrame& f) {
            return AppendFrame(dst, o.output, f, *edited[static_cast<size_t>(f.slot)],
                               [&](CPtr& d) { PlaceWindow(w, d); });
        }))
        return kFailed;
    if (!out.Commit()) return kFailed;
    Note("%s: %lu frame(s) of %u x %u from %s (frames %lu..%lu%s%s%s)\n", o.output.c_str(), w.last - w.first + 1,
         w.point, w.line, o.file.c_str(), w.first, w.last, w.cropped ? ", cropped" : "",
         o.rotate ? (", turned " + std::to_string(o.rotate)).c_str() : "",
         o.flip.empty() ? "" : (o.flip == "h" ? ", columns mirrored" : ", lines mirrored"));
    return kDone;
}

}  // namespace

void AddEditCommand(CLI::App& app) {
    auto o = std::make_shared<EditOptions>();
    auto* sub = app.add_subcommand("edit", "Write a new film: frames cropped, turned or mirrored, header kept");
    Input(sub->add_option("film", o->file, "Film file"))->required();
    Output(sub->add_option("-o,--output", o->output, "Film to write (a folder: FILM.film in it)"),
           [] { return std::string(".film"); })
        ->required();
    sub->add_option("--crop", o->crop, "Keep the rectangle x,y,w,h");
    sub->add_option("--rotate", o->rotate, "Quarter turns after the crop: 90 (clockwise), 180 or 270");
    sub->add_option("--flip", o->flip, "Mirror after the turn: h (columns) or v (lines)");
    sub->add_option("--frames", o->frames, "Frames A:B, both included (default every frame)")->check(FrameRange());
    sub->add_flag("--salvage", o->salvage,
                  "A film cut short: write its whole frames (the new header counts them) instead of refusing it");
    sub->footer("Example: thermokit edit run.film -o part.film --crop 64,32,320,240 --rotate 90 --frames 10:59\n"
                "         thermokit edit cut.film --salvage -o repaired.film");
    sub->callback([o] { SetAction([o] { return RunEdit(*o); }); });
}

}  // namespace thermokit::cli
