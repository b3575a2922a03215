// The allocation-free reader must read every text exactly as cJSON does: the same texts
// accepted, the same tree, the same member found. cJSON is the reference throughout.
#include <cJSON.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <string>

#include "Middleware/json_reader.h"

namespace {

// Empty when the trees agree, else where they part.
std::string difference(const cJSON* expected, const JsonNode* actual, const std::string& path = "$")
{
    auto kind_of = [](const cJSON* c) {
        if (cJSON_IsNull(c)) return JsonKind::kNull;
        if (cJSON_IsFalse(c)) return JsonKind::kFalse;
        if (cJSON_IsTrue(c)) return JsonKind::kTrue;
        if (cJSON_IsNumber(c)) return JsonKind::kNumber;
        if (cJSON_IsString(c)) return JsonKind::kString;
        if (cJSON_IsArray(c)) return JsonKind::kArray;
        return JsonKind::kObject;
    };
    if (kind_of(expected) != actual->kind) return path + ": kind";
    switch (actual->kind) {
    case JsonKind::kNumber:
        // Bitwise, so that -0 and 0 differ and infinities compare.
        if (std::memcmp(&expected->valuedouble, &actual->number, sizeof(double)) != 0)
            return path + ": number " + std::to_string(expected->valuedouble) + " vs " + std::to_string(actual->number);
        return "";
    case JsonKind::kString:
        return std::strcmp(expected->valuestring, actual->text) == 0 ? "" : path + ": text";
    case JsonKind::kArray:
    case JsonKind::kObject: {
        const cJSON* e = expected->child;
        const JsonNode* a = actual->child;
        for (int i = 0; e != nullptr && a != nullptr; e = e->next, a = a->next, ++i) {
            const std::string at = path + "[" + std::to_string(i) + "]";
            if (actual->kind == JsonKind::kObject && std::strcmp(e->string, a->key) != 0) return at + ": key";
            std::string inner = difference(e, a, at);
            if (!inner.empty()) return inner;
        }
        return (e == nullptr && a == nullptr) ? "" : path + ": size";
    }
    default: return "";
    }
}

// Reads the text both ways; empty when they agree.
std::string compare_with_cjson(JsonReader& reader, const std::string& text)
{
    cJSON* expected = cJSON_Parse(text.c_str());
    const JsonNode* actual = reader.parse(text.c_str());
    std::string result;
    if ((expected == nullptr) != (actual == nullptr))
        result = std::string("cJSON ") + (expected ? "accepts" : "refuses") + ", reader " + (actual ? "accepts" : "refuses");
    else if (expected != nullptr)
        result = difference(expected, actual);
    cJSON_Delete(expected);
    return result;
}

TEST(JsonReader, ReadsEdgeCasesAsCJsonDoes)
{
    const std::string deep_ok = std::string(1000, '[') + std::string(1000, ']');
    const std::string too_deep = std::string(1001, '[') + std::string(1001, ']');
    const std::string long_number = "[" + std::string(70, '7') + "," + std::string(2000, '9') + ".5]";
    const std::string cases[] = {
        "", "   ", "\xEF\xBB\xBF{\"a\":1}", "\xEF\xBB\xBF", " \t\r\n{ \"a\" : [ 1 , 2 ] } ", "{\"a\":1} trailing",
        "nullx", "null", "true", "false", "tru", "[true,false,null]", "[nul]",
        "0", "-0", "[-0,0,007,-12]", "[1.5,-2.25e3,1E+2,6e-1]", "[1e999,-1e999]", "-", "[-]", "[1.2.3]", "[.5]",
        "[+5]", "[1-2]", "[1.5e3.2]", "[123456789012345,1234567890123456,-999999999999999999]", long_number, "[4294967296,4294967295.9]",
        "\"plain\"", R"("esc \" \\ \/ \b \f \n \r \t")", R"("\u00e9\u20ac\ud83d\ude00")", R"("\ud83d")",
        R"("\ude00")", R"("\ud83dx")", R"("\u12")", R"("\uZZZZ!")", R"("\x")", "\"unterminated", "\"ends in \\",
        "[1,]", "[1 2]", "[", "]", "{", "{}", "[]", "{\"a\"}", "{\"a\":}", "{1:2}", "{\"a\":1,}", "{\"a\":1 \"b\":2}",
        R"({"a":{"b":{"c":[{"d":"e"}]}}})", R"({"":""})", "\"tab\tinside\"", deep_ok, too_deep,
    };
    JsonReader reader;
    for (const std::string& text : cases) EXPECT_EQ(compare_with_cjson(reader, text), "") << text.substr(0, 80);
}

TEST(JsonReader, MemberLookupIgnoresCaseAndTakesTheFirst)
{
    const char* text = R"({"Joint_Status":1,"joint_status":2,"a":3,"":4,"ab":5})";
    cJSON* expected = cJSON_Parse(text);
    JsonReader reader;
    const JsonNode* root = reader.parse(text);
    ASSERT_NE(root, nullptr);
    for (const char* key : {"joint_status", "JOINT_STATUS", "a", "A", "", "ab", "abc", "b"}) {
        const cJSON* e = cJSON_GetObjectItem(expected, key);
        const JsonNode* a = json_member(root, key);
        ASSERT_EQ(e == nullptr, a == nullptr) << key;
        if (e != nullptr) {
            EXPECT_EQ(e->valuedouble, a->number) << key;
        }
    }
    EXPECT_EQ(json_member(root->child, "a"), nullptr);  // not an object
    EXPECT_EQ(json_size(root), 5);
    cJSON_Delete(expected);
}

// --- Seeded random documents, then damaged ones -------------------------------------------

class RandomJson {
public:
    explicit RandomJson(uint32_t seed) : rng_(seed) {}

    std::string document() { return space() + value(0) + space(); }

    // Cuts, drops or overwrites a byte, or inserts one from JSON's own alphabet.
    std::string damaged(std::string text)
    {
        static const char kAlphabet[] = "{}[]\",:\\-+.eE0123456789 \tntfu";
        if (text.empty()) return text;
        const size_t at = pick(text.size());
        switch (pick(4)) {
        case 0: text.resize(at); break;
        case 1: text.erase(at, 1); break;
        case 2: text[at] = kAlphabet[pick(sizeof kAlphabet - 1)]; break;
        default: text.insert(at, 1, kAlphabet[pick(sizeof kAlphabet - 1)]); break;
        }
        return text;
    }

private:
    size_t pick(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng_); }
    std::string space()
    {
        static const char* kSpaces[] = {"", "", "", " ", "\n", "\t ", "\r\n  "};
        return kSpaces[pick(7)];
    }
    std::string number()
    {
        static const char* kForms[] = {"0", "-0", "17", "-4096", "4294967295", "4294967296", "123456789012345678",
                                       "1.5", "-0.001", "2e10", "7E-3", "1e400"};
        if (pick(3) == 0) return kForms[pick(12)];
        return std::to_string(static_cast<int>(pick(2000000)) - 1000000);
    }
    std::string text()
    {
        static const char* kPieces[] = {"a", "Z", "move_J", "\\\"", "\\\\", "\\n", "\\/", "\\t", "\\u0041", "\\u00e9", "\\ud83d\\ude00", " ", "é"};
        std::string s = "\"";
        for (size_t n = pick(5); n > 0; --n) s += kPieces[pick(std::size(kPieces))];
        return s + "\"";
    }
    std::string value(int depth)
    {
        // The top is always a container; below, containers thin out with depth.
        const size_t kind = depth == 0 ? 5 + pick(2) : depth >= 4 ? pick(5) : pick(9);
        switch (kind) {
        case 0: return number();
        case 1: return text();
        case 2: return pick(2) ? "true" : "false";
        case 3: return "null";
        case 4: return number();
        case 5:
        case 7: {
            std::string s = "[" + space();
            for (size_t n = pick(7), i = 0; i < n; ++i) s += (i ? "," + space() : "") + value(depth + 1) + space();
            return s + "]";
        }
        default: {
            std::string s = "{" + space();
            for (size_t n = pick(7), i = 0; i < n; ++i)
                s += (i ? "," + space() : "") + text() + space() + ":" + space() + value(depth + 1) + space();
            return s + "}";
        }
        }
    }

    std::mt19937 rng_;
};

int rounds()
{
    const char* configured = std::getenv("ZK_JSON_READER_ROUNDS");
    return configured ? std::atoi(configured) : 3000;
}

TEST(JsonReader, RandomAndDamagedDocumentsReadAsCJsonReadsThem)
{
    RandomJson generate(20260401);
    JsonReader reader(64);  // small at first, so that growing is exercised too
    for (int round = 0; round < rounds(); ++round) {
        std::string text = generate.document();
        ASSERT_EQ(compare_with_cjson(reader, text), "") << text;
        for (int damage = 0; damage < 3; ++damage) {
            text = generate.damaged(text);
            ASSERT_EQ(compare_with_cjson(reader, text), "") << text;
        }
    }
}

}  // namespace
