#include "thermokit/film/FilmPipeline.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <typeinfo>
#include <utility>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CNoise.h"
#include "thermokit/platform/Messages.h"

namespace thermokit {

FilmPipeline::FilmPipeline(CPtr& film, unsigned long first, unsigned long count, unsigned long step)
    : m_film(film), m_nFirst(first), m_nStep(step ? step : 1) {
    const unsigned long frames = film.IsValid() ? film.GetFrameNumber() : 0;
    const unsigned long range = first < frames ? std::min(count, frames - first) : 0;
    m_nCount = range ? (range - 1) / m_nStep + 1 : 0;
}

FilmPipeline::FilmPipeline(CPtr& film, std::vector<unsigned long> frames)
    : m_film(film), m_nFirst(frames.empty() ? 0 : frames.front()), m_nCount(frames.size()), m_frames(std::move(frames)) {
    if (!film.IsValid()) m_nCount = 0;
}

namespace {

// How many of the pipeline's frames the file holds whole.
unsigned long WholeFrames(const FilmPipeline& pipe, const CPtr& film) {
    std::error_code error;
    const uint64_t length = std::filesystem::file_size(film.GetFileName(), error);
    if (error) return 0;
    const uint64_t pixels = static_cast<uint64_t>(film.GetSize()) * film.GetPixelBytes();
    const unsigned long count = pipe.GetCount();
    unsigned long whole = 0;
    while (whole < count && film.OffsetTrame(pipe.FrameOf(whole)) + pixels <= length) {
        // Past the first frame the records are evenly spaced: jump to the last whole one.
        if (whole == 1 && pipe.IsStepped()) {
            const uint64_t spacing = film.OffsetImage(pipe.FrameOf(1)) - film.OffsetImage(pipe.FrameOf(0));
            const uint64_t room = length - (film.OffsetTrame(pipe.FrameOf(0)) + pixels);
            whole = static_cast<unsigned long>(std::min<uint64_t>(count, room / spacing + 1));
            break;
        }
        ++whole;
    }
    return whole;
}

}  // namespace

int FilmPipeline::Run(const Stage& process, const Stage& write) {
    m_strError.clear();
    m_nDone = 0;
    if (m_nCount == 0) return 1;
    const int slotCount = FramePipeline::Slots();
    std::vector<std::unique_ptr<FilmFrame>> slots(static_cast<size_t>(slotCount));
    // A plain film is read by several threads at once, each slot through a
    // reader of its own; the frames the file holds whole and the first one it
    // does not (whose reader reports it), so that a film cut short gives one
    // message. Other films (a recorder's, a film of doubles) are read one
    // frame at a time.
    const bool parallelReads = GetThreadCount() > 1 && typeid(m_film) == typeid(CPtr);
    const unsigned long count = parallelReads ? std::min(m_nCount, WholeFrames(*this, m_film) + 1) : m_nCount;
    std::vector<std::unique_ptr<CPtr>> readers(parallelReads ? slots.size() : 0);
    const bool doubles = m_film.GetPixelBytes() == 8;
    // Slots are filled on first use: a short film needs fewer frames.
    const auto claim = [&](unsigned long item, int slot) -> FilmFrame& {
        auto& f = slots[static_cast<size_t>(slot)];
        if (!f) f = std::make_unique<FilmFrame>(m_film.GetPoint(), m_film.GetLine(), m_film.GetBit());
        f->index = FrameOf(item);
        f->item = item;
        f->slot = slot;
        f->error.clear();
        return *f;
    };
    const auto readInto = [&](CPtr& film, FilmFrame& f) {
        if (!film.ReadFrame(f.index, &f.frame)) {
            f.error = Format("file %s: frame %lu cannot be read (the file is shorter than its header says)",
                             m_name.empty() ? film.GetFileName().c_str() : m_name.c_str(), f.index);
            return false;
        }
        if (doubles) {
            const double* values = static_cast<CPtrFloat&>(film).GetDoubleBuffer();
            f.values.assign(values, values + film.GetSize());
        }
        std::memcpy(f.header, film.GetImageHeaderAddress(), sizeof f.header);
        return true;
    };
    FramePipeline::Stage read, work;
    if (parallelReads) {
        read = [&](unsigned long item, int slot) {
            claim(item, slot);
            return true;
        };
        work = [&](unsigned long, int slot) {
            auto& reader = readers[static_cast<size_t>(slot)];
            if (!reader) reader = std::make_unique<CPtr>(m_film);
            FilmFrame& f = *slots[static_cast<size_t>(slot)];
            return readInto(*reader, f) && (!process || process(f));
        };
    } else {
        read = [&](unsigned long item, int slot) { return readInto(m_film, claim(item, slot)); };
        if (process) work = [&](unsigned long, int slot) { return process(*slots[static_cast<size_t>(slot)]); };
    }
    FramePipeline::Stage store;
    if (write) store = [&](unsigned long, int slot) { return write(*slots[static_cast<size_t>(slot)]); };
    m_nDone = FramePipeline::Run(count, slotCount, read, work, store);
    if (m_nDone == m_nCount) return 1;
    // The frame that stopped the run is the one after the last written.
    const FilmFrame* failed = nullptr;
    for (const auto& f : slots)
        if (f && f->index == FrameOf(m_nDone)) failed = f.get();
    m_strError = failed && !failed->error.empty() ? failed->error : Format("frame %lu: stopped", FrameOf(m_nDone));
    return 0;
}

int AccumulateFilm(CPtr& film, CAverage& average, double weight, unsigned long first, unsigned long count) {
    if (!film.IsValid() || average.GetSize() != film.GetSize() || !(weight > 0.0)) return 0;
    FilmPipeline pipe(film, first, count);
    return pipe.Run({}, [&](FilmFrame& f) { return average.Accumulate(&f.frame, weight) == 1; });
}

int NoiseFilm(CPtr& film, CAverage& mean, CNoise& noise, unsigned long first, unsigned long count) {
    if (!film.IsValid() || noise.GetSize() != film.GetSize()) return 0;
    if (!AccumulateFilm(film, mean, 1.0, first, count)) return 0;
    double* m = mean.GetDoubleBuffer(0);
    if (!m) return 0;
    FilmPipeline pipe(film, first, count);
    return pipe.Run({}, [&](FilmFrame& f) { return noise.Accumulate(&f.frame, m) == 1; });
}

}  // namespace thermokit
