#pragma once
// CPtr2: a film of 16-bit images recorded through a CStreamFile, so that a
// camera's frames reach the disk at full rate without the caller waiting for
// it. The file layout is CPtr's: the file header, then per image its header
// and its pixels.
//
// Recording runs in three steps:
//   Create   opens the stream and writes the file header at the start;
//   AddFrame appends images through the banks (image header + pixels). The
//            frame count grows in memory only: rewriting the header for each
//            image would make every image wait for the disk;
//   Close    ends the file at the last image, then rewrites the file header
//            with the final frame count through the stream's positioning.
//
// The close follows the stream's write order: first the exact end of the
// file (SetEndOfFile), then back to position 0 and the header again, then
// CloseFile, which writes the bank holding the header by read-modify-write
// so the images behind it stay as they are. Ending the file after the header
// rewrite would cut it behind the header.
//
// When the disk fails during the recording, the stream keeps where the first
// failed write began; Close then keeps the images that lie wholly before it,
// cuts the file behind the last of them and writes the header with that
// count directly, so the film stays readable up to its last complete image.
// A recording that never reaches Close (the process is killed) leaves a
// header that counts no image; Recover counts the complete images the file
// holds and fixes the header.
#include <cstdint>
#include <memory>
#include <string>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/CStreamFile.h"

namespace thermokit {

class CPtr2 : public CPtr {
public:
    // A new film in memory, as CPtr's constructor for new films.
    CPtr2(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24, int unused);
    // Closes a recording still open (Close).
    ~CPtr2() override;
    CPtr2(const CPtr2&) = delete;
    CPtr2& operator=(const CPtr2&) = delete;

    // Starts recording into fileName (created, or emptied when it exists):
    // bankNumber banks of bankSize bytes, and the file header, with no image
    // counted yet, at the start. 0 when a recording is open, the bank
    // settings are refused or the file cannot be made.
    int Create(const char* fileName, unsigned long bankSize = CStreamFile::kDefaultBankSize, int bankNumber = 8);
    // Ends the recording: exact length, final header, file closed. 1 when
    // every image reached the disk; 0 after a disk failure (the film then
    // holds the images written before it) or when nothing is recording.
    int Close();
    int IsRecording() const { return m_pStream && m_pStream->IsOpen(); }

    // Image n from f (null: the own frame) through the banks: the image
    // header, with f's time stamp as image time, then the pixels. Appending
    // (n = the images written so far) costs a copy; another n moves the
    // stream there first, which waits for the disk. Without a recording,
    // CPtr's direct write.
    int Write(unsigned long n, CFrame* f) override;
    // While recording, the header stays in memory until Close (1); else
    // CPtr's direct write of the header.
    int WriteHeader() override;
    // While recording, everything written so far goes to the file first.
    int Read(unsigned long n, CFrame* f) override;

    // The stream of the recording (null before the first Create).
    CStreamFile* GetStream() { return m_pStream.get(); }

    // A film left behind by an interrupted recording: sets the frame count of
    // its header to the complete images the file holds and cuts a partly
    // written last image. Returns the frame count, or -1 when the file is
    // not a 16-bit film or cannot be rewritten.
    static long Recover(const char* fileName);

protected:
    // The stream Create records through; a test can hand a failing one.
    virtual std::unique_ptr<CStreamFile> NewStream();
    // While recording, reads share the file with the film's own stream.
    unsigned ReadSharing() const override;

private:
    // Writes bytes at the logical position, moving there first when needed.
    int StreamWrite(uint64_t position, const void* data, size_t bytes);
    // After a failed disk: keep the images before the failure, fix the header.
    int CloseAfterFailure(uint64_t end);

    std::unique_ptr<CStreamFile> m_pStream;
    int64_t m_nPosition = -1;  // logical stream position, -1 when unknown
    uint64_t m_nEnd = 0;       // end of the last image written
};

}  // namespace thermokit
