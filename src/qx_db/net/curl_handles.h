#pragma once
// Owners of what libcurl hands out.
// Threads: the one that uses the handle.

#include <curl/curl.h>
#include <memory>
#include <new>
#include <string>

namespace qx {

template <auto Free>
struct CurlDeleter {
  template <class T>
  void operator()(T* handle) const {
    Free(handle);
  }
};
using CurlEasy = std::unique_ptr<CURL, CurlDeleter<curl_easy_cleanup>>;
using CurlUrl = std::unique_ptr<CURLU, CurlDeleter<curl_url_cleanup>>;
using CurlText = std::unique_ptr<char, CurlDeleter<curl_free>>;

inline CurlUrl NewUrl() {
  CurlUrl url(curl_url());
  if (!url) throw std::bad_alloc();
  return url;
}

/// Empty for a part that is not there.
inline std::string UrlPart(CURLU* url, CURLUPart part, unsigned flags = 0) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, flags) != CURLUE_OK) return {};
  const CurlText owned(text);
  return text;
}

}  // namespace qx
