#include "thermokit/acquisition/CSharedMemory.h"

#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace thermokit {

namespace {

// The wait a transfer starts with. objects holds the closed event, the other side's mutex and the
// event that lets the transfer go, at closedAt, goneAt and the remaining index (the order is the
// priority when several are ready). A mutex obtained means the other side has gone: it is let go again.
template <class Transfer>
int WaitToTransfer(const WaitObject (&objects)[3], int closedAt, int goneAt, NamedMutex& otherSide,
                   unsigned long timeout, Transfer transfer) {
    const int r = WaitForObjects(objects, 3, timeout);
    if (r == kWaitTimeout) return CSharedMemory::SM_TIMEOUT;
    if (r < 0 || r > 2) return CSharedMemory::SM_FAILED;
    if (r == closedAt) return CSharedMemory::SM_CLOSED;
    if (r == goneAt) {
        otherSide.Unlock();
        return CSharedMemory::SM_GONE;
    }
    return transfer();
}

}  // namespace

CSharedMemory::CSharedMemory() {
    m_hClosed = new NamedEvent;
    m_hClosed->Create(nullptr, true, true);
}

CSharedMemory::~CSharedMemory() {
    Close();
    delete m_hClosed;
}

bool CSharedMemory::Open(const char* name, int size, unsigned long timeout) {
    if (!m_hClosed->Wait(0)) return false;  // already open
    if (!name || !*name || std::strlen(name) > 249 || size < 1) return false;
    const std::string n(name);

    // Sides: the first mutex we can take fixes ours. An abandoned one counts
    // as taken: its former holder died.
    for (int k = 0; k < 2; ++k)
        if (!m_hSideMutex[k].Create((n + "Mutex" + char('0' + k)).c_str())) {
            Release();
            return false;
        }
    for (int k = 0; k < 2 && m_nSide < 0; ++k) {
        const auto r = m_hSideMutex[k].Lock(0);
        if (r == NamedMutex::Acquired || r == NamedMutex::Abandoned) m_nSide = k;
    }
    if (m_nSide < 0) {
        Release();
        return false;
    }
    m_nOther = 1 - m_nSide;
    m_nSize = size;

    // Mappings: side k's buffer, then the block size, stored by the creator.
    const size_t bytes = static_cast<size_t>(size) + 4;
    const uint32_t size32 = static_cast<uint32_t>(size);
    for (int k = 0; k < 2; ++k) {
        if (!m_hMapping[k].Create((n + char('0' + k)).c_str(), bytes,
                                  [&](void* p) { std::memcpy(static_cast<unsigned char*>(p) + size, &size32, 4); }) ||
            m_hMapping[k].GetSize() != bytes) {
            Release();
            return false;
        }
        auto* base = static_cast<unsigned char*>(m_hMapping[k].GetData());
        uint32_t stored = 0;
        std::memcpy(&stored, base + size, 4);
        if (stored != size32) {
            Release();
            return false;
        }
        m_pData[k] = base;
    }
    m_pSize = m_pData[0] + size;

    for (int k = 0; k < 2; ++k)
        if (!m_hWritten[k].Create((n + "DataWrit" + char('0' + k)).c_str(), false, false) ||
            !m_hRead[k].Create((n + "DataRead" + char('0' + k)).c_str(), false, true)) {
            Release();
            return false;
        }

    // Rendezvous: side 0 waits; side 1 signals and has met side 0 only when
    // the signal was taken at once.
    NamedEvent meet;
    if (!meet.Create(name, false, false)) {
        Release();
        return false;
    }
    bool met;
    if (m_nSide == 0) {
        met = meet.Wait(timeout);
    } else {
        met = meet.Set() && !meet.Wait(0);
    }
    meet.Close();
    if (!met || !m_hQueueMutex.Create(nullptr) || !m_hQueueEvent.Create(nullptr, false, false)) {
        Release();
        return false;
    }
    m_hClosed->Reset();
    m_thread = std::thread([this] { QueueThread(this); });
    return true;
}

void CSharedMemory::Release() {
    if (m_nSide >= 0) m_hSideMutex[m_nSide].Unlock();
    for (int k = 0; k < 2; ++k) {
        m_hWritten[k].Close();
        m_hRead[k].Close();
        m_hMapping[k].Close();
        m_hSideMutex[k].Close();
        m_pData[k] = nullptr;
    }
    m_hQueueEvent.Close();
    m_hQueueMutex.Close();
    m_pSize = nullptr;
    m_nSide = -1;
    m_nOther = -1;
    m_nSize = 0;
}

void CSharedMemory::Close() {
    if (m_nSide < 0) return;
    m_hClosed->Set();
    if (m_thread.joinable()) m_thread.join();
    EmptyWriteQueue();
    Release();
}

void CSharedMemory::EmptyWriteQueue() {
    while (m_pHead) {
        Block* b = m_pHead;
        m_pHead = b->next;
        std::free(b);
    }
    m_pTail = nullptr;
}

int CSharedMemory::Write(const void* data, int length, unsigned long timeout) {
    if (m_nSide < 0) return SM_CLOSED;
    if (length < 0 || (length > 0 && !data)) return SM_FAILED;
    const WaitObject objects[3] = {{m_hClosed, nullptr}, {nullptr, &m_hSideMutex[m_nOther]}, {&m_hRead[m_nOther], nullptr}};
    return WaitToTransfer(objects, 0, 1, m_hSideMutex[m_nOther], timeout, [&] {
        if (length > m_nSize) {
            m_hRead[m_nOther].Set();  // the buffer is still free
            return SM_TOO_LONG;
        }
        std::memcpy(m_pData[m_nOther], data, static_cast<size_t>(length));
        m_hWritten[m_nOther].Set();
        return SM_DONE;
    });
}

int CSharedMemory::Read(void* buffer, int length, unsigned long timeout) {
    if (m_nSide < 0) return SM_CLOSED;
    if (length < 0 || (length > 0 && !buffer)) return SM_FAILED;
    const WaitObject objects[3] = {{&m_hWritten[m_nSide], nullptr}, {m_hClosed, nullptr}, {nullptr, &m_hSideMutex[m_nOther]}};
    return WaitToTransfer(objects, 1, 2, m_hSideMutex[m_nOther], timeout, [&] {
        if (length > m_nSize) {
            m_hWritten[m_nSide].Set();  // the block stays for a read that fits
            return SM_TOO_LONG;
        }
        std::memcpy(buffer, m_pData[m_nSide], static_cast<size_t>(length));
        m_hRead[m_nSide].Set();
        return SM_DONE;
    });
}

int CSharedMemory::WriteToQueue(const void* data, int length) {
    if (m_nSide < 0) return SM_CLOSED;
    if (length < 0 || (length > 0 && !data)) return SM_FAILED;
    const WaitObject objects[3] = {{m_hClosed, nullptr}, {nullptr, &m_hSideMutex[m_nOther]}, {nullptr, &m_hQueueMutex}};
    switch (WaitForObjects(objects, 3, INFINITE)) {
    case 0:
        return SM_CLOSED;
    case 1:
        m_hSideMutex[m_nOther].Unlock();
        return SM_GONE;
    case 2:
        break;
    default:
        return SM_FAILED;
    }
    if (length > m_nSize) {
        m_hQueueMutex.Unlock();
        return SM_TOO_LONG;
    }
    auto* b = static_cast<Block*>(std::malloc(offsetof(Block, data) + static_cast<size_t>(m_nSize)));
    if (!b) {
        m_hQueueMutex.Unlock();
        return SM_FAILED;
    }
    b->next = nullptr;
    std::memcpy(b->data, data, static_cast<size_t>(length));
    std::memset(b->data + length, 0, static_cast<size_t>(m_nSize - length));
    if (m_pTail)
        m_pTail->next = b;
    else
        m_pHead = b;
    m_pTail = b;
    m_hQueueEvent.Set();
    m_hQueueMutex.Unlock();
    return SM_DONE;
}

unsigned CSharedMemory::QueueThread(void* param) {
    auto* self = static_cast<CSharedMemory*>(param);
    const WaitObject objects[2] = {{self->m_hClosed, nullptr}, {&self->m_hQueueEvent, nullptr}};
    while (WaitForObjects(objects, 2, INFINITE) == 1) {
        for (;;) {
            self->m_hQueueMutex.Lock(INFINITE);
            Block* b = self->m_pHead;
            if (b) {
                self->m_pHead = b->next;
                if (!self->m_pHead) self->m_pTail = nullptr;
            }
            self->m_hQueueMutex.Unlock();
            if (!b) break;
            // Outside the queue mutex: the partner may take its time.
            self->Write(b->data, self->m_nSize, INFINITE);
            std::free(b);
        }
    }
    return 0;
}

namespace {

std::mutex g_blocksMutex;
std::map<void*, std::unique_ptr<NamedMapping>>& Blocks() {
    static std::map<void*, std::unique_ptr<NamedMapping>> blocks;
    return blocks;
}

}  // namespace

void* AllocSharedMemory(unsigned long size, std::string& name) {
    static std::atomic<unsigned> counter{0};
    if (size == 0) return nullptr;
    for (int attempt = 0; attempt < 16; ++attempt) {
        char text[64];
        std::snprintf(text, sizeof text, "SharedMem%x%x", static_cast<unsigned>(getpid()), counter.fetch_add(1));
        auto mapping = std::make_unique<NamedMapping>();
        if (!mapping->Create(text, size)) return nullptr;
        if (mapping->AlreadyExisted()) continue;  // somebody else's: next number
        void* p = mapping->GetData();
        std::lock_guard<std::mutex> guard(g_blocksMutex);
        Blocks()[p] = std::move(mapping);
        name = text;
        return p;
    }
    return nullptr;
}

int FreeSharedMemory(void* block) {
    std::lock_guard<std::mutex> guard(g_blocksMutex);
    auto it = Blocks().find(block);
    if (it == Blocks().end()) return 0;
    Blocks().erase(it);
    return 1;
}

}  // namespace thermokit
