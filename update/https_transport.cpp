#include "update/https_transport.h"
#include "base/failure.h"

#include <curl/curl.h>

#include <cstdio>
#include <memory>
#include <mutex>

namespace Vantrell {
namespace {

constexpr char UserAgent[] = "VantrellUpdater/1.0";
constexpr char AllowedProtocol[] = "https";
constexpr long ConnectLimitMs = 20000;  // for a GET; a POST has none of its own

struct CurlCleanup {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using CurlHandle = std::unique_ptr<CURL, CurlCleanup>;

struct HeaderFree {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderFree>;

// On failure curl_slist_append() returns null and leaves the list as it was.
CURLcode AddHeader(HeaderList& list, const std::string& header) {
  curl_slist* longer = curl_slist_append(list.get(), header.c_str());
  if (longer == nullptr) return CURLE_OUT_OF_MEMORY;
  (void)list.release();  // `longer` is this list with the new header
  list.reset(longer);
  return CURLE_OK;
}

CurlHandle MakeHandle() {
  static std::once_flag globalStart;
  // A failure is not final: curl_easy_init() tries it again, and its result is checked.
  std::call_once(globalStart, [] { curl_global_init(CURL_GLOBAL_ALL); });
  return CurlHandle(curl_easy_init());
}

long ResponseCode(CURL* handle) {
  long code = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &code);
  return code;
}

}  // namespace

size_t AppendToString(char* data, size_t size, size_t count, void* text) {
  static_cast<std::string*>(text)->append(data, size * count);
  return size * count;
}

size_t WriteToFile(char* data, size_t size, size_t count, void* stream) {
  // With a result below the number of bytes libcurl ends the transfer with its write error.
  return fwrite(data, size, count, static_cast<FILE*>(stream)) * size;
}

HttpResult HttpsPostJson(const std::string& host, const std::string& path, const std::string& body,
                         const std::string& bearerToken, int32_t timeoutMs) {
  HttpResult result;
  const CurlHandle handle = MakeHandle();
  if (!handle) {
    result.error = "curl_easy_init failed";
    return result;
  }
  const std::string url = "https://" + host + path;
  HeaderList headers;
  CURLcode code = AddHeader(headers, "Content-Type: application/json");
  if (code == CURLE_OK && !bearerToken.empty()) {
    code = AddHeader(headers, "Authorization: Bearer " + bearerToken);
  }
  curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle.get(), CURLOPT_USERAGENT, UserAgent);
  curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDS, body.data());  // libcurl makes no copy
  curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(timeoutMs));
  curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
  // A request whose limit cannot be set is not sent.
  if (code == CURLE_OK) {
    code = curl_easy_setopt(handle.get(), CURLOPT_PROTOCOLS_STR, AllowedProtocol);
  }
  curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, &AppendToString);
  curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &result.body);

  if (code == CURLE_OK) code = curl_easy_perform(handle.get());
  if (code != CURLE_OK) {
    result.error = std::string("curl error ") + curl_easy_strerror(code);
    return result;
  }
  result.status = static_cast<int32_t>(ResponseCode(handle.get()));
  result.ok = true;
  return result;
}

bool HttpsGet(const std::string& url, WriteCallback writeCallback, void* sink, long timeoutMs,
              std::string& error) {
  const CurlHandle handle = MakeHandle();
  if (!handle) return FailWith("curl_easy_init failed", error);
  HeaderList headers;
  CURLcode code = AddHeader(headers, "Cache-Control: no-cache");

  curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle.get(), CURLOPT_USERAGENT, UserAgent);
  curl_easy_setopt(handle.get(), CURLOPT_FOLLOWLOCATION, 1L);
  // Without these limits http and file URLs would be fetched, so a failure ends the request.
  if (code == CURLE_OK) {
    code = curl_easy_setopt(handle.get(), CURLOPT_PROTOCOLS_STR, AllowedProtocol);
  }
  if (code == CURLE_OK) {
    code = curl_easy_setopt(handle.get(), CURLOPT_REDIR_PROTOCOLS_STR, AllowedProtocol);
  }
  curl_easy_setopt(handle.get(), CURLOPT_CONNECTTIMEOUT_MS, ConnectLimitMs);
  curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT_MS, timeoutMs);
  curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, writeCallback);
  curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, sink);
  curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());

  if (code == CURLE_OK) code = curl_easy_perform(handle.get());
  if (code != CURLE_OK) {
    return FailWith(std::string("download failed, ") + curl_easy_strerror(code), error);
  }
  const long status = ResponseCode(handle.get());
  if (status == 200) return true;
  return FailWith("HTTP " + std::to_string(status), error);
}

bool FetchToString(const std::string& url, std::string& body, std::string& error) {
  body.clear();
  return HttpsGet(url, AppendToString, &body, SmallFileLimitMs, error);
}

}  // namespace Vantrell
