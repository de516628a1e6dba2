// The settings file as anybody may have edited it, and values as they stand there:
// what is read, changed and written again loses nothing else.
#include <cmath>
#include <optional>
#include <string>
#include <utility>

#include "fuzz_input.h"
#include "korinimage/config.h"
#include "platform/text.h"
#include "scratch_posix.h"
#include "settings/ini_text.h"
#include "settings/value_text.h"

using korin::fuzz::Input;
using korin::fuzz::Require;
namespace settings = korin::settings;

namespace {

// What the library itself looks for, in the words of any hand.
constexpr std::pair<const char*, const char*> kNames[] = {{"VMManager", "BlockSize"},
                                                          {"vmmanager", "MEMORYRATIO"},
                                                          {"VMManager", "VMDrive"},
                                                          {"IO", "FitsSecFrac"},
                                                          {"", "a"},
                                                          {"a]b", "c=d"}};

void ReadAsTyped(const korin::Config& config) {
  for (const auto& [section, key] : kNames) {
    config.ReadInt(section, key, 1);
    config.ReadInt64(section, key, 2);
    config.ReadBool(section, key, true);
    config.ReadString(section, key, L"x");
    Require(std::isfinite(config.ReadDouble(section, key, 3.0)), "a number is finite");
  }
}

// Through the file, as a manager that starts reads it.
void ReadFile(std::string_view bytes) {
  const korin::fuzz::MemoryFile file(bytes);
  ReadAsTyped(*korin::Config::OpenFile(file.Path()));
}

void Edit(const std::string& bytes, const std::string& section, const std::string& key,
          const std::wstring& value) {
  settings::IniText text;
  const bool loaded = text.Load(bytes);
  const auto read = [](const settings::IniText& from, const auto& name) {
    return from.Get(settings::EncodeSection(name.first), settings::EncodeKey(name.second));
  };
  std::optional<std::string> before[std::size(kNames)];
  for (std::size_t i = 0; i < std::size(kNames); ++i) before[i] = read(text, kNames[i]);
  Require(loaded || !before[0], "what is no settings text is empty");

  const std::string stored = settings::EncodeValue(value);
  const std::string inSection = settings::EncodeSection(section);
  const std::string asKey = settings::EncodeKey(key);
  text.Set(inSection, asKey, stored);
  const std::string saved = text.Save();
  settings::IniText again;
  Require(again.Load(saved), "what was saved is settings text");
  Require(again.Get(inSection, asKey) == stored, "a value set is a value read");
  for (std::size_t i = 0; i < std::size(kNames); ++i) {
    const auto now = read(text, kNames[i]);
    Require(read(again, kNames[i]) == now, "saving changes no value");
    Require(now == before[i] || now == stored, "other values stay");
  }
  // Blank lines beside comments and empty sections may come and go, but the text
  // does not change for ever.
  std::string now = again.Save();
  std::string last;
  for (int round = 0; round < 4 && now != last; ++round) {
    settings::IniText next;
    Require(next.Load(now), "what was saved again is settings text");
    last = std::exchange(now, next.Save());
  }
  Require(now == last, "saving comes to rest");
  again.Remove(inSection, asKey);
  Require(!again.Get(inSection, asKey), "a value removed is gone");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The file, a null byte, and a change of it.
  Input input(data, size);
  const std::string bytes = input.TakeText('\0', 1 << 16);
  ReadFile(bytes);
  const std::string section = input.TakeText();
  const std::string key = input.TakeText();
  const std::string typed = input.TakeText('\0', 1 << 16);
  const std::wstring value = korin::platform::FromUtf8(typed);
  Require(settings::DecodeValue(settings::EncodeValue(value)) == value, "a value stays the same");
  settings::DecodeValue(typed);
  settings::ParseInteger(typed);
  settings::ParseBool(typed);
  const auto number = settings::ParseDouble(typed);
  Require(!number || std::isfinite(*number), "a number is finite");
  Edit(bytes, section, key, value);
  // Null bytes and all.
  ReadFile({reinterpret_cast<const char*>(data), size});
  return 0;
}
