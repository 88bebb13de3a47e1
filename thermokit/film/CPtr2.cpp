#include "thermokit/film/CPtr2.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "thermokit/image/CFrame.h"
#include "thermokit/platform/File.h"

namespace thermokit {

CPtr2::CPtr2(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24,
             int unused)
    : CPtr(point, line, bit, rotation, b24, unused) {}

CPtr2::~CPtr2() {
    if (IsRecording()) Close();
}

std::unique_ptr<CStreamFile> CPtr2::NewStream() { return std::make_unique<CStreamFile>(); }

int CPtr2::Create(const char* fileName, unsigned long bankSize, int bankNumber) {
    if (!fileName || !*fileName || IsRecording() || !m_bValid) return 0;
    if (!m_pStream) m_pStream = NewStream();
    if (!m_pStream || !m_pStream->SetBankNumber(bankNumber)) return 0;
    SetFileName(fileName);
    SetFrameNumber(0);
    SetCurrentFrame(0);
    ReleaseCache();
    // The header goes to the file at once, with a plain write: a recording
    // that is interrupted later still leaves a film that Recover can mend.
    // The stream then opens the file as it is and starts with the header's
    // bytes in its first bank, so that every bank it writes stays whole.
    std::vector<unsigned char> header(GetHeaderSize(), 0);
    std::memcpy(header.data(), m_Header, std::min<size_t>(header.size(), sizeof(m_Header)));
    {
        File file;
        if (!file.Open(m_strFileName, File::modeWrite | File::shareDenyWrite | File::modeCreate) ||
            !file.WriteAt(0, header.data(), header.size())) {
            SaveFailed(0, file.GetLastError() ? file.GetLastError() : EIO);
            return 0;
        }
    }
    if (!m_pStream->OpenFile(fileName, bankSize, CStreamFile::modeOpenExisting)) {
        SaveFailed(0, EIO);
        return 0;
    }
    m_nPosition = 0;
    m_nEnd = header.size();
    if (!StreamWrite(0, header.data(), header.size())) {
        m_pStream->CloseFile();
        m_nPosition = -1;
        SaveFailed(0, EIO);
        return 0;
    }
    return 1;
}

int CPtr2::StreamWrite(uint64_t position, const void* data, size_t bytes) {
    if (m_nPosition != static_cast<int64_t>(position)) {
        m_nPosition = -1;
        if (m_pStream->SetFilePointer(static_cast<int64_t>(position), CStreamFile::FILE_BEGIN) !=
            static_cast<int64_t>(position))
            return 0;
        m_nPosition = static_cast<int64_t>(position);
    }
    // The stream takes at most 4 GiB - 1 a call; an image record is below 4 GiB.
    const auto* p = static_cast<const unsigned char*>(data);
    while (bytes > 0) {
        const unsigned long chunk = static_cast<unsigned long>(std::min<size_t>(bytes, 0x7FFFFFFFu));
        unsigned long written = 0;
        const int ok = m_pStream->Write(p, chunk, &written);
        m_nPosition += static_cast<int64_t>(written);
        if (!ok || written != chunk) {
            m_nPosition = -1;  // partly taken: move explicitly next time
            return 0;
        }
        p += chunk;
        bytes -= chunk;
    }
    return 1;
}

int CPtr2::Write(unsigned long n, CFrame* f) {
    if (!IsRecording()) return CPtr::Write(n, f);
    if (!f) f = m_pFrame;
    if (!m_bValid || !f || !f->GetBuffer() || f->GetSize() != GetSize() || GetSize() <= 0) {
        SaveFailed(n);
        return 0;
    }
    SetFrameTime(f->GetTime());
    const uint64_t at = OffsetImage(n);
    const uint32_t ihs = GetImageHeaderSize();
    bool ok;
    if (ihs == PtrImage::kSize) {
        ok = StreamWrite(at, m_Image, PtrImage::kSize);
    } else {
        // Another image-header size than ours: our part, then zeros; none at all when 0.
        std::vector<unsigned char> head(ihs, 0);
        std::memcpy(head.data(), m_Image, std::min<size_t>(ihs, PtrImage::kSize));
        ok = StreamWrite(at, head.data(), head.size());
    }
    const size_t bytes = static_cast<size_t>(GetSize()) * 2;
    if (ok) ok = StreamWrite(at + ihs, f->GetBuffer(), bytes);
    if (!ok) {
        SaveFailed(n, EIO);
        return 0;
    }
    m_nEnd = std::max<uint64_t>(m_nEnd, at + ihs + bytes);
    return 1;
}

int CPtr2::WriteHeader() {
    if (IsRecording()) return 1;  // written by Close, with the final count
    return CPtr::WriteHeader();
}

int CPtr2::Read(unsigned long n, CFrame* f) {
    // Moving to where the stream stands puts every byte written into the file.
    if (IsRecording() && m_pStream->SetFilePointer(0, CStreamFile::FILE_CURRENT) < 0) m_nPosition = -1;
    return CPtr::Read(n, f);
}

unsigned CPtr2::ReadSharing() const { return IsRecording() ? File::shareDenyNone : CPtr::ReadSharing(); }

int CPtr2::Close() {
    if (!IsRecording()) return 0;
    // The film ends behind its last image (or behind an image written beyond
    // the count with WriteFrame: nothing written is cut).
    const uint64_t end = std::max<uint64_t>(OffsetImage(GetFrameNumber()), m_nEnd);
    if (m_pStream->GetError()) return CloseAfterFailure(end);
    bool ok = true;
    // 1. The exact length, at the end of the images.
    if (m_nPosition != static_cast<int64_t>(end)) {
        m_nPosition = -1;
        ok = m_pStream->SetFilePointer(static_cast<int64_t>(end), CStreamFile::FILE_BEGIN) == static_cast<int64_t>(end);
    }
    if (ok) ok = m_pStream->SetEndOfFile() != 0;
    // 2. The header again, now with the final count. Nothing may end the file
    // after this: the bank holding the header is only partly filled.
    if (ok) ok = StreamWrite(0, m_Header, sizeof(m_Header)) != 0;
    // 3. Closing writes that bank over the file's own bytes behind the header.
    m_pStream->CloseFile();
    m_nPosition = -1;
    ReleaseCache();
    if (!ok || m_pStream->GetError()) {
        CloseAfterFailure(end);
        return 0;
    }
    return 1;
}

int CPtr2::CloseAfterFailure(uint64_t end) {
    const int64_t failed = m_pStream->GetErrorPosition();
    m_pStream->CloseFile();
    m_nPosition = -1;
    ReleaseCache();
    // The images wholly before the first failed write are on disk as written.
    const uint64_t good = failed < 0 ? end : std::min<uint64_t>(end, static_cast<uint64_t>(failed));
    const uint64_t record = static_cast<uint64_t>(GetImageSize());
    unsigned long count = 0;
    if (good >= GetHeaderSize() && record > 0)
        count = static_cast<unsigned long>(std::min<uint64_t>((good - GetHeaderSize()) / record, GetFrameNumber()));
    SetFrameNumber(count);
    if (GetCurrentFrame() >= count) SetCurrentFrame(0);
    File file;
    if (file.Open(m_strFileName, File::modeWrite | File::shareDenyWrite | File::modeNoTruncate)) {
        // Best effort: the recording has failed already and says so below.
        (void)(file.SetLength(OffsetImage(count)) && file.WriteAt(0, m_Header, sizeof(m_Header)));
    }
    SaveFailed(count, EIO);
    return 0;
}

long CPtr2::Recover(const char* fileName) {
    if (!fileName) return -1;
    CPtrOver film(fileName);
    if (!film.IsValid() || CPtrOver::PixelBytes(film.GetHeaderAddress()) != 2) return -1;
    File file;
    if (!file.Open(fileName, File::modeReadWrite | File::shareDenyWrite | File::modeNoTruncate)) return -1;
    const int64_t length = file.GetLength();
    const uint64_t header = film.GetHeaderSize();
    const uint64_t record = static_cast<uint64_t>(film.GetImageHeaderSize()) + static_cast<uint64_t>(film.GetSize()) * 2;
    if (length < 0 || record == 0) return -1;
    uint64_t count = static_cast<uint64_t>(length) > header ? (static_cast<uint64_t>(length) - header) / record : 0;
    count = std::min<uint64_t>(count, UINT32_MAX);
    film.SetFrameNumber(static_cast<unsigned long>(count));
    if (film.GetCurrentFrame() >= count) film.SetCurrentFrame(0);
    if (!file.SetLength(header + count * record)) return -1;
    if (!file.WriteAt(0, film.GetHeaderAddress(), PtrHeader::kSize)) return -1;
    return static_cast<long>(count);
}

}  // namespace thermokit
