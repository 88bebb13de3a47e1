#pragma once
// The colour depth the display reports, in bits per pixel. There is no real
// screen: the value only decides what the display code believes it runs on
// (true colour at 24 or 32 bits, a 256-colour palette device at 8). Default 32.
namespace thermokit {

class Display {
public:
    static int GetBitsPerPixel();
    // Sets the depth (1..32; other values are refused) and returns the previous one.
    static int SetBitsPerPixel(int bits);
};

// Puts the previous depth back when it ends (tests).
class DisplayDepthGuard {
public:
    explicit DisplayDepthGuard(int bits) : m_previous(Display::SetBitsPerPixel(bits)) {}
    ~DisplayDepthGuard() { Display::SetBitsPerPixel(m_previous); }
    DisplayDepthGuard(const DisplayDepthGuard&) = delete;
    DisplayDepthGuard& operator=(const DisplayDepthGuard&) = delete;

private:
    int m_previous;
};

}  // namespace thermokit
