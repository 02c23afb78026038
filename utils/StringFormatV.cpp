// CString::Format and CString::FormatV.
//
// The output is sized before it is printed: an estimate walks the format once and gives an upper
// bound for the usual conversions (text 1 per character, %s its strlen, integers 32, floating 128,
// widths and precisions taken into account). The string gets a buffer of that bound and vsnprintf
// prints into it, limited to the bound, so output longer than the estimate is cut, never overflows.
//
// The estimate understands one length modifier (h, l, F, L, N) and "%q" for 64-bit values; forms it
// does not understand ("%lld", "%zu", "%hhd", "%Lf", "%jd", "%td") are sized as if the extra letters
// were text, and their output is cut to that size. To keep such a format from throwing the walk out of
// step with the arguments, the arguments are always taken from the list the way the C library will take
// them (ArgumentReader below); the estimate only borrows the values it needs: '*' widths and precisions
// and the %s strings.
//
// A "%c" or "%C" conversion has no size rule and stops the process at once.
//
// A bound above 1 GiB (a width such as "%2147483647d") throws std::bad_alloc before anything is allocated.
#include <cstdarg>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>

#include "String"

namespace {

constexpr long long kFormatLimit = 1LL << 30;

// The values of one conversion as the C library takes them from the argument list.
struct Taken {
    bool starWidth = false;
    int width = 0;
    bool starPrecision = false;
    int precision = 0;
    bool isNarrowString = false;
    const char* string = nullptr;
};

// Reads the arguments in the order and with the types that vsnprintf will use.
class ArgumentReader {
public:
    ArgumentReader(const char* format, va_list args) : m_cursor(format) { va_copy(m_args, args); }
    ~ArgumentReader() { va_end(m_args); }
    ArgumentReader(const ArgumentReader&) = delete;
    ArgumentReader& operator=(const ArgumentReader&) = delete;

    // Takes the arguments of every conversion that starts before `at`; when one starts exactly at `at`,
    // takes it too and returns its values. Nothing is taken once a positional ("%1$d") form is seen.
    Taken takeUpTo(const char* at) {
        Taken found;
        while (!m_positional) {
            const char* percent = strchr(m_cursor, '%');
            if (percent == nullptr || percent > at) break;
            Taken t;
            m_cursor = takeOne(percent, t);
            if (percent == at) {
                found = t;
                break;
            }
        }
        return found;
    }

private:
    enum class Length { None, Char, Short, Long, LongLong, LongDouble, IntMax, Size, PtrDiff };

    static bool isDigit(char c) { return c >= '0' && c <= '9'; }
    static bool isFlag(char c) {
        return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0' || c == '\'' || c == 'I';
    }

    // Parses the conversion at `percent` like the C library and takes its arguments; returns its end.
    const char* takeOne(const char* percent, Taken& t) {
        const char* p = percent + 1;
        while (isFlag(*p)) ++p;
        if (*p == '*') {
            t.starWidth = true;
            t.width = va_arg(m_args, int);
            ++p;
        } else {
            const char* digits = p;
            while (isDigit(*p)) ++p;
            if (*p == '$' && p != digits) return positional();
        }
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                t.starPrecision = true;
                t.precision = va_arg(m_args, int);
                ++p;
            } else {
                while (isDigit(*p)) ++p;
            }
        }
        Length length = Length::None;
        for (bool more = true; more && *p != '\0';) {
            switch (*p) {
                case 'h': length = length == Length::Short ? Length::Char : Length::Short; break;
                case 'l': length = length == Length::Long ? Length::LongLong : Length::Long; break;
                case 'q': case 'L': length = Length::LongDouble; break;  // also "long long" for integers
                case 'j': length = Length::IntMax; break;
                case 'z': case 'Z': length = Length::Size; break;
                case 't': length = Length::PtrDiff; break;
                default: more = false; continue;
            }
            ++p;
        }
        if (*p == '\0') return p;
        takeValue(*p, length, t);
        return p + 1;
    }

    void takeValue(char conversion, Length length, Taken& t) {
        switch (conversion) {
            case 'd': case 'i': case 'o': case 'u': case 'x': case 'X':
                switch (length) {
                    case Length::Long: (void)va_arg(m_args, long); break;
                    case Length::LongLong: case Length::LongDouble: (void)va_arg(m_args, long long); break;
                    case Length::IntMax: (void)va_arg(m_args, intmax_t); break;
                    case Length::Size: (void)va_arg(m_args, size_t); break;
                    case Length::PtrDiff: (void)va_arg(m_args, ptrdiff_t); break;
                    default: (void)va_arg(m_args, int); break;
                }
                break;
            case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A':
                // The C library reads "L", "q" and "ll" alike here: a long double.
                if (length == Length::LongDouble || length == Length::LongLong)
                    (void)va_arg(m_args, long double);
                else
                    (void)va_arg(m_args, double);
                break;
            case 'c': (void)va_arg(m_args, int); break;
            case 'C': (void)va_arg(m_args, wint_t); break;
            case 's':
                if (length == Length::Long) {
                    (void)va_arg(m_args, const wchar_t*);
                } else {
                    t.isNarrowString = true;
                    t.string = va_arg(m_args, const char*);
                }
                break;
            case 'S': (void)va_arg(m_args, const wchar_t*); break;
            case 'p': case 'n': (void)va_arg(m_args, void*); break;
            default: break;  // "%%", "%m" and unknown letters take nothing
        }
    }

    const char* positional() {
        m_positional = true;
        return m_cursor;
    }

    const char* m_cursor;
    va_list m_args;
    bool m_positional = false;
};

// atoi of the digits at p, saturating instead of overflowing; p moves past them.
long long readNumber(const char*& p) {
    long long n = 0;
    while (*p >= '0' && *p <= '9') {
        if (n < INT_MAX) n = n * 10 + (*p - '0');
        ++p;
    }
    return n > INT_MAX ? INT_MAX : n;
}

[[noreturn]] void characterConversionIsFatal() {
    static const char message[] = "CString::FormatV: the %c conversion is not supported; stopping\n";
    fputs(message, stderr);
    abort();
}

// Upper bound of the output length, by the library's sizing rules.
long long estimateLength(const char* format, ArgumentReader& reader) {
    long long total = 0;
    for (const char* p = format; *p != '\0'; ++p) {
        if (*p != '%') {  // a run of plain text counts one per character
            const char* next = strchrnul(p, '%');
            total += next - p;
            p = next - 1;
            continue;
        }
        if (*(p + 1) == '%') {
            ++p;
            ++total;
            continue;
        }
        Taken taken = reader.takeUpTo(p++);
        long long width = 0;
        bool starWidth = false;
        for (; *p != '\0'; ++p) {
            if (*p == '#') {
                total += 2;
            } else if (*p == '*') {
                starWidth = true;
                width = taken.starWidth ? taken.width : 0;
            } else if (*p != '-' && *p != '+' && *p != '0' && *p != ' ') {
                break;
            }
        }
        if (!starWidth) width = readNumber(p);
        if (width < 0) width = -width;  // a negative '*' width means left-justified

        long long precision = -1;
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                precision = taken.starPrecision ? taken.precision : 0;
                ++p;
            } else {
                precision = readNumber(p);
            }
        }

        bool modifier = false;
        if (*p == 'h' || *p == 'l' || *p == 'F' || *p == 'L' || *p == 'N') {
            modifier = true;
            ++p;
        }

        long long item = 0;
        switch (*p) {
            case '\0':
                return total;
            case 'c': case 'C':
                if (!modifier) characterConversionIsFatal();
                break;
            case 's':
                if (!modifier) {
                    if (!taken.isNarrowString)
                        item = 1;
                    else
                        item = taken.string == nullptr ? 6 : static_cast<long long>(strlen(taken.string));
                    if (item < 1) item = 1;
                    if (item < width) item = width;
                    if (precision >= 0 && precision < item) item = precision;
                }
                break;
            case 'd': case 'i': case 'u': case 'x': case 'X': case 'o': case 'p': case 'q':
                item = 32;
                if (precision < 0) precision = 0;
                if (item < width + precision) item = width + precision;
                break;
            case 'e': case 'f': case 'g': case 'G':
                item = 128;
                if (precision < 0) precision = 0;
                if (item < width + precision) item = width + precision;
                break;
            default:
                break;  // 'n' and anything else: no room needed
        }
        total += item;
    }
    return total;
}

}  // namespace

namespace {

// The estimate of `format`, refusing texts of more than 1 GiB.
long long boundOf(const char* format, va_list args) {
    ArgumentReader reader(format, args);
    long long bound = estimateLength(format, reader);
    if (bound > kFormatLimit) throw std::bad_alloc();
    return bound;
}

// vsnprintf limited to `bound` characters into `out`; a failed print leaves an empty text.
void printBounded(char* out, long long bound, const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    if (vsnprintf(out, static_cast<size_t>(bound) + 1, format, copy) < 0) out[0] = '\0';
    va_end(copy);
}

}  // namespace

int FormatVInto(char* buffer, int size, const char* format, va_list args) {
    if (format == nullptr) format = "";
    long long bound = boundOf(format, args);
    if (buffer == nullptr || bound >= size) return -1;
    printBounded(buffer, bound, format, args);
    return static_cast<int>(strlen(buffer));
}

void CString::FormatV(const char* format, va_list args) {
    if (format == nullptr) format = "";
    long long bound = boundOf(format, args);
    // Short texts are printed on the stack and copied into an exact-size buffer; longer ones straight
    // into a buffer of the bound (an argument may point into this string's own text). An empty result
    // still runs the print, so that "%n" stores its count.
    char small[512];
    if (bound < static_cast<long long>(sizeof small)) {
        printBounded(small, bound, format, args);
        AssignCopy(static_cast<int>(strlen(small)), small);
        return;
    }
    CString result;
    printBounded(result.GetBuffer(static_cast<int>(bound)), bound, format, args);
    result.ReleaseBuffer(-1);
    *this = result;
}

void CString::Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    FormatV(format, args);
    va_end(args);
}
