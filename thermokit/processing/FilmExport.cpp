#include "thermokit/processing/FilmExport.h"

#if defined(__linux__)
#include <fcntl.h>
#endif

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/File.h"
#include "thermokit/processing/FilmConversion.h"

namespace thermokit {

std::string NpyHeader(const char* descr, unsigned long frames, unsigned line, unsigned point) {
    char dict[160];
    std::snprintf(dict, sizeof(dict), "{'descr': '%s', 'fortran_order': False, 'shape': (%lu, %u, %u), }", descr,
                  frames, line, point);
    std::string header(dict);
    const size_t total = 10 + header.size() + 1;
    header.append((64 - total % 64) % 64, ' ');
    header += '\n';
    std::string out("\x93NUMPY\x01\x00", 8);
    out += static_cast<char>(header.size() & 0xff);
    out += static_cast<char>((header.size() >> 8) & 0xff);
    return out + header;
}

namespace {

// CSV lines of one frame: its number, each line's number and its values.
void CsvLines(std::string& text, unsigned long n, const unsigned short* levels, const float* values,
              const double* doubles, unsigned point, unsigned line) {
    text.clear();
    char cell[40];
    for (unsigned y = 0; y < line; ++y) {
        std::snprintf(cell, sizeof(cell), "%lu,%u", n, y);
        text += cell;
        for (unsigned x = 0; x < point; ++x) {
            const long i = static_cast<long>(y) * point + x;
            if (doubles) std::snprintf(cell, sizeof(cell), ",%.17g", doubles[i]);
            else if (values) std::snprintf(cell, sizeof(cell), ",%.9g", static_cast<double>(values[i]));
            else std::snprintf(cell, sizeof(cell), ",%u", levels[i]);
            text += cell;
        }
        text += '\n';
    }
}

}  // namespace

int ExportFilm(CPtr& film, const std::string& path, const std::vector<unsigned long>& frames, const std::string& format,
               const Conversion* conv, const std::string& writePath, const std::string& outPath, std::string& error,
               const std::function<void(unsigned long)>& progress) {
    if (format != "npy" && format != "raw" && format != "csv") {
        error = "--format " + format + ": expected png, csv, raw or npy";
        return 0;
    }
    const bool isDoubles = film.GetPixelBytes() == 8;
    const unsigned short point = film.GetPoint(), line = film.GetLine();
    const size_t size = static_cast<size_t>(point) * line;
    std::FILE* f = File::OpenStream(writePath, "wb");
    if (!f) {
        error = "file " + outPath + ": cannot be written (" + std::strerror(errno) + ")";
        return 0;
    }
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(f, std::fclose);
    const char* descr = isDoubles ? "<f8" : (conv ? "<f4" : "<u2");
    if (format == "npy" || format == "raw") {
        const std::string h = format == "npy" ? NpyHeader(descr, frames.size(), line, point) : std::string();
        // The whole file's blocks at once, rather than one delayed allocation
        // per page written; a file system without it just writes.
#if defined(__linux__)
        const uint64_t pixelBytes = isDoubles ? 8 : (conv ? 4 : 2);
        ::fallocate(::fileno(f), 0, 0, static_cast<off_t>(h.size() + frames.size() * size * pixelBytes));
#endif
        std::fwrite(h.data(), 1, h.size(), f);
    } else if (format == "csv") {
        std::fprintf(f, "frame,line");
        for (unsigned x = 0; x < point; ++x) std::fprintf(f, ",x%u", x);
        std::fprintf(f, "\n");
    }
    // Frames converted (or put in text) on several threads into buffers of
    // their slot, written in frame order.
    const bool csv = format == "csv";
    const bool convert = conv && !isDoubles;
    auto values = PerSlot([&] { return std::vector<float>(convert ? size : 0); });
    auto texts = PerSlot([] { return std::string(); });
    const auto make = [&](FilmFrame& fr) {
        const size_t slot = static_cast<size_t>(fr.slot);
        float* v = convert ? values[slot].data() : nullptr;
        if (v) conv->Apply(fr.frame.GetBuffer(), static_cast<long>(size), v);
        if (csv)
            CsvLines(texts[slot], fr.index, fr.frame.GetBuffer(), v, isDoubles ? fr.values.data() : nullptr, point,
                     line);
        return true;
    };
    unsigned long done = 0;
    const auto write = [&](FilmFrame& fr) {
        const size_t slot = static_cast<size_t>(fr.slot);
        if (csv) std::fwrite(texts[slot].data(), 1, texts[slot].size(), f);
        else if (isDoubles) std::fwrite(fr.values.data(), sizeof(double), size, f);
        else if (convert) std::fwrite(values[slot].data(), sizeof(float), size, f);
        else std::fwrite(fr.frame.GetBuffer(), sizeof(unsigned short), size, f);
        if (progress) progress(++done);
        return true;
    };
    FilmPipeline pipe(film, frames);
    pipe.NameFilm(path);
    if (!pipe.Run(csv || convert ? FilmPipeline::Stage(make) : FilmPipeline::Stage(), write)) {
        error = pipe.GetLastError();
        return 0;
    }
    const bool failed = std::ferror(f) != 0;
    if (std::fclose(closer.release()) != 0 || failed) {
        error = "file " + outPath + ": cannot be written (disk full?)";
        return 0;
    }
    return 1;
}

}  // namespace thermokit
