// The protocol's errors, fields and limits.
#include "Protocol.h"

#include <algorithm>

using nlohmann::json;

namespace protocol {

namespace {

constexpr size_t kShownBytes = 64;

bool hasType(const json& value, Type type) {
    switch (type) {
        case Type::Integer: return value.is_number_integer();
        case Type::Text: return value.is_string();
        case Type::TextOrNull: return value.is_string() || value.is_null();
        case Type::Boolean: return value.is_boolean();
        case Type::Pairs:
            return value.is_array() && std::all_of(value.begin(), value.end(), [](const json& pair) {
                       return pair.is_array() && pair.size() == 2 && pair[0].is_string() && pair[1].is_string();
                   });
    }
    return false;
}

}  // namespace

const std::vector<ErrorText>& errorTexts() {
    static const std::vector<ErrorText> texts = {
        {kBadFrame, "bad frame", "length"},
        {kUnsupportedVersion, "unsupported version", "got"},
        {kUnknownOp, "unknown op", "refused"},
        {kBadMessage, "bad message", "refused"},
        {kNoPlugin, "no plug-in", "path"},
        {kUnknownElement, "unknown element", "element"},
        {kUnknownRequest, "unknown request", "request"},
        {kNotReady, "not ready", "refused"},
        {kUnexpectedField, "unexpected field", "field"},
        {kTooManyElements, "too many elements", "limit"},
        {kAttributesTooLarge, "attributes too large", "limit"},
        {kTooManyRequests, "too many requests", "limit"},
        {kTooDeep, "nested too deep", "limit"},
        {kServiceHeadersTooLong, "service reply headers too long", "limit"},
        {kTooManyValues, "too many values", "limit"},
    };
    return texts;
}

const ErrorText& errorText(Error code) {
    const std::vector<ErrorText>& texts = errorTexts();
    auto it = std::find_if(texts.begin(), texts.end(), [&](const ErrorText& t) { return t.code == code; });
    return it != texts.end() ? *it : texts[kBadMessage - 1];
}

json errorMessage(Error code, const json& value) {
    const ErrorText& text = errorText(code);
    return {{"op", "error"}, {"code", text.code}, {"message", text.message}, {text.field, shortValue(value, 4096)}};
}

json shortValue(const json& value, size_t textBytes) {
    if (value.is_array() || value.is_object() || value.is_binary()) return nullptr;
    if (value.is_string() && value.get_ref<const std::string&>().size() > textBytes)
        return value.get_ref<const std::string&>().substr(0, textBytes);
    return value;
}

Shape shapeOf(const std::string& text, size_t depthLimit) {
    Shape shape;
    size_t depth = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i;  // the escaped character, a quote included
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            ++shape.values;
            shape.depth = std::max(shape.depth, ++depth);
            if (depth > depthLimit) return shape;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;  // an unmatched one makes the text no JSON, which the parser refuses
        } else if (c == ',') {
            ++shape.values;
        }
    }
    return shape;
}

const Operation* operation(const std::string& op) {
    static const std::vector<Operation> operations = {
        {"hello", {{"version", Type::Integer, true}, {"userAgent", Type::Text, true}, {"origin", Type::Text, false}},
         Rule::None},
        {"create", {{"element", Type::Integer, true}, {"attributes", Type::Pairs, true}}, Rule::None},
        {"destroy", {{"element", Type::Integer, true}}, Rule::None},
        {"result", {{"call", Type::Integer, true}, {"value", Type::TextOrNull, false}, {"error", Type::Text, false}},
         Rule::ValueOrError},
        {"response",
         {{"request", Type::Integer, true}, {"status", Type::Integer, true}, {"mimeType", Type::Text, true}},
         Rule::None},
        {"data", {{"request", Type::Integer, true}, {"data", Type::Text, true}}, Rule::None},
        {"end", {{"request", Type::Integer, true}, {"ok", Type::Boolean, true}, {"error", Type::Text, false}},
         Rule::ErrorOnlyWhenNotOk},
    };
    for (const Operation& candidate : operations)
        if (op == candidate.op) return &candidate;
    return nullptr;
}

bool checkFields(const json& message, const Operation& operation, Error& code, std::string& field) {
    auto refuse = [&](Error error, const std::string& name) {
        code = error;
        field = name.substr(0, kShownBytes);
        return false;
    };
    for (auto it = message.begin(); it != message.end(); ++it) {
        const std::string& name = it.key();
        if (name == "op") continue;
        auto known = std::find_if(operation.fields.begin(), operation.fields.end(),
                                  [&](const Field& f) { return name == f.name; });
        if (known == operation.fields.end()) return refuse(kUnexpectedField, name);
    }
    for (const Field& f : operation.fields) {
        auto it = message.find(f.name);
        if (it == message.end() ? f.required : !hasType(*it, f.type)) return refuse(kBadMessage, f.name);
    }
    switch (operation.rule) {
        case Rule::None: break;
        case Rule::ValueOrError:
            if (message.contains("value") && message.contains("error")) return refuse(kUnexpectedField, "error");
            if (!message.contains("value") && !message.contains("error")) return refuse(kBadMessage, "value");
            break;
        case Rule::ErrorOnlyWhenNotOk:
            if (message.contains("error") && message.at("ok").get<bool>()) return refuse(kUnexpectedField, "error");
            break;
    }
    return true;
}

}  // namespace protocol
