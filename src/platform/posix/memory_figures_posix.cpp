#include "platform/memory_figures.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/fault.h"

namespace korin::platform {

namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kAddressSpace =
    sizeof(void*) == 4 ? std::uint64_t{3} << 30 : std::uint64_t{1} << 47;

std::uint64_t Minus(std::uint64_t a, std::uint64_t b) { return a > b ? a - b : 0; }

std::map<std::string, std::uint64_t> ReadMeminfo(const fs::path& file) {
  std::map<std::string, std::uint64_t> values;
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string name;
    std::uint64_t kib = 0;
    if (fields >> name >> kib && name.back() == ':')
      values[name.substr(0, name.size() - 1)] = kib << 10;
  }
  return values;
}

// A limit or figure file of a control group; none for "max" and for the huge
// numbers that also mean "no limit".
std::optional<std::uint64_t> ReadGroupValue(const fs::path& file) {
  std::uint64_t value = 0;
  if (!(std::ifstream(file) >> value) || value >= std::uint64_t{1} << 62) return std::nullopt;
  return value;
}

std::uint64_t ReadInactiveFile(const fs::path& file, const std::string& wanted) {
  std::ifstream lines(file);
  std::string name;
  std::uint64_t value = 0;
  while (lines >> name >> value) {
    if (name == wanted) return value;
  }
  return 0;
}

struct GroupMount {
  fs::path point;
  std::string root;  // the group that appears at the mount point
  bool unified = false;
};

std::vector<GroupMount> ReadGroupMounts(const fs::path& file) {
  std::vector<GroupMount> mounts;
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string id, parent, device, root, point, word, type, source, options;
    fields >> id >> parent >> device >> root >> point;
    while (fields >> word && word != "-") {
    }
    fields >> type >> source >> options;
    const bool hasMemory = ("," + options + ",").find(",memory,") != std::string::npos;
    if (type == "cgroup2" || (type == "cgroup" && hasMemory)) {
      mounts.push_back({point, root, type == "cgroup2"});
    }
  }
  return mounts;
}

// The process's group of the memory controller (or of the unified tree).
std::string ReadGroupPath(const fs::path& file, bool unified) {
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    const auto first = line.find(':');
    const auto second = line.find(':', first == std::string::npos ? first : first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const bool match = unified ? controllers.empty()
                               : ("," + controllers + ",").find(",memory,") != std::string::npos;
    if (match) return line.substr(second + 1);
  }
  return {};
}

// Lowers the figures to the limits of one group and all groups above it.
void ApplyGroupLimits(const fs::path& root, const GroupMount& mount, MemoryFigures& figures) {
  std::string group = ReadGroupPath(root / "proc/self/cgroup", mount.unified);
  if (group.empty()) return;
  // Inside a container the mount shows a lower group as its root.
  if (mount.root.size() > 1 && group.rfind(mount.root, 0) == 0) group.erase(0, mount.root.size());
  if (group.find("/..") != std::string::npos) group.clear();
  const fs::path top = (root / mount.point.relative_path()).lexically_normal();
  fs::path at = (top / fs::path(group).relative_path()).lexically_normal();
  const char* limitFile = mount.unified ? "memory.max" : "memory.limit_in_bytes";
  const char* usageFile = mount.unified ? "memory.current" : "memory.usage_in_bytes";
  const char* cacheName = mount.unified ? "inactive_file" : "total_inactive_file";
  for (int depth = 0; depth < 64; ++depth) {
    if (const auto limit = ReadGroupValue(at / limitFile)) {
      figures.totalPhysical = std::min(figures.totalPhysical, *limit);
      const std::uint64_t used = ReadGroupValue(at / usageFile).value_or(0);
      const std::uint64_t cache = ReadInactiveFile(at / "memory.stat", cacheName);
      figures.availablePhysical =
          std::min(figures.availablePhysical, Minus(*limit, Minus(used, cache)));
    }
    if (at == top || !at.has_relative_path()) break;
    at = at.parent_path();
  }
}

MemoryFigures Query(const fs::path& root) {
  MemoryFigures figures;
  auto info = ReadMeminfo(root / "proc/meminfo");
  figures.totalPhysical = info["MemTotal"];
  figures.availablePhysical =
      info.count("MemAvailable") != 0 ? info["MemAvailable"] : info["MemFree"];
  figures.kernelTotal = info["Slab"] + info["KernelStack"] + info["PageTables"];
  figures.systemCache =
      Minus(info["Cached"] + info["Buffers"] + info["SReclaimable"], info["Shmem"]);
  if (figures.totalPhysical == 0) {  // no procfs
    const auto page = static_cast<std::uint64_t>(std::max(sysconf(_SC_PAGESIZE), 0L));
    figures.totalPhysical =
        static_cast<std::uint64_t>(std::max(sysconf(_SC_PHYS_PAGES), 0L)) * page;
    figures.availablePhysical =
        static_cast<std::uint64_t>(std::max(sysconf(_SC_AVPHYS_PAGES), 0L)) * page;
  }
  for (const GroupMount& mount : ReadGroupMounts(root / "proc/self/mountinfo")) {
    ApplyGroupLimits(root, mount, figures);
  }
  figures.availablePhysical = std::min(figures.availablePhysical, figures.totalPhysical);
  rlimit space{};
  figures.availableVirtual = kAddressSpace;
  if (getrlimit(RLIMIT_AS, &space) == 0 && space.rlim_cur != RLIM_INFINITY) {
    figures.availableVirtual = std::min<std::uint64_t>(space.rlim_cur, kAddressSpace);
  }
  return figures;
}

}  // namespace

MemoryFigures QueryMemoryUnder(const fs::path& root) {
  try {
    return Query(root);
  } catch (...) {
    MemoryFigures crude;
    crude.availableVirtual = kAddressSpace;
    return crude;
  }
}

MemoryFigures QueryMemory() {
  if (CurrentOverrides().memory != nullptr) return *CurrentOverrides().memory;
  return QueryMemoryUnder(AskFault(Call::kQueryMemory) == Fault::kNone ? "/" : "/nonexistent");
}

}  // namespace korin::platform
