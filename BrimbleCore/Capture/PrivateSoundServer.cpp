#include "BrimbleCore/Capture/PrivateSoundServer.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>

#include "BrimbleCore/Capture/AudioError.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {
namespace {

// Measured: about 150 ms on an idle machine; a loaded one gets plenty more.
constexpr auto kStartTimeout = std::chrono::seconds(10);

bool accepts(const std::filesystem::path& socketPath) {
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) {
    return false;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = socketPath.string();
  if (path.size() >= sizeof address.sun_path) {
    return false;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

PrivateSoundServer::PrivateSoundServer() {
  std::string pattern = (temporaryDirectory() / "brimble-sound-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw AudioError::privateServerFailed(
        "cannot create a folder in " + temporaryDirectory().string() + ": " + std::strerror(errno));
  }
  folder_ = pattern;
  const auto socket = folder_ / "native";
  address_ = "unix:" + socket.string();
  SpawnOptions options;
  options.dieWithParent = true;
  // Its cookie, configuration and runtime files stay in our folder, out of the user's home.
  options.environment = {"HOME=" + folder_.string(), "XDG_RUNTIME_DIR=" + folder_.string(),
                         "XDG_CONFIG_HOME=" + folder_.string(), "PULSE_SERVER="};
  try {
    server_ = Subprocess::spawn(
        {"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
         "--disable-shm=yes", "-L",
         "module-native-protocol-unix auth-anonymous=1 socket=" + socket.string(), "-L",
         "module-null-sink sink_name=brimble sink_properties=device.description=Brimble"},
        options);
  } catch (const std::system_error& error) {
    std::filesystem::remove_all(folder_);
    throw AudioError::privateServerFailed(std::string(error.what()) +
                                          " (install the pulseaudio package)");
  }
  const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
  while (!accepts(socket)) {
    if (server_.hasExited() || std::chrono::steady_clock::now() > deadline) {
      stopServer();
      std::error_code ignored;
      std::filesystem::remove_all(folder_, ignored);
      throw AudioError::privateServerFailed("pulseaudio did not accept connections");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void PrivateSoundServer::stopServer() noexcept {
  try {
    server_.terminate();
  } catch (const std::exception&) {
    // Already reaped, or gone: nothing is left to stop.
  }
}

PrivateSoundServer::~PrivateSoundServer() {
  stopServer();
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

}  // namespace brimble
