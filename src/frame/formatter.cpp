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

struct Spec {
    bool left = false, plus = false, space = false, alternate = false, zero = false;
    int width = 0;
    int precision = -1;
    enum { kDefault, kShort, kLong, kLongLong, kSize } length = kDefault;
};

// Writes `body` (already converted, with an optional sign/prefix) padded to the
// field width.
template <typename Ch>
void Emit(Sink<Ch>& sink, const Spec& spec, const char* prefix, const char* digits, size_t count) {
    int prefixLength = static_cast<int>(std::strlen(prefix));
    int total = prefixLength + static_cast<int>(count);
    int pad = spec.width > total ? spec.width - total : 0;
    if (!spec.left && !spec.zero) sink.Fill(u' ', pad);
    for (int i = 0; i < prefixLength; ++i) sink.Put(static_cast<unsigned char>(prefix[i]));
    if (!spec.left && spec.zero) sink.Fill(u'0', pad);
    for (size_t i = 0; i < count; ++i) sink.Put(static_cast<unsigned char>(digits[i]));
    if (spec.left) sink.Fill(u' ', pad);
}

template <typename Ch>
void EmitInteger(Sink<Ch>& sink, Spec spec, uint64_t magnitude, bool negative, int base, bool upper) {
    char digits[80];
    size_t count = 0;
    char reversed[70];
    size_t n = 0;
    const char* alphabet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    do {
        reversed[n++] = alphabet[magnitude % static_cast<unsigned>(base)];
        magnitude /= static_cast<unsigned>(base);
    } while (magnitude != 0);
    if (spec.precision == 0 && n == 1 && reversed[0] == '0') n = 0;
    int zeros = spec.precision > static_cast<int>(n) ? spec.precision - static_cast<int>(n) : 0;
    if (zeros > 64) zeros = 64;
    for (int i = 0; i < zeros; ++i) digits[count++] = '0';
    while (n > 0) digits[count++] = reversed[--n];
    const char* prefix = negative ? "-" : spec.plus ? "+" : spec.space ? " " : "";
    if (spec.alternate && base == 16 && count > 0) prefix = upper ? "0X" : "0x";
    if (spec.precision >= 0) spec.zero = false;
    Emit(sink, spec, prefix, digits, count);
}

// The locale-independent real format: digits generated one at a time from a
// mantissa in [1, 10), rounded half up on the last digit.
template <typename Ch>
void EmitReal(Sink<Ch>& sink, Spec spec, double v) {
    char text[400];
    size_t n = 0;
    int p = spec.precision < 0 ? 6 : (spec.precision > 40 ? 40 : spec.precision);
    bool negative = v < 0;
    if (negative) v = -v;
    if (!std::isfinite(v)) {
        const char* word = std::isnan(v) ? "nan" : "inf";
        Emit(sink, spec, negative ? "-" : "", word, 3);
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
        if (!spec.alternate && n > pointAt) {
            while (n > pointAt + 1 && text[n - 1] == '0') --n;
            if (n == pointAt + 1) --n;
        }
        Emit(sink, spec, negative ? "-" : spec.plus ? "+" : "", text, n);
        return;
    }
    if (p > 0 && spec.alternate) {
        text[n++] = '.';
        for (int i = 0; i < p; ++i) text[n++] = '0';
    }
    Emit(sink, spec, negative ? "-" : spec.plus ? "+" : "", text, n);
}

template <typename Ch>
void EmitFixed(Sink<Ch>& sink, Spec spec, double v) {
    char text[400];
    int p = spec.precision < 0 ? 6 : (spec.precision > 40 ? 40 : spec.precision);
    bool negative = std::signbit(v);
    auto result = std::to_chars(text, text + sizeof(text), std::fabs(v), std::chars_format::fixed, p);
    size_t n = result.ec == std::errc() ? static_cast<size_t>(result.ptr - text) : 0;
    if (spec.alternate && p == 0 && n < sizeof(text)) text[n++] = '.';
    Emit(sink, spec, negative ? "-" : spec.plus ? "+" : spec.space ? " " : "", text, n);
}

template <typename Src, typename Ch>
void EmitString(Sink<Ch>& sink, const Spec& spec, const Src* text) {
    static const Src kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    if (text == nullptr) text = kNull;
    size_t length = 0;
    while (text[length] != 0 && (spec.precision < 0 || length < static_cast<size_t>(spec.precision))) ++length;
    int pad = spec.width > static_cast<int>(length) ? spec.width - static_cast<int>(length) : 0;
    if (!spec.left) sink.Fill(u' ', pad);
    for (size_t i = 0; i < length; ++i) {
        if constexpr (sizeof(Src) == 1) {
            sink.Put(static_cast<unsigned char>(text[i]));
        } else {
            sink.Put(static_cast<char16_t>(text[i]));
        }
    }
    if (spec.left) sink.Fill(u' ', pad);
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
        Spec spec;
        for (;; ++f) {
            if (*f == '-')
                spec.left = true;
            else if (*f == '+')
                spec.plus = true;
            else if (*f == ' ')
                spec.space = true;
            else if (*f == '#')
                spec.alternate = true;
            else if (*f == '0')
                spec.zero = true;
            else
                break;
        }
        if (*f == '*') {
            spec.width = va_arg(args, int);
            if (spec.width < 0) {
                spec.left = true;
                spec.width = -spec.width;
            }
            ++f;
        } else {
            while (*f >= '0' && *f <= '9') spec.width = spec.width * 10 + (*f++ - '0');
        }
        if (spec.width > 1024) spec.width = 1024;
        if (*f == '.') {
            ++f;
            spec.precision = 0;
            if (*f == '*') {
                spec.precision = va_arg(args, int);
                ++f;
            } else {
                while (*f >= '0' && *f <= '9') spec.precision = spec.precision * 10 + (*f++ - '0');
            }
            if (spec.precision > 4096) spec.precision = 4096;
        }
        if (*f == 'h') {
            spec.length = Spec::kShort;
            ++f;
        } else if (*f == 'l' && f[1] == 'l') {
            spec.length = Spec::kLongLong;
            f += 2;
        } else if (*f == 'l') {
            spec.length = Spec::kLong;
            ++f;
        } else if (*f == 'I' && f[1] == '6' && f[2] == '4') {
            spec.length = Spec::kLongLong;
            f += 3;
        } else if (*f == 'z') {
            spec.length = Spec::kSize;
            ++f;
        }
        auto unsignedArg = [&]() -> uint64_t {
            switch (spec.length) {
                case Spec::kLongLong: return va_arg(args, unsigned long long);
                case Spec::kSize: return va_arg(args, size_t);
                case Spec::kShort: return static_cast<uint16_t>(va_arg(args, unsigned));
                default: return va_arg(args, uint32_t);
            }
        };
        auto signedArg = [&]() -> int64_t {
            switch (spec.length) {
                case Spec::kLongLong: return va_arg(args, long long);
                case Spec::kSize: return static_cast<int64_t>(va_arg(args, size_t));
                case Spec::kShort: return static_cast<int16_t>(va_arg(args, int));
                default: return va_arg(args, int32_t);
            }
        };
        switch (*f) {
            case 'd':
            case 'i':
            case 'D': {
                int64_t value = signedArg();
                uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
                EmitInteger(sink, spec, magnitude, value < 0, 10, false);
                break;
            }
            case 'u': EmitInteger(sink, spec, unsignedArg(), false, 10, false); break;
            case 'x': EmitInteger(sink, spec, unsignedArg(), false, 16, false); break;
            case 'X': EmitInteger(sink, spec, unsignedArg(), false, 16, true); break;
            case 'o': EmitInteger(sink, spec, unsignedArg(), false, 8, false); break;
            case 'p': {
                Spec pointer = spec;
                pointer.precision = static_cast<int>(sizeof(void*) * 2);
                EmitInteger(sink, pointer, reinterpret_cast<uintptr_t>(va_arg(args, void*)), false, 16, true);
                break;
            }
            case 'c': {
                char16_t c = static_cast<char16_t>(va_arg(args, int));
                if constexpr (sizeof(Ch) == 1) c = static_cast<unsigned char>(c);
                int pad = spec.width > 1 ? spec.width - 1 : 0;
                if (!spec.left) sink.Fill(u' ', pad);
                sink.Put(c);
                if (spec.left) sink.Fill(u' ', pad);
                break;
            }
            case 's':
            case 'S': {
                bool wide = (*f == 's') == (sizeof(Ch) == 2);
                if (spec.length == Spec::kShort) wide = false;
                if (spec.length == Spec::kLong) wide = true;
                if (wide) {
                    EmitString(sink, spec, va_arg(args, const char16_t*));
                } else {
                    EmitString(sink, spec, va_arg(args, const char*));
                }
                break;
            }
            case 'r': EmitReal(sink, spec, va_arg(args, double)); break;
            case 'f': EmitFixed(sink, spec, va_arg(args, double)); break;
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
