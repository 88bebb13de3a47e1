#pragma once
// Free functions over raw pixel arrays: a pointer and a count, or a pointer
// with Point pixels per line and Line lines stored row after row (pixel (x, y)
// at index Point * y + x). Overloaded by pixel type: unsigned 16-bit levels,
// unsigned 32-bit, signed 32-bit, float and double (unsigned 8-bit for
// RotateImage).
//
// Functions with a result return 1 on success and 0 on bad input; the void
// ones do nothing on a null buffer or an empty size and otherwise trust their
// arguments.
#include <cstdint>

#include "thermokit/platform/Levels.h"

namespace thermokit {

class CRgn;
class CMapping;

// GetMaxLevel(bit), (1 << bit) - 1, comes from platform/Levels.h.

// buffer[i] &= mask for every i.
void Mask(unsigned short* buffer, long n, unsigned short mask);
void Mask(uint32_t* buffer, long n, uint32_t mask);

// Minimum, maximum and mean of n values. min = max = buffer[0]; for each
// further v: if v < min, min becomes v unless ignoreZero is set and v is 0;
// otherwise, if v > max, max becomes v. With ignoreZero each further zero is
// left out of the mean's count. The first value is never tested: a zero in the
// first place stays the minimum and is counted. The mean is the sum (in double)
// over the count, truncated toward zero for the integer types. Each result
// pointer may be null.
void MinMax(const unsigned short* buffer, long n, unsigned short* min, unsigned short* max, unsigned short* mean,
            int ignoreZero);
void MinMax(const uint32_t* buffer, long n, uint32_t* min, uint32_t* max, uint32_t* mean, int ignoreZero);
void MinMax(const float* buffer, long n, float* min, float* max, float* mean, int ignoreZero);
void MinMax(const double* buffer, long n, double* min, double* max, double* mean, int ignoreZero);

// The same over the pixels (x, y) inside the region, visited line by line; the
// first pixel inside initialises min and max. Nothing is written when the
// region is null or holds no pixel of the image.
void MinMaxRgn(const unsigned short* buffer, unsigned short point, unsigned short line, CRgn* region,
               unsigned short* min, unsigned short* max, unsigned short* mean);
void MinMaxRgn(const uint32_t* buffer, unsigned short point, unsigned short line, CRgn* region, uint32_t* min,
               uint32_t* max, uint32_t* mean);
void MinMaxRgn(const int32_t* buffer, unsigned short point, unsigned short line, CRgn* region, int32_t* min,
               int32_t* max, int32_t* mean);
void MinMaxRgn(const float* buffer, unsigned short point, unsigned short line, CRgn* region, float* min, float* max,
               float* mean);
void MinMaxRgn(const double* buffer, unsigned short point, unsigned short line, CRgn* region, double* min,
               double* max, double* mean);

// Minimum and maximum with their indexes: the first index at which the
// minimum occurs and the first at which the maximum occurs. The mean (sum in
// double over n, truncated for integer types) is written when mean is given.
// Nothing is written when n < 1.
void MinMaxPosition(const unsigned short* buffer, long n, unsigned short* min, unsigned short* max, long& minIndex,
                    long& maxIndex, unsigned short* mean);
void MinMaxPosition(const uint32_t* buffer, long n, uint32_t* min, uint32_t* max, long& minIndex, long& maxIndex,
                    uint32_t* mean);
void MinMaxPosition(const int32_t* buffer, long n, int32_t* min, int32_t* max, long& minIndex, long& maxIndex,
                    int32_t* mean);
void MinMaxPosition(const float* buffer, long n, float* min, float* max, long& minIndex, long& maxIndex,
                    float* mean);
void MinMaxPosition(const double* buffer, long n, double* min, double* max, long& minIndex, long& maxIndex,
                    double* mean);

// Minimum, maximum (and mean, truncated) of buffer[indices[k]] & mask for k
// below count. Returns 0 and writes nothing when count < 1 or a pointer is
// null, else 1.
int MinMaxIndex(const unsigned short* buffer, const int* indices, int count, unsigned short mask, unsigned short& min,
                unsigned short& max);
int MinMaxIndex(const unsigned short* buffer, const int* indices, int count, unsigned short mask, unsigned short& min,
                unsigned short& max, unsigned short* mean);

// Population standard deviation: mean = sum x (1 / n); stdDev = square root
// of |sum of (v - mean)^2 x (1 / n)|. Both written (each pointer may be null).
// The sum of the values is the sum in double (formed exactly in integers where
// that gives the same double). For unsigned 16-bit values the sum of squared
// deviations is formed exactly from integer moments and rounded once to
// double; for the other types it is added term by term in double.
void StdDev(const unsigned short* buffer, long n, double* stdDev, double* mean);
void StdDev(const uint32_t* buffer, long n, double* stdDev, double* mean);
void StdDev(const int32_t* buffer, long n, double* stdDev, double* mean);
void StdDev(const float* buffer, long n, double* stdDev, double* mean);
void StdDev(const double* buffer, long n, double* stdDev, double* mean);

// Sets every pixel outside the region to value; nothing when the region is
// null or line is 0.
void RemoveRgn(unsigned short* buffer, unsigned short point, unsigned short line, CRgn* region, unsigned short value);
void RemoveRgn(uint32_t* buffer, unsigned short point, unsigned short line, CRgn* region, uint32_t value);
void RemoveRgn(int32_t* buffer, unsigned short point, unsigned short line, CRgn* region, int32_t value);
void RemoveRgn(float* buffer, unsigned short point, unsigned short line, CRgn* region, float value);
void RemoveRgn(double* buffer, unsigned short point, unsigned short line, CRgn* region, double value);

// Reverses the byte order of every value.
void Swap(unsigned short* buffer, long n);
void Swap(uint32_t* buffer, long n);
void Swap(int32_t* buffer, long n);
void Swap(float* buffer, long n);

// Histogram of the masked values: mask + 1 counts allocated with new[] and
// handed out through histo (the caller frees them with delete[]); min and max
// of the masked values. With indices the values are pixels[indices[k]] & mask
// for k below n. Returns 0 when n is 0, pixels is null or mask is 0.
int CalculateHisto(const unsigned short* pixels, long n, const int* indices, unsigned short mask,
                   unsigned short& min, unsigned short& max, long*& histo);
int CalculateHisto(const unsigned short* pixels, long n, const int* indices, unsigned short mask,
                   unsigned short& min, unsigned short& max, int32_t*& histo);

// Narrows [min, max] by cutting pctLow percent of the total at the bottom and
// pctHigh percent at the top. The bin at which a count is reached is cut too
// (a percentage of 0 still removes one bin), and a count never reached
// collapses the range onto the other bound. Both are kept on purpose.
int ApplyThresholdMinMaxHisto(const long* histo, unsigned short maxLevel, long total, float pctLow, float pctHigh,
                              unsigned short& min, unsigned short& max);
int ApplyThresholdMinMaxHisto(const int32_t* histo, unsigned short maxLevel, long total, float pctLow,
                              float pctHigh, unsigned short& min, unsigned short& max);

// Display range from the histogram of the pixels (masked with maxLevel). When
// pctHigh is exactly -1, pctLow is the percentage of pixels to keep and both
// cuts become (100 - pctLow) / 2.
int MinMaxHisto(const unsigned short* pixels, long n, unsigned short* min, unsigned short* max,
                unsigned short maxLevel, float pctLow, float pctHigh, const int* indices);
// The same over the pixels inside the region (the whole image when region is
// null). Returns 0 when no pixel lies inside.
int MinMaxHistoRgn(const unsigned short* pixels, unsigned short point, unsigned short line, CRgn* region,
                   unsigned short* min, unsigned short* max, unsigned short maxLevel, float pctLow, float pctHigh);

// In-place rotation: 90 a clockwise quarter turn (source line r becomes
// column line - 1 - r), 270 a counter-clockwise one (source line r becomes
// column r, filled from the bottom), 180 the point x line values reversed, 360
// the mapping's Apply when a mapping is given. A quarter turn leaves the
// buffer holding line values per row and point rows. Any other code leaves the
// buffer as it is.
void RotateImage(unsigned char* buffer, unsigned short point, unsigned short line, unsigned short code,
                 CMapping* mapping);
void RotateImage(unsigned short* buffer, unsigned short point, unsigned short line, unsigned short code,
                 CMapping* mapping);
void RotateImage(float* buffer, unsigned short point, unsigned short line, unsigned short code, CMapping* mapping);

// Time of day as a double of seconds since midnight.
void MergeTime(double* time, unsigned short hour, unsigned short minute, unsigned short second,
               unsigned short hundredths, unsigned short thousandths, unsigned short micro);
// micro is taken as unsigned 32-bit.
void MergeTime(double* time, unsigned short hour, unsigned short minute, unsigned short second, unsigned long micro);
// seconds and micro are taken as unsigned 32-bit.
void MergeTime(double* time, unsigned long seconds, unsigned long micro);
// Splits back: hour, minute, second and hundredths are always written (when
// their pointers are given); thousandths when given; micro only when both
// thousandths and micro are given, from what remains after the thousandths.
void SplitTime(double time, unsigned short* hour, unsigned short* minute, unsigned short* second,
               unsigned short* hundredths, unsigned short* thousandths, unsigned short* micro);

// Interlaced fields: the combined image of point x line values is made of
// three (or four) fields; combined line y is line y / k of field y mod k
// (k = 3 or 4), so field f holds the lines f, f + k, f + 2k, ... in order,
// each point values long, and has (line - f + k - 1) / k lines. Return 0 when
// a pointer is null or point or line is 0, else 1.
int InterlaceImage(const unsigned short* field0, const unsigned short* field1, const unsigned short* field2,
                   unsigned short* combined, unsigned short point, unsigned short line);
int InterlaceImage(const unsigned short* field0, const unsigned short* field1, const unsigned short* field2,
                   const unsigned short* field3, unsigned short* combined, unsigned short point, unsigned short line);
int InterlaceImage(const float* field0, const float* field1, const float* field2, float* combined,
                   unsigned short point, unsigned short line);
int InterlaceImage(const float* field0, const float* field1, const float* field2, const float* field3,
                   float* combined, unsigned short point, unsigned short line);
int DeInterlaceImage(const unsigned short* combined, unsigned short* field0, unsigned short* field1,
                     unsigned short* field2, unsigned short point, unsigned short line);
int DeInterlaceImage(const unsigned short* combined, unsigned short* field0, unsigned short* field1,
                     unsigned short* field2, unsigned short* field3, unsigned short point, unsigned short line);
int DeInterlaceImage(const float* combined, float* field0, float* field1, float* field2, unsigned short point,
                     unsigned short line);
int DeInterlaceImage(const float* combined, float* field0, float* field1, float* field2, float* field3,
                     unsigned short point, unsigned short line);

// Line doubling of a half-height image: in holds point x line values, out
// receives point x (2 x line) values. Out line 2y is in line y; out line
// 2y + 1 is the mean of in lines y and y + 1, truncated ((a + b) / 2), and the
// last out line repeats the last in line. Nothing when a pointer is null or a
// size is 0.
void InterpolateImage(const unsigned short* in, unsigned short* out, unsigned short point, unsigned short line);

// Size of one pixel's footprint on the object: pitch (micrometres) x
// distance (metres) / focal length (millimetres), in millimetres. 0 when the
// focal length is not positive.
double GetPixelRes(double pitch, double focal, double distance);

}  // namespace thermokit
