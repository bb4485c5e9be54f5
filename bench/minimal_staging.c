// The smallest staging of a package: libcurl writes it into a file, which is flushed to the disk
// and then hashed. Prints the seconds from the start of the transfer to the digest, the seconds of
// the processor, and the digest.
//
//   minimal_staging URL FILE

#include <curl/curl.h>
#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

static double Seconds(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

static int Download(const char* url, const char* path) {
  FILE* const file = fopen(path, "wb");
  CURL* const handle = curl_easy_init();
  if (file == NULL || handle == NULL) return 0;
  curl_easy_setopt(handle, CURLOPT_URL, url);
  curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, file);  // libcurl calls fwrite()
  const int fetched = curl_easy_perform(handle) == CURLE_OK;
  curl_easy_cleanup(handle);
  const int onDisk = fflush(file) == 0 && fsync(fileno(file)) == 0;
  return fclose(file) == 0 && fetched && onDisk;
}

static int Hash(const char* path, unsigned char* digest) {
  static char block[65536];
  gnutls_hash_hd_t hash = NULL;
  FILE* const file = fopen(path, "rb");
  if (file == NULL || gnutls_hash_init(&hash, GNUTLS_DIG_SHA256) < 0) return 0;
  setbuf(file, NULL);
  for (size_t count; (count = fread(block, 1, sizeof block, file)) > 0;) {
    gnutls_hash(hash, block, count);
  }
  gnutls_hash_deinit(hash, digest);
  const int whole = !ferror(file);
  fclose(file);
  return whole;
}

int main(int argc, char** argv) {
  unsigned char digest[32];
  if (argc != 3 || curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK) return 2;
  const double start = Seconds(CLOCK_MONOTONIC);
  const double used = Seconds(CLOCK_PROCESS_CPUTIME_ID);
  if (!Download(argv[1], argv[2]) || !Hash(argv[2], digest)) {
    fprintf(stderr, "minimal_staging: cannot stage %s\n", argv[1]);
    return 1;
  }
  printf("%.6f %.6f ", Seconds(CLOCK_MONOTONIC) - start, Seconds(CLOCK_PROCESS_CPUTIME_ID) - used);
  for (size_t index = 0; index < sizeof digest; ++index) printf("%02x", digest[index]);
  printf("\n");
  return 0;
}
