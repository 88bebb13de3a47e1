#pragma once
// CPtrFloat: a film whose pixels are 8-byte doubles. The layout is that of a
// 16-bit film with 8 bytes a pixel: image n at headerSize + n x
// (imageHeaderSize + pixelCount x 8), and the record size in words of the file
// header is imageHeaderSize / 2 + 4 x pixelCount, which tells the two kinds
// of film apart.
//
// The doubles of the last image read are kept (GetDoubleBuffer); reading into
// a frame gives levels, each value clamped to [0, maximal level] and
// truncated toward zero.
#include "thermokit/film/CPtr.h"
#include "thermokit/platform/AlignedBuffer.h"

namespace thermokit {

class CPtrFloat : public CPtr {
public:
    // As CPtr's: the two integers have no effect.
    CPtrFloat(const std::string& fileName, int unused1, int unused2, int b24);
    CPtrFloat(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24,
              int unused);
    ~CPtrFloat() override;

    unsigned GetPixelBytes() const override { return 8; }
    double* GetDoubleBuffer() { return m_Data.data(); }

    int Read(unsigned long n, CFrame* f) override;
    // Writes the frame's levels as doubles.
    int Write(unsigned long n, CFrame* f) override;
    uint64_t OffsetImage(unsigned long n) const override;
    uint64_t OffsetTrame(unsigned long n) const override;
    using CPtr::ReadFrame;
    int ReadFrame(unsigned long n, double* data, unsigned long count) override;
    using CPtr::AddFrame;
    int AddFrame(float* data, int count) override;
    int AddFrame(double* data, int count) override;
    using CPtr::SaveFrame;
    int SaveFrame(const char* fileName, float* data, const char* text1, const char* text2, int setScale, double min,
                  double max) override;
    int SaveFrame(const char* fileName, double* data, const char* text1, const char* text2, int setScale, double min,
                  double max) override;

    // Writes count doubles as image n (count must be the pixel count).
    int WriteDoubles(unsigned long n, const double* data, long count);
    // Record size in words for double pixels (InitHeader writes the 16-bit one).
    void SetDoubleRecord();

private:
    AlignedBuffer<double> m_Data;
};

}  // namespace thermokit
