#pragma once
// CPtr: a film file of 16-bit images, read and written one image at a time.
//
// Image n lies at OffsetImage(n) = headerSize + n x (imageHeaderSize +
// pixelCount x 2): the record size is summed in 32 bits (a checked header
// keeps it below 4 GiB) and multiplied by n in 64 bits, so films beyond 4 GiB
// are addressed correctly. The own frame (GetFrame) is the default source and
// target of every transfer.
//
// Every read opens the file for reading with "deny write", reads the image
// header and the pixels, closes, and masks the pixels to the film's depth.
// To read films frame by frame at disk-cache speed, the descriptor is kept
// between reads, but the sharing locks are taken and dropped around each read
// exactly as an open and a close would, and the file is looked up by name
// again each time (a replaced or deleted file is seen as such).
#include <cstdint>
#include <memory>
#include <string>

#include "thermokit/film/CPtrOver.h"

namespace thermokit {

class CFrame;
class CRgn;

class CPtr : public CPtrOver {
public:
    // Opens an existing film: reads and checks its file header (IsValid),
    // clears the image header and makes the own frame of the film's size and
    // depth, rotation 0, display mode b24. Nothing else is read. The two
    // integers are kept for the interface and have no effect.
    CPtr(const std::string& fileName, int unused1, int unused2, int b24);
    // A new film in memory: InitHeader(point, line, bit), cleared image header,
    // own frame CFrame(point, line, bit, rotation, b24). The last integer has
    // no effect. Name the file with SetFileName (or SaveFrame) before writing.
    CPtr(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24, int unused);
    CPtr(const CPtr& other);
    CPtr& operator=(const CPtr& other);
    ~CPtr() override;

    CFrame* GetFrame() { return m_pFrame; }
    // Bytes of one image record (image header and pixels).
    unsigned long GetImageSize() const;
    // Bytes of one pixel in the file: 2 here, 8 in a CPtrFloat film.
    virtual unsigned GetPixelBytes() const { return 2; }

    // Image n into f (null: the own frame). See the class comment.
    virtual int Read(unsigned long n, CFrame* f);
    // Image n from f (null: the own frame): the image header, with f's time
    // stamp as image time, then the pixels.
    virtual int Write(unsigned long n, CFrame* f);
    virtual uint64_t OffsetImage(unsigned long n) const;
    virtual uint64_t OffsetTrame(unsigned long n) const;

    // Navigation: each sets the current index of the file header (in memory)
    // and reads that image. Next returns 0 at the last image, Previous at the
    // first, Last on an empty film; the index is then left unchanged.
    int ReadFrame(unsigned long n, CFrame* f = nullptr);
    int ReadFirstFrame(CFrame* f = nullptr);
    int ReadLastFrame(CFrame* f = nullptr);
    int ReadCurrentFrame(CFrame* f = nullptr);
    int ReadNextFrame(CFrame* f = nullptr);
    int ReadPreviousFrame(CFrame* f = nullptr);
    // Image n as doubles (count must be the pixel count); sets the current index.
    virtual int ReadFrame(unsigned long n, double* data, unsigned long count);

    int WriteFrame(unsigned long n, CFrame* f = nullptr);
    int WriteCurrentFrame(CFrame* f = nullptr);
    // Appends f as image GetFrameNumber(), then counts it and rewrites the
    // file header: 0 when the image could not be written, else WriteHeader's result.
    int AddFrame(CFrame* f = nullptr);
    // Marks a sub-window in the image header (flag 1, left, top, width,
    // height; null clears the flag) and appends the own frame.
    int AddFrame(CRect* rect);
    // Appends floating-point data (count = pixel count). Here the values
    // become levels, clamped to [0, maximal level] and truncated toward zero;
    // a CPtrFloat film keeps them as doubles.
    virtual int AddFrame(float* data, int count);
    virtual int AddFrame(double* data, int count);

    // Writes f as a one-image film named fileName (the file is made anew),
    // with text as comment (null keeps the comment).
    int SaveFrame(const char* fileName, CFrame* f, const char* text);
    // Writes a one-image film of doubles (8 bytes a pixel, read back with
    // CPtrFloat) with this film's descriptive header. text2 is the comment.
    // When setScale is non-zero, the range [min, max] is kept as the film's
    // special scale (17 evenly spaced values, special unit on, unit name
    // text1), so that level viewers can label it; a bound of -1.0 means none
    // given, and the data's own minimum or maximum is taken instead.
    virtual int SaveFrame(const char* fileName, float* data, const char* text1, const char* text2, int setScale,
                          double min, double max);
    virtual int SaveFrame(const char* fileName, double* data, const char* text1, const char* text2, int setScale,
                          double min, double max);

    // Reads image n's header only and gives its time (the image header block
    // of the object is left as it was).
    int ReadTime(unsigned long n, double& t);
    // Level to special unit: 0 without special unit; else
    // scale[0] + (scale[16] - scale[0]) x dl / GetMaxLevel() and 1.
    int DL2Float(unsigned short dl, double* value);
    // Minimum and maximum of the own frame inside the region (null: the whole
    // frame) become the display LUT bounds of the header. 0 when no pixel counts.
    int MinMax(CRgn* region);
    // The display LUT bounds from the histogram of the own frame inside the
    // region, keeping percent of the pixels (half the rest cut at each end).
    int MinMaxHisto(float percent, CRgn* region);
    // Lock-in demodulation frequency of the current image (kept in its lock-in data).
    void SetImageDemodeFrequency(float frequency);
    float GetImageDemodeFrequency() const;

    void SetFileName(const std::string& fileName) override;
    // As CPtrOver's, and refused (0, header unchanged) when the file holds the
    // other kind of pixels than this class reads.
    int ReadHeader() override;

protected:
    CPtr(const std::string& fileName, int b24, unsigned bytesPerPixel);
    // Offset of image n for bpp bytes a pixel, by the rule of the class comment.
    uint64_t OffsetFor(unsigned long n, unsigned bytesPerPixel) const;
    // Reads image n: the image header into the block (when the film has image
    // headers) and bytes of pixels, in one transfer; forms the image time.
    // Returns 0 silently when the file cannot be opened, 0 with the read
    // message on a file error.
    int ReadImage(unsigned long n, void* pixels, size_t bytes, double* time);
    // Writes the image header block and bytes of pixels as image n.
    int WriteImage(unsigned long n, const void* pixels, size_t bytes);
    // Truncates (creates) the file for a one-image film; 0 with the save message.
    int StartNewFile();
    // Show the required message and record the failure: err is the system's
    // error number, 0 for a read that met the end of the file, -1 when the
    // call itself could not be made (no film, a frame of another size).
    void ReadFailed(unsigned long n, int err = -1);
    void SaveFailed(unsigned long n, int err = -1);
    // Time of an image header: the IRIG-B stamp when it is active and the
    // film plays IRIG-B time, else the image time fields.
    static double ImageTime(const unsigned char* image, int irigbPlay);
    void ReleaseCache();
    // The sharing a read asks for (File::share*): deny writing, so that no
    // frame is read torn; a film that writes itself lets its own writer be.
    virtual unsigned ReadSharing() const;

    CFrame* m_pFrame = nullptr;

private:
    struct ReadCache;
    std::unique_ptr<ReadCache> m_pCache;
};

}  // namespace thermokit
