#include "workbench/live/follower.hpp"

#include <fmt/format.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "stream/layout.hpp"
#include "stream/names.hpp"
#include "stream/writer.hpp"
#include "workbench/fits/interruption.hpp"

namespace quen::workbench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kMoment = std::chrono::milliseconds(20);
constexpr auto kPause = std::chrono::microseconds(50);  // for a writer to finish a frame

/// Asked before a stream is attached to again and again, for each time the log is told of a folder that is none.
bool IsThere(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

}  // namespace

Follower::Follower(std::string name) : name_(std::move(name)), path_(stream::PathOf(name_)) { Attach(); }

void Follower::Attach() {
  reader_ = std::make_unique<stream::Reader>(name_);
  count_at_first_ = reader_->Count();
  seen_ = 0;
  is_gone_ = false;
  copy_.resize(reader_->Bytes());
}

StreamEvent Follower::Look() {
  const bool is_there = reader_->Wait(seen_, kMoment) != seen_;
  const std::timespec now = stream::Now();
  if (is_there && reader_->Read(copy_, copied_)) {
    std::swap(copy_, pixels_);
    std::swap(copied_, info_);
    copy_.resize(reader_->Bytes());
    seen_ = info_.count;
    arrival_ = now;
    return StreamEvent::kFrame;
  }
  const StreamEvent event = LookAfterFile();
  if (event != StreamEvent::kNothing || !is_there) return event;
  std::this_thread::sleep_for(kPause);
  return StreamEvent::kOvertaken;
}

StreamEvent Follower::LookAfterFile() {
  if (Clock::now() < next_look_) return StreamEvent::kNothing;
  next_look_ = Clock::now() + kMoment;
  if (!reader_->IsReplaced()) return StreamEvent::kNothing;
  if (!IsThere(path_)) return std::exchange(is_gone_, true) ? StreamEvent::kNothing : StreamEvent::kGone;
  try {
    Attach();
    return StreamEvent::kMadeAnew;
  } catch (const stream::NotThere&) {
    return StreamEvent::kNothing;  // not yet
  }
}

Follower FollowOnceThere(const std::string& name, std::chrono::duration<double> limit) {
  const auto end = Clock::now() + limit;
  const std::string path = stream::PathOf(name);
  while (Clock::now() < end) {
    try {
      if (IsThere(path)) return Follower(name);
    } catch (const stream::NotThere&) {  // not yet
    }
    WaitForAMoment();
  }
  throw std::runtime_error(
      fmt::format("there is no stream {}, and none was made within {:g} s; start its program", path, limit.count()));
}

bool HasLivingMaker(const Follower& stream) {
  std::ifstream file(stream.Path(), std::ios::binary);
  std::array<char, sizeof(stream::Metadata)> bytes = {};
  if (!file.read(bytes.data(), bytes.size())) return false;
  const pid_t pid = std::bit_cast<stream::Metadata>(bytes).creator_pid;
  return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

double SecondsBetween(const std::timespec& from, const std::timespec& to) {
  constexpr double kNanosecond = 1e-9;
  return static_cast<double>(to.tv_sec - from.tv_sec) + kNanosecond * static_cast<double>(to.tv_nsec - from.tv_nsec);
}

std::size_t PlaceOf(const stream::Reader& reader, const std::string& keyword) {
  const std::vector<stream::Keyword> keywords = reader.Keywords();
  return static_cast<std::size_t>(std::ranges::find(keywords, keyword, &stream::Keyword::name) - keywords.begin());
}

}  // namespace quen::workbench
