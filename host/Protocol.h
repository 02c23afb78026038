// The message protocol between the extension and passway-host, in one place each: the numbered errors with
// their texts, the fields of every message the extension sends, and the host's limits (docs/bridge.md,
// "Message protocol").
#ifndef PASSWAY_HOST_PROTOCOL_H
#define PASSWAY_HOST_PROTOCOL_H

#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace protocol {

// The numbered errors. A number, once given, keeps its meaning for good: new errors take the next number,
// none is ever renumbered or given again, and one no longer sent stays listed here and in docs/bridge.md.
enum Error {
    kBadFrame = 1,
    kUnsupportedVersion = 2,
    kUnknownOp = 3,
    kBadMessage = 4,
    kNoPlugin = 5,
    kUnknownElement = 6,
    kUnknownRequest = 7,
    kNotReady = 8,
    kUnexpectedField = 9,
    kTooManyElements = 10,
    kAttributesTooLarge = 11,
    kTooManyRequests = 12,
    kTooDeep = 13,
    kServiceHeadersTooLong = 14,
    kTooManyValues = 15,
};

// An error's message text and the field that carries its value.
struct ErrorText {
    Error code;
    const char* message;
    const char* field;
};
// Every error, by number.
const std::vector<ErrorText>& errorTexts();
const ErrorText& errorText(Error code);
// The `error` message for `code`, its field carrying `value`: a number, true, false or null as it is, a text
// cut to 4,096 bytes (a path), an array or an object as null (neither is ever walked).
nlohmann::json errorMessage(Error code, const nlohmann::json& value);

// What a log line or an error message may show of a value of the extension that nobody checked: the same,
// with a text cut to 64 bytes.
nlohmann::json shortValue(const nlohmann::json& value, size_t textBytes = 64);

// The host's limits (docs/bridge.md, "Limits"). Those of a Bridge can be lowered, for tests.
struct Limits {
    size_t elements = 64;                 // elements alive in one host (one tab)
    size_t attributeBytes = 256u << 10;   // the names and values of one element's attributes
    size_t requests = 4096;               // the plug-in's requests in flight
};
// How deep arrays and objects nest in a message: create's attributes are the deepest (the message, the
// list, a pair).
constexpr size_t kMaxDepth = 3;

// How many values a message may hold: a create of 5,000 attributes passes, and a frame of 64 MiB of
// tiny values never reaches the parser (which would take some 30 bytes for each).
constexpr size_t kMaxValues = 16384;

// The shape of a message's text, from one pass that counts the brackets, braces and commas outside strings,
// so that nothing deeper or larger is ever parsed or walked: how deep its arrays and objects nest (counted
// until it passes `depthLimit`) and about how many values they hold (an opening bracket or brace, or a
// comma, each counts one: at least every value in an array or object).
struct Shape {
    size_t depth = 0;
    size_t values = 0;
};
Shape shapeOf(const std::string& text, size_t depthLimit);

// The fields of the messages of the extension.
enum class Type { Integer, Text, TextOrNull, Boolean, Pairs /* [[text, text], ...] */ };
struct Field {
    const char* name;
    Type type;
    bool required;
};
// What the fields' table alone cannot say.
enum class Rule {
    None,
    ValueOrError,      // exactly one of `value` and `error`
    ErrorOnlyWhenNotOk  // `error` only with `ok` false
};
struct Operation {
    const char* op;
    std::vector<Field> fields;  // besides "op"
    Rule rule;
};
// The operation named `op`, or null.
const Operation* operation(const std::string& op);

// Whether `message` (an object whose "op" is `operation`'s) has exactly the operation's fields, each of
// its type. When not: `code` is kBadMessage (a field missing or of the wrong type, or neither `value` nor
// `error`) or kUnexpectedField (a field the operation does not have there), and `field` its name.
bool checkFields(const nlohmann::json& message, const Operation& operation, Error& code, std::string& field);

}  // namespace protocol

#endif
