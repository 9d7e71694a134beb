#pragma once

#include <cstdint>
#include <gsl/span>
#include <limits>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "stream/writer.hpp"
#include "workbench/live/durations.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/serve/faults.hpp"
#include "workbench/serve/gige_camera.hpp"
#include "workbench/serve/pixel_faults.hpp"
#include "workbench/serve/schedule.hpp"
#include "workbench/serve/spot_source.hpp"
#include "workbench/serve/truth_log.hpp"

/// @file
/// A sensor that is on: frame after frame into a stream, at a camera's rate.

namespace quen::workbench {

inline constexpr std::uint64_t kNoEnd = std::numeric_limits<std::uint64_t>::max();

struct ServeOptions {
  std::string stream;
  quen::stream::PixelType type = quen::stream::PixelType::kInt16;  ///< or kUint16
  double rate = 0.0;                                               ///< frames a second; 0: as fast as they come
  std::uint64_t frames = kNoEnd;                                   ///< after which it ends
  Exposure exposure = {};
  std::optional<Time> lockstep = {};  ///< each frame waits for an answer to the one before, for so long at the most
  std::size_t ahead = 0;              ///< frames drawn before their time; without faults and input alone
  GigeCamera* camera = nullptr;       ///< gets what the stream gets, after it
};

/// What a server has done so far.
struct ServeCounts {
  std::uint64_t frames = 0;     ///< that have gone by, those among them that were skipped or not published
  std::uint64_t published = 0;  ///< how often one was
  std::uint64_t skipped = 0;    ///< not drawn, for the next one was due already
  std::uint64_t faulty = 0;     ///< that a fault has hit
  Durations lateness;           ///< of publication after the time due
  Durations intervals;          ///< from publication to publication
  std::size_t readers = 0;      ///< semaphores that living readers have
  StreamCounts input;           ///< corrections, or displacements
  double seconds = 0.0;         ///< from the first publication to the last one
  std::string end;              ///< why it has ended, in words; empty while it has not
  bool is_interrupted = false;  ///< whether that was a signal

  /// Publications per second.
  [[nodiscard]] double Rate() const { return seconds > 0.0 ? static_cast<double>(intervals.Count()) / seconds : 0.0; }
};

/// Draws frames and publishes them. A frame is begun as late as the time that it is expected to take allows, and what
/// others say is taken then. One that is late is published late, and the next one keeps its own time; one whose
/// successor is due before it is begun is skipped. Each frame is drawn and published by one thread, without allocating.
class Server {
 public:
  /// Makes the stream.
  /// @param faults  none if nothing goes wrong
  /// @param log     none if there is none
  /// @throws std::invalid_argument, std::runtime_error  as quen::stream::Writer
  Server(Camera& camera, SpotSource& spots, const ServeOptions& options, std::optional<FaultScript> faults,
         TruthLog* log, Clock& clock);

  /// Serves until the last frame, or until a signal has come.
  /// @throws std::runtime_error  in lockstep nobody answers; the input is no stream that can be taken; the log cannot
  ///                             be written; the stream cannot be made anew
  void Run();

  /// For any thread.
  [[nodiscard]] ServeCounts Counts() const;

  [[nodiscard]] const std::string& Path() const { return writer_->Path(); }

 private:
  /// A frame that waits for its time.
  struct Ready {
    std::uint64_t number = 0;
    gsl::span<const std::uint16_t> pixels;
    std::vector<std::uint16_t> copy;  ///< of the pixels, where further frames are drawn before this one is published
    std::span<const Fault> faults;
    TruthRow row;
  };

  void Serve();
  [[nodiscard]] std::string End() const;  ///< why there is no further frame; empty if there is one
  void SkipPast();
  void AwaitAnswer();
  void Draw();
  void Advance();
  void DrawAhead();
  void PublishNext();
  void Publish(Ready& ready, Time due);
  void Put(const Ready& ready, std::timespec acquired);
  void Remake(bool goes_on);
  void NotePublication(Time due);
  [[nodiscard]] bool IsPublished(const Ready& ready) const;

  Camera& camera_;
  SpotSource& spots_;
  ServeOptions options_;
  std::optional<FaultScript> faults_;
  std::optional<PixelFaults> pixel_faults_;
  TruthLog* log_;
  Clock& clock_;
  std::vector<quen::stream::KeywordValue> keywords_;  ///< FRAME first
  std::optional<quen::stream::Writer> writer_;

  std::optional<Schedule> schedule_;  ///< once it has started; none where frames come as they can
  ExpectedTime drawing_;
  Displacements spoilt_;          ///< displacements with faults
  std::vector<Ready> ready_;      ///< a ring
  std::uint64_t next_ = 0;        ///< the frame that is drawn next
  std::uint64_t ready_from_ = 0;  ///< ring: how many were taken out of it, and put in
  std::uint64_t ready_to_ = 0;
  std::uint64_t mark_ = 0;  ///< what the input had before the last publication
  bool is_answer_due_ = false;
  std::int64_t last_number_ = -1;  ///< FRAME of what was published last
  std::timespec last_acquired_ = {};
  std::optional<Time> first_published_;
  Time last_published_ = {};
  Time readers_counted_ = Time::min();

  mutable std::mutex mutex_;
  ServeCounts counts_;
};

}  // namespace quen::workbench
