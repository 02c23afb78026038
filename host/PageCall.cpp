// Reading a javascript: URL into a page function's name and arguments.
#include "PageCall.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kScheme[] = "javascript:";

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

std::string trimmed(const std::string& text) {
    size_t begin = 0, end = text.size();
    while (begin < end && isSpace(text[begin])) ++begin;
    while (end > begin && isSpace(text[end - 1])) --end;
    return text.substr(begin, end - begin);
}

bool isIdentifier(const std::string& name) {
    if (name.empty() || isdigit(static_cast<unsigned char>(name[0]))) return false;
    for (char c : name)
        if (!isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '$') return false;
    return true;
}

void appendUtf8(std::string& out, unsigned long code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// `count` hex digits at text[at]: their value, or -1.
long hexDigits(const std::string& text, size_t at, size_t count) {
    if (at + count > text.size()) return -1;
    long value = 0;
    for (size_t i = 0; i < count; ++i) {
        int digit = hexValue(text[at + i]);
        if (digit < 0) return -1;
        value = value * 16 + digit;
    }
    return value;
}

// The text of a string literal's body with its escapes read as JavaScript reads them.
std::string unescaped(const std::string& body) {
    std::string out;
    out.reserve(body.size());
    for (size_t i = 0; i < body.size(); ++i) {
        char c = body[i];
        if (c != '\\' || i + 1 == body.size()) {
            out += c;
            continue;
        }
        char e = body[++i];
        switch (e) {
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            case 'b': out += '\b'; break;
            case 'f': out += '\f'; break;
            case 'v': out += '\v'; break;
            case '0': out += '\0'; break;
            case '\n': break;  // a line continuation
            case 'x': {
                long code = hexDigits(body, i + 1, 2);
                if (code < 0) {
                    out += e;
                    break;
                }
                appendUtf8(out, static_cast<unsigned long>(code));
                i += 2;
                break;
            }
            case 'u': {
                long code = hexDigits(body, i + 1, 4);
                if (code >= 0) {
                    appendUtf8(out, static_cast<unsigned long>(code));
                    i += 4;
                    break;
                }
                size_t close = body.find('}', i);
                if (i + 1 < body.size() && body[i + 1] == '{' && close != std::string::npos && close - i - 2 <= 6 &&
                    close > i + 2) {
                    code = hexDigits(body, i + 2, close - i - 2);
                    if (code >= 0 && code <= 0x10FFFF) {
                        appendUtf8(out, static_cast<unsigned long>(code));
                        i = close;
                        break;
                    }
                }
                out += e;
                break;
            }
            default: out += e; break;  // \' \" \\ and any other character stand for themselves
        }
    }
    return out;
}

// A JavaScript number literal with an optional sign: decimal (with fraction and exponent) or hexadecimal.
bool readNumber(const std::string& text, double& number) {
    size_t i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    std::string literal = text.substr(i);
    if (literal.empty()) return false;
    if (literal.size() > 2 && literal[0] == '0' && (literal[1] == 'x' || literal[1] == 'X')) {
        for (size_t k = 2; k < literal.size(); ++k)
            if (hexValue(literal[k]) < 0) return false;
        number = static_cast<double>(strtoull(literal.c_str() + 2, nullptr, 16));
    } else {
        size_t k = 0, digits = 0;
        while (k < literal.size() && isdigit(static_cast<unsigned char>(literal[k]))) ++k, ++digits;
        if (k < literal.size() && literal[k] == '.') {
            ++k;
            while (k < literal.size() && isdigit(static_cast<unsigned char>(literal[k]))) ++k, ++digits;
        }
        if (digits == 0) return false;
        if (k < literal.size() && (literal[k] == 'e' || literal[k] == 'E')) {
            ++k;
            if (k < literal.size() && (literal[k] == '+' || literal[k] == '-')) ++k;
            size_t exponent = 0;
            while (k < literal.size() && isdigit(static_cast<unsigned char>(literal[k]))) ++k, ++exponent;
            if (exponent == 0) return false;
        }
        if (k != literal.size()) return false;
        number = strtod(literal.c_str(), nullptr);
    }
    if (negative) number = -number;
    return true;
}

}  // namespace

std::string percentDecode(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        long byte = text[i] == '%' ? hexDigits(text, i + 1, 2) : -1;
        if (byte < 0) {
            out += text[i];
        } else {
            out += static_cast<char>(byte);
            i += 2;
        }
    }
    return out;
}

bool parsePageCall(const std::string& url, PageCall& call, std::string& why) {
    call = PageCall();
    if (url.size() < strlen(kScheme) || strncasecmp(url.c_str(), kScheme, strlen(kScheme)) != 0) {
        why = "not a javascript: URL";
        return false;
    }
    std::string code = trimmed(percentDecode(url.substr(strlen(kScheme))));
    if (!code.empty() && code.back() == ';') code = trimmed(code.substr(0, code.size() - 1));
    size_t open = code.find('(');
    if (open == std::string::npos || code.empty() || code.back() != ')') {
        why = "not a call";
        return false;
    }
    call.function = trimmed(code.substr(0, open));
    if (!isIdentifier(call.function)) {
        why = "not a plain function name";
        return false;
    }
    std::string inside = trimmed(code.substr(open + 1, code.size() - open - 2));
    if (inside.empty()) return true;
    PageCall::Argument argument;
    char quote = inside[0];
    if ((quote == '\'' || quote == '"') && inside.size() >= 2 && inside.back() == quote) {
        argument.text = unescaped(inside.substr(1, inside.size() - 2));
    } else if (readNumber(inside, argument.number)) {
        argument.isNumber = true;
    } else {
        why = "argument is neither a number nor a quoted text";
        return false;
    }
    call.arguments.push_back(argument);
    return true;
}
