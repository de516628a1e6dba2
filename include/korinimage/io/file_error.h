#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "korinimage/io/export.h"

namespace korin {

// A file cannot be read or written. what() is one line for the user: the file,
// what is wrong with it and, where there is one, the limit that it breaks and the
// way out ("FILE: problem (remedy)").
class KORINIMAGE_IO_API FileError : public std::runtime_error {
 public:
  FileError(const std::filesystem::path& file, const std::string& problem,
            const std::string& remedy = {});
  ~FileError() override;

  const std::filesystem::path& File() const noexcept { return m_details->file; }
  const std::string& Problem() const noexcept { return m_details->problem; }
  const std::string& Remedy() const noexcept { return m_details->remedy; }  // may be empty

 private:
  struct Details {
    std::filesystem::path file;
    std::string problem;
    std::string remedy;
  };
  std::shared_ptr<const Details> m_details;  // shared: copying must not throw
};

}  // namespace korin
