#include "thermokit/processing/FilmExport.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/image/CFrame.h"
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

int ExportFilm(CPtr& film, const std::string& path, const std::vector<unsigned long>& frames, const std::string& format,
               const Conversion* conv, const std::string& writePath, const std::string& outPath, std::string& error,
               const std::function<void(unsigned long)>& progress) {
    if (format != "npy" && format != "raw" && format != "csv") {
        error = "--format " + format + ": expected png, csv, raw or npy";
        return 0;
    }
    const bool isDoubles = film.GetPixelBytes() == 8;
    const unsigned short point = film.GetPoint(), line = film.GetLine();
    const long size = static_cast<long>(point) * line;
    std::vector<float> values(conv ? static_cast<size_t>(size) : 0);
    const double* doubles = isDoubles ? static_cast<CPtrFloat&>(film).GetDoubleBuffer() : nullptr;
    std::FILE* f = std::fopen(writePath.c_str(), "wb");
    if (!f) {
        error = "file " + outPath + ": cannot be written (" + std::strerror(errno) + ")";
        return 0;
    }
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(f, std::fclose);
    const char* descr = isDoubles ? "<f8" : (conv ? "<f4" : "<u2");
    if (format == "npy") {
        const std::string h = NpyHeader(descr, frames.size(), line, point);
        std::fwrite(h.data(), 1, h.size(), f);
    } else if (format == "csv") {
        std::fprintf(f, "frame,line");
        for (unsigned x = 0; x < point; ++x) std::fprintf(f, ",x%u", x);
        std::fprintf(f, "\n");
    }
    std::string text;
    unsigned long done = 0;
    for (const unsigned long n : frames) {
        if (!ReadFilmFrame(film, path, n, error)) return 0;
        const unsigned short* levels = film.GetFrame()->GetBuffer();
        if (conv) conv->Apply(levels, size, values.data());
        if (format == "csv") {
            char cell[40];
            for (unsigned y = 0; y < line; ++y) {
                text.clear();
                std::snprintf(cell, sizeof(cell), "%lu,%u", n, y);
                text += cell;
                for (unsigned x = 0; x < point; ++x) {
                    const long i = static_cast<long>(y) * point + x;
                    if (doubles) std::snprintf(cell, sizeof(cell), ",%.17g", doubles[i]);
                    else if (conv) std::snprintf(cell, sizeof(cell), ",%.9g", static_cast<double>(values[i]));
                    else std::snprintf(cell, sizeof(cell), ",%u", levels[i]);
                    text += cell;
                }
                text += '\n';
                std::fwrite(text.data(), 1, text.size(), f);
            }
        } else if (doubles) {
            std::fwrite(doubles, sizeof(double), static_cast<size_t>(size), f);
        } else if (conv) {
            std::fwrite(values.data(), sizeof(float), static_cast<size_t>(size), f);
        } else {
            std::fwrite(levels, sizeof(unsigned short), static_cast<size_t>(size), f);
        }
        if (progress) progress(++done);
    }
    const bool failed = std::ferror(f) != 0;
    if (std::fclose(closer.release()) != 0 || failed) {
        error = "file " + outPath + ": cannot be written (disk full?)";
        return 0;
    }
    return 1;
}

}  // namespace thermokit
