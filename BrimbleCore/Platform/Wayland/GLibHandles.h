#pragma once

#include <memory>
#include <string>

#include <gio/gio.h>

namespace brimble::wayland {

struct GObjectUnref {
  void operator()(gpointer object) const noexcept { g_object_unref(object); }
};
/// A reference to a GObject (a bus connection, an fd list), released with g_object_unref.
template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;

struct GVariantUnref {
  void operator()(GVariant* variant) const noexcept { g_variant_unref(variant); }
};
/// A reference to a GVariant, released with g_variant_unref. Floating variants are sunk first
/// (see `adoptVariant`).
using GVariantPtr = std::unique_ptr<GVariant, GVariantUnref>;

/// Takes ownership of `variant`, sinking it when it is floating.
inline GVariantPtr adoptVariant(GVariant* variant) {
  return GVariantPtr(variant != nullptr ? g_variant_ref_sink(variant) : nullptr);
}

struct GErrorFree {
  void operator()(GError* error) const noexcept { g_error_free(error); }
};
using GErrorPtr = std::unique_ptr<GError, GErrorFree>;

struct GMainContextUnref {
  void operator()(GMainContext* context) const noexcept { g_main_context_unref(context); }
};
using GMainContextPtr = std::unique_ptr<GMainContext, GMainContextUnref>;

struct GMainLoopUnref {
  void operator()(GMainLoop* loop) const noexcept { g_main_loop_unref(loop); }
};
using GMainLoopPtr = std::unique_ptr<GMainLoop, GMainLoopUnref>;

/// A main context of its own, made the calling thread's default while this lives: signals
/// subscribed meanwhile are delivered there, and only where it is iterated.
class PrivateMainContext {
 public:
  PrivateMainContext() : context_(g_main_context_new()) {
    g_main_context_push_thread_default(context_.get());
  }
  PrivateMainContext(const PrivateMainContext&) = delete;
  PrivateMainContext& operator=(const PrivateMainContext&) = delete;
  ~PrivateMainContext() { g_main_context_pop_thread_default(context_.get()); }

  GMainContext* get() const noexcept { return context_.get(); }

 private:
  GMainContextPtr context_;
};

/// The message of `error`, and frees it.
inline std::string takeMessage(GError* error) {
  const GErrorPtr owned(error);
  return owned ? owned->message : "unknown error";
}

}  // namespace brimble::wayland
