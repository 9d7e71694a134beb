#include "workbench/serve/server.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "workbench/fits/interruption.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

using quen::stream::KeywordValue;
using quen::stream::PixelType;

constexpr double kOutOfSight = 1e6;                         // pixels: a spot so far away leaves no light in its region
constexpr Time kWakingUp = std::chrono::microseconds(100);  // what a thread may wake up late

quen::stream::StreamConfig StreamOf(const ServeOptions& options) {
  const double noise = options.exposure.detector ? 0.0 : options.exposure.noise;
  return {.name = options.stream,
          .type = options.type,
          .size = {kFrameWidth, kFrameHeight},
          .keywords = {{"FRAME", std::int64_t{-1}, "counted from 0; -1: none yet"},
                       {"SEED", std::int64_t{options.exposure.seed}, "of all that is random"},
                       {"NOISE", noise, "half-width, units of pixel values; 0 with a detector"},
                       {"RATE", options.rate, "frames a second; 0: as they come"}}};
}

std::vector<KeywordValue> ValuesOf(const quen::stream::StreamConfig& config) {
  std::vector<KeywordValue> values;
  for (const quen::stream::Keyword& keyword : config.keywords) values.push_back(keyword.value);
  return values;
}

PixelLimits RangeOf(const ServeOptions& options) {
  const bool is_signed = options.type == PixelType::kInt16;
  const std::uint16_t most = is_signed ? 32767 : 65535;
  if (!options.exposure.detector) return {most, is_signed, 1.0};
  const quen::detector::DetectorConfig& detector = options.exposure.detector->config;
  const auto counts = static_cast<std::uint16_t>((1U << static_cast<unsigned>(detector.bits)) - 1U);
  return {std::min(most, counts), is_signed, detector.gain};
}

Time Milliseconds(double milliseconds) {
  return std::chrono::duration_cast<Time>(std::chrono::duration<double, std::milli>(milliseconds));
}

/// All of a frame's faults, in the room that a row of the log has for them.
void Tell(std::span<const Fault> faults, std::array<char, TruthRow::kFaultLength>& text) {
  std::string words;
  for (const Fault& fault : faults) words += (words.empty() ? "" : "; ") + InWords(fault);
  text = {};
  std::copy_n(words.begin(), std::min(words.size(), text.size()), text.begin());
}

const Fault* Find(std::span<const Fault> faults, FaultKind kind) {
  const auto found = std::ranges::find(faults, kind, &Fault::kind);
  return found == faults.end() ? nullptr : &*found;
}

bool IsHit(std::span<const Fault> faults, FaultKind kind) { return Find(faults, kind) != nullptr; }

}  // namespace

Server::Server(Camera& camera, SpotSource& spots, const ServeOptions& options, std::optional<FaultScript> faults,
               TruthLog* log, Clock& clock)
    : camera_(camera),
      spots_(spots),
      options_(options),
      faults_(std::move(faults)),
      log_(log),
      clock_(clock),
      keywords_(ValuesOf(StreamOf(options))),
      writer_(std::in_place, StreamOf(options)),
      ready_(options.ahead + 1) {
  if (faults_) pixel_faults_.emplace(RangeOf(options));
  for (Ready& ready : ready_) ready.copy.resize(options.ahead > 0 ? kFrameWidth * kFrameHeight : 0);
  camera_.Use(options.exposure);
}

void Server::Run() {
  std::string end;
  bool is_interrupted = false;
  try {
    Serve();
    end = End();
  } catch (const Interrupted& /*the usual end*/) {
    end = "a signal has come";
    is_interrupted = true;
  }
  const std::scoped_lock lock(mutex_);
  counts_.end = std::move(end);
  counts_.is_interrupted = is_interrupted;
}

ServeCounts Server::Counts() const {
  const std::scoped_lock lock(mutex_);
  return counts_;
}

std::string Server::End() const { return next_ >= options_.frames ? "all frames have gone by" : spots_.End(); }

void Server::Serve() {
  while (ready_to_ < ready_.size() && End().empty()) Draw();
  if (options_.rate > 0.0) schedule_.emplace(options_.rate, clock_.Now());
  while (true) {
    if (ready_from_ == ready_to_) {
      SkipPast();
      if (!End().empty()) return;
      AwaitAnswer();
      if (schedule_) clock_.WaitUntil(schedule_->Due(next_) - drawing_.Get() - kWakingUp);
      ThrowIfInterrupted();
      Draw();
    }
    PublishNext();
    DrawAhead();
  }
}

void Server::SkipPast() {
  while (schedule_ && End().empty() && schedule_->IsSkipped(next_, clock_.Now())) {
    ThrowIfInterrupted();
    Advance();
    const std::scoped_lock lock(mutex_);
    ++counts_.frames;
    ++counts_.skipped;
  }
}

void Server::AwaitAnswer() {
  if (!options_.lockstep || !is_answer_due_) return;
  LatchedStream& input = *spots_.Input();
  if (input.Await(mark_, *options_.lockstep)) return;
  throw std::runtime_error(
      fmt::format("lockstep: expected an answer in the stream {} within {:g} s after frame {} was published, found "
                  "none; look after "
                  "the program that writes it, or give a longer --timeout",
                  input.Name(), InSeconds(*options_.lockstep), last_number_));
}

void Server::Advance() {
  spots_.Advance();
  ++next_;
}

void Server::Draw() {
  const Time begin = clock_.Now();
  Ready& ready = ready_[ready_to_ % ready_.size()];
  ready.number = next_;
  ready.faults = faults_ ? faults_->At(next_) : std::span<const Fault>();
  const Displacements* displacements = &spots_.Latch();
  double noise_factor = 1.0;
  if (!ready.faults.empty()) {
    spoilt_ = *displacements;
    displacements = &spoilt_;
    for (const Fault& fault : ready.faults) {
      if (fault.kind == FaultKind::kDark) std::ranges::fill(spoilt_.x, kOutOfSight);
      if (fault.kind == FaultKind::kLost) spoilt_.x.at(fault.Count("subaperture")) = kOutOfSight;
      if (fault.kind == FaultKind::kBurst) noise_factor *= fault.Value("factor");
    }
  }
  camera_.Draw(*displacements, noise_factor);
  ready.pixels = camera_.Frame();
  if (!ready.copy.empty()) {
    std::ranges::copy(ready.pixels, ready.copy.begin());
    ready.pixels = ready.copy;
  }

  TruthRow& row = ready.row;
  row.frame = static_cast<std::int64_t>(next_);
  std::ranges::copy(spots_.Residual(), row.residual.begin());
  std::ranges::copy(spots_.Correction(), row.correction.begin());
  row.correction_count = static_cast<std::int64_t>(spots_.InputNumber());
  if (faults_) Tell(ready.faults, row.fault);
  ++ready_to_;
  Advance();
  drawing_.Note(clock_.Now() - begin);
}

void Server::DrawAhead() {
  while (schedule_ && ready_to_ - ready_from_ < options_.ahead && End().empty()) {
    const std::uint64_t published_next = ready_from_ < ready_to_ ? ready_[ready_from_ % ready_.size()].number : next_;
    if (clock_.Now() + drawing_.Get() > schedule_->Due(published_next)) return;
    Draw();
  }
}

void Server::PublishNext() {
  Ready& ready = ready_[ready_from_++ % ready_.size()];
  const Time due = schedule_ ? schedule_->Due(ready.number) : clock_.Now();
  const bool is_skipped = options_.ahead > 0 && schedule_ && schedule_->IsSkipped(ready.number, clock_.Now());
  if (!is_skipped) Publish(ready, due);
  {
    const std::scoped_lock lock(mutex_);
    ++counts_.frames;
    counts_.skipped += is_skipped ? 1U : 0U;
    counts_.faulty += ready.faults.empty() ? 0U : 1U;
    if (const LatchedStream* const input = spots_.Input()) counts_.input = input->Counts();
  }
  if (!is_skipped && log_ != nullptr) log_->Add(ready.row);
}

bool Server::IsPublished(const Ready& ready) const {
  return !IsHit(ready.faults, FaultKind::kDrop) && !(schedule_ && IsHit(ready.faults, FaultKind::kPause));
}

void Server::Publish(Ready& ready, Time due) {
  const std::timespec acquired = TaiAt(due, clock_);
  ready.row.due = InSeconds(due);
  ready.row.due_tai = InSeconds(acquired);
  ready.row.cnt0 = 0;
  ready.row.published = ready.row.published_tai = std::numeric_limits<double>::quiet_NaN();
  is_answer_due_ = false;
  if (const Fault* const remake = Find(ready.faults, FaultKind::kRemake)) Remake(remake->Value("goes_on") != 0.0);
  if (!IsPublished(ready)) return;

  double late = 0.0;
  for (const Fault& fault : ready.faults) late += fault.Value("milliseconds");
  if (const Fault* const counter = Find(ready.faults, FaultKind::kCounter)) writer_->SetNextStep(counter->Count("by"));
  if (faults_) ready.pixels = pixel_faults_->Apply(ready.pixels, ready.faults, ready.number);
  if (LatchedStream* const input = options_.lockstep ? spots_.Input() : nullptr) mark_ = input->Written();
  clock_.WaitUntil(due + Milliseconds(late));

  const std::uint64_t before = writer_->Count();
  const int times = IsHit(ready.faults, FaultKind::kTwice) ? 2 : 1;
  for (int k = 0; k < times; ++k) {
    Put(ready, acquired);
    NotePublication(due);
  }
  is_answer_due_ = writer_->Count() != before;
  ready.row.cnt0 = static_cast<std::int64_t>(writer_->Count());
  ready.row.published = InSeconds(last_published_);
  ready.row.published_tai = InSeconds(TaiAt(last_published_, clock_));
}

void Server::Put(const Ready& ready, std::timespec acquired) {
  if (!IsHit(ready.faults, FaultKind::kRepeat)) {
    last_number_ = static_cast<std::int64_t>(ready.number);
    last_acquired_ = acquired;
  }
  keywords_.front() = last_number_;
  writer_->Publish(gsl::as_bytes(ready.pixels), last_acquired_, keywords_);
  if (options_.camera != nullptr) options_.camera->Send(ready.pixels);
}

void Server::Remake(bool goes_on) {
  const std::uint64_t before = writer_->Count();
  writer_.reset();
  writer_.emplace(StreamOf(options_));
  if (goes_on) writer_->SetNextStep(before + 1);
}

void Server::NotePublication(Time due) {
  constexpr Time kCountInterval = std::chrono::milliseconds(250);
  const Time now = clock_.Now();
  const bool is_first = !first_published_;
  if (is_first) first_published_ = now;
  const bool are_readers_counted = is_first || now >= readers_counted_ + kCountInterval;
  const std::size_t readers = are_readers_counted ? writer_->SemaphoresTaken() : 0;
  const std::scoped_lock lock(mutex_);
  if (are_readers_counted) {
    counts_.readers = readers;
    readers_counted_ = now;
  }
  if (!is_first) counts_.intervals.Add(InSeconds(now - last_published_));
  counts_.lateness.Add(InSeconds(std::max(now - due, Time(0))));
  counts_.seconds = InSeconds(now - *first_published_);
  ++counts_.published;
  last_published_ = now;
}

}  // namespace quen::workbench
