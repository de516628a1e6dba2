#include "korinimage/io/file_error.h"

namespace korin {

namespace {

std::string Line(const std::filesystem::path& file, const std::string& problem,
                 const std::string& remedy) {
  std::string line = file.string() + ": " + problem;
  if (!remedy.empty()) line += " (" + remedy + ")";
  return line;
}

}  // namespace

FileError::FileError(const std::filesystem::path& file, const std::string& problem,
                     const std::string& remedy)
    : std::runtime_error(Line(file, problem, remedy)),
      m_details(std::make_shared<const Details>(Details{file, problem, remedy})) {}

FileError::~FileError() = default;

}  // namespace korin
