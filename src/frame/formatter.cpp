#include "frame/formatter.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace velmora {
namespace {

template <typename Ch>
class Sink {
public:
    Sink(Ch* out, size_t size) : out_(out), size_(size) {}
    void Put(char16_t c) {
        if (size_ != 0 && length_ + 1 < size_) out_[length_++] = static_cast<Ch>(c);
    }
    void Fill(char16_t c, int count) {
        for (int i = 0; i < count; ++i) Put(c);
    }
    size_t Finish() {
        if (size_ != 0) out_[length_] = 0;
        return length_;
    }

private:
    Ch* out_;
    size_t size_;
    size_t length_ = 0;
};

struct Conversion {
    bool left = false, plus = false, space = false, alternate = false, zero = false;
    int width = 0;
    int precision = -1;
    enum { kDefault, kShort, kLong, kLongLong, kSize } length = kDefault;
};

// Writes `body` (already converted, with an optional sign/prefix) padded to the
// field width.
template <typename Ch>
void Emit(Sink<Ch>& sink, const Conversion& conv, const char* prefix, const char* digits, size_t count) {
    int prefixLength = static_cast<int>(std::strlen(prefix));
    int total = prefixLength + static_cast<int>(count);
    int pad = conv.width > total ? conv.width - total : 0;
    if (!conv.left && !conv.zero) sink.Fill(u' ', pad);
    for (int i = 0; i < prefixLength; ++i) sink.Put(static_cast<unsigned char>(prefix[i]));
    if (!conv.left && conv.zero) sink.Fill(u'0', pad);
    for (size_t i = 0; i < count; ++i) sink.Put(static_cast<unsigned char>(digits[i]));
    if (conv.left) sink.Fill(u' ', pad);
}

template <typename Ch>
void EmitInteger(Sink<Ch>& sink, Conversion conv, uint64_t magnitude, bool negative, int base, bool upper) {
    char digits[80];
    size_t count = 0;
    char reversed[70];
    size_t n = 0;
    const char* alphabet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    do {
        reversed[n++] = alphabet[magnitude % static_cast<unsigned>(base)];
        magnitude /= static_cast<unsigned>(base);
    } while (magnitude != 0);
    if (conv.precision == 0 && n == 1 && reversed[0] == '0') n = 0;
    int zeros = conv.precision > static_cast<int>(n) ? conv.precision - static_cast<int>(n) : 0;
    if (zeros > 64) zeros = 64;
    for (int i = 0; i < zeros; ++i) digits[count++] = '0';
    while (n > 0) digits[count++] = reversed[--n];
    const char* prefix = negative ? "-" : conv.plus ? "+" : conv.space ? " " : "";
    if (conv.alternate && base == 16 && count > 0) prefix = upper ? "0X" : "0x";
    if (conv.precision >= 0) conv.zero = false;
    Emit(sink, conv, prefix, digits, count);
}

// The locale-independent real format: digits generated one at a time from a
// mantissa in [1, 10), rounded half up on the last digit.
template <typename Ch>
void EmitReal(Sink<Ch>& sink, Conversion conv, double v) {
    char text[400];
    size_t n = 0;
    int p = conv.precision < 0 ? 6 : (conv.precision > 40 ? 40 : conv.precision);
    bool negative = v < 0;
    if (negative) v = -v;
    if (!std::isfinite(v)) {
        const char* word = std::isnan(v) ? "nan" : "inf";
        Emit(sink, conv, negative ? "-" : "", word, 3);
        return;
    }
    if (v == 0) {
        text[n++] = '0';
    } else {
        int binaryExponent;
        std::frexp(v, &binaryExponent);
        int e = static_cast<int>((binaryExponent - 1) * 0.30102999566398119521);
        // Powers of ten up to 1e22 are exact doubles; scaling by an exact
        // power keeps the mantissa the same on every C library.
        static const double kPowers[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                           1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
        int magnitude = e < 0 ? -e : e;
        double power = magnitude <= 22 ? kPowers[magnitude] : std::pow(10.0, magnitude);
        double m = e < 0 ? v * power : v / power;
        while (m < 1) {
            m *= 10;
            --e;
        }
        while (m >= 10) {
            m *= 0.1;
            ++e;
        }
        auto digit = [&]() {
            int d = static_cast<int>(std::floor(m));
            if (d > 9) d = 9;
            text[n++] = static_cast<char>('0' + d);
            m -= d;
            m = std::fabs(m) <= 1e-12 ? 0 : m * 10;
        };
        if (e < 0) text[n++] = '0';
        while (e >= 0 && n < 330) {
            digit();
            --e;
        }
        size_t pointAt = n;
        if (p > 0) {
            text[n++] = '.';
            while (p > 0 && e < -1) {
                text[n++] = '0';
                --p;
                ++e;
            }
            while (p > 0) {
                digit();
                --p;
            }
        }
        if (m >= 5.0) {
            // Carry towards the front, over the point.
            size_t i = n;
            bool carry = true;
            while (carry && i > 0) {
                --i;
                if (text[i] == '.') continue;
                if (text[i] == '9') {
                    text[i] = '0';
                } else {
                    ++text[i];
                    carry = false;
                }
            }
            if (carry) {
                std::memmove(text + 1, text, n);
                text[0] = '1';
                ++n;
                ++pointAt;
            }
        }
        if (!conv.alternate && n > pointAt) {
            while (n > pointAt + 1 && text[n - 1] == '0') --n;
            if (n == pointAt + 1) --n;
        }
        Emit(sink, conv, negative ? "-" : conv.plus ? "+" : "", text, n);
        return;
    }
    if (p > 0 && conv.alternate) {
        text[n++] = '.';
        for (int i = 0; i < p; ++i) text[n++] = '0';
    }
    Emit(sink, conv, negative ? "-" : conv.plus ? "+" : "", text, n);
}

template <typename Ch>
void EmitFixed(Sink<Ch>& sink, Conversion conv, double v) {
    char text[400];
    int p = conv.precision < 0 ? 6 : (conv.precision > 40 ? 40 : conv.precision);
    bool negative = std::signbit(v);
    auto result = std::to_chars(text, text + sizeof(text), std::fabs(v), std::chars_format::fixed, p);
    size_t n = result.ec == std::errc() ? static_cast<size_t>(result.ptr - text) : 0;
    if (conv.alternate && p == 0 && n < sizeof(text)) text[n++] = '.';
    Emit(sink, conv, negative ? "-" : conv.plus ? "+" : conv.space ? " " : "", text, n);
}

template <typename Src, typename Ch>
void EmitString(Sink<Ch>& sink, const Conversion& conv, const Src* text) {
    static const Src kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    if (text == nullptr) text = kNull;
    size_t length = 0;
    while (text[length] != 0 && (conv.precision < 0 || length < static_cast<size_t>(conv.precision))) ++length;
    int pad = conv.width > static_cast<int>(length) ? conv.width - static_cast<int>(length) : 0;
    if (!conv.left) sink.Fill(u' ', pad);
    for (size_t i = 0; i < length; ++i) {
        if constexpr (sizeof(Src) == 1) {
            sink.Put(static_cast<unsigned char>(text[i]));
        } else {
            sink.Put(static_cast<char16_t>(text[i]));
        }
    }
    if (conv.left) sink.Fill(u' ', pad);
}

template <typename Ch>
size_t Format(Ch* out, size_t size, const Ch* format, va_list args) {
    Sink<Ch> sink(out, size);
    if (format == nullptr) return sink.Finish();
    for (const Ch* f = format; *f != 0; ++f) {
        if (*f != '%') {
            sink.Put(static_cast<char16_t>(*f));
            continue;
        }
        const Ch* start = f++;
        Conversion conv;
        for (;; ++f) {
            if (*f == '-')
                conv.left = true;
            else if (*f == '+')
                conv.plus = true;
            else if (*f == ' ')
                conv.space = true;
            else if (*f == '#')
                conv.alternate = true;
            else if (*f == '0')
                conv.zero = true;
            else
                break;
        }
        if (*f == '*') {
            conv.width = va_arg(args, int);
            if (conv.width < 0) {
                conv.left = true;
                conv.width = -conv.width;
            }
            ++f;
        } else {
            while (*f >= '0' && *f <= '9') conv.width = conv.width * 10 + (*f++ - '0');
        }
        if (conv.width > 1024) conv.width = 1024;
        if (*f == '.') {
            ++f;
            conv.precision = 0;
            if (*f == '*') {
                conv.precision = va_arg(args, int);
                ++f;
            } else {
                while (*f >= '0' && *f <= '9') conv.precision = conv.precision * 10 + (*f++ - '0');
            }
            if (conv.precision > 4096) conv.precision = 4096;
        }
        if (*f == 'h') {
            conv.length = Conversion::kShort;
            ++f;
        } else if (*f == 'l' && f[1] == 'l') {
            conv.length = Conversion::kLongLong;
            f += 2;
        } else if (*f == 'l') {
            conv.length = Conversion::kLong;
            ++f;
        } else if (*f == 'I' && f[1] == '6' && f[2] == '4') {
            conv.length = Conversion::kLongLong;
            f += 3;
        } else if (*f == 'z') {
            conv.length = Conversion::kSize;
            ++f;
        }
        auto unsignedArg = [&]() -> uint64_t {
            switch (conv.length) {
                case Conversion::kLongLong: return va_arg(args, unsigned long long);
                case Conversion::kSize: return va_arg(args, size_t);
                case Conversion::kShort: return static_cast<uint16_t>(va_arg(args, unsigned));
                default: return va_arg(args, uint32_t);
            }
        };
        auto signedArg = [&]() -> int64_t {
            switch (conv.length) {
                case Conversion::kLongLong: return va_arg(args, long long);
                case Conversion::kSize: return static_cast<int64_t>(va_arg(args, size_t));
                case Conversion::kShort: return static_cast<int16_t>(va_arg(args, int));
                default: return va_arg(args, int32_t);
            }
        };
        switch (*f) {
            case 'd':
            case 'i':
            case 'D': {
                int64_t value = signedArg();
                uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
                EmitInteger(sink, conv, magnitude, value < 0, 10, false);
                break;
            }
            case 'u': EmitInteger(sink, conv, unsignedArg(), false, 10, false); break;
            case 'x': EmitInteger(sink, conv, unsignedArg(), false, 16, false); break;
            case 'X': EmitInteger(sink, conv, unsignedArg(), false, 16, true); break;
            case 'o': EmitInteger(sink, conv, unsignedArg(), false, 8, false); break;
            case 'p': {
                Conversion pointer = conv;
                pointer.precision = static_cast<int>(sizeof(void*) * 2);
                EmitInteger(sink, pointer, reinterpret_cast<uintptr_t>(va_arg(args, void*)), false, 16, true);
                break;
            }
            case 'c': {
                char16_t c = static_cast<char16_t>(va_arg(args, int));
                if constexpr (sizeof(Ch) == 1) c = static_cast<unsigned char>(c);
                int pad = conv.width > 1 ? conv.width - 1 : 0;
                if (!conv.left) sink.Fill(u' ', pad);
                sink.Put(c);
                if (conv.left) sink.Fill(u' ', pad);
                break;
            }
            case 's':
            case 'S': {
                bool wide = (*f == 's') == (sizeof(Ch) == 2);
                if (conv.length == Conversion::kShort) wide = false;
                if (conv.length == Conversion::kLong) wide = true;
                if (wide) {
                    EmitString(sink, conv, va_arg(args, const char16_t*));
                } else {
                    EmitString(sink, conv, va_arg(args, const char*));
                }
                break;
            }
            case 'r': EmitReal(sink, conv, va_arg(args, double)); break;
            case 'f': EmitFixed(sink, conv, va_arg(args, double)); break;
            case '%': sink.Put(u'%'); break;
            default:
                // Not a conversion: copy the text as it stands.
                for (const Ch* c = start; c <= f && *c != 0; ++c) sink.Put(static_cast<char16_t>(*c));
                if (*f == 0) return sink.Finish();
                break;
        }
    }
    return sink.Finish();
}

}  // namespace

size_t FormatWideV(char16_t* out, size_t size, const char16_t* format, va_list args) {
    return Format(out, size, format, args);
}

size_t FormatWide(char16_t* out, size_t size, const char16_t* format, ...) {
    va_list args;
    va_start(args, format);
    size_t n = FormatWideV(out, size, format, args);
    va_end(args);
    return n;
}

size_t FormatNarrowV(char* out, size_t size, const char* format, va_list args) {
    return Format(out, size, format, args);
}

size_t FormatNarrow(char* out, size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    size_t n = FormatNarrowV(out, size, format, args);
    va_end(args);
    return n;
}

}  // namespace velmora
