#pragma once

// All network traffic: HTTPS only, certificates verified as libcurl does by default. Every
// request has a handle of its own; nothing is shared, kept or retried. Any thread may call
// these; each blocks its caller. Nothing here logs.

#include <cstddef>
#include <cstdint>
#include <string>

namespace Vantrell {

struct HttpResult {
  bool ok = false;     // the transfer finished; says nothing of the HTTP status
  int32_t status = 0;  // HTTP status, only when ok
  std::string body;    // as received, also for an error status
  std::string error;   // why not, when not ok: "curl error ..." or "curl_easy_init failed"
};

// A libcurl write function: takes size * count bytes, returns how many it took.
using WriteCallback = size_t (*)(char* data, size_t size, size_t count, void* sink);
size_t AppendToString(char* data, size_t size, size_t count, void* text);  // a std::string
size_t WriteToFile(char* data, size_t size, size_t count, void* stream);   // a FILE

// Posts to "https://" + host + path, whatever these hold; follows no redirect. An empty
// `bearerToken` sends no Authorization header. `timeoutMs` limits the whole transfer.
HttpResult HttpsPostJson(const std::string& host, const std::string& path, const std::string& body,
                         const std::string& bearerToken, int32_t timeoutMs);

// Gets a URL and follows redirects, to https only. True only for a final 200; otherwise
// `error` is "download failed, ...", "HTTP " and the status, or "curl_easy_init failed", and what
// the sink was given is to be thrown away. `timeoutMs` limits the whole transfer.
[[nodiscard]] bool HttpsGet(const std::string& url, WriteCallback writeCallback, void* sink,
                            long timeoutMs, std::string& error);

// HttpsGet of a small file into `body`, which is emptied first; a minute at most.
[[nodiscard]] bool FetchToString(const std::string& url, std::string& body, std::string& error);

}  // namespace Vantrell
