#include "settings/ini_text.h"

#include <new>

// The library's own code as templates, for plain bytes only.
#define SI_NO_CONVERSION
#define SI_IMPLEMENTATION
#include <SimpleIni.h>

namespace korin::settings {

namespace {

// A section put behind the last line while loading: it catches the comment that
// would otherwise belong to nothing and be lost.
constexpr const char* kSentinel = "\x01 end";

constexpr std::string_view kBom = "\xEF\xBB\xBF";

enum class Line { kBlank, kComment, kSection, kValue, kUnknown };

Line KindOf(std::string_view line) {
  const std::size_t first = line.find_first_not_of(" \t\v\f");
  if (first == line.npos) return Line::kBlank;
  line.remove_prefix(first);
  if (line[0] == ';' || line[0] == '#') return Line::kComment;
  if (line[0] == '[') return line.find(']') == line.npos ? Line::kUnknown : Line::kSection;
  return line.find('=', 1) == line.npos || line[0] == '=' ? Line::kUnknown : Line::kValue;
}

// The lines with those that the parser would drop made comments, and the sentinel;
// no value when the text is none of ours.
std::optional<std::string> Prepare(std::string_view bytes) {
  if (bytes.find('\0') != bytes.npos) return std::nullopt;
  if (bytes.starts_with(kBom)) bytes.remove_prefix(kBom.size());
  std::string out;
  bool sections = false;
  bool unknown = false;
  while (!bytes.empty()) {
    const std::string_view line = bytes.substr(0, bytes.find_first_of("\r\n"));
    const Line kind = KindOf(line);
    sections = sections || kind == Line::kSection;
    unknown = unknown || kind == Line::kUnknown;
    if (kind == Line::kUnknown) out += "; ";
    const std::size_t whole = line.size() < bytes.size() ? line.size() + 1 : line.size();
    out += bytes.substr(0, whole);
    bytes.remove_prefix(whole);
  }
  if (unknown && !sections) return std::nullopt;
  return out + "\n[" + kSentinel + "]\n";
}

}  // namespace

struct IniText::Parsed {
  CSimpleIniA ini{true, false, false};
};

IniText::IniText() : m_parsed(std::make_unique<Parsed>()) {}

IniText::~IniText() = default;

bool IniText::Load(const std::string& bytes) {
  const auto prepared = Prepare(bytes);
  if (!prepared) return false;
  CSimpleIniA& ini = m_parsed->ini;
  if (ini.LoadData(*prepared) < 0) throw std::bad_alloc();
  CSimpleIniA::TNamesDepend sections;
  ini.GetAllSections(sections);
  for (const auto& section : sections) {
    const bool isSentinel = std::string_view(section.pItem) == kSentinel;
    if (isSentinel && section.pComment != nullptr) m_tail = section.pComment;
  }
  ini.Delete(kSentinel, nullptr);
  return true;
}

// Line ends are plain on every system.
std::string IniText::Save() const {
  std::string text;
  if (m_parsed->ini.Save(text) < 0) throw std::bad_alloc();
  std::erase(text, '\r');
  // A first name that begins like the mark of an encoding is none.
  if (text.starts_with(kBom)) text.insert(0, 1, '\n');
  if (!m_tail.empty()) text += "\n" + m_tail + "\n";
  return text;
}

std::optional<std::string> IniText::Get(const std::string& section, const std::string& key) const {
  const char* const value = m_parsed->ini.GetValue(section.c_str(), key.c_str());
  return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

bool IniText::Set(const std::string& section, const std::string& key, const std::string& value) {
  if (Get(section, key) == value) return false;
  if (m_parsed->ini.SetValue(section.c_str(), key.c_str(), value.c_str()) < 0) {
    throw std::bad_alloc();
  }
  return true;
}

bool IniText::Remove(const std::string& section, const std::string& key) {
  return m_parsed->ini.Delete(section.c_str(), key.c_str());
}

}  // namespace korin::settings
