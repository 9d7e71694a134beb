#pragma once

#include <cstdint>
#include <gsl/span>
#include <memory>
#include <string>

/// @file
/// A sensor as a GigE Vision camera, for programs that take their frames by GenICam. It is there in builds that have
/// found Aravis, whose camera it is.

namespace quen::workbench {

/// What became of the frames that a camera was given while a client took them.
struct GigeCounts {
  std::uint64_t sent = 0;      ///< to the client
  std::uint64_t left_out = 0;  ///< it was too slow for them
};

/// A camera of 840 × 816 pixels, Mono16, which gives each of its frames to the one client that has started it. It does
/// so in a thread of its own, which for a part of its time looks again and again whether a frame has come.
///
/// Its sockets are tied to the loopback device: only programs of this machine find it, and nothing leaves the machine.
class GigeCamera {
 public:
  /// @param address  of a network interface of this machine: "127.0.0.1"
  /// @param name     that clients know it by, its serial number: the first 15 bytes of this
  /// @param rate     frames a second that it will be given; 0: as they come
  /// @throws std::runtime_error  this build has no camera; the address is none of this machine, or has a camera
  /// already;
  ///                             the system does not let it be tied to the loopback device
  GigeCamera(const std::string& address, const std::string& name, double rate);
  ~GigeCamera();
  GigeCamera(const GigeCamera&) = delete;
  GigeCamera& operator=(const GigeCamera&) = delete;
  GigeCamera(GigeCamera&&) = delete;
  GigeCamera& operator=(GigeCamera&&) = delete;

  /// Gives a frame to the client, if there is one. Copies it, allocates nothing, and does not wait: where the client is
  /// more than a dozen frames behind, this one is left out.
  /// @param pixels  840 × 816
  void Send(gsl::span<const std::uint16_t> pixels);

  /// Waits until the client has been sent all that it was given, for a second at the most.
  void Finish();

  [[nodiscard]] GigeCounts Counts() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quen::workbench
