#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>

#include "tools/quen-shs/cli/output.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/cli/status_line.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/src/streams.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/live/follower.hpp"
#include "workbench/live/frame_statistics.hpp"
#include "workbench/live/pixels.hpp"
#include "workbench/live/recording.hpp"
#include "workbench/pictures/stream_picture.hpp"

namespace quen::tool {
namespace {

using Clock = std::chrono::steady_clock;
using workbench::StreamEvent;

constexpr common::Limits kWatchedFrames = {1.0, 1e9};
constexpr common::Limits kWatchedSeconds = {0.001, 1e6};

struct WatchArguments {
  std::string stream;
  int frames = 0;                 ///< 0: not given
  std::optional<double> seconds;  ///< none: not given
  std::string png;                ///< file; none if empty
  std::string record;             ///< file; none if empty
  bool json = false;

  /// Nothing is wanted but the picture of what is there.
  [[nodiscard]] bool IsGlance() const { return !png.empty() && frames == 0 && !seconds; }
};

double SecondsSince(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

/// A stream that is watched, and what has been seen of it.
class Watch {
 public:
  explicit Watch(const WatchArguments& command) : command_(command), stream_(command.stream) {
    if (!command.record.empty()) {
      recording_.emplace(stream_.Stream(), static_cast<std::size_t>(command.frames));
    }
  }

  /// Looks until it is to end.
  void Go() {
    StatusLine line;
    while (!IsOver()) {
      workbench::ThrowIfInterrupted();
      const StreamEvent event = stream_.Look();
      Take(event);
      if (event == StreamEvent::kMadeAnew || event == StreamEvent::kGone) {
        line.Clear();
        Say(EventInWords(event, command_.stream));
      }
      if (line.IsDue()) line.Show(Line());
    }
  }

  [[nodiscard]] const workbench::Follower& Stream() const { return stream_; }
  [[nodiscard]] const workbench::FrameStatistics& Statistics() const { return statistics_; }
  [[nodiscard]] bool HasFrame() const { return !stream_.Pixels().empty(); }
  [[nodiscard]] double Seconds() const { return SecondsSince(begin_); }
  [[nodiscard]] double Silence() const { return SecondsSince(last_frame_); }
  [[nodiscard]] bool IsGone() const { return is_gone_; }
  [[nodiscard]] workbench::Recording& Recorded() { return *recording_; }

 private:
  [[nodiscard]] bool IsOver() const {
    constexpr double kLongestGlance = 1.0;
    if (command_.IsGlance()) return HasFrame() || Seconds() > kLongestGlance;
    const bool has_all = command_.frames > 0 && statistics_.Counts().frames >= static_cast<unsigned>(command_.frames);
    return has_all || (command_.seconds && Seconds() >= *command_.seconds);
  }

  void Take(StreamEvent event) {
    const std::uint64_t before = statistics_.Counts().frames;
    statistics_.Take(event, stream_);
    if (event == StreamEvent::kMadeAnew || event == StreamEvent::kGone) is_gone_ = event == StreamEvent::kGone;
    if (statistics_.Counts().frames == before) return;  // it was there before, or is none
    last_frame_ = Clock::now();
    if (recording_) recording_->Take(stream_.Stream(), stream_.Info(), stream_.Pixels());
  }

  [[nodiscard]] std::string Line() const {
    constexpr double kLong = 1.0;
    constexpr double kMilliseconds = 1e3;
    const workbench::FrameCounts& counts = statistics_.Counts();
    const workbench::Durations& latencies = statistics_.Latencies();
    const std::string now =
        Silence() > kLong ? fmt::format("no frame for {:.0f} s; ", Silence())
                          : fmt::format("latency {:.3f} ms (99 % {:.3f}), ", kMilliseconds * latencies.Quantile(0.5),
                                        kMilliseconds * latencies.Quantile(0.99));
    return fmt::format("{} frames, {:.1f}/s, {}lost {}, repeated {}, torn {}", counts.frames, statistics_.Rate(), now,
                       counts.lost, counts.repeated, counts.torn);
  }

  const WatchArguments& command_;
  workbench::Follower stream_;
  workbench::FrameStatistics statistics_;
  std::optional<workbench::Recording> recording_;
  bool is_gone_ = false;
  Clock::time_point begin_ = Clock::now();
  Clock::time_point last_frame_ = begin_;
};

// --- What is told at the end

void AddStream(Report& report, const Watch& watch) {
  const stream::Reader& reader = watch.Stream().Stream();
  std::vector<std::string> names;
  for (const stream::Keyword& keyword : reader.Keywords()) names.push_back(keyword.name);
  report.Add("stream", watch.Stream().Name(), "stream",
             fmt::format("{}: {}{}", watch.Stream().Path(), workbench::InWords(reader.Size(), reader.Type()),
                         names.empty() ? "" : fmt::format("; keywords {}", fmt::join(names, ", "))));
  report.Add("path", watch.Stream().Path());
  report.Add("size", reader.Size());
  report.Add("type", workbench::NameOf(reader.Type()));
  Json keywords = Json::object();
  for (const stream::Keyword& keyword : reader.Keywords()) {
    std::visit([&](const auto& value) { keywords[keyword.name] = value; }, keyword.value);
  }
  report.Add("keywords", keywords);
  report.Add("count", reader.Count());
}

void AddCounts(Report& report, const Watch& watch) {
  const workbench::FrameStatistics& statistics = watch.Statistics();
  const workbench::FrameCounts& counts = statistics.Counts();
  report.Add("seconds", watch.Seconds());
  report.Add("frames", counts.frames, "frames", fmt::format("{} in {:.1f} s", counts.frames, watch.Seconds()));
  report.Add("frames_per_second", statistics.Rate(), "rate", fmt::format("{:.1f} frames/s", statistics.Rate()));
  report.Add("lost", counts.lost, "lost", fmt::format("{}, by the counter", counts.lost));
  report.Add("unpublished", counts.unpublished);
  if (counts.unpublished > 0) {
    report.AddLine(fmt::format("{:<24}{}, by the keyword FRAME", "never written", counts.unpublished));
  }
  report.Add("repeated", counts.repeated, "repeated", fmt::format("{}, pixel by pixel", counts.repeated));
  report.Add("torn", counts.torn, "torn", fmt::format("{}, part of each the frame before", counts.torn));
  report.Add("overtaken", counts.overtaken, "overtaken",
             fmt::format("{}, written while they were copied", counts.overtaken));
  report.Add("misnumbered", counts.misnumbered);
  if (counts.misnumbered > 0) {
    report.AddLine(
        fmt::format("{:<24}{}, the counter went back, or ahead of FRAME", "misnumbered", counts.misnumbered));
  }
  report.Add("made_anew", counts.made_anew);
  if (counts.made_anew > 0) {
    report.AddLine(
        fmt::format("{:<24}{} time{}", "stream made anew", counts.made_anew, counts.made_anew == 1 ? "" : "s"));
  }
}

void AddOddities(Report& report, const Watch& watch) {
  Json counts;  // null where nothing can be told
  if (watch.Statistics().TellsOddities()) counts = Json::object();
  for (std::size_t k = 0; k < workbench::kOddities.size() && !counts.is_null(); ++k) {
    const auto& [oddity, key, text] = workbench::kOddities.at(k);
    const std::uint64_t count = watch.Statistics().Counts().odd.at(k);
    counts[key] = count;
    if (count == 0) continue;
    std::string name = key;
    std::ranges::replace(name, '_', ' ');
    report.AddLine(fmt::format("{:<24}{}, {}", name, count, text));
  }
  report.Add("odd", counts);
}

void AddWarnings(Report& report, const Watch& watch) {
  constexpr double kLong = 1.0;
  constexpr double kAhead = -1e-3;  // seconds, which no clock of one machine is
  const std::string& name = watch.Stream().Name();
  report.Add("semaphore", watch.Stream().Stream().HasSemaphore());
  if (!watch.Stream().Stream().HasSemaphore()) {
    report.AddLine("warning: other readers have all of the stream's semaphores; its counter is looked at instead");
  }
  if (watch.Statistics().Latencies().Least() < kAhead) {
    report.AddLine("warning: the writer's times are ahead of the clock TAI of this machine: latencies say nothing");
  }
  report.Add("gone", watch.IsGone());
  report.Add("silent_seconds", watch.Silence());
  if (watch.IsGone()) {
    report.AddLine(fmt::format("warning: stream {} is gone: its writer has ended, or its file was removed", name));
  } else if (watch.Silence() > kLong) {
    report.AddLine(fmt::format("warning: no frame for the last {:.1f} s{}", watch.Silence(),
                               workbench::HasLivingMaker(watch.Stream()) ? "" : "; who made the stream runs no more"));
  }
}

void Print(const Watch& watch, const workbench::StagedFiles& files, bool are_written, bool json) {
  Report report;
  AddStream(report, watch);
  AddCounts(report, watch);
  AddOddities(report, watch);
  AddTimes(report, "latency", watch.Statistics().Latencies(), "from the writer's time to here");
  AddTimes(report, "interval", watch.Statistics().Intervals(), "from frame to frame");
  AddWarnings(report, watch);
  if (are_written) report.AddFiles(files);
  report.Print(json);
}

// --- What is written

std::string Picture(const Watch& watch) {
  const workbench::Follower& stream = watch.Stream();
  return workbench::DrawStream(stream.Stream().Size(), workbench::ValuesOf(stream.Stream().Type(), stream.Pixels()),
                               fmt::format("{}, frame {}: {}", stream.Name(), stream.Info().count,
                                           workbench::InWords(stream.Stream().Size(), stream.Stream().Type())));
}

void GiveFiles(const WatchArguments& command, Watch& watch, workbench::StagedFiles& files) {
  if (!command.png.empty()) files.Give(command.png, Picture(watch));
  if (!command.record.empty()) files.Give(command.record, watch.Recorded().File(command.stream));
  files.Commit();
}

/// @throws std::runtime_error  there was no frame, or not all that were to be recorded
void RequireFrames(const WatchArguments& command, const Watch& watch) {
  const std::uint64_t frames = watch.Statistics().Counts().frames;
  const bool has_any = command.IsGlance() ? watch.HasFrame() : frames > 0;
  if (!has_any) throw std::runtime_error(fmt::format("stream {}: no frame has come", command.stream));
  if (!command.record.empty() && frames < static_cast<unsigned>(command.frames)) {
    throw std::runtime_error(
        fmt::format("stream {}: expected {} frames to be recorded, found {} in {:g} s; {} was not "
                    "written",
                    command.stream, command.frames, frames, *command.seconds, command.record));
  }
}

void WatchStream(const WatchArguments& command) {
  if (!command.record.empty() && command.frames == 0) {
    throw std::runtime_error("--record: expected --frames with it, found none");
  }
  workbench::StagedFiles files({command.png, command.record});
  Watch watch(command);
  if (!command.png.empty()) workbench::RequireDrawable(watch.Stream().Stream().Size(), command.stream);
  bool are_written = false;
  PrintEvenIfItFails(
      [&] {
        watch.Go();
        RequireFrames(command, watch);
        GiveFiles(command, watch, files);
        are_written = true;
      },
      [&] { Print(watch, files, are_written, command.json); });
}

}  // namespace

void AddWatch(CommandLine& line) {
  const auto command = std::make_shared<WatchArguments>();
  Argument frames = Number("--frames", "End after so many new frames", "", kWatchedFrames, command->frames);
  frames.otherwise = "until Ctrl-C";
  line.Add(
      {.name = "watch",
       .summary = "Tell how the frames of a shared-memory stream come",
       .details = R"(
Attaches to a shared-memory image stream, layout "2.00", of any program, with pixels of any type and 1 to 3 axes, and
tells how its frames come, on a terminal in a line that is renewed, at the end in a report; Ctrl-C ends it with the
report, too. NAME is that of the file NAME.im.shm in the folder of the environment variable MILK_SHM_DIR, else in
/milk/shm, else in /tmp. Nothing is written into the stream but that a semaphore which no living reader has is taken, as
the layout asks of readers; where none is free, the counter is looked at instead.

Frames that were there before do not count. lost: gaps in the stream's counter, of frames that were written and not read
here. repeated: all pixels are those of the frame before. torn: rows that have changed from frame to frame before are
new at one end of the image alone, though the writer said that the frame is whole. overtaken: written while they were
copied; the copy is thrown away, and the next one taken. With an integer keyword FRAME in the stream, frames that were
never written are told from lost ones, and a counter that jumps is noticed. The latency counts from the writer's time of
writing (clock TAI) until the frame was seen to be there.

In images of 16-bit pixels, odd frames are told beside those before: dark (without light), saturated, displaced
by whole pixels, stuck in part (23 x 23 pixels or more), with spots lost, with odd pixels, noisy. The first 16
are learned from.

A stream that is made anew under the same name is said, and followed; so is one that is gone. The exit code is 1 where
no frame has come.

With --png alone the frame that is there is drawn at once; otherwise it is the last one. One of two axes is drawn in
grey, row 0 at the bottom, the first plane of three, and a short one, or a single row, as a matrix in colours. --record
keeps --frames frames in memory and writes them as a FITS cube at the end, unsigned pixels by BZERO, with a table
"frames" of their counters and times; complex numbers and floats of 16 bits, which FITS has not, are refused.)",
       .examples = {"quen-shs watch frames --seconds 10", "quen-shs watch frames --png now.png",
                    "quen-shs watch frames --frames 500 --record frames.fits --json"},
       .arguments = {Positional("NAME", "Name of the stream", command->stream), frames,
                     Number("--seconds", "End after this time", "seconds", kWatchedSeconds, "until Ctrl-C",
                            command->seconds),
                     File("--png", "PNG file for a picture of one frame", "none", command->png),
                     File("--record", "FITS file for the frames", "none", command->record), JsonFlag(command->json)},
       .action = [command] { WatchStream(*command); }});
}

}  // namespace quen::tool
