#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace korin::settings {

// The text of an INI file, taken apart. Values are the bytes right of the equals
// sign without blanks around them; values above the first section are in section "".
// Comments keep their place. A line that is nothing known becomes a comment. Not
// synchronised.
class IniText {
 public:
  IniText();  // an empty file
  ~IniText();

  // Called once, on an empty object. False when the bytes are no INI text: they hold a
  // null byte, or lines that are nothing known and no section. The object stays an
  // empty file then.
  bool Load(const std::string& bytes);
  std::string Save() const;

  std::optional<std::string> Get(const std::string& section, const std::string& key) const;
  // Each tells whether the text changed.
  bool Set(const std::string& section, const std::string& key, const std::string& value);
  bool Remove(const std::string& section, const std::string& key);

 private:
  struct Parsed;

  std::unique_ptr<Parsed> m_parsed;
  std::string m_tail;  // comment behind the last value
};

}  // namespace korin::settings
