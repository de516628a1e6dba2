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

}  // namespace

struct IniText::Parsed {
  CSimpleIniA ini{true, false, false};
};

IniText::IniText() { Clear(); }

IniText::~IniText() = default;

void IniText::Clear() {
  m_parsed = std::make_unique<Parsed>();
  m_parsed->ini.SetAllowKeyOnly(true);  // lines without an equals sign are kept
  m_tail.clear();
}

bool IniText::Load(const std::string& bytes) {
  if (bytes.find('\0') != bytes.npos) return false;
  CSimpleIniA& ini = m_parsed->ini;
  const std::string closed = bytes + "\n[" + kSentinel + "]\n";
  if (ini.LoadData(closed) < 0) throw std::bad_alloc();

  bool hasValue = false;
  CSimpleIniA::TNamesDepend sections;
  ini.GetAllSections(sections);
  for (const auto& section : sections) {
    if (std::string_view(section.pItem) == kSentinel) {
      if (section.pComment != nullptr) m_tail = section.pComment;
      continue;
    }
    hasValue = hasValue || *section.pItem != '\0';
    for (const auto& [key, value] : *ini.GetSection(section.pItem)) {
      hasValue = hasValue || *value != '\0';
    }
  }
  ini.Delete(kSentinel, nullptr);
  if (hasValue || sections.size() == 1) return true;
  Clear();
  return false;
}

std::string IniText::Save() const {
  std::string text;
  if (m_parsed->ini.Save(text) < 0) throw std::bad_alloc();
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
