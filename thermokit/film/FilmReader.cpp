#include "thermokit/film/FilmReader.h"

#include <filesystem>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CNoise.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"

namespace thermokit {

namespace {

void Problem(const std::string& path, const std::string& what) {
    Messages::ShowMessage("file " + path + ": " + what, "thermokit", MB_ICONERROR);
}

constexpr const char* kNotAFilm = "not a film, or its header is damaged or does not fit the file";

}  // namespace

std::string FileProblem(const std::string& path) {
    if (!File::Exists(path)) return "not found";
    // A FIFO or a device would block the open or the reads: only plain files are films.
    std::error_code ec;
    const auto type = std::filesystem::status(path, ec).type();
    if (!ec && type != std::filesystem::file_type::regular)
        return type == std::filesystem::file_type::directory ? "not a regular file (a folder)"
               : type == std::filesystem::file_type::fifo    ? "not a regular file (a FIFO)"
                                                              : "not a regular file (a device)";
    File f;
    if (!f.Open(path, File::modeRead | File::shareDenyNone)) return "cannot be opened (" + f.GetLastErrorText() + ")";
    if (f.GetLength() == 0) return "empty file";
    return std::string();
}

std::string FilmIncomplete(const CPtr& film) {
    const unsigned long frames = film.GetFrameNumber();
    if (frames == 0) return std::string();
    const uint64_t end = film.OffsetImage(frames - 1) + film.GetImageSize();
    const int64_t size = film.GetFileSize();
    if (size < 0 || static_cast<uint64_t>(size) < end)
        return "shorter than its " + std::to_string(frames) + " frames (" + std::to_string(size) + " bytes, " +
               std::to_string(end) + " expected); the film is truncated";
    return std::string();
}

bool ReadFilmFrame(CPtr& film, const std::string& path, unsigned long n, std::string& error) {
    if (film.ReadFrame(n)) return true;
    error = "file " + path + ": frame " + std::to_string(n) + " cannot be read (the file is shorter than its header says)";
    return false;
}

int CheckFilmComplete(const CPtr& film) {
    const std::string why = FilmIncomplete(film);
    if (why.empty()) return 1;
    Problem(film.GetFileName(), why);
    return 0;
}

std::unique_ptr<CPtr> OpenFilmForReading(const std::string& path, ErrorKind* kind) {
    auto fail = [kind](ErrorKind k) {
        if (kind) *kind = k;
        return nullptr;
    };
    const std::string why = FileProblem(path);
    if (!why.empty()) {
        Problem(path, why);
        return fail(why == "empty file" ? ErrorKind::Format : ErrorKind::System);
    }
    CPtrOver header(path);
    if (!header.IsValid()) {
        Problem(path, header.GetLastErrorText().empty() ? std::string(kNotAFilm) : header.GetLastErrorText());
        return fail(header.GetLastErrorKind() == ErrorKind::None ? ErrorKind::Format : header.GetLastErrorKind());
    }
    std::unique_ptr<CPtr> film;
    if (CPtrOver::PixelBytes(header.GetHeaderAddress()) == 8) film = std::make_unique<CPtrFloat>(path, 0, 0, 1);
    else film = std::make_unique<CPtr>(path, 0, 0, 1);
    if (!film->IsValid()) {
        Problem(path, film->GetLastErrorText().empty() ? std::string(kNotAFilm) : film->GetLastErrorText());
        return fail(film->GetLastErrorKind() == ErrorKind::None ? ErrorKind::Format : film->GetLastErrorKind());
    }
    if (!CheckFilmComplete(*film)) return fail(ErrorKind::Format);
    if (kind) *kind = ErrorKind::None;
    return film;
}

int ReadTemporalNoise(CPtr& film, float* noise) {
    if (film.GetFrameNumber() == 0) return 0;
    CAverage mean(film.GetPoint(), film.GetLine(), film.GetBit(), 0);
    CNoise rms(film.GetPoint(), film.GetLine(), film.GetBit(), 0);
    if (!NoiseFilm(film, mean, rms)) return 0;
    const double* r = rms.GetBuffer();
    if (!r) return 0;
    const long size = film.GetSize();
    for (long i = 0; i < size; ++i) noise[i] = static_cast<float>(r[i]);
    return 1;
}

int ReadElapsedTimes(CPtr& film, double* seconds) {
    const unsigned long frames = film.GetFrameNumber();
    double first = 0.0, previous = 0.0, day = 0.0;
    for (unsigned long n = 0; n < frames; ++n) {
        double t = 0.0;
        if (!film.ReadTime(n, t)) return 0;
        if (n == 0) first = previous = t;
        if (previous - t > 43200.0) day += 86400.0;
        previous = t;
        seconds[n] = t + day - first;
    }
    return 1;
}

}  // namespace thermokit
