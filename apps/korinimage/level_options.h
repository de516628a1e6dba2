#pragma once

#include <CLI/App.hpp>
#include <optional>
#include <string>

#include "korinimage/image.h"

namespace korin::app {

// The options that say which values become black and white: --level, --min, --max,
// --percentile.
class LevelOptions {
 public:
  // `linked`: one pair of levels for all planes, so that one scaling describes the
  // result; else each plane has its own.
  LevelOptions(CImage::ChangeBitsLevel fallback, bool linked)
      : m_mode(fallback), m_linked(linked) {}

  void Add(CLI::App& command);
  CImage::ChangeBitsLevel Mode() const { return m_mode; }
  bool HasOwnLevels() const { return m_min || m_max || m_percent; }
  // Sets the image's display levels. Throws UsageError for contradictory options.
  void Apply(CImage& image) const;

 private:
  CImage::ChangeBitsLevel m_mode;
  bool m_linked;
  std::optional<double> m_min;
  std::optional<double> m_max;
  std::optional<double> m_percent;
};

}  // namespace korin::app
