#pragma once

// The text of large manifests.

#include <cstdint>
#include <cstdio>
#include <string>

namespace Vantrell {

constexpr size_t MostBytesOfEntry = 250;

// The object of one file in a manifest. Each number gives another one.
inline std::string ManifestEntry(int64_t number) {
  const auto value = static_cast<long long>(number);
  char entry[MostBytesOfEntry];
  snprintf(entry, sizeof entry,
           R"({"name":"modules/part-%06lld.so","sha256":"%064lld","size":%lld,)"
           R"("url":"https://downloads.vantrell.example/releases/2.4.0/modules/part-%06lld.so"})",
           value, value, 40000 + value * 17, value);
  return entry;
}

}  // namespace Vantrell
