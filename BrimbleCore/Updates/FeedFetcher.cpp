#include "BrimbleCore/Updates/FeedFetcher.h"

#include <memory>
#include <mutex>

#include <curl/curl.h>

#include "BrimbleCore/Updates/UpdateError.h"

namespace brimble {

namespace {

struct CurlCloser {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
using CurlPtr = std::unique_ptr<CURL, CurlCloser>;

// libcurl's global set-up is not thread-safe, so it runs once, before the first handle.
void initializeCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct Body {
  std::string bytes;
  std::size_t limit = 0;
  bool overflowed = false;
};

std::size_t appendBody(char* data, std::size_t size, std::size_t count, void* target) {
  auto& body = *static_cast<Body*>(target);
  const std::size_t length = size * count;
  if (body.bytes.size() + length > body.limit) {
    body.overflowed = true;
    return 0;  // libcurl stops the transfer with CURLE_WRITE_ERROR
  }
  body.bytes.append(data, length);
  return length;
}

}  // namespace

std::string fetchFeed(const std::string& url, const FeedLimits& limits) {
  initializeCurlOnce();
  const CurlPtr handle(curl_easy_init());
  if (!handle) {
    throw UpdateError::unreachable(url, "libcurl could not start");
  }
  Body body;
  body.limit = limits.maxBytes;
  char error[CURL_ERROR_SIZE] = {};
  CURL* curl = handle.get();
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 5L);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(limits.timeout.count()));
  // Without this, libcurl times out name lookups with SIGALRM, which is not safe in threads.
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_USERAGENT, "Brimble update check");
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &appendBody);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
  const CURLcode result = curl_easy_perform(curl);
  if (body.overflowed) {
    throw UpdateError::tooLarge(url, limits.maxBytes);
  }
  if (result != CURLE_OK) {
    throw UpdateError::unreachable(url, error[0] != '\0' ? error : curl_easy_strerror(result));
  }
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  if (status >= 400) {
    throw UpdateError::httpStatus(url, status);
  }
  return std::move(body.bytes);
}

}  // namespace brimble
