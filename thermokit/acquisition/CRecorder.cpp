#include "thermokit/acquisition/CRecorder.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>

#include "thermokit/film/CPtr2.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/File.h"

namespace thermokit {

int CRecorder::Fail(int code, const std::string& text) {
    m_nError = code;
    m_strError = text;
    return 0;
}

int CRecorder::Record(CFrameSource& source, const char* fileName) {
    using Clock = std::chrono::steady_clock;
    m_Status = RECORD_STATUS();
    m_nError = RECORD_OK;
    m_strError.clear();
    const std::string name = fileName ? fileName : "";
    const unsigned short point = source.GetPoint(), line = source.GetLine();

    CPtr2 film(point, line, source.GetBit(), 0, 1, 0);
    source.FillHeader(film);
    film.SetFileTools(m_strTools.c_str());
    film.SetImageRealDriverTopFrameValid(1);
    // A recording that cannot begin leaves no film behind (a header alone, or nothing).
    if (point == 0 || line == 0 || !film.Create(name.c_str(), m_nBankSize, m_nBanks)) {
        if (!name.empty() && film.IsRecording()) film.Close();
        if (!name.empty() && File::Exists(name)) std::remove(name.c_str());
        return Fail(RECORD_CREATE_FAILED, "file " + name + ": cannot be created for recording with " +
                                              std::to_string(m_nBanks) + " banks of " + std::to_string(m_nBankSize) +
                                              " bytes");
    }
    if (!source.Start()) {
        film.Close();
        std::remove(name.c_str());
        return Fail(RECORD_START_FAILED, source.GetLastErrorMessage());
    }
    CStreamFile* stream = film.GetStream();
    m_Status.bDirect = stream->IsDirect();

    // A frame over the source's buffer: the film copies the pixels from
    // there into a bank, and nowhere else. Lines that are not contiguous
    // (a camera that pads them) are gathered into the film's own frame first.
    std::unique_ptr<CFrame> wrap;
    const Clock::time_point start = Clock::now();
    Clock::time_point lastReport = start;
    bool diskFailed = false;
    auto update = [&] {
        m_Status.nFrames = film.GetFrameNumber();
        m_Status.nBytes = film.OffsetImage(m_Status.nFrames);
        m_Status.dSeconds = std::chrono::duration<double>(Clock::now() - start).count();
        m_Status.source = source.GetStatistics();
        m_Status.nBankWaits = stream->GetBankWaits();
        m_Status.nBytesCopied = stream->GetBytesCopied();
    };
    for (;;) {
        if (m_bStop.load(std::memory_order_relaxed)) {
            m_Status.bStopped = true;
            break;
        }
        if (m_nCount && film.GetFrameNumber() >= m_nCount) break;
        if (m_Progress && Clock::now() - lastReport >= std::chrono::milliseconds(m_nInterval)) {
            lastReport = Clock::now();
            update();
            m_Progress(m_Status);
        }
        SOURCE_FRAME f;
        const int got = source.Next(f, 100);
        if (got == 0) continue;
        if (got < 0) {
            m_Status.bSourceFailed = true;
            break;
        }
        if (m_dDuration > 0.0 && f.dElapsed >= m_dDuration) break;
        if (f.nPoint != point || f.nLine != line || !f.pPixels) {
            m_Status.bSourceFailed = true;
            break;
        }
        film.SetImageRealDriverTopFrame(f.nFrameId);
        film.SetImageCameraTimeStamp(f.nCameraTime);
        if (!std::isnan(f.fTemperature)) film.SetImageSensorTemp(f.fTemperature, 0);
        CFrame* frame = film.GetFrame();
        if (f.nPitch == point) {
            // The writer only reads the pixels.
            auto* pixels = const_cast<unsigned short*>(f.pPixels);
            if (!wrap) wrap = std::make_unique<CFrame>(pixels, point, line, source.GetBit(), 0, 1);
            else wrap->SetExternalBuffer(pixels);
            frame = wrap.get();
        } else {
            for (unsigned y = 0; y < line; ++y)
                std::copy_n(f.pPixels + static_cast<size_t>(y) * f.nPitch, point,
                            frame->GetBuffer() + static_cast<size_t>(y) * point);
        }
        frame->SetTime(f.dTime);
        const Clock::time_point before = Clock::now();
        const int ok = film.AddFrame(frame);
        const double took = std::chrono::duration<double>(Clock::now() - before).count();
        m_Status.dLongestWrite = std::max(m_Status.dLongestWrite, took);
        m_Status.dWriteSeconds += took;
        if (!ok) {
            diskFailed = true;
            break;
        }
    }
    update();
    // The film first: a lost camera makes every request to it wait for its time-out.
    const int closed = film.Close();
    source.Stop();
    m_Status.nFrames = film.GetFrameNumber();
    m_Status.nBytes = film.OffsetImage(m_Status.nFrames);
    m_bStop.store(false, std::memory_order_relaxed);
    if (m_Progress) m_Progress(m_Status);
    if (diskFailed || !closed)
        return Fail(RECORD_DISK_FAILED, "file " + name + ": the disk failed after " + std::to_string(m_Status.nFrames) +
                                            " frames");
    if (m_Status.bSourceFailed) {
        const std::string why = source.GetLastErrorMessage().empty() ? "the source delivered a frame of another size"
                                                                     : source.GetLastErrorMessage();
        return Fail(RECORD_SOURCE_FAILED, why);
    }
    return 1;
}

}  // namespace thermokit
