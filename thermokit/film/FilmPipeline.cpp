#include "thermokit/film/FilmPipeline.h"

#include <algorithm>
#include <cstring>

#include "thermokit/film/CPtr.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CNoise.h"
#include "thermokit/platform/Messages.h"

namespace thermokit {

FilmPipeline::FilmPipeline(CPtr& film, unsigned long first, unsigned long count) : m_film(film), m_nFirst(first) {
    const unsigned long frames = film.IsValid() ? film.GetFrameNumber() : 0;
    m_nCount = first < frames ? std::min(count, frames - first) : 0;
}

int FilmPipeline::Run(const Stage& process, const Stage& write) {
    m_strError.clear();
    m_nDone = 0;
    if (m_nCount == 0) return 1;
    const int slotCount = FramePipeline::Slots();
    std::vector<std::unique_ptr<FilmFrame>> slots(static_cast<size_t>(slotCount));
    // Slots are filled on first use: a short film needs fewer frames.
    const auto read = [&](unsigned long item, int slot) {
        auto& f = slots[static_cast<size_t>(slot)];
        if (!f) f = std::make_unique<FilmFrame>(m_film.GetPoint(), m_film.GetLine(), m_film.GetBit());
        f->index = m_nFirst + item;
        f->slot = slot;
        f->error.clear();
        if (!m_film.ReadFrame(f->index, &f->frame)) {
            f->error = Format("cannot read frame %lu", f->index);
            return false;
        }
        std::memcpy(f->header, m_film.GetImageHeaderAddress(), sizeof f->header);
        return true;
    };
    const auto stage = [&](const Stage& s) -> FramePipeline::Stage {
        if (!s) return {};
        return [&](unsigned long, int slot) { return s(*slots[static_cast<size_t>(slot)]); };
    };
    m_nDone = FramePipeline::Run(m_nCount, slotCount, read, stage(process), stage(write));
    if (m_nDone == m_nCount) return 1;
    // The frame that stopped the run is the one after the last written.
    const FilmFrame* failed = nullptr;
    for (const auto& f : slots)
        if (f && f->index == m_nFirst + m_nDone) failed = f.get();
    const std::string why = failed && !failed->error.empty() ? failed->error : "stopped";
    m_strError = Format("frame %lu: %s", m_nFirst + m_nDone, why.c_str());
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
