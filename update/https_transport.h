#pragma once

// All network traffic of the service: HTTPS only, with libcurl's default verification of
// certificates. Every request uses a new handle; nothing is shared between requests, kept or
// retried. Any thread may call these functions; each blocks its caller, and none logs.

#include <cstddef>
#include <cstdint>
#include <string>

namespace Vantrell {

struct HttpResult {
  bool ok = false;     // the transfer finished, with any HTTP status
  int32_t status = 0;  // HTTP status, only when ok
  std::string body;    // as received, for an error status too
  std::string error;   // when not ok: "curl error ..." or "curl_easy_init failed"
};

// A libcurl write function: gets size * count bytes and returns how many it has processed.
using WriteCallback = size_t (*)(char* data, size_t size, size_t count, void* sink);
size_t AppendToString(char* data, size_t size, size_t count, void* text);  // to a std::string
size_t WriteToFile(char* data, size_t size, size_t count, void* stream);   // to a FILE

// Posts `body` to "https://" + host + path, which are not checked. Does not follow redirects. With
// an empty `bearerToken` it sends no Authorization header. `timeoutMs` limits the whole transfer,
// but libcurl waits for the look-up of the name: silent name servers can add a minute.
HttpResult HttpsPostJson(const std::string& host, const std::string& path, const std::string& body,
                         const std::string& bearerToken, int32_t timeoutMs);

// Gets a URL and follows redirects to https URLs. True only for a final status of 200. Otherwise
// `error` is "download failed, ...", "HTTP " and the status, or "curl_easy_init failed", and the
// caller must discard what the sink has got. `timeoutMs` is as above.
[[nodiscard]] bool HttpsGet(const std::string& url, WriteCallback writeCallback, void* sink,
                            long timeoutMs, std::string& error);

constexpr long SmallFileLimitMs = 60000;  // for the whole transfer

// Gets a small file into `body`, which is emptied first, as HttpsGet does, within that limit.
[[nodiscard]] bool FetchToString(const std::string& url, std::string& body, std::string& error);

}  // namespace Vantrell
