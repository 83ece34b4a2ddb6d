#pragma once
// Owners of what libcurl hands out.

#include <curl/curl.h>
#include <memory>

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

}  // namespace qx
