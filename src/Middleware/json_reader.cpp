#include "Middleware/json_reader.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Containers nested deeper than this make the text unreadable, as they do for cJSON.
constexpr int kNestingLimit = 1000;
// Up to this many digits an integer converts to a double exactly without strtod.
constexpr size_t kExactDigits = 15;

bool is_number_char(char c)
{
    return (c >= '0' && c <= '9') || c == '+' || c == '-' || c == 'e' || c == 'E' || c == '.';
}

char ascii_lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Four hex digits; an invalid digit yields 0 for the whole sequence, as cJSON reads it.
unsigned parse_hex4(const char* in)
{
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = in[i];
        unsigned digit;
        if (c >= '0' && c <= '9')
            digit = static_cast<unsigned>(c - '0');
        else if (c >= 'a' && c <= 'f')
            digit = static_cast<unsigned>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            digit = static_cast<unsigned>(c - 'A' + 10);
        else
            return 0;
        value = (value << 4) | digit;
    }
    return value;
}

constexpr unsigned kHighSurrogateFirst = 0xD800;
constexpr unsigned kLowSurrogateFirst = 0xDC00;
constexpr unsigned kLowSurrogateLast = 0xDFFF;
constexpr size_t kEscapeLength = 6;  // \uXXXX

// Decodes a \u escape (a surrogate pair takes two) at in, writing UTF-8 at out. Returns the
// escape's length in the source, or 0 when it is malformed.
size_t decode_utf16_escape(const char* in, const char* end, char*& out)
{
    if (static_cast<size_t>(end - in) < kEscapeLength) return 0;
    const unsigned first = parse_hex4(in + 2);
    if (first >= kLowSurrogateFirst && first <= kLowSurrogateLast) return 0;
    unsigned codepoint = first;
    size_t length = kEscapeLength;
    if (first >= kHighSurrogateFirst && first < kLowSurrogateFirst) {
        const char* second_at = in + kEscapeLength;
        if (static_cast<size_t>(end - second_at) < kEscapeLength || second_at[0] != '\\' || second_at[1] != 'u')
            return 0;
        const unsigned second = parse_hex4(second_at + 2);
        if (second < kLowSurrogateFirst || second > kLowSurrogateLast) return 0;
        codepoint = 0x10000 + (((first & 0x3FF) << 10) | (second & 0x3FF));
        length = 2 * kEscapeLength;
    }
    if (codepoint < 0x80) {
        *out++ = static_cast<char>(codepoint);
    } else if (codepoint < 0x800) {
        *out++ = static_cast<char>(0xC0 | (codepoint >> 6));
        *out++ = static_cast<char>(0x80 | (codepoint & 0x3F));
    } else if (codepoint < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (codepoint >> 12));
        *out++ = static_cast<char>(0x80 | ((codepoint >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (codepoint & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (codepoint >> 18));
        *out++ = static_cast<char>(0x80 | ((codepoint >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((codepoint >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (codepoint & 0x3F));
    }
    return length;
}

}  // namespace

struct JsonReader::Cursor {
    const char* p;
    const char* end;

    bool at_end() const { return p >= end; }
    void skip_whitespace()
    {
        while (p < end && static_cast<unsigned char>(*p) <= ' ') ++p;
    }
    bool starts_with(const char* word, size_t length) const
    {
        return static_cast<size_t>(end - p) >= length && std::memcmp(p, word, length) == 0;
    }
};

bool JsonReader::reserve(size_t length)
{
    // Every value but the first is preceded by a separator of its own or is the first element
    // of a container whose brackets count twice, so a text of n bytes holds at most (n + 1) / 2
    // values. Decoded texts, with their terminators, never outgrow their quoted source.
    const size_t nodes = (length + 1) / 2 + 1;
    const size_t texts = length + 1;
    if (nodes > node_capacity_) {
        nodes_.reset(new (std::nothrow) JsonNode[nodes]);
        node_capacity_ = nodes_ ? nodes : 0;
    }
    if (texts > text_capacity_) {
        texts_.reset(new (std::nothrow) char[texts]);
        text_capacity_ = texts_ ? texts : 0;
    }
    return nodes <= node_capacity_ && texts <= text_capacity_;
}

JsonNode* JsonReader::new_node(JsonKind kind)
{
    if (nodes_used_ >= node_capacity_) return nullptr;
    JsonNode* node = &nodes_[nodes_used_++];
    *node = JsonNode{kind, nullptr, nullptr, 0.0, nullptr, nullptr};
    return node;
}

const JsonNode* JsonReader::parse(const char* text)
{
    if (text == nullptr) return nullptr;
    const size_t length = std::strlen(text);
    if (!reserve(length)) return nullptr;
    nodes_used_ = 0;
    texts_used_ = 0;
    Cursor at{text, text + length};
    if (at.starts_with("\xEF\xBB\xBF", 3)) at.p += 3;
    at.skip_whitespace();
    JsonNode* root = new_node(JsonKind::kNull);
    if (root == nullptr || !parse_value(at, *root, 0)) return nullptr;
    return root;
}

bool JsonReader::parse_value(Cursor& at, JsonNode& node, int depth)
{
    if (at.at_end()) return false;
    if (at.starts_with("null", 4)) {
        node.kind = JsonKind::kNull;
        at.p += 4;
        return true;
    }
    if (at.starts_with("false", 5)) {
        node.kind = JsonKind::kFalse;
        at.p += 5;
        return true;
    }
    if (at.starts_with("true", 4)) {
        node.kind = JsonKind::kTrue;
        at.p += 4;
        return true;
    }
    const char c = *at.p;
    if (c == '"') {
        node.kind = JsonKind::kString;
        return parse_string(at, node.text);
    }
    if (c == '-' || (c >= '0' && c <= '9')) return parse_number(at, node);
    if (c == '[') return parse_array(at, node, depth);
    if (c == '{') return parse_object(at, node, depth);
    return false;
}

bool JsonReader::parse_number(Cursor& at, JsonNode& node)
{
    size_t span = 0;
    while (at.p + span < at.end && is_number_char(at.p[span])) ++span;
    node.kind = JsonKind::kNumber;

    // Plain integers, all the wire carries, convert exactly without the C library.
    const bool negative = at.p[0] == '-';
    const size_t digits = span - (negative ? 1 : 0);
    if (digits >= 1 && digits <= kExactDigits) {
        double value = 0.0;
        size_t i = negative ? 1 : 0;
        for (; i < span && at.p[i] >= '0' && at.p[i] <= '9'; ++i) value = value * 10.0 + (at.p[i] - '0');
        if (i == span) {
            node.number = negative ? -value : value;
            at.p += span;
            return true;
        }
    }
    // Anything else goes through strtod with the locale's decimal point, as cJSON does. The
    // copy goes to the unused end of the text store, which the number's own bytes guarantee.
    char* const number = &texts_[texts_used_];
    const char point = *std::localeconv()->decimal_point;
    for (size_t i = 0; i < span; ++i) number[i] = at.p[i] == '.' ? point : at.p[i];
    number[span] = '\0';
    char* after = nullptr;
    node.number = std::strtod(number, &after);
    if (after == number) return false;
    at.p += after - number;
    return true;
}

bool JsonReader::parse_string(Cursor& at, const char*& out)
{
    if (at.at_end() || *at.p != '"') return false;
    const char* begin = at.p + 1;
    const char* close = begin;
    while (close < at.end && *close != '"') {
        if (*close == '\\') {
            if (close + 1 >= at.end) return false;
            ++close;
        }
        ++close;
    }
    if (close >= at.end) return false;

    char* const start = &texts_[texts_used_];
    char* write = start;
    for (const char* read = begin; read < close;) {
        if (*read != '\\') {
            *write++ = *read++;
            continue;
        }
        switch (read[1]) {
        case 'b': *write++ = '\b'; break;
        case 'f': *write++ = '\f'; break;
        case 'n': *write++ = '\n'; break;
        case 'r': *write++ = '\r'; break;
        case 't': *write++ = '\t'; break;
        case '"':
        case '\\':
        case '/': *write++ = read[1]; break;
        case 'u': {
            const size_t length = decode_utf16_escape(read, close, write);
            if (length == 0) return false;
            read += length;
            continue;
        }
        default: return false;
        }
        read += 2;
    }
    *write++ = '\0';
    texts_used_ += static_cast<size_t>(write - start);
    out = start;
    at.p = close + 1;
    return true;
}

bool JsonReader::parse_array(Cursor& at, JsonNode& node, int depth)
{
    if (depth >= kNestingLimit) return false;
    node.kind = JsonKind::kArray;
    ++at.p;  // '['
    at.skip_whitespace();
    if (!at.at_end() && *at.p == ']') {
        ++at.p;
        return true;
    }
    JsonNode* last = nullptr;
    for (;;) {
        JsonNode* element = new_node(JsonKind::kNull);
        if (element == nullptr || !parse_value(at, *element, depth + 1)) return false;
        (last ? last->next : node.child) = element;
        last = element;
        at.skip_whitespace();
        if (at.at_end() || *at.p != ',') break;
        ++at.p;
        at.skip_whitespace();
    }
    if (at.at_end() || *at.p != ']') return false;
    ++at.p;
    return true;
}

bool JsonReader::parse_object(Cursor& at, JsonNode& node, int depth)
{
    if (depth >= kNestingLimit) return false;
    node.kind = JsonKind::kObject;
    ++at.p;  // '{'
    at.skip_whitespace();
    if (!at.at_end() && *at.p == '}') {
        ++at.p;
        return true;
    }
    JsonNode* last = nullptr;
    for (;;) {
        JsonNode* member = new_node(JsonKind::kNull);
        if (member == nullptr || !parse_string(at, member->key)) return false;
        at.skip_whitespace();
        if (at.at_end() || *at.p != ':') return false;
        ++at.p;
        at.skip_whitespace();
        if (!parse_value(at, *member, depth + 1)) return false;
        (last ? last->next : node.child) = member;
        last = member;
        at.skip_whitespace();
        if (at.at_end() || *at.p != ',') break;
        ++at.p;
        at.skip_whitespace();
    }
    if (at.at_end() || *at.p != '}') return false;
    ++at.p;
    return true;
}

const JsonNode* json_member(const JsonNode* object, const char* key)
{
    if (object == nullptr || key == nullptr || object->kind != JsonKind::kObject) return nullptr;
    for (const JsonNode* member = object->child; member != nullptr; member = member->next) {
        const char* a = member->key;
        const char* b = key;
        while (ascii_lower(*a) == ascii_lower(*b) && *a != '\0') ++a, ++b;
        if (ascii_lower(*a) == ascii_lower(*b)) return member;
    }
    return nullptr;
}

int json_size(const JsonNode* container)
{
    if (container == nullptr || (container->kind != JsonKind::kArray && container->kind != JsonKind::kObject))
        return 0;
    int count = 0;
    for (const JsonNode* child = container->child; child != nullptr; child = child->next) ++count;
    return count;
}
