#include "workbench/campaign/src/at_work.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "workbench/fits/transfer.hpp"

namespace quen::workbench {
namespace {

constexpr const char* kAtWorkPrefix = "at-work-";

bool Lock(const Descriptor& file) { return flock(file.Number(), LOCK_EX | LOCK_NB) == 0; }

}  // namespace

AtWork::AtWork(const std::string& folder, int jobs) : jobs_(jobs) {
  std::array<char, 65> host{};
  static_cast<void>(gethostname(host.data(), host.size() - 1));
  path_ = (std::filesystem::path(folder) / fmt::format("{}{}-{}", kAtWorkPrefix, host.data(), getpid())).string();
  file_ = Descriptor(Open(path_, O_RDWR | O_CREAT, DEFFILEMODE));
  if (file_.IsOpen() && Lock(file_)) Write(0);
}

AtWork::~AtWork() {
  if (file_.IsOpen()) unlink(path_.c_str());
}

void AtWork::Tell(std::uint64_t finished) {
  constexpr auto kInterval = std::chrono::seconds(1);
  if (!file_.IsOpen() || Clock::now() - told_ < kInterval) return;
  told_ = Clock::now();
  Write(finished);
}

void AtWork::Write(std::uint64_t finished) {
  const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  // Always as long: a shorter text would leave the end of the one before.
  const std::string text = fmt::format("{:10} {:20} {:20.3f}\n", jobs_, finished, seconds);
  [[maybe_unused]] const ssize_t written = pwrite(file_.Number(), text.data(), text.size(), 0);
}

std::vector<Worker> WorkersIn(const std::string& folder) {
  constexpr std::size_t kLongest = 100;
  std::vector<Worker> workers;
  std::error_code code;
  for (const auto& entry : std::filesystem::directory_iterator(folder, code)) {
    if (!entry.path().filename().string().starts_with(kAtWorkPrefix)) continue;
    const Descriptor file(Open(entry.path().string(), O_RDWR));
    if (!file.IsOpen()) continue;
    if (Lock(file)) {  // of a process that was killed
      unlink(entry.path().c_str());
      continue;
    }
    Worker worker;
    std::istringstream text(ReadAt(file.Number(), 0, kLongest));
    if (text >> worker.jobs >> worker.finished >> worker.seconds) workers.push_back(worker);
  }
  return workers;
}

}  // namespace quen::workbench
