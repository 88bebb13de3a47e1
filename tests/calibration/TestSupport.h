#pragma once
// Helpers shared by the calibration tests: the shared byte and text helpers.
#include "support/Bytes.h"
