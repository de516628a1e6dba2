#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace korin::app {

// Writes JSON text: objects and arrays nest by Begin and End, commas come by
// themselves. Numbers read back exactly; NaN and infinities, which JSON lacks, are
// null. Text is UTF-8; bytes that are not become U+FFFD.
class JsonWriter {
 public:
  JsonWriter& BeginObject();
  JsonWriter& EndObject();
  JsonWriter& BeginArray();
  JsonWriter& EndArray();
  JsonWriter& Key(std::string_view name);
  JsonWriter& Value(std::string_view text);
  JsonWriter& Value(const char* text) { return Value(std::string_view(text)); }
  JsonWriter& Value(double number);
  JsonWriter& Value(bool value);
  JsonWriter& Value(std::int64_t number);
  JsonWriter& Value(int number) { return Value(std::int64_t{number}); }

  template <typename T>
  JsonWriter& Field(std::string_view name, const T& value) {
    return Key(name).Value(value);
  }

  const std::string& Text() const { return m_text; }

 private:
  void Separate();
  void Quote(std::string_view text);

  std::string m_text;
  bool m_needsComma = false;
};

}  // namespace korin::app
