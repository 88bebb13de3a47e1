#pragma once
// A fixed-size two's complement integer of Words 64-bit words, for exact sums
// of squares rounded once to a double (the statistics of levels and of
// floats). Internal to the library: not installed.
#include <cmath>
#include <cstdint>

namespace thermokit::detail {

__extension__ typedef unsigned __int128 WideU128;
__extension__ typedef __int128 WideS128;

template <int Words>
struct WideInteger {
    static constexpr int kWords = Words;
    uint64_t w[kWords] = {};

    WideInteger() = default;
    explicit WideInteger(WideU128 v) {
        w[0] = static_cast<uint64_t>(v);
        w[1] = static_cast<uint64_t>(v >> 64);
    }
    static WideInteger Signed(WideS128 v) {
        WideInteger b(v < 0 ? -static_cast<WideU128>(v) : static_cast<WideU128>(v));
        if (v < 0) b.Negate();
        return b;
    }
    bool Negative() const { return (w[kWords - 1] >> 63) != 0; }
    WideInteger& Negate() {
        unsigned carry = 1;
        for (auto& x : w) {
            x = ~x + carry;
            carry = carry && x == 0;
        }
        return *this;
    }
    WideInteger& Add(const WideInteger& o) {
        unsigned carry = 0;
        for (int i = 0; i < kWords; ++i) {
            const WideU128 s = static_cast<WideU128>(w[i]) + o.w[i] + carry;
            w[i] = static_cast<uint64_t>(s);
            carry = static_cast<unsigned>(s >> 64);
        }
        return *this;
    }
    WideInteger& Subtract(WideInteger o) { return Add(o.Negate()); }
    // Modulo 2^(64 Words), so right for negative values too while the result fits.
    WideInteger& Multiply(uint64_t m) {
        WideU128 carry = 0;
        for (auto& x : w) {
            carry += static_cast<WideU128>(x) * m;
            x = static_cast<uint64_t>(carry);
            carry >>= 64;
        }
        return *this;
    }
    WideInteger& ShiftLeft(int k) {
        const int words = k / 64, bits = k % 64;
        for (int i = kWords - 1; i >= 0; --i) {
            const int s = i - words;
            uint64_t v = 0;
            if (s >= 0) {
                v = w[s] << bits;
                if (bits != 0 && s >= 1) v |= w[s - 1] >> (64 - bits);
            }
            w[i] = v;
        }
        return *this;
    }
    bool Bit(int pos) const { return (w[pos / 64] >> (pos % 64)) & 1u; }
    // The value read as unsigned, rounded once (to nearest, ties to even).
    double ToDoubleUnsigned() const {
        int top = -1;
        for (int i = kWords - 1; i >= 0 && top < 0; --i)
            if (w[i]) top = i * 64 + 63 - __builtin_clzll(w[i]);
        if (top < 0) return 0.0;
        if (top < 53) return static_cast<double>(w[0]);
        const int low = top - 52;  // lowest bit kept
        uint64_t mantissa = 0;
        for (int b = top; b >= low; --b) mantissa = (mantissa << 1) | (Bit(b) ? 1u : 0u);
        const bool half = Bit(low - 1);
        bool sticky = false;
        for (int b = low - 2; b >= 0 && !sticky; --b) sticky = Bit(b);
        if (half && (sticky || (mantissa & 1u))) ++mantissa;
        return std::ldexp(static_cast<double>(mantissa), low);
    }
    // The signed value, rounded once.
    double ToDouble() const {
        if (!Negative()) return ToDoubleUnsigned();
        WideInteger m = *this;
        return -m.Negate().ToDoubleUnsigned();
    }
};

}  // namespace thermokit::detail
