// CFrame::CleanDoubleBuffer: clips the outliers of a double-valued image with
// limits found from iterated tail means. It lives with the correction classes
// because it applies a bad-pixel map (CPixel) before taking statistics.
#include <vector>

#include "thermokit/image/CFrame.h"
#include "thermokit/nuc/CPixel.h"

namespace thermokit {

namespace {

// The bad-pixel map's replacement on a double image, used only when the
// map's line x point equals the image's value count.
int ReplaceBadPixels(CPixel* badPixels, double* image, int count) {
    if (!badPixels || !image) return 0;
    if (static_cast<long>(badPixels->GetLine()) * static_cast<long>(badPixels->GetPoint()) != count) return 0;
    badPixels->Apply(image);
    return 1;
}

}  // namespace

// Constant-initialised, so it is in place before any static constructor runs.
CFrame::BadPixelReplacement CFrame::s_pfnBadPixelReplacement = &ReplaceBadPixels;

CFrame::BadPixelReplacement CFrame::SetBadPixelReplacement(BadPixelReplacement replacement) {
    BadPixelReplacement previous = s_pfnBadPixelReplacement;
    s_pfnBadPixelReplacement = replacement;
    return previous;
}

int CFrame::CleanDoubleBuffer(double* in, int count, double* out, double fraction, int iterations, double factor,
                              CPixel* badPixels) {
    if (count < 1 || !in || !out || fraction < 0 || fraction > 0.5) return 0;

    // Statistics come from a copy with the bad pixels replaced when the map
    // fits the image, else from the input itself.
    std::vector<double> copy;
    const double* work = in;
    if (badPixels && s_pfnBadPixelReplacement) {
        copy.assign(in, in + count);
        if (s_pfnBadPixelReplacement(badPixels, copy.data(), count)) {
            work = copy.data();
        } else {
            copy.clear();
        }
    }

    if (iterations > count / 2) iterations = count / 2;
    if (iterations < 1) iterations = 1;
    const int minCount = static_cast<int>(fraction * count);

    double sum = 0.0;
    for (int i = 0; i < count; ++i) sum += work[i];
    const double mean = sum / count;

    double lowMean = mean, highMean = mean;
    bool lowActive = true, highActive = true;
    for (int it = 0; it < iterations; ++it) {
        double lowSum = 0.0, highSum = 0.0;
        int lowCount = 0, highCount = 0;
        for (int i = 0; i < count; ++i) {
            const double v = work[i];
            if (lowActive && v < lowMean) {
                lowSum += v;
                ++lowCount;
            }
            if (highActive && v > highMean) {
                highSum += v;
                ++highCount;
            }
        }
        if (lowCount < minCount) lowActive = false;
        if (highCount < minCount) highActive = false;
        if (!lowActive && !highActive) break;
        if (lowActive && lowCount >= 1) lowMean = lowSum / lowCount;
        if (highActive && highCount >= 1) highMean = highSum / highCount;
    }

    const double lowLimit = mean - (mean - lowMean) * factor;
    const double highLimit = mean + (highMean - mean) * factor;

    // The high side clips to the largest existing value within the limit;
    // the low side clips to the computed limit itself. The asymmetry is kept
    // on purpose.
    double highValue = mean;
    bool found = false;
    for (int i = 0; i < count; ++i) {
        const double v = work[i];
        if (v > mean && v <= highLimit && (!found || v > highValue)) {
            highValue = v;
            found = true;
        }
    }

    for (int i = 0; i < count; ++i) {
        const double v = in[i];
        if (v > highValue) {
            out[i] = highValue;
        } else if (v < lowLimit) {
            out[i] = lowLimit;
        } else {
            out[i] = v;
        }
    }
    return 1;
}

}  // namespace thermokit
