#include "json.h"

#include <fmt/format.h>

#include <cmath>

#include "platform/text.h"

namespace korin::app {

void JsonWriter::Separate() {
  if (m_needsComma) m_text += ',';
  m_needsComma = true;
}

void JsonWriter::Quote(std::string_view text) {
  m_text += '"';
  for (const char c : platform::ToUtf8(platform::FromUtf8(text))) {
    if (c == '"' || c == '\\') {
      m_text += '\\';
      m_text += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      m_text += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
    } else {
      m_text += c;
    }
  }
  m_text += '"';
}

JsonWriter& JsonWriter::BeginObject() {
  Separate();
  m_text += '{';
  m_needsComma = false;
  return *this;
}

JsonWriter& JsonWriter::EndObject() {
  m_text += '}';
  m_needsComma = true;
  return *this;
}

JsonWriter& JsonWriter::BeginArray() {
  Separate();
  m_text += '[';
  m_needsComma = false;
  return *this;
}

JsonWriter& JsonWriter::EndArray() {
  m_text += ']';
  m_needsComma = true;
  return *this;
}

JsonWriter& JsonWriter::Key(std::string_view name) {
  Separate();
  Quote(name);
  m_text += ':';
  m_needsComma = false;
  return *this;
}

JsonWriter& JsonWriter::Value(std::string_view text) {
  Separate();
  Quote(text);
  return *this;
}

JsonWriter& JsonWriter::Value(double number) {
  Separate();
  m_text += std::isfinite(number) ? fmt::format("{}", number) : "null";
  return *this;
}

JsonWriter& JsonWriter::Value(bool value) {
  Separate();
  m_text += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::Value(std::int64_t number) {
  Separate();
  m_text += std::to_string(number);
  return *this;
}

}  // namespace korin::app
