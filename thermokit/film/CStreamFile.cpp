#include "thermokit/film/CStreamFile.h"

#include <algorithm>
#include <cstring>

#include "thermokit/image/PixelKernels.h"

#include "thermokit/platform/StreamIo.h"

namespace thermokit {

namespace {

using streamio::kDirectAlign;
using streamio::kNoFile;

// Floor division: positions before a boundary round down even when negative.
int64_t AlignDown(int64_t position, int64_t bank) {
    int64_t q = position / bank;
    if (position % bank != 0 && position < 0) --q;
    return q * bank;
}

// Copies into a bank. The bank goes to the disk, not back to the processor,
// so large copies use stores that skip the cache (no read for ownership, no
// eviction of the caller's data).
void CopyToBank(unsigned char* dst, const unsigned char* src, size_t n) { kernels::Pixel().copyStreaming(dst, src, n); }

}  // namespace

CStreamFile::CStreamFile() {
    m_pLock = new CCriticalSection;
    m_hWorkEvent = new NamedEvent;
    m_hDoneEvent = new NamedEvent;
    m_hWorkEvent->Create(nullptr, true, false);
    m_hDoneEvent->Create(nullptr, true, false);
}

CStreamFile::~CStreamFile() {
    CloseFile();
    if (m_bThread) {
        m_pLock->Lock();
        m_hDoneEvent->Reset();
        m_bStop = 1;
        m_pLock->Unlock();
        m_hWorkEvent->Set();
        m_hDoneEvent->Wait(kInfinite);
        m_thread.join();
        m_bThread = 0;
    }
    delete m_hWorkEvent;
    delete m_hDoneEvent;
    delete m_pLock;
}

int CStreamFile::GetError() const {
    m_pLock->Lock();
    const int error = m_bError;
    m_pLock->Unlock();
    return error;
}

int64_t CStreamFile::GetErrorPosition() const {
    m_pLock->Lock();
    const int64_t position = m_nErrorPosition;
    m_pLock->Unlock();
    return position;
}

uint64_t CStreamFile::GetBankWaits() const {
    m_pLock->Lock();
    const uint64_t waits = m_nBankWaits;
    m_pLock->Unlock();
    return waits;
}

uint64_t CStreamFile::GetBytesCopied() const {
    m_pLock->Lock();
    const uint64_t bytes = m_nBytesCopied;
    m_pLock->Unlock();
    return bytes;
}

int CStreamFile::SetBankNumber(int n) {
    if (m_hFile != kNoFile || n < 1 || n > kMaxBanks) return 0;
    m_pLock->Lock();
    m_nBankNumber = n;
    m_pLock->Unlock();
    return 1;
}

int CStreamFile::CreateFileFlag(unsigned long mode, int direct) { return streamio::OpenFlags(mode, direct != 0); }

int CStreamFile::OpenFile(const std::string& name, unsigned long bankSize, unsigned long mode) {
    if (m_hFile != kNoFile || bankSize == 0 || bankSize > 0xFFFFFFFFul || name.empty()) return 0;
    if (mode != modeCreate && mode != modeOpenExisting && mode != modeOpenAlways) return 0;

    // Unbuffered writes when the bank size suits the drive; decided here, once.
    bool direct = false;
    const streamio::Handle fd = streamio::OpenForBanks(name, mode, bankSize, &direct);
    if (fd == kNoFile) return 0;

    m_pLock->Lock();
    const size_t banksBytes = (static_cast<size_t>(m_nBankNumber) + 1) * bankSize;
    unsigned char* p = streamio::AllocateBanks(banksBytes, &m_pBlock, &m_nBlockSize);
    if (!p) {
        m_pLock->Unlock();
        streamio::Close(fd);
        return 0;
    }
    m_pBanks = new unsigned char*[static_cast<size_t>(m_nBankNumber)];
    for (int i = 0; i < m_nBankNumber; ++i) m_pBanks[i] = p + static_cast<size_t>(i) * bankSize;
    m_pScratch = p + static_cast<size_t>(m_nBankNumber) * bankSize;
    m_nBankSize = static_cast<uint32_t>(bankSize);
    m_nWriteSize = m_nBankSize;
    m_nBankOffset = 0;
    m_nCurrentBank = 0;
    m_nWriterBank = m_nBankNumber - 1;  // the thread's first bank is bank 0
    m_nPending = 0;
    m_bError = 0;
    m_nErrorPosition = -1;
    m_nBankWaits = 0;
    m_nBytesCopied = 0;
    m_bDirty = false;
    m_bDirect = direct;
    m_strFileName = name;
    m_hFile = fd;
    if (!m_bThread) {
        m_bStop = 0;
        m_hWorkEvent->Reset();
        m_hDoneEvent->Reset();
        m_thread = std::thread([this] { MyThreadProc(this); });
        m_bThread = 1;
    }
    m_pLock->Unlock();
    return 1;
}

unsigned CStreamFile::MyThreadProc(void* param) {
    auto* self = static_cast<CStreamFile*>(param);
    streamio::RaiseThreadPriority();
    self->m_hWorkEvent->Wait(kInfinite);
    self->m_hDoneEvent->Reset();
    self->m_pLock->Lock();
    for (;;) {
        if (self->m_bStop) {
            self->m_pLock->Unlock();
            self->m_hDoneEvent->Set();
            return 0;
        }
        while (self->m_nPending > 0) {
            bool made = false;
            bool ok = false;
            if (self->m_hFile != kNoFile && self->m_pBanks && self->m_nWriteSize > 0) {
                self->m_nWriterBank = (self->m_nWriterBank + 1) % self->m_nBankNumber;
                const unsigned char* bank = self->m_pBanks[self->m_nWriterBank];
                const uint32_t size = self->m_nWriteSize;
                // Nobody else moves the file while banks are pending.
                const int64_t at = streamio::Tell(self->m_hFile);
                self->m_pLock->Unlock();
                const long n = self->DiskWrite(bank, size);
                self->m_pLock->Lock();
                made = true;
                ok = n == static_cast<long>(size);
                if (!ok && at >= 0) {
                    if (self->m_nErrorPosition < 0) self->m_nErrorPosition = at;
                    // Leave the failed bank's place behind it, so the next
                    // banks land where they belong.
                    streamio::SeekTo(self->m_hFile, at + static_cast<int64_t>(size));
                }
            }
            --self->m_nPending;
            self->m_hWorkEvent->Reset();
            if (!made || !ok) self->m_bError = 1;
            self->m_hDoneEvent->Set();
        }
        self->m_pLock->Unlock();
        self->m_hWorkEvent->Wait(kInfinite);
        self->m_hDoneEvent->Reset();
        self->m_pLock->Lock();
    }
}

long CStreamFile::DiskWrite(const void* data, unsigned long size) {
    return streamio::WriteAtPosition(m_hFile, data, size);
}

int CStreamFile::CanWrite(CCriticalSection* lock, int banksNeeded) {
    if (m_hFile == kNoFile) return 0;
    for (;;) {
        if (m_nPending < banksNeeded) return 1;
        // The thread sets the done event after every bank but resets it only
        // when it wakes for new work; reset it here, under the lock, so that
        // the wait sleeps until the next bank is written instead of spinning
        // on an earlier signal. No bank can be missed: the thread sets the
        // event under the lock after each one.
        m_hDoneEvent->Reset();
        lock->Unlock();
        m_hDoneEvent->Wait(kInfinite);
        if (!lock->Lock()) return 0;
        if (m_hFile == kNoFile) return 0;
    }
}

unsigned char* CStreamFile::GetFreeBank(CCriticalSection* lock) {
    // Every bank full and not yet on disk: the caller is about to wait.
    if (m_nPending >= m_nBankNumber) ++m_nBankWaits;
    if (!CanWrite(lock, m_nBankNumber) || !m_pBanks) return nullptr;
    return m_pBanks[m_nCurrentBank];
}

void CStreamFile::SetNextBank(CCriticalSection*) { m_nCurrentBank = (m_nCurrentBank + 1) % m_nBankNumber; }

int CStreamFile::Write(const void* data, unsigned long size, unsigned long* written) {
    if (written) *written = 0;
    if (m_hFile == kNoFile) return 0;
    if (size && !data) return 0;
    m_pLock->Lock();
    const auto* src = static_cast<const unsigned char*>(data);
    unsigned long left = size;
    while (left > 0 && !m_bError) {
        unsigned char* bank = GetFreeBank(m_pLock);
        if (!bank) break;
        const unsigned long n = std::min<unsigned long>(left, m_nBankSize - m_nBankOffset);
        // The current bank is the caller's alone (the thread writes pending
        // banks only): copy without the lock, so that the thread can hand
        // the next bank to the disk meanwhile.
        const uint32_t offset = m_nBankOffset;
        m_pLock->Unlock();
        CopyToBank(bank + offset, src, n);
        m_pLock->Lock();
        m_nBankOffset += static_cast<uint32_t>(n);
        m_bDirty = true;
        m_nBytesCopied += n;
        src += n;
        left -= n;
        if (written) *written += n;
        if (m_nBankOffset == m_nBankSize) {
            // Full: hand it to the writer thread and move on to the next bank.
            ++m_nPending;
            m_hWorkEvent->Set();
            SetNextBank(m_pLock);
            m_nBankOffset = 0;
            m_bDirty = false;
        }
    }
    const int ok = left == 0 && !m_bError;
    m_pLock->Unlock();
    return ok;
}

bool CStreamFile::ReadBankAt(int64_t position, unsigned char* bank) {
    // Past the end of the file the bank reads as zeros.
    std::memset(bank, 0, m_nBankSize);
    size_t got = 0;
    while (got < m_nBankSize) {
        const long long n = streamio::ReadAt(m_hFile, position + static_cast<int64_t>(got), bank + got, m_nBankSize - got);
        if (n < 0) return false;
        if (n == 0) break;
        got += static_cast<size_t>(n);
        if (m_bDirect && got % kDirectAlign != 0) break;  // the end of the file
    }
    return true;
}

bool CStreamFile::WritePartialBank(bool exactEnd) {
    const int64_t start = streamio::Tell(m_hFile);
    const int64_t size = streamio::Length(m_hFile);
    if (start < 0 || size < 0) return false;
    const int64_t end = start + m_nBankOffset;
    // The bank's range of the file as it is, with the caller's bytes over it.
    if (!ReadBankAt(start, m_pScratch)) return false;
    std::memcpy(m_pScratch, m_pBanks[m_nCurrentBank], m_nBankOffset);
    const long n = DiskWrite(m_pScratch, m_nBankSize);
    bool ok = n == static_cast<long>(m_nBankSize);
    if (!ok) {
        m_bError = 1;
        if (m_nErrorPosition < 0) m_nErrorPosition = start;
    }
    const int64_t length = exactEnd ? end : std::max<int64_t>(size, end);
    if (!streamio::SetLength(m_hFile, length)) ok = false;
    if (!streamio::SeekTo(m_hFile, start)) ok = false;
    if (ok) m_bDirty = false;  // the bank stays current; its bytes are in the file
    return ok;
}

int CStreamFile::WriteSynchro(const void* data, unsigned long size, unsigned long* written) {
    int ok = Write(data, size, written);
    if (m_hFile == kNoFile) return 0;
    m_pLock->Lock();
    if (!CanWrite(m_pLock, 1)) ok = 0;
    if (ok && m_bDirty && !WritePartialBank(false)) ok = 0;
    if (m_bError) ok = 0;
    m_pLock->Unlock();
    return ok;
}

int CStreamFile::Flush() {
    if (m_hFile == kNoFile) return 0;
    m_pLock->Lock();
    int ok = CanWrite(m_pLock, 1);
    if (ok && m_bDirty && !WritePartialBank(false)) ok = 0;
    if (ok && !streamio::Sync(m_hFile)) ok = 0;
    if (m_bError) ok = 0;
    m_pLock->Unlock();
    return ok;
}

int CStreamFile::SetEndOfFile() {
    if (m_hFile == kNoFile) return 0;
    m_pLock->Lock();
    int ok = CanWrite(m_pLock, 1);
    if (ok) {
        if (m_bDirty) {
            ok = WritePartialBank(true);
        } else {
            const int64_t pos = streamio::Tell(m_hFile);
            ok = pos >= 0 && streamio::SetLength(m_hFile, pos + m_nBankOffset);
        }
    }
    if (m_bError) ok = 0;
    m_pLock->Unlock();
    return ok;
}

int CStreamFile::Truncate(int64_t size) {
    if (m_hFile == kNoFile || size < 0) return 0;
    m_pLock->Lock();
    int ok = CanWrite(m_pLock, 1);
    if (ok && m_bDirty && !WritePartialBank(false)) ok = 0;
    if (ok) {
        const int64_t pos = streamio::Tell(m_hFile);
        const int64_t logical = pos + m_nBankOffset;
        ok = pos >= 0 && streamio::SetLength(m_hFile, size);
        if (ok && logical > size) ok = SetFilePointerLocked(size, FILE_BEGIN) >= 0;
    }
    m_pLock->Unlock();
    return ok;
}

unsigned long CStreamFile::Read(void* data, unsigned long size) {
    if (m_hFile == kNoFile || !data) return 0;
    m_pLock->Lock();
    unsigned long done = 0;
    if (CanWrite(m_pLock, 1) && (!m_bDirty || WritePartialBank(false))) {
        const int64_t pos = streamio::Tell(m_hFile);
        const int64_t length = streamio::Length(m_hFile);
        if (pos >= 0 && length >= 0) {
            int64_t at = pos + m_nBankOffset;
            auto* dst = static_cast<unsigned char*>(data);
            // Whole aligned banks through the scratch bank, so direct files read too.
            while (done < size && at < length) {
                const int64_t bankStart = AlignDown(at, m_nBankSize);
                if (!ReadBankAt(bankStart, m_pScratch)) break;
                const int64_t inBank = at - bankStart;
                const int64_t avail = std::min<int64_t>(m_nBankSize - inBank, length - at);
                const unsigned long n = static_cast<unsigned long>(std::min<int64_t>(avail, size - done));
                std::memcpy(dst + done, m_pScratch + inBank, n);
                done += n;
                at += static_cast<int64_t>(n);
            }
            if (done) SetFilePointerLocked(at, FILE_BEGIN);
        }
    }
    m_pLock->Unlock();
    return done;
}

int64_t CStreamFile::SetFilePointer(int64_t position, unsigned long method) {
    if (m_hFile == kNoFile) return -1;
    m_pLock->Lock();
    int64_t r = -1;
    // Everything written so far goes to the file first, a partly filled bank
    // included, so that moving never drops data.
    if (CanWrite(m_pLock, 1) && (!m_bDirty || WritePartialBank(false)))
        r = SetFilePointerLocked(position, method);
    m_pLock->Unlock();
    return r;
}

int64_t CStreamFile::SetFilePointerLocked(int64_t position, unsigned long method) {
    if (method > FILE_END) return -1;
    if (method == FILE_CURRENT) {
        const int64_t pos = streamio::Tell(m_hFile);
        if (pos < 0) return -1;
        position += pos + m_nBankOffset;
    } else if (method == FILE_END) {
        const int64_t length = streamio::Length(m_hFile);
        if (length < 0) return -1;
        position += length;
    }
    if (position < 0) return -1;
    const int64_t aligned = AlignDown(position, m_nBankSize);
    if (!streamio::SeekTo(m_hFile, aligned)) return -1;
    const int64_t offset = position - aligned;
    if (offset != 0) {
        // Read the bank back, so that rewriting it keeps the bytes before the position.
        unsigned char* bank = m_pBanks[m_nCurrentBank];
        if (!ReadBankAt(aligned, bank)) return -1;
        if (!streamio::SeekTo(m_hFile, aligned)) return -1;
    }
    m_nBankOffset = static_cast<uint32_t>(offset);
    m_bDirty = false;
    return aligned + offset;
}

unsigned long CStreamFile::SetFilePointer(long low, long* high, unsigned long method) {
    int64_t position;
    if (high)
        position = static_cast<int64_t>((static_cast<uint64_t>(static_cast<uint32_t>(*high)) << 32) |
                                        static_cast<uint32_t>(low));
    else
        position = static_cast<int32_t>(low);
    const int64_t r = SetFilePointer(position, method);
    if (r < 0) return 0xFFFFFFFFul;
    if (high) *high = static_cast<long>(static_cast<int32_t>(static_cast<uint64_t>(r) >> 32));
    return static_cast<uint32_t>(r);
}

void CStreamFile::FreeBanks() {
    streamio::FreeBanks(m_pBlock, m_nBlockSize);
    m_pBlock = nullptr;
    m_nBlockSize = 0;
    m_pScratch = nullptr;
    delete[] m_pBanks;
    m_pBanks = nullptr;
}

int CStreamFile::CloseFile() {
    if (m_hFile == kNoFile) return 1;
    if (!m_pLock->Lock()) return 0;
    CanWrite(m_pLock, 1);
    if (m_bDirty) WritePartialBank(false);
    FreeBanks();
    m_bDirty = false;
    m_nBankOffset = 0;
    streamio::Close(m_hFile);
    m_hFile = kNoFile;
    m_pLock->Unlock();
    return 1;
}

}  // namespace thermokit
