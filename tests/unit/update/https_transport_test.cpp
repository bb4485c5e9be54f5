#include "update/https_transport.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "tests/unit/update/curl_options.h"

namespace Vantrell {
namespace {

CURLoption refusedOption = CURLOPT_LASTENTRY;  // none

std::string ErrorOfGet() {
  std::string error;
  std::string body;
  EXPECT_FALSE(FetchToString("https://127.0.0.1:1/", body, error));
  return error;
}

}  // namespace

// These take the place of libcurl's functions in the test program. A long is as wide as a pointer.
CURLcode RecordOption(CURL* handle, CURLoption option, long value) __asm__("curl_easy_setopt");
CURLcode RecordOption(CURL* handle, CURLoption option, long value) {
  static const auto real =
      reinterpret_cast<decltype(&curl_easy_setopt)>(dlsym(RTLD_NEXT, "curl_easy_setopt"));
  options[option] = value;
  return option == refusedOption ? CURLE_UNKNOWN_OPTION : real(handle, option, value);
}

extern "C" curl_slist* curl_slist_append(curl_slist* list, const char* text) {
  static const auto real =
      reinterpret_cast<decltype(&curl_slist_append)>(dlsym(RTLD_NEXT, "curl_slist_append"));
  return refusedOption == CURLOPT_HTTPHEADER ? nullptr : real(list, text);
}

TEST(HttpsTransport, HasTimeLimitsAndFailsWithoutItsProtocolLimitsAndItsHeaders) {
  const std::string words = "An unknown option was passed in to libcurl";
  for (const CURLoption option : {CURLOPT_REDIR_PROTOCOLS_STR, CURLOPT_PROTOCOLS_STR}) {
    refusedOption = option;
    EXPECT_EQ(ErrorOfGet(), "download failed, " + words) << option;
  }
  EXPECT_EQ(options[CURLOPT_CONNECTTIMEOUT_MS], 20000);
  EXPECT_EQ(options[CURLOPT_TIMEOUT_MS], 60000);
  EXPECT_EQ(HttpsPostJson("127.0.0.1:1", "/", "", "", 2000).error, "curl error " + words);
  refusedOption = CURLOPT_HTTPHEADER;
  EXPECT_EQ(ErrorOfGet(), "download failed, Out of memory");
  EXPECT_EQ(HttpsPostJson("127.0.0.1:1", "/", "", "", 2000).error, "curl error Out of memory");
  refusedOption = CURLOPT_LASTENTRY;
}

}  // namespace Vantrell
