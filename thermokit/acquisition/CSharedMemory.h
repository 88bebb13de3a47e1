#pragma once
// CSharedMemory: a two-party mailbox between two processes of the same user.
// Both parties open the same name; the first becomes side 0, the second
// side 1. Each side owns one data buffer of the block size: the partner
// writes a block into it, the owner reads it out. A write waits until the
// partner's buffer is free, a read until its own buffer holds a block, each
// with a time-out, and both notice the partner's disappearance (a normal
// close or a crash) through the partner's side mutex.
//
// Named objects, for a mailbox called N (see docs/acquisition.md):
//   N + "Mutex0", N + "Mutex1"        side mutexes, held by each side while open
//   N + "0", N + "1"                  the two mappings of size + 4 bytes: side k's
//                                     buffer, then the 4-byte block size
//   N + "DataWrit0", N + "DataWrit1"  auto-reset: a block waits in that buffer
//   N + "DataRead0", N + "DataRead1"  auto-reset, initially set: that buffer is free
//   N                                 auto-reset: the rendezvous of the two sides
//
// Open and Close must be called on the same thread: the side mutex belongs
// to the thread that took it, and a thread that ends while holding it makes
// its partner see it gone. Like the host system's mutexes it is recursive:
// a second mailbox opened on the thread that holds a side takes that same
// side again, so two parties in one process use two threads.
#include <cstdint>
#include <string>
#include <thread>

#include "thermokit/platform/NamedEvent.h"
#include "thermokit/platform/NamedMapping.h"
#include "thermokit/platform/NamedMutex.h"

namespace thermokit {

class CSharedMemory {
public:
    // Results of Write, Read and WriteToQueue.
    enum {
        SM_DONE = 0,
        SM_CLOSED = 1,     // the mailbox was closed
        SM_TIMEOUT = 2,
        SM_GONE = 3,       // the partner has gone
        SM_TOO_LONG = 4,   // length above the block size
        SM_FAILED = -1,
    };
    static constexpr unsigned long INFINITE = kInfinite;

    CSharedMemory();
    virtual ~CSharedMemory();
    CSharedMemory(const CSharedMemory&) = delete;
    CSharedMemory& operator=(const CSharedMemory&) = delete;

    // Opens the mailbox `name` with blocks of size bytes; the first party
    // waits up to timeout milliseconds for the second. False when already
    // open, for an empty name or one over 249 characters, a size below 1,
    // when two parties hold the name already, when the existing block size
    // differs, or when the partner does not meet us.
    bool Open(const char* name, int size, unsigned long timeout);
    // Ends the queue thread, drops queued blocks, releases the side and
    // closes every object. Nothing happens when the mailbox is closed.
    void Close();
    // Copies length bytes into the partner's buffer once it is free.
    int Write(const void* data, int length, unsigned long timeout);
    // Copies length bytes out of the own buffer once a block is there.
    int Read(void* buffer, int length, unsigned long timeout);
    // Queues a whole block (length bytes, the rest zeros) for the queue
    // thread, which writes it without time-out; returns without waiting for
    // the partner.
    int WriteToQueue(const void* data, int length);

    bool IsOpen() const { return m_nSide >= 0; }
    int GetSide() const { return m_nSide; }
    int GetSize() const { return m_nSize; }

private:
    struct Block {
        Block* next;
        unsigned char data[1];
    };

    static unsigned QueueThread(void* param);
    void EmptyWriteQueue();
    void Release();

    NamedEvent* m_hClosed = nullptr;
    NamedMutex m_hSideMutex[2];
    int m_nSide = -1;
    int m_nOther = -1;
    NamedMapping m_hMapping[2];
    unsigned char* m_pData[2] = {nullptr, nullptr};
    unsigned char* m_pSize = nullptr;
    NamedEvent m_hWritten[2];
    NamedEvent m_hRead[2];
    int m_nSize = 0;

    Block* m_pHead = nullptr;
    Block* m_pTail = nullptr;
    NamedMutex m_hQueueMutex;
    NamedEvent m_hQueueEvent;
    std::thread m_thread;
};

// Allocates a block of size bytes that other processes of the user can map
// by the name returned in `name` ("SharedMem" then the process id and a
// counter, in hexadecimal); null on failure. The block belongs to the
// allocating process: FreeSharedMemory unmaps it, and its name goes away
// once every process that mapped it has closed it.
void* AllocSharedMemory(unsigned long size, std::string& name);
// Releases a block of AllocSharedMemory; 0 for a pointer it did not return.
int FreeSharedMemory(void* block);

}  // namespace thermokit
