// JSON text for the tool's reports, one value at a time. Strings come in two kinds, each kept
// exact: file paths are bytes (on POSIX a name need not be UTF-8: bytes that are not UTF-8
// become the escapes \udc80..\udcff, which Python's json and os.fsencode turn back into the
// same bytes), and names inside a compound file are UTF-16 (an unpaired surrogate is written
// as its \u escape).
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vrk::cli {

// A JSON string holding the bytes of a path (or any text that should be UTF-8).
std::string json_bytes(const std::string& bytes);
// A JSON string holding UTF-16 units.
std::string json_utf16(const std::u16string& units);

// One JSON object, fields in the order they are added; values are JSON texts.
class Json_Object {
  public:
    Json_Object& raw(const std::string& key, std::string json);
    Json_Object& text(const std::string& key, const std::string& bytes) {
        return raw(key, json_bytes(bytes));
    }
    Json_Object& number(const std::string& key, int64_t value) {
        return raw(key, std::to_string(value));
    }
    Json_Object& unsigned_number(const std::string& key, uint64_t value) {
        return raw(key, std::to_string(value));
    }
    Json_Object& boolean(const std::string& key, bool value) {
        return raw(key, value ? "true" : "false");
    }
    std::string str() const;

  private:
    std::vector<std::pair<std::string, std::string>> m_fields;
};

// A JSON array of JSON texts.
std::string json_array(const std::vector<std::string>& values);

}  // namespace vrk::cli
