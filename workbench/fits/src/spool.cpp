#include "workbench/fits/spool.hpp"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "workbench/fits/output_target.hpp"
#include "workbench/fits/transfer.hpp"

namespace quen::workbench {

Spool::Spool(std::string output) : output_(std::move(output)) {
  constexpr unsigned int kMine = 0600;
  const std::filesystem::path beside = std::filesystem::path(output_).parent_path();
  for (const std::filesystem::path& folder :
       {beside.empty() ? std::filesystem::path(".") : beside, std::filesystem::path("/var/tmp"),
        std::filesystem::temp_directory_path()}) {
    file_ = Descriptor(Open(folder.string(), O_TMPFILE | O_RDWR, kMine));
    if (file_.IsOpen()) return;
  }
  RefuseToWrite(output_, errno);
}

void Spool::Add(std::string_view bytes) {
  try {
    WriteAt(file_.Number(), bytes, size_);
  } catch (const std::system_error& error) {
    RefuseToWrite(output_, error.code().value());
  }
  size_ += bytes.size();
}

std::string Spool::Piece(std::uint64_t position, std::size_t count) const {
  try {
    return ReadAt(file_.Number(), position, count);
  } catch (const std::system_error& error) {
    RefuseToWrite(output_, error.code().value());
  }
}

}  // namespace quen::workbench
