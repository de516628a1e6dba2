#include "command_run.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>

#include "run_process.h"

namespace korin::test {

namespace {

// With ends of lines as the program meant them.
std::string Text(const std::string& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace

Result RunCommand(const std::vector<std::string>& arguments, int interruptAfter) {
  const ScratchFolder folder;
  const std::string out = (folder.Path() / "out").string();
  const std::string err = (folder.Path() / "err").string();
  std::vector<std::string> words = {KORINIMAGE_COMMAND};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const Ended ended = RunProcess(std::move(words), out, err, interruptAfter);
  return {ended.code, Text(out), Text(err), ended.peakKib};
}

std::string InJson(const std::string& text) {
  std::string quoted;
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted;
}

double JsonNumber(const std::string& json, const std::string& key, std::size_t from) {
  const std::string label = "\"" + key + "\":";
  const std::size_t at = json.find(label, from);
  if (at == std::string::npos) return std::numeric_limits<double>::quiet_NaN();
  return std::strtod(json.c_str() + at + label.size(), nullptr);
}

}  // namespace korin::test
