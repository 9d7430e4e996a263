#pragma once

#include <memory>

// PipeWire's handles, declared here so that headers need none of PipeWire's.
struct pw_thread_loop;
struct pw_context;
struct pw_core;
struct pw_registry;
struct pw_stream;
struct spa_hook;

namespace brimble::wayland {

/// Initialises the PipeWire library for this process, once; any thread.
void initPipeWire();

struct PipeWireThreadLoopDestroyer {
  void operator()(pw_thread_loop* loop) const noexcept;  // pw_thread_loop_destroy
};
/// A loop on a thread of its own, on which PipeWire calls back. Stop it (pw_thread_loop_stop)
/// before the objects that run on it go.
using PipeWireThreadLoopPtr = std::unique_ptr<pw_thread_loop, PipeWireThreadLoopDestroyer>;

struct PipeWireContextDestroyer {
  void operator()(pw_context* context) const noexcept;  // pw_context_destroy
};
using PipeWireContextPtr = std::unique_ptr<pw_context, PipeWireContextDestroyer>;

struct PipeWireCoreDisconnector {
  void operator()(pw_core* core) const noexcept;  // pw_core_disconnect
};
/// A connection to the PipeWire daemon; closes its socket when it goes.
using PipeWireCorePtr = std::unique_ptr<pw_core, PipeWireCoreDisconnector>;

struct PipeWireRegistryDestroyer {
  void operator()(pw_registry* registry) const noexcept;  // pw_proxy_destroy
};
/// The daemon's list of objects, as seen over one connection.
using PipeWireRegistryPtr = std::unique_ptr<pw_registry, PipeWireRegistryDestroyer>;

struct PipeWireStreamDestroyer {
  void operator()(pw_stream* stream) const noexcept;  // pw_stream_destroy
};
using PipeWireStreamPtr = std::unique_ptr<pw_stream, PipeWireStreamDestroyer>;

/// A listener's registration on a PipeWire object (a spa_hook), removed when it goes. It must
/// go before the object it listens to; it does not move, as PipeWire links to its address.
class PipeWireListener {
 public:
  PipeWireListener();
  PipeWireListener(const PipeWireListener&) = delete;
  PipeWireListener& operator=(const PipeWireListener&) = delete;
  ~PipeWireListener();

  spa_hook* get() const noexcept { return hook_.get(); }

 private:
  std::unique_ptr<spa_hook> hook_;
};

}  // namespace brimble::wayland
