// Times the proof of a release: with the function of the service, which gets the nine files of the
// witnesses and verifies them; with nine transfers of libcurl that forget what they get; and with
// nine processes of curl. Prints the three times of each round, in microseconds.
//
//   witness_files OFFER ROUNDS

#include <curl/curl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/deployment.h"
#include "base/file_content.h"
#include "bench/stopwatch.h"
#include "trust/witness_quorum.h"
#include "update/https_transport.h"
#include "update/manifest.h"
#include "update/update.h"

namespace Vantrell {
namespace {

constexpr char Ring[] = "prod";

void Require(bool succeeded, const std::string& what) {
  if (succeeded) return;
  fprintf(stderr, "witness_files: %s\n", what.c_str());
  exit(1);
}

std::vector<std::string> WitnessUrls(const std::string& version) {
  std::vector<std::string> urls;
  for (const char* base : WitnessBaseUrls) {
    for (const std::string& url : WitnessFileUrls(base, Ring, version, ReleaseComponent)) {
      urls.push_back(url);
    }
  }
  return urls;
}

size_t Forget(char* data, size_t size, size_t count, void* sink) {
  (void)data;
  (void)sink;
  return size * count;
}

void GetWithLibcurl(const std::string& url) {
  CURL* handle = curl_easy_init();
  Require(handle != nullptr, "curl_easy_init failed");
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, Forget);
  Require(curl_easy_perform(handle) == CURLE_OK, "libcurl cannot get " + url);
  curl_easy_cleanup(handle);
}

void GetWithProcess(const std::string& url) {
  const char* const arguments[] = {"curl",      "--silent",  "--fail", "--output",
                                   "/dev/null", url.c_str(), nullptr};
  pid_t child = 0;
  int status = 0;
  Require(
      posix_spawnp(&child, "curl", nullptr, nullptr, const_cast<char**>(arguments), environ) == 0 &&
          waitpid(child, &status, 0) == child && status == 0,
      "curl cannot get " + url);
}

}  // namespace
}  // namespace Vantrell

int main(int argc, char** argv) {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): only main is outside of it
  if (argc != 3) return 2;
  UpdateManifest manifest;
  std::string error;
  Require(ParseManifest(ReadWholeFile(argv[1]), manifest, error), error);
  const std::vector<std::string> urls = WitnessUrls(manifest.version);

  // The first request initializes the library and fills the caches.
  std::string body;
  Require(FetchToString(urls.front(), body, error), error);
  for (int round = atoi(argv[2]); round > 0; --round) {
    const double ours = Microseconds(
        [&] { Require(VerifyRelease(manifest, ReleaseComponent, Ring, error), error); });
    const double loop = Microseconds([&] {
      for (const std::string& url : urls) GetWithLibcurl(url);
    });
    const double processes = Microseconds([&] {
      for (const std::string& url : urls) GetWithProcess(url);
    });
    printf("%.1f %.1f %.1f\n", ours, loop, processes);
  }
  return 0;
}
