#include "level_options.h"

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <cmath>
#include <map>

#include "measure.h"
#include "session.h"

namespace korin::app {

void LevelOptions::Add(CLI::App& command) {
  using Level = CImage::ChangeBitsLevel;
  const std::map<std::string, Level> levels = {{"raw", Level::Raw},
                                               {"auto", Level::Automatic},
                                               {"cooked", Level::Cooked},
                                               {"minmax", Level::MinMax}};
  const std::string fallback = m_mode == Level::Cooked ? "cooked" : "auto";
  command
      .add_option("--level", m_mode,
                  "How values become integers: raw keeps them (shifted, cut), cooked maps the "
                  "display levels, minmax the whole range, auto is raw if that fits, else "
                  "cooked (default: " +
                      fallback + ")")
      ->type_name("raw|auto|cooked|minmax")
      ->transform(CLI::Transformer(levels).description(""));
  auto* min =
      command.add_option("--min", m_min, "Physical value shown as black")->type_name("VALUE");
  auto* max =
      command.add_option("--max", m_max, "Physical value shown as white")->type_name("VALUE");
  command
      .add_option("--percentile", m_percent,
                  "Levels that the middle PERCENT of the pixels lie between; 99.5 suits frames "
                  "of stars")
      ->type_name("PERCENT")
      ->check(CLI::Range(0.001, 100.0))
      ->excludes(min)
      ->excludes(max);
}

void LevelOptions::Apply(CImage& image) const {
  using Level = CImage::ChangeBitsLevel;
  if (HasOwnLevels() && (m_mode == Level::Raw || m_mode == Level::MinMax)) {
    throw UsageError("--min, --max and --percentile need --level cooked or auto");
  }
  if ((m_min && !std::isfinite(*m_min)) || (m_max && !std::isfinite(*m_max)) ||
      (m_min && m_max && !(*m_min < *m_max))) {
    throw UsageError("--min must be below --max");
  }
  image.AllocLevel();
  const auto measure = [&](int plane) {
    Bounds levels =
        m_percent ? MeasurePercentile(image, plane, *m_percent) : MeasureBounds(image, plane);
    if (m_min) levels.min = *m_min;
    if (m_max) levels.max = *m_max;
    return levels;
  };
  const Bounds all = m_linked ? measure(kAllPlanes) : Bounds{};
  for (int plane = 0; plane < image.GetPlanes(); ++plane) {
    const Bounds levels = m_linked ? all : measure(plane);
    image.SetLevel(plane, levels.min, levels.max);
  }
  image.SetOwnLevel(HasOwnLevels());
}

}  // namespace korin::app
