#pragma once
// CStreamFile: writes a large file at camera rate without stalling the
// caller. Data are copied into a ring of equal memory banks; a writer thread
// empties each full bank to disk with one whole-bank write, so the file can
// be opened for unbuffered (direct) writes.
//
// Hand-over: one critical section guards every field; the writer thread
// holds it except while a bank goes to disk, so the caller fills the next
// bank during the write. The caller sets the work event when it has made a
// bank pending; the thread sets the done event after every bank and when it
// stops. Both events are manual-reset and reset explicitly: the thread
// resets the work event after each bank and the done event each time it
// wakes. A failed background write sets a sticky error flag and the bank
// counts as written, so nobody waits for ever on a broken disk.
#include <cstdint>
#include <string>
#include <thread>

#include "thermokit/platform/CCriticalSection.h"
#include "thermokit/platform/NamedEvent.h"

namespace thermokit {

class CStreamFile {
public:
    // Methods of SetFilePointer.
    enum { FILE_BEGIN = 0, FILE_CURRENT = 1, FILE_END = 2 };
    // How OpenFile treats an existing file.
    enum : unsigned long {
        modeCreate = 1,        // create, or empty an existing file
        modeOpenExisting = 2,  // the file must exist; its content stays
        modeOpenAlways = 3,    // open it, create it when missing; content stays
    };
    static constexpr unsigned long kDefaultBankSize = 1ul << 20;
    static constexpr int kMaxBanks = 1024;

    CStreamFile();
    virtual ~CStreamFile();
    CStreamFile(const CStreamFile&) = delete;
    CStreamFile& operator=(const CStreamFile&) = delete;

    // 0 while a file is open or when n is outside 1..1024; 1 otherwise.
    int SetBankNumber(int n);

    // Opens the file for banked writing. bankSize is the size of every disk
    // write (below 4 GiB). Writes bypass the system's cache (O_DIRECT on
    // Linux, FILE_FLAG_NO_BUFFERING | FILE_FLAG_WRITE_THROUGH on Windows)
    // when the drive accepts it and the bank size is a multiple of its
    // alignment (block or sector size); otherwise they are plain writes
    // (IsDirect tells). The banks are one block aligned for such writes,
    // touched in advance (see platform/StreamIo.h); the writer thread is
    // started on the first open, at a raised priority where the system
    // permits. Returns 0 when a file is already open, the bank size is 0 or
    // the system refuses.
    int OpenFile(const std::string& name, unsigned long bankSize = kDefaultBankSize,
                 unsigned long mode = modeCreate);
    // Copies size bytes into the banks; each bank that fills up is handed to
    // the writer thread, and the call waits only when every bank is full.
    // *written (when given) receives the bytes taken. Returns 0 when no file
    // is open or a background write has failed (the sticky error).
    int Write(const void* data, unsigned long size, unsigned long* written);
    // Write, then returns only when the data are in the file (full banks
    // written, a partly filled bank written too).
    int WriteSynchro(const void* data, unsigned long size, unsigned long* written);
    // Puts everything written so far into the file (a partly filled bank
    // included; the file never shrinks for it) and asks the disk to keep it.
    int Flush();
    // Sets the file length; a logical position beyond it moves back to it.
    int Truncate(int64_t size);
    // Ends the file at the logical position: after a partly filled last bank
    // the file is exactly as long as the bytes written.
    int SetEndOfFile();
    // Reads at the logical position (after putting pending data into the
    // file) and moves the position on; returns the bytes read.
    unsigned long Read(void* data, unsigned long size);
    // Moves the logical position; returns it, or -1. FILE_CURRENT counts
    // from the logical position (bytes in a partly filled bank included),
    // FILE_END from the file's length. The file itself moves to the bank
    // boundary at or below the position; inside a bank, the bank is first
    // read back so that a rewritten bank keeps the bytes before the
    // position.
    int64_t SetFilePointer(int64_t position, unsigned long method);
    // The 32-bit-pair form: high (when given) carries the upper half in and
    // out; returns the lower half, 0xFFFFFFFF on failure.
    unsigned long SetFilePointer(long low, long* high, unsigned long method);
    // Waits until every bank is written (a partly filled one included),
    // frees the banks and closes the file. 1 when no file is open.
    int CloseFile();

    int IsOpen() const { return m_hFile != -1; }
    // The sticky error flag: a background write has failed since OpenFile.
    int GetError() const;
    // Where the first failed write began: the file position of the bank (or
    // of the partly filled bank) that did not reach the disk, -1 while every
    // write has succeeded. Bytes before it are on disk as written. After a
    // failed bank the file position still moves on by one bank, so the banks
    // that follow keep their places.
    int64_t GetErrorPosition() const;
    bool IsDirect() const { return m_bDirect; }
    // Since OpenFile: the times Write found every bank full and waited for
    // the disk, and the bytes Write copied into the banks.
    uint64_t GetBankWaits() const;
    uint64_t GetBytesCopied() const;
    int GetBankNumber() const { return m_nBankNumber; }
    unsigned long GetBankSize() const { return m_nBankSize; }
    const std::string& GetFileName() const { return m_strFileName; }

protected:
    // The bank the caller may fill (the current one, once it is free); null
    // when no file is open. Called with the lock held.
    unsigned char* GetFreeBank(CCriticalSection* lock);
    // Moves the caller to the next bank of the ring.
    void SetNextBank(CCriticalSection* lock);
    // Waits (releasing the lock meanwhile) until fewer than banksNeeded banks
    // are pending; CanWrite(lock, 1) waits until every full bank is written.
    int CanWrite(CCriticalSection* lock, int banksNeeded);
    // The system's open flags for a mode, with or without direct writes
    // (open(2) flags; on Windows CreateFileW's flags and attributes).
    static int CreateFileFlag(unsigned long mode, int direct);
    // The writer thread's body.
    static unsigned MyThreadProc(void* param);
    // The one disk write of a whole bank at the file position; returns the
    // bytes written or -1. Overridable so that a failing disk can be shown;
    // a class that overrides it calls CloseFile in its own destructor, since
    // the writer thread may still call it while the file closes.
    virtual long DiskWrite(const void* data, unsigned long size);

    CCriticalSection* m_pLock = nullptr;
    int m_nCurrentBank = 0;
    uint32_t m_nBankSize = 0;
    uint32_t m_nBankOffset = 0;
    std::string m_strFileName;
    int m_bThread = 0;
    NamedEvent* m_hWorkEvent = nullptr;
    NamedEvent* m_hDoneEvent = nullptr;
    intptr_t m_hFile = -1;  // a descriptor (a HANDLE on Windows); -1 when closed
    unsigned char** m_pBanks = nullptr;
    uint32_t m_nWriteSize = 0;
    int m_nBankNumber = 8;
    int m_nWriterBank = 0;
    int m_nPending = 0;
    int m_bError = 0;
    int m_bStop = 0;

private:
    int64_t SetFilePointerLocked(int64_t position, unsigned long method);
    // Writes the partly filled current bank without losing the file bytes
    // behind its end; the bank stays current. exactEnd ends the file there,
    // otherwise the file only grows. Lock held, nothing pending.
    bool WritePartialBank(bool exactEnd);
    bool ReadBankAt(int64_t position, unsigned char* bank);
    void FreeBanks();

    std::thread m_thread;
    void* m_pBlock = nullptr;  // the banks and, after them, one scratch bank
    size_t m_nBlockSize = 0;
    unsigned char* m_pScratch = nullptr;
    bool m_bDirect = false;
    bool m_bDirty = false;  // the caller has put bytes into the current bank
    int64_t m_nErrorPosition = -1;  // see GetErrorPosition
    uint64_t m_nBankWaits = 0;      // see GetBankWaits
    uint64_t m_nBytesCopied = 0;    // see GetBytesCopied
};

}  // namespace thermokit
