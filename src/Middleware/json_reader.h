// A JSON reader for the per-cycle path: it builds the document's tree in storage that it
// keeps from one parse to the next, so that once warmed up a parse allocates nothing. It
// accepts what cJSON_Parse accepts (one value, leading whitespace and a UTF-8 byte-order
// mark skipped, anything after the value ignored), and looks members up as
// cJSON_GetObjectItem does, so a text reads alike through either.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

enum class JsonKind : uint8_t { kNull, kFalse, kTrue, kNumber, kString, kArray, kObject };

struct JsonNode {
    JsonKind kind;
    const char* key;        // member name inside an object, else null
    const char* text;       // decoded text of a string, else null
    double number;          // value of a number, else 0
    const JsonNode* child;  // first element or member of a container
    const JsonNode* next;   // next element or member of the parent
};

class JsonReader {
public:
    // Sizes the storage for texts of up to expected_length bytes; longer ones grow it.
    explicit JsonReader(size_t expected_length = 0)
    {
        if (expected_length > 0) reserve(expected_length);
    }

    // The document's root, or null when the text is not JSON. The tree stays valid until the
    // next parse with this reader.
    const JsonNode* parse(const char* text);

private:
    struct Cursor;
    bool reserve(size_t length);
    JsonNode* new_node(JsonKind kind);
    bool parse_value(Cursor& at, JsonNode& node, int depth);
    bool parse_number(Cursor& at, JsonNode& node);
    bool parse_string(Cursor& at, const char*& out);
    bool parse_array(Cursor& at, JsonNode& node, int depth);
    bool parse_object(Cursor& at, JsonNode& node, int depth);

    std::unique_ptr<JsonNode[]> nodes_;
    size_t node_capacity_ = 0;
    size_t nodes_used_ = 0;
    std::unique_ptr<char[]> texts_;
    size_t text_capacity_ = 0;
    size_t texts_used_ = 0;
};

// The first member named key, compared without regard to ASCII case; null when absent or
// when object is not an object.
const JsonNode* json_member(const JsonNode* object, const char* key);
// Elements of an array or members of an object; 0 for anything else.
int json_size(const JsonNode* container);
