#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "benchmarks/exponentials.hpp"
#include "benchmarks/plain_loop.hpp"
#include "benchmarks/process_level.hpp"
#include "benchmarks/timed_loop.hpp"
#include "centroiders/centre_of_gravity.hpp"
#include "common/random/random.hpp"
#include "common/random/uniform_stream.hpp"
#include "detector/detector.hpp"
#include "shssim/shs_simulator.hpp"
#include "shssim/src/render_frame.hpp"
#include "stream/reader.hpp"
#include "stream/writer.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/camera.hpp"

// Names are GROUP/ROW; scripts/bench prints each row's time and its ratio to the first row of its group.

namespace {

using quen::common::random::UniformStream;
using quen::common::simd::kLevels;
using quen::common::simd::Level;
using quen::shssim::RenderFrame;

constexpr std::size_t kPixels = std::size_t{1089} * 24 * 24;
constexpr double kSlopeLimit = 12.0;

/// The synthetic calibration's regions, random displacements within ±2 pixels, and both frames.
struct Scene {
  Scene() {
    std::mt19937 random(1);
    quen::common::random::FillUniform(random, -2.0, 2.0, dx);
    quen::common::random::FillUniform(random, -2.0, 2.0, dy);
  }

  quen::workbench::Camera camera;
  std::vector<double> dx = std::vector<double>(1089);
  std::vector<double> dy = std::vector<double>(1089);
  std::vector<double> values = std::vector<double>(685440);
  std::vector<std::uint16_t> pixels = std::vector<std::uint16_t>(685440);
  std::mt19937 generator{2};
};

void Plain(Scene& scene, double noise) {
  quen_benchmarks::PlainLoop(scene.camera.Rois(), scene.dx, scene.dy, noise, scene.generator, scene.values,
                             scene.pixels);
}

void Rendered(Scene& scene, Level level, double noise) {
  RenderFrame(level, scene.camera.Rois(), scene.dx, scene.dy, noise, scene.generator, {scene.values, scene.pixels});
}

/// Nothing is timed that does not give the plain loop's bits.
bool Verified() {
  Scene plain;
  for (const double noise : {0.0, 10.0}) {
    plain.generator.seed(3);
    Plain(plain, noise);
    for (const Level level : kLevels) {
      if (!quen::common::simd::IsAvailable(level)) continue;
      Scene scene;
      scene.generator.seed(3);
      Rendered(scene, level, noise);
      if (scene.values != plain.values || scene.pixels != plain.pixels || !(scene.generator == plain.generator))
        return false;
    }
  }
  return true;
}

/// The plain centre of gravity and the library's agree, in all sums exactly.
bool EnginesVerified() {
  Scene scene;
  scene.camera.ComputeFrame(scene.dx, scene.dy, 10.0, std::nullopt);
  quen_benchmarks::PlainCentreOfGravity plain;
  quen::centroiders::CentreOfGravity engine;
  constexpr double kRounding = 1e-12;  // of the plain loop's absolute coordinates
  return std::ranges::all_of(scene.camera.Rois(), [&](const quen::image_processing::Roi& roi) {
    plain.Compute(scene.camera.Frame(), roi);
    engine.Compute(scene.camera.Frame(), roi);
    return plain.flux == engine.flux && std::abs(plain.x - engine.x) < kRounding &&
           std::abs(plain.y - engine.y) < kRounding;
  });
}

template <typename Action>
void Add(const std::string& name, Action action) {
  benchmark::RegisterBenchmark(name.c_str(), [action](benchmark::State& state) {
    for ([[maybe_unused]] auto iteration : state) action();
  })->Unit(benchmark::kMicrosecond);
}

void AddFrames(Scene& scene) {
  for (const double noise : {10.0, 0.0}) {
    const std::string group = noise == 0.0 ? "frame, noise 0/" : "frame, noise 10/";
    Add(group + "plain loop", [&scene, noise] { Plain(scene, noise); });
    for (const Level level : kLevels) {
      if (!quen::common::simd::IsAvailable(level)) continue;
      Add(group + "library, " + Name(level), [&scene, level, noise] { Rendered(scene, level, noise); });
    }
  }
}

void AddStages(Scene& scene) {
  const Level level = quen::common::simd::Best();
  Add("stages of a frame/whole, noise 10", [&scene, level] { Rendered(scene, level, 10.0); });
  Add("stages of a frame/draw: advance the generator", [&scene, level] {
    UniformStream stream(level, scene.generator);
    stream.Skip(kPixels);
  });
  Add("stages of a frame/draw, temper and convert", [&scene, level] {
    UniformStream stream(level, scene.generator);
    for (std::size_t k = 0; k < kPixels; k += 576) benchmark::DoNotOptimize(stream.Take(576));
  });
  Add("stages of a frame/Gaussians, stored, and the advance", [&scene, level] { Rendered(scene, level, 0.0); });
  Add("stages of a frame/store both frames", [&scene] {
    std::ranges::fill(scene.values, 1.0);
    std::ranges::fill(scene.pixels, std::uint16_t{1});
    benchmark::ClobberMemory();
  });
}

/// While it lives, the process runs a level.
class AtLevel {
 public:
  explicit AtLevel(Level level) : best_(quen::common::simd::Best()) { quen_benchmarks::SetProcessLevel(level); }
  ~AtLevel() { quen_benchmarks::SetProcessLevel(best_); }
  AtLevel(const AtLevel&) = delete;
  AtLevel& operator=(const AtLevel&) = delete;
  AtLevel(AtLevel&&) = delete;
  AtLevel& operator=(AtLevel&&) = delete;

 private:
  Level best_;
};

/// Measures the used sub-apertures as ComputeSlopes does.
void MeasureBare(const Scene& scene, quen::workbench::Engine& engine) {
  std::size_t used = 0;
  for (std::size_t i = 0; used < 607; ++i) {
    if (scene.camera.RoisUsed()[i] == 0) continue;
    engine.Compute(scene.camera.Frame(), scene.camera.Rois()[i]);
    ++used;
  }
}

void AddSlopes(Scene& scene) {
  static quen::centroiders::CentreOfGravity engine;
  scene.camera.ComputeFrame(scene.dx, scene.dy, 10.0, std::nullopt);
  Add("slopes/bare calls of the engine", [&scene] { MeasureBare(scene, engine); });
  Add("slopes/ComputeSlopes", [&scene] { scene.camera.ComputeSlopes(engine, kSlopeLimit, std::nullopt); });
}

void AddEngines(Scene& scene) {
  static quen_benchmarks::PlainCentreOfGravity plain;
  Add("engines/centre of gravity, plain loop", [&scene] { MeasureBare(scene, plain); });
  for (const char* const name :
       {"centre-of-gravity", "centre-of-gravity:threshold=30", "windowed", "windowed:around=reference", "weighted",
        "brightest", "quad-cell", "correlation", "gaussian-fit", "maximum-likelihood", "maximum-likelihood:shape=round",
        "maximum-likelihood:shape=oval"}) {
    const std::shared_ptr<quen::workbench::Engine> engine = quen::workbench::MakeEngine(name);
    for (const Level level : kLevels) {
      if (!quen::common::simd::IsAvailable(level)) continue;
      Add("engines/" + std::string(name) + ", " + Name(level), [&scene, engine, level] {
        const AtLevel at_level(level);
        MeasureBare(scene, *engine);
      });
    }
  }
}

using Counts = std::vector<std::uint16_t>;

/// Photons and read noise of a frame of spots.
quen::detector::Detector MakeDetector() {
  quen::detector::DetectorConfig config;
  config.read_noise = 5.0;
  config.offset = 100.0;
  return quen::detector::Detector(config);
}

/// All levels expose the same frame.
bool DetectorVerified() {
  Scene scene;
  scene.camera.ComputeFrame(scene.dx, scene.dy, 0.0);
  const quen::detector::Detector detector = MakeDetector();
  Counts plain(scene.pixels.size());
  Counts fast(scene.pixels.size());
  for (const Level level : kLevels) {
    if (!quen::common::simd::IsAvailable(level)) continue;
    const AtLevel at_level(level);
    detector.Expose(scene.camera.FrameValues(), 1, level == Level::kPlain ? plain : fast);
    if (level != Level::kPlain && plain != fast) return false;
  }
  return true;
}

/// The same with the standard library's distributions, and at each level.
void AddDetector(Scene& scene) {
  scene.camera.ComputeFrame(scene.dx, scene.dy, 0.0);
  static const std::vector<double> values = scene.camera.FrameValues();
  static const quen::detector::Detector detector = MakeDetector();
  const std::string group = "detector, photons and read noise/";
  Add(group + "the standard library's distributions", [&scene] {
    for (std::size_t k = 0; k < values.size(); ++k) {
      const double photons = values[k] > 0.0 ? std::poisson_distribution<int>(values[k])(scene.generator) : 0.0;
      const double count = photons + std::normal_distribution<double>(0.0, 5.0)(scene.generator) + 100.0;
      scene.pixels[k] = static_cast<std::uint16_t>(std::nearbyint(std::clamp(count, 0.0, 65535.0)));
    }
  });
  for (const Level level : kLevels) {
    if (!quen::common::simd::IsAvailable(level)) continue;
    Add(group + "library, " + Name(level), [&scene, level] {
      const AtLevel at_level(level);
      detector.Expose(values, 1, scene.pixels);
    });
  }
}

/// What a frame's numbers cost where nobody has thought about them.
void AddProportions(Scene& scene) {
  static std::vector<double> arguments(kPixels);
  static std::vector<double> values(kPixels);
  quen::common::random::FillUniform(scene.generator, -36.0, 0.0, arguments);  // a region's: 12² · 2 / 8
  const std::string group = "in proportion, for a frame's pixels/";
  Add(group + "the C library's exp", [] {
    quen_benchmarks::ExpOfTheCLibrary(arguments, values);
    benchmark::ClobberMemory();
  });
#ifdef QUEN_HAS_SLEEF
  if (quen::common::simd::IsAvailable(Level::kAvx512)) {
    Add(group + "SLEEF's exp, avx512, within one unit", [] {
      quen_benchmarks::ExpOfSleef(arguments, values);
      benchmark::ClobberMemory();
    });
  }
#endif
  Add(group + "std::mt19937 alone, two outputs each", [&scene] {
    for (std::size_t k = 0; k < 2 * kPixels; ++k) benchmark::DoNotOptimize(scene.generator());
  });
  Add(group + "the whole frame, noise 10, " + Name(quen::common::simd::Best()),
      [&scene] { Rendered(scene, quen::common::simd::Best(), 10.0); });
}

void AddFiles(Scene& scene, const std::string& folder) {
  static quen::centroiders::CentreOfGravity engine;
  Add("files/load the calibration", [] { benchmark::DoNotOptimize(quen::shssim::ShsSimulator()); });
  Add("files/ComputeSlopes with its file", [&scene, path = folder + "/slopes.fits"] {
    std::filesystem::remove(path);
    scene.camera.ComputeSlopes(engine, kSlopeLimit, path);
  });
  Add("files/ComputeFrame with its file",
      [&scene, path = folder + "/frame.fits"] { scene.camera.ComputeFrame(scene.dx, scene.dy, 10.0, path); });
}

/// A frame to other programs, by shared memory, and from them.
void AddPublishing(Scene& scene) {
  static std::vector<std::uint16_t> copy(scene.pixels.size());
  static const auto writer = std::make_unique<quen::stream::Writer>(
      quen::stream::StreamConfig{.name = "benchmark",
                                 .size = {quen::basesim::kFrameWidth, quen::basesim::kFrameHeight},
                                 .keywords = {{"FRAME", std::int64_t{0}}}});
  static const quen::stream::Reader reader("benchmark");
  static quen::stream::FrameInfo info;
  const std::string group = "streams, a frame of 16 bits/";
  Add(group + "memcpy", [&scene] {
    std::memcpy(copy.data(), scene.pixels.data(), gsl::span(scene.pixels).size_bytes());
    benchmark::ClobberMemory();
  });
  Add(group + "Publish", [&scene] {
    static const std::vector<quen::stream::KeywordValue> values = {std::int64_t{1}};
    writer->Publish(gsl::as_bytes(gsl::span(scene.pixels)), quen::stream::Now(), values);
  });
  Add(group + "Read", [] { benchmark::DoNotOptimize(reader.Read(gsl::as_writable_bytes(gsl::span(copy)), info)); });
}

void AddLoop(Scene& scene) {
  for (const char* const engine : {"centre-of-gravity", "weighted"}) {
    const std::string group = std::string("closed loop, ") + engine + "/";
    const auto loop = std::make_shared<quen_benchmarks::TimedLoop>(scene.camera, engine);
    for (std::size_t part = 0; part < quen_benchmarks::TimedLoop::kParts.size(); ++part) {
      benchmark::RegisterBenchmark((group + quen_benchmarks::TimedLoop::kParts.at(part)).c_str(),
                                   [loop, part](benchmark::State& state) {
                                     for ([[maybe_unused]] auto iteration : state) {
                                       state.SetIterationTime(loop->Iterate().at(part));
                                     }
                                   })
          ->Unit(benchmark::kMicrosecond)
          ->UseManualTime()
          ->Iterations(20);  // of the whole loop, however short the part is
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::string folder = (std::filesystem::temp_directory_path() / "quen_benchmarks_XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return 1;
  quen::workbench::WriteCalibration(folder, false);
  quen::workbench::UseCalibration(folder);
  setenv("MILK_SHM_DIR", folder.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): there is one thread

  const bool verified = Verified() && EnginesVerified() && DetectorVerified();
  if (verified) {
    Scene scene;
    AddFrames(scene);
    AddStages(scene);
    AddSlopes(scene);
    AddEngines(scene);
    AddDetector(scene);
    AddProportions(scene);
    AddFiles(scene, folder);
    AddPublishing(scene);
    AddLoop(scene);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
  } else {
    static_cast<void>(std::fputs("a level or an engine differs from the plain loop: nothing was timed\n", stderr));
  }
  std::filesystem::remove_all(folder);
  return verified ? 0 : 1;
}
