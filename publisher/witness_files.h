#pragma once

// The nine files that prove a release, three on each witness. Each is judged by itself, so that all
// faults show at once and the wrong file has a name. The service stops at the first refusal, and
// cannot tell which of two files that differ is the wrong one.

#include <array>
#include <string>
#include <vector>

#include "trust/release_keys.h"
#include "trust/witness_quorum.h"
#include "update/update.h"

namespace Vantrell::Publisher {

// The files of a witness, in the order of the service's requests.
constexpr size_t BlockFile = 0;
constexpr size_t SignatureFile = 1;
constexpr size_t DigestFile = 2;
constexpr std::array<const char*, 3> FileNames = {"block", "signature", "digest"};

struct WitnessFile {
  std::string url;
  bool isFetched = false;
  std::string body;    // when fetched
  std::string remark;  // of a signature: whose it is
  std::string fault;   // in words that can follow "the file: "; empty: the file is right
};

struct Witness {
  std::string baseUrl;
  std::array<WitnessFile, FileNames.size()> files;
};

// Fetches the files of a release from all witnesses, at the same time: `fetch` is called on nine
// threads. The faults are those of the fetches.
std::vector<Witness> FetchWitnessFiles(const UpdateManifest& manifest, const std::string& component,
                                       const std::string& channel,
                                       const std::vector<std::string>& baseUrls,
                                       const WitnessFetch& fetch);

// Gives every fetched file that is wrong its fault. The content comes first: what a block and a
// digest file say, and which key made a signature. Files without a fault of their own are then
// compared with each other: if most of them are the same, the others are wrong, and otherwise all.
// So without a fault the release is proved. The service's code logs meanwhile.
void JudgeWitnessFiles(const UpdateManifest& manifest, const std::string& component,
                       const std::vector<ReleaseKey>& keys, std::vector<Witness>& witnesses);

// The digest that all witnesses give although the offer has another one: the offer is wrong and not
// the files. Empty if there is none.
std::string OtherDigestOfAll(const UpdateManifest& manifest, const std::string& component,
                             const std::vector<Witness>& witnesses);

}  // namespace Vantrell::Publisher
