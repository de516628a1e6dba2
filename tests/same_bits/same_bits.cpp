// Small images through every statistic and every conversion, each result as the bits
// of its numbers. The lines are the same on every system, processor variant and
// compiler that the library is built for:
//   same_bits FILE    compares them with those of the file
//   same_bits         prints them

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "korinimage/korinimage.h"
#include "support/memory_config.h"

namespace {

using Policy = CVmManager::AllocationPolicy;
using Level = CImage::ChangeBitsLevel;

constexpr int kWidth = 37;
constexpr int kHeight = 23;
constexpr int kPlanes = 2;

std::vector<std::string> g_lines;

std::string Hex(std::uint64_t bits) {
  char text[17];
  std::snprintf(text, sizeof text, "%08lx%08lx", static_cast<unsigned long>(bits >> 32),
                static_cast<unsigned long>(bits & 0xFFFFFFFF));
  return text;
}

// The sign of a NaN that an operation makes is the processor's own affair.
std::string Hex(double value) {
  std::uint64_t bits = 0;
  if (std::isnan(value)) return "nan";
  std::memcpy(&bits, &value, sizeof bits);
  return Hex(bits);
}

std::uint64_t Hash(const void* bytes, std::size_t size, std::uint64_t hash) {
  for (std::size_t i = 0; i < size; ++i) {
    hash = (hash ^ static_cast<const unsigned char*>(bytes)[i]) * 0x100000001B3ULL;
  }
  return hash;
}
constexpr std::uint64_t kHashStart = 0xCBF29CE484222325ULL;

// The pixels, row after row, plane after plane.
std::uint64_t PixelHash(CImage& image) {
  std::uint64_t hash = kHashStart;
  const auto bytes =
      static_cast<std::size_t>(image.GetWidth()) * static_cast<std::size_t>(image.GetBytesPixel());
  for (int plane = 0; plane < image.GetPlanes(); ++plane) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      hash = Hash(image.Store()->GetImageAdr(0, y, plane, false, false, nullptr), bytes, hash);
    }
  }
  return hash;
}

std::string Hex(const std::vector<std::int32_t>& counts) {
  return Hex(Hash(counts.data(), counts.size() * sizeof counts[0], kHashStart));
}

template <typename... Values>
void Line(const std::string& what, const Values&... values) {
  std::string line = what;
  ((line += ' ', line += Hex(values)), ...);
  g_lines.push_back(std::move(line));
}

template <typename... Values>
void Line(const std::string& what, const std::tuple<Values...>& values) {
  std::apply([&](const auto&... each) { Line(what, each...); }, values);
}

// Values over the whole range of an integer type; of a real one, values around zero
// and a few that are far away or no numbers.
template <typename T>
T PixelOf(std::uint64_t draw, bool wild) {
  if constexpr (std::is_floating_point_v<T>) {
    constexpr T kOdd[] = {std::numeric_limits<T>::infinity(), std::numeric_limits<T>::quiet_NaN(),
                          static_cast<T>(-3e9), static_cast<T>(7e18), static_cast<T>(-0.0)};
    if (wild && draw % 53 < 5) return kOdd[draw % 53];
    return static_cast<T>(static_cast<double>(draw % 2000001) / 997.0 - 1000.0);
  } else {
    return static_cast<T>(draw >> (wild ? 32 : 40));
  }
}

template <typename T>
CImage MakeImage(const std::shared_ptr<CVmManager>& manager, bool wild, double bscale,
                 double bzero) {
  constexpr int kBits = 8 * static_cast<int>(sizeof(T));
  const auto type = static_cast<CImage::DataType>(std::is_floating_point_v<T> ? -kBits : kBits);
  CImage image(manager, type, kWidth, kHeight, kPlanes, bscale, bzero, std::is_signed_v<T>,
               CImage::ProgressPtr());
  std::mt19937_64 random(20);
  for (int plane = 0; plane < kPlanes; ++plane) {
    for (int y = 0; y < kHeight; ++y) {
      BYTE* row = image.Store()->GetImageAdr(0, y, plane, true, false, nullptr);
      for (int x = 0; x < kWidth; ++x) {
        const T pixel = PixelOf<T>(random(), wild);
        std::memcpy(row + static_cast<std::size_t>(x) * sizeof(T), &pixel, sizeof(T));
      }
    }
  }
  return image;
}

void Measure(const std::string& name, CImage& image) {
  for (const int plane : {-1, 0, 1}) {
    const std::string at = name + " plane " + std::to_string(plane) + ' ';
    Line(at + "min-max-raw", image.GetMinMaxRaw(plane));
    Line(at + "min-max", image.GetMinMax(plane));
    Line(at + "min-max-average-raw", image.GetMinMaxAvrRaw(plane));
    Line(at + "min-max-average", image.GetMinMaxAvr(plane));
    Line(at + "average", image.GetAverageRaw(plane), image.GetAverage(plane));
    Line(at + "deviation", image.GetStdDevRaw(plane), image.GetStdDev(plane));
    Line(at + "deviation-from", image.GetStdDevRaw(plane, 100.25), image.GetStdDev(plane, -3.5));
    Line(at + "min-max-mode", image.GetMinMaxMode(plane, 64, 8));
    Line(at + "histogram", image.HistogramRaw(plane, 256), image.Histogram(plane, 97));
    Line(at + "histogram-between", image.HistogramRaw(plane, -10.5, 212.75, 31),
         image.Histogram(plane, 3.0, 170.1, 64));
  }
  Line(name + " pixel", image.GetPixel(5, 7, 0), image.GetPixel(36, 22, 1));
}

void MeasureLevels(const std::string& name, CImage& image) {
  std::uint64_t hash = kHashStart;
  for (const auto* levels : {&image.GetLevelMin(), &image.GetLevelMax(), &image.GetLevelRange()}) {
    hash = Hash(levels->data(), levels->size() * sizeof(double), hash);
  }
  Line(name + " pixels, scaling, levels", PixelHash(image), image.GetBscale(), image.GetBzero(),
       hash);
}

void Convert(const std::string& name, CImage& image) {
  image.SetDefaultLevel();
  MeasureLevels(name, image);
  struct Target {
    CImage::DataType type;
    bool isSigned;
  };
  for (const Target& target :
       {Target{CImage::DataTypeInt8, false}, Target{CImage::DataTypeInt16, true},
        Target{CImage::DataTypeInt16, false}, Target{CImage::DataTypeInt32, true},
        Target{CImage::DataTypeInt32, false}, Target{CImage::DataTypeFloat, true},
        Target{CImage::DataTypeDouble, true}}) {
    for (const Level level : {Level::Raw, Level::Automatic, Level::Cooked, Level::MinMax}) {
      CImage converted;
      const bool done =
          converted.ChangeBits(&image, target.type, target.isSigned, level, CImage::ProgressPtr());
      const std::string to = name + " to " + std::to_string(target.type) +
                             (target.isSigned ? " signed" : " unsigned") + " level " +
                             std::to_string(static_cast<int>(level));
      if (done && !converted.IsEmpty()) {
        MeasureLevels(to, converted);
      } else {
        g_lines.push_back(to + " nothing");
      }
    }
  }
  const auto physical = image.ScalingAppliedImage();
  MeasureLevels(name + " scaling applied", *physical);
  CImage filled(image);
  filled.Fill(1, 70000.75);
  MeasureLevels(name + " filled", filled);
}

template <typename T>
void Run(const std::shared_ptr<CVmManager>& manager, const std::string& name) {
  struct Kind {
    const char* name;
    bool wild;
    double bscale, bzero;
  };
  for (const Kind& kind : {Kind{"plain", false, 1.0, 0.0}, Kind{"scaled", false, 0.37, 1000.1},
                           Kind{"wild", true, 1.0, 32768.0}}) {
    CImage image = MakeImage<T>(manager, kind.wild, kind.bscale, kind.bzero);
    Measure(name + ' ' + kind.name, image);
    Convert(name + ' ' + kind.name, image);
  }
}

void RunAll() {
  for (const Policy policy : {Policy::Blocks, Policy::Planes}) {
    auto configuration = CVmManagerConfiguration::DefaultConfiguration();
    configuration->BlockSize = 4096;  // several blocks an image
    configuration->MaxDiskSize = 16;
    const auto manager = CVmManager::Create(std::move(configuration));
    manager->SetAllocationPolicy(policy);
    const std::string name = policy == Policy::Blocks ? "rows " : "kernels ";
    Run<std::uint8_t>(manager, name + "uint8");
    Run<std::int16_t>(manager, name + "int16");
    Run<std::uint16_t>(manager, name + "uint16");
    Run<std::int32_t>(manager, name + "int32");
    Run<std::uint32_t>(manager, name + "uint32");
    Run<float>(manager, name + "float");
    Run<double>(manager, name + "double");
  }
}

int Compare(const char* file) {
  std::ifstream golden(file);
  std::size_t differing = 0;
  std::size_t count = 0;
  for (std::string line; std::getline(golden, line); ++count) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::string got = count < g_lines.size() ? g_lines[count] : "(nothing)";
    if (got == line || ++differing > 20) continue;
    std::cout << "expected  " << line << "\nis        " << got << '\n';
  }
  std::cout << count << " lines expected, " << g_lines.size() << " made, " << differing
            << " differ\n";
  return differing == 0 && count == g_lines.size() && count > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const korin::test::ScopedMemoryConfig settings;
  korin::SetThreadCount(3);
  RunAll();
  if (argc == 2) return Compare(argv[1]);
  for (const std::string& line : g_lines) std::cout << line << '\n';
  return 0;
}
