#pragma once
// Umbrella header: everything the library offers.
#include "thermokit/platform/AlignedBuffer.h"
#include "thermokit/platform/CPoint.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/CpuFeatures.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/Text.h"
#include "thermokit/platform/WaitCursor.h"
#include "thermokit/platform/Version.h"
