#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tools/quen-shs/cli/output.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/cli/status_line.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/loop/control_loop.hpp"
#include "workbench/loop/series_file.hpp"
#include "workbench/pictures/serve_picture.hpp"
#include "workbench/sensor/basis.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/serve/real_time.hpp"
#include "workbench/serve/server.hpp"

namespace quen::tool {
namespace {

constexpr double kMillisecond = 1e-3;
constexpr double kUsualRate = 500.0;    // frames a second
constexpr double kRateOfNone = 1000.0;  // that the turbulence has where frames come as they can

struct ServeArguments {
  std::string folder;
  std::string stream;
  std::string type;            ///< as the frames need it if empty
  std::optional<double> rate;  ///< kUsualRate, or 0 in lockstep
  std::optional<std::size_t> frames;
  double d_over_r0 = 20.0;
  std::string disturbance;  ///< file; turbulence of that strength if empty
  std::string at_end = "hold";
  std::optional<double> wind;  ///< metres a second
  double diameter = 8.0;       ///< of the pupil, metres
  workbench::Exposure exposure;
  DetectorArguments detector;
  workbench::CorrectionOptions corrections;
  std::string when_lost = "hold";
  std::string displacements;  ///< stream; none if empty
  bool lockstep = false;
  double timeout = 10.0;  ///< seconds
  std::string faults;     ///< file, or random:SEED:SHARE; none if empty
  std::string log;        ///< file; none if empty
  std::string png;        ///< file; none if empty
  std::string gige;       ///< address of a camera; none if empty
  std::size_t ahead = 0;
  int priority = 0;  ///< none if 0
  std::optional<std::size_t> processor;
  bool json = false;

  [[nodiscard]] double Rate() const { return rate.value_or(lockstep ? 0.0 : kUsualRate); }
};

void RequireSense(const ServeArguments& command) {
  if (command.lockstep && command.Rate() > 0.0) {
    throw std::runtime_error(fmt::format("--lockstep: expected --rate 0 with it, found {:g}", command.Rate()));
  }
  if (command.lockstep && command.corrections.stream.empty() && command.displacements.empty()) {
    throw std::runtime_error("--lockstep: expected --corrections or --displacements with it, found neither");
  }
  if (command.priority > 0 && command.Rate() == 0.0) {
    throw std::runtime_error("--realtime: expected a rate above 0, found 0; without one nothing else would ever run");
  }
  for (const std::string& other : {command.corrections.stream, command.displacements}) {
    if (other == command.stream) {
      throw std::runtime_error("--stream: expected another stream than the one that is read, found " + other);
    }
  }
}

workbench::AtEnd AtEndNamed(const std::string& word) {
  if (word == "repeat") return workbench::AtEnd::kRepeat;
  return word == "stop" ? workbench::AtEnd::kStop : workbench::AtEnd::kHold;
}

workbench::WhenLost WhenLostNamed(const std::string& word) {
  if (word == "zero") return workbench::WhenLost::kZero;
  return word == "stop" ? workbench::WhenLost::kStop : workbench::WhenLost::kHold;
}

/// A camera of the network, if one is asked for.
std::unique_ptr<workbench::GigeCamera> CameraFor(const ServeArguments& command) {
  if (command.gige.empty()) return nullptr;
  if (command.exposure.detector == nullptr || command.type == "int16") {
    throw std::runtime_error(
        fmt::format("--gige: expected a detector (--detector, or a parameter of one such as --pedestal) and pixels of "
                    "uint16, found {}; pixels of GigE Vision (Mono16) have no sign, and there is no format for those "
                    "below zero",
                    command.exposure.detector == nullptr ? "no detector" : "int16"));
  }
  return std::make_unique<workbench::GigeCamera>(command.gige, command.stream, command.Rate());
}

quen::stream::PixelType TypeFor(const ServeArguments& command) {
  const bool is_unsigned = command.type.empty() ? command.exposure.detector != nullptr : command.type == "uint16";
  return is_unsigned ? quen::stream::PixelType::kUint16 : quen::stream::PixelType::kInt16;
}

/// Where the displacements are from, in words.
std::string Source(const ServeArguments& command) {
  if (!command.displacements.empty()) return "displacements of the stream " + command.displacements;
  return command.disturbance.empty() ? fmt::format("D/r0 {:g}", command.d_over_r0) : command.disturbance;
}

workbench::DisturbanceSource DisturbanceFor(const ServeArguments& command, const workbench::StagedFiles& files) {
  if (!command.disturbance.empty()) {
    const workbench::InputFile file(command.disturbance);
    files.RefuseToReplace(file);
    workbench::Series series = workbench::ReadSeries(file);
    workbench::RequireModerate(series, command.disturbance);
    if (series.rows() == 0) throw std::runtime_error(command.disturbance + ": expected frames, found none");
    return {std::move(series), AtEndNamed(command.at_end)};
  }
  const double rate = command.Rate() > 0.0 ? command.Rate() : kRateOfNone;
  const double correlation = command.wind ? workbench::CorrelationOfWind(*command.wind, command.diameter, rate)
                                          : workbench::CorrelationAtRate(rate);
  const Eigen::VectorXd variances = workbench::BasisOfCalibration(workbench::CalibrationFiles().front()).variances;
  return workbench::DisturbanceSource(
      workbench::Disturbance(variances, command.d_over_r0, correlation, command.exposure.seed));
}

std::unique_ptr<workbench::SpotSource> SpotsFor(const ServeArguments& command, const workbench::Camera& camera,
                                                const workbench::StagedFiles& files, workbench::Clock& clock) {
  if (!command.displacements.empty()) {
    return std::make_unique<workbench::StreamedSpots>(command.displacements, clock);
  }
  return std::make_unique<workbench::ResidualSpots>(camera, DisturbanceFor(command, files), command.corrections, clock);
}

std::optional<workbench::FaultScript> FaultsFor(const ServeArguments& command, const workbench::StagedFiles& files) {
  if (command.faults.empty()) return std::nullopt;
  if (command.faults.starts_with(workbench::kRandomFaults)) {
    return workbench::FaultScript(workbench::ParseRandomFaults(command.faults), command.Rate());
  }
  const workbench::InputFile file(command.faults);
  files.RefuseToReplace(file);
  return workbench::FaultScript(workbench::ReadFaults(file), command.Rate());
}

/// What the log's header says of the run.
void WriteRunKeys(const quen::common::Fits::Handle& table, const ServeArguments& command) {
  using workbench::WriteKey;
  WriteKey(table, "STREAM", command.stream, "that has the frames");
  WriteKey(table, "RATE", command.Rate(), "[Hz] 0: as they come");
  WriteKey(table, "DISTURB", Source(command), "what displaces the spots");
  WriteKey(table, "CORRDEL", static_cast<long>(command.corrections.delay), "[frame] delay of corrections");
  workbench::WriteExposureKeys(table, command.exposure);
  workbench::WriteCreator(table, "serve");
}

std::unique_ptr<workbench::TruthLog> LogFor(const ServeArguments& command) {
  if (command.log.empty()) return nullptr;
  const workbench::OutputTarget target = workbench::FindTarget(command.log);
  std::filesystem::create_directories(std::filesystem::path(target.path).parent_path());
  return std::make_unique<workbench::TruthLog>(
      target, [&](const quen::common::Fits::Handle& table) { WriteRunKeys(table, command); });
}

void AskForRealTime(const ServeArguments& command) {
  workbench::AskForExactWaking();
  const auto tell = [](const std::string& sentence) {
    if (!sentence.empty()) Say(sentence);
  };
  if (command.priority > 0) tell(workbench::TakeRealTimePriority(command.priority));
  if (command.processor) tell(workbench::StayOnProcessor(static_cast<int>(*command.processor)));
}

/// A line on a terminal that tells how a server is, drawn by a thread of its own: a terminal that stands still holds no
/// frame up.
class LineOfServer {
 public:
  explicit LineOfServer(const workbench::Server& server) : server_(server) {
    if (line_.IsOnTerminal()) thread_ = std::jthread([this](const std::stop_token& end) { Work(end); });
  }

 private:
  void Work(const std::stop_token& end) {
    constexpr auto kInterval = std::chrono::milliseconds(500);
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, end, kInterval, [&] { return end.stop_requested(); })) Show();
  }

  void Show() {
    const workbench::ServeCounts counts = server_.Counts();
    const workbench::Durations& late = counts.lateness;
    // All of it in the 79 columns of a usual terminal.
    line_.Show(fmt::format("{:.1f}/s; late {:.2f}, 99 % {:.2f}, worst {:.2f} ms; skipped {}; readers {}; received {}",
                           counts.Rate(), late.Quantile(0.5) / kMillisecond, late.Quantile(0.99) / kMillisecond,
                           late.Worst() / kMillisecond, counts.skipped, counts.readers, counts.input.received));
  }

  const workbench::Server& server_;
  StatusLine line_;
  std::mutex mutex_;
  std::condition_variable_any ended_;
  std::jthread thread_;
};

// --- What came of it

/// Median, 99 % and worst, in milliseconds.
std::string InWords(const workbench::Durations& durations) {
  return fmt::format("median {:.3f} ms, 99 % {:.3f} ms, worst {:.3f} ms", durations.Quantile(0.5) / kMillisecond,
                     durations.Quantile(0.99) / kMillisecond, durations.Worst() / kMillisecond);
}

std::string InWords(const workbench::StreamCounts& input) {
  return fmt::format("{} received, {} not finite, {} half written; stream found {} times, lost {}", input.received,
                     input.not_finite, input.torn, input.found, input.lost);
}

void AddDurations(Report& report, const std::string& key, const workbench::Durations& durations) {
  Json bars = Json::array();
  for (const auto& [from, to, count] : durations.Histogram()) {
    bars.push_back({{"from", from}, {"to", to}, {"count", count}});
  }
  report.Add(key,
             {{"median", durations.Quantile(0.5)},
              {"p99", durations.Quantile(0.99)},
              {"worst", durations.Worst()},
              {"histogram", bars}},
             key, InWords(durations));
  for (const auto& [from, to, count] : durations.Histogram()) {
    constexpr double kBarWidth = 50.0;
    const double share = static_cast<double>(count) / static_cast<double>(durations.Count());
    const std::string end = std::isfinite(to) ? fmt::format("{:8g}", to / kMillisecond) : "        ";
    report.AddLine(fmt::format("  {:8g} -{} ms {:10}  {}", from / kMillisecond, end, count,
                               std::string(static_cast<std::size_t>(std::ceil(kBarWidth * share)), '#')));
  }
}

Report ReportOf(const ServeArguments& command, const std::string& path, const workbench::ServeCounts& counts,
                const workbench::GigeCamera* gige) {
  Report report;
  report.Add("stream", path, "stream", path);
  report.Add("ended", counts.end, "ended", counts.end);
  report.Add("frames", counts.frames, "frames",
             fmt::format("{} ({}, {}, seed {})", counts.frames, workbench::InWords(command.exposure), Source(command),
                         command.exposure.seed));
  report.Add("published", counts.published, "published",
             fmt::format("{}, {:.1f} a second{}", counts.published, counts.Rate(),
                         command.Rate() > 0.0 ? fmt::format(" of {:g}", command.Rate()) : ""));
  report.Add("publications_per_second", counts.Rate());
  report.Add("skipped", counts.skipped, "skipped", fmt::format("{}", counts.skipped));
  if (!command.faults.empty()) {
    report.Add("faulty", counts.faulty, "hit by faults", fmt::format("{} frames", counts.faulty));
  }
  if (!command.corrections.stream.empty() || !command.displacements.empty()) {
    const workbench::StreamCounts& input = counts.input;
    const std::string what = command.displacements.empty() ? "corrections" : "displacements";
    report.Add(what,
               {{"received", input.received},
                {"not_finite", input.not_finite},
                {"torn", input.torn},
                {"found", input.found},
                {"lost", input.lost}},
               what, InWords(input));
  }
  if (gige != nullptr) {
    const auto [sent, left_out] = gige->Counts();
    report.Add("gige", {{"sent", sent}, {"left_out", left_out}}, "GigE camera",
               fmt::format("{}: {} sent, {} left out for a slow client", command.gige, sent, left_out));
  }
  if (command.Rate() > 0.0) AddDurations(report, "lateness", counts.lateness);
  AddDurations(report, "intervals", counts.intervals);
  return report;
}

void Serve(ServeArguments& command) {
  RequireSense(command);
  workbench::StagedFiles files({command.log, command.png});
  auto camera = workbench::LoadSimulator<workbench::Camera>(command.folder);
  files.RefuseToReplace(workbench::CalibrationFiles());
  command.exposure.detector = DetectorFor(command.detector, files);
  command.corrections.when_lost = WhenLostNamed(command.when_lost);
  workbench::MonotonicClock clock;
  const std::unique_ptr<workbench::SpotSource> spots = SpotsFor(command, camera, files, clock);
  std::optional<workbench::FaultScript> faults = FaultsFor(command, files);

  const std::unique_ptr<workbench::GigeCamera> gige = CameraFor(command);
  workbench::ServeOptions options = {.stream = command.stream,
                                     .type = TypeFor(command),
                                     .rate = command.Rate(),
                                     .frames = command.frames.value_or(workbench::kNoEnd),
                                     .exposure = command.exposure,
                                     .ahead = command.ahead,
                                     .camera = gige.get()};
  if (command.lockstep) {
    options.lockstep = std::chrono::duration_cast<workbench::Time>(std::chrono::duration<double>(command.timeout));
  }
  workbench::ServeCounts counts;
  std::string path;
  std::optional<workbench::Reprieve> reprieve;  // for what is left to be written and said
  {
    const std::unique_ptr<workbench::TruthLog> log = LogFor(command);
    workbench::Server server(camera, *spots, options, std::move(faults), log.get(), clock);
    path = server.Path();
    const LineOfServer line(server);  // before this thread asks for more than others have
    AskForRealTime(command);
    server.Run();
    reprieve.emplace();
    if (log) log->Finish();
    if (gige) gige->Finish();
    counts = server.Counts();
  }
  Report report = ReportOf(command, path, counts, gige.get());
  if (!command.png.empty()) files.Give(command.png, workbench::DrawServe(counts.lateness, counts.intervals));
  if (!command.log.empty()) {
    report.Add("log", command.log, "log", command.log);
    files.GiveUp(command.log);  // it is written
  }
  files.Commit();
  report.AddFiles(files);
  report.Print(command.json);
  if (counts.is_interrupted) throw workbench::Interrupted("ended by a signal, in order");
}

std::vector<std::vector<std::string>> ServeAlternatives() {
  std::vector<std::vector<std::string>> alternatives = {{"--d-over-r0", "--disturbance"}, {"--wind", "--disturbance"}};
  for (const char* const name : {"--d-over-r0", "--disturbance", "--wind", "--corrections", "--ahead"}) {
    alternatives.push_back({name, "--displacements"});
  }
  for (const char* const name : {"--corrections", "--faults"}) alternatives.push_back({name, "--ahead"});
  return WithExposure(alternatives);
}

}  // namespace

void AddServe(CommandLine& line) {
  const auto command = std::make_shared<ServeArguments>();
  using Limits = workbench::LoopLimits;
  constexpr common::Limits kRates = {0.0, 100000.0};
  constexpr common::Limits kFrames = {1.0, 1e15};
  constexpr common::Limits kWinds = {0.0, 1000.0};
  constexpr common::Limits kDiameters = {0.01, 1000.0};
  constexpr common::Limits kDelays = {0.0, 1000.0};
  constexpr common::Limits kTimeouts = {0.001, 1e6};
  constexpr common::Limits kAheads = {0.0, 1000.0};
  constexpr common::Limits kPriorities = {1.0, 99.0};
  constexpr common::Limits kProcessors = {0.0, 1023.0};
  const auto stream = [](const std::string& name, const std::string& what, const std::string& otherwise,
                         std::string& variable) {
    Argument argument = File(name, what, otherwise, variable);
    argument.value = "NAME";
    return argument;
  };
  Argument strength = Number("--d-over-r0", "Strength of the turbulence: diameter over Fried parameter", "",
                             Limits::kDOverR0, command->d_over_r0);
  strength.alias = "--amplitude";
  Argument type = OneOf("--type", "What the pixels are", {"int16", "uint16"}, command->type);
  type.otherwise = "int16, with a detector uint16";
  Argument gige = File("--gige", "Address at which a GigE Vision camera has the same frames; with a detector", "none",
                       command->gige);
  gige.value = "ADDRESS";
  Argument faults = Checked(
      "--faults", "What goes wrong: a JSON file, or one fault in a share of the frames, 0 to 1",
      "FILE|random:SEED:SHARE",
      [](const std::string& text) {
        if (text.starts_with(workbench::kRandomFaults)) workbench::ParseRandomFaults(text);
      },
      command->faults);
  Argument priority = Number("--realtime", "Real-time priority of the thread that draws, and locked memory", "",
                             kPriorities, command->priority);
  priority.otherwise = "none";
  line.Add(
      {.name = "serve",
       .summary = "Publish frames as a sensor that is on does",
       .details = R"(
Draws frame after frame at a camera's rate and puts them into a shared-memory image stream, layout 2.00, to which any
program of that layout attaches. Frame k is due at start + k / rate. It is begun as late as drawing allows, and the
newest corrections are taken then: residual = disturbance - corrections. A frame that is late is published late; one
whose successor is due before it is begun is skipped and counted. Corrections are a stream of 52 floats or doubles,
radians, that another program makes and writes. Ctrl-C ends it in order, with a report.

The stream's keywords are FRAME (counted from 0, of the pixels that are there now), SEED, NOISE and RATE. Streams are in
the folder that MILK_SHM_DIR names, else in /milk/shm, else in /tmp. A stream that a dead program has left is replaced,
a living one's is not.

With --lockstep each frame waits for corrections that were written after the frame before was published; then equal
seeds give equal runs, to the last bit.)",
       .list = workbench::FaultHelp(),
       .examples = {"quen-shs serve sensor --stream wfs --rate 500",
                    "quen-shs serve sensor --stream wfs --corrections modes --lockstep --frames 1000 --log truth.fits",
                    "quen-shs serve sensor --stream wfs --faults random:7:0.01 --frames 5000 --json"},
       .arguments = Joined(
           {{CalibrationFolder(command->folder),
             Required(stream("--stream", "Stream for the frames", "", command->stream)), std::move(type),
             Number("--rate", "Frames a second; 0: as fast as they come", "Hz", kRates, "500, with --lockstep 0",
                    command->rate),
             Number("--frames", "Number of frames", "", kFrames, "until Ctrl-C", command->frames), std::move(strength),
             Number("--wind", "Wind that carries the turbulence over the pupil", "m/s", kWinds,
                    "a correlation of 0.9995 in a millisecond", command->wind)},
            OnlyWith("--wind", {Number("--diameter", "Diameter of the pupil", "m", kDiameters, command->diameter)}),
            {File("--disturbance", "FITS file with a disturbance to be used instead", "none", command->disturbance)},
            OnlyWith("--disturbance", {OneOf("--at-end", "What becomes of it where that file ends",
                                             {"hold", "repeat", "stop"}, command->at_end)}),
            ExposureArguments(command->exposure.noise, command->exposure.seed, command->detector),
            {stream("--corrections", "Stream of corrections, 52 modes in radians", "none",
                    command->corrections.stream)},
            OnlyWith("--corrections", {Number("--corrections-delay", "Further time until they act", "frames", kDelays,
                                              command->corrections.delay),
                                       OneOf("--when-lost", "What becomes of them where their stream is gone",
                                             {"hold", "zero", "stop"}, command->when_lost)}),
            {stream("--displacements", "Stream of displacements to be drawn instead, 1089 x 2 (x, then y), pixels",
                    "none", command->displacements),
             Flag("--lockstep", "Let each frame wait for an answer to the one before; rate 0", command->lockstep)},
            OnlyWith("--lockstep", {Number("--timeout", "How long", "s", kTimeouts, command->timeout)}),
            {std::move(faults), File("--log", "FITS file for truth and times, a row per frame", "none", command->log),
             File("--png", "PNG file for a picture of lateness and intervals", "none", command->png), std::move(gige),
             Number("--ahead", "Frames drawn before their time", "frames", kAheads, command->ahead),
             std::move(priority),
             Number("--cpu", "Processor on which frames are drawn", "", kProcessors, "any", command->processor),
             JsonFlag(command->json)}}),
       .alternatives = ServeAlternatives(),
       .action = [command] { Serve(*command); }});
}

}  // namespace quen::tool
