#include "workbench/serve/gige_camera.hpp"

#include <arpa/inet.h>
#include <arv.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "workbench/fits/descriptor.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kPixels = kFrameWidth * kFrameHeight;
constexpr std::size_t kMostWaiting = 16;  // frames

// What a client is told of the camera's features: none that it can set but that it is to begin and to end.
constexpr std::string_view kFeatures = R"(<?xml version="1.0" encoding="utf-8"?>
<RegisterDescription ModelName="quen_shs" VendorName="quen" StandardNameSpace="None" SchemaMajorVersion="1"
  SchemaMinorVersion="0" SchemaSubMinorVersion="1" MajorVersion="1" MinorVersion="0" SubMinorVersion="0"
  ToolTip="Shack-Hartmann wavefront sensor" ProductGuid="0" VersionGuid="0"
  xmlns="http://www.genicam.org/GenApi/Version_1_0" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
  xsi:schemaLocation="http://www.genicam.org/GenApi/Version_1_0 GenApiSchema.xsd">
<Category Name="Root" NameSpace="Standard">
  <pFeature>DeviceControl</pFeature>
  <pFeature>ImageFormatControl</pFeature>
  <pFeature>AcquisitionControl</pFeature>
  <pFeature>TransportLayerControl</pFeature>
</Category>
<Category Name="DeviceControl" NameSpace="Standard">
  <pFeature>DeviceVendorName</pFeature>
  <pFeature>DeviceModelName</pFeature>
  <pFeature>DeviceSerialNumber</pFeature>
</Category>
<StringReg Name="DeviceVendorName" NameSpace="Standard">
  <Address>0x48</Address><Length>32</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
</StringReg>
<StringReg Name="DeviceModelName" NameSpace="Standard">
  <Address>0x68</Address><Length>32</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
</StringReg>
<StringReg Name="DeviceSerialNumber" NameSpace="Standard">
  <Address>0xd8</Address><Length>16</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
</StringReg>
<Category Name="ImageFormatControl" NameSpace="Standard">
  <pFeature>SensorWidth</pFeature>
  <pFeature>SensorHeight</pFeature>
  <pFeature>OffsetX</pFeature>
  <pFeature>OffsetY</pFeature>
  <pFeature>Width</pFeature>
  <pFeature>Height</pFeature>
  <pFeature>PixelFormat</pFeature>
</Category>
<IntReg Name="SensorWidth" NameSpace="Standard">
  <Address>0x100</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
  <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>
</IntReg>
<IntReg Name="SensorHeight" NameSpace="Standard">
  <Address>0x104</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
  <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>
</IntReg>
<Integer Name="OffsetX" NameSpace="Standard"><Value>0</Value><Min>0</Min><Max>0</Max></Integer>
<Integer Name="OffsetY" NameSpace="Standard"><Value>0</Value><Min>0</Min><Max>0</Max></Integer>
<IntReg Name="Width" NameSpace="Standard">
  <Address>0x100</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
  <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>
</IntReg>
<IntReg Name="Height" NameSpace="Standard">
  <Address>0x104</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
  <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>
</IntReg>
<Enumeration Name="PixelFormat" NameSpace="Standard">
  <EnumEntry Name="Mono16" NameSpace="Standard"><Value>17825799</Value></EnumEntry>
  <pValue>PixelFormatRegister</pValue>
</Enumeration>
<IntReg Name="PixelFormatRegister" NameSpace="Custom">
  <Address>0x128</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
  <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>
</IntReg>
<Category Name="AcquisitionControl" NameSpace="Standard">
  <pFeature>AcquisitionMode</pFeature>
  <pFeature>AcquisitionStart</pFeature>
  <pFeature>AcquisitionStop</pFeature>
</Category>
<Enumeration Name="AcquisitionMode" NameSpace="Standard">
  <EnumEntry Name="Continuous" NameSpace="Standard"><Value>1</Value></EnumEntry>
  <pValue>AcquisitionModeRegister</pValue>
</Enumeration>
<IntReg Name="AcquisitionModeRegister" NameSpace="Custom">
  <Address>0x12c</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>
</IntReg>
<Command Name="AcquisitionStart" NameSpace="Standard">
  <pValue>AcquisitionRegister</pValue><CommandValue>1</CommandValue>
</Command>
<Command Name="AcquisitionStop" NameSpace="Standard">
  <pValue>AcquisitionRegister</pValue><CommandValue>0</CommandValue>
</Command>
<IntReg Name="AcquisitionRegister" NameSpace="Custom">
  <Address>0x124</Address><Length>4</Length><AccessMode>WO</AccessMode><pPort>Device</pPort>
  <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>
</IntReg>
<Category Name="TransportLayerControl" NameSpace="Standard">
  <pFeature>PayloadSize</pFeature>
</Category>
<IntSwissKnife Name="PayloadSize" NameSpace="Standard">
  <pVariable Name="WIDTH">Width</pVariable>
  <pVariable Name="HEIGHT">Height</pVariable>
  <Formula>WIDTH * HEIGHT * 2</Formula>
</IntSwissKnife>
<Integer Name="TLParamsLocked"><Visibility>Invisible</Visibility><Value>0</Value><Min>0</Min><Max>1</Max></Integer>
<Port Name="Device" NameSpace="Standard"></Port>
</RegisterDescription>
)";

// Where GigE Vision has a camera's names, and how many bytes there are for each.
constexpr std::uint32_t kVendorAt = 0x48;
constexpr std::uint32_t kModelAt = 0x68;
constexpr std::uint32_t kSerialAt = 0xd8;
constexpr std::uint32_t kOwnNameAt = 0xe8;
constexpr std::size_t kLongText = 32;
constexpr std::size_t kShortText = 16;

/// The features as a file, which Aravis asks for; none that a folder has.
Descriptor FileOfFeatures() {
  Descriptor file(memfd_create("quen-shs", MFD_CLOEXEC));
  if (!file.IsOpen() || write(file.Number(), kFeatures.data(), kFeatures.size()) != ssize_t{kFeatures.size()}) {
    throw std::system_error(errno, std::generic_category(), "--gige: no memory for the camera's features");
  }
  return file;
}

/// Aravis lets two cameras share an address, and its control packets.
bool IsFree(const std::string& address) {
  constexpr std::uint16_t kControlPort = 3956;
  sockaddr_in place = {};
  place.sin_family = AF_INET;
  place.sin_port = htons(kControlPort);
  const Descriptor trial(socket(AF_INET, static_cast<int>(SOCK_DGRAM) | static_cast<int>(SOCK_CLOEXEC), 0));
  return inet_pton(AF_INET, address.c_str(), &place.sin_addr) == 1 &&
         bind(trial.Number(), reinterpret_cast<const sockaddr*>(&place), sizeof(place)) == 0;  // NOLINT: as it is meant
}

std::set<int> OpenDescriptors() {
  std::set<int> numbers;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const std::string name = entry.path().filename();
    int number = 0;
    std::from_chars(name.data(), name.data() + name.size(), number);
    numbers.insert(number);
  }
  return numbers;
}

/// Ties the sockets of the internet among the descriptors to the loopback device: the kernel lets nothing else in and
/// nothing out.
void TieToLoopback(const std::set<int>& descriptors, const std::set<int>& others) {
  constexpr std::array<char, 3> kDevice = {"lo"};
  for (const int number : descriptors) {
    int domain = 0;
    socklen_t size = sizeof(domain);
    if (others.contains(number) || getsockopt(number, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0 ||
        domain != AF_INET) {
      continue;
    }
    if (setsockopt(number, SOL_SOCKET, SO_BINDTODEVICE, kDevice.data(), kDevice.size()) != 0) {
      throw std::system_error(errno, std::generic_category(), "--gige: the camera cannot be tied to this machine");
    }
  }
}

void WriteText(ArvFakeCamera* camera, std::uint32_t address, std::string text, std::size_t room) {
  text.resize(room - 1);
  arv_fake_camera_write_memory(camera, address, static_cast<std::uint32_t>(room), text.c_str());
}

}  // namespace

/// Aravis asks for a frame where the software trigger has been pulled, which it looks for at a frequency of its own.
struct GigeCamera::State {
  std::mutex mutex;
  std::vector<std::uint16_t> waiting = std::vector<std::uint16_t>(kMostWaiting * kPixels);  ///< a ring of frames
  std::uint64_t from = 0;  ///< ring: how many were taken out of it, and put in
  std::uint64_t to = 0;
  GigeCounts counts;
  ArvGvFakeCamera* server = nullptr;
  ArvFakeCamera* camera = nullptr;  ///< the server's

  State() = default;
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  State(State&&) = delete;
  State& operator=(State&&) = delete;
  ~State() {
    if (server != nullptr) g_object_unref(server);
  }

  void Pull() const { arv_fake_camera_write_register(camera, ARV_FAKE_CAMERA_REGISTER_TRIGGER_SOFTWARE, 1); }

  [[nodiscard]] bool IsStarted() const {
    return arv_fake_camera_get_acquisition_status(camera) != 0 &&
           arv_fake_camera_get_control_channel_privilege(camera) != 0;
  }

  /// Called by Aravis' thread: the next frame into the client's buffer.
  static void Fill(ArvBuffer* buffer, void* data, std::uint32_t /*exposure*/, std::uint32_t /*gain*/,
                   ArvPixelFormat /*format*/) {
    State& state = *static_cast<State*>(data);
    std::size_t received = 0;                                                        // of other buffers
    void* const pixels = const_cast<void*>(arv_buffer_get_data(buffer, &received));  // NOLINT: it is to be filled
    const std::size_t size = std::min(arv_fake_camera_get_payload(state.camera), kPixels * sizeof(std::uint16_t));
    const std::scoped_lock lock(state.mutex);
    // A frame that was thrown away after the trigger was pulled for it: the one before once more.
    if (state.from < state.to) ++state.from;
    const std::uint16_t* const next = &state.waiting[((state.from + kMostWaiting - 1) % kMostWaiting) * kPixels];
    std::memcpy(pixels, next, size);
    ++state.counts.sent;
    if (state.from < state.to) state.Pull();
  }
};

GigeCamera::GigeCamera(const std::string& address, const std::string& name, double rate)
    : state_(std::make_unique<State>()) {
  constexpr double kMoreOften = 1.25;  // than frames come, so that those that wait become fewer
  constexpr double kLeastOften = 100.0;
  constexpr double kForAnyRate = 2000.0;
  const bool is_free = IsFree(address);
  const std::set<int> others = OpenDescriptors();
  const Descriptor features = FileOfFeatures();
  const std::string file = fmt::format("/proc/self/fd/{}", features.Number());
  if (is_free) state_->server = arv_gv_fake_camera_new_full(address.c_str(), name.c_str(), file.c_str());
  if (state_->server == nullptr || arv_gv_fake_camera_is_running(state_->server) == FALSE) {
    throw std::runtime_error(
        fmt::format("--gige: expected the address of one of this machine's network interfaces, without another camera "
                    "(UDP port 3956), found {}",
                    address));
  }
  TieToLoopback(OpenDescriptors(), others);
  ArvFakeCamera* const camera = arv_gv_fake_camera_get_fake_camera(state_->server);
  state_->camera = camera;
  WriteText(camera, kVendorAt, "quen", kLongText);
  WriteText(camera, kModelAt, "quen-shs", kLongText);
  WriteText(camera, kSerialAt, name, kShortText);
  WriteText(camera, kOwnNameAt, name, kShortText);
  arv_fake_camera_write_register(camera, ARV_FAKE_CAMERA_REGISTER_WIDTH, kFrameWidth);
  arv_fake_camera_write_register(camera, ARV_FAKE_CAMERA_REGISTER_HEIGHT, kFrameHeight);
  arv_fake_camera_write_register(camera, ARV_FAKE_CAMERA_REGISTER_PIXEL_FORMAT, ARV_PIXEL_FORMAT_MONO_16);
  arv_fake_camera_write_register(camera, ARV_FAKE_CAMERA_REGISTER_TRIGGER_MODE, 1);
  arv_fake_camera_write_register(camera, ARV_FAKE_CAMERA_REGISTER_TRIGGER_SOURCE, 1);
  arv_fake_camera_set_trigger_frequency(camera, rate > 0.0 ? std::max(kMoreOften * rate, kLeastOften) : kForAnyRate);
  arv_fake_camera_set_fill_pattern(camera, State::Fill, state_.get());
}

GigeCamera::~GigeCamera() = default;

void GigeCamera::Send(gsl::span<const std::uint16_t> pixels) {
  const std::scoped_lock lock(state_->mutex);
  if (!state_->IsStarted()) {
    arv_fake_camera_write_register(state_->camera, ARV_FAKE_CAMERA_REGISTER_TRIGGER_SOFTWARE, 0);
    state_->from = state_->to;
    return;
  }
  if (state_->to - state_->from == kMostWaiting - 1) {
    ++state_->counts.left_out;
    return;
  }
  std::ranges::copy(pixels, &state_->waiting[(state_->to % kMostWaiting) * kPixels]);
  ++state_->to;
  state_->Pull();
}

void GigeCamera::Finish() {
  constexpr int kMostLooks = 200;
  constexpr auto kBetween = std::chrono::milliseconds(5);
  const auto is_done = [this] {
    const std::scoped_lock lock(state_->mutex);
    return state_->from == state_->to || !state_->IsStarted();
  };
  for (int k = 0; k < kMostLooks && !is_done(); ++k) std::this_thread::sleep_for(kBetween);
}

GigeCounts GigeCamera::Counts() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->counts;
}

}  // namespace quen::workbench
