#pragma once
// The figures of a measurement over a set of values, as the tool's stats and
// temperature commands and the Python package report them: minimum, maximum,
// mean and population standard deviation (MinMax and StdDev of PixelArray.h),
// and the number of values counted.
//
// Levels always count. Floating-point values count only where they are
// finite: a calibration gives NaN for a level it cannot convert, and such a
// pixel is left out rather than spoiling the figures. With nothing counted,
// every figure is NaN and the count 0.
//
// Floats are summed exactly (FloatMoments), so their figures do not depend
// on the order of the values; doubles and levels as StdDev sums them.
namespace thermokit {

struct FrameStatistics {
    double min, max, mean, stdDev;
    long count;
};

FrameStatistics Measure(const unsigned short* values, long n);
FrameStatistics Measure(const float* values, long n);
FrameStatistics Measure(const double* values, long n);

}  // namespace thermokit
