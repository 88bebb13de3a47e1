#pragma once
// A corrected copy of a film, frame by frame: NUC table, bad pixels, then
// geometric mapping (CCorrection), the film's file header and each image
// header kept. The tool's correct and the Python package's batch runs write
// corrected films with this one code.
//
// Before any frame is read, each table is checked against the film: a file
// that cannot be opened or read, a table for another image size, a mapping
// that is not a permutation of the image's pixels are refused with one
// line naming the file ("file NAME: what is wrong"); nothing is shown
// through Messages.
#include <functional>
#include <string>

namespace thermokit {

// The tables of a correction; an empty name leaves that step out.
struct CorrectionFiles {
    std::string nuc;
    std::string badPixels;
    std::string mapping;

    bool Any() const { return !nuc.empty() || !badPixels.empty() || !mapping.empty(); }
};

// What CorrectFilm did.
struct CorrectionResult {
    unsigned long frames = 0;
    unsigned short point = 0, line = 0;
    bool nuc = false, badPixels = false, mapping = false;  // steps applied
};

// Writes the corrected copy of the film at inPath into the file writePath
// (created or emptied; the caller renames it into place), naming outPath in
// messages. progress, when given, is called with the frames done after
// each frame, with the frames of the film. 1; or 0 with the message, usage set when the call itself is
// wrong (no correction asked for, the output the input itself).
int CorrectFilm(const std::string& inPath, const CorrectionFiles& files, const std::string& writePath,
                const std::string& outPath, CorrectionResult& result, std::string& error, bool& usage,
                const std::function<void(unsigned long done, unsigned long total)>& progress = nullptr);

}  // namespace thermokit
