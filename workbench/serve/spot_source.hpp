#pragma once

#include <Eigen/Core>
#include <optional>
#include <vector>

#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/matrices.hpp"
#include "workbench/serve/disturbance_source.hpp"
#include "workbench/serve/latched_stream.hpp"

namespace quen::workbench {

/// What displaces the spots of frame after frame.
class SpotSource {
 public:
  SpotSource() = default;
  virtual ~SpotSource() = default;
  SpotSource(const SpotSource&) = delete;
  SpotSource& operator=(const SpotSource&) = delete;
  SpotSource(SpotSource&&) = delete;
  SpotSource& operator=(SpotSource&&) = delete;

  /// The displacements of the current frame, with the newest that other programs say. Good until the next call.
  /// @throws std::runtime_error  another program's stream is none that can be taken
  virtual const Displacements& Latch() = 0;
  /// Goes on to the next frame.
  virtual void Advance() = 0;
  /// Why there is no further frame, in words; empty if there is one.
  [[nodiscard]] virtual std::string End() const = 0;
  /// What other programs say it by; none if nobody does.
  [[nodiscard]] virtual LatchedStream* Input() = 0;

  // What was latched last, 52 modes, radians; NaN where there are no modes.
  [[nodiscard]] virtual const Eigen::VectorXd& Residual() const = 0;
  [[nodiscard]] virtual const Eigen::VectorXd& Correction() const = 0;
  /// The number of the corrections, or the displacements, in their stream; 0 before the first.
  [[nodiscard]] virtual std::uint64_t InputNumber() const = 0;
};

/// What becomes of corrections whose stream is gone.
enum class WhenLost { kHold, kZero, kStop };

struct CorrectionOptions {
  std::string stream;  ///< none if empty
  int delay = 0;       ///< frames from the one in which they are latched to the one in which they act
  WhenLost when_lost = WhenLost::kHold;
};

/// residual = disturbance − corrections, to slopes by M2S.
class ResidualSpots : public SpotSource {
 public:
  /// @param simulator  whose calibration it is; it and the clock outlive the object
  ResidualSpots(const quen::shssim::ShsSimulator& simulator, DisturbanceSource disturbance,
                const CorrectionOptions& options, Clock& clock);

  const Displacements& Latch() override;
  void Advance() override;
  [[nodiscard]] std::string End() const override;
  [[nodiscard]] LatchedStream* Input() override { return corrections_ ? &*corrections_ : nullptr; }
  [[nodiscard]] const Eigen::VectorXd& Residual() const override { return residual_; }
  [[nodiscard]] const Eigen::VectorXd& Correction() const override { return acting_.front().modes; }
  [[nodiscard]] std::uint64_t InputNumber() const override { return acting_.front().number; }

 private:
  struct Numbered {
    Eigen::VectorXd modes;
    std::uint64_t number = 0;
  };

  /// Those that other programs say now.
  void LatchCorrections();

  Eigen::Map<const Matrix> m2s_;
  std::vector<std::size_t> used_;
  DisturbanceSource disturbance_;
  CorrectionOptions options_;
  std::optional<LatchedStream> corrections_;
  std::vector<Numbered> acting_;  ///< this frame's first, the newest last
  bool is_latched_ = false;       ///< whether the last of those is the current frame's
  Eigen::VectorXd residual_;
  Eigen::VectorXd slopes_;
  Displacements displacements_;
};

/// Displacements as another program's stream has them.
class StreamedSpots : public SpotSource {
 public:
  /// @param clock  outlives the object
  StreamedSpots(const std::string& stream, Clock& clock);

  const Displacements& Latch() override;
  void Advance() override {}
  [[nodiscard]] std::string End() const override { return ""; }
  [[nodiscard]] LatchedStream* Input() override { return &stream_; }
  [[nodiscard]] const Eigen::VectorXd& Residual() const override { return no_modes_; }
  [[nodiscard]] const Eigen::VectorXd& Correction() const override { return no_modes_; }
  [[nodiscard]] std::uint64_t InputNumber() const override { return stream_.Number(); }

 private:
  LatchedStream stream_;
  Eigen::VectorXd no_modes_;
  Displacements displacements_;
};

}  // namespace quen::workbench
