#include "trust/signature.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>

#include "tests/unit/trust/release_data.h"

namespace Vantrell {

TEST(Signature, IsOfTheWholeTextByOneOfTheKeys) {
  const std::string block = ReleaseData("release.block");
  const std::string signature = ReleaseData("release.sig2");
  const std::string der = ReleaseData("release-key-2.der");
  const std::vector<ReleaseKey> keys = {KeyOf(block), KeyOf(der)};  // the first is unreadable
  // The text and 2^32 zero bytes after it: cut to 32 bits, the length is that of the text.
  const auto lengthened = [](const std::string& text) -> std::string_view {
    const size_t size = text.size() + (1UL << 32);
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return {static_cast<char*>(memcpy(memory, text.data(), text.size())), size};
  };
  EXPECT_TRUE(VerifyDigestSignature(block, signature, keys));
  EXPECT_FALSE(VerifyDigestSignature(lengthened(block), signature, keys));
  EXPECT_FALSE(VerifyDigestSignature(block, lengthened(signature), keys));
}

}  // namespace Vantrell
