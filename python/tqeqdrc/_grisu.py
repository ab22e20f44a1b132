"""Doubles as text exactly as the C++ tool's JSON writer prints them (nlohmann::json's
Grisu2 digits and %g-like layout), so that JSON written here matches it byte for byte.
Grisu2 does not always find the shortest digits (1.4251424e+22 prints as
1.4251423999999999e+22), so Python's repr cannot stand in for it."""
import math
import struct

_M64 = (1 << 64) - 1
_ALPHA = -60


def _cached_power(k):
    """10^k as a 64-bit significand f (top bit set, rounded to nearest) and exponent e."""
    if k >= 0:
        num, den = 10 ** k, 1
    else:
        num, den = 1, 10 ** -k
    e = num.bit_length() - den.bit_length() - 64
    while True:
        q, r = divmod(num << -e, den) if e < 0 else divmod(num, den << e)
        if q >> 64:
            e += 1
        elif not q >> 63:
            e -= 1
        else:
            break
    if 2 * r >= (den << e if e >= 0 else den):
        q += 1
        if q >> 64:
            q >>= 1
            e += 1
    return q, e


_POWERS = [(_cached_power(k), k) for k in range(-300, 325, 8)]


def _mul(xf, xe, yf, ye):
    u_lo, u_hi, v_lo, v_hi = xf & 0xFFFFFFFF, xf >> 32, yf & 0xFFFFFFFF, yf >> 32
    p0, p1, p2, p3 = u_lo * v_lo, u_lo * v_hi, u_hi * v_lo, u_hi * v_hi
    q = (p0 >> 32) + (p1 & 0xFFFFFFFF) + (p2 & 0xFFFFFFFF) + (1 << 31)
    return (p3 + (p2 >> 32) + (p1 >> 32) + (q >> 32)) & _M64, xe + ye + 64


def _normalize(f, e):
    shift = 64 - f.bit_length()
    return f << shift, e - shift


def _round(buf, dist, delta, rest, ten_k):
    while rest < dist and delta - rest >= ten_k and (rest + ten_k < dist or dist - rest > rest + ten_k - dist):
        buf[-1] -= 1
        rest += ten_k


def _grisu2(value):
    """(digits, decimal exponent) with value = digits * 10^exponent, value > 0 finite."""
    bits = struct.unpack("<Q", struct.pack("<d", value))[0]
    big_e, frac = bits >> 52, bits & ((1 << 52) - 1)
    if big_e == 0:
        vf, ve = frac, 1 - 1075
    else:
        vf, ve = frac + (1 << 52), big_e - 1075
    lower_closer = frac == 0 and big_e > 1
    plus_f, plus_e = _normalize(2 * vf + 1, ve - 1)
    minus_f, minus_e = (4 * vf - 1, ve - 2) if lower_closer else (2 * vf - 1, ve - 1)
    minus_f, minus_e = minus_f << (minus_e - plus_e), plus_e
    w_f, w_e = _normalize(vf, ve)

    f = _ALPHA - plus_e - 1
    k = (f * 78913) // (1 << 18) if f * 78913 >= 0 else -((-f * 78913) // (1 << 18))
    k += int(f > 0)
    index = (300 + k + 7) // 8
    (cf, ce), ck = _POWERS[index]
    w_f, w_e = _mul(w_f, w_e, cf, ce)
    lo_f, lo_e = _mul(minus_f, minus_e, cf, ce)
    hi_f, hi_e = _mul(plus_f, plus_e, cf, ce)
    lo_f += 1
    hi_f -= 1
    exp10 = -ck

    delta = hi_f - lo_f
    dist = hi_f - w_f
    one_e = hi_e
    one_f = 1 << -one_e
    p1 = hi_f >> -one_e
    p2 = hi_f & (one_f - 1)
    buf = []
    pow10 = 10 ** (len(str(p1)) - 1) if p1 else 1
    n = len(str(p1)) if p1 else 1
    while n > 0:
        d, p1 = divmod(p1, pow10)
        buf.append(d)
        n -= 1
        rest = (p1 << -one_e) + p2
        if rest <= delta:
            exp10 += n
            _round(buf, dist, delta, rest, pow10 << -one_e)
            return "".join(map(str, buf)), exp10
        pow10 //= 10
    m = 0
    while True:
        p2 *= 10
        buf.append(p2 >> -one_e)
        p2 &= one_f - 1
        m += 1
        delta *= 10
        dist *= 10
        if p2 <= delta:
            break
    exp10 -= m
    _round(buf, dist, delta, p2, one_f)
    return "".join(map(str, buf)), exp10


def number_text(x):
    """A finite double as nlohmann::json dumps it."""
    if x == 0.0:
        return "-0.0" if math.copysign(1.0, x) < 0 else "0.0"
    sign = "-" if x < 0 else ""
    digits, exp10 = _grisu2(abs(x))
    k = len(digits)
    n = k + exp10
    if k <= n <= 15:
        return sign + digits + "0" * (n - k) + ".0"
    if 0 < n <= 15:
        return sign + digits[:n] + "." + digits[n:]
    if -4 < n <= 0:
        return sign + "0." + "0" * (-n) + digits
    e = n - 1
    body = digits if k == 1 else digits[0] + "." + digits[1:]
    return "%s%se%s%02d" % (sign, body, "-" if e < 0 else "+", abs(e))
