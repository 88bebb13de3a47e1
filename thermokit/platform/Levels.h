#pragma once
// The maximal digital level of a bit depth, shared by every layer.
namespace thermokit {

// (1 << bit) - 1 as an unsigned 16-bit value: 0 for 0 bits, 65535 for 16 bits
// and more.
unsigned short GetMaxLevel(unsigned short bit);

}  // namespace thermokit
