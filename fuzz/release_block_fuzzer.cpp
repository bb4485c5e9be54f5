// Feeds arbitrary texts to the reader of release blocks. A digest that it finds must be in the
// block, after the name of the component.

#include <cstdint>
#include <string>

#include "fuzz/require.h"
#include "trust/digest.h"
#include "trust/release_block.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string block(data, data + size);
  std::string digest;
  if (!Vantrell::ParseReleaseBlock(block, "1.1", "client-linux-amd64", digest)) return 0;
  Vantrell::Require(digest.size() == 64, "a digest of a wrong length");
  Vantrell::Require(Vantrell::NormalizeDigest(digest) == digest, "a digest that is not normalized");
  const size_t line = block.find("\nclient-linux-amd64 ");
  Vantrell::Require(line != std::string::npos, "a digest without a line for the component");
  const std::string rest = block.substr(line + 1);
  const std::string first = rest.substr(rest.find(' ') + 1, rest.find('\n') - rest.find(' ') - 1);
  Vantrell::Require(Vantrell::NormalizeDigest(first) == digest, "a digest of another line");
  return 0;
}
