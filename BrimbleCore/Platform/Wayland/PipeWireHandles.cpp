#include "BrimbleCore/Platform/Wayland/PipeWireHandles.h"

#include <mutex>

#include <pipewire/pipewire.h>

namespace brimble::wayland {

void initPipeWire() {
  static std::once_flag once;
  std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

void PipeWireThreadLoopDestroyer::operator()(pw_thread_loop* loop) const noexcept {
  pw_thread_loop_destroy(loop);
}

void PipeWireContextDestroyer::operator()(pw_context* context) const noexcept {
  pw_context_destroy(context);
}

void PipeWireCoreDisconnector::operator()(pw_core* core) const noexcept {
  pw_core_disconnect(core);
}

void PipeWireRegistryDestroyer::operator()(pw_registry* registry) const noexcept {
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
}

void PipeWireStreamDestroyer::operator()(pw_stream* stream) const noexcept {
  pw_stream_destroy(stream);
}

PipeWireListener::PipeWireListener() : hook_(std::make_unique<spa_hook>()) {}

PipeWireListener::~PipeWireListener() {
  // A hook that was never added has no list to leave.
  if (hook_->link.next != nullptr) {
    spa_hook_remove(hook_.get());
  }
}

}  // namespace brimble::wayland
