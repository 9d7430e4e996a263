#pragma once

#include <memory>
#include <string>

#include <atspi/atspi.h>

namespace brimble::atspi {

struct GObjectRelease {
  void operator()(gpointer object) const noexcept { g_object_unref(object); }
};
/// An owned reference to a GObject (AtspiAccessible and its interfaces, state sets).
template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectRelease>;

struct GErrorRelease {
  void operator()(GError* error) const noexcept { g_error_free(error); }
};
/// Where a libatspi call reports its failure: pass `out()`, then test it.
class CallError {
 public:
  GError** out() noexcept { return &error_; }
  explicit operator bool() const noexcept { return error_ != nullptr; }
  std::string message() const { return error_ != nullptr ? error_->message : ""; }
  ~CallError() {
    if (error_ != nullptr) {
      g_error_free(error_);
    }
  }
  CallError() = default;
  CallError(const CallError&) = delete;
  CallError& operator=(const CallError&) = delete;

 private:
  GError* error_ = nullptr;
};

/// A string libatspi handed over, as a std::string (empty for none); the original is freed.
inline std::string takeString(gchar* text) {
  if (text == nullptr) {
    return {};
  }
  std::string copy(text);
  g_free(text);
  return copy;
}

}  // namespace brimble::atspi
