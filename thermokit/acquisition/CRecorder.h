#pragma once
// CRecorder: records the frames of a source into a film through the bank
// writer (CPtr2). Each frame goes from the source's buffer straight into a
// bank, with its image header: time of day, the camera's frame counter (as
// the driver top-frame counter, marked valid in the file header), the
// camera's time stamp and the device temperature (housing sensor 0) when
// known. The film header is what the source fills (FillHeader) plus the
// writing tool's name.
//
// The recording ends at the first of: the count of frames reached, the
// duration reached (a frame taken that long after the first one or later is
// not recorded), RequestStop, the source failing (a camera lost), the disk
// failing. In every case but the disk's, the film is closed cleanly and
// holds every complete frame received. The status tells how it ended and
// what was counted on the way; Record reports nothing else itself.
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "thermokit/acquisition/CFrameSource.h"
#include "thermokit/film/CStreamFile.h"

namespace thermokit {

// Where a recording stands.
struct RECORD_STATUS {
    unsigned long nFrames = 0;      // frames in the film
    uint64_t nBytes = 0;            // the film's length with those frames
    double dSeconds = 0.0;          // since the source started
    SOURCE_STATISTICS source;       // the source's counts (lost frames: source.Lost())
    uint64_t nBankWaits = 0;        // times a frame waited for a free bank
    uint64_t nBytesCopied = 0;      // bytes copied into the banks (header included)
    double dLongestWrite = 0.0;     // longest time one frame took to go into the banks, seconds
    double dWriteSeconds = 0.0;     // all the time frames took to go into the banks
    bool bDirect = false;           // the banks are written past the page cache (O_DIRECT)
    bool bStopped = false;          // RequestStop ended it
    bool bSourceFailed = false;     // the source failed; the film keeps what came before
};

class CRecorder {
public:
    // Last error codes.
    enum {
        RECORD_OK = 0,
        RECORD_CREATE_FAILED = 1,  // the film could not be created
        RECORD_START_FAILED = 2,   // the source did not start
        RECORD_SOURCE_FAILED = 3,  // the source failed while recording
        RECORD_DISK_FAILED = 4,    // the disk failed; the film keeps the frames before the failure
    };
    using Progress = std::function<void(const RECORD_STATUS&)>;

    CRecorder() = default;
    CRecorder(const CRecorder&) = delete;
    CRecorder& operator=(const CRecorder&) = delete;

    // Frames to record, 0 for no limit.
    void SetCount(unsigned long count) { m_nCount = count; }
    // Seconds to record from the first frame, 0 for no limit.
    void SetDuration(double seconds) { m_dDuration = seconds; }
    // The bank ring: number of banks (1 to 1024) and bytes of one bank.
    void SetBanks(int number, unsigned long size) {
        m_nBanks = number;
        m_nBankSize = size;
    }
    // The name of the writing tool in the film header.
    void SetFileTools(const std::string& text) { m_strTools = text; }
    // Called on the recording thread about every intervalMs while it runs,
    // and once at the end.
    void SetProgress(Progress progress, unsigned long intervalMs = 250) {
        m_Progress = std::move(progress);
        m_nInterval = intervalMs;
    }

    // Starts the source and records into fileName (created, or emptied).
    // 1 when the recording ended by its count, its duration or RequestStop;
    // 0 otherwise (GetLastError, GetLastErrorMessage). When the film cannot
    // be created or the source does not start, no file is left under
    // fileName. The source is stopped on return.
    int Record(CFrameSource& source, const char* fileName);
    // Ends the recording in progress after the frame at hand. Safe from a
    // signal handler and from another thread.
    void RequestStop() { m_bStop.store(true, std::memory_order_relaxed); }

    const RECORD_STATUS& GetStatus() const { return m_Status; }
    int GetLastError() const { return m_nError; }
    const std::string& GetLastErrorMessage() const { return m_strError; }

private:
    int Fail(int code, const std::string& text);

    unsigned long m_nCount = 0;
    double m_dDuration = 0.0;
    int m_nBanks = 8;
    unsigned long m_nBankSize = CStreamFile::kDefaultBankSize;
    std::string m_strTools = "thermokit";
    Progress m_Progress;
    unsigned long m_nInterval = 250;
    std::atomic<bool> m_bStop{false};
    static_assert(std::atomic<bool>::is_always_lock_free, "RequestStop must be callable from a signal handler");
    RECORD_STATUS m_Status;
    int m_nError = RECORD_OK;
    std::string m_strError;
};

}  // namespace thermokit
