#include "BrimbleCore/Capture/SoundServerProbe.h"

#include <memory>

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/mainloop.h>

namespace brimble {
namespace {

struct PulseMainloopCloser {
  void operator()(pa_mainloop* loop) const noexcept { pa_mainloop_free(loop); }
};

struct PulseContextCloser {
  void operator()(pa_context* context) const noexcept {
    pa_context_disconnect(context);
    pa_context_unref(context);
  }
};

struct PulseOperationCloser {
  void operator()(pa_operation* operation) const noexcept { pa_operation_unref(operation); }
};

struct ServerInfoQuery {
  bool answered = false;
  std::string server;
};

void onServerInfo(pa_context*, const pa_server_info* info, void* data) {
  auto* query = static_cast<ServerInfoQuery*>(data);
  query->answered = true;
  if (info != nullptr) {
    query->server = std::string(info->server_name != nullptr ? info->server_name : "?") + " " +
                    (info->server_version != nullptr ? info->server_version : "");
  }
}

}  // namespace

SoundServerAnswer probeSoundServer(std::chrono::milliseconds timeout) {
  const std::unique_ptr<pa_mainloop, PulseMainloopCloser> loop(pa_mainloop_new());
  if (!loop) {
    return {std::nullopt, "the sound library could not start"};
  }
  const std::unique_ptr<pa_context, PulseContextCloser> context(
      pa_context_new(pa_mainloop_get_api(loop.get()), "Brimble"));
  // A check must not start a server of its own: it asks what the session already has.
  if (!context || pa_context_connect(context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
    return {std::nullopt, context ? pa_strerror(pa_context_errno(context.get()))
                                  : "the sound library could not start"};
  }
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  std::unique_ptr<pa_operation, PulseOperationCloser> operation;
  ServerInfoQuery query;
  while (std::chrono::steady_clock::now() < deadline && !query.answered) {
    const pa_context_state_t state = pa_context_get_state(context.get());
    if (!PA_CONTEXT_IS_GOOD(state)) {
      return {std::nullopt, pa_strerror(pa_context_errno(context.get()))};
    }
    if (state == PA_CONTEXT_READY && !operation) {
      operation.reset(pa_context_get_server_info(context.get(), onServerInfo, &query));
    }
    // Never blocks for long: the deadline is looked at every 50 ms.
    pa_mainloop_prepare(loop.get(), 50 * 1000);
    pa_mainloop_poll(loop.get());
    pa_mainloop_dispatch(loop.get());
  }
  if (!query.answered || query.server.empty()) {
    return {std::nullopt, "no answer within " + std::to_string(timeout.count()) + " ms"};
  }
  return {query.server, {}};
}

}  // namespace brimble
